#ifndef QLOG_QLOG_H
#define QLOG_QLOG_H

/* Valid in C and in C++. */

#include <Oak/Base/Export.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Gets one formatted record: its level (2 detail, 3 progress, 4 a condition worked around,
 * 5 failure), its tag and its message, both zero-terminated and valid during the call alone, and
 * the context that was set with the handler.
 *
 * It is called on the thread that logs, from any thread and from several at once, and never while
 * the library holds one of its locks. It must not throw. It may call any function of the library;
 * records that its own thread would write meanwhile are dropped. It must not wait for anything that
 * another thread may hold while that one is inside the library: a login, say, waits for a renewal
 * under way, whose records come here. Records are written until the process has ended: a handler
 * that needs objects of the host is replaced before they go.
 */
typedef void (*qlog_handler)(int level, const char* tag, const char* message, void* context);

/**
 * Sends every later record at or above `min_level` to `handler`. A null handler restores the
 * default one, with the given level: one line a record on standard error, control characters
 * escaped. At start the default handler is set, with level 4. Records below the level are not
 * formatted.
 *
 * When the function returns, the handler that it replaced is not running and won't run again, so
 * its context may be freed; called from inside a handler it returns at once instead, and the
 * replaced handler may still be running. Any thread may call it, but not while it holds a lock that
 * the replaced handler may be waiting for.
 */
OAK_API void qlog_set_handler(qlog_handler handler, void* context, int min_level);

#ifdef __cplusplus
}
#endif

#endif
