#ifndef QLOG_QLOG_H
#define QLOG_QLOG_H

/**
 * @file
 * Passes the library's log records to the host. Valid in C and in C++.
 */

#include <Oak/Base/Export.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Receives one formatted log record.
 *
 * It is called on the thread that logs: any thread, several at once, and never while the library
 * holds one of its locks. It must not throw. It may call any function of the library; records that
 * its own thread would write in the meantime are dropped. It must not wait for anything that
 * another thread may hold while that thread is inside the library: a login, for example, waits for
 * a renewal under way, whose records come here. Records are written until the process has ended, so
 * replace a handler that needs objects of the host before they are destroyed.
 *
 * @param level    2 detail, 3 progress, 4 a condition worked around, 5 failure
 * @param tag      "Veltra", or "Oak" for the platform services; zero-terminated, and valid only
 *                 during the call
 * @param message  the text, which may contain any byte but zero; zero-terminated, and valid only
 *                 during the call
 * @param context  the value that was set with the handler
 */
typedef void (*qlog_handler)(int level, const char* tag, const char* message, void* context);

/**
 * Passes every later log record at or above a level to a handler. Initially the default handler is
 * set, with level 4: it writes one line per record to standard error, with control characters
 * escaped. Records below the level are not formatted.
 *
 * When the function returns, the handler that it replaced is not running and won't run again, so
 * its context may be freed. When called from inside a handler it returns at once instead, and the
 * replaced handler may still be running. Any thread may call it, but not while holding a lock that
 * the replaced handler may be waiting for. In a child forked from a process that has used the
 * library it does nothing.
 *
 * @param handler    the handler, or null for the default one
 * @param context    passed to each call of the handler, and not touched otherwise. It stays the
 *                   host's and must live until the handler has been replaced. May be null
 * @param min_level  the lowest level that is passed on, also for the default handler; 2 or less
 *                   passes every record, 6 or more none
 */
OAK_API void qlog_set_handler(qlog_handler handler, void* context, int min_level);

#ifdef __cplusplus
}
#endif

#endif
