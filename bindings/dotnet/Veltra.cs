// The library for hosts in C#, built on its C interface. It needs .NET Standard 2.0 and the native library;
// docs/other-languages.md says where to put that.

using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Globalization;
using System.Linq;
using System.Runtime.InteropServices;
using System.Text;
using System.Threading;
using System.Threading.Tasks;
using Microsoft.Win32.SafeHandles;

namespace Veltra
{
    /// <summary>How a call ended. A later version of the library may add values.</summary>
    public enum Outcome
    {
        /// <summary>Done.</summary>
        Succeeded = 0,
        /// <summary>The layer is not enabled, or the process is a forked child or is ending.</summary>
        NotEnabled = 1,
        /// <summary>No login yet, or the service was last found unusable.</summary>
        NotUsable = 2,
        /// <summary>An argument that the library doesn't accept.</summary>
        BadArgument = 3,
        /// <summary>A value contains a phrase of the list; nothing was sent.</summary>
        Screened = 4,
        /// <summary>Cancelled by <see cref="Library.CancelAll"/> or the end of the session. A call that its own token
        /// cancels ends with an <see cref="OperationCanceledException"/> instead.</summary>
        Cancelled = 5,
        /// <summary>A time limit expired: the call's, or one of the exchange.</summary>
        TimedOut = 6,
        /// <summary>No connection: name, address, port, proxy, or TLS version.</summary>
        NotReached = 7,
        /// <summary>The server's certificate isn't trusted.</summary>
        NotTrusted = 8,
        /// <summary>The connection ended before the answer did.</summary>
        CutOff = 9,
        /// <summary>An answer with a status other than 200.</summary>
        BadStatus = 10,
        /// <summary>An answer that is empty, too large or malformed.</summary>
        BadAnswer = 11,
        /// <summary>The gateway refused, with a code.</summary>
        Refused = 12,
        /// <summary>The gateway rejected the token, and the renewed one as well.</summary>
        TokenRejected = 13,
        /// <summary>The gateway found a forbidden word.</summary>
        ForbiddenWords = 14,
        /// <summary>The library refused to send: plain http, a malformed URL.</summary>
        NotAllowed = 15,
        /// <summary>Anything else, such as running out of memory.</summary>
        Failed = 16
    }

    /// <summary>What the gateway checks for forbidden words.</summary>
    public enum Filter
    {
        /// <summary>Nothing.</summary>
        None = 1,
        /// <summary>The input.</summary>
        CheckInput = 2,
        /// <summary>The input and the model's output.</summary>
        CheckInputAndOutput = 3,
        /// <summary>The same as <see cref="CheckInputAndOutput"/>.</summary>
        CheckOutput = 4
    }

    /// <summary>The severity of a log record.</summary>
    public enum LogLevel
    {
        /// <summary>Detail.</summary>
        Detail = 2,
        /// <summary>Progress.</summary>
        Progress = 3,
        /// <summary>A problem that was worked around.</summary>
        Warning = 4,
        /// <summary>A failure.</summary>
        Error = 5,
        /// <summary>Above every record: as the lowest level it turns log records off.</summary>
        None = 6
    }

    /// <summary>What a call did, whether it succeeded or not.</summary>
    public sealed class CallReport
    {
        internal CallReport(Outcome outcome)
        {
            Outcome = outcome;
            GatewayCode = GatewayMessage = Detail = TraceId = "";
        }

        internal CallReport(Outcome outcome, CallHandle call) : this(outcome)
        {
            Attempts = Native.veltra_call_attempts(call);
            HttpStatus = Native.veltra_call_http_status(call);
            Elapsed = TimeSpan.FromMilliseconds(Native.veltra_call_milliseconds(call));
            Retryable = Native.veltra_call_retryable(call) != 0;
            GatewayCode = Utf8.Read(Native.veltra_call_gateway_code(call));
            GatewayMessage = Utf8.Read(Native.veltra_call_gateway_message(call));
            Detail = Utf8.Read(Native.veltra_call_detail(call));
            TraceId = Utf8.Read(Native.veltra_call_trace_id(call));
        }

        /// <summary>How the call ended.</summary>
        public Outcome Outcome { get; }
        /// <summary>How many exchanges the call made; 0 if nothing was sent.</summary>
        public int Attempts { get; }
        /// <summary>The HTTP status of the last answer; 0 if none came.</summary>
        public int HttpStatus { get; }
        /// <summary>How long the call took.</summary>
        public TimeSpan Elapsed { get; }
        /// <summary>Whether the same call may succeed when it is simply repeated later. Feedback that is
        /// submitted again may be stored twice.</summary>
        public bool Retryable { get; }
        /// <summary>The code of the gateway's last answer, "0" for a success; empty if it gave none.</summary>
        public string GatewayCode { get; }
        /// <summary>The gateway's explanation of a refusal; empty if it gave none.</summary>
        public string GatewayMessage { get; }
        /// <summary>One line for a person that says why the call failed. It contains no secret, and is empty
        /// after a success.</summary>
        public string Detail { get; }
        /// <summary>The trace id of a query or feedback, including one that the library generated.</summary>
        public string TraceId { get; }
    }

    /// <summary>Thrown for a call that failed; <see cref="Report"/> has the details.</summary>
    public sealed class VeltraException : Exception
    {
        internal VeltraException(CallReport report)
            : base(Name(report.Outcome) + (report.Detail.Length == 0 ? "" : ": " + report.Detail))
        {
            Report = report;
        }

        /// <summary>What the call did.</summary>
        public CallReport Report { get; }
        /// <summary>How the call ended.</summary>
        public Outcome Outcome { get { return Report.Outcome; } }

        static string Name(Outcome outcome) { return Utf8.Read(Native.veltra_outcome_name((int)outcome)); }

        internal static void ThrowUnless(int outcome)
        {
            if (outcome != 0) throw new VeltraException(new CallReport((Outcome)outcome));
        }
    }

    /// <summary>The answer to a query.</summary>
    public sealed class Answer
    {
        internal Answer(string text, CallReport report)
        {
            Text = text;
            Report = report;
        }

        /// <summary>The model's text, which may be empty.</summary>
        public string Text { get; }
        /// <summary>What the call did.</summary>
        public CallReport Report { get; }
        /// <summary>The id under which the gateway filed the query, and by which feedback refers to it.</summary>
        public string TraceId { get { return Report.TraceId; } }
    }

    /// <summary>An access-key pair.</summary>
    public struct KeyPair
    {
        /// <summary>Creates a pair.</summary>
        /// <param name="appKey">the key's identifier</param>
        /// <param name="secretKey">the key's secret; copies that the library makes are wiped</param>
        public KeyPair(string appKey, string secretKey)
        {
            AppKey = appKey;
            SecretKey = secretKey;
        }

        /// <summary>The key's identifier.</summary>
        public string AppKey { get; }
        /// <summary>The key's secret.</summary>
        public string SecretKey { get; }
    }

    /// <summary>How a session reaches the gateway. Whatever isn't set has the library's default.</summary>
    public sealed class SessionOptions
    {
        /// <summary>A file of trusted certificates, PEM; null: the system's.</summary>
        public string CaFile { get; set; }
        /// <summary>The proxy's URL, or "direct"; null: the system's settings.</summary>
        public string Proxy { get; set; }
        /// <summary>Whether http may go to addresses other than loopback.</summary>
        public bool AllowPlainHttp { get; set; }
        /// <summary>The longest time to reach a server; null: 10 seconds.</summary>
        public TimeSpan? ConnectTimeout { get; set; }
        /// <summary>The longest time of one exchange; null: 2 minutes.</summary>
        public TimeSpan? TotalTimeout { get; set; }
        /// <summary>The largest answer that is accepted, in bytes; 0: 64 MiB.</summary>
        public ulong MaxResponseBytes { get; set; }
        /// <summary>The host's own version, which feedback carries; null: none.</summary>
        public string ProductVersion { get; set; }
        /// <summary>The longest time of each step of opening, which are the probe of the domain and the login;
        /// null: only the limits of the exchanges apply.</summary>
        public TimeSpan? OpenTimeout { get; set; }
    }

    /// <summary>What a query needs beyond template and values.</summary>
    public sealed class QueryOptions
    {
        /// <summary>The id under which the gateway files the query; null: the library generates one.</summary>
        public string TraceId { get; set; }
        /// <summary>What the gateway checks for forbidden words; initially nothing.</summary>
        public Filter Filter { get; set; } = Filter.None;
        /// <summary>Texts that the gateway checks in place of the values; null: none. With
        /// <see cref="Veltra.Filter.None"/> none is sent.</summary>
        public IEnumerable<string> SensitiveTexts { get; set; }
        /// <summary>The longest time of the whole query, all attempts included; null: only the limits of the
        /// exchanges apply.</summary>
        public TimeSpan? Timeout { get; set; }
    }

    /// <summary>A user's feedback on the answer to a query.</summary>
    public sealed class Feedback
    {
        /// <summary>Creates feedback.</summary>
        /// <param name="traceId">the trace id of the query: <see cref="Answer.TraceId"/></param>
        public Feedback(string traceId) { TraceId = traceId; }

        /// <summary>The trace id of the query.</summary>
        public string TraceId { get; }
        /// <summary>How satisfied the user is, as numbered by the gateway's operators.</summary>
        public int Satisfaction { get; set; }
        /// <summary>What is wrong with the answer, as numbered by the gateway's operators.</summary>
        public int ErrorType { get; set; }
        /// <summary>The description in the user's words; null: none.</summary>
        public string Comments { get; set; }
        /// <summary>The user's country; null: "unKnown".</summary>
        public string Country { get; set; }
        /// <summary>The bytes of JPEG files. The gateway takes four at most; if there are more, which four are
        /// sent is unspecified. The same bytes added twice are one picture.</summary>
        public IList<byte[]> Pictures { get; } = new List<byte[]>();
    }

    /// <summary>Receives a log record, on the thread that logs, possibly on several threads at once.</summary>
    /// <remarks>It must not wait for anything that another thread may hold inside the library. What it
    /// throws is discarded.</remarks>
    /// <param name="level">the record's severity</param>
    /// <param name="tag">"Veltra", or "Oak" for the platform services below it</param>
    /// <param name="message">the text</param>
    public delegate void LogHandler(LogLevel level, string tag, string message);

    /// <summary>What belongs to the process and needs no login. Any thread may call any member.</summary>
    public static class Library
    {
        /// <summary>The version of the loaded native library.</summary>
        public static string Version { get { return Utf8.Read(Native.veltra_version()); } }

        /// <summary>Replaces the list of phrases that query values must not contain; an empty list lets every
        /// text pass.</summary>
        /// <param name="phrases">words separated by spaces, in exactly the case to be found</param>
        /// <exception cref="VeltraException">the library could not store them</exception>
        public static void SetPhrases(IEnumerable<string> phrases)
        {
            using (var pins = new Pins())
            {
                var texts = NotNull(phrases, nameof(phrases)).Select(text => pins.Text(text, nameof(phrases))).ToArray();
                VeltraException.ThrowUnless(Native.veltra_set_phrases(texts, (UIntPtr)texts.Length));
            }
        }

        /// <summary>Converts a relative time expression, such as "-1d", to a local date and time.
        /// docs/time-expressions.md describes the language.</summary>
        /// <param name="expression">the expression</param>
        /// <param name="now">the instant that it is relative to, from 1970 to the year 3000</param>
        /// <param name="startOfDay">the clock time of a day without one: 00:00:00 if true, 23:59:59 if false</param>
        /// <returns>the date and time; null if the terms lead to a date that doesn't exist, or is outside the
        /// years 1 to 9999</returns>
        /// <exception cref="VeltraException"><see cref="Outcome.BadArgument"/>: the expression can't be read</exception>
        public static DateTime? ConvertTime(string expression, DateTimeOffset now, bool startOfDay)
        {
            var result = new byte[20];
            VeltraException.ThrowUnless(Native.veltra_convert_time(Utf8.Bytes(expression, nameof(expression)),
                now.ToUnixTimeSeconds(), startOfDay ? 1 : 0, result));
            var text = Encoding.ASCII.GetString(result).TrimEnd('\0');
            DateTime time;
            return DateTime.TryParseExact(text, "yyyy-MM-dd HH:mm:ss", CultureInfo.InvariantCulture,
                DateTimeStyles.AssumeLocal, out time) ? time : (DateTime?)null;
        }

        /// <summary>Sets the first day of the week for every later conversion; initially Sunday.</summary>
        /// <param name="day">the day</param>
        /// <exception cref="VeltraException">not a day of the week</exception>
        public static void SetFirstDayOfWeek(DayOfWeek day)
        {
            VeltraException.ThrowUnless(Native.veltra_set_first_day_of_week((int)day));
        }

        /// <summary>Cancels every call under way on any thread. Later ones are not affected. Doesn't wait for
        /// the calls to return.</summary>
        public static void CancelAll() { Native.veltra_cancel_all(); }

        /// <summary>Passes every later log record at or above a level to a handler, which stays alive until
        /// another one replaces it. When this returns, the previous handler is no longer running, unless
        /// this is called from inside a handler. The handler is removed when the process ends.</summary>
        /// <param name="handler">the handler; null, the initial one: standard error</param>
        /// <param name="minLevel">the lowest level that is passed on</param>
        public static void SetLogHandler(LogHandler handler, LogLevel minLevel = LogLevel.Warning)
        {
            if (handler != null) Records.Current = Tuple.Create(handler, minLevel);
            Native.qlog_set_handler(handler != null ? Records.Entry : null, IntPtr.Zero, (int)minLevel);
        }

        // No lock: a handler that sets another one must not wait for a thread that is waiting for it to end.
        static class Records
        {
            // The native library keeps the pointer made from this delegate, so it must live forever.
            internal static readonly NativeLogHandler Entry = Receive;
            internal static volatile Tuple<LogHandler, LogLevel> Current;

            static Records()
            {
                // No thread of the native library may enter a runtime that is shutting down.
                EventHandler end = (sender, arguments) =>
                    Native.qlog_set_handler(null, IntPtr.Zero, (int)LogLevel.None);
                AppDomain.CurrentDomain.ProcessExit += end;
                AppDomain.CurrentDomain.DomainUnload += end;
            }

            static void Receive(int level, IntPtr tag, IntPtr message, IntPtr context)
            {
                try
                {
                    var current = Current;
                    if (level >= (int)current.Item2)
                        current.Item1((LogLevel)level, Utf8.Read(tag), Utf8.Read(message));
                }
                catch (Exception)
                {
                    // It must not unwind the native frames that called this.
                }
            }
        }

        internal static T NotNull<T>(T value, string name) where T : class
        {
            if (value == null) throw new ArgumentNullException(name);
            return value;
        }
    }

    /// <summary>The process's login at a gateway, for queries and feedback. Any thread may call any member
    /// at any time. Only one session can be open, since the native library has one login.</summary>
    /// <remarks>An argument that can't be sent, because it is null or contains a NUL character, throws an
    /// <see cref="ArgumentException"/> before anything is sent. A call that fails later throws a
    /// <see cref="VeltraException"/>, and one that its token cancels an
    /// <see cref="OperationCanceledException"/>.</remarks>
    public sealed class Session : IDisposable
    {
        static int open;
        readonly HashSet<CallHandle> calls = new HashSet<CallHandle>();
        bool disposed;

        Session()
        {
            if (Interlocked.Exchange(ref open, 1) != 0)
                throw new InvalidOperationException("another session is open in this process");
        }

        /// <summary>Enables the library, sets the options, probes the domain and logs in. Blocks for one
        /// request per pair. A failure leaves no session behind.</summary>
        /// <param name="domain">scheme, host and, if needed, a port; null: the built-in ones</param>
        /// <param name="keys">the access-key pairs</param>
        /// <param name="options">how the gateway is reached; null: the defaults</param>
        /// <param name="cancel">cancels the login</param>
        /// <returns>the session, for the caller to dispose of</returns>
        /// <exception cref="VeltraException">the login failed</exception>
        /// <exception cref="InvalidOperationException">another session is open</exception>
        public static Session Open(string domain, IEnumerable<KeyPair> keys, SessionOptions options = null,
            CancellationToken cancel = default(CancellationToken))
        {
            return Begin(domain, keys, options)(cancel);
        }

        /// <summary>Does the same as <see cref="Open"/>, on a thread of its own.</summary>
        /// <param name="domain">scheme, host and, if needed, a port; null: the built-in ones</param>
        /// <param name="keys">the access-key pairs</param>
        /// <param name="options">how the gateway is reached; null: the defaults</param>
        /// <param name="cancel">cancels the login</param>
        /// <returns>the session, for the caller to dispose of</returns>
        public static Task<Session> OpenAsync(string domain, IEnumerable<KeyPair> keys, SessionOptions options = null,
            CancellationToken cancel = default(CancellationToken))
        {
            return OnThread(Begin(domain, keys, options), cancel);
        }

        /// <summary>Whether the gateway's service was last found usable. Doesn't block.</summary>
        public static bool IsUsable { get { return Native.veltra_is_usable() != 0; } }

        /// <summary>Runs a query and blocks until it is done.</summary>
        /// <param name="promptKey">the key of the gateway's prompt template</param>
        /// <param name="values">the values of its placeholders, unescaped</param>
        /// <param name="options">further options; null: the defaults</param>
        /// <param name="cancel">cancels the query wherever it waits</param>
        /// <returns>the answer</returns>
        /// <exception cref="VeltraException">the query failed</exception>
        public Answer Query(string promptKey, IDictionary<string, string> values, QueryOptions options = null,
            CancellationToken cancel = default(CancellationToken))
        {
            return Prepare(promptKey, values, options)(cancel);
        }

        /// <summary>Runs a query on a thread of its own. The arguments are read before this returns.</summary>
        /// <param name="promptKey">the key of the gateway's prompt template</param>
        /// <param name="values">the values of its placeholders, unescaped</param>
        /// <param name="options">further options; null: the defaults</param>
        /// <param name="cancel">cancels the query wherever it waits; the task ends as cancelled</param>
        /// <returns>the answer</returns>
        public Task<Answer> QueryAsync(string promptKey, IDictionary<string, string> values, QueryOptions options = null,
            CancellationToken cancel = default(CancellationToken))
        {
            return OnThread(Prepare(promptKey, values, options), cancel);
        }

        /// <summary>Submits feedback and blocks until it is stored. Submitting it again creates another.</summary>
        /// <param name="feedback">the feedback</param>
        /// <param name="timeout">the longest time of the whole call; null: only those of the exchanges apply</param>
        /// <param name="cancel">cancels the call wherever it waits</param>
        /// <returns>the gateway's id of the feedback, for <see cref="Withdraw"/>; empty if it gave none</returns>
        /// <exception cref="VeltraException">the submission failed</exception>
        public string Submit(Feedback feedback, TimeSpan? timeout = null,
            CancellationToken cancel = default(CancellationToken))
        {
            return Prepare(feedback, timeout)(cancel);
        }

        /// <summary>Submits feedback on a thread of its own. It is read before this returns.</summary>
        /// <param name="feedback">the feedback</param>
        /// <param name="timeout">the longest time of the whole call; null: only those of the exchanges apply</param>
        /// <param name="cancel">cancels the call wherever it waits; the task ends as cancelled</param>
        /// <returns>the gateway's id of the feedback, for <see cref="Withdraw"/>; empty if it gave none</returns>
        public Task<string> SubmitAsync(Feedback feedback, TimeSpan? timeout = null,
            CancellationToken cancel = default(CancellationToken))
        {
            return OnThread(Prepare(feedback, timeout), cancel);
        }

        /// <summary>Withdraws feedback, and blocks until that is done.</summary>
        /// <param name="id">the id that the submission returned</param>
        /// <param name="timeout">the longest time of the whole call; null: only those of the exchanges apply</param>
        /// <param name="cancel">cancels the call wherever it waits</param>
        /// <exception cref="VeltraException">the withdrawal failed</exception>
        public void Withdraw(string id, TimeSpan? timeout = null, CancellationToken cancel = default(CancellationToken))
        {
            var bytes = Utf8.Bytes(id, nameof(id));
            Run(Milliseconds(timeout, nameof(timeout)), cancel, call => Native.veltra_feedback_withdraw(bytes, call));
        }

        /// <summary>Closes the session: cancels every call under way in the process, logs out, which wipes keys
        /// and token, and disables the library. Later calls of this session throw an
        /// <see cref="ObjectDisposedException"/>; those under way end within a tenth of a second.</summary>
        public void Dispose()
        {
            lock (calls)
            {
                if (disposed) return;
                disposed = true;
                // veltra_cancel_all doesn't reach a call that has not entered the library yet.
                foreach (var call in calls) Native.veltra_call_cancel(call);
            }
            Native.veltra_cancel_all();
            Native.veltra_logout();
            Native.veltra_disable();
            Interlocked.Exchange(ref open, 0);
        }

        // Reads the arguments; the function that it returns does the work.
        static Func<CancellationToken, Session> Begin(string domain, IEnumerable<KeyPair> keys, SessionOptions options)
        {
            options = options ?? new SessionOptions();
            var pairs = Library.NotNull(keys, nameof(keys)).ToArray();
            foreach (var pair in pairs)
            {
                Utf8.Check(pair.AppKey, nameof(keys));
                Utf8.Check(pair.SecretKey, nameof(keys));
            }
            var domainBytes = domain != null ? Utf8.Bytes(domain, nameof(domain)) : null;
            var version = Utf8.Bytes(options.ProductVersion ?? "", nameof(options));
            var limit = Milliseconds(options.OpenTimeout, nameof(options));
            var http = new NativeHttpOptions
            {
                size = (UIntPtr)Marshal.SizeOf(typeof(NativeHttpOptions)),
                connect_timeout_ms = Milliseconds(options.ConnectTimeout, nameof(options)),
                total_timeout_ms = Milliseconds(options.TotalTimeout, nameof(options)),
                max_response_bytes = options.MaxResponseBytes,
                allow_plain_http = options.AllowPlainHttp ? 1 : 0
            };
            var caFile = options.CaFile ?? "";
            var proxy = options.Proxy ?? "";
            Utf8.Check(caFile, nameof(options));
            Utf8.Check(proxy, nameof(options));
            return cancel =>
            {
                var session = new Session();
                try
                {
                    using (var pins = new Pins())
                    {
                        http.ca_file = pins.Text(caFile, nameof(options));
                        http.proxy = pins.Text(proxy, nameof(options));
                        VeltraException.ThrowUnless(Native.veltra_set_http_options(ref http));
                        var native = pairs.Select(pair => new NativeKeyPair
                        {
                            app_key = pins.Text(pair.AppKey, nameof(keys)),
                            secret_key = pins.Text(pair.SecretKey, nameof(keys))
                        }).ToArray();
                        Native.veltra_enable();
                        if (domainBytes != null)
                            session.Run(limit, cancel, call => Native.veltra_set_domain(domainBytes, call));
                        session.Run(limit, cancel,
                            call => Native.veltra_login(native, (UIntPtr)native.Length, version, call));
                    }
                    return session;
                }
                catch
                {
                    session.Dispose();
                    throw;
                }
            };
        }

        Func<CancellationToken, Answer> Prepare(string promptKey, IDictionary<string, string> values, QueryOptions options)
        {
            options = options ?? new QueryOptions();
            var limit = Milliseconds(options.Timeout, nameof(options));
            var query = Made(Native.veltra_query_new(Utf8.Bytes(promptKey, nameof(promptKey))));
            foreach (var value in Library.NotNull(values, nameof(values)))
                VeltraException.ThrowUnless(Native.veltra_query_set_value(query, Utf8.Bytes(value.Key, nameof(values)),
                    Utf8.Bytes(value.Value, nameof(values))));
            VeltraException.ThrowUnless(Native.veltra_query_set_filter(query, (int)options.Filter));
            foreach (var text in options.SensitiveTexts ?? new string[0])
                VeltraException.ThrowUnless(Native.veltra_query_add_sensitive(query, Utf8.Bytes(text, nameof(options))));
            VeltraException.ThrowUnless(
                Native.veltra_query_set_trace_id(query, Utf8.Bytes(options.TraceId ?? "", nameof(options))));
            return cancel =>
            {
                using (query)
                {
                    var text = IntPtr.Zero;
                    var length = UIntPtr.Zero;
                    var report = Run(limit, cancel, call => Native.veltra_query_run(query, out text, out length, call));
                    return new Answer(Utf8.Take(text, (long)length), report);
                }
            };
        }

        Func<CancellationToken, string> Prepare(Feedback feedback, TimeSpan? timeout)
        {
            var limit = Milliseconds(timeout, nameof(timeout));
            var name = nameof(feedback);
            var native = Made(Native.veltra_feedback_new(Utf8.Bytes(Library.NotNull(feedback, name).TraceId, name)));
            VeltraException.ThrowUnless(Native.veltra_feedback_set_satisfaction(native, feedback.Satisfaction));
            VeltraException.ThrowUnless(Native.veltra_feedback_set_error_type(native, feedback.ErrorType));
            if (feedback.Comments != null)
                VeltraException.ThrowUnless(
                    Native.veltra_feedback_set_comments(native, Utf8.Bytes(feedback.Comments, name)));
            if (feedback.Country != null)
                VeltraException.ThrowUnless(Native.veltra_feedback_set_country(native, Utf8.Bytes(feedback.Country, name)));
            foreach (var picture in feedback.Pictures)
                VeltraException.ThrowUnless(Native.veltra_feedback_add_picture(native, Library.NotNull(picture, name),
                    (UIntPtr)picture.Length));
            return cancel =>
            {
                using (native)
                {
                    var id = IntPtr.Zero;
                    Run(limit, cancel, call => Native.veltra_feedback_submit(native, out id, call));
                    return Utf8.Take(id);
                }
            };
        }

        // Makes one call under a control of its own.
        CallReport Run(uint limit, CancellationToken cancel, Func<CallHandle, int> function)
        {
            cancel.ThrowIfCancellationRequested();
            using (var call = Made(Native.veltra_call_new()))
            {
                Native.veltra_call_set_time_limit(call, limit);
                Enter(call);
                try
                {
                    int outcome;
                    // Disposing of it waits for a cancellation under way, which needs the handle.
                    using (cancel.Register(() => Native.veltra_call_cancel(call)))
                        outcome = function(call);
                    if (outcome == (int)Outcome.Succeeded) return new CallReport(Outcome.Succeeded, call);
                    if (outcome == (int)Outcome.Cancelled) cancel.ThrowIfCancellationRequested();
                    throw new VeltraException(new CallReport((Outcome)outcome, call));
                }
                finally
                {
                    lock (calls) calls.Remove(call);
                }
            }
        }

        void Enter(CallHandle call)
        {
            lock (calls)
            {
                if (disposed) throw new ObjectDisposedException(nameof(Session));
                calls.Add(call);
            }
        }

        // Not on the thread pool: calls wait for the gateway, and many of them would starve the pool.
        static Task<T> OnThread<T>(Func<CancellationToken, T> work, CancellationToken cancel)
        {
            return Task.Factory.StartNew(() => work(cancel), cancel,
                TaskCreationOptions.LongRunning | TaskCreationOptions.DenyChildAttach, TaskScheduler.Default);
        }

        static T Made<T>(T handle) where T : SafeHandle
        {
            if (handle.IsInvalid) throw new OutOfMemoryException();
            return handle;
        }

        // To the library 0 means no limit, so a time that has run out must not become 0.
        static uint Milliseconds(TimeSpan? time, string name)
        {
            if (time == null || time == Timeout.InfiniteTimeSpan) return 0;
            var milliseconds = Math.Ceiling(time.Value.TotalMilliseconds);
            if (milliseconds < 1 || milliseconds > uint.MaxValue)
                throw new ArgumentOutOfRangeException(name, time, "a time limit must be positive, and below 49 days");
            return (uint)milliseconds;
        }
    }

    /// <summary>Texts in the form of the C interface. .NET Standard 2.0 can't marshal UTF-8 and refuse a
    /// NUL.</summary>
    static class Utf8
    {
        internal static void Check(string text, string name)
        {
            if (Library.NotNull(text, name).IndexOf('\0') >= 0)
                throw new ArgumentException("a text must not hold a NUL character", name);
        }

        internal static byte[] Bytes(string text, string name)
        {
            Check(text, name);
            var bytes = new byte[Size(text)];
            Encoding.UTF8.GetBytes(text, 0, text.Length, bytes, 0);
            return bytes;
        }

        internal static int Size(string text) { return checked(Encoding.UTF8.GetByteCount(text) + 1); }

        // Reads a text that the library keeps.
        internal static string Read(IntPtr text)
        {
            if (text == IntPtr.Zero) return "";
            var length = 0;
            while (Marshal.ReadByte(text, length) != 0) ++length;
            return Read(text, length);
        }

        static string Read(IntPtr text, int length)
        {
            var bytes = new byte[length];
            Marshal.Copy(text, bytes, 0, length);
            return Encoding.UTF8.GetString(bytes);
        }

        // Reads and frees a text that the library returned. Without a length it ends at its first NUL.
        internal static string Take(IntPtr text, long? length = null)
        {
            try
            {
                return length == null ? Read(text) : Read(text, checked((int)length.Value));
            }
            finally
            {
                Native.veltra_free(text);
            }
        }
    }

    /// <summary>Keeps bytes in place while the library reads them, and wipes them afterwards: some are
    /// secrets, and the garbage collector must not leave copies of those behind.</summary>
    sealed class Pins : IDisposable
    {
        readonly List<GCHandle> handles = new List<GCHandle>();

        internal IntPtr Text(string text, string name)
        {
            Utf8.Check(text, name);
            var bytes = new byte[Utf8.Size(text)];
            handles.Add(GCHandle.Alloc(bytes, GCHandleType.Pinned));
            Encoding.UTF8.GetBytes(text, 0, text.Length, bytes, 0);
            return handles[handles.Count - 1].AddrOfPinnedObject();
        }

        public void Dispose()
        {
            foreach (var handle in handles)
            {
                var bytes = (byte[])handle.Target;
                Array.Clear(bytes, 0, bytes.Length);
                handle.Free();
            }
            handles.Clear();
        }
    }

    sealed class CallHandle : SafeHandleZeroOrMinusOneIsInvalid
    {
        CallHandle() : base(true) { }
        protected override bool ReleaseHandle() { Native.veltra_call_free(handle); return true; }
    }

    sealed class QueryHandle : SafeHandleZeroOrMinusOneIsInvalid
    {
        QueryHandle() : base(true) { }
        protected override bool ReleaseHandle() { Native.veltra_query_free(handle); return true; }
    }

    sealed class FeedbackHandle : SafeHandleZeroOrMinusOneIsInvalid
    {
        FeedbackHandle() : base(true) { }
        protected override bool ReleaseHandle() { Native.veltra_feedback_free(handle); return true; }
    }

    [StructLayout(LayoutKind.Sequential)]
    struct NativeHttpOptions
    {
        internal UIntPtr size;
        internal uint connect_timeout_ms;
        internal uint total_timeout_ms;
        internal ulong max_response_bytes;
        internal IntPtr ca_file;
        internal IntPtr proxy;
        internal int allow_plain_http;
    }

    [StructLayout(LayoutKind.Sequential)]
    struct NativeKeyPair
    {
        internal IntPtr app_key;
        internal IntPtr secret_key;
    }

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    delegate void NativeLogHandler(int level, IntPtr tag, IntPtr message, IntPtr context);

    /// <summary>The C interface, as Veltra/veltra_c.h and qlog/qlog.h declare it. Texts are
    /// zero-terminated arrays: they are pinned for the call, and the library copies them.</summary>
    static class Native
    {
        const string Name = "veltra";
        const CallingConvention C = CallingConvention.Cdecl;

        [DllImport(Name, CallingConvention = C)] internal static extern IntPtr veltra_version();
        [DllImport(Name, CallingConvention = C)] internal static extern IntPtr veltra_outcome_name(int outcome);
        [DllImport(Name, CallingConvention = C)] internal static extern void veltra_free(IntPtr text);

        [DllImport(Name, CallingConvention = C)] internal static extern void veltra_enable();
        [DllImport(Name, CallingConvention = C)] internal static extern void veltra_disable();
        [DllImport(Name, CallingConvention = C)] internal static extern int veltra_is_usable();

        [DllImport(Name, CallingConvention = C)] internal static extern CallHandle veltra_call_new();
        [DllImport(Name, CallingConvention = C)] internal static extern void veltra_call_free(IntPtr call);
        [DllImport(Name, CallingConvention = C)]
        internal static extern void veltra_call_set_time_limit(CallHandle call, uint milliseconds);
        [DllImport(Name, CallingConvention = C)] internal static extern void veltra_call_cancel(CallHandle call);
        [DllImport(Name, CallingConvention = C)] internal static extern int veltra_call_attempts(CallHandle call);
        [DllImport(Name, CallingConvention = C)] internal static extern int veltra_call_http_status(CallHandle call);
        [DllImport(Name, CallingConvention = C)] internal static extern uint veltra_call_milliseconds(CallHandle call);
        [DllImport(Name, CallingConvention = C)] internal static extern int veltra_call_retryable(CallHandle call);
        [DllImport(Name, CallingConvention = C)] internal static extern IntPtr veltra_call_gateway_code(CallHandle call);
        [DllImport(Name, CallingConvention = C)]
        internal static extern IntPtr veltra_call_gateway_message(CallHandle call);
        [DllImport(Name, CallingConvention = C)] internal static extern IntPtr veltra_call_detail(CallHandle call);
        [DllImport(Name, CallingConvention = C)] internal static extern IntPtr veltra_call_trace_id(CallHandle call);
        [DllImport(Name, CallingConvention = C)] internal static extern void veltra_cancel_all();

        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_set_http_options(ref NativeHttpOptions options);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_set_domain(byte[] domain, CallHandle call);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_login([In] NativeKeyPair[] pairs, UIntPtr count, byte[] productVersion,
            CallHandle call);
        [DllImport(Name, CallingConvention = C)] internal static extern void veltra_logout();

        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_set_phrases([In] IntPtr[] phrases, UIntPtr count);

        [DllImport(Name, CallingConvention = C)] internal static extern QueryHandle veltra_query_new(byte[] promptKey);
        [DllImport(Name, CallingConvention = C)] internal static extern void veltra_query_free(IntPtr query);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_query_set_value(QueryHandle query, byte[] name, byte[] value);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_query_set_filter(QueryHandle query, int filter);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_query_add_sensitive(QueryHandle query, byte[] text);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_query_set_trace_id(QueryHandle query, byte[] traceId);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_query_run(QueryHandle query, out IntPtr answer, out UIntPtr length,
            CallHandle call);

        [DllImport(Name, CallingConvention = C)]
        internal static extern FeedbackHandle veltra_feedback_new(byte[] traceId);
        [DllImport(Name, CallingConvention = C)] internal static extern void veltra_feedback_free(IntPtr feedback);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_feedback_set_satisfaction(FeedbackHandle feedback, int satisfaction);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_feedback_set_error_type(FeedbackHandle feedback, int errorType);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_feedback_set_comments(FeedbackHandle feedback, byte[] comments);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_feedback_set_country(FeedbackHandle feedback, byte[] country);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_feedback_add_picture(FeedbackHandle feedback, byte[] bytes, UIntPtr size);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_feedback_submit(FeedbackHandle feedback, out IntPtr id, CallHandle call);
        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_feedback_withdraw(byte[] id, CallHandle call);

        [DllImport(Name, CallingConvention = C)]
        internal static extern int veltra_convert_time(byte[] expression, long now, int startOfDay,
            [In, Out] byte[] result);
        [DllImport(Name, CallingConvention = C)] internal static extern int veltra_set_first_day_of_week(int day);

        [DllImport(Name, CallingConvention = C)]
        internal static extern void qlog_set_handler(NativeLogHandler handler, IntPtr context, int minLevel);
    }
}
