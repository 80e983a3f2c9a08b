// Whole answers to the layer, behind the replaced HTTP client. Input: the endpoint's letter in the
// first line, then answers parted by a line "--", each a status in its first line (anything but a
// number: the exchange fails) and the body. The last answer is given again as often as asked.
//
//   t  login                        q  query, with the probe and renewal that it may cause
//   p  probe of a domain            s  upload slots
//   c  withdrawal                   u  uploads to the slots
//                                   f  submission without pictures
//
// Oracle: each call is true exactly when the answer that ended it has status 200 and, read by a
// plain reader, the error code "0" and what the endpoint needs besides; it hands out what the plain
// reader reads, and nothing on false. Failed exchanges are repeated as often as documented. No
// record shows the secret key. Afterwards a login and a query go well.

#include "AIManager.h"
#include "support/fed_platform.h"
#include "support/fuzz_support.h"
#include "support/plain_json.h"

#include <Veltra/Veltra.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace {

using fuzz::Answer;
using fuzz::Require;
using fuzz::TextAt;
using Document = std::optional<fuzz::Json>;

enum class Call { token, probe, query, slots, upload, feedback, cancel };

constexpr std::string_view kSecret = "the secret key";

struct Exchange {
    std::string url;
    std::string body;
    Answer answer;
};

/// The input's answers, for the calls of its endpoint, and the exchanges made.
struct Run {
    std::set<Call> fed;
    std::vector<Answer> answers;
    std::size_t next = 0;
    std::map<Call, std::vector<Exchange>> exchanges;
    bool showsSecret = false;  // the input itself does

    Answer Next() {
        if (answers.empty()) return {};
        return answers[std::min(next++, answers.size() - 1)];
    }
};

Run run;

Call CallOf(const fuzz::Request& request) {
    const std::string& url = request.Url().Text();
    if (request.Method() == "PUT") return Call::upload;
    if (url.ends_with("/token/get")) return Call::token;
    if (url.ends_with("/feedback")) return Call::feedback;
    if (url.ends_with("/upload/image")) return Call::slots;
    if (url.ends_with("/cancel")) return Call::cancel;
    return request.Headers().empty() ? Call::probe : Call::query;
}

Answer Good(Call call) {
    switch (call) {
        case Call::token:
            return {200, R"({"errorCode":"0","data":{"accessToken":"tok","expireTime":"7200",)"
                         R"("areaDomain":"https://llm.test"}})"};
        case Call::query:
            return {200, R"({"errorCode":"0","data":{"resultStr":"fine"}})"};
        case Call::slots:
            return {200, R"({"errorCode":"0","data":{"imageList":[{"uploadInfoList":[)"
                         R"({"imageKey":"k1","url":"https://s3.test/1"},)"
                         R"({"imageKey":"k2","url":"https://s3.test/2"}]}]}})"};
        case Call::feedback:
            return {200, R"({"errorCode":"0","data":{"feedbackId":"id"}})"};
        default:
            return {200, R"({"errorCode":"0"})"};
    }
}

Answer Respond(const fuzz::Request& request) {
    const Call call = CallOf(request);
    Answer answer = run.fed.count(call) != 0 ? run.Next() : Good(call);
    run.exchanges[call].push_back({request.Url().Text(), request.Data(), answer});
    return answer;
}

void Check(int /*level*/, const char* /*tag*/, const char* message, void* /*context*/) {
    Require(run.showsSecret || std::string_view(message).find(kSecret) == std::string_view::npos,
            "no record shows the secret key");
}

/// Holds the exchanges of a call against the rule of three attempts, in `rounds` rounds at most,
/// and returns the last answer.
Answer LastOf(Call call, std::size_t rounds = 1) {
    const std::vector<Exchange>& exchanges = run.exchanges[call];
    Require(!exchanges.empty() && exchanges.size() <= 3 * rounds, "three attempts at most");
    const Answer& last = exchanges.back().answer;
    Require(last.status == 200 || exchanges.size() % 3 == 0 || rounds > 1, "three attempts");
    return last;
}

/// The content of an answer that is no refusal.
Document Accepted(const Answer& answer) {
    if (answer.status != 200) return std::nullopt;
    Document document = fuzz::ReadJson(answer.body);
    return TextAt(document, "/errorCode") == "0" ? document : std::nullopt;
}

bool IsExpiry(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    static_cast<void>(std::strtoll(text.c_str(), &end, 10));
    return end != text.c_str() && errno == 0;
}

bool GivesToken(const Document& document) {
    return !TextAt(document, "/data/accessToken").empty() &&
           !TextAt(document, "/data/areaDomain").empty() &&
           IsExpiry(TextAt(document, "/data/expireTime"));
}

Veltra::CAIManager& Manager() {
    return *Veltra::CAIManager::GetInstance();
}

/// A login with the pair in use, without what would start the monitor.
bool Login() {
    return Manager().renewAuthenticationToken({}, true);
}

void RunLogin() {
    const std::string before = Manager().GetToken();
    const bool done = Login();
    Require(Manager().IsLLMServiceValid() == done, "a login makes the service usable");
    const std::vector<Exchange>& exchanges = run.exchanges[Call::token];
    for (std::size_t i = 0; i < exchanges.size(); ++i) {
        const Document document = Accepted(exchanges[i].answer);
        const bool last = i + 1 == exchanges.size();
        Require(GivesToken(document) == (done && last), "a login ends with the first token");
        if (!GivesToken(document)) continue;
        Require(Manager().GetToken() == TextAt(document, "/data/accessToken"), "the token");
        Require(Manager().GetDomian() == TextAt(document, "/data/areaDomain"), "the domain");
    }
    Require(done || (exchanges.size() == 2 && Manager().GetToken() == before),
            "a failed login asks both endpoints and leaves the token");
}

void RunProbe() {
    const bool valid = Veltra::Veltra_IsDomainValid("https://probe.test");
    const Answer last = LastOf(Call::probe);
    Require(valid == (last.status == 200 && !last.body.empty()), "a domain that answers is valid");
}

/// Code and message of a query that ended with its first answer.
std::pair<std::int32_t, std::string> ErrorOf(const Answer& answer) {
    if (answer.status != 200) return {2, "client send message failed"};
    if (answer.body.empty()) return {6, "response is empty"};
    const Document document = fuzz::ReadJson(answer.body);
    if (TextAt(document, "/errorCode") == "0") return {0, ""};
    const std::string message = TextAt(document, "/message");
    return {message.find("CCF083001") != std::string::npos ? 4 : 6, message};
}

void RunQuery() {
    const auto session = Veltra::CAiHelper({}, "").GetLLMSessionItem({});
    const auto message = std::make_shared<Veltra::CHumanMessage>();
    message->SetElements("prompt", {{"name", "value"}});
    std::shared_ptr<Veltra::CLLMMessage> result;
    const bool answered = session->ExecuteQuery(message, result);

    std::int32_t code = -1;
    std::string text;
    session->GetErrorInfo(code, text);
    const Answer last = LastOf(Call::query, 2);
    const Document document = Accepted(last);
    Require(answered == document.has_value() && answered == (result != nullptr),
            "a query is answered by an accepted answer");
    if (answered) Require(result->GetContent() == TextAt(document, "/data/resultStr"), "the text");
    const bool repeated = !run.exchanges[Call::probe].empty();
    if (repeated) {
        Require(answered ? code == 0 : code == 1 || code == 2 || code == 6, "a documented code");
    } else {
        Require(std::pair(code, text) == ErrorOf(last), "code and message of the answer");
    }
}

/// The slots that took a picture, by the slots' answer and those of the uploads.
std::string PushedKeys() {
    const Document slots = Accepted(LastOf(Call::slots));
    const std::string list = "/data/imageList[1]/uploadInfoList";
    const std::vector<Exchange>& uploads = run.exchanges[Call::upload];
    Require(uploads.size() == std::min<std::size_t>(3, SizeAt(slots, list)),
            "an upload for each slot and picture");
    std::string keys;
    for (std::size_t i = 0; i < uploads.size(); ++i) {
        const std::string slot = list + "[" + std::to_string(i + 1) + "]";
        Require(uploads[i].url == TextAt(slots, slot + "/url"), "uploads go to the slot's URL");
        if (uploads[i].answer.status != 200) continue;
        keys += (keys.empty() ? "\"" : ",\"") + TextAt(slots, slot + "/imageKey") + "\"";
    }
    return keys;
}

void RunSubmission(const std::unordered_set<std::string>& pictures) {
    const auto comment = std::make_shared<Veltra::LLMComment>("trace");
    comment->SetPictures(pictures);
    std::string id = "before";
    const bool done = Veltra::Veltra_SubmitComments(comment, id);

    const std::string keys = pictures.empty() ? "" : PushedKeys();
    if (!pictures.empty() && keys.empty()) {
        Require(!done && run.exchanges[Call::feedback].empty(), "no feedback without its pictures");
    } else {
        const Document document = Accepted(LastOf(Call::feedback));
        Require(done == document.has_value(), "a feedback is accepted by its answer");
        if (done) Require(id == TextAt(document, "/data/feedbackId"), "the id");
        Require(run.exchanges[Call::feedback][0].body.ends_with("\"feedbackImageKeys\":[" + keys +
                                                                "]}"),
                "the feedback names the pictures that were stored");
    }
    Require(done || id == "before", "a failure leaves the id");
}

void RunWithdrawal() {
    const bool done = Veltra::Veltra_CancleComments("id");
    Require(done == Accepted(LastOf(Call::cancel)).has_value(), "withdrawn by its answer");
}

struct Endpoint {
    char letter;
    std::set<Call> fed;
    void (*follow)();
};

const std::vector<Endpoint>& Endpoints() {
    const auto withPictures = [] { RunSubmission({"QUJD", "", "not base64"}); };
    static const std::vector<Endpoint> endpoints{
        {'t', {Call::token}, RunLogin},
        {'p', {Call::probe}, RunProbe},
        {'c', {Call::cancel}, RunWithdrawal},
        {'q', {Call::query, Call::probe, Call::token}, RunQuery},
        {'s', {Call::slots}, withPictures},
        {'u', {Call::upload}, withPictures},
        {'f', {Call::feedback}, [] { RunSubmission({}); }},
    };
    return endpoints;
}

const Endpoint& EndpointOf(std::string_view line) {
    const char letter = line.empty() ? '\0' : line[0];
    for (const Endpoint& endpoint : Endpoints())
        if (endpoint.letter == letter) return endpoint;
    return Endpoints()[static_cast<unsigned char>(letter) % Endpoints().size()];
}

std::vector<Answer> ReadAnswers(std::string_view text) {
    std::vector<Answer> answers;
    while (!text.empty()) {
        std::string_view answer = fuzz::TakeUntil(text, "\n--\n");
        const std::string status(fuzz::TakeLine(answer));
        answers.push_back({static_cast<std::int32_t>(std::strtol(status.c_str(), nullptr, 10)),
                           std::string(answer)});
    }
    return answers;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    // Feedback is echoed to standard output.
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    Require(dup2(nowhere, STDOUT_FILENO) == STDOUT_FILENO && close(nowhere) == 0, "no echo");
    qlog_set_handler(&Check, nullptr, 0);
    fuzz::AnswerBy(&Respond);
    Veltra::Veltra_Enable();
    Require(Manager().renewAuthenticationToken({{"key", std::string(kSecret)}}, true), "a login");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view input = fuzz::Input(data, size);
    run = {};
    run.showsSecret = input.find(kSecret) != input.npos;
    const Endpoint& endpoint = EndpointOf(fuzz::TakeLine(input));
    run.fed = endpoint.fed;
    run.answers = ReadAnswers(input);
    endpoint.follow();

    run = {};
    Require(Login(), "afterwards a login goes well");
    RunQuery();
    Require(run.exchanges[Call::query].size() == 1, "and a query");
    return 0;
}
