#!/usr/bin/env python3
"""Doxygen's view of a header: its head comment opens a group that holds all that the header declares.

Headers stay as they are read: no markup but the contracts themselves. Lines keep their numbers.
"""

import os
import re
import sys

FOLDERS = {"service": "tavo_service_", "platform": "tavo_platform_", "tavo": "tavo_"}


def group(path):
    """tavo/service/flash.h is tavo_service_flash, tavo/flash.h tavo_flash, tavo/service.h tavo_c."""
    folder, name = os.path.basename(os.path.dirname(path)), os.path.basename(path)[:-len(".h")]
    if (folder, name) == ("tavo", "service"):
        return "tavo_c"
    return FOLDERS.get(folder, "tavo_platform_") + name


def shown(path, lines):
    end = next(i for i, line in enumerate(lines) if not line.startswith("//"))
    head = [line[2:].strip() for line in lines[:end]]
    stop = head.index("") if "" in head else end
    title = re.split(r"[.:;] ", " ".join(head[:stop]))[0].rstrip(".")
    lines[0] = f"/** \\file */ /** \\defgroup {group(path)} {title}"
    lines[1:end] = head[1:]
    # In the place of #pragma once, which doxygen does without.
    lines[end] = "*/" if end > 1 else head[0] + " */"
    if end > 1:
        lines[1] = head[0] + " " + head[1]
    # A group takes what is declared at its own level: inside the namespace, where there is one.
    inside = "namespace tavo {" in lines
    first = lines.index("namespace tavo {") if inside else end
    last = lines.index("}  // namespace tavo") if inside else 0
    lines[first] += f" /** \\addtogroup {group(path)} */ /** @{{ */"
    lines.insert(last if inside else len(lines), "/** @} */")
    return lines


if __name__ == "__main__":
    with open(sys.argv[1]) as header:
        print("\n".join(shown(sys.argv[1], header.read().splitlines())))
