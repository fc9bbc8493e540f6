"""Breaks the code on purpose, one place at a time, and looks whether the tests notice: see docs/testing.md."""
import argparse
import concurrent.futures
import functools
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from typing import NamedTuple

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
HOME = os.path.join(ROOT, "build", "mutation")  # copies: what is being worked on is left alone

GROUPS = {  # folders, mutants, and the least share of them, in percent, that the tests have to notice
    "library": (("common", "flash", "bridge", "neuron", "hex", "platform"), 60, 92),
    "service": (("service", "cli"), 40, 85),
}
CLI = ("cli-core", "cli-neuron", "cli-bridge", "cli-image", "cli-store", "cli-safety", "cli-map", "cli-completion",
       "cli-several", "cli-schema")
# The tests that have to notice what changes in a folder; the first folder that fits. Those in Python come in the
# order of how often they name the file.
TESTS = (
    ("platform/usb", ("usb", "library")),
    ("platform/ldv", ("usb", "library", "service")),
    ("platform/trace", ("threads", "cli-core", "cli-several")),
    ("platform", ("library", "usb", "service")),
    ("service/image", ("image", "service", "cli-image", "cli-map", "cli-safety")),
    ("service/files", ("image", "service", "cli-image", "cli-safety")),
    ("service/c", ("service",)),
    ("service/device", ("service", "threads", "cli-core", "cli-neuron", "cli-safety")),
    ("service/neuron", ("service", "cli-neuron", "cli-store")),
    ("service/bridge", ("service", "cli-bridge", "cli-store")),
    ("service/flash", ("service", "cli-safety", "cli-image", "cli-store")),
    ("service/store", ("service", "cli-store", "cli-several")),
    ("service/report", ("service", "cli-map", "cli-core", "cli-image", "cli-neuron")),
    ("service", ("service", "image", *CLI)),
    ("cli", CLI),
    ("", ("library", "service")),
)
TARGETS = ("tavo-tests", "tavo-usb-tests", "tavo-service-tests", "tavo-thread-tests", "tavo-image-tests", "tavo-util",
           "tavo-sim-run")
# Only what changed is linked anew, and only what the tests run is built.
SETTINGS = ("-DCMAKE_LINK_DEPENDS_NO_SHARED=ON", "-DTAVO_STATIC=OFF", "-DTAVO_PYTHON=OFF", "-DTAVO_DOCS=OFF")
# Text of an expression, and what takes its place.
SWAPS = ((r" == ", " != "), (r" != ", " == "), (r" < ", " <= "), (r" > ", " >= "), (r" <= ", " < "), (r" >= ", " > "),
         (r" && ", " || "), (r" \|\| ", " && "), (r" \+ (?=\w)", " - "), (r" - (?=\w)", " + "), (r" << ", " >> "),
         (r"\btrue\b", "false"), (r"\bfalse\b", "true"), (r"(?<![\w.\"%])\d+(?![\w.\"])", None))
NO_CODE = ("//", "#", "}", "static_assert", "namespace", "using", "template", "constexpr const char*")
STATEMENT = re.compile(r"^\s+(?!return\b|const\b|auto\b|static\b|throw\b)[\w.\->:\[\]*]+(\(.*\)| [|+&-]?= .*);$")
CONDITION = re.compile(r"\bif \((?!const )(.*)\) (?:return|throw|continue|break)\b")
CASE = re.compile(r"^(?:\[  FAILED  \]|FAIL:|ERROR:) (\w+[.\w/]*)", re.MULTILINE)  # as GoogleTest and unittest say it


class Mutant(NamedTuple):
    path: str
    line: int
    column: int
    old: str
    new: str

    def __str__(self):
        return f"{self.path}:{self.line}:{self.column}  {self.old.strip()} -> {self.new.strip()}"

    def inserted(self, text):
        lines = text.split("\n")
        line, at = lines[self.line - 1], self.column - 1
        lines[self.line - 1] = line[:at] + self.new + line[at + len(self.old):]
        return "\n".join(lines)


def mutants_of(path, text):
    """Every place of a file that can be broken."""
    for number, line in enumerate(text.split("\n"), 1):
        code = re.sub(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)\'', lambda quoted: "_" * len(quoted.group()), line)
        code = code.split("//")[0].rstrip()
        if not code or code.lstrip().startswith(NO_CODE):
            continue
        for pattern, new in SWAPS:
            for match in re.finditer(pattern, code):
                value = new if new is not None else str(int(match.group()) + 1)
                yield Mutant(path, number, match.start() + 1, match.group(), value)
        if STATEMENT.match(code):
            blanks = len(code) - len(code.lstrip())
            yield Mutant(path, number, blanks + 1, line[blanks:len(code)], ";")
        for match in CONDITION.finditer(code):
            yield Mutant(path, number, match.start(1) + 1, line[match.start(1):match.end(1)], "false")


class Usual(NamedTuple):
    """What a test takes without any mutant, in seconds."""

    processor: float
    wall: float


class Copy:
    """What is committed, in a folder of its own, with a folder for the tests' own files."""

    def __init__(self, number):
        self.source = os.path.join(HOME, str(number))
        self.build = os.path.join(self.source, "build", "dev")
        free = shutil.disk_usage("/dev/shm").free if os.path.isdir("/dev/shm") else 0
        self.scratch = tempfile.mkdtemp(prefix="tavo-mutation-", dir="/dev/shm" if free > 2 << 30 else None)
        self.empty()

    def empty(self):
        shutil.rmtree(self.scratch, ignore_errors=True)
        os.mkdir(self.scratch, 0o755)  # some tests do not run as root

    def prepare(self):
        """Only files that differ are written, so that what an interrupted run left is built anew."""
        if not os.path.isdir(self.source):
            subprocess.run(["git", "clone", "--quiet", "--shared", "--no-checkout", ROOT, self.source], check=True)
        for command in ("fetch --quiet origin HEAD", "checkout --quiet --force --detach FETCH_HEAD"):
            subprocess.run(["git", "-C", self.source, *command.split()], check=True)
        subprocess.run(["cmake", "--preset", "dev", *SETTINGS], cwd=self.source, check=True, stdout=subprocess.DEVNULL)
        if not self.builds("all"):  # one of the tests installs
            raise RuntimeError(f"{self.source} does not build")
        tests = subprocess.check_output(["ctest", "--test-dir", self.build, "--show-only=json-v1"])
        self.tests = {test["name"]: test for test in json.loads(tests)["tests"]}
        with open(os.path.join(self.build, "compile_commands.json"), encoding="utf-8") as file:
            self.compiled = {os.path.relpath(entry["file"], self.source) for entry in json.load(file)}

    def builds(self, *targets):
        command = ["cmake", "--build", self.build, "-j", "2", "--target", *targets]
        return subprocess.run(command, capture_output=True, check=False).returncode == 0

    def run(self, name, usual=None):
        """How the test ended, as "" when it is good, and what it took."""
        test = self.tests[name]
        properties = {entry["name"]: entry["value"] for entry in test["properties"]}
        command = test["command"] + (["--failfast"] if name.startswith("cli-") else [])
        env = {**os.environ, **dict(entry.split("=", 1) for entry in properties.get("ENVIRONMENT", [])),
               "TMPDIR": self.scratch, "TEST_TMPDIR": self.scratch, "GTEST_FAIL_FAST": "1"}
        # Processor time tells a loop without end from a busy machine; the wall's is for what waits without end.
        if usual is not None:
            command = ["sh", "-c", f"ulimit -t {10 + round(10 * usual.processor)}; exec \"$@\"", "sh", *command]
        wall = max(120, 30 * usual.wall) if usual is not None else 1800
        with tempfile.TemporaryFile() as out:
            began = time.monotonic()
            process = subprocess.Popen(command, cwd=properties["WORKING_DIRECTORY"], env=env, stdin=subprocess.DEVNULL,
                                       stdout=out, stderr=subprocess.STDOUT, start_new_session=True)
            waited = threading.Event()
            timer = threading.Timer(wall, lambda: (waited.set(), os.killpg(process.pid, signal.SIGKILL)))
            timer.start()
            _, status, usage = os.wait4(process.pid, 0)
            timer.cancel()
            process.returncode = os.waitstatus_to_exitcode(status)
            out.seek(0)
            case = CASE.search(out.read().decode(errors="replace"))
        self.empty()
        took = Usual(usage.ru_utime + usage.ru_stime, time.monotonic() - began)
        if process.returncode == 0:
            return "", took
        why = "waits without end" if waited.is_set() else case.group(1) if case else f"ends with {process.returncode}"
        return f"{name}: {why}", took

    def judge(self, mutant, usual):
        """"none" for what does not compile, "SURVIVED", or who noticed."""
        full = os.path.join(self.source, mutant.path)
        with open(full, encoding="utf-8") as file:
            text = file.read()
        try:
            with open(full, "w", encoding="utf-8") as file:
                file.write(mutant.inserted(text))
            if mutant.path not in self.compiled or not self.builds(*TARGETS):
                return "none"
            failures = (self.run(name, usual[name])[0] for name in tests_of(mutant.path))
            return next(filter(None, failures), "SURVIVED")
        finally:
            with open(full, "w", encoding="utf-8") as file:
                file.write(text)


@functools.lru_cache(maxsize=None)
def tests_of(path):
    names = next(names for folder, names in TESTS if path.startswith(folder))
    stem = os.path.splitext(os.path.basename(path))[0].lower()

    def mentions(name):
        if not name.startswith("cli-"):
            return sys.maxsize
        with open(os.path.join(ROOT, "tests", "cli", name[4:] + "Test.py"), encoding="utf-8") as file:
            return file.read().lower().count(stem)

    return sorted(names, key=mentions, reverse=True)


def shuffled(source, folders, seed):
    patterns = [f"{folder}/*.cpp" for folder in folders]
    mutants = []
    for name in sorted(subprocess.check_output(["git", "ls-files", *patterns], cwd=source, text=True).split()):
        with open(os.path.join(source, name), encoding="utf-8") as file:
            mutants += mutants_of(name, file.read())
    random.Random(seed).shuffle(mutants)
    return mutants


class Record:
    """Outcomes by mutant, kept in a file so that a run can be cut and continued."""

    def __init__(self, path):
        self.path, self.outcomes = path, {}

    def read(self):
        if os.path.exists(self.path):
            with open(self.path, encoding="utf-8") as file:
                outcomes = (line.rstrip("\n").split("\t") for line in file)
                self.outcomes = {mutant: outcome for outcome, mutant in outcomes}

    def add(self, mutant, outcome):
        self.outcomes[str(mutant)] = outcome
        print(f"{outcome:50}  {mutant}", flush=True)
        with open(self.path, "w", encoding="utf-8") as file:
            file.writelines(f"{told}\t{place}\n" for place, told in self.outcomes.items())

    def forget(self, mutants):
        for mutant in mutants:
            self.outcomes.pop(mutant, None)


def usual_times(copies, names):
    """Every test once, which also has to be good."""
    def measure(copy, some):
        times = {}
        for name in some:
            failure, times[name] = copy.run(name)
            if failure:
                raise RuntimeError(f"without any mutant, {failure}")
        return times

    with concurrent.futures.ThreadPoolExecutor() as pool:
        shares = [names[number::len(copies)] for number in range(len(copies))]
        return {name: usual for times in pool.map(measure, copies, shares) for name, usual in times.items()}


def judge_all(copies, mutants, count, record, stop):
    """The outcomes of the first count mutants that compile."""
    usual = usual_times(copies, sorted({name for mutant in mutants for name in tests_of(mutant.path)}))
    guard, waiting, outcomes, under_way = threading.Lock(), iter(mutants), [], [0]

    def work(copy):
        while not stop.is_set():
            with guard:
                mutant = next(waiting, None) if len(outcomes) + under_way[0] < count else None
                if mutant is None:
                    return
                under_way[0] += 1
            outcome = record.outcomes.get(str(mutant)) or copy.judge(mutant, usual)
            with guard:
                under_way[0] -= 1
                outcomes.extend([outcome] if outcome != "none" else [])
                record.add(mutant, outcome)

    with concurrent.futures.ThreadPoolExecutor() as pool:
        try:
            list(pool.map(work, copies))
        finally:
            stop.set()  # for the other thread, when this one was interrupted
    return outcomes


def run_group(name, copies, options, stop):
    folders, count, least = GROUPS[name]
    record = Record(os.path.join(HOME, f"{name}-{options.seed}.txt"))
    mutants = shuffled(copies[0].source, folders, options.seed)
    if options.only:
        mutants = [mutant for mutant in mutants if f"{mutant}".startswith(options.only + ":")]
    if options.keep or options.again or options.only:
        record.read()
    record.forget([str(mutant) for mutant in mutants if options.only or record.outcomes.get(str(mutant)) == "SURVIVED"
                   and options.again])
    outcomes = judge_all(copies, mutants, len(mutants) if options.only else options.count or count, record, stop)
    noticed = len(outcomes) - outcomes.count("SURVIVED")
    share = 100 * noticed / max(1, len(outcomes))
    print(f"{name}: {noticed} of {len(outcomes)} noticed, {share:.0f} % (at least {least} % wanted)", flush=True)
    return share >= least


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("groups", nargs="*", metavar="GROUP", help="library or service; both when nothing is said")
    parser.add_argument("--count", type=int, help="mutants of each group")
    parser.add_argument("--seed", type=int, default=1, help="another number gives other mutants")
    parser.add_argument("--workers", type=int, default=2, help="each with a copy of its own")
    parser.add_argument("--minutes", type=float, default=1e6, help="begin no mutant after that time")
    parser.add_argument("--continue", dest="keep", action="store_true", help="judge what the last run did not come to")
    parser.add_argument("--again", action="store_true", help="the same, and what survived")
    parser.add_argument("--only", metavar="FILE[:LINE]", help="judge every place of a file or line")
    options = parser.parse_args()
    if set(options.groups) - set(GROUPS):
        parser.error("GROUP is library or service")
    stop = threading.Event()
    timer = threading.Timer(60 * options.minutes, stop.set)
    timer.daemon = True
    timer.start()
    os.makedirs(HOME, exist_ok=True)
    copies = [Copy(1 + number) for number in range(options.workers)]
    try:
        for copy in copies:
            copy.prepare()
        return 0 if all([run_group(name, copies, options, stop) for name in options.groups or GROUPS]) else 1
    except (RuntimeError, subprocess.CalledProcessError) as error:
        sys.exit(f"mutation: {error}")
    finally:
        for copy in copies:
            shutil.rmtree(copy.scratch, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
