"""Several devices side by side, and the completion scripts."""

import os
import shlex
import shutil
import signal
import subprocess
import unittest

from tool import MIB, TOOL, ToolTest, checked, image, noise


class SeveralDevices(ToolTest):
    def both(self, *args, faults="", env=None):
        devices = ["-d", f"sim:{self.path('one')},pace=fast", "-d", f"sim:{self.path('two')},pace=fast{faults}"]
        return self.run_tool(*devices, *args, device=False, env=env)

    def test_each_gets_its_result_and_the_worst_exit_code_counts(self):
        path = self.write("image.hex", image((0, noise(3000))))
        result = self.both("program", "--full", path, "--json", faults=",fault=CySpiReadWrite@6:6")
        self.assertExit(result, 11)
        told = result.json
        self.assertEqual([device["exit_status"] for device in told["devices"]], [0, 11])
        self.assertEqual([device["flash_state"] for device in told["devices"]], ["programmed", "uncertain"])
        self.assertEqual(self.read("one/flash.bin")[:3000], noise(3000))

    def test_a_command_in_a_hint_names_the_device_of_the_failure(self):
        path = self.write("image.hex", image((0, noise(3000))))
        result = self.both("program", "--full", path, faults=",fault=CySpiReadWrite@6:6")
        self.assertIn(f"hint:  program it again: tavo-util -d sim:{self.path('two')},pace=fast,fault=CySpiReadWrite@6:6 program",
                      result.err)
        told = self.both("list")  # which names each of them itself
        command = shlex.split(told.err.split("again: tavo-util ")[1])
        self.assertEqual(command[:3], ["-d", "sim:" + self.path("two"), "program"])
        self.assertExit(self.run_tool(*command, device=False), 0)
        self.assertEqual(self.read("two/flash.bin")[:3000], noise(3000))

    def test_people_get_a_row_a_device(self):
        result = self.both("-y", "erase")
        self.assertExit(result, 0)
        self.assertEqual([line.split(": ")[1].split()[0] for line in result.out.splitlines()], ["erased", "erased"])
        self.assertIn("two,pace=fast: erase: done", result.err)

    def test_results_that_cannot_be_told_are_no_success(self):
        for words in ((), ("--json",)):
            with open("/dev/full", "w", encoding="ascii") as full:
                result = subprocess.run([TOOL, *(f"-dsim:{self.path(name)},pace=fast" for name in ("one", "two")), *words,
                                         "config", "read"], stdout=full, stderr=subprocess.PIPE, text=True,
                                        env=self.environment(), cwd=self.folder)
            self.assertEqual(result.returncode, 8, words)
            self.assertIn("cannot write to standard output", result.stderr)

    def test_they_never_write_to_one_path(self):
        for name in ("dump.hex", "dump-{serial}.hex"):  # both boards have the same serial number
            with self.subTest(name):
                self.assertExit(self.both("dump", self.path(name)), 2)
        self.assertEqual([name for name in os.listdir(self.folder) if "dump" in name], [])

    def test_the_serial_number_names_their_files(self):
        second = f"sim:{self.path('two')},pace=fast"
        self.assertExit(self.run_tool("-d", second, "-y", "config", "set-serial", "00005678", device=False), 0)
        result = self.both("dump", self.path("flash-{serial}.hex"), "--log", self.path("log-{serial}"))
        self.assertExit(result, 0)
        self.assertIn("00005678: 1 MiB in " + self.path("flash-00005678.hex"), result.out)
        for name in ("flash-00001234.hex", "flash-00005678.hex", "log-00001234", "log-00005678"):
            self.assertTrue(os.path.exists(self.path(name)), name)

    def test_what_each_would_ask_is_asked_once_with_their_names(self):
        names = [f"sim:{self.path(name)},pace=fast" for name in ("one", "two")]
        devices = ["-d", names[0], "-d", names[1]]
        for answer, role in (("n", "SPI"), ("y", "I2C")):
            asked = self.run_on_terminal(*devices, "scb0", "i2c", device=False, typed=answer + "\n", columns=300)
            self.assertExit(asked, 0 if answer == "y" else 13)
            self.assertEqual(asked.out.count("[y/N]"), 1)
            self.assertIn(f"of 2 interfaces ({names[0]}, {names[1]})? [y/N]", asked.out)
            told = [device["result"]["scb0"] for device in self.both("--json", "config", "read").json["devices"]]
            self.assertEqual(told, [role, role])
        self.assertExit(self.both("restore", "config"), 13)
        self.assertExit(self.both("restore", "config", "-y"), 0)

    def test_a_question_that_one_of_them_would_ask_is_no_yes(self):
        result = self.both("config", "set-serial", "00007777")
        self.assertExit(result, 13)

    def test_one_that_is_unplugged_does_not_end_the_other(self):
        devices = ["-d", f"sim:{self.path('one')},size=64K,pace=fast", "-d", f"sim:{self.path('two')},size=256K,serial=2"]
        process = subprocess.Popen([TOOL, *devices, "dump", self.path("flash-{serial}.hex"), "--json"], text=True,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=self.environment(), cwd=self.folder)
        with process:
            self.wait_for(process, "/256 KiB")
            subprocess.run([os.path.join(os.path.dirname(TOOL), "tavo-sim"), "--unplug", self.path("two")], check=True)
            out, err = process.communicate(timeout=60)
        one, two = checked("tavo-util", out)["devices"]
        self.assertEqual(one["exit_status"], 0, err)
        self.assertNotEqual(two["exit_status"], 0)
        self.assertIn("no longer attached", two["messages"][-1]["text"])
        self.assertIn("plug it in again", two["messages"][-1]["hint"])
        self.assertEqual([name for name in os.listdir(self.folder) if name.startswith("flash-")], ["flash-00001234.hex"])

    def test_simulated_and_real_ones_do_not_mix(self):
        self.assertExit(self.run_tool(*self.device(), "-d", "usb:1-1", "info", device=False), 2)

    def test_events_tell_the_devices_apart(self):
        result = self.both("-y", "erase", "--progress", "json")
        told = [checked("progress", line) for line in result.err.splitlines()]
        for name in ("one", "two"):
            mine = [event["event"] for event in told if event["device"] == f"sim:{self.path(name)},pace=fast"]
            self.assertEqual(mine, ["phase", "phase-end"])

    def test_they_are_asked_for_together_and_named_once(self):
        self.assertExit(self.both("erase"), 13)
        self.assertExit(self.run_tool(*self.device(), *self.device(), "erase", "-y", device=False), 2)

    def test_ctrl_c_reaches_all_of_them(self):
        path = self.write("image.hex", image((0, noise(MIB // 4))))
        devices = ["-d", f"sim:{self.path('one')},size=256K", "-d", f"sim:{self.path('two')},size=256K"]
        process = subprocess.Popen([TOOL, *devices, "program", path, "--json"], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True, env=self.environment(), cwd=self.folder)
        with process:
            result = self.interrupt_when(process, "program: 10 %", signal.SIGTERM)
        self.assertExit(result, 130)
        # the other one may not have come that far
        self.assertIn("incomplete", [device["flash_state"] for device in result.json["devices"]])
        self.assertEqual([device["exit_status"] for device in result.json["devices"]], [130, 130])


class Completion(ToolTest):
    @unittest.skipUnless(shutil.which("bash"), "needs bash")
    def test_bash_completes_commands_options_and_words(self):
        self.write("completion", self.run_tool("completion", "bash", device=False).out.encode())
        for words, wanted in ((["pr"], "program"), (["-y", "er"], "erase"), (["program", "--back"], "--backup"),
                              (["completion", "f"], "fish"), (["--progress", "p"], "plain")):
            with self.subTest(words):
                script = ('. ./completion; COMP_WORDS=(tavo-util "$@"); COMP_CWORD=$#; _tavo_util; echo "${COMPREPLY[@]}"')
                done = subprocess.run(["bash", "-c", script, "bash", *words], cwd=self.folder, capture_output=True,
                                      text=True, check=True)
                self.assertIn(wanted, done.stdout.split())


if __name__ == "__main__":
    unittest.main()
