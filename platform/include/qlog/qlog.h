#ifndef QLOG_QLOG_H
#define QLOG_QLOG_H

/**
 * @file
 * The library's log records for the host. Valid in C and in C++.
 */

#include <Oak/Base/Export.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Gets one formatted record.
 *
 * It is called on the thread that logs, from any thread and from several at once, and never while
 * the library holds one of its locks. It must not throw. It may call any function of the library;
 * records that its own thread would write meanwhile are dropped. It must not wait for anything that
 * another thread may hold while that one is inside the library: a login, say, waits for a renewal
 * under way, whose records come here. Records are written until the process has ended: a handler
 * that needs objects of the host is replaced before they go.
 *
 * @param level    2 detail, 3 progress, 4 a condition worked around, 5 failure
 * @param tag      "Veltra", or "Oak" for what lies below; ends with a zero, and is valid during the
 *                 call alone
 * @param message  the text, which may hold any byte but a zero; ends with one, and is valid during
 *                 the call alone
 * @param context  what was set with the handler
 */
typedef void (*qlog_handler)(int level, const char* tag, const char* message, void* context);

/**
 * Sends every later record at or above a level to a handler. At start the default handler is set,
 * with level 4: one line a record on standard error, control characters escaped. Records below the
 * level are not formatted.
 *
 * When the function returns, the handler that it replaced is not running and won't run again, so
 * its context may be freed; called from inside a handler it returns at once instead, and the
 * replaced handler may still be running. Any thread may call it, but not while it holds a lock that
 * the replaced handler may be waiting for. In a child forked from a process that has used the
 * library it does nothing.
 *
 * @param handler    the handler, or null for the default one
 * @param context    handed to each call of the handler, and not touched otherwise: it stays the
 *                   host's, and lives until the handler was replaced. May be null
 * @param min_level  the lowest level that is handed on, for the default handler as well; up to 2
 *                   gives every record, from 6 on none
 */
OAK_API void qlog_set_handler(qlog_handler handler, void* context, int min_level);

#ifdef __cplusplus
}
#endif

#endif
