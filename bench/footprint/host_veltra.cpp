// The smallest host: without arguments it ends at once; with a gateway's URL and the file of its
// authority it logs in, runs one query and tells its memory.

#include "footprint/resident_linux.h"

#include <Oak/Net/HttpClientOptions.h>
#include <Veltra/Veltra.h>

int main(int argc, char** argv) {
    if (argc < 3) return 0;
    Oak::Net::HttpClientOptions options;
    options.caFile = argv[2];
    Oak::Net::SetHttpClientOptions(options);
    auto license = std::make_shared<Veltra::CLicenseInfo>();
    license->SetLicenseKey("", {{"bench-app", "bench-secret"}});
    Veltra::Veltra_Enable();
    if (!Veltra::Veltra_SetDomain(argv[1]) ||
        !Veltra::Veltra_Authentication(Veltra::ProductType::Default, license))
        return 1;
    auto message = std::make_shared<Veltra::CHumanMessage>();
    message->SetElements("greeting", {{"name", "Ada"}});
    message->SetSessionID("1");
    auto session = Veltra::CAiHelper(Veltra::ProductType::Default, "").GetLLMSessionItem({});
    std::shared_ptr<Veltra::CLLMMessage> answer;
    if (!session->ExecuteQuery(message, answer)) return 1;
    ReportResidentMemory();
    return 0;
}
