#!/usr/bin/python3
"""Runs our programs and other people's in turn, on the same data, and prints medians and ratios.

usage: measure.py PROGRAMS ROUNDS

A figure is the user and system CPU time of a whole process, from its own resource usage. Each round
runs ours and theirs one after the other, so that both meet the same machine. What the programs
write is compared with the image, once. Exit code 1: a goal was missed or a result was wrong.
"""

import filecmp
import os
import random
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

PROGRAMS = Path(sys.argv[1]).resolve()
ROUNDS = int(sys.argv[2])
SIZE = 16 << 20
SMALL, SMALLER = 1 << 18, 1 << 16
PAGES, CHUNKS = SIZE // 256, -(-SIZE // 255)
# On the wire at 900 kHz: 527 bytes and a poll of 1 ms for a page, 261 bytes for a chunk.
PAGE_MS, CHUNK_MS = 527 * 8 / 900 + 1, 261 * 8 / 900

missed = 0


def run(command):
    """CPU seconds of one process; its output is dropped."""
    quiet = [(os.POSIX_SPAWN_OPEN, fd, "/dev/null", os.O_WRONLY, 0) for fd in (1, 2)]
    pid = os.posix_spawnp(command[0], command, os.environ, file_actions=quiet)
    _, status, usage = os.wait4(pid, 0)
    if status != 0:
        sys.exit(f"failed: {' '.join(command)}")
    return usage.ru_utime + usage.ru_stime


def line(what, value, unit, goal=None, note=""):
    global missed
    held = goal is None or value <= goal
    missed += not held
    wanted = "" if goal is None else f"goal {goal:g}"
    print(f"{what:<48} {value:8.3f} {unit:<5} {wanted:<10} {'' if held else 'MISSED'} {note}".rstrip(), flush=True)


def compare(what, ours, theirs, goal, prepare=lambda: None, check=lambda: True):
    """Prints the ratio of the medians; returns the median of ours in seconds."""
    times = {"ours": [], "theirs": []}
    for _ in range(ROUNDS):
        for name, command in (("ours", ours), ("theirs", theirs)):
            prepare()
            times[name].append(run(command))
    if not check():
        sys.exit(f"{what}: what was written is not the image")
    own, other = (statistics.median(times[name]) for name in ("ours", "theirs"))
    line(what, own / other, "x", goal, f"({own * 1000:.1f} ms against {other * 1000:.1f} ms)")
    return own


def reading(image):
    for length in (16, 32, 255):
        subprocess.run(["srec_cat", image, "-Binary", "-Output", f"{length}.hex", "-Intel", f"-obs={length}"], check=True)
        compare(f"HEX to pages, {length}-byte records : objcopy", [f"{PROGRAMS}/bench-read", f"{length}.hex"],
                ["objcopy", "-I", "ihex", "-O", "binary", f"{length}.hex", "objcopy.bin"], 0.35,
                check=lambda: filecmp.cmp("objcopy.bin", image, shallow=False))


def images(image):
    """The service layer: a file checked, and made anew, with its digest; the files are those of reading()."""
    def converted(out):
        subprocess.run(["objcopy", "-I", "ihex", "-O", "binary", out, "back.bin"], check=True)
        return filecmp.cmp("back.bin", image, shallow=False)

    ours = f"{PROGRAMS}/bench-image"
    for length in (16, 32, 255):
        objcopy = ["objcopy", "-I", "ihex", "-O", "binary", f"{length}.hex", "objcopy.bin"]
        compare(f"check, {length}-byte records : objcopy", [ours, "check", f"{length}.hex"], objcopy, 0.7)
        compare(f"convert, {length}-byte records : objcopy", [ours, "convert", f"{length}.hex", "ours.hex"], objcopy, 1.2,
                check=lambda: converted("ours.hex"))
    compare("convert, 16-byte records : srec_cat", [ours, "convert", "16.hex", "ours.hex"],
            ["srec_cat", "16.hex", "-Intel", "-Output", "srec.hex", "-Intel", "-obs=16"], None,
            check=lambda: converted("ours.hex"))


def writing(image):
    def same():
        subprocess.run(["objcopy", "-I", "ihex", "-O", "binary", "ours.hex", "ours.bin"], check=True)
        return filecmp.cmp("ours.bin", image, shallow=False)

    compare("pages to HEX, each line flushed : srec_cat", [f"{PROGRAMS}/bench-write", image, "ours.hex"],
            ["srec_cat", image, "-Binary", "-Output", "srec.hex", "-Intel", "-obs=255"], 0.2, check=same)


def flash(image):
    chip = Path("board/flash.bin")
    chip.parent.mkdir()
    emulated = "dummy:emulate=W25Q128FV,image=flashrom.bin"

    def blank():
        for path in (chip, Path("flashrom.bin")):
            path.write_bytes(b"\xff" * SIZE)

    def programmed():
        # Each command programs a chip made blank for it: only the last one, flashrom's, is whole now.
        run(program)
        return filecmp.cmp(chip, image, shallow=False) and filecmp.cmp("flashrom.bin", image, shallow=False)

    program = [f"{PROGRAMS}/bench-flash", "program", "board", str(SIZE), "16.hex"]
    cpu = compare("erase, program, verify : flashrom -w", program, ["flashrom", "-p", emulated, "-w", image], 0.35,
                  prepare=blank, check=programmed)
    line("  host CPU per page, simulated chip included", cpu / PAGES / PAGE_MS * 1e5, "%", 0.1)
    cpu = compare("dump : flashrom -r", [f"{PROGRAMS}/bench-flash", "dump", "board", str(SIZE), "dump.hex"],
                  ["flashrom", "-p", emulated, "-r", "flashrom.out"], 0.9,
                  check=lambda: filecmp.cmp("flashrom.out", image, shallow=False))
    line("  host CPU per chunk, simulated chip included", cpu / CHUNKS / CHUNK_MS * 1e5, "%", 0.2)
    run(["objcopy", "-I", "ihex", "-O", "binary", "dump.hex", "dump.bin"])
    if not filecmp.cmp("dump.bin", image, shallow=False):
        sys.exit("dump: what was written is not the image")


def memory():
    def peak(program, file):
        said = subprocess.run([f"{PROGRAMS}/{program}", file], check=True, capture_output=True, text=True).stdout
        return int(said.split(" peak ")[1].split()[0]) / 1024

    for file in ("small.hex", "16.hex", "255.hex"):
        line(f"peak memory of the reader, {file}", peak("bench-read-alone", file), "MiB", 4)
    line("  in a process that loads the library, 16.hex", peak("bench-read", "16.hex"), "MiB")
    line("  the same process without a line to read", peak("bench-read", "/dev/null"), "MiB")


def instructions():
    """Counted, not timed: the same on a busy machine."""
    def count(file):
        told = subprocess.run(["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
                               f"{PROGRAMS}/bench-read-alone", file], check=True, capture_output=True, text=True).stderr
        return int(told.split("Collected : ")[1].split()[0])

    per_record = (count("small.hex") - count("smaller.hex")) / (SMALL // 16 - SMALLER // 16)
    line("instructions per 16-byte record, getline included", per_record, "", 720)


def main():
    global missed
    image = "image.bin"
    Path(image).write_bytes(random.Random(1).randbytes(SIZE))
    print(f"16 MiB of random bytes, {ROUNDS} rounds in turn, medians of CPU time", flush=True)
    reading(image)
    images(image)
    writing(image)
    flash(image)
    for size, name in ((SMALL, "small"), (SMALLER, "smaller")):
        Path(f"{name}.bin").write_bytes(Path(image).read_bytes()[:size])
        subprocess.run(["srec_cat", f"{name}.bin", "-Binary", "-Output", f"{name}.hex", "-Intel", "-obs=16"], check=True)
    memory()
    instructions()
    sys.stdout.flush()
    missed += subprocess.run([f"{PROGRAMS}/bench-flash", "count"]).returncode
    subprocess.run([f"{PROGRAMS}/bench-micro", "--benchmark_min_time=0.2"], check=True)
    sys.exit(missed != 0)


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        main()
