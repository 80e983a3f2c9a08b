// A host in C#: runs one query, and gives up after 20 seconds or when the user presses Ctrl-C.
//
//     mcs -out:dotnet.exe examples/dotnet/dotnet.cs bindings/dotnet/Veltra.cs
//     VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... mono dotnet.exe GATEWAY-URL

using System;
using System.Collections.Generic;
using System.Threading;
using System.Threading.Tasks;
using Veltra;

static class Program
{
    static int Main(string[] arguments) { return Run(arguments).GetAwaiter().GetResult(); }

    static async Task<int> Run(string[] arguments)
    {
        var appKey = Environment.GetEnvironmentVariable("VELTRA_APP_KEY");
        var secretKey = Environment.GetEnvironmentVariable("VELTRA_SECRET_KEY");
        if (arguments.Length != 1 || appKey == null || secretKey == null)
        {
            Console.Error.WriteLine("usage: VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... dotnet.exe GATEWAY-URL");
            return 2;
        }
        // A real host passes log records to its own logger. They come from any thread.
        Library.SetLogHandler((level, tag, message) => Console.Error.WriteLine("[" + level + "] " + tag + ": " + message));

        var stop = new CancellationTokenSource();
        Console.CancelKeyPress += (sender, pressed) => { pressed.Cancel = true; stop.Cancel(); };
        try
        {
            using (var session = await Session.OpenAsync(arguments[0], new[] { new KeyPair(appKey, secretKey) }, null, stop.Token))
            {
                // Values are plain texts: the library escapes and screens them.
                var values = new Dictionary<string, string> { { "name", "Ada \"Enchantress\" King" }, { "place", "the library" } };
                var options = new QueryOptions { Timeout = TimeSpan.FromSeconds(20) };
                var answer = await session.QueryAsync("greeting", values, options, stop.Token);
                Console.WriteLine(answer.Text);
            }
            return 0;
        }
        catch (OperationCanceledException)
        {
            Console.Error.WriteLine("cancelled");
        }
        catch (VeltraException error)
        {
            Console.Error.WriteLine(error.Message + (error.Report.Retryable ? " (try again later)" : ""));
        }
        return 1;
    }
}
