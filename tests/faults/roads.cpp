#include "faults/roads.h"

#include "e2e/e2e_support.h"

#include <cctype>
#include <memory>
#include <utility>

namespace faults {
namespace {

const std::string kQuery(gateway::kQueryPath);
const std::string kToken(gateway::kTokenPath);
const std::string kUpload(gateway::kUploadPath);
const std::string kFeedback(gateway::kFeedbackPath);
const std::string kCancel(gateway::kCancelPath);
const std::string kPutTarget = "/storage/k?signature=1";
const std::string kQueryBody =
    R"({"traceId":"t-1","promptKey":"greeting","replaceElements":{"name":"World","place":"here"},)"
    R"("sensitiveContentCfg":{"inputWords":[],"filterTags":[]}})";
const std::string kSlots = "/data/imageList[1]/uploadInfoList";

/// As %s prints it.
std::string Printed(const std::string& text) {
    return text.c_str();  // NOLINT(readability-redundant-string-cstr): up to the first NUL
}

/// The port is the same by any name of the host, the connection another: faults of the connection
/// meet the push alone.
std::string SlotUrl(std::string base) {
    return base.replace(base.find("127.0.0.1"), 9, "localhost") + kPutTarget;
}

std::string Success(const std::string& data) {
    return R"({"errorCode":"0","message":"","data":{)" + data + "}}";
}

void Append(Lines& lines, const Lines& more) {
    lines.insert(lines.end(), more.begin(), more.end());
}

using Veltra::CallOutcome;

/// What a refusal with this code is reported as.
std::string Refusal(const std::string& code) {
    return Report(code.empty() ? CallOutcome::BadAnswer : CallOutcome::Refused, 200, code);
}

std::string NotUnderstood(const std::string& code = "") {
    return Report(CallOutcome::BadAnswer, 200, code);
}

std::string Succeeded(const std::string& code = "0") {
    return Report(CallOutcome::Succeeded, 200, code);
}

CallOutcome OutcomeOf(const std::string& reason) {
    const std::map<std::string, CallOutcome> outcomes = {
        {"could not connect", CallOutcome::NotReached},
        {"certificate", CallOutcome::NotTrusted},
        {"time-out", CallOutcome::TimedOut},
        {"cut off", CallOutcome::CutOff},
        {"limit", CallOutcome::BadAnswer},
        {"other", CallOutcome::BadAnswer}};
    return outcomes.at(reason);
}

// --- the roads -----------------------------------------------------------------------------------

/// To a base with a slash at its end, whose paths differ from all other requests': a domain that
/// was stored by mistake shows in the next token request.
Road Probe(const std::string& base) {
    const std::string domain = base + "/";
    const std::string name = "CAIManager::IsDomianValid";
    Road road{"Probe", "POST", "/" + kQuery, R"({"errorCode":"4"})"};
    road.run = [domain](std::string&) { return Veltra::Veltra_SetDomain(domain); };
    road.refusal = Line(5, name, "http client send message failed,errcode:#,domian is :" + domain);
    road.refused = {Line(5, name, "http client send message failed,domian is :" + domain)};
    road.answered = [=](const Answer& answer, Outcome& outcome) {
        outcome.result = !answer.body.empty();
        outcome.report = outcome.result ? Succeeded("") : NotUnderstood();
        outcome.lines.push_back(
            outcome.result ? Line(3, "CAIManager::SetConfigDomain", "Set config domian " + domain)
                           : Line(5, name, "response is empty,domian is :" + domain));
    };
    return road;
}

/// A renewal with the pair in use: a list of its own would be tried from its beginning.
Road Token(const std::string& base) {
    const std::string name = "TokenMessage::GetToekn";
    const std::string renewal = "CAIManager::renewAuthenticationToken";
    const std::string login = "Veltra_Authentication";
    Road road{
        "Token", "POST", kToken,
        Success(R"("accessToken":"bearer-later","expireTime":"7200","areaDomain":")" + base + '"')};
    road.attempts = 1;
    road.run = [](std::string&) {
        return Veltra::Veltra_Authentication({}, std::make_shared<Veltra::CLicenseInfo>());
    };
    road.begins = {Line(3, login, "authening.."), Line(5, login, "authen keys is empty!"),
                   Line(3, login, "product version:"),
                   Line(3, login, "veltra is enable,begin authen."),
                   Line(3, name, "get token use domain :" + base)};
    road.refusal = Line(5, name, "Request get token status_code =#");
    road.refused = {Line(5, renewal, "get token failed,not get token"),
                    Line(5, login, "authen failed")};
    road.notSent = {Line(5, name, "Request get token failed")};
    Append(road.notSent, road.refused);
    road.answered = [=](const Answer& answer, Outcome& outcome) {
        const auto rsp = ",rsp is:" + Printed(answer.body);
        const auto code = answer.at("/errorCode");
        const auto domain = answer.at("/data/areaDomain");
        const auto expiry = answer.at("/data/expireTime");
        outcome.result = code == "0" && !answer.at("/data/accessToken").empty() &&
                         !domain.empty() && std::isdigit(expiry[0]) != 0 && expiry.size() < 19;
        outcome.report = outcome.result                  ? Succeeded()
                         : answer.content && code != "0" ? Refusal(code)
                                                         : NotUnderstood();
        if (outcome.result) {
            Append(outcome.lines,
                   {Line(3, renewal, "get token success"),
                    Line(3, "CAIManager::SetDomian", "set llm domain:" + Printed(domain)),
                    Line(3, "CAIManager::start", "monitorThread_ begin."),
                    Line(3, login, "authen success")});
        } else if (answer.body.empty()) {
            outcome.lines.push_back(Line(5, name, "Request get token failed,response is empty"));
            Append(outcome.lines, road.refused);
        } else if (answer.content && code != "0") {
            outcome.lines.push_back(
                Line(5, name, "Request get token failed,get errorcode:" + Printed(code) + rsp));
            Append(outcome.lines, road.refused);
        } else {
            outcome.lines.push_back(Line(5, name, "Request get token failed" + rsp));
            Append(outcome.lines, road.notSent);
        }
    };
    return road;
}

Road Query(const std::string&) {
    const std::string name = "AISession::ExecuteQuery";
    Road road{"Query", "POST", kQuery, Success(R"("resultStr":"answer")")};
    road.run = [](std::string& text) { return e2e::Query(text, "World"); };
    road.failedText = "2: client send message failed";
    road.refusal = Line(5, name, "http client send message failed,errcode:#");
    road.refused = {Line(5, name, "http client send message failed")};
    road.answered = [=](const Answer& answer, Outcome& outcome) {
        const auto body = Printed(answer.body);
        const auto message = answer.at("/message");
        const auto code = answer.at("/errorCode");
        const bool forbidden = message.find("CCF083001") != std::string::npos;
        outcome.result = code == "0";
        outcome.report = outcome.result    ? Succeeded()
                         : !answer.content ? NotUnderstood()
                         : forbidden       ? Report(CallOutcome::ForbiddenWords, 200, code)
                                           : Refusal(code);
        outcome.lines = {
            Line(3, name, "request:" + kQueryBody + ",http client get response:" + body)};
        if (answer.body.empty()) {
            outcome.text = "6: response is empty";
            outcome.lines.push_back(Line(5, name, "response is empty"));
        } else if (!answer.content) {
            outcome.text = "6: ";
            outcome.lines.push_back(Line(4, name, "set_str failed,rsp:" + body));
        } else if (!outcome.result) {
            outcome.text = (forbidden ? "4: " : "6: ") + message;
            outcome.lines.push_back(
                Line(5, name,
                     "http client get response:" + Printed(message) + ",errcode:" + Printed(code)));
        } else {
            outcome.text = answer.at("/data/resultStr");
            if (outcome.text.empty())
                outcome.lines.push_back(
                    Line(4, name, "data is empty,http client get response:" + body));
        }
    };
    return road;
}

/// What the three roads share that go through the sender of feedback.
Road ThroughSender(const char* name, const std::string& path, const std::string& data) {
    const std::string sender = "UserComentManager::SendToCloud";
    Road road{name, "POST", path, Success(data)};
    road.refusal = Line(5, sender, "http client send message failed,errcode:#");
    road.refused = {Line(5, sender, "http client send message failed")};
    return road;
}

const std::string kPictures = "UserComentManager::UpLoadPics";
const std::string kPush = kPictures + "::PushPicToS3";
const Lines kNoPicture = {Line(5, "UserComentManager::UpLoadComments", "Upload pic to S3 failed!")};
const Lines kNotPushed = {Line(3, kPictures, "push 1 pic to s3"), kNoPicture[0]};

/// What follows when the picture reached the storage under this key.
void Pushed(const std::string& key, Outcome& outcome) {
    outcome.result = true;
    outcome.report = Succeeded();
    outcome.text = "f-1";
    Append(outcome.lines, {Line(3, kPush, "Send to S3 success "), kNotPushed[0]});
    outcome.requests.push_back("POST " + kFeedback);
    outcome.sent = R"("feedbackImageKeys":[")" + key + "\"]";
}

Road Slots(const std::string& base) {
    Road road = ThroughSender(
        "Slots", kUpload,
        R"("imageList":[{"uploadInfoList":[{"imageKey":"k","url":")" + SlotUrl(base) + R"("}]}])");
    road.run = [](std::string& id) {
        id = "kept";
        return e2e::Submit({"AQID"}, &id);
    };
    road.failedText = "kept";
    Append(road.refused, kNoPicture);
    road.answered = [=](const Answer& answer, Outcome& outcome) {
        if (answer.at("/errorCode") != "0") {
            outcome.report = answer.content ? Refusal(answer.at("/errorCode")) : NotUnderstood();
            if (answer.content) outcome.lines.push_back(Line(5, kPictures, "get S3 URL failed"));
            Append(outcome.lines, kNoPicture);
        } else if (answer.at(kSlots + "[1]/url") == SlotUrl(base)) {
            outcome.requests.push_back("PUT " + kPutTarget);
            Pushed(answer.at(kSlots + "[1]/imageKey"), outcome);
        } else {
            outcome.report = NotUnderstood("0");
            if (fuzz::SizeAt(answer.content, kSlots) > 0) {
                outcome.report = Report(CallOutcome::NotAllowed, 200, "0");
                outcome.lines.emplace_back("4 Oak refused URL");
            }
            Append(outcome.lines, kNotPushed);
        }
    };
    return road;
}

/// Sent once, and its answer is not looked into.
Road Put(const std::string& base) {
    Road road{"Put", "PUT", kPutTarget, "stored", Slots(base).run, "kept", 1};
    road.faulted = gateway::kStoragePrefix;
    road.statusBefore = 200;
    road.codeBefore = "0";
    road.requestsBefore = {"POST " + kUpload};
    road.refusal = Line(5, kPush, "Send to S3 failed");
    road.refused = kNotPushed;
    road.answered = [](const Answer&, Outcome& outcome) { Pushed("k", outcome); };
    return road;
}

Road Feedback(const std::string&) {
    Road road = ThroughSender("Feedback", kFeedback, R"("feedbackId":"f-1")");
    road.run = [](std::string& id) {
        id = "kept";
        return e2e::Submit({}, &id);
    };
    road.failedText = "kept";
    road.answered = [](const Answer& answer, Outcome& outcome) {
        const auto code = answer.at("/errorCode");
        outcome.result = code == "0";
        outcome.report = outcome.result   ? Succeeded()
                         : answer.content ? Refusal(code)
                                          : NotUnderstood();
        if (outcome.result) {
            outcome.text = answer.at("/data/feedbackId");
        } else if (answer.content) {
            outcome.lines.push_back(
                Line(5, "UserComentManager::UpLoadComments",
                     "http client get response:" + Printed(answer.at("/message")) +
                         ",errcode:" + Printed(code)));
        }
    };
    return road;
}

Road Cancel(const std::string&) {
    Road road = ThroughSender("Cancel", kCancel, "");
    road.run = [](std::string&) { return Veltra::Veltra_CancleComments("f-1"); };
    road.answered = [](const Answer& answer, Outcome& outcome) {
        outcome.result = answer.at("/errorCode") == "0";
        outcome.report = outcome.result   ? Succeeded()
                         : answer.content ? Refusal(answer.at("/errorCode"))
                                          : NotUnderstood();
    };
    return road;
}

}  // namespace

std::string Report(CallOutcome outcome, std::int32_t status, const std::string& code) {
    return std::to_string(static_cast<int>(outcome)) + ", status " + std::to_string(status) +
           ", code " + code;
}

std::string Line(int level, const std::string& operation, const std::string& text) {
    return std::to_string(level) + " Veltra::" + operation + ' ' + text;
}

Outcome Road::expected(const Fate& fate, std::size_t repeats) const {
    Outcome outcome{false, failedText, begins, requestsBefore, {}, {}};
    const auto* answer = std::get_if<Answer>(&fate);
    const std::size_t tries = answer != nullptr ? 1 : attempts;
    outcome.requests.insert(outcome.requests.end(), tries + repeats, method + ' ' + target);
    if (answer != nullptr) {
        answered(*answer, outcome);
    } else if (const auto* failure = std::get_if<NotSent>(&fate)) {
        outcome.report = Report(OutcomeOf(failure->reason), statusBefore, codeBefore);
        outcome.lines.insert(outcome.lines.end(), tries, "4 Oak " + failure->reason);
        Append(outcome.lines, notSent.empty() ? refused : notSent);
    } else {
        outcome.report = Report(CallOutcome::BadStatus, std::get<Refused>(fate).status, codeBefore);
        std::string line = refusal;
        if (const auto at = line.find('#'); at != std::string::npos)
            line.replace(at, 1, std::to_string(std::get<Refused>(fate).status));
        outcome.lines.insert(outcome.lines.end(), tries, line);
        Append(outcome.lines, refused);
    }
    return outcome;
}

std::map<std::string, Road> Roads(const std::string& base) {
    std::map<std::string, Road> roads;
    for (const auto make : {Probe, Token, Query, Slots, Put, Feedback, Cancel}) {
        const Road road = make(base);
        roads[road.name] = road;
    }
    return roads;
}

}  // namespace faults
