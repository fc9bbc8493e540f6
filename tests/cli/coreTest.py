"""Options, device choice, error form, JSON, terminal and pipe behaviour."""

import os
import re
import resource
import shutil
import signal
import subprocess
import unittest

from tool import TOOL, Result, ToolTest, checked, image, noise


class Usage(ToolTest):
    def test_wrong_usage_is_exit_2_and_one_json_object_with_json(self):
        for args in (["nonsense"], [], ["check"], ["check", "a", "b"], ["--progress", "loud", "list"],
                     ["--usb-id", "04B4", "list"], ["-d", "neuron:05", "list"], ["-d", "sim:x,size=3", "list"],
                     ["-d", "", "list"], ["--all", "-d", "x", "info"], ["check", "x", "--flash-size", "0"]):
            with self.subTest(args=args):
                result = self.run_tool("--json", *args, device=False)
                self.assertExit(result, 2)
                self.assertEqual(result.json["exit_status"], 2)
                self.assertEqual(result.json["messages"][0]["severity"], "error")

    def test_a_misspelt_command_is_named_with_the_closest_one(self):
        for words, text in (("progam x.hex", "did you mean tavo-util program?"), ("config", "which command of config?"),
                            ("", "no command given"), ("config write", "FILE is required"),
                            ("config raed", "did you mean tavo-util config read?"), ("verif", "tavo-util verify?"),
                            ("scb0 uart", "hint:  tavo-util scb0 --help"),
                            ("help progam", "did you mean tavo-util program?"),
                            ("mode", "MODE is required: unconfigured, offline, configured, service")):
            with self.subTest(words):
                self.assertIn(text, self.run_tool(*words.split(), device=False).err)

    def test_a_misspelt_option_is_named_with_the_closest_one(self):
        for words, text in (("list --jsno", "did you mean --json?"), ("status --watch 5", "joined to it: --watch=5"),
                            ("--dryrun erase", "did you mean --dry-run?"),
                            ("program x y --bakup=3", "did you mean --backup?"), ("--prog bar list", "--progress?"),
                            ("config read --hx", "did you mean --hex?"), ("--colour never", "did you mean --color?"),
                            ("verify x --backup y", "--backup is an option of tavo-util program"),
                            ("list --nonsense", "hint:  tavo-util list --help lists"), ("-z list", "unknown option -z"),
                            ("list --as-chidl x", "hint:  tavo-util list --help lists")):
            with self.subTest(words):
                result = self.run_tool(*words.split(), device=False)
                self.assertExit(result, 2)
                self.assertIn(text, result.err)

    def test_help_and_version_are_words_too(self):
        for words in ((), ("program",), ("config",), ("domain", "write")):
            with self.subTest(words=words):
                self.assertEqual(self.run_tool("help", *words, device=False).out,
                                 self.run_tool(*words, "--help", device=False).out)
        self.assertExit(self.run_tool("help", "erase", "x", device=False), 2)
        self.assertEqual(self.run_tool("version", device=False).out, self.run_tool("--version", device=False).out)

    def test_every_command_has_help_with_two_examples_that_parse(self):
        text = self.run_tool("--help", device=False).out
        names = [line.split("  ")[1] for line in text.split("Commands:\n")[1].split("\n\n")[0].splitlines()]
        self.assertIn("program", names)
        for name in names:
            with self.subTest(command=name):
                examples = self.run_tool(*name.split(), "--help", device=False).out.split("Examples:\n")[1]
                lines = examples.split("\n\n")[0].splitlines()
                self.assertEqual(len(set(lines)), 2, examples)
                for line in lines:
                    self.assertTrue(line.startswith("  tavo-util "), line)
                    self.assertIn(name, line)

    def test_global_options_are_taken_after_the_command_too(self):
        self.assertEqual(self.run_tool("list", *self.device(), "--json", device=False).json["exit_status"], 0)

    def test_version(self):
        self.assertRegex(self.run_tool("--version", device=False).out, r"^tavo-util \d+\.\d+\.\d+\n$")


class Choice(ToolTest):
    def test_the_simulated_interface_is_listed(self):
        rows = self.run_tool("list").out.splitlines()
        self.assertEqual(rows[0].split(), ["SERIAL", "PATH", "VID:PID", "NEURON", "ACCESS"])
        self.assertEqual(rows[1].split(), ["00001234", "sim:" + self.board, "04B4:0004", "-", "ok"])

    def test_a_simulated_interface_that_does_not_load_never_means_a_real_one(self):
        shutil.copy(TOOL, self.path("tavo-util"))
        self.write("libtavo-sim.so", b"")
        done = subprocess.run([self.path("tavo-util"), *self.device(), "-y", "erase"], capture_output=True, text=True,
                              env={**self.environment(), "LD_LIBRARY_PATH": os.path.dirname(TOOL)}, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn("no real one is used in its place", done.stderr)
        blocked = self.run_tool("-d", "sim:" + self.write("file", b""), "list", device=False)
        self.assertExit(blocked, 3)
        self.assertIn("file: not a folder", blocked.err)

    def test_a_simulated_interface_without_permission_is_named_with_the_file(self):
        nobody = self.without_root()
        self.run_tool("list", **nobody)
        for name in ("flash.bin", "board.txt", ""):
            path = os.path.join(self.board, name)
            os.chmod(path, 0)
            with self.subTest(name):
                result = self.run_tool("--json", "list", **nobody)
                self.assertExit(result, 5)
                message = result.json["messages"][0]
                self.assertIn("no permission to read and write " + path.rstrip("/"), message["text"])
                self.assertIn("give this user access", message["hint"])
            os.chmod(path, 0o777)
        self.assertExit(self.run_tool("list", **nobody), 0)

    def test_the_environment_names_the_device_as_the_option_does(self):
        env = {"TAVO_DEVICE": self.device()[1]}
        self.assertEqual(self.run_tool("--json", "list", device=False, env=env).json["result"]["devices"][0]["serial"],
                         "00001234")

    def test_a_device_that_is_not_there_is_waited_for_and_then_named(self):
        result = self.run_tool("-d", "neuron:0501020304FF", "--wait=1", "info", device=False)
        self.assertExit(result, 3)
        self.assertIn("wait: stopped", result.err)
        self.assertErrorForm(result, "device not touched", "no interface matches neuron:0501020304FF")

    def test_other_usb_ids_are_accepted_on_request(self):
        self.assertExit(self.run_tool("list", "--usb-id", "1234:5678"), 0)

    def test_a_device_in_use_is_refused_with_its_holder(self):
        path = self.write("image.hex", image((0, noise(65536))))
        with self.start_tool("program", path) as holder:
            self.wait_for(holder, "erase: begins")
            result = self.run_tool("erase", "-y")
            self.assertExit(result, 6)
            self.assertErrorForm(result, "device not touched", str(holder.pid))
            holder.communicate()
            self.assertEqual(holder.returncode, 0)


# A bridge as the kernel describes it: SPI on interface 0, manufacturing on interface 1.
DESCRIPTORS = bytes([
    18, 1, 0, 2, 0, 0, 0, 64, 0xB4, 4, 4, 0, 0, 0, 1, 2, 3, 1,
    9, 2, 57, 0, 2, 1, 0, 0x80, 50,
    9, 4, 0, 0, 3, 0xFF, 2, 0, 0, 7, 5, 1, 2, 64, 0, 0, 7, 5, 0x82, 2, 64, 0, 0, 7, 5, 0x83, 3, 64, 0, 10,
    9, 4, 1, 0, 0, 0xFF, 5, 0, 0])


@unittest.skipUnless(shutil.which("umockdev-run"), "needs umockdev-run")
class TwoDevices(ToolTest):
    """Two interfaces on an emulated bus, with their descriptors and nothing behind them."""

    def setUp(self):
        super().setUp()
        text = ""
        for number, port in ((2, 4), (3, 1)):
            text += (f"P: /devices/usb1/1-{port}\nN: bus/usb/001/{number:03}\nE: DEVNAME=/dev/bus/usb/001/{number:03}\n"
                     f"E: DEVTYPE=usb_device\nE: SUBSYSTEM=usb\nE: BUSNUM=001\nE: DEVNUM={number:03}\nE: MAJOR=189\n"
                     f"E: MINOR={number - 1}\nA: busnum=1\\n\nA: devnum={number}\\n\nA: speed=12\\n\n"
                     f"A: bConfigurationValue=1\\n\nA: bNumConfigurations=1\\n\nH: descriptors={DESCRIPTORS.hex().upper()}\n\n")
        self.write("bus.umockdev", text.encode())

    def run_on_bus(self, *args):
        command = ["umockdev-run", "-d", self.path("bus.umockdev"), "--", TOOL, *args]
        env = self.environment({"ASAN_OPTIONS": "verify_asan_link_order=0"})
        done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, env=env, timeout=60,
                              cwd=self.folder, check=False)
        return Result(done.returncode, done.stdout, done.stderr)

    def test_all_are_listed_by_port(self):
        told = self.run_on_bus("--json", "list").json
        self.assertEqual([device["path"] for device in told["result"]["devices"]], ["1-1", "1-4"])
        self.assertEqual({device["vid_pid"] for device in told["result"]["devices"]}, {"04B4:0004"})

    def test_none_is_taken_unless_one_is_chosen(self):
        result = self.run_on_bus("erase", "-y")
        self.assertExit(result, 4)
        self.assertIn("the interface at 1-1\n", result.err)
        chosen = self.run_on_bus("--json", "-d", "usb:1-4", "erase", "-y").json
        self.assertEqual(chosen["device"], {"serial": None, "path": "1-4"})
        self.assertEqual((chosen["exit_status"], chosen["flash_state"]), (10, "untouched"))
        self.assertEqual(chosen["state"], "device not touched")

    def test_all_of_them_are_taken_on_request(self):
        # The emulated bus names the udev sockets of its processes by descriptor: two that start at once may collide.
        for _ in range(20):
            told = self.run_on_bus("--json", "--all", "erase", "-y").json
            if all(device["status"]["name"] != "TAVO_DRIVER_INIT_FAILED" for device in told["devices"]):
                break
        self.assertEqual([device["device"]["path"] for device in told["devices"]], ["1-1", "1-4"])
        self.assertExit(self.run_on_bus("--all", "erase"), 13)


class HostileText(ToolTest):
    """What a device, a file or a file name holds must not steer the terminal."""

    TITLE = "\x1b]0;owned\x07"
    SHOWN = "\\x1B]0;owned\\x07"

    def put_serial(self, text):
        """Writes it into the configuration block of the board."""
        self.run_tool("list")
        with open(self.path("board/config.bin"), "r+b") as file:
            block = bytearray(file.read())
            units = text.encode("utf-16-le")
            block[370:436] = (bytes([len(units) + 2, 3]) + units).ljust(66, b"\0")
            words = (int.from_bytes(block[at:at + 4], "little") for at in range(12, 512, 4))
            block[8:12] = (sum(words) & 0xFFFFFFFF).to_bytes(4, "little")
            file.seek(0)
            file.write(block)

    def assertHarmless(self, shown):
        # The terminal's own line ends and the codes of the colours, the live row and the cursor are ours.
        text = re.sub(r"\x1b\[[0-9;]*[mKA]", "", shown.replace("\r\n", "\n")).replace("\r", "")
        self.assertNotRegex(text, "[\x00-\x09\x0b-\x1f\x7f-\x9f\u2028-\u202e\u2066-\u2069]")

    def test_the_serial_number_of_a_device(self):
        self.put_serial(self.TITLE)
        for args, code in ((("list",), 0), (("info",), 0), (("config", "read"), 0), (("doctor",), 0),
                           (("program", "missing.hex"), 8), (("erase",), 13), (("-v", "erase", "-y"), 0)):
            with self.subTest(args=args):
                result = self.run_on_terminal(*args, typed="n\n")
                self.assertExit(result, code)
                self.assertHarmless(result.out)
        self.assertIn(self.SHOWN, self.run_tool("list").out)
        self.assertEqual(self.run_tool("--json", "list").json["result"]["devices"][0]["serial"], self.TITLE)

    def test_the_names_of_files_in_errors_and_in_the_log(self):
        for name, shown in ((self.TITLE, self.SHOWN), ("a\nb", "a\\x0Ab"), (b"\xff\xc0\xaf\xed\xa0\x80", "\\xFF\\xC0\\xAF\\xED"),
                            ("\x9b2J\u202egpj", "\\u009B2J\\u202Egpj"), ("Gerät-é-機", "Gerät-é-機"), (b"cut\xe6\xa9", "\\xE6\\xA9")):
            with self.subTest(name=name):
                result = self.run_tool("--log", "run.log", "check", name, device=False)
                self.assertExit(result, 8)
                self.assertIn(shown, result.err.splitlines()[0])
                self.assertHarmless(result.err)
                log = self.read("run.log").decode()
                self.assertIn(shown, log)
                self.assertHarmless(log)

    def test_a_line_of_a_file_that_is_shown(self):
        path = self.write("image.hex", (":00" + self.TITLE).encode() + b"\xc3\x28\n")
        self.assertHarmless(self.run_tool("check", path, device=False).err)

    def test_several_devices(self):
        self.put_serial(self.TITLE)
        result = self.run_tool("-d", f"sim:{self.path('other')},pace=fast", "info")
        self.assertExit(result, 0)
        self.assertIn(self.SHOWN + ": serial", result.out)
        self.assertHarmless(result.out + result.err)


class Surroundings(ToolTest):
    """Streams, disks, threads and terminals as they should not be."""

    def setUp(self):
        super().setUp()
        self.image = self.write("image.hex", image((0, noise(20000))))

    def run_in_shell(self, redirections, *args):
        return subprocess.run(["sh", "-c", f'"$@" {redirections}', "sh", *self.command(args)], env=self.environment(),
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, cwd=self.folder, timeout=60,
                              check=False).returncode

    def test_closed_standard_streams_take_nothing_from_the_files(self):
        for closed in (">&- 2>&- <&-", ">&-", "2>&-"):
            with self.subTest(closed):
                self.assertEqual(self.run_in_shell(closed, "-vv", "program", self.image, "-y"), 0)
                self.assertEqual(self.flash()[:20000], noise(20000))
                self.assertEqual(self.run_in_shell(closed, "-vv", "dump", "--force", "copy.hex"), 0)
                self.assertExit(self.run_tool("verify", "copy.hex"), 0)

    @unittest.skipUnless(os.path.exists("/dev/full"), "needs /dev/full")
    def test_a_log_on_a_full_disk_is_told_once_and_changes_nothing_else(self):
        for args, code in (("erase", "-y"), 0), (("check", "missing.hex"), 8):
            with self.subTest(args=args):
                result = self.run_tool("--log", "/dev/full", *args)
                self.assertExit(result, code)
                self.assertEqual(result.err.count("the log /dev/full is incomplete: No space left on device"), 1)
        told = self.run_tool("--json", "--log", "/dev/full", "erase", "-y").json["messages"]
        self.assertEqual([message["severity"] for message in told], ["warning"])
        self.assertIn("--log", told[0]["hint"])

    def test_without_a_thread_the_work_goes_on(self):
        nobody = self.without_root()

        def no_more_processes():
            resource.setrlimit(resource.RLIMIT_NPROC, (1, 1))

        # A sanitizer's leak check would need a process of its own.
        result = self.run_tool("--log", "run.log", "program", self.image, env={"ASAN_OPTIONS": "detect_leaks=0"},
                               preexec_fn=no_more_processes, **nobody)
        self.assertExit(result, 0)
        self.assertIn("no thread for the progress row", self.read("run.log").decode())
        self.assertEqual(self.flash()[:20000], noise(20000))

    def test_the_share_stays_on_a_narrow_terminal(self):
        for columns, form in ((20, r"program +\d+ %"), (30, r"program  \[[#-]{4,}\] +\d+ %"),
                              (80, r"program  \[[#-]{20}\] +\d+ %  \d+/20 KiB")):
            with self.subTest(columns=columns):
                shown = self.run_on_terminal("--progress", "bar", "program", "--full", self.image, columns=columns).out
                self.assertRegex(shown, form)
                rows = [row for row in re.split(r"\r?\n|\r?\x1b\[K", shown) if " %" in row]
                self.assertLess(max(map(len, rows)), columns)


class Output(ToolTest):
    def setUp(self):
        super().setUp()
        self.image = self.write("image.hex", image((0, noise(4096))))

    def test_json_holds_the_facts_of_a_failure(self):
        result = self.run_tool("--json", "erase", "-y", sim=["fault=CySpiReadWrite@1:12"])
        self.assertExit(result, 10)
        told = result.json
        self.assertEqual(told["json_format_version"], [1, 0])
        self.assertEqual(told["device"], {"serial": "00001234", "path": "sim:" + self.board})
        self.assertEqual(told["status"], {"code": 19, "name": "TAVO_PIPE_HALTED", "text": "pipe halted"})
        self.assertEqual((told["flash_state"], told["exit_status"]), ("unchanged", 10))

    def test_confirmation_is_asked_on_a_terminal_only(self):
        self.assertExit(self.run_tool("erase"), 13)
        self.assertExit(self.run_on_terminal("erase", typed="n\n"), 13)
        self.fill_flash(b"kept")
        self.assertEqual(self.flash()[:4], b"kept")
        self.assertExit(self.run_on_terminal("erase", typed="y\n"), 0)
        self.assertEqual(self.flash()[:4], b"\xff" * 4)

    def test_a_pipe_gets_whole_lines_without_escapes(self):
        result = self.run_tool("program", self.image)
        self.assertNotIn("\r", result.err)
        self.assertNotIn("\033", result.err)
        for phase in ("check", "erase", "program", "verify"):
            self.assertIn(phase + ": done", result.err)
        self.assertIn("program: 100 %", result.err)

    def test_a_terminal_gets_a_bar(self):
        shown = self.run_on_terminal("program", self.image, sim=["pace=real"]).out
        self.assertRegex(shown, r"program  \[[#-]{20}\] +\d+ %  \d+/4 KiB")
        self.assertIn("\033[K", shown)
        self.assertIn("done: 16 pages", shown)

    def test_colour_follows_the_terminal_and_no_color(self):
        for env, args, wanted in (({}, [], True), ({"NO_COLOR": "1"}, [], False), ({}, ["--color", "never"], False)):
            with self.subTest(env=env, args=args):
                shown = self.run_on_terminal(*args, "check", "missing.hex", env=env).out
                self.assertEqual("\033[1;31m" in shown, wanted)

    def test_quiet_leaves_only_results_and_errors(self):
        result = self.run_tool("-q", "program", self.image)
        self.assertEqual((result.code, result.out, result.err), (0, "", ""))

    def test_progress_events_are_one_json_object_a_line(self):
        events = [checked("progress", line)
                  for line in self.run_tool("--progress", "json", "program", self.image).err.splitlines()]
        shares = [event["percent"] for event in events if event["event"] == "progress"]
        self.assertEqual(shares, sorted(shares))
        self.assertEqual(shares[-1], 100)
        self.assertEqual([e["phase"] for e in events if e["event"] == "phase"],
                         ["check", "read", "erase", "program", "verify", "boot"])

    def test_the_log_holds_the_steps_and_their_results(self):
        self.run_tool("--log", "run.log", "-q", "erase", "-y")
        text = self.read("run.log").decode()
        self.assertIn("call: erase the flash", text)
        self.assertIn("result: TAVO_SUCCESS", text)

    def test_the_transfers_are_told_in_full(self):
        shown = self.run_tool("-vv", "erase", "-y").err
        for text in ("  open 0.0: 0", "  pin 8 = 0: 0", "  SPI out 9F 00 00 00 in FF EF 40 14: 0", "  SPI out C7: 0"):
            self.assertIn(text, shown)
        self.assertNotIn("SPI", self.run_tool("-v", "erase", "-y").err)

    def test_a_dumb_terminal_gets_lines(self):
        shown = self.run_on_terminal("program", self.image, env={"TERM": "dumb"}).out
        self.assertNotIn("\033", shown)
        self.assertIn("program: done", shown)

    def test_an_ignored_hangup_stays_ignored(self):
        process = subprocess.Popen(["nohup", *self.command(["-v", "program", self.image])], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=self.environment(),
                                   cwd=self.folder)
        with process:
            self.assertExit(self.interrupt_when(process, "call: program the flash", signal.SIGHUP), 0)

    @unittest.skipUnless(os.path.exists("/dev/full"), "needs /dev/full")
    def test_a_full_disk_behind_standard_output_is_no_success(self):
        with open("/dev/full", "w") as full:
            done = subprocess.run([TOOL, *self.device(), "--json", "list"], stdout=full, stderr=subprocess.PIPE,
                                  env=self.environment(), check=False)
        self.assertEqual(done.returncode, 8)


if __name__ == "__main__":
    unittest.main()
