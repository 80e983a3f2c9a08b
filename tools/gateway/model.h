#pragma once

#include "gateway.h"
#include "model_client.h"

#include <optional>
#include <stop_token>
#include <string>

namespace gateway {

/// Asks the model behind the gateway, and says in the gateway's own words why it can't answer.
/// Thread-safe.
class Model {
 public:
    struct Outcome {
        ModelCall call;
        std::optional<Answer> refusal;  ///< When there is no answer to hand on.
    };

    /// Throws std::runtime_error when the options can't be used. They must outlive it.
    explicit Model(const ModelOptions& options);

    /// Gives up when the asker has left.
    Outcome ask(const Template& from, const std::string& prompt, const std::stop_token& left);

 private:
    std::optional<Answer> read(ModelCall& call, const ModelClient::Reply& reply) const;
    Answer refusalFor(ModelClient::Fate fate) const;
    std::string quoted(std::string text) const;

    const ModelOptions& options_;
    ModelClient client_;
};

}  // namespace gateway
