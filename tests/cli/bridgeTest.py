"""The bridge's commands, each run a process of its own on one simulated interface."""

import glob
import os
import signal
import subprocess
import unittest

from tool import TOOL, ToolTest, image, noise

CHECKSUM, SERIAL, PRESENT = slice(8, 12), slice(370, 436), slice(168, 172)


def with_checksum(block):
    words = (int.from_bytes(block[at:at + 4], "little") for at in range(12, 512, 4))
    return block[:8] + (sum(words) & 0xFFFFFFFF).to_bytes(4, "little") + block[12:]


class BridgeTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.run_tool("list")
        self.factory = self.block()

    def block(self):
        return self.read("board/config.bin")

    def backups(self):
        return glob.glob(self.path("board/backups/config-*.bin"))

    def done(self, *args, **more):
        result = self.run_tool(*args, **more)
        self.assertExit(result, 0)
        return result

    def result_of(self, *args, **more):
        return self.done("--json", *args, **more).json["result"]


class Configuration(BridgeTest):
    def test_a_new_serial_number_is_read_back_and_chooses_the_device(self):
        told = self.result_of("-y", "config", "set-serial", "TAVO-0042")
        self.assertEqual((told["before"], told["after"]), ("00001234", "TAVO-0042"))
        self.assertEqual(self.read(told["backup"]), self.factory)
        changed = [i for i in range(512) if self.factory[i] != self.block()[i]]
        self.assertEqual([c["offset"] for c in told["changed"]], changed)
        self.assertEqual(self.result_of("config", "read")["serial"], "TAVO-0042")
        simulated = [os.path.join(os.path.dirname(TOOL), "tavo-sim"), self.board, "--", TOOL, "config", "read", "-d"]
        for serial, code in (("TAVO-0042", 0), ("00001234", 3)):
            done = subprocess.run(simulated + [serial], capture_output=True, env=self.environment(), check=False)
            self.assertEqual(done.returncode, code, done.stderr)

    def test_scb0_goes_to_i2c_and_back_and_the_flash_is_reached_again(self):
        self.assertIn("SCB0: SPI -> I2C", self.done("-y", "scb0", "i2c").out)
        self.assertExit(self.run_tool("-y", "erase"), 10)
        told = self.result_of("-y", "scb0", "spi")
        self.assertEqual((told["before"], told["after"]), ("I2C", "SPI"))
        self.assertEqual(self.result_of("list")["devices"][0]["scb0"], "spi")
        self.done("program", self.write("image.hex", image((0, b"\x12\x34"))))
        self.assertEqual(self.flash()[:3], b"\x12\x34\xff")

    def test_a_block_goes_to_another_device_which_keeps_its_serial_number(self):
        saved = "saved-{serial}.bin"
        self.assertTrue(self.result_of("config", "read", saved)["checksum_ok"])
        self.assertEqual(self.read("saved-00001234.bin"), self.factory)
        self.assertExit(self.run_tool("config", "read", saved), 8)
        self.done("-y", "config", "set-serial", "OTHER")
        self.done("-y", "scb0", "i2c")
        shown = self.run_tool("config", "diff", "saved-00001234.bin")
        self.assertExit(shown, 9)
        self.assertIn("\n0x024  A0 86 01 -> 40 42 0F  (SCB0 settings)\n", shown.out)
        self.assertIn("keeps its serial number OTHER", self.done("-y", "config", "write", "saved-00001234.bin").out)
        self.assertEqual(self.result_of("config", "diff", "saved-00001234.bin")["changed"], [])
        told = self.result_of("config", "read")
        self.assertEqual((told["serial"], told["scb0"]), ("OTHER", "SPI"))
        self.done("-y", "config", "write", "saved-00001234.bin", "--serial", "00001234")
        self.assertEqual(self.block(), self.factory)
        self.assertEqual(len(self.backups()), 3)  # the same content once

    def test_a_file_that_may_brick_the_bridge_is_refused(self):
        good = self.factory
        unsigned = with_checksum(b"XXXX" + good[4:-1] + b"\x01")
        refused = {"short.bin": good[:511], "long.bin": good + b"\0", "empty.bin": b"", "block.txt": good,
                   "sum.bin": good[:8] + b"\0" + good[9:], "unsigned.bin": unsigned}
        for name, data in refused.items():
            with self.subTest(name):
                result = self.run_tool("-y", "config", "write", self.write(name, data))
                self.assertExit(result, 7)
                self.assertErrorForm(result, "device not touched", name)
        self.assertExit(self.run_tool("-y", "config", "write", "missing.bin"), 8)
        self.assertEqual((self.block(), self.backups()), (good, []))
        self.done("-y", "config", "write", self.path("unsigned.bin"), "--force-block")
        self.assertEqual(self.block(), unsigned)
        self.assertExit(self.run_tool("list"), 3)

    def test_nothing_is_written_without_a_yes_or_over_a_backup(self):
        for args, code in ((["config", "set-serial", "NEW"], 13), (["-n", "config", "set-serial", "NEW"], 0),
                           (["scb0", "i2c"], 13), (["-y", "config", "set-serial", "x" * 33], 2),
                           (["-y", "config", "set-serial", "Gerät"], 2),
                           (["-y", "config", "set-serial", "NEW", "--backup", self.write("kept.bin", b"kept")], 8)):
            with self.subTest(args):
                self.assertExit(self.run_tool(*args), code)
        self.assertExit(self.run_on_terminal("config", "set-serial", "NEW", typed="n\n"), 13)
        self.assertEqual((self.block(), self.read("kept.bin")), (self.factory, b"kept"))
        self.assertExit(self.run_on_terminal("config", "set-serial", "NEW", typed="y\n"), 0)
        self.assertNotEqual(self.block(), self.factory)

    def test_a_failed_write_tells_what_the_bridge_holds(self):
        # The signature; three requests read the block; silicon ID, enter, read, write, leave; three more read it back.
        for fault, state in (("8:-7", "configuration block unchanged"),
                             ("9:-7", "configuration block written all the same"),
                             ("8+:-7", "configuration block not known: it may be damaged")):
            with self.subTest(fault):
                result = self.run_tool("-y", "config", "set-serial", "NEW", sim=["fault=libusb_control_transfer@" + fault])
                self.assertIn(result.code, (10, 12))
                self.assertErrorForm(result, state, "of 00001234")
                self.write("board/config.bin", self.factory)


class NeuronId(BridgeTest):
    def test_the_id_of_the_chip_is_stored_once_and_listed(self):
        self.assertIn("stored", self.done("neuron-id", "store").out)
        self.assertEqual(self.read("board/user-flash.bin")[:128], bytes.fromhex("050102030405") + bytes(122))
        self.assertEqual(self.result_of("list")["devices"][0]["neuron_id"], "050102030405")
        self.assertIn("already stored, nothing written", self.done("neuron-id", "store").out)
        self.assertEqual(self.result_of("neuron-id", "store", "0a0b0c0d0e0f"), {"neuron_id": "0A0B0C0D0E0F", "written": True})
        self.assertExit(self.run_tool("neuron-id", "store", "000000000000"), 2)
        self.assertEqual(self.result_of("list")["devices"][0]["neuron_id"], "0A0B0C0D0E0F")


class Help(BridgeTest):
    def test_recover_lets_go_what_a_killed_run_held(self):
        path = self.write("image.hex", image((0, noise(40960))))
        with self.start_tool("program", path, sim=["pace=real"]) as process:
            killed = self.interrupt_when(process, "program: 10 %", signal.SIGKILL)
        self.assertEqual(killed.code, -signal.SIGKILL)
        self.assertExit(self.run_tool("neuron-id", "store"), 12)
        # Looked at, and left as it is, as often as one likes.
        for _ in range(2):
            checks = self.run_tool("--json", "doctor").json["result"]["checks"]
            self.assertEqual([check["item"] for check in checks if check["ok"] is False][:2], ["SCB0", "reset line"])
        steps = self.result_of("recover")["steps"]
        self.assertEqual([step["step"] for step in steps][:6],
                         ["unfinished SPI transfer ended", "SCB0 made SPI slave again",
                          "service line released (pin 14 high)", "Neuron let out of reset (pin 8 high)",
                          "configuration mode left", "lines and SCB0 read back"])
        self.assertTrue(steps[6]["step"].startswith("flash answers: "), steps)
        self.done("neuron-id", "store")
        self.assertEqual(self.result_of("recover")["steps"][1]["step"], "SCB0 is SPI slave already")

    def test_recover_tries_every_step_and_tells_what_stays_held(self):
        result = self.run_tool("--json", "recover", sim=["fault=CySetGpioValue@1:6"])
        self.assertExit(result, 10)
        self.assertEqual([step["ok"] for step in result.json["result"]["steps"]], [True, True, False] + [True] * 5)
        held = self.run_tool("recover", sim=["fault=CySetGpioValue@4+:11"])  # the look at the flash takes the third
        self.assertExit(held, 10)
        self.assertErrorForm(held, "flash contents unchanged; the Neuron is held in reset (pin 8 low)")
        self.assertIn("unplug the interface", held.err)
        self.assertExit(self.run_tool("recover"), 0)

    def test_an_interrupted_run_is_told_by_every_look(self):
        self.run_tool("list")
        self.write("board/interrupted.run", ["path=x", "serial=00001234", "started=2024-05-01T14:03:59+0200",
                                             "image=/images/a.hex", "sha256=12ab", "backup=/images/b.hex"])
        for command in ("list", "info", "status", "recover"):
            with self.subTest(command):
                told = self.run_tool("--json", command).json
                self.assertEqual(told["exit_status"], 0)
                run = told["result"]["devices"][0] if command == "list" else told["result"]
                self.assertEqual(run["interrupted"], {"image": "/images/a.hex", "sha256": "12ab",
                                                      "backup": "/images/b.hex", "started": "2024-05-01T14:03:59+0200"})
                self.assertIn("/images/b.hex", told["messages"][0]["hint"])
        told = self.run_tool("doctor")
        self.assertExit(told, 10)  # nothing failed but the look
        self.assertIn("/images/a.hex (sha256 12ab) was being programmed", told.out)
        self.assertErrorForm(told, "flash incomplete: part of the image is missing", "1 check failed")

    def test_doctor_names_what_fails(self):
        self.assertTrue(all(check["ok"] for check in self.result_of("doctor")["checks"]))
        for fault, item in (("CyOpen@2:4", "kernel driver"),
                            ("CyGetSpiConfig@1:6", "SCB0"), ("libusb_control_transfer@3:-7", "configuration checksum"),
                            ("CySpiReadWrite@1+:11", "flash ID"), ("ldv_open@1:10", "LDV name"),
                            ("ldv_write@1:4", "Neuron answer")):
            with self.subTest(fault):
                result = self.run_tool("--json", "doctor", sim=["fault=" + fault])
                self.assertExit(result, 10)
                failed = [check for check in result.json["result"]["checks"] if check["ok"] is False]
                self.assertEqual(failed[0]["item"], item)
                self.assertTrue(failed[0]["hint"])


if __name__ == "__main__":
    unittest.main()
