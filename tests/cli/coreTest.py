"""Options, device choice, error form, JSON, terminal and pipe behaviour."""

import json
import os
import subprocess
import unittest

from tool import TOOL, ToolTest, image, noise


class Usage(ToolTest):
    def test_wrong_usage_is_exit_2_and_one_json_object_with_json(self):
        for args in (["nonsense"], [], ["check"], ["check", "a", "b"], ["--progress", "loud", "list"],
                     ["--usb-id", "04B4", "list"], ["-d", "neuron:05", "list"], ["-d", "sim:x,size=3", "list"],
                     ["-d", "", "list"]):
            with self.subTest(args=args):
                result = self.run_tool("--json", *args, device=False)
                self.assertExit(result, 2)
                self.assertEqual(result.json["exit_status"], 2)
                self.assertEqual(result.json["messages"][0]["severity"], "error")

    def test_a_misspelt_command_is_named_with_the_closest_one(self):
        for words, text in (("progam x.hex", "did you mean tavo-util program?"), ("config", "which command of config?"),
                            ("", "no command given"), ("config write", "FILE is required")):
            with self.subTest(words):
                self.assertIn(text, self.run_tool(*words.split(), device=False).err)

    def test_every_command_has_help_with_two_examples_that_parse(self):
        text = self.run_tool("--help", device=False).out
        names = [line.split("  ")[1] for line in text.split("Commands:\n")[1].split("\n\n")[0].splitlines()]
        self.assertIn("program", names)
        for name in names:
            with self.subTest(command=name):
                examples = self.run_tool(*name.split(), "--help", device=False).out.split("Examples:\n")[1]
                lines = examples.split("\n\n")[0].splitlines()
                self.assertEqual(len(lines), 2)
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
        events = [json.loads(line) for line in self.run_tool("--progress", "json", "program", self.image).err.splitlines()]
        shares = [event["percent"] for event in events if event["event"] == "progress"]
        self.assertEqual(shares, sorted(shares))
        self.assertEqual(shares[-1], 100)
        self.assertEqual([e["phase"] for e in events if e["event"] == "phase"], ["check", "erase", "program", "verify"])

    def test_the_log_holds_the_steps_and_what_the_library_said(self):
        self.run_tool("--log", "run.log", "-q", "erase", "-y")
        text = self.read("run.log").decode()
        self.assertIn("call: erase the flash", text)
        self.assertIn("result: TAVO_SUCCESS", text)

    @unittest.skipUnless(os.path.exists("/dev/full"), "needs /dev/full")
    def test_a_full_disk_behind_standard_output_is_no_success(self):
        with open("/dev/full", "w") as full:
            done = subprocess.run([TOOL, *self.device(), "--json", "list"], stdout=full, stderr=subprocess.PIPE,
                                  env=self.environment(), check=False)
        self.assertEqual(done.returncode, 8)


if __name__ == "__main__":
    unittest.main()
