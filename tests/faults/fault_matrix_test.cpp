// Every road to the gateway crossed with every fault, over real sockets. A road knows what it makes
// of an exchange that failed, of another status than 200 and of an answer; a fault knows which of
// these it is. What a cell has to come to follows from both. What lies below HTTP no road sees: see
// the test of the HTTP client.

#include "e2e/e2e_support.h"
#include "faults/roads.h"

#include <qlog/qlog.h>

#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include <cstring>
#include <thread>
#include <tuple>

namespace {

using namespace faults;
using namespace std::string_literals;
using gateway::Certificate;
using gateway::FaultKind;

/// A file of authorities that the system trusts, for as long as it is named here.
std::string systemsAuthorities;

}  // namespace

/// In place of the TLS library's, which the HTTP library asks for the system's folder of them.
extern "C" int X509_STORE_load_path(X509_STORE* store, const char* /*folder*/) {
    const bool any = !systemsAuthorities.empty();
    return any ? X509_STORE_load_file(store, systemsAuthorities.c_str()) : 1;
}

namespace {

constexpr std::size_t kLimit = 20'000;

constexpr std::uint32_t kPatienceMs = 120;

/// Where a fault meets a road. All but the first on a new connection: changed options retire the
/// kept ones.
enum class Meets { KeptConnection, NewConnection, OtherAuthorities, SmallLimit, ShortPatience };

struct Fault {
    std::string name;
    Fate fate;
    std::function<void(gateway::Gateway&)> on;
    Meets meets = Meets::KeptConnection;
    bool unanswered = false;  ///< Before any byte of the answer: the HTTP library repeats once.
    bool unseen = false;      ///< The gateway sees no request.
};

std::string Sized(const std::string& body) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}
std::string Padded(std::string text, std::size_t size) {
    text.resize(size, ' ');
    return text;
}

// --- the faults ----------------------------------------------------------------------------------

using Faults = std::vector<Fault>;

/// The file of an authority that has nothing to do with the gateway's.
std::string OtherAuthority() {
    static gateway::Gateway other(e2e::Serve(true));
    static const bool started = other.start();
    static const e2e::TemporaryFile file(started ? other.caPem() : "");
    return file.Path();
}

void ConnectionFaults(Faults& all, const Road& road, bool tls) {
    const auto add = [&](const std::string& name, const std::string& reason, const auto& on,
                         Meets meets = Meets::NewConnection) {
        all.push_back({name, NotSent{reason}, on, meets, false, true});
    };
    add("connection refused", "could not connect",
        [](auto& server) { server.refuseConnections(true); });
    if (!tls) return;
    if (road.name != "Put") {  // comes after an exchange over a trusted connection
        add(
            "unknown authority", "certificate", [](auto&) { Oak::Net::SetHttpClientOptions({}); },
            Meets::OtherAuthorities);
        add(
            "known to the system, not to the file that counts", "certificate",
            [](auto& server) {
                static const e2e::TemporaryFile known(server.caPem());
                systemsAuthorities = known.Path();
                Oak::Net::HttpClientOptions http;
                http.caFile = OtherAuthority();
                Oak::Net::SetHttpClientOptions(http);
            },
            Meets::OtherAuthorities);
    }
    for (const auto which : {Certificate::Expired, Certificate::SelfSigned, Certificate::WrongHost})
        add("certificate " + std::to_string(static_cast<int>(which)), "certificate",
            [which](auto& server) { server.setCertificate(which); });
    add("TLS 1.1 at most", "could not connect", [](auto& server) { server.speakOldTlsOnly(true); });
}

void ExchangeFaults(Faults& all, const Road& road, bool tls) {
    const auto add = [&](const std::string& name, FaultKind kind, int number, const Fate& fate,
                         bool unanswered, Meets meets = Meets::KeptConnection) {
        const auto text = kind == FaultKind::Status && number != 204 ? road.good : "";
        const gateway::Fault fault{road.faulted, kind, number, "", text};
        all.push_back(
            {name, fate, [=](auto& server) { server.addFault(fault); }, meets, unanswered});
    };
    const NotSent cutOff{"cut off"};
    const NotSent timeOut{"time-out"};
    add("closed", FaultKind::Close, 0, cutOff, true);
    add("reset", FaultKind::Reset, 0, cutOff, true);
    // Below TLS nothing of the answer can be read yet.
    add("reset in the headers", FaultKind::ResetInHeaders, 20, cutOff, tls);
    add("reset in the body", FaultKind::ResetInBody, 3, cutOff, false);
    add("closed in the body", FaultKind::CutBody, 3, cutOff, false);
    add("stall", FaultKind::Stall, 0, timeOut, false, Meets::ShortPatience);
    add("stall in the body", FaultKind::StallInBody, 3, timeOut, false, Meets::ShortPatience);
    add("noise", FaultKind::Garbage, 0, tls ? cutOff : NotSent{"other"}, tls);
    for (const int status : {201, 204, 301, 302, 401, 403, 404, 429, 500, 503})
        add("status " + std::to_string(status), FaultKind::Status, status, Refused{status}, false);
}

void AnswerFaults(Faults& all, const Road& road, const std::string& base) {
    const auto add = [&](const std::string& name, const gateway::Answer& answer, const Fate& fate,
                         Meets meets = Meets::KeptConnection) {
        const auto on = [=, target = road.target](auto& server) {
            server.setAnswer(target, answer);
        };
        all.push_back({name, fate, on, meets});
    };
    for (const auto& body :
         {""s, "<html></html>"s, R"({"errorCode":"0","data":{)"s, road.good + "}",
          "{\"errorCode\":\"0\",\"message\":\"\xc3(\"}"s, R"({"errorCode":"0"})" + "\0"s,
          "{\"errorCode\":\"0\",\"message\":\"\0\"}"s, "null"s, "true"s, "7"s, "\"0\""s,
          R"(["0"])"s, "[]"s, "{}"s, R"({"errorCode":"0 ","message":"no"})"s,
          R"({"errorCode":"CCF083001","message":"CCF08300"})"s,
          R"({"errorCode":"1","message":"-CCF083001: a word"})"s})
        add(body, {200, body}, Answer{body});
    const auto gzip = "\x1f\x8b\x08\0\0\0\0\0"s;
    add("gzip that nobody asked for", {200, gzip, {{"Content-Encoding", "gzip"}}}, Answer{gzip});
    // As deep as these the plain reader doesn't go.
    const std::string opened(100'000, '[');
    const auto deep = R"({"x":)" + opened + std::string(100'000, ']') + ',' + road.good.substr(1);
    add("deep", {200, deep}, Answer{deep, fuzz::ReadJson(road.good)});
    add("deep, without an end", {200, opened}, Answer{opened, std::nullopt});
    add("more than announced",
        {200, road.good + Sized(R"({"errorCode":"7"})"), {}, false, road.good.size()},
        Answer{road.good});
    const auto most = Padded(road.good, kLimit);
    for (const bool chunked : {false, true}) {
        add("all that is allowed", {200, most, {}, chunked}, Answer{most}, Meets::SmallLimit);
        add("a byte too many", {200, most + ' ', {}, chunked}, NotSent{"limit"}, Meets::SmallLimit);
    }
    add("redirect", {307, road.good, {{"Location", base + "/elsewhere"}}}, Refused{307});
}

/// The end of the JSON value that begins there.
std::size_t EndOfValue(const std::string& text, std::size_t at) {
    for (int depth = 0;; ++at) {
        if (text[at] == '{' || text[at] == '[') ++depth;
        if (text[at] == '}' || text[at] == ']') --depth;
        if (depth == 0 && std::strchr(",}]", text[at + 1]) != nullptr) return at + 1;
    }
}

/// Each member of an answer missing, or with another value ('@': its name).
void MemberFaults(Faults& all, const Road& road, const std::string& body) {
    const auto add = [&](std::size_t begin, std::size_t end, const std::string& members) {
        const auto changed = body.substr(0, begin) + members + body.substr(end);
        const auto on = [=, target = road.target](auto& server) {
            server.setAnswer(target, {200, changed});
        };
        all.push_back({changed, Answer{changed}, on});
    };
    for (auto at = body.find("\":"); at != body.npos; at = body.find("\":", at + 1)) {
        const auto begin = body.rfind('"', at - 1);
        const auto name = body.substr(begin, at - begin);
        const auto end = EndOfValue(body, at + 2);
        add(begin, end, R"("other":0)");
        for (auto json :
             {"null"s, "true"s, "false"s, "{}"s, R"({"0":"0"})"s, "[]"s, R"(["0"])"s, R"("")"s,
              "0"s, "7"s, "1.50"s, "123456789012345678901234567890"s, R"("\u0030")"s,
              R"("0\u0000")"s, R"("0","@":"7")"s, R"("7","@":"0")"s, R"(null,"@":"0")"s}) {
            if (const auto other = json.find("\"@"); other != json.npos)
                json.replace(other, 2, name);
            add(begin, end, name + "\":" + json);
        }
    }
}

// --- the engine ----------------------------------------------------------------------------------

class FaultMatrix : public testing::TestWithParam<std::tuple<const char*, bool>> {
 protected:
    FaultMatrix() : server(e2e::Serve(std::get<1>(GetParam()))) {}
    ~FaultMatrix() override {
        Veltra::Veltra_Disable();
        Oak::Net::SetHttpClientOptions({});
        qlog_set_handler(nullptr, nullptr, 4);
    }

    void SetUp() override {
        ASSERT_TRUE(server.start()) << server.reason();
        base = server.baseUrl();
        road = Roads(base)[std::get<0>(GetParam())];
        ca = std::make_unique<e2e::TemporaryFile>(server.caPem());
        if (!server.caPem().empty()) http.caFile = ca->Path();
        Oak::Net::SetHttpClientOptions(http);
        server.setNextToken(token);
        Veltra::Veltra_Enable();
        ASSERT_TRUE(Veltra::Veltra_SetDomain(base));
        ASSERT_TRUE(e2e::LogIn());
        Veltra::Veltra_Unit();  // its probes would meet the faults, too
        AllWell();
        qlog_set_handler(&Record, this, 3);
    }

    void AllWell() {
        server.clearFaults();
        server.clearAnswers();
        for (const auto& [name, each] : Roads(base))
            server.setAnswer(each.target, {200, each.good});
        server.setAnswer('/' + std::string(gateway::kTokenPath), {200, Roads(base)["Token"].good});
        server.refuseConnections(false);
        server.setCertificate(Certificate::Good);
        server.speakOldTlsOnly(false);
        systemsAuthorities.clear();
    }

    /// Of this thread, without names of files, and of the HTTP client's no more than the reason.
    static void Record(int level, const char* tag, const char* message, void* context) {
        auto& test = *static_cast<FaultMatrix*>(context);
        if (std::this_thread::get_id() != test.thread) return;
        std::string text = message;
        if (tag == "Oak"s) {
            const auto reason = text.find(", ") + 2;
            test.told = text.substr(reason, text.rfind(" [") - reason);
            EXPECT_EQ(text.find("signature="), std::string::npos) << text;
            text = "Oak " + text.substr(reason, text.find(':') - reason);
        } else {
            text.erase(text.rfind('['));
            text = text.substr(1).replace(text.find(']') - 1, 1, " ");
        }
        test.lines.push_back(std::to_string(level) + ' ' + text);
    }

    Outcome Run(const std::function<bool(std::string&)>& run) {
        Outcome seen;
        server.clearRequests();
        lines.clear();
        seen.result = run(seen.text);
        const Veltra::CCallReport report = Veltra::Veltra_LastCall();
        seen.report = Report(report.Outcome(), report.HttpStatus(), report.GatewayCode());
        detail = report.Detail();
        EXPECT_EQ(detail.empty(), seen.result);
        seen.lines = lines;
        Veltra::Veltra_Unit();
        for (const auto& request : server.requests()) {
            if (request.path == gateway::kQueryPath && request.body.empty()) continue;  // monitor's
            seen.requests.push_back(request.method + ' ' + request.path);
            seen.sent = request.body;
        }
        return seen;
    }

    static void Compare(const Outcome& seen, const Outcome& expected) {
        EXPECT_EQ(seen.result, expected.result);
        EXPECT_EQ(seen.text, expected.text);
        EXPECT_EQ(seen.lines, expected.lines);
        EXPECT_EQ(seen.requests, expected.requests);
        EXPECT_EQ(seen.report, expected.report);
        EXPECT_NE(seen.sent.find(expected.sent), std::string::npos) << seen.sent;
    }

    void Cell(const Fault& fault) {
        SCOPED_TRACE(road.name + " x " + fault.name.substr(0, 300));
        const Answer good{road.good};
        Outcome expected = road.expected(fault.fate, fault.unanswered ? 1 : 0);
        if (fault.unseen) expected.requests = road.requestsBefore;
        const bool shows = road.name == "Slots" || road.name == "Put" || road.name == "Feedback";
        testing::internal::CaptureStdout();
        Outcome seen = MeetFault(fault, kPatienceMs);
        // A machine too slow for the patience gave up before the gateway had seen it all.
        for (auto longer = kPatienceMs * 4; fault.meets == Meets::ShortPatience &&
                                            longer < 10'000 && seen.requests != expected.requests;
             longer *= 4)
            seen = MeetFault(fault, longer);
        const std::string shown = testing::internal::GetCapturedStdout();
        EXPECT_EQ(shown.empty(), !shows) << shown;
        Compare(seen, expected);
        if (std::holds_alternative<NotSent>(fault.fate)) {
            EXPECT_EQ(detail, told) << "as the log record says it";
        }
        AllWell();
        // What changed no options is forgotten with its fault: no new ones are needed.
        if (fault.meets > Meets::NewConnection) Oak::Net::SetHttpClientOptions(http);
        ExpectState(fault.fate, expected.result);
        Compare(Run(road.run), road.expected(good, 0));
        if (road.name == "Probe") {
            EXPECT_TRUE(Veltra::Veltra_SetDomain(base));
        } else if (road.name == "Token") {
            token = "bearer-later";
        }
    }

    Outcome MeetFault(const Fault& fault, std::uint32_t patienceMs) {
        Oak::Net::HttpClientOptions options = http;
        if (fault.meets == Meets::SmallLimit) options.maxResponseBytes = kLimit;
        if (fault.meets == Meets::ShortPatience) options.totalTimeoutMs = patienceMs;
        if (fault.meets != Meets::KeptConnection) Oak::Net::SetHttpClientOptions(options);
        // The slots come over this connection; the push needs another.
        if (fault.meets == Meets::NewConnection && road.name == "Put") e2e::Ask();
        fault.on(server);
        return Run(road.run);
    }

    /// What the fault left behind.
    void ExpectState(const Fate& fate, bool result) {
        if (road.name == "Token" && !result) {
            EXPECT_FALSE(Veltra::Veltra_IsLLMServiceValid());
            const Outcome refused = Run(Roads(base)["Query"].run);
            EXPECT_EQ(refused.text, "3: llm service is not can be used");
            EXPECT_EQ(refused.requests, Lines());
            return;
        }
        if (road.name == "Token") {
            const auto& answer = std::get<Answer>(fate);
            token = answer.at("/data/accessToken");
            // Where no request can be sent to, or with, there is nothing to see.
            if (answer.at("/data/areaDomain") != base || token.find('\0') != token.npos) return;
        }
        EXPECT_TRUE(Veltra::Veltra_IsLLMServiceValid());
        EXPECT_EQ(Run(Roads(base)["Query"].run).text, "answer");
        ASSERT_EQ(server.requests().size(), 1U);
        EXPECT_EQ(server.requests()[0].header("Authorization"), "Bearer " + token);
        if (road.name != "Probe") return;
        const Outcome login = Run(Roads(base)["Token"].run);
        const auto path = (result ? "POST /" : "POST ") + std::string(gateway::kTokenPath);
        EXPECT_EQ(login.requests, Lines{path});
        token = "bearer-later";
    }

    void Cells(const Faults& faults) {
        for (const auto& fault : faults)
            Cell(fault);
    }

    const std::thread::id thread = std::this_thread::get_id();
    gateway::Gateway server;
    std::string base;
    Road road;
    std::unique_ptr<e2e::TemporaryFile> ca;
    Oak::Net::HttpClientOptions http;
    std::string token = "bearer-first";
    Lines lines;         // of this thread alone
    std::string detail;  // of the last call's report,
    std::string told;    // and what the last record of the HTTP client said
};

INSTANTIATE_TEST_SUITE_P(, FaultMatrix,
                         testing::Combine(testing::ValuesIn(kRoadNames), testing::Bool()),
                         [](const auto& cell) {
                             return std::string(std::get<0>(cell.param)) +
                                    (std::get<1>(cell.param) ? "Https" : "Http");
                         });

TEST_P(FaultMatrix, CellsComeOutAsTheirFaultsSay) {
    const bool tls = std::get<1>(GetParam());
    const auto stray = [](auto& gateway) { gateway.sendUnasked(Sized(R"({"errorCode":"7"})")); };
    Faults all = {{"nothing", Answer{road.good}, [](auto&) {}},
                  {"an answer that nobody asked for", Answer{road.good}, stray}};
    ConnectionFaults(all, road, tls);
    ExchangeFaults(all, road, tls);
    AnswerFaults(all, road, base);
    if (!tls && Answer{road.good}.content) {  // what lies above TLS
        MemberFaults(all, road, road.good);
        MemberFaults(all, road, kRefusal);
    }
    Cells(all);
}

using LargestAnswer = FaultMatrix;
INSTANTIATE_TEST_SUITE_P(, LargestAnswer, testing::Values(std::tuple("Token", false)),
                         [](const auto&) { return "Token"; });

TEST_P(LargestAnswer, IsLimitedToTheByteWhenNobodySetsALimit) {
    constexpr std::size_t most = std::size_t{64} << 20U;
    const auto answer = [&](const std::string& body, std::size_t announced) {
        return [=, this](auto&) {
            server.setAnswer(road.target, {200, body, {}, false, announced});
        };
    };
    const auto all = Padded(road.good, most);
    Cells({{"64 MiB", Answer{all}, answer(all, most)},
           {"and a byte", NotSent{"limit"}, answer(road.good, most + 1)}});
}

}  // namespace
