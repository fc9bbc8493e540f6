"""Commands that keep an image safe: dump, verify, blank-check, backup, convert."""

import concurrent.futures
import gzip
import hashlib
import os
import re
import resource
import shlex
import shutil
import struct
import subprocess
import unittest

from tool import END, MIB, Result, ToolTest, image, noise, record

try:
    import intelhex
except ImportError:  # the other tools' reading of a dump is then not tested
    intelhex = None


class Dump(ToolTest):
    def test_the_file_holds_the_chip_for_everyones_tools(self):
        for size, content in (("64K", noise(65536)), ("1M", b"\xff" * MIB), ("1M", noise(300) + b"\xff" * 70000 + b"x")):
            with self.subTest(size=size, content=len(content)):
                shutil.rmtree(self.board, ignore_errors=True)
                self.run_tool("list", sim=["size=" + size])
                self.fill_flash(content)
                told = self.run_tool("--json", "dump", "-f", self.path("dump.hex")).json
                chip = self.flash()
                self.assertEqual(told["result"]["sha256"], hashlib.sha256(chip).hexdigest())
                self.assertEqual(told["result"]["bytes"], len(chip))
                if intelhex:
                    self.assertEqual(intelhex.IntelHex(self.path("dump.hex")).tobinstr(), chip)

    def test_the_name_tells_the_format_and_a_dash_is_standard_output(self):
        self.fill_flash(noise(3000))
        for name, start in (("d.hex", b":20000000"), ("d", b":"), ("d.srec", b"S"), ("d.bin", noise(3000))):
            with self.subTest(name):
                result = self.run_tool("dump", self.path(name))
                self.assertExit(result, 0)
                self.assertEqual(len(result.out.splitlines()), 1)
                self.assertTrue(self.read(name).startswith(start))
        self.assertEqual(self.read("d.bin"), self.flash())
        self.assertEqual(self.run_tool("dump", "-").out.encode(), self.read("d.hex"))
        for args in (["dump", self.path("d.elf")], ["dump", self.path("d.hex.gz")], ["dump", "-", "--json"],
                     ["program", "--backup", self.path("b.elf"), self.path("d.hex")]):
            self.assertExit(self.run_tool(*args), 2)
        self.assertEqual(self.whats_there(), ["d", "d.bin", "d.hex", "d.srec"])

    def test_an_existing_file_or_folder_is_left_alone(self):
        self.write("there.hex", ["mine"])
        os.mkdir(self.path("folder"))
        for target, hint in (("there.hex", "--force"), ("folder", "inside the folder"), ("missing/x.hex", "path")):
            with self.subTest(target):
                result = self.run_tool("dump", self.path(target))
                self.assertExit(result, 8)
                self.assertErrorForm(result, "device not touched")
                self.assertIn(hint, result.err)
        self.assertEqual(self.read("there.hex"), b"mine\n")
        os.symlink("there.hex", self.path("link.hex"))
        self.assertExit(self.run_tool("dump", "--force", self.path("link.hex")), 0)
        self.assertTrue(os.path.islink(self.path("link.hex")))
        os.mkfifo(self.path("pipe"))
        self.assertExit(self.run_tool("dump", "--force", self.path("pipe")), 8)
        self.assertGreater(len(self.read("there.hex")), 2 * MIB)

    def whats_there(self):
        return sorted(set(os.listdir(self.folder)) - {"board"})

    def test_a_disk_that_fills_leaves_no_file_and_is_told_from_a_bad_device(self):
        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (MIB, MIB))
        self.run_tool("list")
        full = self.run_tool("dump", self.path("dump.hex"), preexec_fn=limit)
        self.assertExit(full, 8)
        self.assertIn("File too large", full.err)
        broken = self.run_tool("dump", self.path("dump.hex"), sim=["fault=CySpiReadWrite@200:12"])
        self.assertExit(broken, 10)
        self.assertErrorForm(broken, "flash contents unchanged", "TAVO_PIPE_HALTED 19")
        self.assertEqual(self.whats_there(), [])

    def test_ctrl_c_leaves_no_file_and_the_device_free(self):
        with self.start_tool("dump", self.path("dump.hex"), sim=["pace=real", "size=256K"]) as process:
            result = self.interrupt_when(process, "dump: 10 %")
        self.assertExit(result, 130)
        self.assertErrorForm(result, "flash contents unchanged")
        self.assertEqual(self.whats_there(), [])
        self.assertExit(self.run_tool("dump", self.path("dump.hex")), 0)

    def test_a_chip_whose_size_cannot_be_right_is_not_dumped(self):
        for code, text in ((31, "2048 MiB"), (32, "cannot tell the flash size by the ID")):
            with self.subTest(code):
                result = self.run_tool("dump", self.path("dump.hex"), sim=[f"jedec={code}"])
                self.assertExit(result, 10)
                self.assertIn(text, result.err)
        self.assertExit(self.run_tool("dump", self.path("dump.hex"), sim=["jedec=0"]), 0)
        self.assertEqual(self.read("dump.hex"), b":01000000FF00\n:00000001FF\n")


class Verify(ToolTest):
    def setUp(self):
        super().setUp()
        self.fill_flash(noise(3000))

    def test_equal_and_different_contents(self):
        self.assertEqual(self.run_tool("verify", self.write("same.hex", image((256, noise(3000)[256:])))).out, "equal\n")
        spoiled = bytearray(noise(3000))
        spoiled[0x100] ^= 1
        spoiled[0x101] ^= 1
        spoiled[0x9FF] ^= 1
        result = self.run_tool("verify", self.write("other.hex", image((0, spoiled))))
        self.assertExit(result, 9)
        first = f"0x000100: file {spoiled[0x100]:02X}, flash {spoiled[0x100] ^ 1:02X} (2 pages)"  # all of it is one read
        self.assertTrue(result.out.startswith("differs at " + first), result.out)
        told = self.run_tool("--json", "verify", "--every", self.path("other.hex")).json
        self.assertEqual((told["exit_status"], told["result"]["equal"], told["result"]["bytes_different"]), (9, False, 3))
        self.assertEqual([(d["first"], d["last"], d["bytes"]) for d in told["result"]["differences"]],
                         [(0x100, 0x101, 2), (0x9FF, 0x9FF, 1)])

    def test_the_rest_is_looked_at_on_request(self):
        path = self.write("part.hex", image((0, noise(3000)[:100])))
        self.assertExit(self.run_tool("verify", path), 0)
        result = self.run_tool("verify", "--rest-blank", path)
        self.assertExit(result, 9)
        self.assertIn("differs at 0x000064: not in the file, flash", result.out)

    def test_blank_check_finds_the_first_byte(self):
        told = self.run_tool("--json", "blank-check", "--every").json
        self.assertEqual((told["exit_status"], told["result"]),
                         (9, {"blank": False, "first": 0, "pages": 12, "complete": True}))
        self.fill_flash(noise(9000))
        self.assertIn("not blank: first at 0x000000 (at least 16 pages; --every counts all)",
                      self.run_tool("blank-check").out)
        self.run_tool("erase", "-y")
        self.assertExit(self.run_tool("blank-check"), 0)


class Info(ToolTest):
    def test_everything_is_told_and_nothing_needs_to_be_there(self):
        told = self.run_tool("--json", "info", "--flash").json["result"]
        self.assertEqual((told["flash_maker"], told["flash_size"], told["scb0"]), ("Winbond", MIB, "spi"))
        self.assertIn("silicon ID    " + told["silicon_id"], self.run_tool("info").out)
        self.assertEqual((told["neuron_id"], told["node_state"]), ("050102030405", {"name": "configured", "raw": 4}))
        less = self.run_tool("--json", "info", "--flash", sim=["fault=ldv_open@1+:1", "fault=CySpiReadWrite@1+:6",
                                                    "fault=libusb_control_transfer@2+:-9"]).json
        self.assertEqual(less["exit_status"], 0)
        self.assertEqual([less["result"][name] for name in ("neuron_id", "flash_size", "silicon_id")], [None] * 3)

    def test_it_begins_with_a_picture_and_leaves_a_neuron_that_answers_alone(self):
        shown = self.run_tool("info").out
        self.assertEqual([line[:16] for line in shown.splitlines()[:6]],
                         ["USB             ", "`- bridge       ", "   |- SCB0      ", "   |  `- flash  ", "   `- Neuron    ", ""])
        for line in ("Neuron    running, configured\n", "flash  not looked at: "):
            self.assertIn(line, shown)
        told = self.run_tool("--json", "info").json["result"]
        self.assertEqual([part["ok"] for part in told["parts"]], [True, True, True, None, True])
        self.assertEqual((told["flash_size"], told["neuron_restarted"]), (None, False))
        self.assertNotIn("neuron.reset-cause=02", self.read("board/board.txt").decode())  # 02: by its line
        self.assertIn("the Neuron was restarted", self.run_tool("info", "--flash").out)
        self.assertIn("neuron.reset-cause=02", self.read("board/board.txt").decode())
        self.assertExit(self.run_tool("info", "--flash", "--no-flash"), 2)
        self.assertIn("-     flash ID", self.run_tool("doctor", "--no-flash").out)

    def test_the_picture_is_red_where_something_is_wrong(self):
        shown = self.run_on_terminal("info", sim=["fault=ldv_read@1+:4"], env={"LC_ALL": "C.UTF-8"}).out
        self.assertIn("└─ Neuron    \x1b[1;31mFAIL silent\x1b[0m - ", shown)

    def test_without_any_access_it_is_a_failure(self):
        self.assertExit(self.run_tool("info", sim=["fault=CyOpen@2+:1"]), 5)  # the first one is the look for interfaces

    def test_what_the_look_at_the_flash_leaves_held_is_told(self):
        result = self.run_tool("info", "--flash", sim=["fault=CySetGpioValue@2+:11"])
        self.assertExit(result, 10)
        self.assertIn("the Neuron is held in reset (pin 8 low)", result.err)
        self.assertNames(result.err, "recover")


class BesideARun(ToolTest):
    def test_looking_never_disturbs_and_names_the_run(self):
        path = self.write("image.hex", image((0, noise(MIB // 16))))
        with self.start_tool("program", path, sim=["pace=real", "size=256K"]) as process:
            self.wait_for(process, "program:")
            looks = 0
            while process.poll() is None:
                told = self.run_tool("--json", "list").json["result"]["devices"][0]["access"]
                self.assertIn(told, (f"busy (process {process.pid})", "ok"))
                looks += told != "ok"
            self.assertExit(Result(process.returncode, "", process.stderr.read()), 0)
        self.assertGreater(looks, 0)
        self.assertEqual(self.run_tool("--json", "list").json["result"]["devices"][0]["access"], "ok")


class ProgramSafely(ToolTest):
    def setUp(self):
        super().setUp()
        self.fill_flash(noise(5000, seed=3))
        self.before = self.flash()
        self.image = self.write("image.hex", image((0x20, noise(700))))

    def test_the_backup_is_whole_before_the_erase(self):
        told = self.run_tool("--json", "program", self.image, "--backup", self.path("backup-{serial}.hex")).json
        self.assertEqual(told["result"]["backup"], self.path("backup-00001234.hex"))
        self.assertExit(self.run_tool("program", self.path("backup-00001234.hex")), 0)
        self.assertEqual(self.flash(), self.before)

    def test_without_a_backup_there_is_no_erase(self):
        self.write("there.hex", ["mine"])
        for target, sim, code in (("there.hex", [], 8), ("missing/b.hex", [], 8),
                                  ("b.hex", ["fault=CySpiReadWrite@200+:6"], 10)):
            with self.subTest(target):
                result = self.run_tool("program", self.image, "--backup", self.path(target), sim=sim)
                self.assertExit(result, code)
                self.assertEqual(self.flash(), self.before)
        self.assertEqual(self.read("there.hex"), b"mine\n")

    def test_an_image_that_is_there_already_is_not_programmed_again(self):
        first = self.run_tool("--json", "program", "--if-different", self.image).json
        self.assertEqual(first["result"]["pages_written"], 3)
        again = self.run_tool("--json", "program", "--if-different", self.image, "--backup", self.path("b.hex")).json
        self.assertEqual((again["result"]["up_to_date"], again["flash_state"]), (True, "unchanged"))
        self.assertFalse(os.path.exists(self.path("b.hex")))
        self.assertEqual(self.run_tool("program", "--if-different", self.image).out,
                         "already up to date: nothing erased, nothing written\n")

    def test_what_the_file_does_not_cover_is_kept_on_wish(self):
        old = noise(0x20000, 5)
        self.run_tool("program", self.write("old.hex", image((0, old))))
        new = self.write("new.hex", image((0x1010, noise(300, 6))))
        done = self.run_tool("--json", "program", "--keep", new).json["result"]
        self.assertEqual((done["plan"], done["sectors_erased"], done["pages_written"], done["pages_kept"]),
                         ("sectors", 1, 16, 496))
        self.assertEqual(self.flash()[:0x20000], old[:0x1010] + noise(300, 6) + old[0x1010 + 300:])
        self.assertFalse([name for name in os.listdir(self.board) if name.startswith("kept")])
        planned = self.run_tool("-n", "program", "--keep", new).out
        self.assertIn("to look at such a chip, longer at a larger one, and ", planned)
        self.assertIn("erase what must be erased of", planned)
        self.assertIn("1 page in 0x001000-0x0010FF (", self.run_tool("-n", "program", new, "--range", "0x1000+256").out)
        self.assertExit(self.run_tool("program", "--keep", "--full", new), 2)

    def test_a_part_of_the_file_is_programmed_and_a_cut_is_put_right_by_the_command_that_is_named(self):
        old, new = noise(0x20000, 5), noise(0x9000, 6)
        self.run_tool("program", self.write("old.hex", image((0, old))))
        raw, part = self.write("a new image", new), ["--format", "bin", "--address", "0x1000", "--range", "0x2100+0x200"]
        told = self.run_tool("--json", "program", raw, *part).json
        self.assertEqual((told["exit_status"], told["result"]["range"]), (0, {"first": 0x2100, "last": 0x22FF}))
        self.assertEqual(self.flash()[:0x20000], old[:0x2100] + new[0x1100:0x1300] + old[0x2300:])
        part[-1] = "0x7000-0x7FFF"
        cut = self.run_tool("program", raw, *part, sim=["fault=CySpiReadWrite@310+:6"])
        self.assertExit(cut, 11)
        self.assertIn("with --range 0x007000-0x007FFF", cut.err)
        named = re.search(r"program it again: (tavo-util .*?)(;|$)", self.run_tool("doctor").out, re.M)[1]
        self.assertExit(self.run_tool(*shlex.split(named)[1:], device=False), 0)
        self.assertEqual(self.flash()[:0x20000],
                         old[:0x2100] + new[0x1100:0x1300] + old[0x2300:0x7000] + new[0x6000:0x7000] + old[0x8000:])
        for args, code, text in ((["--range", "0x20000+4K"], 7, "has no data in 0x020000-0x020FFF"),
                                 (["--range", "4K+4K", "--full"], 2, "--range 0x001000-0x001FFF says the opposite")):
            result = self.run_tool("program", raw, *part[:4], *args)
            self.assertExit(result, code)
            self.assertIn(text, result.err)

    def test_a_dry_run_fails_as_the_real_run_would_and_names_every_step(self):
        self.write("there.hex", ["mine"])
        result = self.run_tool("-n", "program", self.image, "--backup", self.path("there.hex"))
        self.assertExit(result, 8)
        told = self.run_tool("-n", "--json", "program", self.image, "--backup", self.path("b.hex"), "--if-different").json
        self.assertEqual(told["result"]["planned"], ["read", "backup", "erase", "program", "verify"])
        self.assertFalse(os.path.exists(self.path("b.hex")))

    def test_program_dump_program_is_a_fixed_point(self):
        pieces = [(0x1F, noise(2)), (0xFFF8, noise(16)), (0x20000, noise(700)), (0x30055, b"\x00"), (0x30057, b"\x01")]
        self.assertExit(self.run_tool("program", self.write("many.hex", image(*pieces, width=7))), 0)
        chip = self.flash()
        self.run_tool("dump", self.path("dump.hex"))
        self.run_tool("erase", "-y")
        self.assertExit(self.run_tool("program", self.path("dump.hex")), 0)
        self.assertEqual(self.flash(), chip)

    def test_what_was_checked_is_what_is_programmed(self):
        path = self.write("image.hex", image((0, noise(60000))))
        with self.start_tool("program", path) as process:
            self.wait_for(process, "check: done")
            self.write("image.hex", ["nonsense"])
            process.communicate()
        self.assertEqual(process.returncode, 0)
        self.assertEqual(self.flash()[:60000], noise(60000))


class Convert(ToolTest):
    def convert(self, lines, end="\n"):
        return self.run_tool("--json", "convert", "-f", self.write("in.hex", lines, end), self.path("out.hex"), device=False)

    def test_what_toolchains_write_becomes_what_program_takes(self):
        high = record(4, 0, [0, 2])
        cases = [
            ("line ends", image((0, b"abc")), "\r\n", image((0, b"abc")), 1),
            ("lower case", [line.lower() for line in image((0, b"\xab"))], "\n", image((0, b"\xab")), 1),
            ("blank lines", [record(0, 0, b"a"), "", END, " "], "\n", [record(0, 0, b"a"), END], 1),
            ("start records", [record(3, 0, [0] * 4), record(0, 0, b"a"), record(5, 0, [0] * 4), END], "\n",
             [record(0, 0, b"a"), END], 1),
            ("segment", [record(2, 0, [0x10, 0x01]), record(0, 0xFFEF, b"ab"), END], "\n",
             [record(4, 0, [0, 1]), record(0, 0xFFFF, b"a"), high, record(0, 0, b"b"), END], 2),
            ("wrap in the segment", [record(2, 0, [0x10, 0]), record(0, 0xFFFF, b"ab"), END], "\n",
             [record(4, 0, [0, 1]), record(0, 0xFFFF, b"a"), record(0, 0, b"b"), END], 2),
            ("back to linear", [record(2, 0, [0x20, 0]), record(0, 0, b"a"), record(4, 0, [0, 0]), record(0, 0, b"b"), END],
             "\n", [high, record(0, 0, b"a"), record(4, 0, [0, 0]), record(0, 0, b"b"), END], 1),
            ("nothing", image((0xFFF0, noise(300))), "\n", image((0xFFF0, noise(300))), 0),
        ]
        for name, lines, end, wanted, changes in cases:
            with self.subTest(name):
                result = self.convert(lines, end)
                self.assertExit(result, 0)
                self.assertEqual(self.read("out.hex").decode().splitlines(), wanted)
                self.assertEqual(len(result.json["result"]["changed"]), changes)
                self.assertExit(self.run_tool("check", "--strict", self.path("out.hex"), device=False), 0)

    def test_the_name_of_the_output_chooses_its_format(self):
        source = self.write("in.hex", image((0, b"abc")))
        for name, start in (("o.hex", b":"), ("o", b":"), ("o.s19", b"S"), ("o.srec", b"S"), ("o.bin", b"abc")):
            with self.subTest(name):
                self.assertExit(self.run_tool("convert", source, name, device=False), 0)
                self.assertTrue(self.read(name).startswith(start), self.read(name))
                self.assertExit(self.run_tool("convert", "-f", name, "back.hex", device=False), 0)
                self.assertEqual(self.read("back.hex"), self.read("in.hex"))
        for args in (["o2.elf"], ["o2.hex.gz"], ["-", "--json"]):
            self.assertExit(self.run_tool("convert", source, *args, device=False), 2)
        self.assertEqual([name for name in os.listdir(self.folder) if name.startswith(("o2", "-"))], [])
        with open(source) as stdin:
            result = self.run_tool("convert", "-", "-", "--to", "bin", device=False, stdin=stdin)
        self.assertEqual((result.out, result.err.count("nothing had to be changed")), ("abc", 1))

    def test_what_is_not_valid_is_refused_and_nothing_written(self):
        good = image((0, b"abc"))
        for name, lines in (("start code", ["x" + good[0][1:], END]), ("checksum", [good[0][:-2] + "00", END]),
                            ("length", [good[0][:-2], END]), ("no end", good[:-1]), ("after the end", [END, *good]),
                            ("overlap", [good[0], record(0, 0, b"xyz"), END])):
            with self.subTest(name):
                self.assertExit(self.convert(lines), 7)
                self.assertEqual(os.listdir(self.folder), ["in.hex"])

    def test_an_existing_file_is_replaced_on_request_only(self):
        path, there = self.write("in.hex", image((0, b"abc"))), self.write("out.hex", ["mine"])
        result = self.run_tool("convert", path, there, device=False)
        self.assertExit(result, 8)
        self.assertIn("--force", result.err)
        self.assertEqual(self.read("out.hex"), b"mine\n")
        self.assertExit(self.run_tool("-n", "convert", "--force", path, there, device=False), 0)
        self.assertEqual(self.read("out.hex"), b"mine\n")
        self.assertExit(self.run_tool("convert", "--force", path, there, device=False), 0)
        self.assertEqual(self.read("out.hex"), self.read("in.hex"))

    @unittest.skipUnless(shutil.which("objcopy") and shutil.which("srec_cat"), "needs objcopy and srec_cat")
    def test_what_other_tools_write_is_programmed_on_the_way(self):
        with open(self.path("image.bin"), "wb") as file:
            file.write(noise(150000))
        for command in (["objcopy", "-I", "binary", "-O", "ihex", "image.bin", "image.hex"],
                        ["srec_cat", "image.bin", "-Binary", "-o", "image.hex", "-Intel", "-address-length=3"]):
            with self.subTest(command[0]):
                subprocess.run(command, cwd=self.folder, check=True)
                self.assertExit(self.run_tool("program", "--strict", self.path("image.hex")), 7)
                self.assertExit(self.run_tool("program", self.path("image.hex")), 0)
                self.assertEqual(self.flash()[:150000], noise(150000))


class Ranges(ToolTest):
    """Only that part is read, compared or erased."""

    CHIP = noise(300000) + b"\xff" * (MIB - 300000)

    def setUp(self):
        super().setUp()
        self.fill_flash(self.CHIP)

    def test_a_part_is_dumped_with_its_addresses(self):
        self.write("layout", ["# mine", "00010000:0001ffff app", "100000-100fff above"])
        for args, first, last in ((["--range", "0x10000-0x1FFFF"], 0x10000, 0x1FFFF), (["--range", "100+1"], 100, 100),
                                  (["--range", "app", "--layout", "layout"], 0x10000, 0x1FFFF)):
            with self.subTest(args):
                told = self.run_tool("--json", "dump", "-f", "part.hex", *args).json["result"]
                self.assertEqual((told["bytes"], told["range"]), (last - first + 1, {"first": first, "last": last}))
                self.assertEqual(self.read("part.hex").decode().splitlines(), image((first, self.CHIP[first:last + 1])))
        result = self.run_tool("dump", "part.bin", "--range", "64K+64K")
        self.assertIn("--address 0x010000 puts it back there", result.out)
        self.assertEqual(self.read("part.bin"), self.CHIP[0x10000:0x20000])
        self.assertEqual(self.run_tool("verify", "part.bin", "--address", "64K").code, 0)
        for args, text in ((["--range", "2-1"], "ends before it begins"), (["--range", "nope"], "is no range"),
                           (["--layout", "layout"], "none is chosen"), (["--range", "1M+1"], "above the chip's last address"),
                           (["--range", "above", "--layout", "layout"], "above the chip's last address"),
                           (["--range", "boot", "--layout", "layout"], "a name of the layout: app, above"),
                           (["--range", ""], "--range: an empty value")):
            result = self.run_tool("dump", "no.hex", *args)
            self.assertExit(result, 2)
            self.assertIn(text, result.err)
        result = self.run_tool("dump", "no.hex", "--range", "x", "--layout", self.write("bad", ["0-FFF a", "x-y b"]))
        self.assertExit(result, 7)
        self.assertIn("bad refused: line 2: 'x-y' is no range\n", result.err)
        self.assertIn("state: device not touched", result.err)
        self.assertFalse(os.path.exists(self.path("no.hex")))

    def test_only_that_part_is_compared_or_looked_at(self):
        spoiled = bytearray(self.CHIP[:300000])
        spoiled[0x20000] ^= 1
        path = self.write("image.hex", image((0, spoiled)))
        for args, code, text in ((["--range", "0-0x1FFFF"], 0, "equal"), (["--range", "0x20000+1"], 9, "differs at 0x020000"),
                                 (["--range", "0x1F000-0x2FFFF", "--every"], 9, "(1 page)"),
                                 (["--range", "512K+4K", "--rest-blank"], 0, "equal"),
                                 (["--range", "512K+4K"], 7, "its data lie in 0x000000-0x0493DF")):
            with self.subTest(args):
                result = self.run_tool("verify", path, *args)
                self.assertExit(result, code)
                self.assertIn(text, result.out + result.err)
        result = self.run_tool("blank-check", "--range", "300000+4K")
        self.assertEqual((result.code, result.out), (0, "blank: 4 KiB of FF in 0x0493E0-0x04A3DF\n"))
        self.assertEqual(self.run_tool("--json", "blank-check", "--range", "299999+4K").json["result"]["first"], 299999)

    def test_the_clock_is_set_as_told_and_set_back(self):
        chip = self.write("chip.bin", self.CHIP)
        for command in (["verify", chip], ["dump", "fast.bin"], ["blank-check"], ["erase", "-y"], ["program", chip]):
            with self.subTest(command):
                result = self.run_tool("--log", "detail", *command, "--clock", "3000000")
                self.assertExit(result, 9 if command == ["blank-check"] else 0)
                self.assertIn("SPI configuration master 3000000 Hz", self.read("detail").decode())
                self.assertIn("bridge.spi=900000 ", self.read("board/board.txt").decode())
        self.assertExit(self.run_tool("verify", chip, "--clock", "3000001"), 2)

    def test_a_part_is_erased_on_the_borders_of_sectors_and_the_rest_stays(self):
        for sim in ([], ["sfdp=none"]):
            with self.subTest(sim):
                self.fill_flash(self.CHIP)
                told = self.run_tool("--json", "erase", "-y", "--range", "0xF000-0x20FFF", sim=sim).json
                self.assertEqual((told["exit_status"], told["flash_state"]), (0, "incomplete"))
                self.assertEqual(told["result"]["sectors_erased"], 18 if sim else 3)
                self.assertEqual(self.flash(), self.CHIP[:0xF000] + b"\xff" * 0x12000 + self.CHIP[0x21000:])
        before = self.flash()
        result = self.run_tool("erase", "-y", "--range", "0x1800-0x3FFE")
        self.assertExit(result, 2)
        self.assertErrorForm(result, "flash contents unchanged", "does not begin and end where sectors of 4 KiB do")
        self.assertIn("hint:  give --range 0x001000-0x003FFF or --range 0x002000-0x002FFF", result.err)
        self.assertExit(self.run_tool("erase", "--range", "0+4K"), 13)
        self.assertIn("erase 0x000000-0x000FFF of the flash of", self.run_tool("erase", "--range", "0+4K").err)
        self.assertExit(self.run_tool("-n", "erase", "--range", "0+4K"), 0)
        result = self.run_tool("erase", "-y", "--range", "0x30000+4K", sim=["lose-erase=1"])
        self.assertExit(result, 11)
        self.assertErrorForm(result, "flash incomplete: part of the image is missing", "left data at 0x030000")
        self.assertEqual(self.flash(), before)


class Formats(ToolTest):
    DATA = noise(5000)

    def srec(self, kind, address, data=b""):
        body = bytes([len(data) + 3]) + address.to_bytes(2, "big") + data
        return f"S{kind}" + (body + bytes([~sum(body) & 0xFF])).hex().upper()

    def elf(self, address, data):
        header = b"\x7fELF\x01\x01\x01" + bytes(9) + struct.pack("<HHIIIIIHHHHHH", 2, 0, 1, 0, 52, 0, 0, 52, 32, 1, 0, 0, 0)
        return header + struct.pack("<IIIIIIII", 1, 84, 0, address, len(data), len(data), 5, 1) + data

    def dresses(self):
        """The same image, as people have it: contents, options, what is said of it."""
        lines = image((0x100, self.DATA))
        srec = [self.srec(1, 0x100 + at, self.DATA[at:at + 32]) for at in range(0, 5000, 32)] + [self.srec(9, 0)]
        return [(("\r\n".join(lines) + "\r\n").encode(), [], "carriage returns taken away, 158 lines"),
                ("\n".join([record(2, 0, [0, 0]), *lines]).encode(), [], "segment address records"),
                ("\n".join(srec).encode(), [], "Motorola S-record read"),
                (gzip.compress("\n".join(lines).encode()), [], "gzip unpacked"),
                (self.elf(0x100, self.DATA), [], "ELF read: 1 segment"),
                (self.DATA, ["--format", "bin", "--address", "0x100"], "raw binary read, its first byte at 0x000100")]

    def test_every_dress_of_an_image_is_taken_told_in_one_note_and_has_one_identity(self):
        plain = self.write("plain", image((0x100, self.DATA)))
        identity = self.run_tool("--json", "check", "--strict", plain, device=False).json["result"]["sha256"]

        def use(dress):  # each on a board of its own: most of a run is waiting
            number, (content, options, note) = dress
            path, board = self.write(f"image{number}", content), f"sim:board{number},pace=fast,size=64K"
            runs = [self.run_tool("-d", board, *args, path, device=False)
                    for args in (["program", *options], ["verify", *options], ["program", "--strict"])]
            told = self.run_tool("--json", "check", path, *options, device=False).json["result"]
            return note, runs, told, self.read(f"board{number}/flash.bin")
        with concurrent.futures.ThreadPoolExecutor(6) as pool:
            for note, (done, verified, strict), told, flash in pool.map(use, enumerate(self.dresses())):
                with self.subTest(note):
                    self.assertEqual([run.code for run in (done, verified, strict)], [0, 0, 7], done.err + verified.err)
                    self.assertEqual(flash, b"\xff" * 0x100 + self.DATA + b"\xff" * (0x10000 - 0x1488))
                    notes = [line for line in done.out.splitlines() if line.startswith("converted: ")]
                    self.assertEqual((len(notes), note in notes[0]), (1, True), done.out)
                    self.assertEqual((told["sha256"], len(told["changed"])), (identity, 1))
                    self.assertRegex(strict.err, "hint: .*(--strict|--format)")

    def test_a_raw_binary_says_where_it_is_put_and_no_other_format_takes_an_address(self):
        path = self.write("image.bin", self.DATA)
        self.assertIn("its first byte at 0x000000 as no other address is given", self.run_tool("program", path).out)
        for args, code, text in ((["check", self.write("nothing", self.DATA)], 7, "--format bin"),
                                 (["check", self.write("i.hex", image((0, b"a"))), "--address", "64K"], 7, "of its own"),
                                 (["check", path, "--format", "binn"], 2, "--format"),
                                 (["check", path, "--address", "16M"], 2, "is no address of the flash")):
            result = self.run_tool(*args, device=False)
            self.assertExit(result, code)
            self.assertIn(text, result.out + result.err)

    def test_standard_input_is_read_once_for_all_devices(self):
        devices = []
        for name in ("a", "b", "c"):
            devices += ["-d", f"sim:{self.path(name)},pace=fast,size=64K"]
        path = self.write("image.srec", gzip.compress(self.dresses()[2][0]))
        for args, code in ((["program", "-"], 0), (["verify", "-"], 0), (["verify", "--strict", "-"], 7)):
            with self.subTest(args), open(path, "rb") as stdin:
                result = self.run_tool(*devices, *args, device=False, stdin=stdin)
                self.assertExit(result, code)
                self.assertEqual(result.err.count("standard input refused"), 3 if code else 0)
        for name in ("a", "b", "c"):
            self.assertEqual(self.read(name + "/flash.bin")[0x100:0x1488], self.DATA)

    def test_ctrl_c_ends_the_wait_for_standard_input(self):
        with subprocess.Popen(self.command(["-v", "program", "-"]), stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, env=self.environment(), cwd=self.folder) as process:
            result = self.interrupt_when(process, "check")
        self.assertExit(result, 130)
        self.assertIn("device not touched", result.err)


if __name__ == "__main__":
    unittest.main()
