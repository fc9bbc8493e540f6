#!/usr/bin/env python3
"""Incoming inspection of one interface: who it is, is it healthy, does it hold the image that was ordered?

    incoming_inspection.py IMAGE RECORD.csv PAGE.html [DEVICE]

One row is added to the record, and the page is for the file of the job. Ends with 0 when the interface is accepted,
1 when it is rejected, 2 when it could not be inspected.
"""

from __future__ import annotations

import csv
import pathlib
import sys
import time

import tavo_util

COLUMNS = ["time", "serial", "neuron_id", "program_id", "image", "verdict", "why"]


def inspect(device: tavo_util.Device, image: tavo_util.Image, page: pathlib.Path) -> dict[str, str]:
    started = time.monotonic()
    found = device.doctor()
    verified = device.verify(image, every=True)
    why = [f"{check.item}: {check.text}" for check in found.failed]
    if not verified:
        first = verified.comparison.differences[0].range
        why.append(f"the flash differs in {verified.comparison.pages} pages, first in {first}")
    page.write_text(tavo_util.job_page("incoming inspection", device=device.description, image=image, verified=verified,
                                       seconds=time.monotonic() - started,
                                       facts={"health": "; ".join(why) or "good"}), encoding="utf-8")
    return {"serial": device.description.serial, "neuron_id": device.neuron_id(), "program_id": device.program_id(),
            "verdict": "rejected" if why else "accepted", "why": "; ".join(why)}


def add_row(record: pathlib.Path, row: dict[str, str]) -> None:
    is_new = not record.exists()
    with record.open("a", newline="", encoding="utf-8") as file:
        writer = csv.DictWriter(file, COLUMNS, restval="")
        if is_new:
            writer.writeheader()
        writer.writerow(row)


def main(image_file: str, record: str, page: str, *specs: str) -> int:
    row = {"time": time.strftime("%Y-%m-%dT%H:%M:%S%z")}
    try:
        image = tavo_util.Image.read(image_file)
        row["image"] = image.identity
        with tavo_util.open(*specs) as device:
            row |= inspect(device, image, pathlib.Path(page))
    except tavo_util.Error as error:
        row |= {"verdict": "not inspected", "why": f"{error}; {error.state}; next: {error.hint}"}
    add_row(pathlib.Path(record), row)
    print(row["verdict"], row["why"])
    return {"accepted": 0, "rejected": 1}.get(row["verdict"], 2)


if __name__ == "__main__":
    if len(sys.argv) not in (4, 5):
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
