#pragma once

#include "feedbacks.h"
#include "gateway.h"
#include "json.h"
#include "model.h"
#include "storage.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <unordered_map>

namespace gateway {

/// What the gateway answers when nothing is wrong with it: the tokens and the endpoints. Thread-safe.
class Endpoints {
 public:
    /// The options must outlive it.
    explicit Endpoints(const Options& options);
    /// What token answers name from now on.
    void setAreaDomain(std::string domain);
    /// Has a model answer what templates were rendered to, if the options name one. Throws
    /// std::runtime_error when they can't be used. Before the first answer.
    void connectModel();

    /// Made early, whatever it is, once the client has left.
    Answer answer(const Request& request, const std::stop_token& left);

    void expireTokens();
    void setNextToken(std::string text);
    std::uint64_t tokensIssued() const;

    Feedbacks& feedbacks() { return feedbacks_; }
    Storage& storage() { return storage_; }

 private:
    using Clock = std::chrono::steady_clock;

    Answer token(const std::string& body);
    Answer withToken(const Request& request,
                     const std::function<Answer(const rapidjson::Value&)>& endpoint) const;
    bool accepts(const std::string& appKey, const std::string& secretKey) const;
    bool holds(const std::string& authorization) const;
    std::string issueToken(std::string& areaDomain);
    Answer result(const rapidjson::Value& document, const std::stop_token& left) const;
    bool forbids(const std::string& text) const;

    const Options& options_;
    const std::map<std::string, Template> templates_;
    std::unique_ptr<Model> model_;
    Feedbacks feedbacks_;
    Storage storage_;

    mutable std::mutex mutex_;  // guards what follows
    std::string areaDomain_;
    std::deque<std::string> nextTokens_;
    std::unordered_map<std::string, Clock::time_point> tokens_;  // and when they end
    std::deque<std::string> tokenOrder_;
    std::uint64_t issued_ = 0;
};

}  // namespace gateway
