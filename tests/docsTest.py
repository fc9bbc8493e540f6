"""The commands that the README, the guides and the manual show are run, in their order, and shown output must come."""

import glob
import os
import random
import re
import subprocess
import tempfile
import unittest

OUT = os.environ["TAVO_OUT"]
SOURCES = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def text_of(name):
    with open(os.path.join(SOURCES, name)) as file:
        return file.read()


def steps(text):
    """(command, shown lines, exit code) of each command in the console blocks."""
    for block in re.findall(r"^```console\n(.*?)^```", text, re.M | re.S):
        for part in re.split(r"^\$ ", block, flags=re.M)[1:]:
            command, *shown = part.rstrip("\n").split("\n")
            code = 0
            if shown and re.fullmatch(r"\[\d+\]", shown[-1]):
                code = int(shown.pop()[1:-1])
            yield command, shown, code


def pattern(shown):
    """A line with ... has anything there, a line of its own any lines."""
    lines = [r"(.*\n)*?" if line == "..." else ".*".join(map(re.escape, line.split("..."))) + r"\n" for line in shown]
    return "".join(lines)


class Docs(unittest.TestCase):
    def setUp(self):
        self.begin()

    def begin(self):
        """A folder with the files that the guides name, and nothing remembered."""
        folder = tempfile.TemporaryDirectory(prefix="tavo-docs-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.env = {k: v for k, v in os.environ.items() if not k.startswith("TAVO_")}
        self.env.update(PATH=OUT + ":" + os.environ["PATH"], HOME=self.folder, XDG_STATE_HOME=self.folder + "/state")
        for name, seed in (("firmware", 1), ("image", 1), ("other", 2)):
            with open(os.path.join(self.folder, name + ".bin"), "wb") as file:
                file.write(random.Random(seed).randbytes(60000))
            self.assertEqual(self.run_line(f"tavo-util convert {name}.bin {name}.hex").returncode, 0)
        with open(os.path.join(self.folder, "broken.hex"), "w") as file:
            file.write(":0100000000FE\n:00000001FF\n")

    def run_line(self, line):
        return subprocess.run(["bash", "-c", line], cwd=self.folder, env=self.env, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=120)

    def test_the_guides_show_what_happens(self):
        ran = 0
        for name in ["README.md"] + sorted(glob.glob("docs/*.md", root_dir=SOURCES)):
            self.begin()
            for command, shown, code in steps(text_of(name)):
                with self.subTest(name, command=command):
                    exported = re.fullmatch(r"export (\w+)=(\S+)", command)
                    if exported:
                        self.env[exported[1]] = exported[2]
                        continue
                    done = self.run_line(command)
                    ran += 1
                    self.assertEqual(done.returncode, code, done.stdout + done.stderr)
                    if shown:
                        self.assertRegex(done.stdout, r"\A" + pattern(shown) + r"\Z")
        self.assertGreater(ran, 20)

    def test_the_examples_of_the_manual_run(self):
        self.env["TAVO_DEVICE"] = "sim:board,pace=fast"
        shown = re.findall(r"^\.B tavo-util (.*)$", text_of("docs/tavo-util.1").split(".SH EXAMPLES")[1], re.M)
        self.assertGreater(len(shown), 2)
        for line in shown:
            with self.subTest(line):
                done = self.run_line("tavo-util " + line.replace("\\-", "-"))
                # No interface is attached where this runs; --all means those.
                self.assertIn(done.returncode, (0, 3) if "--all" in line else (0,), done.stderr)


if __name__ == "__main__":
    unittest.main()
