// Every road to the gateway crossed with every fault, over real sockets. A road knows what it makes
// of an exchange that failed, of another status than 200 and of an answer; a fault knows which of
// these it is. What a cell has to come to follows from both.

#include "e2e/e2e_support.h"
#include "faults/roads.h"

#include <qlog/qlog.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <thread>
#include <tuple>

namespace {

using namespace faults;
using namespace std::string_literals;
using gateway::Certificate;
using gateway::FaultKind;

constexpr std::size_t kLimit = 20'000;

constexpr std::uint32_t kPatienceMs = 120;

/// Where a fault meets a road. All but the first on a new connection: changed options retire the
/// kept ones.
enum class Meets { KeptConnection, NewConnection, SmallLimit, ShortPatience };

struct Fault {
    std::string name;
    Fate fate;
    std::function<void(gateway::Gateway&)> on;
    Meets meets = Meets::KeptConnection;
    bool unanswered = false;  ///< Before any byte of the answer: the HTTP library repeats once.
    bool unseen = false;      ///< The gateway sees no request.
};

std::string Http(const std::string& fields, const std::string& body) {
    return "HTTP/1.1 200 OK\r\n" + fields + "\r\n" + body;
}
std::string Sized(const std::string& body) {
    return Http("Content-Length: " + std::to_string(body.size()) + "\r\n", body);
}
std::string Padded(std::string text, std::size_t size) {
    text.resize(size, ' ');
    return text;
}

// --- the faults ----------------------------------------------------------------------------------

std::vector<Fault> ConnectionFaults(const Road& road, bool tls) {
    const auto connection = Meets::NewConnection;
    std::vector<Fault> all = {{"connection refused", NotSent{"could not connect"},
                               [](auto& server) { server.refuseConnections(true); }, connection,
                               false, true}};
    if (!tls) return all;
    if (road.name != "Put")  // comes after an exchange over a trusted connection
        all.push_back({"unknown authority", NotSent{"certificate"},
                       [](auto&) { Oak::Net::SetHttpClientOptions({}); }, connection, false, true});
    for (const auto& [name, certificate] : {std::pair{"expired", Certificate::Expired},
                                            std::pair{"self-signed", Certificate::SelfSigned},
                                            std::pair{"another host's", Certificate::WrongHost}}) {
        all.push_back({name + " certificate"s, NotSent{"certificate"},
                       [which = certificate](auto& server) { server.setCertificate(which); },
                       connection, false, true});
    }
    all.push_back({"TLS 1.1 at most", NotSent{"could not connect"},
                   [](auto& server) { server.speakOldTlsOnly(true); }, connection, false, true});
    return all;
}

std::vector<Fault> ExchangeFaults(const Road& road, bool tls) {
    std::vector<Fault> all;
    const auto add = [&](const std::string& name, FaultKind kind, int number, const Fate& fate,
                         Meets meets, bool unanswered) {
        const gateway::Fault fault{
            road.faulted, kind, number, "",
            kind == FaultKind::Status && number != 204 ? road.good.body : ""};
        all.push_back(
            {name, fate, [fault](auto& server) { server.addFault(fault); }, meets, unanswered});
    };
    const NotSent cutOff{"cut off"};
    const auto kept = Meets::KeptConnection;
    add("closed", FaultKind::Close, 0, cutOff, kept, true);
    add("reset", FaultKind::Reset, 0, cutOff, kept, true);
    // Below TLS nothing of the answer can be read yet.
    add("reset in the headers", FaultKind::ResetInHeaders, 20, cutOff, kept, tls);
    add("reset in the body", FaultKind::ResetInBody, 3, cutOff, kept, false);
    add("closed in the body", FaultKind::CutBody, 3, cutOff, kept, false);
    add("stall", FaultKind::Stall, 0, NotSent{"time-out"}, Meets::ShortPatience, false);
    add("stall in the body", FaultKind::StallInBody, 3, NotSent{"time-out"}, Meets::ShortPatience,
        false);
    if (tls) add("noise in place of TLS", FaultKind::Garbage, 0, cutOff, kept, true);
    for (const int status : {201, 204, 301, 302, 401, 403, 404, 429, 500, 503})
        add("status " + std::to_string(status), FaultKind::Status, status, Refused{status}, kept,
            false);
    return all;
}

/// Answers with status 200, and what they read as.
std::vector<Fault> AnswerFaults(const Road& road, const std::string& base) {
    std::vector<Fault> all;
    const auto add = [&](const std::string& name, const Fate& fate, const gateway::Answer& answer,
                         Meets meets = Meets::KeptConnection) {
        const auto on = [answer, target = road.target](auto& server) {
            server.setAnswer(target, answer);
        };
        all.push_back({name, fate, on, meets});
    };
    const auto& good = road.good.body;
    const auto goodAs = [&](const std::string& body) {
        Answer answer = road.good;
        answer.body = body;
        return answer;
    };
    const auto unusable = [&](const std::string& name, const std::string& body) {
        add(name, Answer{body, false}, {200, body});
    };
    unusable("not JSON", "<html></html>");
    unusable("half of JSON", R"({"errorCode":"0","data":{)");
    unusable("more than JSON", good + "}");
    unusable("invalid UTF-8", "{\"errorCode\":\"0\",\"message\":\"\xc3(\"}");
    unusable("a NUL after JSON", R"({"errorCode":"0"})" + "\0"s);
    unusable("a NUL inside JSON", "{\"errorCode\":\"0\",\"message\":\"\0\"}"s);
    unusable("deep, without an end", std::string(100'000, '['));
    add("gzip that nobody asked for", Answer{"\x1f\x8b\x08\0\0\0\0\0"s, false},
        {200, "\x1f\x8b\x08\0\0\0\0\0"s, {{"Content-Encoding", "gzip"}}});
    add("empty body", Answer{"", false}, {200, ""});
    for (const char* root : {"null", "true", "7", "\"0\"", R"(["0"])", "[]", "{}"})
        add("only "s + root, Answer{root, true}, {200, root});
    for (const std::string message : {"no", "CCF083001: a word"}) {
        const auto body = R"({"errorCode":"0 ","message":")" + message + "\"}";
        add("refusal, " + message,
            Answer{body, true, {{"/errorCode", "0 "}, {"/message", message}}}, {200, body});
    }
    const auto deep = std::string(100'000, '[') + std::string(100'000, ']');
    const auto deepGood = R"({"x":)" + deep + ',' + good.substr(1);
    add("deep JSON", goodAs(deepGood), {200, deepGood});
    add("more than announced", goodAs(good),
        {200, good + "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}", {}, false, good.size()});
    for (const bool chunked : {false, true}) {
        const auto how = chunked ? ", in chunks" : ", announced";
        const auto exact = Padded(good, kLimit);
        add("as much as allowed"s + how, goodAs(exact), {200, exact, {}, chunked},
            Meets::SmallLimit);
        add("a byte too many"s + how, NotSent{"limit"}, {200, exact + ' ', {}, chunked},
            Meets::SmallLimit);
    }
    add("redirect", Refused{307}, {307, good, {{"Location", base + "/elsewhere"}}});
    return all;
}

/// Bytes below HTTP, after which the connection ends.
std::vector<Fault> RawFaults(const Road& road) {
    std::vector<Fault> all;
    const auto add = [&](const std::string& name, const Fate& fate, const std::string& bytes,
                         Meets meets = Meets::KeptConnection) {
        const gateway::Fault fault{road.faulted, FaultKind::Garbage, 0, "", bytes};
        all.push_back({name, fate, [fault](auto& server) { server.addFault(fault); }, meets});
    };
    const auto& good = road.good.body;
    const Answer fine = road.good;
    const NotSent other{"other"};
    const NotSent limit{"limit"};
    const NotSent cutOff{"cut off"};
    add("another protocol", other, "SSH-2.0-x\r\n\r\n");
    add("no status", other, "HTTP/1.1 OK\r\n\r\n");
    add("the body alone", other, good);
    add("a blank in place of the status", other, "HTTP/1.1  \r\nContent-Length: 0\r\n\r\n");
    add("HTTP/1.0", fine, "HTTP/1.0 200 OK\r\n\r\n" + good);
    add("100 before", fine, "HTTP/1.1 100 Continue\r\n\r\n" + Sized(good));
    add("103 before", fine, "HTTP/1.1 103 Early\r\nLink: </x>\r\n\r\n" + Sized(good));
    add("101", Refused{101}, "HTTP/1.1 101 Switch\r\nUpgrade: x\r\n\r\n" + good);
    std::string interim;
    while (interim.size() < 300'000)
        interim += "HTTP/1.1 102 Wait\r\n\r\n";
    add("1xx without an end", limit, interim + Sized(good));
    const std::string field = "X: " + std::string(1000, 'x') + "\r\n";
    std::string fields;
    while (fields.size() < 300'000)
        fields += field;
    add("many fields", limit, Http(fields, good));
    add("a long field", limit, Http("X: " + std::string(300'000, 'x') + "\r\n", good));
    add("a NUL in a field", other, Http("X: a\0b\r\n"s, good));
    add("a field without a colon", other, Http("X\r\n", good));
    add("a negative length", other, Http("Content-Length: -5\r\n", good));
    add("a length without measure", limit, Http("Content-Length: 99999999999999999999\r\n", good));
    add("less than announced", cutOff, Http("Content-Length: 9999\r\n", good));
    add("chunks without an end", cutOff, Http("Transfer-Encoding: chunked\r\n", "3\r\nabc\r\n"));
    add("a chunk of no size", cutOff, Http("Transfer-Encoding: chunked\r\n", "x\r\nabc\r\n"));
    add("an end by closing", fine, Http("", good));
    Answer padded = fine;
    padded.body = Padded(good, kLimit);
    add("as much as allowed, until closed", padded, Http("", padded.body), Meets::SmallLimit);
    add("a byte too many, until closed", limit, Http("", padded.body + ' '), Meets::SmallLimit);
    return all;
}

/// What may stand in place of a member's value ('@': its name), and how it reads.
constexpr struct {
    const char* json;
    std::string_view text;
    bool isList = false;
} kValues[] = {
    {"", ""},  // no such member
    {"null", ""},
    {"true", ""},
    {"false", ""},
    {"{}", ""},
    {R"({"0":"0"})", ""},
    {"[]", ""},
    {R"(["0"])", "", true},
    {R"("")", ""},
    {"0", "0"},
    {"7", "7"},
    {"1.50", "1.50"},
    {"123456789012345678901234567890", "123456789012345678901234567890"},
    {R"("\u0030")", "0"},
    {R"("0\u0000")", std::string_view("0\0", 2)},
    {R"("0","@":"7")", "0"},
    {R"("7","@":"0")", "7"},
    {R"(null,"@":"0")", ""},
};

std::vector<Fault> MemberFaults(const Road& road) {
    std::vector<Fault> all;
    for (const Member& member : road.members) {
        for (const auto& value : kValues) {
            std::string json = *value.json == '\0' ? R"("other":0)" : R"("@":)"s + value.json;
            for (auto at = json.find('@'); at != std::string::npos; at = json.find('@'))
                json.replace(at, 1, member.name);
            Answer answer = member.answer;
            const auto pair = '"' + member.name + "\":" + member.value;
            answer.body.replace(answer.body.find(pair), pair.size(), json);
            for (auto& [path, text] : answer.members) {
                if (path == member.path)
                    text =
                        path.ends_with("List") ? value.isList ? "1" : "" : std::string(value.text);
                else if (path.starts_with(member.path + '/') || path.starts_with(member.path + '['))
                    text.clear();
            }
            const auto on = [body = answer.body, target = road.target](auto& server) {
                server.setAnswer(target, {200, body});
            };
            all.push_back({member.path + " in " + answer.body, answer, on});
        }
    }
    return all;
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
        road = MakeRoad(std::get<0>(GetParam()), base);
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
        for (const auto& [target, body] : GoodAnswers(base))
            server.setAnswer(target, {200, body});
        server.refuseConnections(false);
        server.setCertificate(Certificate::Good);
        server.speakOldTlsOnly(false);
    }

    /// Of this thread, without names of files, and of the HTTP client's no more than the reason.
    static void Record(int level, const char* tag, const char* message, void* context) {
        auto& test = *static_cast<FaultMatrix*>(context);
        if (std::this_thread::get_id() != test.thread) return;
        std::string text = message;
        if (tag == "Oak"s) {
            const auto reason = text.find(", ") + 2;
            for (const char* secret : {"Bearer", "signature=", "first", "later"})
                EXPECT_EQ(text.find(secret), std::string::npos) << text;
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
        seen.lines = lines;
        Veltra::Veltra_Unit();
        for (const auto& request : server.requests()) {
            const bool monitors = request.path == gateway::kQueryPath && request.body.empty();
            if (!monitors) seen.requests.push_back(request.method + ' ' + request.path);
            if (!monitors) seen.sent = request.body;
        }
        return seen;
    }

    static void Compare(const Outcome& seen, const Outcome& expected) {
        EXPECT_EQ(seen.result, expected.result);
        EXPECT_EQ(seen.text, expected.text);
        EXPECT_EQ(seen.lines, expected.lines);
        EXPECT_EQ(seen.requests, expected.requests);
        EXPECT_NE(seen.sent.find(expected.sent), std::string::npos) << seen.sent;
    }

    void Cell(const Fault& fault) {
        SCOPED_TRACE(road.name + " x " + fault.name.substr(0, 300));
        const Outcome expected = Expected(fault.fate, fault.unanswered ? 1 : 0, fault.unseen);
        Outcome seen = MeetFault(fault, kPatienceMs);
        // A machine too slow for the patience gave up before the gateway had seen it all.
        for (auto longer = kPatienceMs * 4; fault.meets == Meets::ShortPatience &&
                                            longer < 10'000 && !SameRequests(seen, expected);
             longer *= 4)
            seen = MeetFault(fault, longer);
        Compare(seen, expected);
        AllWell();
        if (fault.meets != Meets::KeptConnection) Oak::Net::SetHttpClientOptions(http);
        ExpectState(fault.fate, expected.result);
        Compare(Run(road.run), Expected(road.good, 0, false));
        if (road.name == "Probe") {
            EXPECT_TRUE(Veltra::Veltra_SetDomain(base));
        } else if (road.name == "Token") {
            token = "later";
        }
    }

    Outcome MeetFault(const Fault& fault, std::uint32_t patienceMs) {
        Oak::Net::HttpClientOptions options = http;
        if (fault.meets == Meets::SmallLimit) options.maxResponseBytes = kLimit;
        if (fault.meets == Meets::ShortPatience) options.totalTimeoutMs = patienceMs;
        if (fault.meets != Meets::KeptConnection) Oak::Net::SetHttpClientOptions(options);
        // The slots come over this connection; the push needs another.
        if (fault.meets == Meets::NewConnection && road.name == "Put") Run(RunQuery);
        fault.on(server);
        return Run(road.run);
    }

    static bool SameRequests(const Outcome& seen, const Outcome& expected) {
        return seen.requests == expected.requests;
    }

    Outcome Expected(const Fate& fate, std::size_t repeats, bool unseen) const {
        Outcome outcome = road.expected(fate, repeats);
        if (unseen) outcome.requests = road.requestsBefore;
        return outcome;
    }

    /// What the fault left behind.
    void ExpectState(const Fate& fate, bool result) {
        if (road.name == "Token" && !result) {
            EXPECT_FALSE(Veltra::Veltra_IsLLMServiceValid());
            const Outcome refused = Run(RunQuery);
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
        EXPECT_EQ(Run(RunQuery).text, "answer");
        ASSERT_EQ(server.requests().size(), 1U);
        EXPECT_EQ(server.requests()[0].header("Authorization"), "Bearer " + token);
        if (road.name != "Probe") return;
        const Outcome login = Run(MakeRoad("Token", base).run);
        const auto path = (result ? "POST /" : "POST ") + std::string(gateway::kTokenPath);
        EXPECT_EQ(login.requests, Lines{path});
        token = "later";
    }

    void Cells(const std::vector<Fault>& faults) {
        for (const auto& fault : faults)
            Cell(fault);
    }

    const std::thread::id thread = std::this_thread::get_id();
    gateway::Gateway server;
    std::string base;
    Road road;
    std::unique_ptr<e2e::TemporaryFile> ca;
    Oak::Net::HttpClientOptions http;
    std::string token = "first";
    Lines lines;  // of this thread alone
};

INSTANTIATE_TEST_SUITE_P(, FaultMatrix,
                         testing::Combine(testing::ValuesIn(kRoadNames), testing::Bool()),
                         [](const auto& cell) {
                             return std::string(std::get<0>(cell.param)) +
                                    (std::get<1>(cell.param) ? "Https" : "Http");
                         });

TEST_P(FaultMatrix, CellsComeOutAsTheirFaultsSay) {
    const bool tls = std::get<1>(GetParam());
    const auto nothing = [](auto&) {};
    const auto stray = [](auto& gateway) { gateway.sendUnasked(Sized(R"({"errorCode":"7"})")); };
    Cells({{"nothing", road.good, nothing}, {"an answer that nobody asked for", road.good, stray}});
    Cells(ConnectionFaults(road, tls));
    Cells(ExchangeFaults(road, tls));
    Cells(AnswerFaults(road, base));
    if (tls) return;  // what follows lies above TLS, or in its place
    Cells(RawFaults(road));
    Cells(MemberFaults(road));
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
    Cells({{"64 MiB", road.good, answer(Padded(road.good.body, most), most)},
           {"and a byte", NotSent{"limit"}, answer(road.good.body, most + 1)}});
}

}  // namespace
