#!/usr/bin/env python3
"""Drives the local gateway's page in headless Chromium, as its users do:
    check_page.py GATEWAY-PROGRAM
Ends with 77 where no browser with its driver is installed."""

import base64
import json
import os
import re
import shutil
import signal
import ssl
import subprocess
import sys
import tempfile
import threading
import time
import urllib.error
import urllib.request
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

SKIPPED = 77
PATIENCE = 20  # seconds, for each thing waited for
TOKEN = "/api/tmqgw/v1/token/get"
QUERY = "/api/tmqgw/aillm/v1/third/text/prompt/by/template/analysis"
FEEDBACK = "/api/tmqgw/aillm/v1/satisfaction/feedback"
HOSTILE = '<img src=x onerror="document.title=`owned`"><script>document.title="owned"</script>'
HEBREW = "\u05e9\u05dc\u05d5\u05dd"
TAB, ENTER, SPACE, DOWN = "\ue004", "\ue007", " ", "\ue015"


def http(method, url, body=None, headers=None):
    """Status and text; the certificates here are made anew by each start."""
    data = body if body is None or isinstance(body, bytes) else body.encode()
    request = urllib.request.Request(url, data, headers or {}, method=method)
    handlers = [urllib.request.ProxyHandler({}),
                urllib.request.HTTPSHandler(context=ssl._create_unverified_context())]
    try:
        with urllib.request.build_opener(*handlers).open(request, timeout=PATIENCE) as answer:
            return answer.status, answer.read().decode()
    except urllib.error.HTTPError as refusal:
        return refusal.code, refusal.read().decode()


class Program:
    """A program that tells where it listens; ended with its whole family."""

    def __init__(self, command, pattern, **options):
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                        text=True, start_new_session=True, **options)
        for line in self.process.stdout:
            found = re.search(pattern, line)
            if found:
                self.where = found[1]
                return
        raise AssertionError(f"{command[0]} did not start")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        try:
            self.process.wait(PATIENCE)
        finally:
            try:
                os.killpg(self.process.pid, 9)
            except ProcessLookupError:
                pass
            self.process.wait()
            self.process.stdout.close()


def gateway(program, *options):
    return Program([program, "--key", "demo:the-secret", *options], r"listening on (\S+)")


class Model(BaseHTTPRequestHandler):
    """Stands in for a model's server: it answers what the prompt ends with, once or many times."""

    def do_POST(self):
        asked = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
        text, _, times = asked["messages"][-1]["content"].removesuffix(".").partition(" times ")
        told = {"choices": [{"message": {"content": text.split("to ")[-1] * int(times or 1)},
                             "finish_reason": "length"}],
                "usage": {"prompt_tokens": 7, "completion_tokens": 1}}
        body = json.dumps(told).encode()
        self.send_response(200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


class Browser:
    def __init__(self, driver, profile):
        arguments = ["--headless=new", "--disable-gpu", "--disable-dev-shm-usage",
                     "--no-first-run", "--no-proxy-server", f"--user-data-dir={profile}",
                     "--window-size=1200,900", "--host-resolver-rules=MAP elsewhere.example 127.0.0.1"]
        if os.geteuid() == 0:
            arguments.append("--no-sandbox")
        self.session = f"http://127.0.0.1:{driver}/session"
        made = self.command("POST", "", {"capabilities": {"alwaysMatch": {
            "acceptInsecureCerts": True,
            "timeouts": {"script": PATIENCE * 1000, "pageLoad": PATIENCE * 1000},
            "goog:loggingPrefs": {"browser": "ALL"},
            "goog:chromeOptions": {"args": arguments}}}})
        self.session += "/" + made["sessionId"]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.command("DELETE", "")

    def command(self, method, path, body=None):
        status, text = http(method, self.session + path, None if body is None else json.dumps(body))
        value = json.loads(text)["value"]
        assert status == 200, value
        return value

    def open(self, url):
        self.command("POST", "/url", {"url": url})

    def run(self, script, *arguments):
        return self.command("POST", "/execute/sync", {"script": script, "args": list(arguments)})

    def press(self, *keys):
        strokes = [{"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]
        self.command("POST", "/actions", {"actions": [
            {"type": "key", "id": "keyboard", "actions": strokes}]})

    def tab_to(self, element):
        """Moves the focus as far as it takes, and sees that it shows."""
        for _ in range(40):
            self.press(TAB)
            if self.run("return document.activeElement.matches(arguments[0])", element):
                shown = self.run("return getComputedStyle(document.activeElement).outlineStyle")
                assert shown != "none", f"the focus on {element} doesn't show"
                return
        raise AssertionError(f"no key leads to {element}")

    def text(self, element):
        return self.run("return document.querySelector(arguments[0])?.innerText ?? ''", element)

    def shows(self, element, part):
        deadline = time.monotonic() + PATIENCE
        while part not in self.text(element):
            assert time.monotonic() < deadline, f"no {part!r} in {element}: {self.text('body')}"
            time.sleep(0.05)

    def width_of_phone(self, on):
        size = {"width": 360, "height": 740, "deviceScaleFactor": 2, "mobile": True}
        self.command("POST", "/goog/cdp/execute", {
            "cmd": f"Emulation.{'set' if on else 'clear'}DeviceMetricsOverride",
            "params": size if on else {}})

    def complaints(self):
        return self.command("POST", "/se/log", {"type": "browser"})

    def screenshot(self, file):
        with open(file, "wb") as to:
            to.write(base64.b64decode(self.command("GET", "/screenshot")))


def check_requests(browser, url):
    """Bodies and answers appear as they come, as text, without their secrets."""
    browser.open(url + "/")
    browser.shows("#live", "live")
    http("POST", url + TOKEN, '{"appKey":"demo","secretKey":"the-secret"}')
    http("POST", url + "/" + "long/" * 60, HOSTILE)
    http("PUT", url + "/storage/k.jpg?expires=1&signature=abcdef", b"\x89PNG\r\n\0" + b"x" * 40000)
    browser.shows("#requests li:nth-child(3)", "token")
    browser.run("document.querySelectorAll('#requests > li > details').forEach(d => d.open = true)")
    browser.shows("#requests li:nth-child(3)", '"errorCode":"0"')
    browser.shows("#requests li:nth-child(2)", HOSTILE)
    browser.shows("#requests li:nth-child(1)", "89 50 4e 47 0d 0a 00")
    browser.shows("#requests li:nth-child(1)", "the first 64 of 40007 bytes")
    assert "signature=abcdef" not in browser.text("#requests")
    assert "the-secret" not in browser.text("#requests")
    browser.tab_to("#secrets")
    browser.press(SPACE)
    browser.shows("#requests", '"secretKey":"the-secret"')
    browser.press(SPACE)
    assert browser.run("return document.title") == "Veltra gateway", "a body became markup"


def check_faults(browser, url):
    """A fault is added, seen to work, and removed by keyboard alone."""
    browser.tab_to("#adding summary")
    if not browser.run("return document.querySelector('#adding').open"):
        browser.press(ENTER)
    browser.tab_to("#endpoint")
    browser.press(DOWN)
    for element, text in (("#number", "503"), ("#text", "later"), ("#times", "2")):
        browser.tab_to(element)
        browser.press(*text)
    browser.tab_to("#add button")
    browser.press(ENTER)
    browser.shows("#faults", "status 503, Body “later”\ntoken · 2 times more")
    browser.shows("#announcer", "Fault added")
    assert http("POST", url + TOKEN, "x") == (503, "later")
    browser.shows("#faults", "1 time more")
    browser.shows("#requests li:nth-child(1)", "503")
    browser.shows("#requests li:nth-child(1)", "fault: status")
    browser.run("document.querySelector('#faults-title').focus()")
    browser.tab_to("#faults button")
    browser.press(ENTER)
    browser.shows("#no-faults", "None in force")
    assert browser.run("return document.activeElement.id") == "faults-title", "the focus got lost"
    assert http("POST", url + TOKEN, "x")[0] == 200


def check_model(browser, url):
    """Prompt, answer and feedback of a query stand together, and whatever they hold is shown only."""
    browser.complaints()  # of what came before
    browser.open(url + "/")
    told = json.loads(http("POST", url + TOKEN, '{"appKey":"demo","secretKey":"the-secret"}')[1])
    bearer = {"Authorization": "Bearer " + told["data"]["accessToken"]}
    http("POST", url + QUERY, "")
    for number, place in enumerate((HOSTILE, HEBREW + "\u202e" + HEBREW, "x times 1048576")):
        http("POST", url + QUERY, json.dumps({
            "traceId": f"trace-{number}", "promptKey": "greeting",
            "replaceElements": {"name": "Ada", "place": place}}), bearer)
    http("POST", url + FEEDBACK, json.dumps({
        "traceId": "trace-0", "satisfactionType": 2, "feedbackType": 1, "feedbackImageKeys": [],
        "feedbackDescription": HOSTILE, "country": "", "clientVersion": ""}), bearer)
    browser.shows("#requests li:nth-child(5)", "probe\n200, reached")
    browser.shows("#requests li:nth-child(4)", "stopped by length\n1 feedback")
    browser.run("document.querySelectorAll('#requests > li > details').forEach(d => d.open = true)")
    browser.shows("#requests li:nth-child(4)", f"bytes\nHello Ada, welcome to {HOSTILE}.\nModel’s answer")
    browser.shows("#requests li:nth-child(4)", f"bytes\n{HOSTILE}\n\nmodel tiny, ")
    browser.shows("#requests li:nth-child(4)", " ms, 7 tokens of the prompt, 1 token of the answer, stopped")
    browser.shows("#requests li:nth-child(4)", f"on trace id trace-0: satisfaction 2, type 1, “{HOSTILE}”")
    browser.shows("#requests li:nth-child(3)", f"bytes\n{HEBREW}\\u202e{HEBREW}\n\nmodel")
    direction = "return getComputedStyle(document.querySelectorAll(arguments[0])[1]).direction"
    assert browser.run(direction, "#requests li:nth-child(3) pre") == "rtl"
    assert browser.run(direction, "#requests li:nth-child(4) pre") == "ltr"
    browser.shows("#requests li:nth-child(2)", "Shown are the first 16384 of 1048576 bytes.\n\nmodel")
    assert browser.run("return document.title") == "Veltra gateway", "an answer became markup"
    assert "the-key" not in browser.run("return document.documentElement.innerHTML")
    assert browser.complaints() == []
    check_narrow(browser)


def check_strangers(browser, url):
    """A page from elsewhere, even one whose name leads to loopback, reaches nothing."""
    assert browser.complaints() == []
    browser.open(url.replace("127.0.0.1", "elsewhere.example") + "/")
    browser.shows("body", "403000")
    browser.command("POST", "/execute/async", {"args": [url], "script": """
        const [url, done] = arguments;
        Promise.allSettled(['/reached', '/control/faults'].map((path) =>
            fetch(url + path, {method: 'POST', mode: 'no-cors', body: '{"kind":"stall"}'})))
            .then(done);"""})
    assert json.loads(http("GET", url + "/control/faults")[1])["faults"] == []
    browser.open(url + "/")
    browser.shows("#requests", "POST /reached")  # so nothing but the gateway stood in the way


def check_narrow(browser):
    browser.width_of_phone(True)
    browser.run("document.querySelectorAll('details').forEach(d => d.open = true)")
    width = browser.run("return document.documentElement.scrollWidth")
    assert width <= 360, f"the page is {width} pixels wide"
    browser.width_of_phone(False)


def check_restart(browser, program, url, first):
    """The page outlives the gateway, and forgets what the next one doesn't know."""
    first.__exit__()
    browser.shows("#live", "does not answer")
    with gateway(program, "--port", url.rsplit(":", 1)[1]):
        browser.shows("#live", "live")
        browser.shows("#no-requests", "None yet")
        assert browser.text("#requests") == ""


def give_up(*_):
    raise TimeoutError("the whole takes too long")


def main(program):
    if not (shutil.which("chromedriver") and shutil.which("chromium")):
        print("no chromium with its driver", file=sys.stderr)
        return SKIPPED
    # Earlier than the caller's own limit, which would leave the browser behind.
    signal.signal(signal.SIGALRM, give_up)
    signal.signal(signal.SIGTERM, give_up)
    signal.alarm(100)
    os.environ["VELTRA_MODEL_KEY"] = "the-key"
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder, \
            Program(["chromedriver", "--port=0"], r"successfully on port (\d+)",
                    env={**os.environ, "HOME": folder}) as driver, \
            Browser(driver.where, folder + "/profile") as browser:
        with gateway(program) as plain:
            check_requests(browser, plain.where)
            check_faults(browser, plain.where)
            check_strangers(browser, plain.where)
            check_narrow(browser)
            check_restart(browser, program, plain.where, plain)
        with ThreadingHTTPServer(("127.0.0.1", 0), Model) as model, \
                gateway(program, "--tls", "--model", "tiny",
                        "--model-url", f"http://127.0.0.1:{model.server_port}/v1") as tls:
            threading.Thread(target=model.serve_forever, daemon=True).start()
            check_model(browser, tls.where)
            model.shutdown()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
