#ifndef VELTRA_BENCH_EMPTY_CALL_H
#define VELTRA_BENCH_EMPTY_CALL_H

namespace bench {

/// Takes what qlog_write takes and does nothing; in a file of its own, so that it is called.
void EmptyCall(int level, const char* tag, const char* format, ...) noexcept;

}  // namespace bench

#endif
