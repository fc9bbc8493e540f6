"""What the tests of tavo-util share: running the tool, simulated interfaces, Intel HEX images."""

import fcntl
import functools
import json
import os
import pty
import random
import re
import select
import signal
import struct
import subprocess
import tempfile
import termios
import time
import unittest

import jsonschema

TOOL = os.environ.get("TAVO_UTIL", "tavo-util")
SOURCES = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
MIB = 1 << 20

# A shell's background job and nohup start us with signals ignored, and so would the tool be: a signal
# that is caught here is at its default in every program that is started.
for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT):
    if signal.getsignal(number) == signal.SIG_IGN:
        signal.signal(number, signal.default_int_handler)


def record(kind, offset, data=b""):
    """One Intel HEX record without its line end."""
    body = bytes([len(data), offset >> 8 & 0xFF, offset & 0xFF, kind]) + bytes(data)
    return ":" + (body + bytes([-sum(body) & 0xFF])).hex().upper()


END = record(1, 0)


def image(*pieces, width=32):
    """The records of (address, bytes) pieces, with type 04 records where the upper half changes."""
    lines, upper = [], 0
    for address, data in pieces:
        for at in range(0, len(data), width):
            start = address + at
            if start >> 16 != upper:
                upper = start >> 16
                lines.append(record(4, 0, [upper >> 8, upper & 0xFF]))
            lines.append(record(0, start & 0xFFFF, data[at:at + width]))
    return lines + [END]


def noise(size, seed=1):
    return random.Random(seed).randbytes(size)


@functools.lru_cache
def schema(name):
    with open(os.path.join(SOURCES, "docs/schema", name + ".json")) as file:
        text = json.load(file)
    jsonschema.Draft202012Validator.check_schema(text)
    return jsonschema.Draft202012Validator(text)


def checked(name, text):
    """The value of a JSON text that is as docs/schema/NAME.json promises."""
    value = json.loads(text)
    fault = jsonschema.exceptions.best_match(schema(name).iter_errors(value))
    if fault is not None:
        raise AssertionError(f"not as docs/schema/{name}.json says, at {fault.json_path}: {fault.message}\n{text}")
    return value


class Result:
    def __init__(self, code, out, err):
        self.code, self.out, self.err = code, out, err

    @property
    def json(self):
        """The one object on standard output: anything beside it is an error here."""
        return checked("tavo-util", self.out)


class ToolTest(unittest.TestCase):
    """A test with a folder of its own and one simulated interface in it."""

    sim_options = "pace=fast"

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tavo-util-test-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.board = self.path("board")

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, lines, end="\n"):
        """Writes lines as text, or bytes as they are, and returns the path."""
        data = lines if isinstance(lines, bytes) else "".join(line + end for line in lines).encode()
        with open(self.path(name), "wb") as file:
            file.write(data)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def flash(self):
        return self.read("board/flash.bin")

    def fill_flash(self, data):
        """Makes the board and puts data at the start of its flash."""
        self.run_tool("list")
        with open(self.path("board/flash.bin"), "r+b") as file:
            file.write(data)

    def device(self, *options):
        return ["-d", ",".join(["sim:" + self.board, self.sim_options, *options])]

    def environment(self, extra=None):
        env = {k: v for k, v in os.environ.items() if not k.startswith("TAVO_") or k == "TAVO_UTIL"}
        return {**env, "TMPDIR": self.folder, **(extra or {})}

    def command(self, args, sim=(), device=True):
        return [TOOL] + (self.device(*sim) if device else []) + list(args)

    def run_tool(self, *args, sim=(), device=True, env=None, timeout=60, stdin=subprocess.DEVNULL, **more):
        """Runs the tool without a terminal."""
        done = subprocess.run(self.command(args, sim, device), stdin=stdin, capture_output=True, text=True,
                              env=self.environment(env), timeout=timeout, cwd=self.folder, **more)
        return Result(done.returncode, done.stdout, done.stderr)

    def start_tool(self, *args, sim=(), env=None):
        return subprocess.Popen(self.command(args, sim), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True, env=self.environment(env), cwd=self.folder)

    def wait_for(self, process, text):
        """Reads standard error until text shows in it."""
        seen = ""
        while text not in seen:
            line = process.stderr.readline()
            if not line:
                self.fail(f"ended without saying {text!r}: {seen}")
            seen += line
        return seen

    def interrupt_when(self, process, text, number=signal.SIGINT):
        """Waits until text shows on standard error, sends the signal, and returns the result."""
        seen = self.wait_for(process, text)
        process.send_signal(number)
        out, err = process.communicate(timeout=60)
        return Result(process.returncode, out, seen + err)

    def without_root(self):
        """What makes subprocess start the tool as a user to whom permissions and limits apply."""
        if os.geteuid() != 0:
            return {}
        nobody = {"user": 65534, "group": 65534, "extra_groups": []}
        os.chmod(self.folder, 0o777)
        try:
            subprocess.run([TOOL, "--version"], stdout=subprocess.DEVNULL, check=True, cwd=self.folder, **nobody)
        except OSError:
            self.skipTest("the tool lies where only root may go")
        return nobody

    def run_on_terminal(self, *args, sim=(), device=True, typed="", env=None, columns=80):
        """Runs the tool with a terminal as its three streams; out holds what the terminal got."""
        return self.on_terminal(self.command(args, sim, device), typed, b"[y/N]", env, columns)

    def on_terminal(self, command, typed, typed_after, env=None, columns=80):
        """Runs a program on a terminal and types into it once it has said typed_after."""
        child, master = pty.fork()
        if child == 0:
            fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("4H", 24, columns, 0, 0))
            os.chdir(self.folder)
            os.execvpe(command[0], command, self.environment({"TERM": "xterm", **(env or {})}))
        shown, deadline = b"", time.monotonic() + 60
        while time.monotonic() < deadline:
            if not select.select([master], [], [], 1)[0]:
                continue
            try:
                piece = os.read(master, 65536)
            except OSError:  # Linux: the other side is closed
                break
            shown += piece
            if typed and typed_after in shown:
                os.write(master, typed.encode())
                typed = ""
        os.close(master)
        return Result(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), shown.decode(), "")

    def assertExit(self, result, code):
        self.assertEqual(result.code, code, result.out + result.err)

    def assertNames(self, text, command):
        """A command to be pasted, which names the device as the tool was given it."""
        self.assertRegex(text, f"tavo-util -d {re.escape(self.device()[1])}[^ ]* {command}")

    def assertErrorForm(self, result, state, text=""):
        """The three lines every failure ends with."""
        lines = result.err.rstrip("\n").split("\n")
        at = max(i for i, line in enumerate(lines) if line.startswith("tavo-util: error: "))
        self.assertIn(text, lines[at])
        self.assertEqual(re.sub(" -d sim:[^ ]* ", " -d DEVICE ", lines[at + 1]), "  state: " + state, result.err)
        self.assertRegex(lines[at + 2], r"^  hint:  \S", result.err)
