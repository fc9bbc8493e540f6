"""Breaks the code on purpose, one place at a time, and looks whether the tests notice: see docs/testing.md."""
import argparse
import os
import random
import re
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SOURCE = os.path.join(ROOT, "build", "mutation")  # a copy: what is being worked on is left alone
BUILD = os.path.join(SOURCE, "build", "dev")
TEST_SECONDS = 300

GROUPS = {  # folders, mutants, and the least share of them, in percent, that the tests have to notice
    "library": (("common", "flash", "bridge", "neuron", "hex", "platform"), 60, 92),
    "service": (("service", "cli"), 40, 85),
}
# What a folder's tests need built, and their names; the first folder that fits, the likeliest test first.
TESTS = (
    ("platform/usb", ("tavo-usb-tests", "tavo-tests"), ("usb", "library")),
    ("platform/ldv", ("tavo-usb-tests",), ("usb",)),
    ("platform/trace", ("tavo-util", "tavo-sim-run"), ("cli-core", "cli-safety")),
    ("platform", ("tavo-tests", "tavo-usb-tests"), ("library", "usb")),
    ("service/image", ("tavo-image-tests", "tavo-service-tests"), ("image", "service")),
    ("service/files", ("tavo-image-tests", "tavo-service-tests"), ("image", "service")),
    ("service/neuron", ("tavo-service-tests", "tavo-util", "tavo-sim-run"), ("service", "cli-neuron")),
    ("service/bridge", ("tavo-service-tests", "tavo-util", "tavo-sim-run"), ("service", "cli-bridge")),
    ("service", ("tavo-service-tests", "tavo-util", "tavo-sim-run"), ("service", "cli-safety", "cli-image")),
    ("cli", ("tavo-util", "tavo-sim-run"),
     ("cli-core", "cli-image", "cli-bridge", "cli-neuron", "cli-safety", "cli-completion", "cli-map", "cli-several")),
    ("", ("tavo-tests",), ("library",)),
)
# Text of an expression, and what takes its place.
SWAPS = ((r" == ", " != "), (r" != ", " == "), (r" < ", " <= "), (r" > ", " >= "), (r" <= ", " < "), (r" >= ", " > "),
         (r" && ", " || "), (r" \|\| ", " && "), (r" \+ (?=\w)", " - "), (r" - (?=\w)", " + "), (r" << ", " >> "),
         (r"\btrue\b", "false"), (r"\bfalse\b", "true"), (r"(?<![\w.\"%])\d+(?![\w.\"])", None))
NO_CODE = ("//", "#", "}", "static_assert", "namespace", "using", "template", "constexpr const char*")
STATEMENT = re.compile(r"^\s+(?!return\b|const\b|auto\b|static\b|throw\b)[\w.\->:\[\]*]+(\(.*\)| [|+&-]?= .*);$")
CONDITION = re.compile(r"\bif \((?!const )(.*)\) (?:return|throw|continue|break)\b")


def mutants_of(path):
    """(path, offset, text, replacement) of every place that can be broken."""
    found = []
    with open(os.path.join(SOURCE, path), encoding="utf-8") as file:
        text = file.read()
    start = 0
    for line in text.split("\n"):
        code = re.sub(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)\'', lambda quoted: "_" * len(quoted.group()), line)
        code = code.split("//")[0].rstrip()
        if code and not code.lstrip().startswith(NO_CODE):
            for pattern, new in SWAPS:
                for match in re.finditer(pattern, code):
                    value = new if new is not None else str(int(match.group()) + 1)
                    found.append((path, start + match.start(), match.group(), value))
            if STATEMENT.match(code):
                blanks = len(code) - len(code.lstrip())
                found.append((path, start + blanks, line[blanks:len(code)], ";"))
            for match in CONDITION.finditer(code):
                found.append((path, start + match.start(1), line[match.start(1):match.end(1)], "false"))
        start += len(line) + 1
    return found


def sample(folders, count, seed):
    names = subprocess.run(["git", "ls-files", "--"] + [f"{folder}/*.cpp" for folder in folders], cwd=ROOT, check=True,
                           capture_output=True, text=True).stdout.split()
    places = [place for name in sorted(names) if os.path.exists(os.path.join(SOURCE, name))
              for place in mutants_of(name)]
    return random.Random(seed).sample(places, min(count, len(places)))


def build(targets):
    return subprocess.run(["cmake", "--build", BUILD, "--target", *targets], capture_output=True, check=False).returncode


def noticing_test(names):
    """The first test that fails, or nothing."""
    for name in names:
        run = subprocess.run(["ctest", "--test-dir", BUILD, "-R", f"^{name}$", "--no-tests=error", "--timeout",
                              str(TEST_SECONDS)], env={**os.environ, "GTEST_FAIL_FAST": "1"}, capture_output=True, check=False)
        if run.returncode != 0:
            return name
    return ""


def tests_of(path):
    return next((targets, names) for folder, targets, names in TESTS if path.startswith(folder))


def judge(mutant):
    path, offset, old, new = mutant
    full = os.path.join(SOURCE, path)
    with open(full, encoding="utf-8") as file:
        text = file.read()
    targets, names = tests_of(path)
    try:
        with open(full, "w", encoding="utf-8") as file:
            file.write(text[:offset] + new + text[offset + len(old):])
        if build(targets) != 0:
            return "none"  # does not compile: no mutant
        name = noticing_test(names)
        return f"noticed by {name}" if name else "SURVIVED"
    finally:
        with open(full, "w", encoding="utf-8") as file:
            file.write(text)


def run_group(name, mutants, least, until):
    noticed, survived = 0, 0
    for mutant in mutants:
        if time.time() > until:
            print(f"{name}: stopped by --minutes", flush=True)
            break
        path, offset, old, new = mutant
        with open(os.path.join(SOURCE, path), encoding="utf-8") as file:
            line = file.read().count("\n", 0, offset) + 1
        outcome = judge(mutant)
        print(f"{outcome:22} {path}:{line}  {old.strip()} -> {new.strip()}", flush=True)
        noticed += outcome.startswith("noticed")
        survived += outcome == "SURVIVED"
    judged = noticed + survived
    share = 100 * noticed / judged if judged else 0
    print(f"{name}: {noticed} of {judged} noticed, {share:.0f} % (at least {least} % wanted)", flush=True)
    return share >= least


def prepare():
    """A fresh copy of what is committed, built and with every test good."""
    os.makedirs(SOURCE, exist_ok=True)
    archive = subprocess.Popen(["git", "archive", "HEAD"], cwd=ROOT, stdout=subprocess.PIPE)
    subprocess.run(["tar", "x", "-C", SOURCE], stdin=archive.stdout, check=True)
    if archive.wait() != 0:
        sys.exit("mutation: git archive failed")
    subprocess.run(["cmake", "--preset", "dev"], cwd=SOURCE, check=True, stdout=subprocess.DEVNULL)
    targets = sorted({target for _, targets, _ in TESTS for target in targets})
    subprocess.run(["cmake", "--build", BUILD, "--target", *targets], check=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("groups", nargs="*", metavar="GROUP", help="library or service; both when nothing is said")
    parser.add_argument("--count", type=int, help="mutants of each group")
    parser.add_argument("--seed", type=int, default=1, help="another number gives other mutants")
    parser.add_argument("--minutes", type=float, default=1e6, help="begin no mutant after that time")
    options = parser.parse_args()
    until = time.time() + 60 * options.minutes
    if set(options.groups) - set(GROUPS):
        parser.error("GROUP is library or service")
    prepare()
    good = True
    for name in options.groups or GROUPS:
        folders, count, least = GROUPS[name]
        for test in sorted({test for folder in folders for test in tests_of(folder)[1]}):
            if noticing_test([test]):
                sys.exit(f"mutation: the test {test} fails without any mutant")
        good &= run_group(name, sample(folders, options.count or count, options.seed), least, until)
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
