"""The interfaces that are attached, and the one that a program works on."""

from __future__ import annotations

import os
from types import TracebackType
from typing import Callable, Protocol

from tavo_util import _core
from tavo_util._core import Image
from tavo_util.results import (AddressRange, BlankCheckResult, ConfigurationChange, ConfigurationFields,
                               DeviceDescription, Diagnosis, DomainEntry, EraseResult, Event, FlashChip, FlashLook,
                               Forecast, InterruptedRun, Mode, ModeChange, NeuronStatus, Overview, ProgramResult,
                               ReadResult, Recovery, ResetBy, Scb0Role, StatusHistory, StatusLook, StoredNeuronId,
                               VerifyResult)

Progress = Callable[[Event], object]
Path = str | os.PathLike[str]


class CancelEvent(Protocol):
    """What cancel= takes: threading.Event, multiprocessing.Event, or your own."""

    def is_set(self) -> bool: ...


def _path(path: Path | None) -> str:
    return "" if path is None else os.fspath(path)


def _pair(part: AddressRange | None) -> tuple[int, int] | None:
    return None if part is None else (part.first, part.last)


def devices(*specs: str) -> tuple[DeviceDescription, ...]:
    """The attached interfaces in the order of their ports; those that match one of specs, when there are any.

    Disturbs no run of another process. Takes a few control transfers a device. Raises BadArgument for a spec.
    """
    return _core.devices(list(specs))


def open(*specs: str, wait: int | None = None, progress: Progress | None = None,
         cancel: CancelEvent | None = None) -> Device:
    """Chooses one interface and locks it against other processes and other objects, until it is closed.

    specs: "serial:TEXT", "usb:1-4.2", "neuron:HEX12", or a bare serial number; none, when only one is attached.
    wait: seconds to wait for it to appear; None: not at all.
    Raises NoDevice, SeveralDevices, NoPermission, DeviceBusy, BadArgument; Cancelled while it waits.
    """
    return Device(_core.open(list(specs), wait, progress, cancel))


def allow_usb_id(vendor_id: int, product_id: int) -> None:
    """Accepts one more pair of USB IDs for the rest of the process."""
    _core.allow_usb_id(vendor_id, product_id)


def parse_range(text: str, layout: Path | None = None) -> AddressRange:
    """ "0x10000-0x1FFFF", "64K+64K", or a name in a layout file (lines "FIRST-LAST NAME").

    Raises BadArgument for anything else, ImageRefused for a layout with faults.
    """
    return _core.parse_range(text, _path(layout))


def forecast(image: Image, *, full: bool = False, keep: bool = False, range: AddressRange | None = None,
             backup: Path | None = None) -> Forecast:
    """What Device.program would do, without a device. Raises what it would raise before it touches one."""
    return _core.forecast(image, full, keep, _pair(range), _path(backup))


def load_configuration(path: Path) -> bytes:
    """The 512 bytes of a configuration file, whose name ends in .bin. Raises ImageRefused, FileFailed."""
    return _core.load_configuration(_path(path))


def configuration_fields(block: bytes) -> ConfigurationFields:
    """What a configuration block of 512 bytes says. Touches no device."""
    return _core.configuration_fields(block)


class Device:
    """One interface, locked while this object is open: `with tavo_util.open() as device:`.

    One operation at a time: a second one meanwhile raises DeviceBusy. Two devices in two threads work side by side.
    Every operation takes progress= and cancel=, and may raise NoDevice, NoPermission, DeviceFailed, NoAnswer,
    DeviceBusy and Cancelled beside what it names itself; ValueError when the device is closed.
    """

    def __init__(self, held: _core.Device) -> None:
        """For open()."""
        self._held = held

    def __enter__(self) -> Device:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<tavo_util.Device: {self.description.name if self._held.is_open else 'closed'}>"

    def close(self) -> None:
        """Gives the lock back. Twice is once. Raises DeviceBusy while an operation works in another thread."""
        self._held.close()

    @property
    def description(self) -> DeviceDescription:
        """As it was found by open()."""
        return self._held.description

    @property
    def interrupted_run(self) -> InterruptedRun | None:
        """What this computer remembers of a run that changed the flash and was cut off."""
        return self._held.interrupted_run()

    # The flash. The Neuron is held in reset meanwhile and starts anew. clock_hz: 900,000 (as without) to 3,000,000.

    def inspect_flash(self, *, progress: Progress | None = None, cancel: CancelEvent | None = None) -> FlashChip:
        """The chip's ID and description. About 0.1 s, and 1.6 s of waits."""
        return self._held.inspect_flash(progress, cancel)

    def program(self, image: Image, *, full: bool = False, if_different: bool = False, keep: bool = False,
                range: AddressRange | None = None, clock_hz: int | None = None, backup: Path | None = None,
                progress: Progress | None = None, cancel: CancelEvent | None = None) -> ProgramResult:
        """Brings the image into the chip, FF elsewhere, and compares every page of it.

        full: erases the whole chip and programs every page, whatever it holds; not with if_different.
        keep: what the image does not cover stays as it is. range: only that part of the image; implies keep.
        backup: a new file for what the chip holds now (.hex, .srec, .bin), written before the erase.
        Blocks for reading the chip (9 ms a KiB at most), the erase, 7.3 ms a page and 1.6 s of waits. Cut off at any
        point, the next run finishes it.
        Raises FlashIncomplete, ImageRefused (the chip is too small), FileFailed, BadArgument.
        """
        return self._held.program(image, full, if_different, keep, _pair(range), clock_hz, _path(backup), progress,
                                  cancel)

    def verify(self, image: Image, *, rest_blank: bool = False, every: bool = False, whole: bool = False,
               range: AddressRange | None = None, clock_hz: int | None = None, progress: Progress | None = None,
               cancel: CancelEvent | None = None) -> VerifyResult:
        """Compares the chip with the image; the result is true when they are equal.

        rest_blank: what the image does not cover must be FF. every: finds every difference instead of stopping after
        the first. whole: reads the whole chip. range: compares only that part. 37 ms for each 4096 bytes that are read,
        and 1.6 s of waits. Raises ImageRefused (the chip is too small).
        """
        return self._held.verify(image, rest_blank, every, whole, _pair(range), clock_hz, progress, cancel)

    def read(self, *, range: AddressRange | None = None, clock_hz: int | None = None,
             progress: Progress | None = None, cancel: CancelEvent | None = None) -> ReadResult:
        """Reads the chip or a part of it. Times as verify. Raises BadArgument for a range beyond the chip."""
        return self._held.read(_pair(range), clock_hz, progress, cancel)

    def erase(self, *, range: AddressRange | None = None, clock_hz: int | None = None,
              progress: Progress | None = None, cancel: CancelEvent | None = None) -> EraseResult:
        """Erases the whole chip (seconds to minutes; a cancellation waits for it), or sectors of it.

        Raises BadArgument for a range off the sectors' borders (hint: the nearest on them), FlashIncomplete.
        """
        return self._held.erase(_pair(range), clock_hz, progress, cancel)

    def blank_check(self, *, every: bool = False, range: AddressRange | None = None, clock_hz: int | None = None,
                    progress: Progress | None = None, cancel: CancelEvent | None = None) -> BlankCheckResult:
        """Whether the chip is all FF; every: counts all pages that are not. Times as verify."""
        return self._held.blank_check(every, _pair(range), clock_hz, progress, cancel)

    # The Neuron.

    def status(self, *, progress: Progress | None = None, cancel: CancelEvent | None = None) -> NeuronStatus:
        """Node state, last reset, last error, counters. About 1 s at most. Raises NoAnswer."""
        return self._held.status(progress, cancel)

    def neuron_id(self, *, progress: Progress | None = None, cancel: CancelEvent | None = None) -> str:
        """The 48-bit ID from the Neuron itself, 12 upper-case digits. As long as status."""
        return self._held.neuron_id(progress, cancel)

    def program_id(self, *, progress: Progress | None = None, cancel: CancelEvent | None = None) -> str:
        """The ID of the application in the Neuron, 16 upper-case digits. As long as status."""
        return self._held.program_id(progress, cancel)

    def set_mode(self, mode: Mode, *, progress: Progress | None = None,
                 cancel: CancelEvent | None = None) -> ModeChange:
        """Sets the node state, and reads it before and after. About 1 s; 13 s for Mode.SERVICE.

        Raises DeviceFailed when the Neuron answers and is in another state than asked for.
        """
        return self._held.set_mode(list(Mode).index(mode), progress, cancel)

    def reset(self, by: ResetBy = ResetBy.LINE, *, progress: Progress | None = None,
              cancel: CancelEvent | None = None) -> float:
        """Restarts the Neuron; gives the seconds that it took."""
        return self._held.reset(by is ResetBy.MESSAGE, progress, cancel)

    def press_service_pin(self, *, progress: Progress | None = None, cancel: CancelEvent | None = None) -> float:
        """Presses the service pin for 25 ms; gives the seconds that it took. DeviceFailed: the bridge has none."""
        return self._held.press_service_pin(progress, cancel)

    def domain_table(self, *, progress: Progress | None = None,
                     cancel: CancelEvent | None = None) -> tuple[DomainEntry, DomainEntry]:
        """Both entries of the domain table. About 2 s at most. Raises NoAnswer."""
        first, second = self._held.domain_table(progress, cancel)
        return DomainEntry.from_bytes(first), DomainEntry.from_bytes(second)

    def write_domain_table(self, before: tuple[DomainEntry, DomainEntry], wanted: tuple[DomainEntry, DomainEntry], *,
                           progress: Progress | None = None, cancel: CancelEvent | None = None) -> tuple[int, ...]:
        """Writes both entries and reads them back; gives the indexes of those that differ from before.

        before: what domain_table gave. Raises ValueError for a domain ID that has not 0, 1, 3 or 6 bytes.
        """
        if any(len(entry.domain_id) not in (0, 1, 3, 6) for entry in wanted):
            raise ValueError("a domain ID has 0, 1, 3 or 6 bytes")
        return tuple(self._held.write_domain_table([bytes(entry) for entry in before],
                                                   [bytes(entry) for entry in wanted], progress, cancel))

    def watch(self, *, interval: float = 2.0, looks: int = 0, on_look: Callable[[StatusLook], object] | None = None,
              progress: Progress | None = None, cancel: CancelEvent | None = None) -> StatusHistory:
        """Looks at the status every interval seconds, as often as looks says; 0: until cancel is set.

        on_look is told after each look. A cancellation is the ordinary end. Raises NoAnswer when no look was answered.
        """
        return self._held.watch(round(interval * 1000), looks, on_look, progress, cancel)

    # The bridge's configuration block, 512 bytes. What is written takes effect when the interface is plugged in again.
    # backup: a new file, .bin, for the block as it was. dry_run: plans and writes nothing.

    def configuration(self, *, progress: Progress | None = None, cancel: CancelEvent | None = None) -> bytes:
        """Reads the block: three control requests. configuration_fields() says what is in it."""
        return self._held.configuration(progress, cancel)

    def write_configuration(self, block: bytes, *, serial: str | None = None, backup: Path | None = None,
                            dry_run: bool = False, progress: Progress | None = None,
                            cancel: CancelEvent | None = None) -> ConfigurationChange:
        """Writes a block and reads it back. serial: None keeps the device's own.

        Raises ValueError for a block that has not 512 bytes, BadArgument for a serial number that is not 1 to 32
        printable ASCII characters, FileFailed for the backup: nothing is written then.
        """
        return ConfigurationChange(*self._held.write_configuration(block, serial, _path(backup), dry_run, progress,
                                                                   cancel))

    def set_serial_number(self, serial: str, *, backup: Path | None = None, dry_run: bool = False,
                          progress: Progress | None = None, cancel: CancelEvent | None = None) -> ConfigurationChange:
        """Writes the serial number into the block. Raises as write_configuration."""
        return ConfigurationChange(*self._held.set_serial_number(serial, _path(backup), dry_run, progress, cancel))

    def set_scb0(self, role: Scb0Role, *, backup: Path | None = None, dry_run: bool = False,
                 progress: Progress | None = None, cancel: CancelEvent | None = None) -> ConfigurationChange:
        """Makes serial block 0 SPI or I2C in the block. Raises as write_configuration."""
        if role is Scb0Role.OTHER:
            raise ValueError("serial block 0 can be made SPI or I2C")
        return ConfigurationChange(*self._held.set_scb0(role is Scb0Role.SPI, _path(backup), dry_run, progress,
                                                        cancel))

    def store_neuron_id(self, neuron_id: str | None = None, *, progress: Progress | None = None,
                        cancel: CancelEvent | None = None) -> StoredNeuronId:
        """Keeps the Neuron ID in the bridge's user flash and reads it back. None: the Neuron is asked (about 1 s)."""
        return self._held.store_neuron_id(neuron_id, progress, cancel)

    # All of it.

    def overview(self, flash: FlashLook = FlashLook.IF_SILENT, *, progress: Progress | None = None,
                 cancel: CancelEvent | None = None) -> Overview:
        """One look over bridge, Neuron and flash. Parts that do not answer are None. 0.1 to 4 s."""
        return self._held.overview(list(FlashLook).index(flash), progress, cancel)

    def doctor(self, *, restart_neuron: bool = True, progress: Progress | None = None,
               cancel: CancelEvent | None = None) -> Diagnosis:
        """Looks for what is wrong; true when nothing is. 1 to 5 s.

        restart_neuron: False leaves out the flash ID, for which the Neuron is restarted.
        """
        return self._held.doctor(restart_neuron, progress, cancel)

    def recover(self, *, progress: Progress | None = None, cancel: CancelEvent | None = None) -> Recovery:
        """Puts an interface right that a killed run has left as it was, and proves it. About 3 s."""
        return self._held.recover(progress, cancel)
