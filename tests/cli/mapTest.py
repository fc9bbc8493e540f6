"""The chip as it is shown: maps of letters, and pages for the file of a job."""

import os
import re
import unittest

import browser
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


class Pages(Chip):
    """Pages as a browser shows them, and as files."""

    # Of each text that shows: size, and contrast with what is behind it.
    TEXTS = r"""(() => {
      const level = color => {
        const part = color.match(/[\d.]+/g).slice(0, 3).map(v => v / 255);
        const linear = part.map(v => v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
        return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2];
      };
      const ground = at => {
        for (; at; at = at.parentElement) {
          const color = getComputedStyle(at).backgroundColor;
          if (color !== "rgba(0, 0, 0, 0)") return color;
        }
      };
      const shown = [...document.body.querySelectorAll("*")].filter(each => each.offsetParent !== null &&
        [...each.childNodes].some(node => node.nodeType === 3 && node.data.trim()));
      return shown.map(each => {
        const style = getComputedStyle(each);
        const [a, b] = [level(style.color) + 0.05, level(ground(each)) + 0.05];
        return [each.textContent, parseFloat(style.fontSize), Math.max(a, b) / Math.min(a, b)];
      });
    })()"""

    def page(self, *args, code, name="page.html", **more):
        self.assertExit(self.run_tool(*args, "--html", name, **more), code)
        return self.read(name).decode()

    @unittest.skipUnless(browser.PROGRAM, "needs chromium")
    def test_a_browser_shows_them_on_any_screen_light_and_dark(self):
        evil = '<img src=x onerror="document.title=1">&amp;'
        self.assertExit(self.run_tool("-y", "config", "set-serial", "<script>alert(1)</script>"), 0)
        os.rename(self.image, self.path(evil))
        told = self.run_tool("--json", "verify", evil, "--map").json["result"]["map"]
        self.page("verify", evil, code=9, name="differs.html")
        self.page("check", evil, code=0, name="good.html")
        self.write("<b>.hex", image((0, noise(256)))[:-1] + [":zz"])
        self.page("check", "<b>.hex", code=7, name="faults.html")
        board = self.read("board/board.txt").replace(b"neuron.growth=0000", b"neuron.growth=0003")
        self.write("board/board.txt", board)
        self.page("status", "--watch=0.2", "--count", "3", code=0, name="watch.html")
        self.page("program", "--full", evil, code=11, name="failed.html", sim=["fault=CySpiReadWrite@300+:11"])
        shown = browser.Browser(self.folder)
        self.addCleanup(shown.close)
        pages = {"differs": evil, "good": evil, "faults": "<b>.hex", "watch": "transmit errors", "failed": evil}
        for name, holds in pages.items():
            pictures = set()
            for width, scheme in (1000, "light"), (400, "light"), (400, "dark"):
                with self.subTest(name, width=width, scheme=scheme):
                    shown.show(self.path(name + ".html"), width, scheme)
                    self.assertLessEqual(shown.value("document.documentElement.scrollWidth"), width)
                    texts = shown.value(self.TEXTS)
                    self.assertEqual([text for text in texts if text[1] < 12 or text[2] < 4.5], [])
                    pictures.add(shown.picture())
            self.assertEqual(len(pictures), 3)
            self.assertEqual(shown.value("document.querySelectorAll('script, img, section b:not(.code)').length"), 0)
            said = shown.value("document.body.innerText")
            self.assertIn(holds, said)
            fields, bars = (shown.value(f"document.querySelectorAll('{kind}').length") for kind in (".map i", ".grown"))
            self.assertEqual((fields, bars), (1024 if holds == evil else 0, 2 if name == "watch" else 0))
            if name == "differs":
                self.assertIn("<script>alert(1)</script>", said)
                kinds = shown.value("[...document.querySelectorAll('.map i')].map(each => each.className)")
                letters = {"equal": "=", "wrong": "X", "beyond": "o", "erased": "."}
                self.assertEqual("".join(letters[kind] for kind in kinds), told["cells"])
        self.assertEqual(shown.problems, [])
        for part in ("failed\n", "1 MiB", "State: flash incomplete: part of the image is missing\n", "What next: ", "(stopped)"):
            self.assertIn(part, said)

    def test_a_page_replaces_an_earlier_one_and_nothing_else(self):
        self.page("check", self.image, code=0, device=False)
        self.assertIn(">verify ", self.page("verify", self.image, code=9))
        before = self.read("image.hex")
        refused = self.run_tool("program", self.image, "--html", self.image)
        self.assertExit(refused, 8)
        self.assertErrorForm(refused, "device not touched", "image.hex")
        self.assertEqual(self.read("image.hex"), before)
        self.run_tool("-n", "program", self.image, "--html", "dry.html")
        self.assertFalse(os.path.exists(self.path("dry.html")))

    def test_a_page_that_cannot_be_written_is_told_after_good_work(self):
        os.mkdir(self.path("gone"))
        process = self.start_tool("program", self.image, "--html", "gone/page.html", "--progress", "plain")
        self.wait_for(process, "boot: begins")
        os.rmdir(self.path("gone"))
        _, err = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 8, err)
        self.assertIn("state: flash programmed and verified", err)

    def test_each_of_several_devices_has_its_own(self):
        boards = ["-d", "sim:" + self.board + ",pace=fast", "-d", "sim:" + self.path("other") + ",pace=fast"]
        self.run_tool("-y", "config", "set-serial", "00005678", sim=[], device=True)
        refused = self.run_tool(*boards, "program", self.image, "--html", "page.html", device=False)
        self.assertExit(refused, 2)
        self.assertExit(self.run_tool(*boards, "program", self.image, "--html", "{serial}.html", device=False), 0)
        for serial in "00005678", "00001234":
            self.assertIn(">" + serial + "<", self.read(serial + ".html").decode())


if __name__ == "__main__":
    unittest.main()
