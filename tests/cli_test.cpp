// The program veltra as a user meets it: exit status, standard output, standard error.

#include "../tools/veltra/repeat.h"

#include <Veltra/PhraseKey.h>

#include <gateway/gateway.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr const char* kApp = "app-4711";
constexpr const char* kSecret = R"(s3cret"4712)";
constexpr const char* kSecretInJson = R"(s3cret\"4712)";

struct Result {
    int status = -1;
    std::string output;
    std::string error;

    bool Says(const std::string& text) const { return error.find(text) != error.npos; }
};

/// Status and standard output; what went to standard error is shown when they differ.
void Expect(const Result& result, int status, const std::string& output) {
    EXPECT_EQ(result.status, status) << result.error;
    EXPECT_EQ(result.output, output) << result.error;
}

class CliTest : public testing::Test {
 protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "/veltra-cli-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        keys_ = write("keys.json", std::string(R"({"keys":[{"appKey":")") + kApp +
                                       R"(","secretKey":")" + kSecretInJson + R"("}]})");
        ASSERT_EQ(chmod(keys_.c_str(), 0600), 0);
    }

    void TearDown() override { std::filesystem::remove_all(folder_); }

    void startGateway(bool tls = false, const char* refusedBodies = nullptr) {
        gateway::Options options;
        if (refusedBodies != nullptr) {
            options.pickFault = [refusedBodies](const gateway::Request& request) {
                std::optional<gateway::Fault> fault;
                if (request.body.find(refusedBodies) != request.body.npos)
                    fault = {"", gateway::FaultKind::RefuseCode, 0, "7", "no"};
                return fault;
            };
        }
        options.tls = tls;
        options.keys = {{kApp, kSecret}};
        gateway_ = std::make_unique<gateway::Gateway>(options);
        ASSERT_TRUE(gateway_->start()) << gateway_->reason();
    }

    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(folder_ / name, std::ios::binary) << text;
        return (folder_ / name).string();
    }

    std::string read(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(folder_ / name, std::ios::binary).rdbuf();
        return text.str();
    }

    /// Runs two commands of the shell with a pipe between them; the status is the second's.
    int shell(const std::string& writer, const std::string& reader) const {
        const std::string command =
            "cd '" + folder_.string() + "' && { " + writer + "; } | { " + reader + "; }";
        // The pipe is the shell's. NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe)
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// Runs the program with arguments in the shell's notation; no output may show the secret.
    Result run(const std::string& arguments, const std::string& environment = "",
               const std::string& input = "") const {
        write("in", input);
        const std::string command =
            "cd '" + folder_.string() + "' && env -u VELTRA_APP_KEY -u VELTRA_SECRET_KEY " +
            environment + " '" VELTRA_PROGRAM "' <in >out 2>err " + arguments;
        // The redirections are the shell's. NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe)
        const int status = std::system(command.c_str());
        Result result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, read("out"), read("err")};
        for (const auto& text : {result.output, result.error}) {
            EXPECT_EQ(text.find("s3cret"), text.npos) << arguments;
            EXPECT_EQ(text.find(kApp), text.npos) << arguments;
        }
        return result;
    }

    Result atGateway(const std::string& command, const std::string& arguments) const {
        return run(command + " --credentials keys.json --domain " + gateway_->baseUrl() + ' ' +
                   arguments);
    }

    Result query(const std::string& arguments) const { return atGateway("query", arguments); }

    std::filesystem::path folder_;
    std::string keys_;
    std::unique_ptr<gateway::Gateway> gateway_;
};

TEST_F(CliTest, WrongUsageExitsWith2AndPrintsNothingOnStandardOutput) {
    write("broken.json", R"({"keys":[{"appKey":"s3cret"}]})");
    for (const char* arguments :
         {"query", "query greeting", "query greeting --credentials broken.json",
          "query greeting --credentials absent.json",
          "query greeting noequals --credentials keys.json",
          "query greeting a=1 a=2 --credentials keys.json",
          "query greeting --filter 5 --credentials keys.json",
          "query greeting $(printf 'a=\\377') --credentials keys.json", "probe", "probe gateway",
          "probe http://localhost:1 --log-level 1", "phrase-key --no-such", "demo",
          "feedback cancel", "feedback submit --credentials keys.json"}) {
        SCOPED_TRACE(arguments);
        const Result result = run(arguments);
        Expect(result, 2, "");
        EXPECT_NE(result.error, "");
    }
    EXPECT_EQ(run("query greeting", "VELTRA_APP_KEY=half").status, 2);
}

TEST_F(CliTest, HelpsThoseWhoAreLost) {
    EXPECT_EQ(run("--version").status, 0);
    const std::pair<const char*, const char*> cases[] = {
        {"", "\nUsage: veltra "},
        {"feedback", "\nUsage: veltra feedback "},
        {"no-such", "no subcommand no-such; see veltra --help\n"},
        {"query --no-such", "no option --no-such; see veltra query --help\n"},
        {"feedback cancel --no-such", "no option --no-such; see veltra feedback cancel --help\n"},
        {"''", "see veltra --help\n"},
        {"query greeting --repeat 0", "see veltra query --help\n"},
        {"query greeting --repeat 9 --threads 257", "see veltra query --help\n"},
        {"query greeting --threads 2", "--threads requires --repeat"},
        {"time T --log-level loud", "needs detail, progress, warning, error, none, or"},
    };
    for (const auto& [arguments, words] : cases) {
        SCOPED_TRACE(arguments);
        const Result result = run(arguments);
        Expect(result, 2, "");
        EXPECT_TRUE(result.Says(words)) << result.error;
    }
}

TEST_F(CliTest, WrongUsageIsJsonAsWellAndAlwaysUtf8) {
    const std::pair<const char*, const char*> cases[] = {
        {"--json", "there is no option --json; see veltra --help"},
        {"query --json --no-such", "there is no option --no-such; see veltra query --help"},
        {"query --json greeting",
         "no credentials: give --credentials FILE, or set VELTRA_APP_KEY "
         "and VELTRA_SECRET_KEY"},
        {"query --json a $(printf '\\377\\355\\240\\200\\303\\251') --credentials keys.json",
         "expected NAME=VALUE: \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xC3\xA9"},
    };
    for (const auto& [arguments, message] : cases) {
        SCOPED_TRACE(arguments);
        Expect(run(arguments), 2,
               std::string(R"({"ok":false,"code":0,"message":")") + message + "\"}\n");
    }
}

TEST_F(CliTest, RepeatsAQueryAndSumsUp) {
    startGateway(false, R"("traceId":"t-2)");  // 2, and 20 to 29
    const Result mixed = query("greeting --repeat 40 --threads 3 --trace-id t --json");
    EXPECT_EQ(mixed.status, 1);
    EXPECT_EQ(mixed.error, "");
    for (const char* part :
         {R"({"ok":false,"code":6,"message":"no")",
          R"(,"traceId":"t","repeat":40,"threads":3,"run":40,)",
          R"("answered":29,"failed":11,"interrupted":false,"seconds":)", R"(,"latencyMs":{"min":)",
          R"(},"failures":[{"code":6,"count":11,"message":"no"}])"})
        EXPECT_NE(mixed.output.find(part), std::string::npos) << part << " in " << mixed.output;
    std::set<std::string> traceIds;
    for (const auto& request : gateway_->requests())
        if (request.path == gateway::kQueryPath && !request.body.empty())
            traceIds.insert(request.body.substr(0, request.body.find(',')));
    EXPECT_EQ(traceIds.size(), 40U);
    EXPECT_EQ(traceIds.count(R"({"traceId":"t-40")"), 1U);

    const Result one = query("greeting --repeat 1 --threads 9");
    EXPECT_EQ(one.status, 0) << one.error;
    EXPECT_EQ(one.output.rfind("queries: 1 run, 1 answered, 0 failed; threads: 1; seconds: ", 0),
              0U)
        << one.output;
    const Result none = query("absent --repeat 2");
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.error, "") << "records are for those who ask";
    EXPECT_EQ(none.output.find("latency"), std::string::npos) << none.output;
    EXPECT_NE(none.output.find("\ncode 6: 2 failed: unknown prompt key: absent\n"),
              std::string::npos)
        << none.output;
}

TEST_F(CliTest, AnInterruptedRepetitionSumsUpWhatItDid) {
    startGateway();
    // On a terminal, which turns what is typed into a signal, once the progress line is there.
    const int status = shell(
        "timeout 60 sh -c 'until grep -q \"of 1000000 queries\" typescript; do sleep 0.02; done' "
        "2>/dev/null; printf '\\003'",
        R"(timeout 60 script -qefc "')" VELTRA_PROGRAM
        R"(' query greeting --repeat 1000000 --json --credentials keys.json --domain )" +
            gateway_->baseUrl() + "\" typescript >out 2>&1");
    EXPECT_EQ(status, 130);
    const std::string shown = read("typescript");
    EXPECT_NE(shown.find(R"("message":"interrupted: )"), std::string::npos) << shown;
    EXPECT_NE(shown.find(R"("interrupted":true,"seconds":)"), std::string::npos) << shown;
    EXPECT_NE(shown.find(" \r{"), std::string::npos) << "the progress line gives way: " << shown;
}

TEST(NearestRankTest, IsTheSmallestThatSoManyPercentDoNotExceed) {
    const std::size_t cases[][3] = {{1, 50, 0},
                                    {1, 99, 0},
                                    {2, 50, 0},
                                    {2, 90, 1},
                                    {4, 50, 1},
                                    {10, 90, 8},
                                    {10, 99, 9},
                                    {100, 99, 98},
                                    {101, 99, 99},
                                    {3, 100, 2},
                                    {10000000, 99, 9899999}};
    for (const auto& [count, percent, place] : cases)
        EXPECT_EQ(tool::nearestRank(count, percent), place) << count << ", " << percent << " %";
}

TEST_F(CliTest, BecomesTheGatewayProgramBesideItOrInPath) {
    const std::string script = "#!/bin/sh\necho \"${0##*/}\" \"$@\"\nexit 7\n";
    const auto place = [&](const std::string& folder, const std::string& text) {
        std::filesystem::create_directory(folder_ / folder);
        const std::string file = write(folder + "/veltra-gateway", text);
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    };
    Expect(run("gateway", "PATH=/nowhere"), 127, "");
    Expect(run("gateway --json", "PATH=/nowhere"), 127,
           R"({"ok":false,"code":0,"message":"veltra-gateway cannot be run"})"
           "\n");
    place("path", script);
    const std::string inPath = "PATH=path:$PATH";
    Expect(run("gateway --help -- --json '' 'a b'", inPath), 7,
           "veltra-gateway --help -- --json  a b\n");
    std::filesystem::permissions(folder_ / "path/veltra-gateway",
                                 std::filesystem::perms::owner_read);
    Expect(run("gateway", "PATH=path"), 126, "");
    // A link resolves to where the program lies.
    place("bin", "#!/bin/sh\necho beside\n");
    std::filesystem::copy_file(VELTRA_PROGRAM, folder_ / "bin/veltra");
    std::filesystem::create_symlink(folder_ / "bin/veltra", folder_ / "link");
    EXPECT_EQ(shell(":", "PATH=path:$PATH ./link gateway >out"), 0);
    EXPECT_EQ(read("out"), "beside\n");
}

TEST_F(CliTest, ConvertsTimes) {
    const struct {
        const char* arguments;
        int status;
        const char* output;
    } cases[] = {
        {R"(-1d --now '2024-03-15 10:20:30')", 0, "2024-03-14 23:59:59\n"},
        {R"(+0w --first-day 1 --start-of-day --now 1710498030)", 0, "2024-03-11 00:00:00\n"},
        {R"(T --json --now '2024-03-15 10:20:30')", 0,
         "{\"ok\":true,\"time\":\"2024-03-15 10:20:30\"}\n"},
        {R"(-1m --now '2024-03-31 10:20:30')", 1, ""},  // there is no 31 February
        {"-2hxyz", 1, ""},
        {"''", 1, ""},
        {"-1d --now '2024-02-31 10:20:30'", 2, ""},
        {"-1d --first-day 7", 2, ""},
        {"", 2, ""},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.arguments);
        const Result result = run(std::string("time ") + each.arguments, "TZ=UTC");
        Expect(result, each.status, each.output);
        EXPECT_EQ(result.error.empty(), each.status == 0) << result.error;
    }
}

TEST_F(CliTest, PrintsPhraseKeys) {
    const std::string two = Veltra::PhraseKey("two words");
    const std::string both = two + '\n' + Veltra::PhraseKey("[a,b]") + '\n';
    Expect(run("phrase-key 'two words' '[a,b]'"), 0, both);
    Expect(run("phrase-key", "", "two words\r\n\n[a,b]"), 0, both);
    Expect(run("phrase-key --json 'two words'"), 0,
           R"({"ok":true,"keys":[{"phrase":"two words","key":")" + two + "\"}]}\n");
    const std::string quoted = Veltra::PhraseKey("two words\\");
    const std::string slash = Veltra::PhraseKey(R"(a\\b)") + '\n' + Veltra::PhraseKey(R"(a\\b\)");
    Expect(run(R"(phrase-key --escaped 'two words' 'a\b')"), 0,
           two + '\n' + quoted + '\n' + slash + '\n');
    Expect(run("phrase-key --json --escaped", "", "two words"), 0,
           R"({"ok":true,"keys":[{"phrase":"two words","key":")" + two + R"(","keyBeforeQuote":")" +
               quoted + "\"}]}\n");
    // Once the pipe's reader has gone:
    EXPECT_EQ(
        shell("trap '' PIPE; while echo; do :; done 2>no; for phrases in x \"$(seq 999)\"; do "
              "'" VELTRA_PROGRAM "' phrase-key --json $phrases 2>>err; echo $? >>status; done",
              ":"),
        0);
    EXPECT_EQ(read("status"), "1\n1\n");
    EXPECT_EQ(read("err"), "");
}

TEST_F(CliTest, PrintsTheAnswerAlone) {
    startGateway();
    const Result text = query("greeting name=Ada 'place=\"C:\\new\"'");
    Expect(text, 0, "Hello Ada, welcome to \"C:\\new\".\n");
    EXPECT_EQ(text.error, "");
    Expect(query("greeting name=Ada 'place=\"x\"' --trace-id t-1 --json"), 0,
           R"({"ok":true,"traceId":"t-1","answer":"Hello Ada, welcome to \"x\"."})"
           "\n");
}

TEST_F(CliTest, SendsWhatTheOptionsSay) {
    startGateway();
    const Result result = query("greeting name=b --filter 3 --sensitive one --sensitive '[2,3]'");
    EXPECT_EQ(result.status, 0) << result.error;
    std::string body;  // the monitor's probes come to the same path, before or after, without one
    for (const auto& request : gateway_->requests())
        if (request.path == gateway::kQueryPath) body += request.body;
    EXPECT_NE(body.find(R"("sensitiveContentCfg":{"inputWords":["one","[2,3]"],)"
                        R"("filterTags":["checkOutput"]})"),
              body.npos)
        << body;
}

TEST_F(CliTest, RefusalsExitWith1AndSayWhy) {
    startGateway();
    write("phrases.txt", "top  secret\r\n\nback\\slash\n");
    const struct {
        const char* arguments;
        int code;
        const char* message;
    } cases[] = {
        {"absent", 6, "unknown prompt key: absent"},
        {"greeting name=forbidden --filter 2", 4, "CCF083001: the input is not acceptable"},
        {"greeting 'name=a top secret' --phrase-file phrases.txt", 4, "has sensitive words"},
        {"greeting 'name=back\\slash' --phrase-file phrases.txt", 4, "has sensitive words"},
    };
    for (const auto& [arguments, code, message] : cases) {
        SCOPED_TRACE(arguments);
        const std::string number = std::to_string(code);
        const Result text = query(std::string(arguments) + " --log-level 5");
        Expect(text, 1, "");
        EXPECT_TRUE(text.Says("refused: code " + number + ": " + message + '\n')) << text.error;
        Expect(query(std::string(arguments) + " --json"), 1,
               R"({"ok":false,"code":)" + number + R"(,"message":")" + message + "\"}\n");
    }
    const Result limited = query(
        "greeting 'name=top secret' --phrase-file phrases.txt "
        "--phrase-limit 1");
    EXPECT_EQ(limited.status, 0) << limited.error;
}

TEST_F(CliTest, RefusedLoginShowsNoSecretEvenIfTheGatewaySendsItBack) {
    startGateway();
    gateway::Answer echo;
    echo.body = std::string(R"({"errorCode":"1","message":")") + kSecretInJson + "\"}";
    gateway_->setAnswer(std::string(gateway::kTokenPath), echo);
    const Result result = query("greeting --json --log-level 2");
    Expect(result, 1,
           "{\"ok\":false,\"code\":0,"
           "\"message\":\"the login was refused: no key pair gave a token\"}\n");
    EXPECT_TRUE(result.Says("***")) << result.error;
}

TEST_F(CliTest, TakesCredentialsFromTheEnvironmentAndWarnsOfAnOpenFile) {
    startGateway();
    const std::string arguments = "query greeting --domain " + gateway_->baseUrl();
    const Result environment = run(
        arguments, std::string("VELTRA_APP_KEY=") + kApp + " VELTRA_SECRET_KEY='" + kSecret + "'");
    EXPECT_EQ(environment.status, 0) << environment.error;

    ASSERT_EQ(chmod(keys_.c_str(), 0644), 0);
    const Result open = query("greeting");
    EXPECT_EQ(open.status, 0);
    EXPECT_TRUE(open.Says("other users may read keys.json")) << open.error;
}

TEST_F(CliTest, ProbesAGateway) {
    startGateway(true);
    write("ca.pem", gateway_->caPem());
    const std::string url = gateway_->baseUrl();
    Expect(run("probe " + url + "/ --ca-file ca.pem --json"), 0,
           R"({"ok":true,"domain":")" + url + "\"}\n");
    const Result untrusted = run("probe " + url);
    Expect(untrusted, 1, "");
    EXPECT_TRUE(untrusted.Says("failed: " + url)) << untrusted.error;
}

TEST_F(CliTest, SubmitsAndWithdrawsFeedback) {
    startGateway();
    const std::string one = std::string("\xFF\xD8\xFF\0one\r\n", 9);
    std::string two = "\xFF\xD8\xFF";
    for (int i = 0; i < 100000; ++i)
        two += static_cast<char>(i * 7 % 251);
    write("one.jpg", one);
    write("two.jpg", two);

    const Result submitted =
        atGateway("feedback submit",
                  "--trace-id t-1 --satisfaction -2 --type 7 --comment 'says \"no\"' "
                  "--country FR --picture one.jpg two.jpg --json --log-level detail");
    ASSERT_EQ(submitted.status, 0) << submitted.error;
    ASSERT_EQ(gateway_->feedback().size(), 1U);
    const gateway::Feedback feedback = gateway_->feedback().front();
    EXPECT_EQ(submitted.output, R"({"ok":true,"feedbackId":")" + feedback.id + "\"}\n");
    // The library's lines, which it writes to standard output.
    EXPECT_TRUE(submitted.Says(R"({"traceId":"t-1","satisfactionType":-2)")) << submitted.error;
    EXPECT_EQ(feedback.traceId, "t-1");
    EXPECT_EQ(feedback.satisfactionType, -2);
    EXPECT_EQ(feedback.feedbackType, 7);
    EXPECT_EQ(feedback.description, R"(says "no")");
    EXPECT_EQ(feedback.country, "FR");
    std::multiset<std::string> kept;
    for (const auto& key : feedback.imageKeys)
        kept.insert(gateway_->picture(key).value_or("absent"));
    EXPECT_TRUE(kept == std::multiset<std::string>({one, two}));

    Expect(atGateway("feedback cancel", feedback.id), 0, feedback.id + '\n');
    const Result again = atGateway("feedback cancel", feedback.id + " --json");
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(again.output.rfind(R"({"ok":false,"code":0,"message":")", 0), 0U) << again.output;
}

TEST_F(CliTest, PicturesThatCannotBeSentAreWrongUsage) {
    write("empty", "");
    std::filesystem::resize_file(write("huge", ""), (std::uintmax_t{32} << 20) + 1);
    for (const char* name : {"1", "2", "3", "4", "5"})
        write(name, name);
    const std::pair<std::string, const char*> cases[] = {
        {"absent", "does not exist"},     {".", "is actually a directory"},
        {"empty", "an empty picture"},    {"huge", "32 MiB at most"},
        {"1 1", "a picture given twice"}, {"1 2 3 --picture 4 5", "4 pictures at most"},
    };
    for (const auto& [pictures, reason] : cases) {
        SCOPED_TRACE(pictures);
        const Result result =
            run("feedback submit --trace-id t --credentials keys.json --picture " + pictures);
        Expect(result, 2, "");
        EXPECT_TRUE(result.Says(reason)) << result.error;
    }
}

TEST_F(CliTest, FeedbackThatFailsPrintsNoId) {
    startGateway();
    const Result plain = atGateway("feedback submit", "--trace-id t-2");
    EXPECT_EQ(plain.status, 0) << plain.error;
    EXPECT_EQ(plain.error, "");
    ASSERT_EQ(gateway_->feedback().size(), 1U);
    EXPECT_EQ(plain.output, gateway_->feedback().front().id + '\n');
    EXPECT_EQ(gateway_->feedback().front().country, "unKnown");

    gateway_->addFault({std::string(gateway::kStoragePrefix)});
    write("one.png", "not a JPEG file");
    const Result failed = atGateway("feedback submit", "--trace-id t-3 --picture one.png");
    Expect(failed, 1, "");
    EXPECT_TRUE(failed.Says("warning: one.png is not a JPEG file")) << failed.error;
    EXPECT_TRUE(failed.Says("Upload pic to S3 failed!")) << failed.error;
    EXPECT_EQ(gateway_->feedback().size(), 1U);
}

TEST_F(CliTest, LostOutputIsAFailureAndReachesNoSocket) {
    startGateway();
    for (const char* where : {">&-", ">/dev/full", "<&- >&- 2>&-"}) {
        gateway_->recordWire(true);
        const Result result = query(std::string("greeting name=lost ") + where);
        EXPECT_EQ(result.status, 1) << where;
        EXPECT_EQ(gateway_->wireBytes().find("Hello lost"), std::string::npos) << where;
        gateway_->recordWire(false);
    }
}

TEST_F(CliTest, DemonstrationPassesAndNoticesADeviation) {
    startGateway(true);
    write("ca.pem", gateway_->caPem());
    const std::string arguments =
        "demo --credentials keys.json --ca-file ca.pem --gateway " + gateway_->baseUrl();
    const Result good = run(arguments);
    EXPECT_EQ(good.status, 0) << good.output << good.error;
    EXPECT_EQ(good.error, "");
    EXPECT_EQ(good.output.find('{'), std::string::npos) << "the library's lines: " << good.output;
    ASSERT_EQ(gateway_->feedback().size(), 1U);
    EXPECT_NE(good.output.find("feedback id " + gateway_->feedback().front().id), std::string::npos)
        << good.output;

    gateway_->addFault({std::string(gateway::kQueryPath), gateway::FaultKind::RefuseCode, 0, "7"});
    const Result deviating = run(arguments);
    EXPECT_EQ(deviating.status, 1) << deviating.output;
    EXPECT_TRUE(deviating.Says("deviation in step 5")) << deviating.error;
    const Result inJson = run("demo --json --gateway " + gateway_->baseUrl());  // no ca.pem
    EXPECT_EQ(inJson.output.rfind(R"({"ok":false,"code":0,"message":"deviation in step )", 0), 0U)
        << inJson.output;
}

}  // namespace
