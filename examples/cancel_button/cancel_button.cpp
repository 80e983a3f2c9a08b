// A thread pool with a Cancel button: each job has a control, which the button's handler, on the
// user-interface thread, may cancel at any time.
//
//     VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... cancel_button GATEWAY-URL

#include <Veltra/Veltra.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <queue>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr std::uint32_t kLongestMs = 20000;  // what users of this program are ready to wait

// A fixed number of threads that take jobs in turn. The destructor waits for jobs that have begun.
class Pool {
 public:
    explicit Pool(int threads) {
        for (int i = 0; i < threads; ++i)
            threads_.emplace_back([this] { Work(); });
    }
    ~Pool() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            ending_ = true;
        }
        changed_.notify_all();
        for (std::thread& thread : threads_)
            thread.join();
    }
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    void Add(std::function<void()> job) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            jobs_.push(std::move(job));
        }
        changed_.notify_one();
    }

 private:
    void Work() {
        for (;;) {
            std::unique_lock<std::mutex> lock(mutex_);
            changed_.wait(lock, [this] { return ending_ || !jobs_.empty(); });
            if (jobs_.empty()) return;
            const std::function<void()> job = std::move(jobs_.front());
            jobs_.pop();
            lock.unlock();
            job();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::queue<std::function<void()>> jobs_;
    bool ending_ = false;
    std::vector<std::thread> threads_;
};

// What the window shows of one question. Here it is a line on standard output.
void Show(const std::string& line) {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    std::cout << line << std::endl;
}

// Runs on a thread of the pool. The control is a handle: the window keeps another one.
void Ask(const std::string& name, const Veltra::CCallControl& control) {
    const Veltra::CCallScope scope(control);  // the calls of this thread, from here to the end
    const auto message = std::make_shared<Veltra::CHumanMessage>();
    message->SetElements("greeting",
                         {{"name", Veltra::EscapeJson(name)}, {"place", "the library"}});
    const auto session = Veltra::CAiHelper(Veltra::ProductType::Default, "")
                             .GetLLMSessionItem(Veltra::LLMType::Default);
    std::shared_ptr<Veltra::CLLMMessage> answer;
    if (session->ExecuteQuery(message, answer)) {
        Show(answer->GetContent());
        return;
    }
    const Veltra::CCallReport report = Veltra::Veltra_LastCall();  // of this thread
    if (report.Outcome() == Veltra::CallOutcome::Cancelled)
        Show(name + ": cancelled");
    else
        Show(name + ": " + report.Detail() + (report.Retryable() ? " (try again later)" : ""));
}

}  // namespace

int main(int argc, char** argv) {
    const char* const appKey = std::getenv("VELTRA_APP_KEY");
    const char* const secretKey = std::getenv("VELTRA_SECRET_KEY");
    if (argc != 2 || appKey == nullptr || secretKey == nullptr) {
        std::cerr << "usage: VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... cancel_button GATEWAY-URL\n";
        return 2;
    }
    const auto license = std::make_shared<Veltra::CLicenseInfo>();
    license->SetLicenseKey("", {{appKey, secretKey}});
    Veltra::Veltra_Enable();
    if (!Veltra::Veltra_SetDomain(argv[1]) ||
        !Veltra::Veltra_Authentication(Veltra::ProductType::Default, license)) {
        std::cerr << Veltra::Veltra_LastCall().Detail() << '\n';
        return 1;
    }

    Veltra::CCallControl answered;  // the control of a question that is let run,
    Veltra::CCallControl stopped;   // and of one that the user gives up
    answered.SetTimeLimit(kLongestMs);
    stopped.SetTimeLimit(kLongestMs);
    // The handler of the Cancel button. It returns at once; the call returns within a tenth of a
    // second, wherever it waits.
    const auto onCancelButton = [&stopped] { stopped.Cancel(); };
    {
        Pool pool(2);
        pool.Add([=] { Ask("Ada", answered); });
        onCancelButton();
        pool.Add([=] { Ask("Bob", stopped); });
    }

    // Closing takes less than a second, whatever is under way: give up, join, disable. The pool is
    // gone by now; a program that closes earlier calls this before it waits for its pool.
    Veltra::Veltra_CancelAll();
    Veltra::Veltra_Disable();
}
