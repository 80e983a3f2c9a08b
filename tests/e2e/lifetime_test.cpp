// How a host may end: each way with the monitor running, or in the middle of a TLS exchange with a
// server that has fallen silent. Status 0, no sanitizer report, nothing left mapped.

#include "e2e/e2e_support.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace {

/// A child process with pipes to its standard input and output.
class Child {
 public:
    explicit Child(const std::vector<std::string>& arguments) {
        std::array<int, 2> in{};
        std::array<int, 2> out{};
        if (pipe(in.data()) != 0 || pipe(out.data()) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            std::signal(SIGPIPE, SIG_DFL);  // a host's own: the library must not raise it
            dup2(in[0], STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            for (const int descriptor : {in[0], in[1], out[0], out[1]})
                close(descriptor);
            std::vector<char*> argv;
            for (const auto& argument : arguments)
                argv.push_back(const_cast<char*>(argument.c_str()));
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        toChild_ = fdopen(in[1], "w");
        fromChild_ = fdopen(out[0], "r");
    }
    ~Child() {
        if (pid_ > 0) kill(pid_, SIGKILL);
        if (pid_ > 0) waitpid(pid_, nullptr, 0);
        if (toChild_ != nullptr) fclose(toChild_);
        if (fromChild_ != nullptr) fclose(fromChild_);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    std::string Line() {
        std::array<char, 64> line{};
        if (fgets(line.data(), line.size(), fromChild_) == nullptr) return "gone";
        return std::string(line.data(), strcspn(line.data(), "\n"));
    }
    void Go() {
        fputs("go\n", toChild_);
        fflush(toChild_);
    }
    int Status() {
        int status = -1;
        waitpid(std::exchange(pid_, 0), &status, 0);
        return status;
    }

 private:
    pid_t pid_ = 0;
    FILE* toChild_ = nullptr;
    FILE* fromChild_ = nullptr;
};

struct Case {
    const char* how;
    bool stalled;  ///< the end comes while the monitor is in an exchange that never ends
};

void PrintTo(const Case& each, std::ostream* out) {
    *out << each.how << (each.stalled ? " while stalled" : "");
}

class LifetimeTest : public testing::TestWithParam<Case> {
 protected:
    LifetimeTest() : server(e2e::Serve(true)) {
        std::signal(SIGPIPE, SIG_IGN);
        EXPECT_TRUE(server.start());
        ca = std::make_unique<e2e::TemporaryFile>(server.caPem());
    }

    gateway::Gateway server;
    std::unique_ptr<e2e::TemporaryFile> ca;
};

INSTANTIATE_TEST_SUITE_P(Ends, LifetimeTest,
                         testing::Values(Case{"return", false}, Case{"return", true},
                                         Case{"exit", false}, Case{"exit", true},
                                         Case{"exit-in-thread", false},
                                         Case{"exit-in-thread", true}, Case{"quick", true},
                                         Case{"busy", false}, Case{"busy", true},
                                         Case{"fork", false}, Case{"unload", true}),
                         [](const auto& each) {
                             std::string name = each.param.how;
                             for (char& c : name)
                                 c = c == '-' ? '_' : c;
                             return name + (each.param.stalled ? "_stalled" : "");
                         });

TEST_P(LifetimeTest, EndsCleanly) {
    const auto [how, stalled] = GetParam();
    const bool unloads = std::string(how) == "unload";
    Child host({unloads ? LIFETIME_LOADER : LIFETIME_HOST, unloads ? "1" : how, server.baseUrl(),
                ca->Path(), LIFETIME_PLUGIN});
    ASSERT_EQ(host.Line(), "domain");
    if (stalled) {
        server.addFault({std::string(gateway::kQueryPath), gateway::FaultKind::Stall, 0, "", ""});
    }
    host.Go();
    ASSERT_EQ(host.Line(), "ready");
    if (stalled) {
        ASSERT_TRUE(server.waitUntil([this] { return server.stalled() > 0; }));
    }
    host.Go();
    if (std::string(how) == "busy") {
        ASSERT_EQ(host.Line(), "asking");
        host.Go();
    }
    EXPECT_EQ(host.Status(), 0);
}

TEST_F(LifetimeTest, UnloadsFiftyTimes) {
    Child host({LIFETIME_LOADER, "50", server.baseUrl(), ca->Path(), LIFETIME_PLUGIN});
    for (int round = 0; round < 50; ++round) {
        ASSERT_EQ(host.Line(), "domain") << "round " << round;
        host.Go();
        ASSERT_EQ(host.Line(), "ready") << "round " << round;
        host.Go();
    }
    EXPECT_EQ(host.Status(), 0);
}

}  // namespace
