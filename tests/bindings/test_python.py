#!/usr/bin/env python3
"""The package for Python on the built library, against the local gateway over HTTPS:

    test_python.py LIBRARY GATEWAY-PROGRAM [UNITTEST-ARGUMENT...]
"""

import asyncio
import concurrent.futures
import ctypes
import faulthandler
import hashlib
import json
import logging
import multiprocessing
import os
import pathlib
import pickle
import re
import signal
import ssl
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.request

LIBRARY, PROGRAM = (os.path.abspath(argument) for argument in sys.argv[1:3])
ROOT = pathlib.Path(__file__).resolve().parents[2]
os.environ["VELTRA_LIBRARY"] = LIBRARY
sys.path.insert(0, str(ROOT / "bindings/python"))
import veltra  # noqa: E402

KEYS = [("demo", "secret")]
GREETING = {"name": "Ada", "place": "the library"}
SOON = 0.2  # seconds, for what is cancelled
PATIENCE = 20
PROMPT = "Hello {}, welcome to the library."


class Gateway:
    """The program, with the authority of its certificate in a file."""

    def __init__(self, *arguments):
        self.folder = tempfile.TemporaryDirectory()
        ready, self.ca_file = (os.path.join(self.folder.name, name) for name in ("url", "ca.pem"))
        self.process = subprocess.Popen([PROGRAM, "--tls", "--ca-out", self.ca_file, "--key", "demo:secret",
                                         "--ready-file", ready, *arguments], stdout=subprocess.DEVNULL)
        until(lambda: os.path.exists(ready), "the gateway listens")
        self.url = pathlib.Path(ready).read_text().strip()

    def stop(self):
        self.process.terminate()
        self.process.wait()
        self.folder.cleanup()

    def control(self, method, path, body=None):
        context = ssl.create_default_context(cafile=self.ca_file)
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}),
                                             urllib.request.HTTPSHandler(context=context))
        data = json.dumps(body).encode() if body else None
        with opener.open(urllib.request.Request(f"{self.url}/control/{path}", data, method=method)) as answer:
            return json.loads(answer.read() or "null")

    def fault(self, kind, on="query", **more):
        self.control("POST", "faults", {"on": on, "kind": kind, **more})

    def bodies(self, path):
        requests = self.control("GET", "requests")["requests"]
        return [request["body"] for request in requests if request["path"].endswith(path) and request["body"]]

    def stalled(self):
        return self.control("GET", "state")["stalled"]


def until(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"not in time: {what}")
        time.sleep(0.01)


def setUpModule():
    global gateway, ends
    ends = [End(*case) for case in ENDS]  # they wait for their monitors meanwhile
    gateway = Gateway()
    signal.signal(signal.SIGINT, signal.default_int_handler)  # also where the test was started in the background
    logging.getLogger("veltra").addHandler(logging.NullHandler())  # in place of standard error


def tearDownModule():
    gateway.stop()
    for end in ends:
        end.gateway.stop()


class SessionTest(unittest.TestCase):
    def setUp(self):
        self.session = veltra.connect(gateway.url, KEYS, ca_file=gateway.ca_file, product_version="7.1")
        self.addCleanup(self.session.close)
        self.addCleanup(gateway.control, "DELETE", "faults")
        self.addCleanup(veltra.set_phrases, [])

    def ask(self, **options):
        return self.session.query("greeting", GREETING, **options)

    def cancelled(self, cancel, call=None):
        """The call raises Cancelled soon after `cancel`, which runs on another thread when it stalls."""
        before, at = gateway.stalled(), []

        def act():
            until(lambda: gateway.stalled() > before, "the query stalls")
            at.append(time.monotonic())
            cancel()

        thread = threading.Thread(target=act)
        thread.start()
        with self.assertRaises((veltra.Cancelled, KeyboardInterrupt)) as caught:
            (call or self.ask)()
        self.assertLess(time.monotonic() - at[0], SOON)
        thread.join()
        return caught.exception

    def test_login(self):
        with self.assertRaisesRegex(RuntimeError, "is open"):
            veltra.connect(gateway.url, KEYS)
        self.assertTrue(self.session.usable)
        self.session.close()
        with self.assertRaises(veltra.NotEnabled):
            self.ask()
        trusted = {"ca_file": gateway.ca_file}
        for expected, domain, keys, options in [
                (veltra.Refused, gateway.url, [("demo", "wrong")], trusted),
                (veltra.NotTrusted, gateway.url, KEYS, {}),
                (ValueError, gateway.url, KEYS, {"timeout": 0, **trusted})]:
            with self.subTest(expected=expected), self.assertRaises(expected):
                veltra.connect(domain, keys, **options)
        with veltra.connect(gateway.url, KEYS, **trusted) as session:
            self.assertEqual(session.query("greeting", GREETING).text, PROMPT.format("Ada"))

    def test_texts_arrive_as_they_are(self):
        for text in ('say "no"\n\tor \\n', "\U0001f600 \u05e9\u05dc\u05d5\u05dd", "{{place}}", "x" * 2**20):
            with self.subTest(text=text[:20]):
                answer = self.session.query("greeting", {**GREETING, "name": text}, trace_id=f"id {text[:9]}")
                self.assertEqual(answer.text, PROMPT.format(text))
                self.assertEqual((answer.trace_id, answer.attempts), (f"id {text[:9]}", 1))
        sent = gateway.bodies("/analysis")
        for text in ("before\0after", "\ud800"):
            with self.assertRaises(ValueError):
                self.session.query("greeting", {"name": text})
        self.assertEqual(gateway.bodies("/analysis"), sent)

    def test_an_exception_for_each_outcome(self):
        cases = [
            (veltra.BadStatus, {"kind": "status", "number": 503}, {}, {"http_status": 503, "retryable": True}),
            (veltra.Refused, {"kind": "refuse", "code": "9", "text": "why"}, {},
             {"gateway_code": "9", "gateway_message": "why", "retryable": False}),
            (veltra.CutOff, {"kind": "reset-in-body"}, {}, {"attempts": 3, "trace_id": "mine"}),
            (veltra.TimedOut, {"kind": "stall"}, {"timeout": 0.25}, {"retryable": True}),
            (veltra.ForbiddenWords, None, {"filter": veltra.Filter.INPUT, "sensitive": ["forbidden"]}, {}),
            (veltra.Screened, None, {}, {"attempts": 0})]
        for expected, fault, options, fields in cases:
            with self.subTest(expected=expected):
                veltra.set_phrases(["Ada"] if expected is veltra.Screened else [])
                if fault:
                    gateway.fault(**fault)
                with self.assertRaises(expected) as caught:
                    self.ask(trace_id="mine", **options)
                gateway.control("DELETE", "faults")
                error = caught.exception
                self.assertEqual({**vars(error), **fields}, vars(error))
                self.assertGreaterEqual(error.milliseconds, 250 if expected is veltra.TimedOut else 0)
                self.assertEqual(vars(pickle.loads(pickle.dumps(error))), vars(error))
                self.assertIn(error.detail, str(error))
        name_of = ctypes.CDLL(LIBRARY).veltra_outcome_name
        name_of.restype = ctypes.c_char_p
        self.assertEqual([(kind.__name__, kind.outcome) for kind in veltra.Error.__subclasses__()],
                         [(name_of(number).decode(), number) for number in range(1, 17)])

    def test_phrase_keys(self):
        veltra.set_phrase_keys([veltra.phrase_key("Ada")], 1)
        self.assertRaises(veltra.Screened, self.ask)

    def test_cancellation(self):
        gateway.fault("stall")
        token = veltra.CancelToken()
        self.cancelled(token.cancel, lambda: self.ask(cancel=token))
        with self.assertRaises(veltra.Cancelled):
            self.ask(cancel=token)
        self.cancelled(self.session.cancel_all)
        interrupt = self.cancelled(lambda: os.kill(os.getpid(), signal.SIGINT))
        self.assertIsInstance(interrupt, KeyboardInterrupt)
        self.cancelled(self.session.close)

    def test_asyncio(self):
        async def run():
            gateway.fault("stall", times=1)
            victim = asyncio.create_task(self.session.aquery("greeting", GREETING))
            await asyncio.to_thread(until, lambda: gateway.stalled() > stalled, "the query stalls")
            gateway.fault("delay", number=600)
            others = [asyncio.create_task(self.session.aquery("greeting", {**GREETING, "name": str(i)}))
                      for i in range(50)]
            await asyncio.sleep(0.3)
            began = time.monotonic()
            victim.cancel()
            with self.assertRaises(asyncio.CancelledError):
                await victim
            self.assertLess(time.monotonic() - began, SOON)
            self.assertFalse(any(other.done() for other in others))
            await asyncio.to_thread(until, lambda: gateway.stalled() == stalled, "the library let go")
            self.assertEqual([answer.text for answer in await asyncio.gather(*others)],
                             [PROMPT.format(i) for i in range(50)])
            with self.assertRaises(veltra.TimedOut):
                await self.session.aquery("greeting", GREETING, timeout=0.1)

        stalled = gateway.stalled()
        asyncio.run(run())

    def test_feedback(self):
        pictures = [b"\xff\xd8\xff\xe0\0one", b"\xff\xd8\xff\xe0\0another"]
        name = self.session.feedback("mine", satisfaction=2, error_type=-1, comments='I said "no"\n',
                                     country="N\\L", pictures=pictures)
        kept = {picture["sha256"] for picture in gateway.control("GET", "pictures")["pictures"]}
        self.assertEqual(kept, {hashlib.sha256(picture).hexdigest() for picture in pictures})
        body = json.loads(gateway.bodies("/satisfaction/feedback")[-1])
        keys = body.pop("feedbackImageKeys")
        self.assertEqual((len(keys), body), (2, {
            "traceId": "mine", "satisfactionType": 2, "feedbackType": -1, "feedbackDescription": 'I said "no"\n',
            "country": "N\\L", "clientVersion": "7.1"}))
        self.session.withdraw(name)
        with self.assertRaises(veltra.Refused):
            self.session.withdraw(name)
        self.assertRaises(veltra.BadArgument, self.session.feedback, "mine", pictures=[b""])
        self.assertRaises(ValueError, self.session.feedback, "mine", satisfaction=2**31)

    def test_records(self):
        gateway.fault("status", number=500, times=1)
        with self.assertLogs("veltra", logging.DEBUG) as records:
            self.ask()
        self.assertEqual({record.levelname for record in records.records}, {"ERROR"})
        veltra.set_log_level(logging.DEBUG)
        self.addCleanup(veltra.set_log_level, logging.WARNING)
        with self.assertLogs("veltra", logging.DEBUG) as records:
            self.ask()
        self.assertIn("DEBUG", {record.levelname for record in records.records})
        self.assertTrue([record for record in records.output if "Ada" in record])

    def test_many_threads(self):
        def run(count):
            values = {**GREETING, "name": "x" * 4096}
            answers = pool.map(lambda _: self.session.query("greeting", values).text, range(count))
            self.assertEqual(set(answers), {PROMPT.format("x" * 4096)})
            memory = int(re.search(r"VmRSS:\s+(\d+)", pathlib.Path("/proc/self/status").read_text())[1])
            return len(os.listdir("/proc/self/fd")), memory

        with concurrent.futures.ThreadPoolExecutor(16) as pool:
            handles, memory = run(2000)
            for _ in range(40 if os.environ.get("VELTRA_LONG_TESTS") else 3):
                handles_after, memory_after = run(2000)
        self.assertLess(handles_after - handles, 50)  # a connection that is kept for each thread has three
        self.assertLess(memory_after - memory, 2048, "KiB that stay")

    def test_forked_child(self):
        def child():
            for says, call in [("", self.ask), ("phrases", lambda: veltra.set_phrases([])),
                               ("options", lambda: veltra.connect(gateway.url, KEYS))]:
                with self.assertRaisesRegex(veltra.NotEnabled, says):
                    call()
            self.session.close()

        process = multiprocessing.get_context("fork").Process(target=child)
        process.start()
        process.join(PATIENCE)
        self.assertEqual(process.exitcode, 0)
        self.ask()


class WholeProcessTest(unittest.TestCase):
    def test_versions_are_the_same(self):
        self.assertEqual(veltra.__version__, veltra.library_version())

    def test_time_expressions(self):
        os.environ["TZ"] = "UTC"
        time.tzset()
        now = 1710498030  # Friday, 2024-03-15 10:20:30
        for expression, options, expected in [
                ("-1d08:30", {}, "2024-03-14 08:30:00"), ("-1d", {}, "2024-03-14 23:59:59"),
                ("-1d", {"start_of_day": True}, "2024-03-14 00:00:00")]:
            self.assertEqual(veltra.convert_time(expression, now, **options), expected)
        veltra.set_first_day_of_week(1)
        self.assertEqual(veltra.convert_time("+0w", now, start_of_day=True), "2024-03-11 00:00:00")
        veltra.set_first_day_of_week(0)
        self.assertRaises(veltra.BadArgument, veltra.convert_time, "d10:00", now)
        self.assertRaises(veltra.BadArgument, veltra.set_first_day_of_week, 7)

    def test_interpreter_ends_at_once(self):
        for end in ends:
            with self.subTest(end=end.name):
                end.check(self)


# What a program does before it falls off its end, with a gateway on which nothing but this stalls.
ENDS = [
    ("stalled monitor", "probe", "pass"),
    ("daemon threads in a query", "query", "start(ask, 2)"),
    ("daemon threads that never stop", "query", """
def forever():
    while True:
        try: ask()
        except veltra.Error: pass
start(forever, 8)"""),
    ("asyncio task", "query", """
async def leave():
    task = asyncio.create_task(session.aquery("greeting", {}))
    await asyncio.sleep(0.1)
loop = asyncio.new_event_loop()
loop.run_until_complete(leave())"""),
]
# What a program registers before its first call, runs at its exit after what the package does then.
END = """
import asyncio, atexit, logging, sys, threading, veltra
logging.basicConfig(level=logging.DEBUG, stream=sys.stdout)
veltra.set_log_level(logging.DEBUG)
def say(line):
    sys.stdout.write(line + "\\n")  # whole, where threads write log records between the pieces of print()
    sys.stdout.flush()
threads = []
def start(work, count):
    threads.extend(threading.Thread(target=work, daemon=True) for _ in range(count))
    for thread in threads: thread.start()
def last():
    for thread in threads: thread.join()
    try: ask()
    except veltra.NotEnabled: say("refused")
atexit.register(last)
session = veltra.connect(sys.argv[1], [("demo", "secret")], ca_file=sys.argv[2])
def ask(): return session.query("greeting", {})
say("logged in")
sys.stdin.readline()
"""


class End:
    def __init__(self, name, stalls, code):
        self.name, self.gateway = name, Gateway()
        environment = {**os.environ, "PYTHONPATH": str(ROOT / "bindings/python")}
        program = END + code + '\nsay("busy")\nsys.stdin.readline()\n'
        self.process = subprocess.Popen([sys.executable, "-c", program, self.gateway.url, self.gateway.ca_file],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        text=True, env=environment)
        self.until("logged in")
        self.gateway.fault("stall", on=stalls)
        self.process.stdin.write("\n")
        self.process.stdin.flush()

    def until(self, line):
        for said in self.process.stdout:
            if said == line + "\n":
                return
        raise AssertionError(f"{self.name}: {self.process.stderr.read()}")

    def check(self, test):
        self.until("busy")
        until(lambda: self.gateway.stalled() > 0, f"{self.name} stalls")
        began = time.monotonic()
        said, errors = self.process.communicate("\n", PATIENCE)
        test.assertLess(time.monotonic() - began, 2)
        test.assertEqual((self.process.returncode, errors), (0, ""))
        test.assertIn("refused", said)


if __name__ == "__main__":
    faulthandler.dump_traceback_later(100, exit=True)  # tells where a test hangs, before its limit
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
