"""What this computer keeps of an interface, and the way back."""

import hashlib
import json
import os
import shlex
import shutil
import subprocess
import unittest

from tool import ToolTest, image, noise


class Restore(ToolTest):
    def result_of(self, *args, **more):
        result = self.run_tool("--json", *args, **more)
        self.assertExit(result, 0)
        return result.json["result"]

    def test_a_block_comes_back_with_its_serial_number(self):
        self.run_tool("list")
        before = self.read("board/config.bin")
        kept = self.result_of("-y", "config", "set-serial", "NEW")["backup"]
        self.assertEqual(os.path.dirname(kept), self.path("board/backups"))
        shown = self.result_of("-n", "restore", "config")["restored"]
        self.assertEqual((shown["file"], shown["taken_before"], shown["bytes"]), (kept, "set-serial NEW", 512))
        self.assertExit(self.run_tool("restore", "config"), 13)
        self.assertNotEqual(self.read("board/config.bin"), before)
        answered = self.run_on_terminal("restore", shown["sha256"][:8], "config", typed="y\n")
        self.assertExit(answered, 0)
        self.assertIn("kept before: set-serial NEW", answered.out)
        self.assertEqual(self.read("board/config.bin"), before)
        self.assertFalse(self.result_of("-y", "restore", kept, "config")["changed"])
        self.assertEqual([b["kind"] for b in self.result_of("restore", "--list")["backups"]], ["config", "config"])
        self.assertEqual(self.result_of("restore", "--list", "domain")["backups"], [])

    def test_a_domain_table_comes_back(self):
        table = self.result_of("domain", "read", "--show-keys")["domains"]
        for entry in table:
            entry["subnet"] = 7
        self.assertExit(self.run_tool("-y", "domain", "write", self.write("d.json", [json.dumps(table)])), 0)
        self.assertExit(self.run_tool("-y", "restore", "domain"), 0)
        self.assertEqual(self.result_of("domain", "read")["domains"][0]["subnet"], 1)

    def test_what_cannot_be_restored_is_told(self):
        for args, code, text in ((["restore"], 8, "no image of 00001234"), (["restore", "zzzz"], 8, "kept here as zzzz"),
                                 (["restore", "x", "bytes"], 2, "bytes is no kind of backup"),
                                 (["restore", "--list", "x"], 2, "--list shows all that is kept")):
            with self.subTest(args):
                result = self.run_tool("-y", *args)
                self.assertExit(result, code)
                self.assertErrorForm(result, "device not touched", text)

    def test_nothing_is_kept_on_request_and_nothing_changed_where_it_cannot_be_kept(self):
        self.assertIsNone(self.result_of("-y", "config", "set-serial", "NEW", "--no-backup")["backup"])
        self.assertFalse(os.path.exists(self.path("board/backups")))
        self.write("board/backups", b"in the way")
        result = self.run_tool("-y", "scb0", "i2c")
        self.assertExit(result, 8)
        self.assertIn("--no-backup", result.err)
        self.assertEqual(self.result_of("config", "read")["scb0"], "SPI")


class RestoreImage(ToolTest):
    LOST = [f"lose-program={n}" for n in range(1, 60)]

    def setUp(self):
        super().setUp()
        self.env = {"TAVO_DEVICE": "sim:" + self.board + ",pace=fast"}
        self.fill_flash(noise(100000))
        self.before = self.flash()
        changed = bytearray(self.before[:100000])
        changed[5000:5010] = b"0123456789"
        self.image = self.write("new image.hex", image((0, changed)))

    def run_hint(self, result):
        """The command of the hint, as people paste it."""
        option, spec, *words = shlex.split(result.err.rsplit("tavo-util ", 1)[1])
        self.assertTrue(option == "-d" and spec.startswith(self.env["TAVO_DEVICE"]), result.err)
        return self.run_tool(*words, "-y", device=False, env=self.env)  # without what made it fail

    def test_what_a_program_replaced_comes_back(self):
        told = self.run_tool("--json", "program", self.image).json["result"]
        self.assertEqual(self.read(told["backup"]), self.before)
        self.assertEqual(told["backup_sha256"], hashlib.sha256(self.before).hexdigest())
        self.assertNotEqual(self.flash(), self.before)
        back = self.run_tool("--json", "-y", "restore").json
        self.assertEqual(back["result"]["restored"]["taken_before"], "program " + self.image)
        self.assertEqual((self.flash(), back["flash_state"]), (self.before, "programmed"))
        self.assertExit(self.run_tool("-y", "restore"), 0)  # and once more: what the restore replaced
        self.assertNotEqual(self.flash(), self.before)
        self.assertEqual(len(self.run_tool("--json", "restore", "--list").json["result"]["backups"]), 2)

    def test_the_hint_of_a_run_that_failed_is_the_command_that_repairs_it(self):
        for args, command in (([], "restore"), (["--no-backup"], "program")):
            with self.subTest(command):
                failed = self.run_tool("program", self.image, *args, sim=self.LOST)
                self.assertExit(failed, 11)
                for telling in ("list", "doctor", "recover"):
                    told = self.run_tool(telling)
                    self.assertNames(told.err + told.out, command)
                self.assertExit(self.run_hint(failed), 0)
                self.assertEqual(self.flash() == self.before, command == "restore")
                self.assertExit(self.run_tool("doctor"), 0)

    def test_erase_keeps_it_when_it_is_read_for_a_backup(self):
        self.assertExit(self.run_tool("-y", "erase", "--backup", self.path("old.bin")), 0)
        self.assertEqual(self.read("old.bin"), self.before)
        self.assertExit(self.run_tool("-y", "restore"), 0)
        self.assertEqual(self.flash(), self.before)
        self.assertExit(self.run_tool("-y", "erase"), 0)
        self.assertEqual(len(os.listdir(self.path("board/backups"))), 1)

    def test_a_folder_that_cannot_be_written_is_told_before_the_device_is_touched(self):
        self.write("board/backups", b"in the way")
        refused = self.run_tool("program", self.image)
        self.assertExit(refused, 8)
        self.assertErrorForm(refused, "device not touched", "backups")
        self.assertIn("--no-backup", refused.err)
        self.assertEqual(self.flash(), self.before)
        self.assertExit(self.run_tool("program", self.image, "--no-backup"), 0)


class History(ToolTest):
    def test_every_run_is_told_with_or_without_the_device(self):
        self.run_tool("-y", "config", "set-serial", "NEW")
        self.assertExit(self.run_tool("-y", "scb0", "i2c", sim=["fault=libusb_control_transfer@8+:-7"]), 12)
        entries = self.run_tool("--json", "history").json["result"]["entries"]
        self.assertEqual([(e["action"], e["result"], e["serial"], e["serial_after"]) for e in entries],
                         [("set-serial", "done", "00001234", "NEW"), ("scb0", "failed", "NEW", None)])
        self.assertIn("not known", entries[1]["state"])
        self.assertEqual(len(self.run_tool("history", "--last", "1").out.splitlines()), 1)
        os.mkdir(self.path("other"))
        self.write("other/history.jsonl", ['{"time":"2020-01-01T00:00:00Z","action":"erase","result":"done","serial":"B","run":"1"}'])
        both = self.run_tool("--json", "history", "-d", "sim:" + self.path("other")).json["result"]["entries"]
        self.assertEqual([e["serial"] for e in both], ["B", "00001234", "NEW"])  # by time, not by interface
        with open(self.path("board/history.jsonl"), "a", encoding="ascii") as log:
            log.write('{"time":')
        torn = self.run_tool("--json", "history").json
        self.assertEqual(len(torn["result"]["entries"]), 2)
        self.assertIn("line 5 is not whole", torn["messages"][0]["text"])
        if shutil.which("jq"):
            lines = self.read("board/history.jsonl").rsplit(b"\n", 1)[0]
            done = subprocess.run(["jq", "-r", "select(.result==\"done\").action"], input=lines, capture_output=True, check=True)
            self.assertEqual(done.stdout, b"set-serial\n")

    def test_nothing_attached_is_no_failure(self):
        here = self.run_tool("history", device=False, env={"XDG_STATE_HOME": self.folder})
        self.assertExit(here, 0)
        self.assertEqual(here.out, "nothing is remembered\n")


if __name__ == "__main__":
    unittest.main()
