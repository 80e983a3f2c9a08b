#ifndef TESTS_SUPPORT_MODEL_STAND_IN_H
#define TESTS_SUPPORT_MODEL_STAND_IN_H

#include "gateway/gateway.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

namespace TestSupport {

/// Speaks the chat completions protocol and answers each prompt with itself, over HTTP or HTTPS.
/// How it fails, and what it saw, are a gateway's.
class ModelStandIn : public gateway::Gateway {
 public:
    explicit ModelStandIn(bool tls, int port = 0) : Gateway(Make(*this, tls, port)) {
        EXPECT_TRUE(start()) << reason();
    }
    ~ModelStandIn() { stop(); }

    /// An answer of the model: the text as it stands in JSON, quotes included.
    static std::string Says(const std::string& content, const std::string& finish = "stop") {
        return R"({"choices":[{"index":0,"message":{"role":"assistant","content":)" + content +
               R"(},"finish_reason":")" + finish +
               R"("}],"usage":{"prompt_tokens":7,"completion_tokens":5}})";
    }
    void Answer(int status, const std::string& body) {
        addFault({"", gateway::FaultKind::Status, status, "", body, 1});
    }
    /// Answers nothing before so many requests are under way.
    void GatherFirst(int count) {
        const std::lock_guard lock(mutex_);
        wanted_ = count;
    }
    int MostAtOnce() {
        const std::lock_guard lock(mutex_);
        return most_;
    }

 private:
    static gateway::Options Make(ModelStandIn& self, bool tls, int port) {
        gateway::Options options;
        options.tls = tls;
        options.port = port;
        options.pickFault = [&self](const gateway::Request& request) {
            self.Count(1);
            self.Gather();
            const auto begin = request.body.rfind("\"content\":") + 10;
            const auto content = request.body.substr(begin, request.body.find("\"}]") + 1 - begin);
            return gateway::Fault{"", gateway::FaultKind::Status, 200, "", Says(content)};
        };
        options.onAnswer = [&self](const auto&...) { self.Count(-1); };
        return options;
    }
    void Count(int more) {
        const std::lock_guard lock(mutex_);
        now_ += more;
        most_ = std::max(most_, now_);
        came_.notify_all();
    }
    void Gather() {
        std::unique_lock lock(mutex_);
        came_.wait_for(lock, std::chrono::seconds(30), [this] { return most_ >= wanted_; });
    }

    std::mutex mutex_;
    std::condition_variable came_;
    int wanted_ = 0;
    int now_ = 0;
    int most_ = 0;
};

}  // namespace TestSupport

#endif
