#!/usr/bin/env python3
"""What a gateway must bear from a fleet of hosts: a simulation by the library's own rules.

    fleet.py --table                       figures for a thousand, a hundred thousand and a million hosts
    fleet.py --plot FILE.svg               requests per second over outages of ten minutes
    fleet.py --scenario NAME [--hosts N]   requests per second of one scenario, minute by minute
    fleet.py --check FLEET_HOST            200 real hosts against a counting server; takes six minutes

The constants are read from the source. --table fails if a formula is off the simulation by more than 5 %,
--check if the real hosts' counts are.

Hosts don't affect one another, so a sample of the fleet is simulated and each host of it stands for many.
"""

from __future__ import annotations

import argparse
import asyncio
import bisect
import heapq
import itertools
import json
import math
import os
import pathlib
import re
import sys
from array import array
from typing import Callable, Dict, Generator, List, NamedTuple, Optional, Sequence, Tuple, TypeVar, Union


# --- the library's rules -------------------------------------------------------------------------

def rule(file: str, name: str, unit: float = 1) -> float:
    """The constant of that name, from the library's source; of a time, in seconds by that unit."""
    text = (pathlib.Path(__file__).resolve().parents[1] / file).read_text(encoding="utf-8")
    found = re.search(rf"\b{name}(?: = |{{)([\d UL*]+)[;}}]", text)
    if not found:
        raise ValueError(f"no value of {name} in {file}")
    return math.prod(float(factor.rstrip("UL")) for factor in found[1].split(" * ")) * unit


MILLISECOND, MINUTE = 0.001, 60.0
PROBE_INTERVAL = rule("src/Monitor.h", "checkIntervalMs_", MILLISECOND)  # from the end of a check to the next one
TOKEN_LIFETIME = rule("src/AIManager.cpp", "kTokenLifetimeMs", MILLISECOND)  # by the host's clock
RENEWAL_RETRIES = int(rule("src/AIManager.cpp", "kRenewalRetries"))  # within one check
RETRY_PAUSE = rule("src/RenewalGate.cpp", "kRetryPause", MINUTE)
ATTEMPTS = int(rule("src/GatewayCall.h", "kAttempts"))  # without a pause, until status 200
SHORT_EXCHANGE = rule("src/GatewayCall.h", "kShortExchange", MILLISECOND)  # the limit of probes and token requests
LONG_EXCHANGE = rule("platform/include/Oak/Net/HttpClientOptions.h", "totalTimeoutMs", MILLISECOND)  # of queries

EXCHANGE = 0.005                # how long an answer takes; no rule, and without weight

PROBE, LOGIN, RENEWAL, QUERY = KINDS = ("probes", "logins", "renewals", "queries")
TOKEN_ENDPOINT = (LOGIN, RENEWAL)

T = TypeVar("T")
Wait = Union[float, Tuple[float, Callable[[], bool]]]  # seconds, and what may end them early
Steps = Generator[Wait, None, T]


REFUSES, SILENT, STALLS = "refuses", "silent", "stalls"


class Outage(NamedTuple):
    """A time in which requests of these kinds get another status than 200, or no answer, or theirs at its end."""

    begin: float
    end: float
    kinds: Sequence[str]
    how: str = REFUSES


class Gateway(NamedTuple):
    """What goes wrong and when. A rejection makes all tokens void that were given out before it."""

    outages: Sequence[Outage] = ()
    rejections: Sequence[float] = ()

    def outage(self, kind: str, now: float) -> Optional[Outage]:
        for outage in self.outages:
            if outage.begin <= now < outage.end and kind in outage.kinds:
                return outage
        return None

    def epoch(self, now: float) -> int:
        """A token is good as long as this is what it was when the token was given out."""
        return bisect.bisect_right(self.rejections, now)


class Requests:
    """When the requests of each kind were sent, in order."""

    def __init__(self) -> None:
        self.times: Dict[str, array[float]] = {kind: array("d") for kind in KINDS}

    def add(self, kind: str, now: float) -> None:
        self.times[kind].append(now)

    def count(self, kind: str, begin: float, end: float) -> int:
        times = self.times[kind]
        return bisect.bisect_left(times, end) - bisect.bisect_left(times, begin)


class Thread:
    """A thread of a host. Its turn tells an entry of the queue that counts from one whose wait was ended early."""

    __slots__ = ("steps", "until", "turn")

    def __init__(self, steps: Steps[None]) -> None:
        self.steps = steps
        self.until: Optional[Callable[[], bool]] = None
        self.turn = 0


class Simulation:
    """Runs threads in the order in which their waits end."""

    def __init__(self, gateway: Gateway) -> None:
        self.gateway = gateway
        self.requests = Requests()
        self.now = 0.0
        self._queue: List[Tuple[float, int, int, Thread]] = []
        self._numbers = itertools.count()

    def start(self, at: float, steps: Steps[None]) -> Thread:
        thread = Thread(steps)
        self._queue_in(at - self.now, thread)
        return thread

    def wake(self, threads: Sequence[Thread]) -> None:
        """Ends the waits whose condition holds."""
        for thread in threads:
            if thread.until is not None and thread.until():
                self._queue_in(0, thread)

    def run(self, end: float) -> None:
        while self._queue and self._queue[0][0] < end:
            self.now, _, turn, thread = heapq.heappop(self._queue)
            if turn == thread.turn:
                self._step(thread)

    def _queue_in(self, seconds: float, thread: Thread) -> None:
        thread.until = None
        thread.turn += 1
        heapq.heappush(self._queue, (self.now + seconds, next(self._numbers), thread.turn, thread))

    def _step(self, thread: Thread) -> None:
        wait = next(thread.steps, None)
        if wait is None:
            thread.turn += 1
        elif isinstance(wait, tuple):
            seconds, until = wait
            self._queue_in(0 if until() else seconds, thread)
            thread.until = until
        else:
            self._queue_in(wait, thread)


class Host:
    """One process with the library: an access-key pair, a gateway set by Veltra_SetDomain."""

    def __init__(self, simulation: Simulation) -> None:
        self.simulation = simulation
        self.threads: List[Thread] = []
        self.usable = False           # CAIManager::llmServiceValid_
        self.epoch = -1               # stands for the token itself
        self.token_time = -math.inf   # CAIManager::tokenTime_
        self.token_valid = False      # CAIManager::tokenValid_
        self.generation = 0           # CAIManager::tokenGeneration_
        self.renewing = False         # RenewalGate::holder_
        self.outcomes = 0             # RenewalGate::outcomes_
        self.last_success = 0         # RenewalGate::lastSuccess_

    def start(self, at: float, steps: Steps[None]) -> None:
        self.threads.append(self.simulation.start(at, steps))

    def send(self, kind: str, limit: float = SHORT_EXCHANGE) -> Steps[bool]:
        """SendOnce: whether the answer has status 200."""
        now = self.simulation.now
        self.simulation.requests.add(kind, now)
        outage = self.simulation.gateway.outage(kind, now)
        if outage and outage.how != REFUSES:
            left = outage.end - now if outage.how == STALLS else math.inf
            yield min(left, limit)
            return left < limit
        yield EXCHANGE
        return outage is None

    def send_until_ok(self, kind: str, limit: float = SHORT_EXCHANGE) -> Steps[bool]:
        """SendUntilOk."""
        for _ in range(ATTEMPTS):
            if (yield from self.send(kind, limit)):
                return True
        return False

    def request_token(self, kind: str) -> Steps[bool]:
        """CAIManager::renewAuthenticationToken, with one pair and one domain; RenewalGate::Turn around it."""
        self.renewing = True
        good = yield from self.send(kind)
        if good:
            self.take_token(self.simulation.now)
        self.usable = good
        self.renewing = False
        self.outcomes += 1
        if good:
            self.last_success = self.outcomes
        self.simulation.wake(self.threads)
        return good

    def take_token(self, now: float) -> None:
        """CAIManager::Store."""
        self.epoch = self.simulation.gateway.epoch(now)
        self.token_time, self.token_valid = now, True
        self.generation += 1

    def renew_or_share(self, seen: int) -> Steps[Tuple[bool, int]]:
        """RenewalGate::RunOrShare: of the threads that want a renewal one sends, the others take its outcome."""
        if self.renewing:
            yield math.inf, lambda: not self.renewing or self.outcomes != seen
        if self.outcomes != seen:
            self.usable = self.last_success > seen
            return self.usable, self.outcomes
        good = yield from self.request_token(RENEWAL)
        return good, self.outcomes

    def check(self) -> Steps[None]:
        """CAIManager::checkTokenValidity."""
        self.usable = yield from self.send_until_ok(PROBE)
        seen = self.outcomes
        if self.token_valid and self.simulation.now - self.token_time <= TOKEN_LIFETIME:
            return
        good, seen = yield from self.renew_or_share(seen)
        for _ in range(RENEWAL_RETRIES):
            if good:
                return
            yield RETRY_PAUSE, lambda: self.last_success > seen  # RenewalGate::Pause
            good, seen = yield from self.renew_or_share(seen)

    def monitor(self) -> Steps[None]:
        """Monitor::Loop."""
        while True:
            yield from self.check()
            yield PROBE_INTERVAL

    def query(self) -> Steps[None]:
        """AISession::Run."""
        if not self.usable:
            return
        epoch, generation = self.epoch, self.generation
        if not (yield from self.send_until_ok(QUERY, LONG_EXCHANGE)):
            return
        if epoch == self.simulation.gateway.epoch(self.simulation.now):
            return
        if generation == self.generation:
            self.token_valid = False
        yield from self.check()
        yield from self.send_until_ok(QUERY, LONG_EXCHANGE)

    def program(self, pause: float) -> Steps[None]:
        """What the host itself does: a query, a pause, a query."""
        while True:
            yield from self.query()
            yield pause

    def log_in(self, pause: Optional[float]) -> Steps[None]:
        """Veltra_SetDomain and Veltra_Authentication; fleet_host.cpp does the same."""
        if not (yield from self.send_until_ok(PROBE)) or not (yield from self.request_token(LOGIN)):
            return
        now = self.simulation.now
        self.start(now, self.monitor())
        if pause is not None:
            self.start(now + pause, self.program(pause))


# --- scenarios -----------------------------------------------------------------------------------

BEGIN, END = 120.0, 720.0  # of the outages of ten minutes


class Scenario(NamedTuple):
    """What a fleet goes through. Hosts take turns with the pauses between queries; None: a host never queries."""

    title: str
    gateway: Gateway = Gateway()
    seconds: float = END + 300
    logins_within: Optional[float] = None  # None: the fleet has been running for days
    pauses: Sequence[Optional[float]] = (None,)


def gone(kinds: Sequence[str] = KINDS, how: str = REFUSES) -> Sequence[Outage]:
    return [Outage(BEGIN, END, kinds, how)]


SCENARIOS = {
    "idle": Scenario("hosts that do nothing"),
    "morning": Scenario("all hosts log in within fifteen minutes", logins_within=900),
    "rejected": Scenario("all tokens are rejected; each host queries once a minute",
                         Gateway(rejections=[BEGIN]), pauses=[60]),
    "refusing": Scenario("the gateway refuses every request for ten minutes", Gateway(gone())),
    "silent": Scenario("the gateway answers nothing for ten minutes", Gateway(gone(how=SILENT))),
    "stall": Scenario("the gateway stalls for eight seconds, then answers all that waits",
                      Gateway([Outage(BEGIN, BEGIN + 8, KINDS, STALLS)])),
    "token-endpoint": Scenario("the token endpoint is down for ten minutes", Gateway(gone(TOKEN_ENDPOINT))),
    "token-endpoint-rejected": Scenario("the token endpoint is down, and all tokens are rejected as it fails",
                                        Gateway(gone(TOKEN_ENDPOINT), [BEGIN]), pauses=[60]),
}


def spread(index: int, dimension: int) -> float:
    """Fills 0 to 1 evenly and each dimension by its own steps, so that a sample shows no chance."""
    return (0.5 + index * (0.7548776662466927, 0.5698402909980532)[dimension]) % 1


def keep_running(host: Host, index: int, count: int, pause: Optional[float]) -> None:
    """Begins with a host whose last renewal lies anywhere in the last twelve hours."""
    step = PROBE_INTERVAL + EXCHANGE
    checks_of_token = math.floor((TOKEN_LIFETIME + EXCHANGE) / step) + 1
    checks_since = 1 + math.floor(checks_of_token * (index + 0.5) / count)
    next_check = step * spread(index, 0)
    host.usable = True
    host.take_token(next_check - checks_since * step + 2 * EXCHANGE)  # by the end of a probe and a renewal
    host.start(next_check, host.monitor())
    if pause is not None:
        host.start(pause * spread(index, 1), host.program(pause))


def simulate(scenario: Scenario, count: int, end: Optional[float] = None) -> Requests:
    """All of the scenario, or what it comes to until then."""
    simulation = Simulation(scenario.gateway)
    for index in range(count):
        host = Host(simulation)
        pause = scenario.pauses[index % len(scenario.pauses)]
        if scenario.logins_within is None:
            keep_running(host, index, count, pause)
        else:
            host.start(scenario.logins_within * index / count, host.log_in(pause))
    simulation.run(scenario.seconds if end is None else end)
    return simulation.requests


# --- the table -----------------------------------------------------------------------------------

SIZES = (1_000, 100_000, 1_000_000)
SAMPLE = 4_000
TOLERANCE = 0.05


class Figure(NamedTuple):
    """A line of the table: requests per second of N hosts, and where the simulation shows them."""

    what: str
    formula: str
    scenario: str
    begin: float
    end: float
    kinds: Sequence[str]

    def per_host(self) -> float:
        terms = re.findall(r"(\d*) ?N / ([\d,]+)", self.formula)
        return sum(int(factor or 1) / int(divisor.replace(",", "")) for factor, divisor in terms)

    def simulated(self, requests: Requests, count: int) -> float:
        sent = sum(requests.count(kind, self.begin, self.end) for kind in self.kinds)
        return sent / (self.end - self.begin) / count


FIGURES = [
    Figure("probes, always", "N / 10", "idle", 0, 600, [PROBE]),
    Figure("renewals, always", "N / 43,205", "idle", 0, 600, [RENEWAL]),
    Figure("logins, when all log in within 15 minutes", "N / 900", "morning", 0, 900, [LOGIN]),
    Figure("all tokens rejected, a query a minute from each host: renewals in the minute after", "N / 60",
           "rejected", BEGIN, BEGIN + 60, [RENEWAL]),
    Figure("... all requests in that minute", "N / 10 + 4 N / 60", "rejected", BEGIN, BEGIN + 60, KINDS),
    Figure("gateway refuses everything: probes", "3 N / 10", "refusing", BEGIN + 10, END, [PROBE]),
    Figure("gateway silent: probes, mean", "3 N / 55", "silent", END - 550, END, [PROBE]),
    Figure("gateway back after either: probes", "N / 10", "refusing", END, END + 10, [PROBE]),
    Figure("gateway stalls for 8 s: probes of one second in each ten, from then on", "9 N / 10",
           "stall", BEGIN + 18, BEGIN + 19, [PROBE]),
    Figure("token endpoint down for ten minutes: token requests at its end", "13 N / 43,205",
           "token-endpoint", END - 30, END, [RENEWAL]),
    Figure("... and all tokens rejected: token requests, mean", "4 N / 190",
           "token-endpoint-rejected", END - 380, END, [RENEWAL]),
    Figure("... in the busiest minutes", "2 N / 60", "token-endpoint-rejected", BEGIN + 10, BEGIN + 60, [RENEWAL]),
    Figure("... renewals in the minute after its return", "N / 60", "token-endpoint-rejected", END, END + 60,
           [RENEWAL]),
]


def shown(value: float) -> str:
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def off(value: float, expected: float) -> float:
    """How far a value is from what was expected, as a share of that."""
    return abs(value - expected) / expected if expected else math.inf if value else 0


def print_table() -> bool:
    """Whether the formulas hold."""
    simulated: Dict[str, Requests] = {}
    good = True
    print("| requests per second | formula | " + " | ".join(f"{size:,} hosts" for size in SIZES)
          + f" | simulated, {SIZES[-1]:,} |")
    print("| --- |" + " --- |" * (len(SIZES) + 2))
    for figure in FIGURES:
        if figure.scenario not in simulated:
            end = max(other.end for other in FIGURES if other.scenario == figure.scenario)
            simulated[figure.scenario] = simulate(SCENARIOS[figure.scenario], SAMPLE, end)
        found = figure.simulated(simulated[figure.scenario], SAMPLE)
        cells = [shown(size * figure.per_host()) for size in SIZES] + [shown(SIZES[-1] * found)]
        print(f"| {figure.what} | {figure.formula} | " + " | ".join(cells) + " |", flush=True)
        if off(found, figure.per_host()) > TOLERANCE:
            print(f"off the simulation by more than {TOLERANCE:.0%}: {figure.what}", file=sys.stderr)
            good = False
    return good


def print_scenario(name: str, hosts: int) -> None:
    scenario = SCENARIOS[name]
    count = min(hosts, SAMPLE)
    requests = simulate(scenario, count)
    print(f"{scenario.title}; {hosts:,} hosts, requests per second")
    print("minute" + "".join(f"{kind:>12}" for kind in KINDS))
    for minute in range(int(scenario.seconds / 60)):
        found = [requests.count(kind, minute * 60, minute * 60 + 60) / 60 * hosts / count for kind in KINDS]
        print(f"{minute:6}" + "".join(f"{shown(rate):>12}" for rate in found))


# --- the plot ------------------------------------------------------------------------------------

PLOT_HOSTS = 100_000
PLOT_END = END + 240
BIN = 5.0
WIDTH, HEIGHT = 640, 360  # of a panel
LEFT, RIGHT, TOP, BOTTOM = 70, 20, 40, 50
COLOURS = ("#1f5fa8", "#b8561b", "#3a7d34")


class Curve(NamedTuple):
    name: str
    scenario: str
    kind: str


PANELS = {
    "The gateway is down for ten minutes": [
        Curve("probes, if it refuses everything", "refusing", PROBE),
        Curve("probes, if it answers nothing", "silent", PROBE)],
    "The token endpoint is down for ten minutes, and all tokens are rejected as it fails": [
        Curve("probes", "token-endpoint-rejected", PROBE),
        Curve("token requests", "token-endpoint-rejected", RENEWAL),
        Curve("queries", "token-endpoint-rejected", QUERY)],
}


def rates(requests: Requests, kind: str) -> List[float]:
    """Requests per second of the whole fleet, one bin after the other."""
    each = PLOT_HOSTS / SAMPLE / BIN
    return [requests.count(kind, index * BIN, (index + 1) * BIN) * each for index in range(int(PLOT_END / BIN))]


def step_for(largest: float) -> float:
    """A round step that gives four to ten marks up to `largest`."""
    power: float = 10.0 ** math.floor(math.log10(largest))
    return next(power * part for part in (0.1, 0.2, 0.5, 1.0) if largest / (power * part) <= 10)


class Panel:
    """Collects the elements of one part of the picture; `top` is where it begins."""

    def __init__(self, title: str, top: float, largest: float) -> None:
        self.top, self.largest = top, 1.25 * largest  # room for the names of the curves
        self.elements: List[str] = []
        self._outage()
        self._axes()
        self._text(WIDTH / 2, top + 20, title, extra=' font-size="14"')

    def draw(self, curve: Curve, index: int, found: Sequence[float]) -> None:
        points = " ".join(f"{self._x((place + 0.5) * BIN):.1f},{self._y(rate):.1f}" for place, rate in enumerate(found))
        self.elements.append(f'<polyline points="{points}" fill="none" stroke="{COLOURS[index]}" stroke-width="2"/>')
        self._text(WIDTH - RIGHT - 12, self.top + TOP + 14 + 16 * index, curve.name, "end", f' fill="{COLOURS[index]}"')

    def _x(self, seconds: float) -> float:
        return LEFT + seconds / PLOT_END * (WIDTH - LEFT - RIGHT)

    def _y(self, rate: float) -> float:
        return self.top + HEIGHT - BOTTOM - rate / self.largest * (HEIGHT - TOP - BOTTOM)

    def _line(self, x1: float, y1: float, x2: float, y2: float, colour: str = "#333333") -> None:
        self.elements.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}"/>')

    def _text(self, x: float, y: float, text: str, anchor: str = "middle", extra: str = "") -> None:
        self.elements.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}"{extra}>{text}</text>')

    def _outage(self) -> None:
        self.elements.append(f'<rect x="{self._x(BEGIN):.1f}" y="{self.top + TOP}" fill="#f3f3f3" '
                             f'width="{self._x(END) - self._x(BEGIN):.1f}" height="{HEIGHT - TOP - BOTTOM}"/>')

    def _axes(self) -> None:
        bottom, middle = self.top + HEIGHT - BOTTOM, self.top + (TOP + HEIGHT - BOTTOM) / 2
        step = step_for(self.largest)
        for mark in range(int(self.largest / step) + 1):
            self._line(LEFT, self._y(mark * step), WIDTH - RIGHT, self._y(mark * step), "#dddddd")
            self._text(LEFT - 6, self._y(mark * step) + 4, f"{mark * step:,.0f}", "end")
        for minute in range(-int(BEGIN / 60), int((PLOT_END - BEGIN) / 60) + 1, 2):
            x = self._x(BEGIN + 60 * minute)
            self._line(x, bottom, x, bottom + 5)
            self._text(x, bottom + 18, str(minute))
        self._line(LEFT, bottom, WIDTH - RIGHT, bottom)
        self._line(LEFT, self.top + TOP, LEFT, bottom)
        self._text((LEFT + WIDTH - RIGHT) / 2, self.top + HEIGHT - 12, "minutes since the outage began")
        self._text(16, middle, "requests per second", extra=f' transform="rotate(-90 16 {middle:.1f})"')


def draw_plot(file: pathlib.Path) -> None:
    simulated: Dict[str, Requests] = {}
    elements: List[str] = []
    for place, (title, curves) in enumerate(PANELS.items()):
        for curve in curves:
            if curve.scenario not in simulated:
                simulated[curve.scenario] = simulate(SCENARIOS[curve.scenario], SAMPLE)
        found = [rates(simulated[curve.scenario], curve.kind) for curve in curves]
        panel = Panel(title, place * HEIGHT, max(max(curve_rates) for curve_rates in found))
        for index, curve in enumerate(curves):
            panel.draw(curve, index, found[index])
        elements += panel.elements
    height = HEIGHT * len(PANELS)
    file.write_text(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" width="{WIDTH}" '
                    f'height="{height}" font-family="sans-serif" font-size="12">\n'
                    '<rect width="100%" height="100%" fill="white"/>\n' + "\n".join(elements) + "\n</svg>\n")


# --- real hosts ----------------------------------------------------------------------------------

HOSTS = 200
PHASES = {"logins": (0.0, 12.0), "calm": (12.0, 37.5), "tokens rejected": (37.5, 63.5),
          "again, token endpoint down": (63.5, 280.0), "token endpoint back": (280.0, 347.5)}
# Hosts log in within ten seconds and query every 13: where phases meet nobody queries. Nor does a query meet its host's
# own probes or renewals, which come in steps of ten seconds, so that no race decides a count.
CHECK = Scenario("what the real hosts go through",
                 Gateway([Outage(*PHASES["again, token endpoint down"], TOKEN_ENDPOINT)],
                         [PHASES["tokens rejected"][0], PHASES["again, token endpoint down"][0]]),
                 seconds=PHASES["token endpoint back"][1], logins_within=10, pauses=(13, None))

TOKEN_PATH = "/api/tmqgw/v1/token/get"
ANSWERED = {"errorCode": "0", "message": "", "data": {"resultStr": "Good morning, Ada."}}
REJECTED = {"errorCode": "500004", "message": "LAP500004 token rejected"}


class Server:
    """A gateway that does little more than count, and keeps to the scenario."""

    def __init__(self, gateway: Gateway) -> None:
        self.gateway = gateway
        self.requests = Requests()
        self.url = ""
        self.connections = self.open = self.most_open = 0
        self._began = asyncio.get_running_loop().time()
        self._known: Dict[str, bool] = {}

    def now(self) -> float:
        return asyncio.get_running_loop().time() - self._began

    async def serve(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        self.connections += 1
        self.open += 1
        self.most_open = max(self.most_open, self.open)
        try:
            while True:
                head = (await reader.readuntil(b"\r\n\r\n")).decode()
                fields = dict(line.lower().split(": ", 1) for line in head.split("\r\n")[1:] if line)
                body = await reader.readexactly(int(fields["content-length"]))
                writer.write(self._answer(head.split()[1], fields, body))
        except (asyncio.IncompleteReadError, ConnectionError):
            pass
        finally:
            self.open -= 1
            writer.close()

    def _answer(self, path: str, fields: Dict[str, str], body: bytes) -> bytes:
        now = self.now()
        kind = self._kind(path, body)
        self.requests.add(kind, now)
        if self.gateway.outage(kind, now):
            return b"HTTP/1.1 503 Service Unavailable\r\nContent-Length: 0\r\n\r\n"
        text = json.dumps(self._content(kind, fields, now))
        return f"HTTP/1.1 200 OK\r\nContent-Length: {len(text)}\r\n\r\n{text}".encode()

    def _kind(self, path: str, body: bytes) -> str:
        if path != TOKEN_PATH:
            return QUERY if body else PROBE
        key = json.loads(body)["appKey"]
        known = self._known.get(key, False)
        self._known[key] = True
        return RENEWAL if known else LOGIN

    def _content(self, kind: str, fields: Dict[str, str], now: float) -> object:
        epoch = str(self.gateway.epoch(now))
        if kind in TOKEN_ENDPOINT:
            return {"errorCode": "0", "message": "",
                    "data": {"accessToken": epoch, "expireTime": "43200", "areaDomain": self.url}}
        return ANSWERED if kind == QUERY and fields["authorization"] == "bearer " + epoch else REJECTED


async def start_hosts(program: str, server: Server, stdin: int) -> List[asyncio.subprocess.Process]:
    """Each at the moment at which the simulation has it log in."""
    hosts = []
    for index in range(HOSTS):
        await asyncio.sleep((CHECK.logins_within or 0) * index / HOSTS - server.now())
        pause = CHECK.pauses[index % len(CHECK.pauses)]
        hosts.append(await asyncio.create_subprocess_exec(program, server.url, f"host-{index}", str(pause or 0),
                                                          stdin=stdin))
    return hosts


async def end_hosts(hosts: Sequence[asyncio.subprocess.Process]) -> bool:
    """Whether each is still there, and ends well now that its input has ended."""
    good = all(host.returncode is None for host in hosts)
    for host in hosts:
        try:
            good = await asyncio.wait_for(host.wait(), 30) == 0 and good
        except asyncio.TimeoutError:
            host.kill()
            good = False
    return good


async def run_hosts(program: str) -> Tuple[Server, bool]:
    server = Server(CHECK.gateway)
    listener = await asyncio.start_server(server.serve, "127.0.0.1", 0)
    server.url = f"http://127.0.0.1:{listener.sockets[0].getsockname()[1]}"
    stdin, last_word = os.pipe()  # ends with this process, however that ends
    hosts = await start_hosts(program, server, stdin)
    await asyncio.sleep(CHECK.seconds - server.now())
    os.close(last_word)
    good = await end_hosts(hosts)
    listener.close()
    return server, good


def check(program: str) -> bool:
    """Whether the real hosts did what the simulated ones do."""
    server, good = asyncio.run(run_hosts(program))
    if not good:
        print("not all hosts kept running and ended well", file=sys.stderr)
    expected = simulate(CHECK, HOSTS)
    print(f"{'phase':27}{'requests':>10}{'simulated':>11}{'counted':>9}{'off by':>8}")
    for phase, (begin, end) in PHASES.items():
        for kind in KINDS:
            simulated, counted = expected.count(kind, begin, end), server.requests.count(kind, begin, end)
            distance = off(counted, simulated)
            print(f"{phase:27}{kind:>10}{simulated:11}{counted:9}{distance:8.1%}")
            good = good and distance <= TOLERANCE
    print(f"connections: {server.connections}, {server.most_open} at once")
    return good


# --- the command line ----------------------------------------------------------------------------

def main() -> int:
    parser = argparse.ArgumentParser(description="What a gateway must bear from a fleet of hosts.")
    action = parser.add_mutually_exclusive_group(required=True)
    action.add_argument("--table", action="store_true", help="the figures for fleets of three sizes")
    action.add_argument("--plot", type=pathlib.Path, metavar="FILE.svg", help="draw outages of ten minutes")
    action.add_argument("--scenario", choices=SCENARIOS, help="the requests of one scenario, minute by minute")
    action.add_argument("--check", metavar="FLEET_HOST", help="compare with 200 processes of this program")
    parser.add_argument("--hosts", type=int, default=100_000, help="of a scenario, %(default)s unless given")
    options = parser.parse_args()
    if options.table:
        return 0 if print_table() else 1
    if options.check:
        return 0 if check(options.check) else 1
    if options.plot:
        draw_plot(options.plot)
    if options.scenario:
        print_scenario(options.scenario, options.hosts)
    return 0


if __name__ == "__main__":
    sys.exit(main())
