// The library's log records in the host's own logger, here one of spdlog.
//
//     VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... own_logger GATEWAY-URL

#include <Veltra/Veltra.h>
#include <qlog/qlog.h>

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

namespace {

spdlog::level::level_enum LevelOf(int level) {
    switch (level) {
        case 2:
            return spdlog::level::debug;
        case 3:
            return spdlog::level::info;
        case 4:
            return spdlog::level::warn;
        default:
            return spdlog::level::err;
    }
}

// A log record may quote what a gateway sent. Without this, a line break in it could forge a line
// of the log, and an escape sequence could control the terminal of whoever reads it.
std::string OneLine(const char* message) {
    std::string line;
    for (; *message != '\0'; ++message) {
        const auto byte = static_cast<unsigned char>(*message);
        line += byte < 0x20 || byte == 0x7f ? '?' : *message;
    }
    return line;
}

// The answer to a failed login is quoted in full, and may contain a token.
bool MayHoldToken(const char* message) {
    return std::strstr(message, "Request get token failed") != nullptr &&
           std::strstr(message, "rsp is:") != nullptr;
}

// Called from any thread, and from several at once, so the logger's sink is one of the "_mt" kind.
// It must not throw: the library would swallow the exception, and the log record would be lost.
extern "C" void ToSpdlog(int level, const char* tag, const char* message, void* context) {
    auto& logger = *static_cast<spdlog::logger*>(context);
    try {
        std::string line = std::string(tag) + ": ";
        line += MayHoldToken(message) ? "a login was refused (answer left out)" : OneLine(message);
        logger.log(LevelOf(level), line);
    } catch (...) {
        std::cerr << "a log record was lost\n";
    }
}

// Sets the handler for a scope. When the destructor returns, no handler is running and none will
// run: only then may the logger be destroyed.
class RecordsTo {
 public:
    explicit RecordsTo(spdlog::logger& logger) {
        // 4 passes on warnings and errors; lower levels are not even formatted. 3 and 2 show what
        // users write and models answer, so they are for a developer's machine.
        qlog_set_handler(&ToSpdlog, &logger, 4);
    }
    RecordsTo(const RecordsTo&) = delete;
    RecordsTo& operator=(const RecordsTo&) = delete;
    ~RecordsTo() { qlog_set_handler(nullptr, nullptr, 4); }
};

}  // namespace

int main(int argc, char** argv) {
    const char* const appKey = std::getenv("VELTRA_APP_KEY");
    const char* const secretKey = std::getenv("VELTRA_SECRET_KEY");
    if (argc != 2 || appKey == nullptr || secretKey == nullptr) {
        std::cerr << "usage: VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... own_logger GATEWAY-URL\n";
        return 2;
    }

    spdlog::logger logger("veltra", std::make_shared<spdlog::sinks::stderr_sink_mt>());
    logger.set_pattern("[%l] [thread %t] %v");
    const RecordsTo records(logger);  // before the first call, so that no record is missed

    const auto license = std::make_shared<Veltra::CLicenseInfo>();
    license->SetLicenseKey("", {{appKey, secretKey}});
    Veltra::Veltra_Enable();
    int status = 1;
    if (Veltra::Veltra_SetDomain(argv[1]) &&
        Veltra::Veltra_Authentication(Veltra::ProductType::Default, license)) {
        // No session id is set, so the library generates one and logs it at level 4.
        const auto message = std::make_shared<Veltra::CHumanMessage>();
        message->SetElements("greeting", {{"name", "Ada"}, {"place", "the library"}});
        Veltra::CAiHelper helper(Veltra::ProductType::Default, "");
        std::shared_ptr<Veltra::CLLMMessage> answer;
        const auto session = helper.GetLLMSessionItem(Veltra::LLMType::Default);
        if (session->ExecuteQuery(message, answer)) {
            std::cout << answer->GetContent() << '\n';
            status = 0;
        }
    }
    Veltra::Veltra_Disable();
    return status;
}
