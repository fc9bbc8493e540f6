"""What the README, the guides and the manual show: commands are run, in their order, and shown output must come; pictures,
names and links are those of today."""

import concurrent.futures
import glob
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

OUT = os.environ["TAVO_OUT"]
SOURCES = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


# Every command in a guide is run or stands here: a pattern for the whole line, and why it is not run here.
NOT_RUN = {
    r"sudo apt install .*|apt-get install .*": "packaging/test-packages.sh installs the packages",
    r"\./(setup|demo|test)\.sh.*|cmake --preset release .*": "a whole build: .ci/run",
    r"python3 -m venv .*|rig/bin/pip .*": "a whole build: tests/python/installed.sh",
    r"ansible-(galaxy|playbook) .*": "tests/ansible runs them on a fleet",
    r"gcc .*": "tests/consumers compiles it, by the same flags",
    r"bench/.*run\.sh .*": "minutes; the bench on the bus is a test of its own",
    r"time = .*": "a formula",
}
# Blocks in other languages than a shell's, and where they are tested.
OTHER_BLOCKS = {
    ("README.md", "cpp"): "examplesTest.py",
    ("README.md", "cmake"): "test_the_lines_for_cmake_are_those_of_a_project_that_is_built",
    ("README.md", "python"): "tests/python/test_examples.py",
    ("docs/python.md", "python"): "tests/python/test_examples.py",
    ("docs/fleet.md", "yaml"): "tests/ansible has an inventory and the role of its own",
}
MANUALS = ("docs/tavo-util.1", "docs/tavo-sim.1")


def text_of(name):
    with open(os.path.join(SOURCES, name)) as file:
        return file.read()


def guides():
    found = [each for pattern in ("*.md", "docs/*.md", "ansible/*.md", "fuzz/*.md", ".github/**/*.md")
             for each in glob.glob(pattern, root_dir=SOURCES, recursive=True, include_hidden=True)]
    return ["README.md"] + sorted(set(found) - {"README.md", "CHANGELOG.md"})


def console_steps(block):
    """(command, shown lines, exit code) of each command in a console block."""
    for part in re.split(r"^\$ ", block, flags=re.M)[1:]:
        command, *shown = part.rstrip("\n").split("\n")
        code = 0
        if shown and re.fullmatch(r"\[\d+\]", shown[-1]):
            code = int(shown.pop()[1:-1])
        yield command, shown, code


def steps(name):
    """Those of all blocks of a guide, in order. An indented block is one of commands; of YAML, items that are a text are."""
    text = text_of(name)
    for language, block, indented in re.findall(r"^```(\w*)\n(.*?)^```|(?<=\n\n)((?: {4}[^\n]*\n)+)", text, re.M | re.S):
        if language == "console":
            yield from console_steps(block)
        elif language == "sh" or indented:
            lines = (line.split("  #")[0].strip() for line in (block or indented).splitlines())
            yield from ((line, [], 0) for line in lines if line)
        elif language == "yaml" and "script:" in block:
            yield from ((line, [], 0) for line in re.findall(r"^  - (.*)$", block, re.M))
        elif (name, language) not in OTHER_BLOCKS:
            raise AssertionError(f"{name}: a block of {language or 'no language'} that no test knows:\n{block}")


def manual_steps(name):
    """The lines of a manual's EXAMPLES. On a computer without interfaces, --all finds none."""
    examples = text_of(name).split(".SH EXAMPLES\n")[1].split(".SH")[0].replace("\\-", "-")
    lines = re.findall(r"^(?:\.B )?(tavo-.*)$", examples, re.M)
    return [(line, [], 3 if "--all" in line else 0) for line in lines]


def pattern(shown):
    """A line with ... has anything there, a line of its own any lines."""
    lines = [r"(.*\n)*?" if line == "..." else ".*".join(map(re.escape, line.split("..."))) + r"\n" for line in shown]
    return "".join(lines)


class Desk:
    """A folder with the files that the guides name, and nothing remembered."""

    def __init__(self, folder, device=None):
        self.folder = folder
        self.env = {k: v for k, v in os.environ.items() if not k.startswith("TAVO_")}
        self.env.update(PATH=OUT + ":" + os.environ["PATH"], HOME=folder, XDG_STATE_HOME=folder + "/state")
        for name, seed in (("firmware", 1), ("image", 1), ("other", 2)):
            with open(self.path(name + ".bin"), "wb") as file:
                file.write(random.Random(seed).randbytes(60000))
            self.run(f"tavo-util convert {name}.bin {name}.hex")
        with open(self.path("broken.hex"), "w") as file:
            file.write(":0100000000FE\n:00000001FF\n")
        shutil.copy(self.path("image.hex"), self.path("FILE.hex"))
        os.symlink(os.path.join(OUT, "programInC"), self.path("a.out"))
        for name in ("program", "my-host-program"):
            with open(self.path(name), "w") as file:
                file.write("#!/bin/sh\nexec tavo-util --all info\n")
            os.chmod(file.name, 0o755)
        if device:
            self.env["TAVO_DEVICE"] = device

    def path(self, name):
        return os.path.join(self.folder, name)

    def run(self, line):
        return subprocess.run(["bash", "-c", line.replace("/tmp/", self.folder + "/")], cwd=self.folder, env=self.env,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)

    def fault(self, command, shown, code):
        """What is wrong with a command, if anything is."""
        exported = re.fullmatch(r"export (\w+)=(\S+)", command)
        if exported:
            self.env[exported[1]] = exported[2]
            return None
        done = self.run(command)
        if done.returncode != code:
            return f"exit code {done.returncode}, not {code}:\n{done.stdout}{done.stderr}"
        if shown and not re.fullmatch(pattern(shown), done.stdout):
            return f"shows\n{done.stdout}and not\n" + "\n".join(shown)
        return None


def work_through(name):
    """(commands run, patterns of those that were not, faults) of one guide or manual."""
    ran, left, faults = 0, set(), []
    manual = name in MANUALS
    with tempfile.TemporaryDirectory(prefix="tavo-docs-") as folder:
        desk = Desk(folder, "sim:board,pace=fast" if manual else None)
        for command, shown, code in (manual_steps if manual else steps)(name):
            reason = next((each for each in NOT_RUN if re.fullmatch(each, command)), None)
            if reason:
                left.add(reason)
                continue
            ran += 1
            fault = desk.fault(command, shown, code)
            if fault:
                faults.append(f"{name}: {command}: {fault}")
    return ran, left, faults


class Docs(unittest.TestCase):
    def desk(self):
        folder = tempfile.TemporaryDirectory(prefix="tavo-docs-")
        self.addCleanup(folder.cleanup)
        return Desk(folder.name)

    def test_what_they_show_happens(self):
        # Most of it is the interfaces' waiting.
        with concurrent.futures.ThreadPoolExecutor(6) as pool:
            ran, left, faults = zip(*pool.map(work_through, [*guides(), *MANUALS]))
        self.assertEqual(sum(faults, []), [])
        self.assertEqual(set().union(*left), set(NOT_RUN), "a reason not to run that nothing needs")
        self.assertGreater(sum(ran), 40)

    def test_the_lines_for_cmake_are_those_of_a_project_that_is_built(self):
        project = text_of("tests/consumers/CMakeLists.txt")
        find, link = re.search("```cmake\n(.*)\n(.*)\n```", text_of("README.md")).groups()
        self.assertIn(find.replace("COMPONENTS service)", "COMPONENTS api service"), project)
        self.assertIn(link.replace("(program ", "(programSafely "), project)

    def helps(self):
        """The general help, and that of each command."""
        desk = self.desk()
        general = desk.run("tavo-util --help").stdout
        commands = re.findall(r"^  ([a-z][a-z -]*[a-z])  ", general.split("Options:")[0], re.M)
        self.assertGreater(len(commands), 25)
        return general, {name: desk.run(f"tavo-util {name} --help").stdout for name in commands}

    def test_the_manual_has_the_options_of_the_help_and_no_others(self):
        general, help_of = self.helps()
        helped = set(re.findall(r"--[a-z][a-z0-9-]+", general + "".join(help_of.values())))
        self.assertEqual(set(re.findall(r"--[a-z][a-z0-9-]+", text_of("docs/tavo-util.1").replace("\\-", "-"))), helped)

    def test_commands_options_files_and_links_in_sentences_exist(self):
        general, help_of = self.helps()
        folders = {entry.name for entry in os.scandir(SOURCES) if entry.is_dir()} - {"build"}
        for name in guides():
            text = re.sub(r"^```.*?^```", "", text_of(name), flags=re.M | re.S)
            here = os.path.dirname(os.path.join(SOURCES, name))
            for link in re.findall(r"\]\((?!https?:)([^)#]+)", text):
                self.assertTrue(os.path.exists(os.path.join(here, link)), f"{name}: no {link}")
            for code in re.findall(r"`([^`\n]+)`", text):
                words = code.split()
                if words[0] == "tavo-util" and words[1:]:
                    command = next((each for each in [*help_of, "COMMAND", "config"] if f" {each} " in code + " "), None)
                    self.assertTrue(command or words[1].startswith("-"), f"{name}: {code}")
                    for option in re.findall(r"(?<=\s)--[a-z-]+", code):
                        self.assertIn(option, general + help_of.get(command, ""), f"{name}: {code}")
                elif words[0].removeprefix("./").split("/")[0] in folders and "/" in words[0].rstrip("/"):
                    some = re.sub("[A-Z]{4,}", "*", words[0]) + "*"  # cli/commands/NAME.cpp; a name without its ending
                    self.assertTrue(glob.glob(some, root_dir=SOURCES) or glob.glob(some, root_dir=here),
                                    f"{name}: no {words[0]}")

    def test_the_picture_of_the_rooms_has_those_that_there_are(self):
        shown = re.findall(r'class="room"[^>]*>([^<]+)</text>', text_of("docs/architecture.svg"))
        table = text_of("docs/architecture.md")
        for room in shown:
            self.assertTrue(os.path.exists(os.path.join(SOURCES, room)), room)
            self.assertIn(f"`{room}`", table)
        there = {os.path.dirname(path) + "/" for top in "bridge cli common flash hex neuron platform python service sim".split()
                 for path in glob.glob(top + "/**/*.[cp]*", root_dir=SOURCES, recursive=True)
                 if path.endswith((".cpp", ".py"))}
        aside = {"platform/trace/", "python/examples/"}
        self.assertEqual(there - aside - set(shown), set())

    def test_the_picture_of_the_terminal_is_what_the_tool_shows(self):
        desk = self.desk()
        again = desk.path("again.svg")
        subprocess.run([sys.executable, os.path.join(SOURCES, "docs/picture.py"), OUT, again], env=desk.env, check=True,
                       timeout=120)
        with open(again) as file:
            drawn = file.read()
        now, then = (re.sub(r"\d+\.\d s", "0.0 s", each).splitlines() for each in (drawn, text_of("docs/tavo-util.svg")))
        self.assertEqual(now, then, "draw it anew: docs/picture.py FOLDER-OF-tavo-util")


if __name__ == "__main__":
    unittest.main()
