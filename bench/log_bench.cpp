// A record that nobody wants beside a call that does nothing.

#include "support/empty_call.h"
#include "support/in_turn.h"

#include <qlog/qlog_write.h>

#include <string>

namespace {

void RecordBelowLevel(benchmark::State& state) {
    const std::string body = "body";
    const std::string answer = "answer";
    bench::InTurn(
        state, 10000, bench::Sample::meanOfRound,
        [&] {
            qlog_write(3, "Veltra", "[%s]request:%s,response:%s[%s(%d)]", __func__, body.c_str(),
                       answer.c_str(), __FILE__, __LINE__);
        },
        [&] {
            bench::EmptyCall(3, "Veltra", "[%s]request:%s,response:%s[%s(%d)]", __func__,
                             body.c_str(), answer.c_str(), __FILE__, __LINE__);
        });
    state.counters["difference"] = state.counters["subject"] - state.counters["baseline"];
}
BENCHMARK(RecordBelowLevel)->UseManualTime();

}  // namespace
