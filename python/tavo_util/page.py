"""What was done to an interface, as one HTML page for the file of a job."""

from __future__ import annotations

from typing import Mapping

from tavo_util import _core
from tavo_util._core import Image
from tavo_util.errors import Error
from tavo_util.results import DeviceDescription, FlashChip, StatusHistory, VerifyResult


def job_page(title: str, *, tool: str = "tavo_util", device: DeviceDescription | None = None,
             chip: FlashChip | None = None, image: Image | None = None, verified: VerifyResult | None = None,
             watched: StatusHistory | None = None, error: Error | None = None, summary: str = "", seconds: float = 0.0,
             facts: Mapping[str, object] | None = None) -> str:
    """A page that needs no network and no script, readable on a telephone and on paper.

    It tells what is given: interface and image, the map and the differences of a verification, what the counters did
    while they were watched, a failure with its hint and details. facts: figures of your own. seconds: how long the work
    took, up to now.
    """
    if error is not None:
        result, state = "failed", str(error.state)
    else:
        result, state = "done" if verified is None or verified else "differs", ""
    if verified is not None:
        state, chip = str(verified.state), verified.chip
        summary = summary or ("equal" if verified else "the chip differs from the image")
    found: list[tuple[str, str]] = []
    if device is not None:
        rows = {"serial number": device.serial, "Neuron ID": device.neuron_id, "port": device.path,
                "product": f"{device.manufacturer} {device.product}".strip(),
                "USB ID": f"{device.vendor_id:04X}:{device.product_id:04X}"}
        found += [row for row in rows.items() if row[1]]
    if chip is not None:
        found.append(("flash", chip.text))
    messages = [] if error is None else [(True, str(error), error.hint, error.details)]
    looks = None if watched is None else (watched.started, [
        (look.seconds, None if look.status is None else bytes(look.status), look.why) for look in watched.looks])
    return _core.job_page(title, tool, result, summary or str(error or ""), state, seconds, found,
                          [(name, str(value)) for name, value in (facts or {}).items()], messages, image,
                          None if verified is None else verified.contents,
                          0 if chip is None else chip.size, verified is None or verified.is_complete, looks)
