#include <Oak/Net/HttpClient.h>
#include <Oak/Net/HttpClientOptions.h>
#include <qlog/qlog.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace {

using Oak::Net::CHttpClientRequest;
using Oak::Net::HttpClient;
using Oak::Net::URL;

const std::string folder = VELTRA_STRANGERS "/";

std::string Read(const std::string& name) {
    std::ifstream file(folder + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void Write(const std::string& name, const std::string& text) {
    std::ofstream(folder + name, std::ios::binary) << text;
}

/// The reason why nothing came back: the servers answer nobody.
std::string Send(const std::string& server, const std::string& caFile, const std::string& token) {
    Oak::Net::HttpClientOptions options;
    options.caFile = caFile.empty() ? caFile : folder + caFile;
    options.totalTimeoutMs = 2000;
    Oak::Net::SetHttpClientOptions(options);
    CHttpClientRequest request("POST", URL("https://localhost:" + Read(server + ".port") + "/"));
    request.AddHeaderField("Authorization", token);
    Oak::Net::CHttpClientResponse response;
    HttpClient::Error error{};
    EXPECT_FALSE(HttpClient::Send(request, &response, &error));
    const std::string text = error.text;
    return text.substr(0, text.find(':'));
}

TEST(TrustTest, NothingGoesToAServerThatTheFileDoesNotCover) {
    qlog_set_handler([](int, const char*, const char*, void*) {}, nullptr, 4);
    const std::string known = Read("known.pem");
    const auto middle = known.size() / 2;
    Write("text_around.pem", "one\n" + Read("unknown.pem") + "two\r\n" + known + "three");
    Write("nothing.pem", "");
    Write("cut.pem", known.substr(0, middle));
    Write("broken.pem", known + "-----BEGIN CERTIFICATE-----\nAQID\n-----END CERTIFICATE-----\n");
    const struct {
        std::string server, caFile;
        bool reached;
    } cases[] = {
        // Those that may not send hold their server until the test ends, so they come last.
        {"chained", "known.pem", true},
        {"asking", "known.pem", true},
        {"good", "text_around.pem", true},
        {"old", "known.pem", false},
        {"good", "", false},
        {"good", "nothing.pem", false},
        {"good", "cut.pem", false},
        {"good", "broken.pem", false},
        {"good", "missing.pem", false},
        {"elsewhere", "known.pem", false},
        {"expired", "known.pem", false},
        {"client", "known.pem", false},
        {"good", "unknown.pem", false},
        {"chained", "unknown.pem", false},
    };
    int number = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.server + ' ' + c.caFile);
        const std::string token = "token-" + std::to_string(++number) + '-';
        EXPECT_EQ(Send(c.server, c.caFile, token), c.reached ? "time-out" : "certificate");
        EXPECT_EQ(Read(c.server + ".heard").find(token) != std::string::npos, c.reached);
    }
}

}  // namespace
