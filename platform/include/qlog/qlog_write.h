#ifndef QLOG_QLOG_WRITE_H
#define QLOG_QLOG_WRITE_H

#if defined(__GNUC__)
#define QLOG_PRINTF_CHECK(text, first) __attribute__((format(printf, text, first)))
#else
#define QLOG_PRINTF_CHECK(text, first)
#endif

/// Writes one log record; format and arguments as for printf. Not exported: hosts read records,
/// they don't write them. Never throws: if memory runs out, the record is lost. A record below the
/// handler's level costs one comparison.
void qlog_write(int level, const char* tag, const char* format, ...) noexcept
    QLOG_PRINTF_CHECK(3, 4);

#endif
