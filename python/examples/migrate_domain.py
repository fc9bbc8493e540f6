#!/usr/bin/env python3
"""Domain-table migration: moves every attached interface that is a member of one domain to another one.

    migrate_domain.py OLD-ID NEW-ID [--write]

Subnet, node and key stay. Without --write it tells what it would do. The ID of a domain has 0, 1, 3 or 6 bytes, in
hexadecimal. Ends with 0 when all that had to be moved were.
"""

from __future__ import annotations

import dataclasses
import sys

import tavo_util


def moved(entry: tavo_util.DomainEntry, old: bytes, new: bytes) -> tavo_util.DomainEntry:
    if not entry.in_use or entry.domain_id != old:
        return entry
    return dataclasses.replace(entry, domain_id=new)


def migrate(device: tavo_util.Device, old: bytes, new: bytes, write: bool) -> str:
    before = device.domain_table()
    wanted = (moved(before[0], old, new), moved(before[1], old, new))
    if wanted == before:
        return "no member of that domain" if new not in [e.domain_id for e in before if e.in_use] else "moved before"
    if not write:
        return f"would move: {wanted}"
    changed = device.write_domain_table(before, wanted).changed
    return "moved: " + ", ".join(f"entry {index}, subnet {wanted[index].subnet}, node {wanted[index].node}"
                                 for index in changed)


def main(old: str, new: str, write: bool) -> int:
    failures = 0
    for found in tavo_util.devices():
        try:
            with tavo_util.open(found.spec) as device:
                print(f"{found.name}: {migrate(device, bytes.fromhex(old), bytes.fromhex(new), write)}")
        except tavo_util.Error as error:
            failures += 1
            print(f"{found.name}: FAILED: {error}; {error.state}; next: {error.hint}")
    return 1 if failures else 0


if __name__ == "__main__":
    arguments = [word for word in sys.argv[1:] if word != "--write"]
    if len(arguments) != 2:
        sys.exit(__doc__)
    sys.exit(main(arguments[0], arguments[1], "--write" in sys.argv))
