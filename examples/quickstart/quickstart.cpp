// The smallest complete host: logs in, runs one query, prints the answer.
//
//     VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... quickstart GATEWAY-URL [NAME]

#include <Veltra/Veltra.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

int main(int argc, char** argv) {
    const char* const appKey = std::getenv("VELTRA_APP_KEY");
    const char* const secretKey = std::getenv("VELTRA_SECRET_KEY");
    if (argc < 2 || argc > 3 || appKey == nullptr || secretKey == nullptr) {
        std::cerr
            << "usage: VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... quickstart GATEWAY-URL [NAME]\n";
        return 2;
    }

    auto license = std::make_shared<Veltra::CLicenseInfo>();
    license->SetLicenseKey("", {{appKey, secretKey}});
    Veltra::Veltra_Enable();
    if (!Veltra::Veltra_SetDomain(argv[1]) ||
        !Veltra::Veltra_Authentication(Veltra::ProductType::Default, license)) {
        return 1;  // the library's log says why
    }

    auto message = std::make_shared<Veltra::CHumanMessage>();
    // Texts go into the request unchanged, so what users type must be escaped.
    const std::string name = Veltra::EscapeJson(argc == 3 ? argv[2] : "Ada");
    message->SetElements("greeting", {{"name", name}, {"place", "the library"}});
    message->SetSessionID("quickstart-1");  // the trace id; a real host makes one for each query
    Veltra::CAiHelper helper(Veltra::ProductType::Default, "");
    auto session = helper.GetLLMSessionItem(Veltra::LLMType::Default);
    std::shared_ptr<Veltra::CLLMMessage> answer;
    if (!session->ExecuteQuery(message, answer)) {
        std::int32_t code = 0;
        std::string text;
        session->GetErrorInfo(code, text);
        std::cerr << "refused: code " << code << ": " << text << '\n';
        return 1;
    }
    std::cout << answer->GetContent() << '\n';
    Veltra::Veltra_Disable();
    return 0;
}
