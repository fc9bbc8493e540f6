#!/usr/bin/env python3
"""Draws docs/tavo-util.svg: what a terminal shows of the real tool on a simulated interface.

usage: docs/picture.py FOLDER-OF-tavo-util [FILE]        e.g. docs/picture.py build/dev/out
"""

import html
import os
import pty
import random
import re
import subprocess
import sys
import tempfile

COMMANDS = ["info --flash", "program firmware.hex", "verify other.hex --map"]
COLORS = {"31": "#e06c75", "32": "#98c379", "33": "#e5c07b", "34": "#61afef", "35": "#c678dd", "36": "#56b6c2",
          "1": "#ffffff", "2": "#7f848e", "90": "#7f848e"}
COLUMNS, LINE, WIDTH, SIZE = 100, 18, 8.4, 14


def run(tool, words, folder):
    """What stands on the terminal when the command has ended: a row that was drawn again counts once."""
    child, master = pty.fork()
    if child == 0:
        os.chdir(folder)
        os.environ.update(TERM="xterm", COLUMNS=str(COLUMNS), TAVO_DEVICE="sim:board,pace=fast", XDG_STATE_HOME=folder)
        os.system(f"stty cols {COLUMNS}")
        os.execv(tool, [tool, *words.split()])
    shown = b""
    while True:
        try:
            shown += os.read(master, 65536)
        except OSError:  # the other side is closed
            break
    os.waitpid(child, 0)
    lines = shown.decode().replace("\r\n", "\n").split("\n")
    lines = [re.sub(r"\x1b\[[0-9;]*[A-HJKSTfhlu]", "", line.split("\r")[-1]) for line in lines]
    lines = [line.replace(folder + "/", "") for line in lines if line.strip()]
    for line in lines:
        if len(re.sub(r"\x1b\[[0-9;]*m", "", line)) > COLUMNS:
            sys.exit(f"picture.py: wider than the picture: {line}")
    return lines


def spans(line):
    color = "#d7dae0"
    for part in re.split(r"(\x1b\[[0-9;]*m)", line):
        code = re.fullmatch(r"\x1b\[([0-9;]*)m", part)
        if code:
            known = [COLORS[each] for each in code[1].split(";") if each in COLORS]
            color = known[-1] if known else "#d7dae0"  # bold stands in front of its colour
        elif part:
            yield f'<tspan fill="{color}">{html.escape(part)}</tspan>'


def main(tool, out):
    with tempfile.TemporaryDirectory() as folder:
        for name, seed in (("firmware", 1), ("other", 2)):
            image = bytearray(random.Random(1).randbytes(600000))
            if seed == 2:
                image[200000:260000] = random.Random(2).randbytes(60000)
            with open(f"{folder}/{name}.bin", "wb") as file:
                file.write(image)
            subprocess.run([tool, "-q", "convert", f"{folder}/{name}.bin", f"{folder}/{name}.hex"], check=True)
        lines = []
        for words in COMMANDS:
            lines += [f"\x1b[32m$\x1b[0m tavo-util {words}", *run(tool, words, folder), ""]
    rows = "\n".join(f'<text x="16" y="{44 + LINE * i}" xml:space="preserve">{"".join(spans(line))}</text>'
                     for i, line in enumerate(lines[:-1]))
    height = 44 + LINE * len(lines)
    with open(out, "w") as file:
        file.write(f'''<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {COLUMNS * WIDTH + 32:.0f} {height}"
 font-family="DejaVu Sans Mono, Menlo, Consolas, monospace" font-size="{SIZE}">
<rect width="100%" height="100%" rx="8" fill="#20242c"/>
{rows}
</svg>
''')


if __name__ == "__main__":
    main(os.path.abspath(os.path.join(sys.argv[1], "tavo-util")), sys.argv[2] if len(sys.argv) > 2 else
         os.path.join(os.path.dirname(os.path.abspath(__file__)), "tavo-util.svg"))
