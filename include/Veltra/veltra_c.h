#ifndef VELTRA_VELTRA_C_H
#define VELTRA_VELTRA_C_H

/**
 * @file
 * The library for C, for hosts built by another compiler, and for other languages. Valid in C99 and
 * in C++.
 *
 * No C++ type and no exception crosses this interface, nor memory that the caller's run-time
 * library would have to free. The library underneath is the same: login, phrase list and switches
 * belong to the process, whichever interface sets them.
 *
 * Texts are UTF-8 and end with a zero. Pass them plain: the library escapes what a request needs
 * escaped, and replaces bytes that aren't UTF-8 by U+FFFD there. They are copied before a function
 * returns. Texts that are returned belong to the library unless a function says otherwise.
 *
 * A function that can fail returns a `veltra_outcome`. A null pointer gives `VELTRA_BAD_ARGUMENT`,
 * unless a function gives null a meaning; functions that return something else then do nothing and
 * return 0, null or an empty text. Running out of memory gives `VELTRA_FAILED`. On failure, output
 * parameters are unchanged.
 *
 * Any thread may call any function at any time, at the same time as any other, except while the
 * library is being unloaded. Objects (`veltra_call`, `veltra_query`, `veltra_feedback`) belong to
 * whoever created them and live until they are passed to their own `_free`; each type says how
 * several threads may use one. In a child forked from a process that has used the library, and
 * while the process ends, every function that would reach the library's state does nothing and
 * fails with `VELTRA_NOT_ENABLED`.
 *
 * For log records, see `qlog_set_handler` in qlog/qlog.h.
 */

#include <Veltra/Export.h>

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** How a call ended: one of the numbers below. */
typedef int32_t veltra_outcome;

/** The values of a `veltra_outcome`. A later version of the library may add some. */
enum {
    VELTRA_SUCCEEDED = 0,        /**< done */
    VELTRA_NOT_ENABLED = 1,      /**< the layer is not enabled; forked child; the process ends */
    VELTRA_NOT_USABLE = 2,       /**< no login yet, or the service was last found unusable */
    VELTRA_BAD_ARGUMENT = 3,     /**< null, unknown, or an object that is in use */
    VELTRA_SCREENED = 4,         /**< a value contains a listed phrase; nothing was sent */
    VELTRA_CANCELLED = 5,        /**< by `veltra_call_cancel` or `veltra_cancel_all` */
    VELTRA_TIMED_OUT = 6,        /**< a time limit expired: the call's, or one of the exchange */
    VELTRA_NOT_REACHED = 7,      /**< no connection: name, address, port, proxy, or TLS version */
    VELTRA_NOT_TRUSTED = 8,      /**< the server's certificate isn't trusted */
    VELTRA_CUT_OFF = 9,          /**< the connection ended before the answer did */
    VELTRA_BAD_STATUS = 10,      /**< an answer with a status other than 200 */
    VELTRA_BAD_ANSWER = 11,      /**< an answer that is empty, too large or malformed */
    VELTRA_REFUSED = 12,         /**< the gateway refused, with a code */
    VELTRA_TOKEN_REJECTED = 13,  /**< the gateway rejected the token, and the renewed one as well */
    VELTRA_FORBIDDEN_WORDS = 14, /**< the gateway found a forbidden word */
    VELTRA_NOT_ALLOWED = 15,     /**< the library refused to send: plain http, a malformed URL */
    VELTRA_FAILED = 16           /**< anything else, such as running out of memory */
};

/**
 * Returns the version of the loaded library.
 * @return a text like "1.1.0", valid while the library is loaded
 */
VELTRA_API const char* veltra_version(void);

/**
 * Returns the name of an outcome, for a log or an exception.
 * @param outcome  any number
 * @return a text like "TimedOut", valid while the library is loaded; "Failed" for a number without
 *         a name
 */
VELTRA_API const char* veltra_outcome_name(veltra_outcome outcome);

/**
 * Frees a text that a function of this interface returned.
 * @param text  the text; null does nothing
 */
VELTRA_API void veltra_free(void* text);

/* --- the layer --------------------------------------------------------------------------------- */

/** Enables the layer, which calls require. Starts no thread and doesn't block. */
VELTRA_API void veltra_enable(void);

/**
 * Disables the layer and stops its monitor thread. Token, domains and keys stay. Blocks until that
 * thread has ended, 15 seconds at most; call `veltra_cancel_all` first to cut that short. Doesn't
 * wait when called from a log handler on the monitor thread.
 */
VELTRA_API void veltra_disable(void);

/**
 * Tells whether the layer is enabled. Doesn't block.
 * @return 1 or 0
 */
VELTRA_API int veltra_is_enabled(void);

/**
 * Tells whether the gateway's service was last found usable, by a login, a renewal or the monitor
 * thread. Doesn't block.
 * @return 1 or 0; 0, with a log record, while the layer is not enabled
 */
VELTRA_API int veltra_is_usable(void);

/**
 * Stops the monitor thread and nothing else; a later login starts it again. Blocks like
 * `veltra_disable`. Call it before you unload the library.
 */
VELTRA_API void veltra_stop_monitor(void);

/* --- calls -------------------------------------------------------------------------------------- */

/**
 * Controls the calls that it is passed to, and reports how the last one ended. "Call" means a
 * function with a parameter `call`: those that talk to the gateway while the host waits. If it is
 * null, only the limits of `veltra_http_options` apply, only `veltra_cancel_all` cancels the call,
 * and there is no report besides the outcome.
 *
 * It serves one call at a time: a second one is refused with `VELTRA_BAD_ARGUMENT` and leaves the
 * first one's report alone. Any thread may set the time limit, cancel and reset at any time until
 * `veltra_call_free`. The report may be read by the thread that made the call, or by any other that
 * knows that the call has returned.
 */
typedef struct veltra_call veltra_call;

/**
 * Creates a control without a time limit or report, not cancelled.
 * @return the object, for `veltra_call_free`; null if memory ran out
 */
VELTRA_API veltra_call* veltra_call_new(void);

/**
 * Frees a control. The call that it was passed to must have returned.
 * @param call  the object; null does nothing
 */
VELTRA_API void veltra_call_free(veltra_call* call);

/**
 * Limits the time of each whole call that begins from now on: attempts, waits and repeats together.
 * @param call          the object
 * @param milliseconds  the longest time of a call; 0, the initial value: no limit
 */
VELTRA_API void veltra_call_set_time_limit(veltra_call* call, uint32_t milliseconds);

/**
 * Cancels the call under way, which returns within 100 ms (a name lookup may take longer), and
 * refuses later ones until `veltra_call_reset`. Doesn't wait for the call. A call whose answer has
 * already arrived still returns it.
 * @param call  the object
 */
VELTRA_API void veltra_call_cancel(veltra_call* call);

/**
 * Allows calls again. A call that was under way when it was cancelled stays cancelled.
 * @param call  the object
 */
VELTRA_API void veltra_call_reset(veltra_call* call);

/**
 * Returns how many exchanges the last call made: attempts, repeats and renewal requests.
 * @param call  the object
 * @return the number; 0 if nothing was sent
 */
VELTRA_API int32_t veltra_call_attempts(const veltra_call* call);

/**
 * Returns the HTTP status of the last answer in the last call.
 * @param call  the object
 * @return the status; 0 if no answer came
 */
VELTRA_API int32_t veltra_call_http_status(const veltra_call* call);

/**
 * Returns how long the last call took, by a steady clock.
 * @param call  the object
 * @return the time in milliseconds
 */
VELTRA_API uint32_t veltra_call_milliseconds(const veltra_call* call);

/**
 * Tells whether the last call may succeed when it is simply repeated later. Feedback that is
 * submitted again may be stored twice.
 * @param call  the object
 * @return 1 or 0
 */
VELTRA_API int veltra_call_retryable(const veltra_call* call);

/**
 * Returns the code of the gateway's last answer in the last call.
 * @param call  the object
 * @return the code, "0" for a success; empty if it gave none. Never null. Like the three texts
 *         below, it is valid until the object's next call or until it is freed
 */
VELTRA_API const char* veltra_call_gateway_code(const veltra_call* call);

/**
 * Returns the message of the gateway's last answer in the last call: its explanation of a refusal.
 * @param call  the object
 * @return the text, at most its first 4096 bytes, cut at a zero byte; empty if it gave none
 */
VELTRA_API const char* veltra_call_gateway_message(const veltra_call* call);

/**
 * Returns one line for a person that says why the last call failed. It contains no key, no token,
 * and neither the user part nor the query of a URL.
 * @param call  the object
 * @return the line, in English; empty after a success
 */
VELTRA_API const char* veltra_call_detail(const veltra_call* call);

/**
 * Returns the trace id of the last call, by which feedback refers to a query.
 * @param call  the object
 * @return the id, including one that the library generated; empty unless the call was a query or
 * feedback
 */
VELTRA_API const char* veltra_call_trace_id(const veltra_call* call);

/**
 * Cancels every call under way, from all interfaces and threads, and the monitor thread's exchange.
 * Later calls are not affected. Doesn't wait for the calls to return. To close, a host calls this,
 * joins its threads and calls `veltra_disable`: together less than a second.
 */
VELTRA_API void veltra_cancel_all(void);

/* --- gateway and login -------------------------------------------------------------------------- */

/** Limits, trust and proxy of every exchange. Zero it, then set `size` and what you need. */
typedef struct {
    size_t size;                 /**< the caller's sizeof(veltra_http_options) */
    uint32_t connect_timeout_ms; /**< longest time to reach a server; 0: 10 seconds */
    uint32_t total_timeout_ms;   /**< longest time of a whole exchange; 0: 2 minutes */
    uint64_t max_response_bytes; /**< largest answer that is accepted; 0: 64 MiB */
    const char* ca_file;         /**< trusted certificates, PEM; null or empty: the system's */
    const char* proxy;           /**< its URL, or "direct"; null or empty: the system's settings */
    int allow_plain_http;        /**< whether http may go to addresses other than loopback */
} veltra_http_options;

/**
 * Makes the options valid for every exchange that begins after the call, in place of all earlier
 * ones. Doesn't block. Values aren't checked: one that can't work, such as a missing file, makes
 * the exchanges fail.
 * @param options  the options; null: the defaults. Fields beyond `size` keep their defaults
 * @return the outcome; `VELTRA_BAD_ARGUMENT` if `size` is less than the field itself takes
 */
VELTRA_API veltra_outcome veltra_set_http_options(const veltra_http_options* options);

/**
 * Sets the domain that tokens are requested from, in place of the built-in ones, once it has
 * answered a probe. Blocks for the probe, at most three attempts.
 * @param domain  scheme, host and, if needed, a port, without a path, such as
 *                "https://gateway.example"
 * @param call    control and report; may be null
 * @return the outcome; the domain is set only on success
 */
VELTRA_API veltra_outcome veltra_set_domain(const char* domain, veltra_call* call);

/**
 * Probes a domain as `veltra_set_domain` does, and changes nothing. The layer must be enabled.
 * @param domain  a domain as for `veltra_set_domain`
 * @param call    control and report; may be null
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_probe(const char* domain, veltra_call* call);

/** An access-key pair. */
typedef struct {
    const char* app_key;    /**< the key's identifier */
    const char* secret_key; /**< the key's secret; the library wipes the copies that it makes */
} veltra_key_pair;

/**
 * Logs in: requests a token with the pairs, those of earlier logins first, and starts the monitor
 * thread, which keeps it fresh. Blocks for one request per pair and domain.
 * @param pairs            the pairs; may be null if `count` is 0, and then those of earlier logins
 *                         are used
 * @param count            how many there are
 * @param product_version  the host's own version, which feedback carries; empty: that of the
 *                         previous login
 * @param call             control and report; may be null
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_login(const veltra_key_pair* pairs, size_t count,
                                       const char* product_version, veltra_call* call);

/**
 * Logs out: stops the monitor thread, discards and wipes keys and token. The enable flag, the
 * domain of `veltra_set_domain`, the phrase list and the product version stay. Blocks like
 * `veltra_disable`, and for a login under way; call `veltra_cancel_all` first to cut that short.
 */
VELTRA_API void veltra_logout(void);

/* --- screening ---------------------------------------------------------------------------------- */

/**
 * Replaces the list of phrases that query values must not contain. Doesn't wait for queries.
 * @param phrases  the phrases, plain: words separated by spaces, in exactly the case and form to be
 *                 found, none with a sentence delimiter (see docs/screening.md); may be null if
 *                 `count` is 0. They are hashed here and not kept
 * @param count    how many there are; 0: every text passes
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_set_phrases(const char* const* phrases, size_t count);

/**
 * Replaces the list by keys that were computed elsewhere, so that this process needn't know the
 * phrases.
 * @param keys   the keys, as computed by `veltra phrase-key` or `veltra_phrase_key`; may be null if
 *               `count` is 0
 * @param count  how many there are; 0: every text passes
 * @param limit  the largest number of words of a phrase that is looked up; 0: every text passes
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_set_phrase_keys(const uint64_t* keys, size_t count,
                                                 uint32_t limit);

/**
 * Computes the key of a phrase. Values are screened in the form in which they are sent: a phrase
 * with a backslash, and any phrase before a closing quote, has further keys (see
 * docs/screening.md), which `veltra_set_phrases` adds.
 * @param phrase  the phrase, its words separated by single spaces
 * @return the key; 0 for null and for an empty text
 */
VELTRA_API uint64_t veltra_phrase_key(const char* phrase);

/* --- queries ------------------------------------------------------------------------------------ */

/**
 * The input of a query. One thread at a time may change it; while none does, any number may run it.
 * From the first run on, it holds its values twice.
 */
typedef struct veltra_query veltra_query;

/**
 * Creates a query without values, filter or trace id.
 * @param prompt_key  the key of the gateway's prompt template
 * @return the object, for `veltra_query_free`; null for a null key, or if memory ran out
 */
VELTRA_API veltra_query* veltra_query_new(const char* prompt_key);

/**
 * Frees a query. None of its runs may be under way.
 * @param query  the object; null does nothing
 */
VELTRA_API void veltra_query_free(veltra_query* query);

/**
 * Sets the value of a placeholder, replacing any earlier one.
 * @param query  the object
 * @param name   the placeholder's name
 * @param value  the text to put in its place, which is screened before it is sent
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_query_set_value(veltra_query* query, const char* name,
                                                 const char* value);

/**
 * Sets what the gateway checks for forbidden words.
 * @param query   the object
 * @param filter  1, the initial value: nothing; 2: the input; 3 and 4: the input and the model's
 *                output
 * @return the outcome; `VELTRA_BAD_ARGUMENT` for any other number
 */
VELTRA_API veltra_outcome veltra_query_set_filter(veltra_query* query, int32_t filter);

/**
 * Adds a text for the gateway to check in place of the values. With filter 1 none is sent.
 * @param query  the object
 * @param text   the text
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_query_add_sensitive(veltra_query* query, const char* text);

/**
 * Sets the id under which the gateway files the query, and by which feedback refers to it.
 * @param query     the object
 * @param trace_id  the id, preferably a different one for each run. Empty, the initial value: each
 *                  run generates one, which `veltra_call_trace_id` returns
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_query_set_trace_id(veltra_query* query, const char* trace_id);

/**
 * Runs a query and blocks until it is done: at most three attempts, and after a rejected token a
 * renewal and three more.
 * @param query   the object
 * @param answer  receives the model's answer, UTF-8 and zero-terminated, for `veltra_free`
 * @param length  receives the number of bytes before the terminating zero, which may themselves
 *                include zeros; may be null
 * @param call    control and report; may be null
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_query_run(const veltra_query* query, char** answer, size_t* length,
                                           veltra_call* call);

/* --- feedback ----------------------------------------------------------------------------------- */

/**
 * A user's feedback on the answer to a query. One thread at a time may change it; while none does,
 * any number may submit it.
 */
typedef struct veltra_feedback veltra_feedback;

/**
 * Creates feedback with both numbers 0, no comments, no pictures, and the country "unKnown".
 * @param trace_id  the trace id of the query
 * @return the object, for `veltra_feedback_free`; null for a null id, or if memory ran out
 */
VELTRA_API veltra_feedback* veltra_feedback_new(const char* trace_id);

/**
 * Frees feedback. None of its submissions may be under way.
 * @param feedback  the object; null does nothing
 */
VELTRA_API void veltra_feedback_free(veltra_feedback* feedback);

/**
 * Sets how satisfied the user is.
 * @param feedback      the object
 * @param satisfaction  any number that the gateway's operators know
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_feedback_set_satisfaction(veltra_feedback* feedback,
                                                           int32_t satisfaction);

/**
 * Sets what is wrong with the answer.
 * @param feedback    the object
 * @param error_type  any number that the gateway's operators know
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_feedback_set_error_type(veltra_feedback* feedback,
                                                         int32_t error_type);

/**
 * Sets the description in the user's words.
 * @param feedback  the object
 * @param comments  the text
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_feedback_set_comments(veltra_feedback* feedback,
                                                       const char* comments);

/**
 * Sets the user's country.
 * @param feedback  the object
 * @param country   the text
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_feedback_set_country(veltra_feedback* feedback,
                                                      const char* country);

/**
 * Adds a picture. The gateway takes four at most; if there are more, which four are sent is
 * unspecified. The same bytes added twice are one picture.
 * @param feedback  the object
 * @param bytes     the JPEG file's bytes, which are copied
 * @param size      how many there are
 * @return the outcome; `VELTRA_BAD_ARGUMENT` if `size` is 0
 */
VELTRA_API veltra_outcome veltra_feedback_add_picture(veltra_feedback* feedback, const void* bytes,
                                                      size_t size);

/**
 * Submits feedback: uploads the pictures, then posts the rest. Submitting it again creates another
 * feedback. Blocks for at most three attempts for the upload slots, three for the post, and one for
 * each picture. Needs memory for two copies of the pictures.
 *
 * From the process's first submission by this function on, request bodies are not written to
 * standard output, unless the host has chosen otherwise with `Veltra_SetBodyEcho`.
 *
 * @param feedback  the object
 * @param id        receives the gateway's id of the feedback, for `veltra_feedback_withdraw` and
 *                  then `veltra_free`; an empty text if it gave none
 * @param call      control and report; may be null
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_feedback_submit(const veltra_feedback* feedback, char** id,
                                                 veltra_call* call);

/**
 * Withdraws feedback. What happens to an id that the gateway doesn't know is up to the gateway.
 * Blocks for at most three attempts.
 * @param id    the id that the submission returned
 * @param call  control and report; may be null
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_feedback_withdraw(const char* id, veltra_call* call);

/* --- time expressions --------------------------------------------------------------------------- */

/**
 * Converts a relative time expression, such as "-1d" or "+0w", to a local date and time.
 * docs/time-expressions.md describes the language. Needs neither login nor network.
 * @param expression    the expression
 * @param now           the instant that it is relative to: seconds since 1970-01-01 00:00:00 UTC,
 *                      from 0 to 32535215999
 * @param start_of_day  the clock time if the expression names a day but no clock time: 00:00:00 if
 *                      not 0, 23:59:59 if 0
 * @param result        receives "YYYY-MM-DD HH:MM:SS" and a zero, 20 bytes; or an empty text if the
 *                      terms lead to a date that doesn't exist
 * @return the outcome; `VELTRA_BAD_ARGUMENT` if the expression can't be read or `now` is out of
 *         range, if memory for a long expression ran out, and in a forked child
 */
VELTRA_API veltra_outcome veltra_convert_time(const char* expression, int64_t now, int start_of_day,
                                              char result[20]);

/**
 * Sets the first day of the week for every later conversion in the process, initially 0.
 * @param day  0 (Sunday) to 6 (Saturday)
 * @return the outcome; `VELTRA_BAD_ARGUMENT` for any other number
 */
VELTRA_API veltra_outcome veltra_set_first_day_of_week(int32_t day);

#ifdef __cplusplus
}
#endif

#endif
