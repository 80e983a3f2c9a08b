#include "credentials.h"

#include "files.h"
#include "json_read.h"
#include "output.h"
#include "process.h"

namespace tool {

namespace {

constexpr const char* kShape =
    R"({"keys":[{"appKey":"..","secretKey":".."}],"productVersion":".."})";

// What a file holds may be secret even when it is malformed: no message shows any of it.
UsageError malformed(const std::string& file, const std::string& what) {
    return UsageError(file + ": " + what + "; expected " + kShape);
}

Veltra::CAccessKey readKey(const std::string& file, const rapidjson::Value& value) {
    const auto appKey = textMember(value, "appKey");
    const auto secretKey = textMember(value, "secretKey");
    if (!appKey || !secretKey || appKey->empty() || secretKey->empty())
        throw malformed(file, "a key pair without appKey or secretKey");
    return {*appKey, *secretKey};
}

Credentials readCredentials(const std::string& file, const rapidjson::Value& document) {
    if (!document.IsObject()) throw malformed(file, "not a JSON object");
    const auto keys = document.FindMember("keys");
    if (keys == document.MemberEnd() || !keys->value.IsArray() || keys->value.Empty())
        throw malformed(file, "no keys");
    Credentials credentials;
    for (const auto& key : keys->value.GetArray())
        credentials.keys.push_back(readKey(file, key));
    credentials.productVersion = textMember(document, "productVersion").value_or("");
    return credentials;
}

Credentials parseFile(const std::string& file) {
    const std::string text = readFile(file);
    if (isReadableByOthers(file))
        complain("warning: other users may read " + file + "; chmod 600 prevents that");

    constexpr unsigned kFlags =
        rapidjson::kParseValidateEncodingFlag | rapidjson::kParseIterativeFlag;
    rapidjson::Document document;  // stays null after an error
    document.Parse<kFlags>(text.c_str());
    return readCredentials(file, document);
}

}  // namespace

std::shared_ptr<Veltra::CLicenseInfo> Credentials::licence() const {
    // The layer sends texts as they are, so what needs escaping is escaped here.
    std::vector<Veltra::CAccessKey> escaped;
    for (const auto& key : keys)
        escaped.push_back(
            {jsonEscaped(key.appKey, "an app key"), jsonEscaped(key.secretKey, "a secret key")});
    auto info = std::make_shared<Veltra::CLicenseInfo>();
    info->SetLicenseKey("", escaped);
    info->SetProductVersion(jsonEscaped(productVersion, "the product version"));
    return info;
}

std::optional<Credentials> findCredentials(const std::string& file) {
    if (!file.empty()) return parseFile(file);
    const std::string appKey = environmentText("VELTRA_APP_KEY");
    const std::string secretKey = environmentText("VELTRA_SECRET_KEY");
    if (appKey.empty() && secretKey.empty()) return std::nullopt;
    if (appKey.empty() || secretKey.empty())
        throw UsageError(
            "VELTRA_APP_KEY and VELTRA_SECRET_KEY must be set together; one is missing");
    return Credentials{{{appKey, secretKey}}, ""};
}

Credentials loadCredentials(const std::string& file) {
    if (auto credentials = findCredentials(file)) return *credentials;
    throw UsageError(
        "no credentials: give --credentials FILE, or set VELTRA_APP_KEY and VELTRA_SECRET_KEY");
}

}  // namespace tool
