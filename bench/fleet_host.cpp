// One host of a fleet, which fleet.py starts two hundred times: it logs in, then idles with its
// monitor, or runs a query every now and then, until its standard input ends.
//
// fleet_host URL APP_KEY SECONDS   the pause before each query; 0: no query

#include <Veltra/Veltra.h>
#include <qlog/qlog.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace {

bool LogIn(const std::string& url, const std::string& appKey) {
    auto license = std::make_shared<Veltra::CLicenseInfo>();
    license->SetLicenseKey("", {{appKey, "fleet-secret"}});
    return Veltra::Veltra_Enable() && Veltra::Veltra_SetDomain(url) &&
           Veltra::Veltra_Authentication(Veltra::ProductType::Default, license);
}

/// The thread that queries. A query that fails is not repeated: the next one comes after its pause.
class Worker {
 public:
    explicit Worker(std::chrono::seconds pause) : thread_([this, pause] { Run(pause); }) {}
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    ~Worker() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        told_.notify_all();
        control_.Cancel();  // a query may be in the pauses of a renewal, for minutes
        thread_.join();
    }

 private:
    void Run(std::chrono::seconds pause) {
        const Veltra::CCallScope scope(control_);
        auto message = std::make_shared<Veltra::CHumanMessage>();
        message->SetElements("greeting", {{"name", "Ada"}});
        const auto session =
            Veltra::CAiHelper(Veltra::ProductType::Default, "").GetLLMSessionItem({});
        std::shared_ptr<Veltra::CLLMMessage> answer;
        std::unique_lock<std::mutex> lock(mutex_);
        while (!told_.wait_for(lock, pause, [this] { return stopping_; })) {
            lock.unlock();
            session->ExecuteQuery(message, answer);
            lock.lock();
        }
    }

    Veltra::CCallControl control_;
    std::mutex mutex_;
    std::condition_variable told_;
    bool stopping_ = false;
    std::thread thread_;  // last: it uses the others
};

void AwaitEndOfInput() {
    std::cin.ignore(std::numeric_limits<std::streamsize>::max());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: fleet_host URL APP_KEY SECONDS\n";
        return 2;
    }
    qlog_set_handler(nullptr, nullptr, 6);  // an outage is what this is for: no record of it
    if (!LogIn(argv[1], argv[2])) return 1;
    const std::chrono::seconds pause(std::strtol(argv[3], nullptr, 10));
    {
        std::unique_ptr<Worker> worker;
        if (pause.count() > 0) worker = std::make_unique<Worker>(pause);
        AwaitEndOfInput();
    }
    Veltra::Veltra_Disable();
    return 0;
}
