// A plugin that uses the library. The host links neither: see plugin_host.cpp.

#include "assistant.h"

#include <Veltra/Veltra.h>
#include <qlog/qlog.h>

#include <cstdint>
#include <memory>
#include <string>

namespace {

assistant_log hostLog = nullptr;

// Code of the plugin that the library calls: it is removed before the plugin is unloaded.
extern "C" void ToHost(int /*level*/, const char* /*tag*/, const char* message, void* /*context*/) {
    hostLog(message);
}

}  // namespace

int assistant_start(const char* gateway, const char* appKey, const char* secretKey,
                    assistant_log log) {
    hostLog = log;
    qlog_set_handler(&ToHost, nullptr, 4);
    const auto license = std::make_shared<Veltra::CLicenseInfo>();
    license->SetLicenseKey("", {{appKey, secretKey}});
    Veltra::Veltra_Enable();
    return Veltra::Veltra_SetDomain(gateway) &&
                   Veltra::Veltra_Authentication(Veltra::ProductType::Default, license)
               ? 1
               : 0;
}

int assistant_ask(const char* name, char* answer, size_t size) {
    const auto message = std::make_shared<Veltra::CHumanMessage>();
    message->SetElements("greeting", {{"name", Veltra::EscapeJson(name)}, {"place", "the plugin"}});
    // Sessions and answers are code and data of the library. Here they are destroyed with the call.
    Veltra::CAiHelper helper(Veltra::ProductType::Default, "");
    const auto session = helper.GetLLMSessionItem(Veltra::LLMType::Default);
    std::shared_ptr<Veltra::CLLMMessage> result;
    if (session->ExecuteQuery(message, result)) {
        const std::string text = result->GetContent();
        answer[text.copy(answer, size - 1)] = '\0';
        return 0;
    }
    std::int32_t code = 0;
    std::string text;
    session->GetErrorInfo(code, text);
    return code;
}

void assistant_stop() {
    // Ends the library's thread. While a module is unloaded the system's loader holds a lock that
    // this thread might need, so it has to be gone by then.
    Veltra::Veltra_Disable();
    // On return the handler is not running, and won't run again.
    qlog_set_handler(nullptr, nullptr, 5);
}
