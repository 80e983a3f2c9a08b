#!/usr/bin/env python3
"""What the pages show is true: every block is compiled, configured or run, and links lead somewhere.

    check_docs.py COMPILER SOURCE-ROOT BUILD-FOLDER [PAGE...]

c: compiled as it stands.
cpp: a block with an #include is compiled as it stands; the other ones of a page follow each other
    inside one function.
console: the lines after "$ " and "> " go to a shell in an empty folder, whose output must be the
    other lines.
sh: runs in a copy of the tree that all of them share, where every preset is built already. What
    would take minutes, or change the machine, is replaced by STAND_INS, which have the real program
    look at its arguments; scripts run as far as they read theirs.
python: runs against a local gateway, which takes the place of https://gateway.example.
cmake: becomes a host's CMake file, configured with the prefix that an sh block before it filled.
csharp: a block with a using directive is compiled as it stands, beside the binding; the others of a page follow
    each other inside one method.
text: a drawing; what looks like a name of the code must occur there.

Besides, each record of level 4 or 5 is explained. With pages, only these are checked.
"""

import functools
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile

COMPILER = sys.argv[1]
ROOT, BUILD = (pathlib.Path(argument).resolve() for argument in sys.argv[2:4])
PROGRAMS = [str(BUILD / "tools/veltra"), str(BUILD / "tools/gateway")]
PRESETS = ["asan", "bench", "dev", "packages", "release", "tsan", "windows"]  # folders below build/
HEADERS = ["Oak/Net/HttpClientOptions.h", "Veltra/Veltra.h", "qlog/qlog.h"]
TEST_HEADERS = ["gateway/gateway.h", "gtest/gtest.h"]  # for the page whose code stands in tests

# What fragments in C# take for granted. An event is declared by what is added to it.
CSHARP_HEAD = """using System; using System.Collections.Generic; using System.Threading; using System.Threading.Tasks;
using Veltra; class Button { public event EventHandler Click { add { } remove { } } }
class Logger { public void Write(string line) { } }
static class Example { static void Show(string text) { }
static async Task Run(Session session, Dictionary<string, string> values, Button cancelButton, Logger logger) {
"""
CSHARP_TAIL = "await Task.Yield(); } }"

# Each is a shell function: `real` is the program that it stands for.
STAND_INS = {
    # Configuring: the preset, the options' form, and the names of the variables.
    "cmake": r"""
        case $1 in
          --preset)
            for argument; do
              name=${argument#-D}
              [[ $name == "$argument" ]] || grep -qE "^ *(option|set)\(${name%%[:=]*} " -r CMakeLists.txt cmake tests ||
                fail "no variable of the project: $argument"
            done
            real -N "$@" ;;
          --build) real "$@" -- -n ;;
          *) real "$@" ;;
        esac""",
    "ctest": r"""
        shown=$(real "$@" -N)
        [[ " $* " == *' --rerun-failed '* || $shown =~ 'Total Tests: '[1-9] ]] || fail "no test: $*" """,
    "clang-tidy": r"""
        [[ -f ${!#} ]] || fail "no file ${!#}"
        real "$@" --list-checks >/dev/null""",
    # Slow, and the same for every cpack; check_packages.sh looks at the dependencies.
    "dpkg-shlibdeps": '[[ $* == --version ]] && real "$@" || echo shlibs:Depends=libc6',
    "sudo": '"$@"',
    "apt-get": 'real --simulate "$@"',
    # A gateway that nothing waits for has shown what it can once it listens. No port is fixed.
    "veltra-gateway": r"""
        arguments=()
        for argument; do
          [[ ${previous:-} == --port ]] && arguments+=(0) || arguments+=("$argument")
          previous=$argument
        done
        [[ " $* " != *' --ready-file '* ]] || { real "${arguments[@]}"; exit; }
        ready=$(mktemp -u)
        (exec -a veltra-gateway "$program" "${arguments[@]}" --ready-file "$ready") & gateway=$!
        until [[ -e $ready ]]; do kill -0 $gateway || { wait $gateway; exit; }; sleep 0.05; done
        kill $gateway
        wait $gateway""",
    # An empty fuzzer under the name of a real one.
    "fuzzer": r"""
        [[ -f ${!#} ]] || fail "no file ${!#}"
        ! real "$@" -help=1 2>&1 | grep unrecognized""",
}

# With the block in a file of its folder.
PYTHON = """
    veltra-gateway --key demo:secret --ready-file url >/dev/null &
    until [ -e url ]; do sleep 0.1; done
    sed -i "s,https://gateway.example,$(<url)," block.py
    exec python3 block.py"""

status = 0


def complain(page, text):
    global status
    status = 1
    print(f"{page.relative_to(ROOT)}: {text}", file=sys.stderr)


def run(command, cwd, *, path=(), text=None, **variables):
    """Gives how the command ended, and all that it printed; whatever it started ends with it."""
    environment = {**os.environ, "TZ": "UTC", **variables}
    environment["PATH"] = ":".join([*map(str, path), os.environ["PATH"]])
    environment.pop("WINEPREFIX", None)  # what a block starts stays in its own tree
    with tempfile.TemporaryFile() as shown:
        process = subprocess.Popen(command, cwd=cwd, env=environment, stdin=subprocess.PIPE, stdout=shown,
                                   stderr=subprocess.STDOUT, start_new_session=True)
        try:
            process.communicate((text or "").encode(), timeout=100)
        except subprocess.TimeoutExpired:
            shown.write(b"it did not end\n")
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()
        shown.seek(0)
        return process.returncode, shown.read().decode(errors="replace")


def write(file, text):
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(text)
    file.chmod(0o755)


def stand_in(name, program):
    return (f"#!/usr/bin/env bash\nset -euo pipefail\nprogram={program}\n" 'real() { "$program" "$@"; }\n'
            'fail() { printf "%s\\n" "$*" >&2; exit 1; }\n' + STAND_INS[name])


class Sandbox:
    """A copy of the tree with stand-ins in front of the programs, made when first needed."""

    def __init__(self, folder):
        self.tree, self.home, self.bin = folder / "tree", folder / "home", folder / "bin"

    def make(self):
        if self.tree.exists():
            return
        shutil.copytree(ROOT, self.tree, ignore=lambda at, names: [
            name for name in names if name == ".git" or (at == str(ROOT) and name.startswith("build"))])
        for name in STAND_INS:
            program = shutil.which(name, path=":".join([*PROGRAMS, os.environ["PATH"]]))
            write(self.bin / name, stand_in(name, program))
        self.cut_scripts()
        self.add_builds()
        shutil.copy(ROOT / "examples/quickstart/quickstart.cpp", self.tree)
        shutil.copy(BUILD / "tests/liblifetime_plugin.so", self.tree / "plugin.so")
        self.home.mkdir()

    def cut_scripts(self):
        """A script reads its arguments before it looks for packages: there it ends."""
        with open(self.tree / "scripts/common.sh", "a", encoding="utf-8") as common:
            common.write("install_missing() { exit 0; }\n")

    def add_builds(self):
        """The folders are the sandbox's own, so that nothing writes into the real one."""
        fuzzer = self.bin / "empty-fuzzer"
        run(["clang++", "-fsanitize=fuzzer", "-x", "c++", "-", "-o", fuzzer], self.bin,
            text='extern "C" int LLVMFuzzerTestOneInput(const char*, unsigned long) { return 0; }')
        for preset in PRESETS:
            folder = self.tree / "build" / preset
            folder.mkdir(parents=True)
            # New and without a log it asks for no configuration before it says which targets there are.
            shutil.copyfile(BUILD / "build.ninja", folder / "build.ninja")
            for entry in BUILD.iterdir():
                if entry.name not in ("Testing", "fuzz", "build.ninja", ".ninja_log"):
                    (folder / entry.name).symlink_to(entry)
        for source in ROOT.glob("fuzz/fuzz_*.cpp"):
            write(self.tree / "build/asan/fuzz" / source.stem, stand_in("fuzzer", fuzzer))
        for corpus in self.tree.glob("fuzz/corpus/*/"):
            write(corpus / "crash-0", "")

    def run(self, command, text=None):
        packages = ":".join(map(str, self.home.glob("veltra/lib*/**/pkgconfig")))
        return run(command, self.tree, path=[self.bin, *PROGRAMS], text=text, HOME=str(self.home),
                   PKG_CONFIG_PATH=packages, CMAKE_PREFIX_PATH=str(self.home / "veltra"))


class Page:
    """The blocks of a page, in their order."""

    def __init__(self, file, folder, sandbox):
        self.file, self.folder, self.sandbox, self.fragments = file, folder, sandbox, []
        self.csharp_fragments = []

    def check(self):
        text = self.file.read_text(encoding="utf-8")
        for block in re.finditer(r"^( *)```(.*)\n((?:.*\n)*?)\1```$", text, re.M):
            line = text.count("\n", 0, block.start()) + 1
            check = getattr(self, "check_" + block[2], None)
            problem = check(block[3]) if check else f"nothing checks the language '{block[2]}'"
            if problem:
                complain(self.file, f"the block at line {line}:\n{problem}")
        if self.fragments:
            headers = TEST_HEADERS if self.stands_in_tests() else HEADERS
            includes = "".join(f"#include <{header}>\n" for header in headers)
            problem = self.compile(includes + "void Example() {" + "".join(self.fragments) + "}\n")
            if problem:
                complain(self.file, f"the cpp blocks without #include:\n{problem}")
        if self.csharp_fragments:
            problem = self.compile_csharp(CSHARP_HEAD + "".join(self.csharp_fragments) + CSHARP_TAIL)
            if problem:
                complain(self.file, f"the csharp blocks without using directives:\n{problem}")
        self.check_links(re.sub(r"^```.*?^```", "", text, flags=re.M | re.S))
        for script in sorted(set(re.findall(r"\b(scripts/[a-z_-]+|tests/\w+\.(?:sh|py)|\.ci/\w+)", text))):
            if not os.access(ROOT / script, os.X_OK):
                complain(self.file, f"there is no {script}")

    def stands_in_tests(self):
        return self.file.name == "gateway.md"

    def compile(self, program):
        folders = [f"-I{ROOT / folder}" for folder in ("include", "platform/include", "tools")]
        standard = "-std=c++20" if self.stands_in_tests() else "-std=c++11"
        failed, shown = run([COMPILER, "-x", "c++", standard, "-fsyntax-only", "-Wall", "-Wextra",
                             "-Wpedantic", "-Werror", "-Wno-unused-variable", *folders, "-"],
                            self.folder, text=program)
        return shown if failed else ""

    def check_c(self, block):
        failed, shown = run(["cc", "-x", "c", "-std=c99", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
                             f"-I{ROOT / 'include'}", "-"], self.folder, text=block)
        return shown if failed else ""

    def check_cpp(self, block):
        if re.search("^#include", block, re.M):
            return self.compile(block)
        self.fragments.append(block)
        return ""

    def compile_csharp(self, program):
        write(self.folder / "block.cs", program)
        failed, shown = run(["mcs", "-warn:4", "-warnaserror", "-target:library", "-out:block.dll", "block.cs",
                             ROOT / "bindings/dotnet/Veltra.cs"], self.folder)
        return shown if failed else ""

    def check_csharp(self, block):
        if re.search("^using [A-Z]", block, re.M):
            return self.compile_csharp(block)
        self.csharp_fragments.append(block)
        return ""

    def check_console(self, block):
        commands = "".join(re.findall(r"^[$>] (.*\n)", block, re.M))
        expected = re.sub(r"^[$>] .*\n", "", block, flags=re.M)
        with tempfile.TemporaryDirectory(dir=self.folder) as folder:
            _, shown = run(["bash", "-c", commands], folder, path=PROGRAMS)
        return "" if shown.rstrip("\n") == expected.rstrip("\n") else f"it printed:\n{shown}"

    def check_sh(self, block):
        self.sandbox.make()
        failed, shown = self.sandbox.run(["bash", "-xeuo", "pipefail", "-c", block])
        # A filter that leaves no test is no failure to the program.
        return shown[-3000:] if failed or "Running 0 tests" in shown else ""

    def check_python(self, block):
        with tempfile.TemporaryDirectory(dir=self.folder) as folder:
            write(pathlib.Path(folder) / "block.py", block)
            failed, shown = run(["bash", "-c", PYTHON], folder, path=PROGRAMS, PYTHONDONTWRITEBYTECODE="1",
                                PYTHONPATH=str(ROOT / "bindings/python"),
                                VELTRA_LIBRARY=str(BUILD / "src/libveltra.so"))
        return shown if failed else ""

    def check_cmake(self, block):
        self.sandbox.make()
        host = pathlib.Path(tempfile.mkdtemp(dir=self.folder))
        (host / "third_party").mkdir()
        (host / "third_party/veltra").symlink_to(self.sandbox.tree)
        write(host / "quickstart.cpp", (ROOT / "examples/quickstart/quickstart.cpp").read_text())
        write(host / "CMakeLists.txt", "cmake_minimum_required(VERSION 3.22)\nproject(host LANGUAGES CXX)\n"
              "add_executable(quickstart quickstart.cpp)\n" + block +
              "if(NOT TARGET Veltra::Veltra)\n  message(FATAL_ERROR \"no Veltra::Veltra\")\nendif()\n")
        failed, shown = self.sandbox.run(["cmake", "-S", host, "-B", host / "out", "-G", "Ninja",
                                          "-DCMAKE_CXX_COMPILER=" + COMPILER])
        return shown if failed else ""

    def check_text(self, block):
        # In turn: inner capitals, underscores, codes, calls, paths.
        names = set(re.findall(r"\b(?:[A-Z]*[a-z]+[A-Z]\w*|\w+_\w*|[A-Z]{3,}\d+|\w+(?=\())"
                               r"|\b\w+(?:/\w+)+(?:\.h)?", block))
        if not names:
            return "nothing in it can be checked"
        unknown = [name for name in sorted(names) if not in_code(name)]
        return "the code doesn't know " + ", ".join(unknown) if unknown else ""

    def check_links(self, text):
        for link in re.findall(r"\]\(([^) ]+)\)", text):
            if "://" in link:
                continue
            name, _, heading = link.partition("#")
            file = self.file.parent / name if name else self.file
            if not file.exists():
                complain(self.file, f"there is no {link}")
            elif heading and heading not in anchors(file):
                complain(self.file, f"no heading for {link}")


def anchors(file):
    titles = re.findall(r"^#+ (.*)", file.read_text(encoding="utf-8"), re.M)
    return [re.sub("[^a-z0-9 _-]", "", title.lower()).replace(" ", "-") for title in titles]


@functools.lru_cache
def code():
    files = [file for at in ("include", "src", "platform") for file in (ROOT / at).rglob("*.*")]
    return "\n".join(file.read_text(encoding="utf-8") for file in files if file.is_file())


def in_code(name):
    known = any((ROOT / at / name).exists() for at in ("", "include", "platform/include"))
    return known or re.search(rf"\b{re.escape(name)}\b", code())


def check_records():
    """Of a record, what stands before its first value."""
    page = ROOT / "docs/errors.md"
    explained = page.read_text(encoding="utf-8")
    source = " ".join(file.read_text(encoding="utf-8") for file in (ROOT / "src").glob("*.cpp"))
    for text in sorted(set(re.findall(r'VELTRA_LOG\([a-z.]+,\s+[45],\s+"([^"%]*)', source))):
        if "`" + re.sub("[=: ]$", "", text) not in explained:
            complain(page, f"nothing on the record '{text}'")


def main():
    pages = [pathlib.Path(page).resolve() for page in sys.argv[4:]]
    pages = pages or [*ROOT.glob("*.md"), *sorted(ROOT.glob("docs/**/*.md")), *ROOT.glob("examples/*.md"),
                      *ROOT.glob("bindings/*/*.md")]
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        sandbox = Sandbox(folder)
        for page in pages:
            Page(page, folder, sandbox).check()
    check_records()
    return status


sys.exit(main())
