#!/usr/bin/env python3
"""Turns what the benchmark programs wrote into one table.

report.py RESULTS_FOLDER [--write PAGE]: reads every PROGRAM.json of the folder, writes them together
with the machine's description to results.json there, and shows the table. With --write it puts the
table and the machine into the page, between the markers that it holds.
"""

import argparse
import json
import pathlib
import platform
import re
import subprocess
import sys


def microseconds(value):
    return f"{value / 1e3:.1f} µs" if value < 1e6 else f"{value / 1e6:.2f} ms"


def nanoseconds(value):
    return f"{value:.1f} ns"


def kib(value):
    return f"{value / 1024:.0f} KiB"


def per_second(value):
    return f"{value:.0f}/s"


def times(value):
    return f"{value:.2f}"


def number(value):
    return f"{value:.1f}".removesuffix(".0")


class Row:
    """One line of the table: which figure, how it is shown, and what it has to reach."""

    def __init__(self, what, benchmark, baseline, shown, *, ratio="ratio", inverse=False,
                 at_most=None, at_least=None, goal="", unit="", counter="subject",
                 beside="baseline", show_ratio=times):
        self.what, self.benchmark, self.baseline, self.shown = what, benchmark, baseline, shown
        self.ratio, self.inverse, self.unit = ratio, inverse, unit
        self.at_most, self.at_least = at_most, at_least
        self.goal = goal or (f"at most {at_most:g}{unit}" if at_most is not None else
                             f"at least {at_least:g}{unit}" if at_least is not None else "shown")
        self.counter, self.beside, self.show_ratio = counter, beside, show_ratio

    def cells(self, results):
        figures = results.get(self.benchmark)
        if figures is None:
            return [self.what, "not run", self.baseline, "", "", self.goal, ""]
        beside = figures.get(self.beside) if self.beside else None
        ratio = figures.get(self.ratio) if self.ratio else None
        if ratio is not None and self.inverse:
            ratio = 1 / ratio
        return [
            self.what,
            self.shown(figures[self.counter]),
            self.baseline,
            "" if beside is None else self.shown(beside),
            "" if ratio is None else self.show_ratio(ratio),
            self.goal,
            self.verdict(ratio),
        ]

    def verdict(self, value):
        if value is None or (self.at_most is None and self.at_least is None):
            return ""
        reached = (self.at_most is None or value <= self.at_most) and \
                  (self.at_least is None or value >= self.at_least)
        return "yes" if reached else "**no**"


kept = "loop on one kept libcurl handle"
json_parse = "RapidJSON's own DOM parse, same flags"
ROWS = [
    Row("query over HTTP, p50", "QueryBesideKeptHandle/http", kept, microseconds, at_most=1.10),
    Row("query over HTTPS, p50", "QueryBesideKeptHandle/https", kept, microseconds, at_most=1.05),
    Row("… with a list of 10,000 phrase keys", "QueryBesideKeptHandle/screened", kept,
        microseconds),
    Row("query over HTTP by the C interface, p50", "QueryInCBesideCpp", "the same from C++",
        microseconds, at_most=1.02),
    Row("query over HTTPS, p50, times as fast", "QueryBesideConnectionPerQuery",
        "a connection per query", microseconds, inverse=True, at_least=20),
    Row("16 threads over HTTPS", "QueriesPerSecond/16", "16 such loops", per_second,
        at_least=0.95),
    Row("processor time of the layer per query", "LayerOfQuery", "that of the exchange",
        microseconds, ratio="subject", at_most=15000, goal="under 15 µs",
        show_ratio=lambda _: ""),
    Row("… body and request", "LayerOfQuery", "", microseconds, counter="body", beside=None,
        ratio=None),
    Row("… screening", "LayerOfQuery", "", microseconds, counter="screening", beside=None,
        ratio=None),
    Row("… parse", "LayerOfQuery", "", microseconds, counter="parse", beside=None, ratio=None),
    Row("… result", "LayerOfQuery", "", microseconds, counter="result", beside=None, ratio=None),
    Row("… of all that, logging that is off", "LayerOfQuery", "", nanoseconds, counter="log",
        beside=None, ratio=None),
    Row("allocations of the layer per query", "LayerOfQuery", "", number, counter="allocations",
        beside=None, ratio=None),
    Row("allocations of the whole library per query", "AllocationsOfQuery", "", number,
        counter="allocations", beside=None, ratio=None),
    Row("reading 1 MiB, plain text", "ReadingResult/plain", json_parse, microseconds,
        at_most=1.15),
    Row("reading 1 MiB, many escapes", "ReadingResult/escaped", json_parse, microseconds,
        at_most=1.15),
    Row("reading 1 MiB, Chinese text", "ReadingResult/chinese", json_parse, microseconds,
        at_most=1.15),
    Row("reading 1 MiB, many small values", "ReadingResult/values", json_parse, microseconds,
        at_most=1.15),
    Row("screening 10 KiB, times as fast", "ScreeningBesidePlainSteps", "the plain steps",
        microseconds, inverse=True, at_least=5),
    Row("screening 10 KiB", "ScreeningBesideBareHash", "the bare hash of each phrase",
        microseconds, at_most=1.5),
    Row("screening on 16 threads", "ScreeningOnSixteenThreads", "one thread, times the cores",
        per_second, at_least=0.9),
    Row("… how far the machine itself is from linear", "ScreeningOnSixteenThreads",
        "the bare hash on 16 threads and on one", number, counter="cores", beside=None,
        ratio="machine_ratio", goal="shown (cores, ratio)"),
    Row("`ConvertTime`, five expressions, times as fast", "ConvertingTime",
        "the same steps, `std::regex` compiled per call", microseconds, inverse=True,
        at_least=30),
    Row("allocations of a conversion", "ConvertingTime", "", number, counter="allocations",
        beside=None, ratio="allocations", at_most=2, goal="2: terms, result",
        show_ratio=lambda _: ""),
    Row("`base64_decode`, 10 MiB", "DecodingPicture", "one `EVP_DecodeBlock`", microseconds,
        at_most=1.5),
    Row("`qlog_write` below the level", "RecordBelowLevel", "an empty call", nanoseconds,
        ratio="difference", at_most=5, unit=" ns more",
        show_ratio=lambda value: f"+{value:.1f} ns"),
    Row("processor time of an idle monitor per hour", "MonitorOfIdleHost", "", microseconds,
        beside=None, ratio=None),
    Row("library on disk, stripped", "SizeStripped", "", kib, beside=None, ratio=None),
    Row("start of a host that only links it", "StartingHost", "a host on libcurl and RapidJSON",
        microseconds),
    Row("resident memory after the first query", "MemoryAfterFirstQuery",
        "a host on libcurl and RapidJSON", kib),
    Row("… of that its own, not file-backed", "MemoryAfterFirstQuery",
        "a host on libcurl and RapidJSON", kib, counter="subject_own", beside="baseline_own",
        ratio=None),
]
HEAD = ["what", "figure", "beside", "its figure", "ratio", "to reach", "reached"]


def name_of(benchmark):
    """The benchmark's name without the settings that Google Benchmark appends to it."""
    return re.sub(r"/(manual_time|iterations:\d+|real_time)", "", benchmark)


def read_results(folder):
    results = {}
    for path in sorted(folder.glob("*_bench.json")):
        for entry in json.loads(path.read_text())["benchmarks"]:
            if entry.get("error_occurred"):
                sys.exit(f"{path.name}: {entry['name']}: {entry['error_message']}")
            results[name_of(entry["name"])] = entry
    return results


def said_by(*command):
    try:
        return subprocess.run(command, capture_output=True, text=True, check=True).stdout
    except (OSError, subprocess.CalledProcessError):
        return ""


def version_of(package):
    return said_by("dpkg-query", "--show", "--showformat=${Version}", package) or "unknown"


def machine():
    fields = dict(re.findall(r"^(.*\S)\s*:\s*(.*)$", pathlib.Path("/proc/cpuinfo").read_text(),
                             re.MULTILINE))
    cores = pathlib.Path("/proc/cpuinfo").read_text().count("processor\t")
    memory = re.search(r"MemTotal:\s*(\d+)", pathlib.Path("/proc/meminfo").read_text()).group(1)
    return {
        "processor": f"{fields.get('model name', 'unknown')}, {cores} cores at "
                     f"{fields.get('cpu MHz', '?')} MHz, {fields.get('cache size', '?')} cache a core",
        "virtual": "hypervisor" in fields.get("flags", ""),
        "memory": f"{int(memory) / 1048576:.1f} GiB",
        "system": f"Debian {pathlib.Path('/etc/debian_version').read_text().strip()}, "
                  f"Linux {platform.release()}",
        "compiler": said_by("g++", "--version").splitlines()[0],
        "libraries": f"libcurl {version_of('libcurl4')}, OpenSSL {version_of('libssl3')}, "
                     f"RapidJSON {version_of('rapidjson-dev')}, "
                     f"Google Benchmark {version_of('libbenchmark-dev')}",
    }


def machine_text(description):
    kind = " (a virtual machine)" if description["virtual"] else ""
    return (f"{description['processor']}{kind}; {description['memory']} of memory; "
            f"{description['system']}; {description['compiler']}, preset `release`; "
            f"{description['libraries']}.")


def table(results):
    lines = [HEAD, ["---"] * len(HEAD)] + [row.cells(results) for row in ROWS]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def aligned(results):
    """The same table for a terminal."""
    lines = [HEAD] + [row.cells(results) for row in ROWS]
    widths = [max(len(line[column]) for line in lines) for column in range(len(HEAD))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
                     for line in lines).replace("**", "")


def put_between(page, marker, text):
    begin, end = f"<!-- {marker}: written by scripts/bench --write -->", f"<!-- end of {marker} -->"
    before, found, rest = page.partition(begin)
    _, closed, after = rest.partition(end)
    if not found or not closed:
        sys.exit(f"the page has no place for the {marker}")
    return f"{before}{begin}\n{text}\n{end}{after}"


def main():
    parser = argparse.ArgumentParser(description="Turns the benchmarks' results into one table.")
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--write", type=pathlib.Path, metavar="PAGE")
    options = parser.parse_args()

    results = read_results(options.folder)
    description = machine()
    (options.folder / "results.json").write_text(
        json.dumps({"machine": description, "benchmarks": results}, indent=1) + "\n")
    print(aligned(results))
    if options.write:
        page = options.write.read_text()
        page = put_between(page, "table", table(results))
        page = put_between(page, "machine", machine_text(description))
        options.write.write_text(page)


if __name__ == "__main__":
    main()
