"""Images: what check and program refuse, what they leave in the chip, how they stop."""

import concurrent.futures
import os
import random
import resource
import shutil
import signal
import time
import unittest

from tool import END, MIB, ToolTest, image, noise, record

GOOD = image((0, noise(600)))


def spoiled(line):
    """The record with its checksum one too high."""
    return line[:-2] + f"{(int(line[-2:], 16) + 1) & 0xFF:02X}"


# name, contents (lines or bytes), exit code, what the error and the hint must say
BAD_FILES = [
    ("missing", None, 8, "No such file", ""),
    ("folder", "folder", 8, "directory", ""),
    ("fifo", "fifo", 8, "not a regular file", ""),
    ("empty", b"", 7, "empty", ""),
    ("binary", noise(3000), 7, "not a text file", "--format bin"),
    ("text", ["this is a note"], 7, "line 1: begins with 't'", ""),
    ("crlf", "crlf", 7, "line 1: carriage return", "convert"),
    ("checksum", [GOOD[0], spoiled(GOOD[1]), *GOOD[2:]], 7, f"line 2: wrong checksum: expected {GOOD[1][-2:]}", ""),
    ("digit", [GOOD[0].replace(GOOD[0][20], "G"), *GOOD[1:]], 7, "line 1: 'G' in column", ""),
    ("short line", [GOOD[0][:-4], *GOOD[1:]], 7, "line 1: byte count 20 makes 75 characters, the line has 71", ""),
    ("blank line", [GOOD[0], "", *GOOD[1:]], 7, "line 2: empty line", "convert"),
    ("segment record", [record(2, 0, [0x10, 0]), *GOOD], 7, "line 1: record type 02", "convert"),
    ("start record", [record(5, 0, [0, 0, 0, 0]), *GOOD], 7, "line 1: record type 05", "convert"),
    ("unknown record", [record(6, 0), *GOOD], 7, "line 1: unknown record type 06", ""),
    ("odd address record", [record(4, 0, [1]), *GOOD], 7, "line 1: an extended linear address record has 2", ""),
    ("no end", GOOD[:-1], 7, "no end-of-file record", ""),
    ("after the end", [*GOOD, GOOD[0]], 7, f"line {len(GOOD) + 1}: record after the end-of-file", ""),
    ("above the chip", image((MIB - 8, noise(32))), 7, "line 2: data at 0x0FFFF8 to 0x100017 lies above the chip", "1 MiB"),
    ("above 24 bits", image((1 << 24, noise(4))), 7, "line 2: data at 0x1000000", ""),
    ("overlap", [*GOOD[:-1], record(0, 0x10, b"\x01\x02"), END], 7, "overlaps earlier data", ""),
    ("no data", [END], 7, "no data", ""),
    ("one long line", b":" + b"0" * (20 * MIB), 7, "line 1: longer than the longest record", ""),
]


class BadFiles(ToolTest):
    def make(self, name, contents):
        if contents is None:
            return self.path("missing.hex")
        if contents == "folder":
            os.mkdir(self.path("folder.hex"))
            return self.path("folder.hex")
        if contents == "fifo":
            os.mkfifo(self.path("fifo.hex"))
            return self.path("fifo.hex")
        if contents == "crlf":
            return self.write("crlf.hex", GOOD, end="\r\n")
        return self.write(name + ".hex", contents)

    def test_each_is_told_once_with_its_remedy_and_the_chip_keeps_its_content(self):
        before = noise(MIB, seed=7)
        self.fill_flash(before)
        for name, contents, code, text, hint in BAD_FILES:
            with self.subTest(name):
                strict = ["--strict"] if hint == "convert" else []
                result = self.run_tool("program", self.make(name, contents), *strict)
                self.assertExit(result, code)
                self.assertIn(text, result.err)
                self.assertIn(hint, result.err.split("  hint:")[1])
                self.assertEqual(self.flash(), before)

    def test_check_lists_the_faults_of_a_file_and_counts_the_rest(self):
        path = self.write("bad.hex", [spoiled(line) for line in image((0, noise(1000)))])
        told = self.run_tool("--json", "check", path, device=False).json
        self.assertEqual((told["exit_status"], told["result"]["eof"]), (7, False))
        self.assertEqual(told["result"]["error_count"], 34)
        self.assertEqual([fault["line"] for fault in told["result"]["errors"]], list(range(1, 21)))

    def test_what_many_lines_have_in_common_is_one_fault_at_the_first_of_them(self):
        path = self.write("big.hex", image((0xFFFC0, noise(4096))))
        overlap = self.write("two.hex", image((0, b"a" * 320))[:-1] + image((0, b"b" * 320)))
        for args, line, text in (([path, "--flash-size", "1M"], 5, "data at 0x100000 to 0x10001F"),
                                 ([overlap], 11, "overlaps earlier data")):
            told = self.run_tool("--json", "check", *args, device=False).json["result"]
            self.assertEqual([(fault["line"], fault["text"].startswith(text)) for fault in told["errors"]], [(line, True)])
            self.assertRegex(told["errors"][0]["text"], r", here and in (125|9) more lines$")

    @unittest.skipIf(os.geteuid() == 0, "root may read everything")
    def test_a_file_without_permission(self):
        path = self.write("image.hex", GOOD)
        os.chmod(path, 0)
        self.assertExit(self.run_tool("check", path, device=False), 8)


class Check(ToolTest):
    def test_the_summary_tells_pages_ranges_and_gaps(self):
        path = self.write("image.hex", image((0x10, noise(300)), (0x8000, noise(256)), (0x1FF00, b"\xff" * 512)))
        result = self.run_tool("check", path, device=False)
        self.assertRegex(result.out, r"^OK: 5 pages, 0x000010-0x0200FF, 2 gaps, end of file record present, sha256 [0-9a-f]{64}\n$")
        told = self.run_tool("--json", "check", path, device=False).json["result"]
        self.assertEqual(told["ranges"], [{"first": 0x10, "last": 0x13B}, {"first": 0x8000, "last": 0x80FF},
                                          {"first": 0x1FF00, "last": 0x200FF}])
        self.assertEqual(told["blank_pages"], 2)

    def test_the_map_shows_data_parts_blanks_and_gaps(self):
        path = self.write("image.hex", image((0, noise(1024)), (0x800, b"a"), (0xFFC00, b"\xff" * 1024)))
        rows = self.run_tool("check", "--map", path, device=False).out.splitlines()[2:]
        self.assertEqual(rows[0], "0x000000 #.+" + "." * 61 + "  0x000000-0x0003FF data")
        self.assertEqual(rows[15], "0x0F0000 " + "." * 63 + "f")

    def test_a_device_that_is_named_tells_the_size_of_its_chip(self):
        fits = self.write("image.hex", image((0, noise(1024))))
        told = self.run_tool("--json", "check", "--map", fits, sim=["size=4M"]).json
        self.assertEqual((told["result"]["map"]["size"], told["flash_state"]), (4 * MIB, "unchanged"))
        large = self.write("large.hex", image((4 * MIB, b"a")))
        refused = self.run_tool("check", large, device=False)
        self.assertExit(refused, 0)
        self.assertExit(self.run_tool("check", large, sim=["size=4M"]), 7)
        # What a shell's profile names is not asked for it: the Neuron would restart.
        quiet = self.run_tool("check", large, device=False, env={"TAVO_DEVICE": self.device("size=4M")[1]})
        self.assertEqual((quiet.code, quiet.out), (0, refused.out))

    def test_the_chip_size_can_be_given(self):
        path = self.write("image.hex", image((0x10000, noise(16))))
        self.assertExit(self.run_tool("check", path, "--flash-size", "64K", device=False), 7)
        self.assertExit(self.run_tool("check", path, "--flash-size", "128K", device=False), 0)


class DamagedFiles(ToolTest):
    """What check lets pass is programmed as anybody else would read the file; the rest is refused."""

    def damaged(self, chance, lines):
        lines = list(lines)
        for _ in range(chance.randint(0, 2)):
            at = chance.randrange(len(lines))
            kind, line = chance.randrange(5), lines[at]
            if kind == 0 and line:  # one character becomes another
                where = chance.randrange(len(line))
                lines[at] = line[:where] + chance.choice("0123456789ABCDEFabcdef:; \r-+xG") + line[where + 1:]
            elif kind == 1:
                del lines[at]
            elif kind == 2:
                lines.insert(at, chance.choice(lines))
            elif kind == 3:
                lines[at] = line + chance.choice(["00", " ", "\r", "0"])
            else:
                lines[at] = line.lower()
            if not lines:
                return [END]
        return lines

    def decoded(self, lines):
        """A plain reading of the format: the bytes by address, or None for anything out of order."""
        data, upper, ended = {}, 0, False
        for line in lines:
            if ended or not line.startswith(":") or set(line[1:]) - set("0123456789abcdefABCDEF") or len(line) % 2 == 0:
                return None
            body = bytes.fromhex(line[1:])
            if len(body) < 5 or len(body) != body[0] + 5 or sum(body) % 256:
                return None
            if (body[3], body[0]) == (4, 2):
                upper = int.from_bytes(body[4:6], "big") << 16
            elif body[3] == 0:
                for i, byte in enumerate(body[4:-1]):
                    if data.setdefault((upper | int.from_bytes(body[1:3], "big")) + i, byte) != byte:
                        return None
            elif (body[3], body[0]) == (1, 0):
                ended = True
            else:
                return None
        return data if ended and data and max(data) < 1 << 24 else None

    def test_check_and_a_plain_reading_agree_on_every_file(self):
        chance, taken = random.Random(20), 0
        for _ in range(300):
            pieces = [(chance.choice([0, 0xFFE0, 0x20000]) + chance.randrange(1000),
                       noise(chance.randrange(1, 90), chance.random())) for _ in range(3)]
            lines = self.damaged(chance, image(*pieces, width=chance.choice([1, 16, 21, 32])))
            wanted = self.decoded(lines)
            result = self.run_tool("--json", "check", "--strict", self.write("image.hex", lines), device=False)
            self.assertExit(result, 7 if wanted is None else 0)
            if wanted is None:
                continue
            taken += 1
            covered = [a for r in result.json["result"]["ranges"] for a in range(r["first"], r["last"] + 1)]
            self.assertEqual(covered, sorted(wanted), lines)
        self.assertGreater(taken, 60)
        self.assertLess(taken, 240)


class Honesty(ToolTest):
    """Whatever call fails, what is said of the flash holds."""

    FUNCTIONS = {"CyOpen": 9, "CyClose": 8, "CyGetSpiConfig": 4, "CySetSpiConfig": 4, "CySetGpioValue": 4, "CySpiReadWrite": 16}

    BEFORE = noise(2000, seed=9) + b"\xff" * (MIB - 2000)
    AFTER = noise(600) + b"\xff" * (MIB - 600)

    def setUp(self):
        super().setUp()
        self.image = self.write("image.hex", GOOD)
        self.fill_flash(self.BEFORE)

    def program_with(self, fault):
        """On a board of its own: most of a run is waiting, so many go on at once."""
        board = self.path(fault)
        shutil.copytree(self.board, board)
        result = self.run_tool("-d", f"sim:{board},pace=fast,fault={fault}", "--json", "--progress", "none", "program",
                               self.image, device=False)
        return fault, result, self.read(fault + "/flash.bin")

    def check_claim(self, result, flash):
        told = result.json
        self.assertEqual(result.code, told["exit_status"])
        if told["flash_state"] in ("untouched", "unchanged"):
            self.assertEqual(flash, self.BEFORE)
            self.assertNotIn(told["exit_status"], (0, 11))
        elif told["flash_state"] == "programmed":
            self.assertEqual(flash, self.AFTER)
            self.assertEqual(told["exit_status"], 0)
        else:
            self.assertEqual(told["exit_status"], 11)
            self.assertTrue(told["messages"][0]["hint"])
        if told["flash_state"] == "erased":
            self.assertEqual(flash, b"\xff" * MIB)

    def test_of_program_for_each_failing_call(self):
        faults = [f"{name}@{call}:6" for name, calls in self.FUNCTIONS.items() for call in range(1, calls + 1)]
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            for fault, result, flash in pool.map(self.program_with, faults):
                with self.subTest(fault):
                    self.check_claim(result, flash)

    def test_of_a_chip_that_stops_answering_while_it_is_programmed(self):
        for call in (12, 17, 23):
            with self.subTest(call):
                result = self.run_tool("--json", "program", "--full", self.image,
                                       sim=[f"fault=CySpiReadWrite@{call}+:10"])
                self.assertExit(result, 11)
                self.assertIn(result.json["flash_state"], ("uncertain", "incomplete"))


class Program(ToolTest):
    def test_exactly_the_image_is_in_the_chip_afterwards(self):
        pieces = [(0x10, noise(300)), (0xFFF0, noise(0x40, 2)), (0x40001, noise(5000, 3)), (0x41400, b"\xff" * 300)]
        self.fill_flash(noise(MIB, seed=7))
        told = self.run_tool("--json", "program", self.write("image.hex", image(*pieces, width=21))).json
        wanted = bytearray(b"\xff" * MIB)
        for address, data in pieces:
            wanted[address:address + len(data)] = data
        self.assertEqual(self.flash(), bytes(wanted))
        self.assertEqual((told["flash_state"], told["exit_status"]), ("programmed", 0))
        self.assertEqual(told["result"]["pages_written"], sum(wanted[i:i + 256] != b"\xff" * 256 for i in range(0, MIB, 256)))

    def test_a_dry_run_tells_the_plan_and_touches_nothing(self):
        self.fill_flash(noise(MIB))
        before = self.flash()
        result = self.run_tool("--json", "-n", "program", self.write("image.hex", GOOD))
        self.assertEqual((result.json["exit_status"], result.json["flash_state"]), (0, "untouched"))
        self.assertEqual(result.json["result"]["pages_planned"], 3)
        self.assertEqual(self.flash(), before)

    def test_a_failing_step_tells_what_is_known_of_the_flash(self):
        path = self.write("image.hex", GOOD)
        # transfers: 1 to 5 look at the chip, 6 to 11 unprotect and erase it, then come the pages
        for fault, code, state in (("CySetSpiConfig@1:6", 10, "unchanged"), ("CyOpen@4:4", 6, "unchanged"),
                                   ("CySpiReadWrite@1:6", 10, "unchanged"), ("CySpiReadWrite@2:11", 12, "unchanged"),
                                   ("CySpiReadWrite@6:6", 11, "uncertain"), ("CySpiReadWrite@15+:6", 11, "incomplete")):
            with self.subTest(fault):
                told = self.run_tool("--json", "program", "--full", path, sim=["fault=" + fault]).json
                self.assertEqual((told["exit_status"], told["flash_state"]), (code, state))
                self.assertTrue(told["messages"][0]["hint"])

    def test_one_lost_program_is_made_good_by_the_next_attempt_and_told(self):
        result = self.run_tool("program", self.write("image.hex", GOOD), "--json", sim=["lose-program=2"])
        self.assertExit(result, 0)
        self.assertEqual(self.flash()[:600], noise(600))
        self.assertEqual(result.json["result"]["retries"], [256])
        self.assertIn("1 page needed more than one attempt: 0x000100", result.err)

    def test_a_dead_flash_is_neither_waited_for_nor_in_the_way_of_ctrl_c(self):
        path = self.write("image.hex", GOOD)
        for answers, code, text in ((0, 10, "no flash answers"), (16, 11, "the flash stays busy: a page program")):
            result = self.run_tool("program", "--full", path, sim=[f"dead-flash={answers}"])
            self.assertExit(result, code)
            self.assertIn(text, result.err)
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.start_tool("-v", "program", "--full", path, sim=["dead-flash=7"]) as process:
                self.wait_for(process, "call: program the flash")
                start = time.monotonic()
                result = self.interrupt_when(process, "", number)
            self.assertExit(result, 130)
            self.assertLess(time.monotonic() - start, 2)
            self.assertErrorForm(result, "the flash may be partly erased; treat it as incomplete")

    def test_scb0_as_i2c_is_told_with_its_remedy(self):
        self.assertExit(self.run_tool("-y", "scb0", "i2c"), 0)
        result = self.run_tool("program", self.write("image.hex", GOOD))
        self.assertExit(result, 10)
        self.assertErrorForm(result, "device not touched", "I2C")
        self.assertNames(result.err, "scb0 spi")

    def test_a_full_temporary_folder_plays_no_part(self):
        path = self.write("image.hex", image((0, noise(200000))))
        self.run_tool("list")
        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (65536, 65536))
        kept = self.run_tool("program", path, preexec_fn=limit)
        self.assertExit(kept, 8)  # no room for a backup
        self.assertErrorForm(kept, "device not touched", "cannot keep a backup")
        self.assertExit(self.run_tool("program", path, "--no-backup", preexec_fn=limit), 0)
        self.assertEqual(self.flash()[:200000], noise(200000))

    def test_an_absent_chip_is_found_before_the_erase(self):
        result = self.run_tool("program", self.write("image.hex", GOOD), sim=["jedec=40"])
        self.assertExit(result, 10)
        self.assertErrorForm(result, "flash contents unchanged")

    def test_ctrl_c_stops_at_the_next_page_and_releases_everything(self):
        path = self.write("image.hex", image((0, noise(MIB // 4))))
        slow = ["pace=real", "size=256K"]  # seconds, so that the signal comes in time on a busy machine too
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number), self.start_tool("program", "--full", path, sim=slow) as process:
                result = self.interrupt_when(process, "program: 10 %", number)
                self.assertExit(result, 130)
                self.assertErrorForm(result, "flash incomplete: part of the image is missing", "everything is released")
                self.assertNotIn("90 %", result.err)
        # the board is free again, and notes nothing that was left held
        self.assertExit(self.run_tool("program", self.write("small.hex", GOOD)), 0)

    def test_ctrl_c_during_the_erase_says_that_the_stop_comes_later(self):
        path = self.write("image.hex", image((0, noise(4096))))
        with self.start_tool("-v", "program", "--full", path, sim=["pace=real"]) as process:
            result = self.interrupt_when(process, "call: program the flash")
            self.assertExit(result, 130)
            self.assertIn("a chip erase cannot be stopped", result.err)


class LetGo(ToolTest):
    """Success is only told of an interface that was seen to be let go."""

    def test_a_reset_line_or_an_scb0_that_stays_held_is_a_failure_that_names_recover(self):
        path = self.write("image.hex", GOOD)
        for args, lost in ((["program", path], 0), (["verify", path], 0), (["dump", "-f", self.path("d.hex")], 0),
                           (["erase", "-y"], 1)):
            for fault, held in (("CySetGpioValue@2+:11", "the Neuron is held in reset (pin 8 low)"),
                                ("CySetSpiConfig@2+:11", "SCB0 is still SPI master beside the Neuron")):
                with self.subTest(args[0], fault=fault):
                    result = self.run_tool("--json", *args, sim=["fault=" + fault])
                    self.assertExit(result, 10 + lost)
                    self.assertIn(held, result.json["state"])
                    self.assertNames(result.json["messages"][-1]["hint"], "recover")
                    self.assertExit(self.run_tool("recover"), 0)
                once = self.run_tool("--json", *args, sim=["fault=" + fault.replace("+", "")])
                self.assertEqual((once.code in (0, 9), once.json["messages"]), (True, []))

    def test_what_a_killed_run_left_is_remembered_and_put_right_by_the_next(self):
        path, backup = self.write("image.hex", image((0, noise(MIB // 4)))), self.path("before.hex")
        with self.start_tool("program", path, "--backup", backup, sim=["pace=real", "size=256K"]) as process:
            self.wait_for(process, "program: 10 %")
            process.kill()
            process.communicate()
        told = self.run_tool("--json", "verify", path).json
        self.assertEqual((told["exit_status"], told["flash_state"]), (9, "incomplete"))
        with self.start_tool("program", path, "--backup", self.path("half.hex"), sim=["pace=real"]) as process:
            result = self.interrupt_when(process, "program: 10 %")
        self.assertExit(result, 130)
        self.assertIn("backup: " + self.path("half.hex"), result.err)
        self.assertIn("  state: flash incomplete: part of the image is missing\n", result.err)
        self.assertIn("what was there before is in " + backup, result.err)
        self.assertEqual(self.run_tool("--json", "program", path).json["flash_state"], "programmed")
        told = self.run_tool("--json", "verify", path).json
        self.assertEqual((told["exit_status"], told["flash_state"]), (0, "unchanged"))


class Erase(ToolTest):
    def test_the_whole_chip_is_erased(self):
        self.fill_flash(noise(MIB))
        self.assertExit(self.run_tool("erase", "-y"), 0)
        self.assertEqual(self.flash(), b"\xff" * MIB)

    def test_a_failure_after_the_look_at_the_chip_may_have_erased_it(self):
        result = self.run_tool("erase", "-y", sim=["fault=CySpiReadWrite@8:6"])
        self.assertExit(result, 11)
        self.assertErrorForm(result, "the flash may be partly erased; treat it as incomplete", "TAVO_REQUEST_FAILED 13")


if __name__ == "__main__":
    unittest.main()
