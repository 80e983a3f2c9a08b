// Many threads that query at once: one login, one helper, a session for each thread.
//
//     VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... many_threads GATEWAY-URL

#include <Veltra/Veltra.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kThreads = 8;
constexpr int kQueriesOfEach = 10;

// Code 2 means an unreachable gateway and code 3 a service that is not usable now: both may pass.
// All other codes would only repeat.
bool AskPatiently(Veltra::CLLMSession& session,
                  const std::shared_ptr<Veltra::CHumanMessage>& message,
                  std::shared_ptr<Veltra::CLLMMessage>& answer) {
    for (int pause = 1; pause <= 4; pause *= 2) {
        if (session.ExecuteQuery(message, answer)) return true;
        std::int32_t code = 0;
        std::string text;
        session.GetErrorInfo(code, text);
        if (code != 2 && code != 3) return false;
        std::this_thread::sleep_for(std::chrono::seconds(pause));
    }
    return false;
}

// A session and a message belong to one thread at a time, so each thread makes its own; both cost
// next to nothing. When the gateway rejects the token, the affected threads share one renewal.
void Work(Veltra::CAiHelper helper, int thread, std::atomic<int>& answered) {
    const auto session = helper.GetLLMSessionItem(Veltra::LLMType::Default);
    const auto message = std::make_shared<Veltra::CHumanMessage>();
    for (int i = 0; i < kQueriesOfEach; ++i) {
        const std::string name = std::to_string(thread) + '.' + std::to_string(i);
        message->SetElements("greeting", {{"name", name}, {"place", "the library"}});
        message->SetSessionID("many-threads-" + name);  // what feedback would name, and support too
        std::shared_ptr<Veltra::CLLMMessage> answer;
        if (AskPatiently(*session, message, answer) &&
            answer->GetContent() == "Hello " + name + ", welcome to the library.") {
            ++answered;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const char* const appKey = std::getenv("VELTRA_APP_KEY");
    const char* const secretKey = std::getenv("VELTRA_SECRET_KEY");
    if (argc != 2 || appKey == nullptr || secretKey == nullptr) {
        std::cerr << "usage: VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... many_threads GATEWAY-URL\n";
        return 2;
    }

    // Once for the process, before the threads: another login would cost another token request and
    // append the same keys again.
    const auto license = std::make_shared<Veltra::CLicenseInfo>();
    license->SetLicenseKey("", {{appKey, secretKey}});
    Veltra::Veltra_Enable();
    if (!Veltra::Veltra_SetDomain(argv[1]) ||
        !Veltra::Veltra_Authentication(Veltra::ProductType::Default, license)) {
        return 1;
    }

    const Veltra::CAiHelper helper(Veltra::ProductType::Default, "");
    std::atomic<int> answered(0);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back(Work, helper, i, std::ref(answered));
    for (std::thread& thread : threads)
        thread.join();

    // Join the threads first: one that goes on would see its queries refused with code 3.
    Veltra::Veltra_Disable();
    std::cout << answered << " of " << kThreads * kQueriesOfEach << " queries answered\n";
    return answered == kThreads * kQueriesOfEach ? 0 : 1;
}
