// A user's feedback on an answer, with pictures from files, and its withdrawal.
//
//     VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... feedback GATEWAY-URL COMMENT [JPEG-FILE...]

#include <Veltra/Veltra.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <unordered_set>

namespace {

// The library doesn't check the bytes, and sends at most four pictures: a host tells its user
// beforehand, while the user can still do something about it.
bool AddPicture(const char* file, std::unordered_set<std::string>& pictures) {
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
    if (bytes.compare(0, 3, "\xFF\xD8\xFF") != 0 || pictures.size() == 4) return false;
    pictures.insert(Veltra::EncodeBase64(bytes.data(), bytes.size()));
    return true;
}

bool Ask(const std::string& traceId) {
    const auto message = std::make_shared<Veltra::CHumanMessage>();
    message->SetElements("greeting", {{"name", "Ada"}, {"place", "the library"}});
    message->SetSessionID(traceId);  // the name by which feedback finds the query again
    Veltra::CAiHelper helper(Veltra::ProductType::Default, "");
    std::shared_ptr<Veltra::CLLMMessage> answer;
    return helper.GetLLMSessionItem(Veltra::LLMType::Default)->ExecuteQuery(message, answer);
}

}  // namespace

int main(int argc, char** argv) {
    const char* const appKey = std::getenv("VELTRA_APP_KEY");
    const char* const secretKey = std::getenv("VELTRA_SECRET_KEY");
    std::unordered_set<std::string> pictures;
    bool usable = argc >= 3 && appKey != nullptr && secretKey != nullptr;
    for (int i = 3; i < argc && usable; ++i)
        usable = AddPicture(argv[i], pictures);
    if (!usable) {
        std::cerr << "usage: VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... feedback GATEWAY-URL COMMENT "
                     "[JPEG-FILE...], four files at most\n";
        return 2;
    }

    const auto license = std::make_shared<Veltra::CLicenseInfo>();
    license->SetLicenseKey("", {{appKey, secretKey}});
    license->SetProductVersion("5.1.0");  // sent with feedback
    Veltra::Veltra_Enable();
    const std::string traceId = "feedback-example-1";  // a real host makes one for each query
    if (!Veltra::Veltra_SetDomain(argv[1]) ||
        !Veltra::Veltra_Authentication(Veltra::ProductType::Default, license) || !Ask(traceId)) {
        return 1;
    }

    const auto comment = std::make_shared<Veltra::LLMComment>(traceId);
    comment->SetSatisfactionLevel(static_cast<Veltra::SatisfactionLevel>(2));  // the gateway's own
    comment->SetLLMErrType(static_cast<Veltra::LLMErrType>(1));                // numbers
    // Texts go into a JSON string unchanged: an unescaped quote in what users type would break the
    // request or add members to it.
    comment->SetComments(Veltra::EscapeJson(argv[2]));
    comment->SetPictures(pictures);
    std::string id;
    if (!Veltra::Veltra_SubmitComments(comment, id)) return 1;
    std::cerr << "submitted with " << pictures.size() << " pictures\n";

    // The library keeps no ids: a host that lets users withdraw feedback stores them. The id is a
    // text of the gateway, so it is escaped like any other.
    const bool withdrawn = Veltra::Veltra_CancleComments(Veltra::EscapeJson(id));
    std::cerr << (withdrawn ? "withdrawn\n" : "not withdrawn\n");
    Veltra::Veltra_Disable();
    return withdrawn ? 0 : 1;
}
