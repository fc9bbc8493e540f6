#!/usr/bin/env python3
"""Soak test: programs and verifies all attached interfaces again and again, side by side, until a time is over.

    soak_test.py MINUTES IMAGE IMAGE...

The images take turns. A page that needed another attempt is counted: it is the first sign of a chip that wears out.
Ctrl-C ends it after everything is released. Ends with 0 when nothing failed.
"""

from __future__ import annotations

import concurrent.futures
import dataclasses
import itertools
import sys
import threading
import time

import tavo_util


@dataclasses.dataclass
class Tally:
    name: str
    rounds: int = 0
    retries: int = 0
    failure: str = ""


def soak(spec: str, images: list[tavo_util.Image], until: float, stop: threading.Event) -> Tally:
    with tavo_util.open(spec) as device:
        tally = Tally(device.description.name)
        try:
            for image in itertools.cycle(images):
                if time.monotonic() >= until or stop.is_set():
                    break
                tally.retries += len(device.program(image, full=True, cancel=stop).retries)
                if not device.verify(image, rest_blank=True, cancel=stop):
                    tally.failure = "the flash differs after it was programmed"
                    break
                tally.rounds += 1
        except tavo_util.Cancelled:
            pass
        except tavo_util.Error as error:
            tally.failure = f"{error}; {error.state}; next: {error.hint}"
    return tally


def main(minutes: float, files: list[str]) -> int:
    images = [tavo_util.Image.read(file) for file in files]
    specs = [found.spec for found in tavo_util.devices()]
    until, stop = time.monotonic() + 60 * minutes, threading.Event()
    with concurrent.futures.ThreadPoolExecutor(max(1, len(specs))) as pool:
        running = [pool.submit(soak, spec, images, until, stop) for spec in specs]
        try:
            concurrent.futures.wait(running)
        except KeyboardInterrupt:  # in this thread only: the others are told by the event
            stop.set()
    tallies = [each.result() for each in running]
    for tally in tallies:
        print(f"{tally.name}: {tally.rounds} rounds, {tally.retries} pages twice", tally.failure)
    return 1 if not tallies or any(tally.failure for tally in tallies) else 0


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    sys.exit(main(float(sys.argv[1]), sys.argv[2:]))
