// What linking the library costs a host beside one on the HTTP and JSON libraries alone: bytes on
// disk, time to start, memory after the first query.

#include "support/answerer.h"
#include "support/in_turn.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const bench::Answerer* gateway = nullptr;

/// Runs a program to its end; what it wrote to standard output.
std::string Run(const std::string& program, const std::vector<std::string>& arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t child = -1;
    const int failed =
        posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string output(256, '\0');
    const ssize_t count = failed == 0 ? read(ends[0], output.data(), output.size()) : 0;
    close(ends[0]);
    int status = -1;
    if (failed != 0 || waitpid(child, &status, 0) != child || status != 0)
        throw std::runtime_error(program + " failed");
    output.resize(static_cast<std::size_t>(count > 0 ? count : 0));
    return output;
}

void SizeStripped(benchmark::State& state) {
    for (auto _ : state) {
    }
    state.counters["subject"] = static_cast<double>(std::filesystem::file_size(FOOTPRINT_LIBRARY));
}
BENCHMARK(SizeStripped)->Iterations(1);

void StartingHost(benchmark::State& state) {
    bench::InTurn(
        state, 1, bench::Sample::eachCall, [] { Run(FOOTPRINT_VELTRA, {}); },
        [] { Run(FOOTPRINT_PLAIN, {}); });
}
BENCHMARK(StartingHost)->UseManualTime();

struct Memory {
    double all = 0;
    double own = 0;
};

/// In bytes, after one query.
Memory MemoryOf(const char* program) {
    const std::string said = Run(program, {gateway->Url(), gateway->CaFile()});
    Memory memory;
    if (std::sscanf(said.c_str(), "%lf %lf", &memory.all, &memory.own) != 2)
        throw std::runtime_error("no answer from " + std::string(program));
    return {memory.all * 1024, memory.own * 1024};
}

void MemoryAfterFirstQuery(benchmark::State& state) {
    Memory veltra;
    Memory plain;
    for (auto _ : state) {
        veltra = MemoryOf(FOOTPRINT_VELTRA);
        plain = MemoryOf(FOOTPRINT_PLAIN);
    }
    bench::ReportRatio(state, veltra.all, plain.all);
    state.counters["subject_own"] = veltra.own;
    state.counters["baseline_own"] = plain.own;
}
BENCHMARK(MemoryAfterFirstQuery)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
    const bench::Answerer made(bench::Scheme::https, 1024);
    gateway = &made;
    return bench::RunBenchmarks(argc, argv);
}
