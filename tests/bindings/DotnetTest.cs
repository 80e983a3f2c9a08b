// The C# binding as a host meets it, against local gateways over HTTPS; check_dotnet.sh starts them.
//
//     DotnetTest URL CA-FILE SLOW-URL SLOW-CA-FILE
//
// The slow gateway takes a second for a query, and refuses feedback.

using System;
using System.Collections.Concurrent;
using System.Collections.Generic;
using System.Diagnostics;
using System.Linq;
using System.Threading;
using System.Threading.Tasks;
using Veltra;

static class DotnetTest
{
    const int Others = 20;
    static readonly KeyPair[] Keys = { new KeyPair("app\"", "s3cret\"") };
    static readonly ConcurrentQueue<string> Records = new ConcurrentQueue<string>();
    static readonly string Mebibyte = string.Concat(Enumerable.Repeat("16 \"bytes\" \U0001F600\n", 1 << 16));
    static bool failed;

    static void Check(bool good, string what)
    {
        if (good) return;
        failed = true;
        Console.Error.WriteLine("not so: " + what);
    }

    static T Thrown<T>(Action action, string what) where T : Exception
    {
        try
        {
            action();
            Check(false, what + " raises " + typeof(T).Name + ", not nothing");
        }
        catch (T error)
        {
            return error;
        }
        catch (Exception error)
        {
            Check(false, what + " raises " + typeof(T).Name + ", not " + error);
        }
        return null;
    }

    static CallReport Fails(Outcome outcome, Action action, string what)
    {
        var error = Thrown<VeltraException>(action, what);
        if (error == null) return null;
        Check(error.Outcome == outcome, what + " ends as " + outcome + ", not " + error);
        return error.Report;
    }

    static Dictionary<string, string> Values(string text) =>
        new Dictionary<string, string> { { "from", "A" }, { "to", "B" }, { "text", text } };

    static SessionOptions Trusting(string caFile) =>
        new SessionOptions { CaFile = caFile, ProductVersion = "5.1.0" };

    static void Login(string url, string caFile)
    {
        Fails(Outcome.NotTrusted, () => Session.Open(url, Keys), "a login without the authority");
        var wrong = new[] { new KeyPair("app\"", "wrong") };
        var report = Fails(Outcome.Refused, () => Session.Open(url, wrong, Trusting(caFile)), "a wrong secret");
        Check(report.GatewayCode == "403001" && report.GatewayMessage != "" && report.HttpStatus == 200 &&
            report.Detail.Contains("403001") && !report.Retryable, "the report tells why: " + report.Detail);
    }

    static void Queries(Session session)
    {
        foreach (var text in new[] { "", "\"quoted\" \\ and\r\n\tbroken", "\U0001F600 \U0002070E é \u0001",
            Mebibyte })
        {
            var answer = session.Query("translation", Values(text));
            Check(answer.Text == "Translate from A to B: " + text, "comes back: " + text.Substring(0, Math.Min(20, text.Length)));
            Check(answer.TraceId != "" && answer.Report.Attempts == 1 && answer.Report.HttpStatus == 200, "its report");
        }
        Check(session.QueryAsync("translation", Values("x"), new QueryOptions { TraceId = "my-\"id\"" }).Result.TraceId ==
            "my-\"id\"", "the trace id given");
        foreach (var value in new[] { "a\0b", null })
            Thrown<ArgumentException>(() => session.QueryAsync("translation", Values(value)), "NUL or null in a value");
        Thrown<ArgumentOutOfRangeException>(
            () => session.Query("translation", Values("x"), new QueryOptions { Timeout = TimeSpan.Zero }), "no time left");
        var report = Fails(Outcome.ForbiddenWords, () => session.Query("translation", Values("x"),
            new QueryOptions { Filter = Filter.CheckInput, SensitiveTexts = new[] { "a forbidden word" } }), "the filter");
        Check(report.GatewayCode == "083001", "its code");

        Library.SetPhrases(new[] { "merger", "böse Wörter" });
        report = Fails(Outcome.Screened, () => session.Query("translation", Values("say \"böse Wörter\"")), "screening");
        Check(report.Attempts == 0, "nothing was sent");
    }

    static Feedback Judged(string traceId) =>
        new Feedback(traceId) { Satisfaction = 2, ErrorType = 1, Comments = "\"no\"\n\U0001F600", Country = "Österreich",
            Pictures = { new byte[] { 0xff, 0xd8, 0xff, 0, 1 }, new byte[] { 0xff, 0xd8, 0xff, 0, 2 } } };

    static void FeedbackIsTaken(Session session)
    {
        var id = session.Submit(Judged("trace \"1\""));
        session.Withdraw(id);
        var report = Fails(Outcome.Refused, () => session.Withdraw(id), "a second withdrawal");
        Check(report.GatewayCode == "409001", "it has been withdrawn before");
    }

    static void Times()
    {
        var now = new DateTimeOffset(2024, 3, 15, 10, 20, 30, TimeSpan.Zero);  // the zone is UTC here
        Check(Library.ConvertTime("-1d08:30", now, false) == new DateTime(2024, 3, 14, 8, 30, 0), "a clock time");
        Check(Library.ConvertTime("-1m", now.AddDays(16), true) == null, "a date that doesn't exist");
        Library.SetFirstDayOfWeek(DayOfWeek.Monday);
        Check(Library.ConvertTime("+0w", now, true) == new DateTime(2024, 3, 11), "the week begins on Monday");
        Fails(Outcome.BadArgument, () => Library.ConvertTime("no term", now, true), "an expression without a term");
    }

    static Task<Answer> Slowly(Session session, CancellationToken token = default(CancellationToken)) =>
        session.QueryAsync("translation", Values("x"), null, token);

    // Waits until so many more queries are under way, as their records tell.
    static void WaitForQueries(int count, Action start)
    {
        Func<int> sent = () => Records.Count(record => record.StartsWith("Detail Veltra ") && record.Contains("]request:"));
        count += sent();
        start();
        Check(SpinWait.SpinUntil(() => sent() >= count, 10000), "the queries begin");
    }

    // Of many queries under way one is cancelled, by a thread that doesn't run it.
    static void Cancel(Session session, Func<CancellationToken, Task> query, string what)
    {
        Task<Answer>[] others = null;
        Task cancelled = null;
        using (var source = new CancellationTokenSource())
        {
            WaitForQueries(Others + 1, () =>
            {
                cancelled = query(source.Token);
                others = Enumerable.Range(0, Others).Select(i => Slowly(session)).ToArray();
            });
            var watch = Stopwatch.StartNew();
            source.Cancel();
            Task.WhenAny(cancelled).Wait();
            Check(watch.ElapsedMilliseconds < 200, what + " returns in time, not after " + watch.Elapsed);
            Check(cancelled.IsCanceled, what + " ends as cancelled, not as " + cancelled.Status);
        }
        Check(!others.Any(other => other.IsCompleted), what + " came while others went on");
        Check(others.All(other => other.Result.Text.EndsWith("x")), "the others are answered");
    }

    static void Slow(Session session)
    {
        var report = Fails(Outcome.TimedOut, () => session.Query("translation", Values("x"),
            new QueryOptions { Timeout = TimeSpan.FromMilliseconds(100) }), "a time limit");
        Check(report.Retryable && report.Elapsed.TotalMilliseconds >= 99 && report.Elapsed.TotalMilliseconds < 300,
            "its report: " + report.Elapsed);
        Cancel(session, token => Slowly(session, token), "QueryAsync");
        Cancel(session, token => Task.Run(() => session.Query("translation", Values("x"), null, token), token), "Query");
        Thrown<OperationCanceledException>(
            () => session.Query("translation", Values("x"), null, new CancellationToken(true)), "a cancelled token");
        report = Fails(Outcome.Refused, () => session.Submit(Judged("t")), "feedback that is refused");
        Check(report.Attempts == 4, "slots, two pictures and the rest are four exchanges, not " + report.Attempts);

        Thrown<InvalidOperationException>(() => Session.Open(null, Keys), "a second session");
        Task<Answer> last = null;
        WaitForQueries(1, () => last = Slowly(session));
        session.Dispose();
        Fails(Outcome.Cancelled, () => last.GetAwaiter().GetResult(), "a query that the session's end meets");
        Thrown<ObjectDisposedException>(() => session.Query("translation", Values("x")), "a closed session");
    }

    static int Main(string[] arguments)
    {
        Library.SetLogHandler((level, tag, message) => { throw new Exception("dropped"); }, LogLevel.Detail);
        Login(arguments[0], arguments[1]);
        Library.SetLogHandler((level, tag, message) => Records.Enqueue(level + " " + tag + " " + message), LogLevel.Detail);
        GC.Collect();  // would take the handler, were nothing but native memory holding it
        GC.WaitForPendingFinalizers();
        using (var session = Session.Open(arguments[0], Keys, Trusting(arguments[1])))
        {
            Check(Session.IsUsable, "the service is usable");
            Queries(session);
            FeedbackIsTaken(session);
        }
        Times();
        Check(Records.Any(record => record.StartsWith("Progress Veltra ")), "records come to the handler");
        Check(!Records.Any(record => record.Contains("s3cret")), "no record shows the secret");
        Slow(Session.Open(arguments[2], Keys, Trusting(arguments[3])));

        // What is under way, the monitor and the handler don't keep the process from its end.
        var open = Session.OpenAsync(arguments[2], Keys, Trusting(arguments[3])).Result;
        WaitForQueries(1, () => Slowly(open));
        return failed ? 1 : 0;
    }
}
