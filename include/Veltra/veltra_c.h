#ifndef VELTRA_VELTRA_C_H
#define VELTRA_VELTRA_C_H

/**
 * @file
 * The library for C, for hosts built by another compiler, and for other languages. Valid in C99 and
 * in C++.
 *
 * No C++ type and no exception crosses this interface, and no memory that the caller's run-time
 * library would have to free. Underneath is the same library: its one login, its one phrase list
 * and its switches are the process's, whichever interface sets them.
 *
 * Texts are UTF-8 and end with a zero. They are plain: what must be escaped in a request is escaped
 * here, and bytes that are no UTF-8 become U+FFFD there. They are copied before a function returns.
 * Texts that come back belong to the library unless a function says otherwise.
 *
 * A function that can fail returns a `veltra_outcome`. A pointer that is null is
 * `VELTRA_BAD_ARGUMENT`, unless a function gives null a meaning; functions that return something
 * else do nothing then, and return 0, null or an empty text. A lack of memory is `VELTRA_FAILED`.
 * On failure what the function would write is left as it was.
 *
 * Any thread may call any function at any time, at the same time as any other, except while the
 * library is being unloaded. Objects (`veltra_call`, `veltra_query`, `veltra_feedback`) belong to
 * whoever made them, live until they are handed to their own `_free`, and say what several threads
 * may do with them. In a child forked from a process that has used the library, and while the
 * process ends, everything that would reach the library's state does nothing, and fails with
 * `VELTRA_NOT_ENABLED`.
 *
 * Log records: `qlog_set_handler` in qlog/qlog.h.
 */

#include <Veltra/Export.h>

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** What became of a call: one of the numbers below. */
typedef int32_t veltra_outcome;

/** The values of a `veltra_outcome`. A later version of the library may add some. */
enum {
    VELTRA_SUCCEEDED = 0,        /**< done */
    VELTRA_NOT_ENABLED = 1,      /**< the layer is not enabled; a forked child; the process ends */
    VELTRA_NOT_USABLE = 2,       /**< no login yet, or the service was last found unusable */
    VELTRA_BAD_ARGUMENT = 3,     /**< null, unknown, or an object that is in use */
    VELTRA_SCREENED = 4,         /**< a value holds a phrase of the list; nothing was sent */
    VELTRA_CANCELLED = 5,        /**< by `veltra_call_cancel` or `veltra_cancel_all` */
    VELTRA_TIMED_OUT = 6,        /**< a limit on time was met: the call's, or one of the exchange */
    VELTRA_NOT_REACHED = 7,      /**< no connection: name, address, port, proxy, or TLS version */
    VELTRA_NOT_TRUSTED = 8,      /**< the server's certificate isn't trusted */
    VELTRA_CUT_OFF = 9,          /**< the connection ended before the answer did */
    VELTRA_BAD_STATUS = 10,      /**< an answer with another status than 200 */
    VELTRA_BAD_ANSWER = 11,      /**< an answer that is empty, too large, or not understood */
    VELTRA_REFUSED = 12,         /**< the gateway refused, with a code */
    VELTRA_TOKEN_REJECTED = 13,  /**< the gateway rejected the token, and the renewed one as well */
    VELTRA_FORBIDDEN_WORDS = 14, /**< the gateway found a forbidden word */
    VELTRA_NOT_ALLOWED = 15,     /**< the library refused to send: plain http, a malformed URL */
    VELTRA_FAILED = 16           /**< anything else, such as a lack of memory */
};

/**
 * Tells the version of the library that is loaded.
 * @return a text like "1.0.0", valid while the library is loaded
 */
VELTRA_API const char* veltra_version(void);

/**
 * Names an outcome, for a log or an exception.
 * @param outcome  any number
 * @return a text like "TimedOut", valid while the library is loaded; "Failed" for a number that has
 *         no name
 */
VELTRA_API const char* veltra_outcome_name(veltra_outcome outcome);

/**
 * Frees a text that a function of this interface handed over.
 * @param text  the text; null: nothing is done
 */
VELTRA_API void veltra_free(void* text);

/* --- the layer --------------------------------------------------------------------------------- */

/** Enables the layer: a login, queries and feedback need it. Starts no thread, doesn't block. */
VELTRA_API void veltra_enable(void);

/**
 * Disables the layer and stops its monitor thread. Token, domains and keys stay. Blocks until that
 * thread has ended, 15 seconds at most; `veltra_cancel_all` before it cuts that short. From a log
 * handler on the monitor thread it doesn't wait.
 */
VELTRA_API void veltra_disable(void);

/**
 * Tells whether the layer is enabled. Doesn't block.
 * @return 1 or 0
 */
VELTRA_API int veltra_is_enabled(void);

/**
 * Tells whether the gateway's service can be used, as a login, a renewal or the monitor thread last
 * found it. Doesn't block.
 * @return 1 or 0; 0, with a log record, while the layer is not enabled
 */
VELTRA_API int veltra_is_usable(void);

/**
 * Stops the monitor thread, and nothing else; a later login starts it again. Blocks like
 * `veltra_disable`. Call it before you unload the library.
 */
VELTRA_API void veltra_stop_monitor(void);

/* --- calls -------------------------------------------------------------------------------------- */

/**
 * Steers the calls that it is handed to, and says afterwards what became of the last one. "Call"
 * means a function with a parameter `call`: those that talk to the gateway while the host waits.
 * Where such a function is handed null, no limit but those of `veltra_http_options` holds, nothing
 * but `veltra_cancel_all` cancels it, and the outcome is all it says.
 *
 * It serves one call at a time: a second one is refused with `VELTRA_BAD_ARGUMENT` and leaves the
 * first one's report alone. Time limit, cancel and reset are for any thread at any time until
 * `veltra_call_free`; what the other functions tell is for the thread that made the call, or any
 * that knows that it has returned.
 */
typedef struct veltra_call veltra_call;

/**
 * Makes a control without a time limit, not cancelled, without a report.
 * @return the object, for `veltra_call_free`; null without memory
 */
VELTRA_API veltra_call* veltra_call_new(void);

/**
 * Frees a control, once the call that it was handed to has returned.
 * @param call  the object; null: nothing is done
 */
VELTRA_API void veltra_call_free(veltra_call* call);

/**
 * Bounds the time of each whole call that begins from now on: attempts, waits and repeats together.
 * @param call          the object
 * @param milliseconds  the longest time of a call; 0: no limit, as at first
 */
VELTRA_API void veltra_call_set_time_limit(veltra_call* call, uint32_t milliseconds);

/**
 * Cancels the call under way, which returns within 100 ms (a name look-up may take longer), and
 * refuses later ones until `veltra_call_reset`. Doesn't wait for it. A call whose answer has arrived already returns it.
 * @param call  the object
 */
VELTRA_API void veltra_call_cancel(veltra_call* call);

/**
 * Admits calls again. A call that was under way when it was cancelled stays cancelled.
 * @param call  the object
 */
VELTRA_API void veltra_call_reset(veltra_call* call);

/**
 * Tells how many exchanges the last call made: attempts, repeats, requests of a renewal.
 * @param call  the object
 * @return the number; 0 when nothing was sent
 */
VELTRA_API int32_t veltra_call_attempts(const veltra_call* call);

/**
 * Tells the HTTP status of the last answer in the last call.
 * @param call  the object
 * @return the status; 0 when no answer came
 */
VELTRA_API int32_t veltra_call_http_status(const veltra_call* call);

/**
 * Tells how long the last call took, by a steady clock.
 * @param call  the object
 * @return the time in milliseconds
 */
VELTRA_API uint32_t veltra_call_milliseconds(const veltra_call* call);

/**
 * Tells whether the last call, made again as it was, may succeed later without anybody changing
 * anything. A feedback that is submitted again may be stored twice.
 * @param call  the object
 * @return 1 or 0
 */
VELTRA_API int veltra_call_retryable(const veltra_call* call);

/**
 * Tells the code of the gateway's last answer in the last call.
 * @param call  the object
 * @return the code, "0" for a success; empty when it gave none. Never null. Like the three texts
 *         below it is valid until the object's next call or its end
 */
VELTRA_API const char* veltra_call_gateway_code(const veltra_call* call);

/**
 * Tells the message of the gateway's last answer in the last call: its explanation of a refusal.
 * @param call  the object
 * @return the text, up to 4096 bytes of it, and none behind a zero in it; empty when it gave none
 */
VELTRA_API const char* veltra_call_gateway_message(const veltra_call* call);

/**
 * Tells in one line for a person why the last call failed. Holds no key, no token, and of a URL
 * neither user part nor query.
 * @param call  the object
 * @return the line, in English; empty after a success
 */
VELTRA_API const char* veltra_call_detail(const veltra_call* call);

/**
 * Tells the trace id of the last call, as feedback names it.
 * @param call  the object
 * @return the id, also one that the library made; empty unless the call was a query or a feedback
 */
VELTRA_API const char* veltra_call_trace_id(const veltra_call* call);

/**
 * Cancels every call that is under way, of all interfaces and threads, and the monitor thread's
 * exchange. Later calls are not touched. Doesn't wait for the calls to return. A host that closes
 * calls this, joins its threads and calls `veltra_disable`: less than a second together.
 */
VELTRA_API void veltra_cancel_all(void);

/* --- gateway and login -------------------------------------------------------------------------- */

/** Limits, trust and proxy of every exchange. Set it to zeros, then `size`, then what you need. */
typedef struct {
    size_t size;                 /**< sizeof(veltra_http_options), as the caller knows it */
    uint32_t connect_timeout_ms; /**< longest time to reach a server; 0: 10 seconds */
    uint32_t total_timeout_ms;   /**< longest time of a whole exchange; 0: 2 minutes */
    uint64_t max_response_bytes; /**< largest answer that is accepted; 0: 64 MiB */
    const char* ca_file;         /**< trusted certificates, PEM; null or empty: the system's */
    const char* proxy;           /**< its URL, or "direct"; null or empty: the system's setting */
    int allow_plain_http;        /**< whether http may go to other addresses than loopback */
} veltra_http_options;

/**
 * Makes options valid for every exchange that begins after the call, in place of all those before.
 * Doesn't block. What can't be of use, such as a file that isn't there, fails the exchanges.
 * @param options  the options; null: the defaults. Fields beyond `size` have their default
 * @return the outcome; `VELTRA_BAD_ARGUMENT` when `size` is less than the field itself takes
 */
VELTRA_API veltra_outcome veltra_set_http_options(const veltra_http_options* options);

/**
 * Sets the domain that tokens are requested from, in place of the built-in ones, once it has
 * answered a probe. Blocks for the probe, at most three attempts.
 * @param domain  scheme and host, and a port if need be, without a path, such as
 *                "https://gateway.example"
 * @param call    control and report; may be null
 * @return the outcome; the domain is set on success alone
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
 * Logs in: requests a token with the pairs, those of earlier logins first, and keeps it fresh from
 * then on by a monitor thread. Blocks for a request for each pair and domain.
 * @param pairs            the pairs; may be null when there is none, and then those of earlier
 *                         logins serve
 * @param count            how many there are
 * @param product_version  the host's own version, which feedback carries; empty: that of the login
 *                         before
 * @param call             control and report; may be null
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_login(const veltra_key_pair* pairs, size_t count,
                                       const char* product_version, veltra_call* call);

/**
 * Logs out: stops the monitor thread, forgets and wipes keys and token. The enable flag, the domain
 * of `veltra_set_domain`, the phrase list and the product version stay. Blocks like
 * `veltra_disable`, and for a login under way; `veltra_cancel_all` before it cuts that short.
 */
VELTRA_API void veltra_logout(void);

/* --- screening ---------------------------------------------------------------------------------- */

/**
 * Replaces the list of phrases that query values must not hold. Doesn't block on a query.
 * @param phrases  the phrases, plain: words parted by spaces, in the very case and form that is to
 *                 be found, none with a sentence delimiter (see docs/screening.md); may be null when
 *                 there is none. They are hashed here, and not kept
 * @param count    how many there are; 0: every text passes
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_set_phrases(const char* const* phrases, size_t count);

/**
 * Replaces the list by keys that were made elsewhere, so that the phrases needn't be known here.
 * @param keys   the keys, as `veltra phrase-key` and `veltra_phrase_key` give them; may be null when
 *               there is none
 * @param count  how many there are; 0: every text passes
 * @param limit  the largest number of words of a phrase that is looked up; 0: every text passes
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_set_phrase_keys(const uint64_t* keys, size_t count,
                                                 uint32_t limit);

/**
 * Computes the key of a phrase. Values are screened as they are sent: a phrase with a backslash, and
 * any before a closing quote, has further keys (see docs/screening.md), which `veltra_set_phrases`
 * knows.
 * @param phrase  the phrase, its words parted by single spaces
 * @return the key; 0 for null and for the empty text
 */
VELTRA_API uint64_t veltra_phrase_key(const char* phrase);

/* --- queries ------------------------------------------------------------------------------------ */

/**
 * The input of a query. One thread at a time may change it; while none does, any number may run it.
 * It keeps its values twice from the first run on.
 */
typedef struct veltra_query veltra_query;

/**
 * Makes a query without values, filter and trace id.
 * @param prompt_key  the key of the gateway's prompt template
 * @return the object, for `veltra_query_free`; null for a null key, or without memory
 */
VELTRA_API veltra_query* veltra_query_new(const char* prompt_key);

/**
 * Frees a query, once no run of it is under way.
 * @param query  the object; null: nothing is done
 */
VELTRA_API void veltra_query_free(veltra_query* query);

/**
 * Sets the value of a placeholder, in place of one that it has already.
 * @param query  the object
 * @param name   the placeholder's name
 * @param value  the text that takes its place, which is screened before it is sent
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_query_set_value(veltra_query* query, const char* name,
                                                 const char* value);

/**
 * Says what the gateway checks for forbidden words.
 * @param query   the object
 * @param filter  1: nothing, as at first; 2: the input; 3 and 4: the input and the model's output
 * @return the outcome; `VELTRA_BAD_ARGUMENT` for any other number
 */
VELTRA_API veltra_outcome veltra_query_set_filter(veltra_query* query, int32_t filter);

/**
 * Adds a text that the gateway checks in place of the values. With filter 1 none is sent.
 * @param query  the object
 * @param text   the text
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_query_add_sensitive(veltra_query* query, const char* text);

/**
 * Sets the id under which the gateway files the query, the one that feedback names.
 * @param query     the object
 * @param trace_id  the id, best another one for each run. Empty, as at first: each run makes one,
 *                  and `veltra_call_trace_id` tells it
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_query_set_trace_id(veltra_query* query, const char* trace_id);

/**
 * Runs a query and blocks until it is done: at most three attempts, and after a rejected token a
 * renewal and three more.
 * @param query   the object
 * @param answer  receives the answer of the model, UTF-8 and a zero behind it, for `veltra_free`
 * @param length  receives the number of bytes before that zero, in which there may be zeros too; may
 *                be null
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
 * Makes a feedback with both numbers 0, no comments, no pictures, and the country "unKnown".
 * @param trace_id  the trace id of the query
 * @return the object, for `veltra_feedback_free`; null for a null id, or without memory
 */
VELTRA_API veltra_feedback* veltra_feedback_new(const char* trace_id);

/**
 * Frees a feedback, once no submission of it is under way.
 * @param feedback  the object; null: nothing is done
 */
VELTRA_API void veltra_feedback_free(veltra_feedback* feedback);

/**
 * Sets how content the user is.
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
 * Adds a picture. The gateway takes four at most; which of a larger number are sent is not defined.
 * The same bytes twice are one picture.
 * @param feedback  the object
 * @param bytes     the JPEG file's bytes, which are copied
 * @param size      how many there are
 * @return the outcome; `VELTRA_BAD_ARGUMENT` for none
 */
VELTRA_API veltra_outcome veltra_feedback_add_picture(veltra_feedback* feedback, const void* bytes,
                                                      size_t size);

/**
 * Submits a feedback: uploads the pictures, then posts the rest. Submitted again it is a further
 * feedback. Blocks for at most three attempts each for the upload slots and for the post, and one
 * for each picture. Needs memory for two copies of the pictures.
 *
 * Unless the host has said so by `Veltra_SetBodyEcho`, request bodies are not written to standard
 * output from the process's first submission by this function on.
 *
 * @param feedback  the object
 * @param id        receives the gateway's id of the feedback, for `veltra_feedback_withdraw` and
 *                  then `veltra_free`; the empty text when it gave none
 * @param call      control and report; may be null
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_feedback_submit(const veltra_feedback* feedback, char** id,
                                                 veltra_call* call);

/**
 * Withdraws a feedback. What the gateway says of an id that it doesn't know is its own decision.
 * Blocks for at most three attempts.
 * @param id    the id that the submission gave
 * @param call  control and report; may be null
 * @return the outcome
 */
VELTRA_API veltra_outcome veltra_feedback_withdraw(const char* id, veltra_call* call);

/* --- time expressions --------------------------------------------------------------------------- */

/**
 * Turns a relative time expression, such as "-1d" or "+0w", into the local date and time that it
 * means. docs/time-expressions.md describes the language. Needs neither login nor network.
 * @param expression    the expression
 * @param now           the instant that it is relative to: seconds since 1970-01-01 00:00:00 UTC,
 *                      from 0 to 32535215999
 * @param start_of_day  the clock time of a day without one: not 0 gives 00:00:00, 0 gives 23:59:59
 * @param result        receives "YYYY-MM-DD HH:MM:SS" and a zero, 20 bytes; or the empty text when
 *                      the terms left a date that doesn't exist
 * @return the outcome; `VELTRA_BAD_ARGUMENT` when the expression can't be read or `now` is out of
 *         its range, without memory for a long expression, and in a forked child
 */
VELTRA_API veltra_outcome veltra_convert_time(const char* expression, int64_t now, int start_of_day,
                                              char result[20]);

/**
 * Sets the day on which a week begins for every later conversion of the process, 0 at first.
 * @param day  0 (Sunday) to 6 (Saturday)
 * @return the outcome; `VELTRA_BAD_ARGUMENT` for any other number
 */
VELTRA_API veltra_outcome veltra_set_first_day_of_week(int32_t day);

#ifdef __cplusplus
}
#endif

#endif
