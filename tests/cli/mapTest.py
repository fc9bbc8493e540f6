"""The chip as it is shown: maps of letters, and pages for the file of a job."""

import re
import unittest

from tool import MIB, ToolTest, image, noise


class Chip(ToolTest):
    """A board whose flash holds most of an image, a page that differs, and something beyond it."""

    def setUp(self):
        super().setUp()
        self.image = self.write("image.hex", image((0, noise(0x10000)), (0x80000, noise(5000, 2))))
        data = bytearray(b"\xff" * MIB)
        data[:0x10000], data[0x80000:0x80000 + 5000] = noise(0x10000), noise(5000, 2)
        data[0x1A00:0x1A40] = bytes(64)
        data[0xF0000:0xF0005] = b"hello"
        self.fill_flash(data)


class Maps(Chip):
    RANGES = [(0, 0x19FF, "equal"), (0x1A00, 0x1AFF, "differs"), (0x1B00, 0xFFFF, "equal"), (0x10000, 0x7FFFF, "erased"),
              (0x80000, 0x813FF, "equal"), (0x81400, 0xEFFFF, "erased"), (0xF0000, 0xF00FF, "beyond"),
              (0xF0100, 0xFFFFF, "erased")]

    def test_verify_shows_what_is_equal_differs_and_lies_beyond(self):
        result = self.run_tool("verify", self.image, "--map")
        self.assertExit(result, 9)
        lines = result.out.splitlines()
        self.assertEqual(lines[0], "differs at 0x001A00: file %02X, flash 00 (1 page)" % noise(0x10000)[0x1A00])
        self.assertEqual(lines[1], "1 MiB, one character is 1 KiB:  = equal  X differs  o beyond the image  . blank")
        self.assertEqual(lines[2], "0x000000 ======X" + "=" * 57 + "  0x000000-0x0019FF equal")
        self.assertEqual(lines[10], "0x080000 =====" + "." * 59)
        self.assertEqual((lines[17], len(lines)), ("0x0F0000 o" + "." * 63, 18))

    def test_programs_get_the_same(self):
        told = self.run_tool("--json", "verify", self.image, "--map").json["result"]
        shown = told["map"]
        self.assertEqual([(part["first"], part["last"], part["state"]) for part in shown["ranges"]], self.RANGES)
        self.assertEqual((shown["size"], shown["cell_size"], len(shown["cells"])), (MIB, 1024, 1024))
        self.assertEqual((told["complete"], told["pages_different"]), (True, 1))
        data = self.run_tool("--json", "blank-check", "--map").json["result"]["map"]
        self.assertEqual({part["state"] for part in data["ranges"]}, {"data", "erased"})
        self.assertEqual((data["cells"].count("#"), data["ranges"][-2]["first"]), (64 + 5 + 1, 0xF0000))

    def test_a_terminal_gets_colours_and_no_more_than_its_width(self):
        for columns, width in (120, 64), (80, 32), (74, 64), (30, 16):
            shown = self.run_on_terminal("verify", self.image, "--map", "--progress", "none", columns=columns).out
            self.assertIn("\x1b[1;31mX", shown)
            rows = [line.rstrip("\r") for line in re.sub(r"\x1b\[[0-9;]*m", "", shown).split("\n")]
            grid = [row for row in rows if re.match(r"0x0[0-9A-F]{5} [=X.o]", row)]
            with self.subTest(columns=columns):
                self.assertEqual((len(grid), len(grid[-1])), (1024 // width, 9 + width))
                self.assertLessEqual(max(map(len, grid)), columns)
                self.assertEqual(sum("-0x" in row and row not in grid for row in rows), 0 if columns > 79 else 8)
        plain = self.run_on_terminal("verify", self.image, "--map", "--progress", "none", env={"NO_COLOR": "1"}).out
        self.assertNotIn("\x1b", plain)


if __name__ == "__main__":
    unittest.main()
