"""The host programs of examples/, run on simulated interfaces; and the README shows the very text of one."""

import os
import random
import re
import subprocess
import tempfile
import unittest

OUT = os.environ["TAVO_OUT"]
SOURCES = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
IMAGE = random.Random(1).randbytes(5000)


class Examples(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tavo-examples-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        with open(self.path("image.bin"), "wb") as file:
            file.write(IMAGE)

    def path(self, name):
        return os.path.join(self.folder, name)

    def run_on(self, boards, program, *args):
        command = [os.path.join(OUT, "tavo-sim"), *boards, "--", os.path.join(OUT, program), *args]
        environment = {**os.environ, "TMPDIR": self.folder}
        return subprocess.run(command, cwd=self.folder, env=environment, stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=120)

    def flash(self, board):
        with open(self.path(f"{board}/flash.bin"), "rb") as file:
            return file.read()

    def test_one_device_is_programmed_and_a_failure_is_told_with_what_next(self):
        for program in ("programSafely", "programInC"):
            with self.subTest(program):
                self.check_one_device(program, f"{program}-board")

    def check_one_device(self, program, board):
        before, second = f"{board}-before.hex", f"{board}-second.hex"
        options = [f"{board},pace=fast,size=64K"]
        done = self.run_on(options, program, f"sim:{board}", "image.bin", before)
        self.assertEqual((done.returncode, self.flash(board)[:5000]), (0, IMAGE), done.stderr)
        self.assertIn("20 pages", done.stdout)
        self.assertTrue(os.path.exists(self.path(before)))

        again = self.run_on(options, program, f"sim:{board}", "image.bin", before)
        self.assertEqual(again.returncode, 1)
        self.assertRegex(again.stderr, "before.hex.*exists(.|\n)*what next:  choose another name")

        # The seventh page, and its two further attempts after the 16 of its 4 KiB.
        lost = f"other-{board},pace=fast,size=64K,lose-program=7,lose-program=17,lose-program=18"
        broken = self.run_on([lost], program, f"sim:other-{board}", "image.bin", second)
        self.assertEqual(broken.returncode, 2, broken.stderr)
        self.assertRegex(broken.stderr, "failed: .*\n(.*\n)*the device: flash incomplete.*\nwhat next:  \\S.*second.hex")

    def test_eight_devices_and_what_fails_on_one_stays_with_it(self):
        boards = [f"{name},pace=fast,size=64K,serial={name}" for name in "ABCDEFGH"]
        boards[2] += ",fault=CySpiReadWrite@80+:11"
        boards[4] += ",denied"
        boards[6] += ",fault=CySetGpioValue@2+:11"  # its Neuron stays in reset
        done = self.run_on(boards, "programAll", "image.bin")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(re.findall("^([A-H]) at .*: programmed and verified$", done.stdout, re.M), list("ABDFH"))
        for name in "ABDFH":
            self.assertEqual(self.flash(name)[:5000], IMAGE, name)
        told = done.stderr.splitlines()
        self.assertEqual(len(told), 3, told)
        self.assertRegex(told[0], "^C at .*flash incomplete")
        self.assertRegex(told[1], "^the interface at .*/E: .*access denied.*device not touched")
        self.assertRegex(told[2], "^G at .*pin 8.*recover")

    def test_images_are_converted_and_faults_told(self):
        done = self.run_on(["board,pace=fast"], "convertImage", "image.bin", "image.srec")
        self.assertEqual((done.returncode, done.stdout[:24]), (0, "raw binary, 5000 bytes, "), done.stderr)
        self.assertEqual(self.run_on(["board"], "convertImage", "image.srec", "again.bin").returncode, 0)
        with open(self.path("again.bin"), "rb") as file:
            self.assertEqual(file.read(), IMAGE)
        with open(self.path("bad.hex"), "w") as file:
            file.write(":0100000000FE\n")
        self.assertRegex(self.run_on(["board"], "convertImage", "bad.hex", "out.hex").stderr, "line 1: .* - ")

    def test_a_serial_number_is_set_and_the_block_before_kept(self):
        for i in range(2):
            done = self.run_on(["board,pace=fast"], "setSerial", "sim:board", "00005678", f"before{i}.bin")
            self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("already", done.stdout)
        with open(self.path("before0.bin"), "rb") as kept, open(self.path("board/config.bin"), "rb") as now:
            self.assertNotEqual(kept.read(), now.read())

    def test_the_neuron_is_configured_and_joins_a_domain(self):
        self.assertEqual(self.run_on(["board,pace=fast"], "neuronStatus", "sim:board").returncode, 0)
        with open(self.path("board/board.txt"), "r+") as file:
            text = file.read()
            self.assertIn("neuron.state=04", text)
            file.seek(0)
            file.write(text.replace("neuron.state=04", "neuron.state=02"))
        for state in ("unconfigured", "configured"):
            done = self.run_on(["board,pace=fast"], "neuronStatus", "sim:board")
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertIn("node state: " + state, done.stdout)
        done = self.run_on(["board,pace=fast"], "joinDomain", "sim:board", "42", "1", "7")
        self.assertEqual(done.returncode, 0, done.stderr)
        with open(self.path("board/board.txt")) as file:
            self.assertIn("neuron.domain0=2A0000000000018701", file.read())

    def test_a_failure_that_can_be_mended_is(self):
        faults = "board,pace=fast,size=64K,lose-program=7,lose-program=17,lose-program=18"
        mended = self.run_on([faults], "handleFailures", "sim:board", "image.bin")
        self.assertEqual((mended.returncode, self.flash("board")[:5000]), (0, IMAGE), mended.stderr)
        self.assertIn("the device: flash incomplete", mended.stderr)
        self.assertEqual(self.run_on(["other,denied"], "handleFailures", "sim:other", "image.bin").returncode, 1)

    def test_the_readme_shows_it(self):
        with open(os.path.join(SOURCES, "examples/programSafely.cpp")) as file:
            program = re.sub(r"\A(//.*\n)+", "", file.read())
        with open(os.path.join(SOURCES, "README.md")) as file:
            self.assertIn("```cpp\n" + program + "```", file.read(), "README.md shows another text than examples/")


if __name__ == "__main__":
    unittest.main()
