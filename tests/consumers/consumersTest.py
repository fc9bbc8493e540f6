"""Other people's projects on the installed libraries: CMake, make with pkg-config, meson; run on a simulated interface.

TAVO_BUILD is the build that is installed for it, or TAVO_PREFIX says where they are installed already.
"""

import json
import os
import random
import shutil
import subprocess
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
IMAGE = random.Random(1).randbytes(3000)


def run(*command, **more):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=300, **more)
    if done.returncode != 0:
        raise AssertionError(f"{command} ends with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


class Consumers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="tavo-consumers-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = folder.name
        cls.prefix = os.environ.get("TAVO_PREFIX")
        cls.environment = {**os.environ, "OUT": cls.folder}
        if cls.prefix is None:
            cls.prefix = cls.path("prefix")
            cls.said = run("cmake", "--install", os.environ["TAVO_BUILD"], "--prefix", cls.prefix)
            cls.libraries = os.path.dirname(run("find", cls.prefix, "-name", "libtavo-service.so").strip())
            cls.environment["PKG_CONFIG_PATH"] = os.path.join(cls.libraries, "pkgconfig")
        with open(cls.path("image.bin"), "wb") as file:
            file.write(IMAGE)
        run("srec_cat", cls.path("image.bin"), "-Binary", "-Output", cls.path("image.hex"), "-Intel",
            "-Output_Block_Size=32", "-Line_Termination=NL")

    @classmethod
    def path(cls, *names):
        return os.path.join(cls.folder, *names)

    def assertPrograms(self, *command, environment=None):
        """The command, which knows the board as sim:board, brings the image onto a new one."""
        board = self.path("board")
        shutil.rmtree(board, ignore_errors=True)
        run(*command, cwd=self.folder, env={**os.environ, **(environment or {})})
        with open(os.path.join(board, "flash.bin"), "rb") as file:
            self.assertEqual(file.read(len(IMAGE)), IMAGE)

    def on_board(self, *program):
        return (os.path.join(self.prefix, "bin/tavo-sim"), "board,pace=fast,size=64K", "--", *program)

    def found_by_linker(self):
        """A prefix of one's own, which the dynamic linker has to be told."""
        return {"LD_LIBRARY_PATH": self.libraries} if hasattr(self, "libraries") else {}

    def test_cmake_finds_both_libraries_by_version_and_its_programs_start(self):
        out = self.path("cmake")
        run("cmake", "-S", HERE, "-B", out, "-DCMAKE_PREFIX_PATH=" + self.prefix)
        run("cmake", "--build", out, "--parallel", "2")
        self.assertPrograms(*self.on_board(out + "/programSafely", "sim:board", "image.bin", "before-cmake.hex"))
        self.assertPrograms(*self.on_board(out + "/programFlash", "image.hex"))
        if os.path.exists(out + "/programAlone"):
            self.assertNotIn("libtavo", run("ldd", out + "/programAlone"))
        text = "find_package(tavo-util 1.0 CONFIG)\nif(tavo-util_FOUND)\n  message(FATAL_ERROR found)\nendif()\n"
        with open(self.path("newer.cmake"), "w") as file:
            file.write(f"list(APPEND CMAKE_PREFIX_PATH {self.prefix})\nset(CMAKE_SIZEOF_VOID_P 8)\n{text}")
        run("cmake", "-P", self.path("newer.cmake"))

    def test_make_with_pkg_config(self):
        run("make", "-C", HERE, env=self.environment)
        for program in ("programSafely", "programInC"):
            self.assertPrograms(*self.on_board(self.path(program), "sim:board", "image.bin", program + ".hex"),
                                environment=self.found_by_linker())

    def test_meson(self):
        run("meson", "setup", self.path("meson"), HERE, env=self.environment)
        run("meson", "compile", "-C", self.path("meson"), env=self.environment)
        self.assertPrograms(*self.on_board(self.path("meson/programFlash"), "image.hex"),
                            environment=self.found_by_linker())

    @unittest.skipIf("TAVO_PREFIX" in os.environ, "static libraries are installed on request only")
    def test_a_program_without_any_shared_library_and_the_static_tool(self):
        if not os.path.exists(os.path.join(self.libraries, "libtavo-service.a")):
            self.skipTest("built without TAVO_STATIC")
        run("make", "-C", HERE, self.path("programStatic"), env=self.environment)
        self.assertPrograms(self.path("programStatic"), "sim:board", "image.bin", "before-static.hex",
                            environment={"TAVO_SIM": self.path("board") + ",pace=fast,size=64K"})
        tool = os.path.join(self.prefix, "bin/tavo-util")
        self.assertIn("OK: 12 pages", run(tool, "check", self.path("image.hex")))
        refused = subprocess.run([tool, "-d", "sim:board", "list"], capture_output=True, text=True, check=False)
        self.assertEqual((refused.returncode, "linked statically" in refused.stderr), (2, True), refused.stderr)
        loaded = subprocess.run(self.on_board(tool, "list"), cwd=self.folder, capture_output=True, text=True, check=False)
        self.assertNotIn("sim:", loaded.stdout, "what is preloaded does not reach it")

    @unittest.skipIf("TAVO_PREFIX" in os.environ, "dpkg has done it")
    def test_an_install_says_how_its_libraries_are_found_and_what_they_are_made_of(self):
        self.assertIn("-Wl,-rpath," + self.libraries, self.said)
        with open(os.path.join(self.prefix, "share/tavo-util/tavo-util.spdx.json")) as file:
            bill = json.load(file)
        names = {each["SPDXID"]: each["name"] for each in bill["packages"]}
        related = {names[each["relatedSpdxElement"]] for each in bill["relationships"]}
        self.assertEqual(related, set(names.values()), "each package has its relation")
        for part in ("libc", "usb", "elf", "nettle", "json"):
            self.assertTrue(any(part in name for name in related), part + " is missing: " + str(related))


if __name__ == "__main__":
    unittest.main()
