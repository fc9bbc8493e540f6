"""The interfaces that are attached, and the one that a program works on."""

from __future__ import annotations

import os
from types import TracebackType
from typing import Callable, Protocol, Sequence

from tavo_util import _core
from tavo_util._core import Image
from tavo_util.results import (AddressRange, Backup, BackupKind, BlankCheckResult, ByteChange, Check,
                               ConfigurationChange, ConfigurationFields, DeviceDescription, Diagnosis, DomainChange,
                               DomainEntry, DomainFileEntry, EraseResult, Event, FlashChip, FlashLook, Forecast,
                               History, InterruptedRun, Mode, ModeChange, NamedRange, NeuronStatus, Overview,
                               ProgramResult, ReadResult, RecoverStep, Recovery, ResetBy, RestoreResult, Scb0Role,
                               StatusCounter, StatusHistory, StatusLook, StoredNeuronId, VerifyResult)

Progress = Callable[[Event], object]
Path = str | os.PathLike[str]
Domains = tuple[DomainEntry, DomainEntry]

STATUS_COUNTERS: tuple[StatusCounter, ...] = _core.status_counters()
"""What the counters of NeuronStatus mean, in the order in which StatusHistory has them."""


class CancelEvent(Protocol):
    """What cancel= takes: threading.Event, multiprocessing.Event, or your own."""

    def is_set(self) -> bool: ...


def _path(path: Path | None) -> bytes:
    return b"" if path is None else os.fsencode(path)


def _raw(table: Domains) -> list[bytes]:
    return [bytes(entry) for entry in table]


def _table(raw: tuple[bytes, bytes]) -> Domains:
    return DomainEntry.from_bytes(raw[0]), DomainEntry.from_bytes(raw[1])


def _pair(part: AddressRange | None) -> tuple[int, int] | None:
    return None if part is None else (part.first, part.last)


def devices(*specs: str) -> tuple[DeviceDescription, ...]:
    """The attached interfaces in the order of their ports; those that match one of specs, when there are any.

    Disturbs no run of another process. Takes a few control transfers a device. Raises BadArgument for a spec.
    """
    return _core.devices(list(specs))


def open(*specs: str, wait: int | None = None, as_it_is: bool = False, progress: Progress | None = None,
         cancel: CancelEvent | None = None) -> Device:
    """Chooses one interface and locks it against other processes and other objects, until it is closed.

    specs: "serial:TEXT", "usb:1-4.2", "neuron:HEX12", or a bare serial number; none, when only one is attached.
    wait: seconds to wait for it to appear; None: not at all. as_it_is: also one that this user may not open, for
    Device.doctor.
    Raises NoDevice, SeveralDevices, NoPermission, DeviceBusy, BadArgument; Cancelled while it waits.
    """
    return Device(_core.open(list(specs), wait, as_it_is, progress, cancel))


def allow_usb_id(vendor_id: int, product_id: int) -> None:
    """Accepts one more pair of USB IDs for the rest of the process."""
    _core.allow_usb_id(vendor_id, product_id)


def parse_range(text: str, layout: Path | None = None) -> AddressRange:
    """ "0x10000-0x1FFFF", "64K+64K", or a name in a layout file (lines "FIRST-LAST NAME").

    Raises BadArgument for anything else, ImageRefused for a layout with faults.
    """
    return _core.parse_range(text, _path(layout))


def load_layout(path: Path) -> tuple[NamedRange, ...]:
    """The ranges of a layout file. Raises ImageRefused, whose details are the faults with their lines; FileFailed."""
    return _core.load_layout(_path(path))


def parse_number(text: str) -> int | None:
    """ "65536", "0x10000", "64K", "1M"; None for anything else."""
    return _core.parse_number(text)


def printable(text: str) -> str:
    """A text of a device, a file or a file name, as it may go to a terminal or into a log: one line stays one line."""
    return _core.printable(os.fsencode(text))


def history(*specs: str) -> History:
    """What was done to interfaces from this computer, as far as this user may know; of those that match one of specs.

    None of them needs to be attached, and a serial number follows its interface through changes. Runs on simulated
    interfaces are kept in their folders. Raises BadArgument for a spec.
    """
    return _core.history(list(specs))


def forecast(image: Image, *, full: bool = False, keep: bool = False, range: AddressRange | None = None,
             backup: Path | None = None) -> Forecast:
    """What Device.program would do, without a device. Raises what it would raise before it touches one."""
    return _core.forecast(image, full, keep, _pair(range), _path(backup))


def load_configuration(path: Path) -> bytes:
    """The 512 bytes of a configuration file, whose name ends in .bin. Raises ImageRefused, FileFailed."""
    return _core.load_configuration(_path(path))


def save_configuration(path: Path, block: bytes, *, replace: bool = False) -> None:
    """Writes the block into a file, whole or not at all. Raises FileFailed, also for one that is there already."""
    _core.save_configuration(_path(path), block, replace)


def compare_configuration(before: bytes, after: bytes) -> tuple[ByteChange, ...]:
    """The bytes in which two configuration blocks differ, and what they belong to."""
    return _core.compare_configuration(before, after)


def load_domains(path: Path, *, only: int | None = None) -> tuple[DomainFileEntry, ...]:
    """Reads a domain table, or one entry of it, from JSON as domain_table_text() and `tavo-util domain read` write it.

    only: takes one entry, that for this index or the file's single one. Raises ImageRefused, FileFailed.
    """
    return tuple(DomainFileEntry(index, DomainEntry.from_bytes(raw), has_key, is_key_replaced)
                 for index, raw, has_key, is_key_replaced in _core.read_domain_file(_path(path), only))


def domains_with(before: Domains, entries: Sequence[DomainFileEntry]) -> Domains:
    """The table with these entries in it; one without a key takes the key that was there."""
    return _table(_core.table_with(_raw(before), [(entry.index, bytes(entry.entry), entry.has_key,
                                                   entry.is_key_replaced) for entry in entries]))


def domain_table_text(table: Domains, *, keep_keys: bool = False) -> str:
    """The table as JSON for load_domains(). Keys are left out unless keep_keys, those of the factory excepted."""
    return _core.domain_table_text(_raw(table), _raw(table), keep_keys)


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
    def is_attached(self) -> bool:
        """False when nothing is plugged in at its port any more. Disturbs nothing."""
        return self._held.is_attached

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
                no_backup: bool = False, progress: Progress | None = None,
                cancel: CancelEvent | None = None) -> ProgramResult:
        """Brings the image into the chip, FF elsewhere, and compares every page of it.

        full: erases the whole chip and programs every page, whatever it holds; not with if_different.
        keep: what the image does not cover stays as it is. range: only that part of the image; implies keep.
        backup: a new file for what the chip holds now (.hex, .srec, .bin), written before the erase. no_backup: keeps
        nothing among backups(); otherwise what is in the chip is kept there, unless it looks blank or full is given
        without a backup.
        Blocks for reading the chip (9 ms a KiB at most), the erase, 7.3 ms a page and 1.6 s of waits. Cut off at any
        point, the next run finishes it.
        Raises FlashIncomplete, ImageRefused (the chip is too small), FileFailed, BadArgument.
        """
        return self._held.program(image, full, if_different, keep, _pair(range), clock_hz, _path(backup), no_backup,
                                  progress, cancel)

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

    def erase(self, *, range: AddressRange | None = None, clock_hz: int | None = None, backup: Path | None = None,
              no_backup: bool = False, progress: Progress | None = None,
              cancel: CancelEvent | None = None) -> EraseResult:
        """Erases the whole chip (seconds to minutes; a cancellation waits for it), or sectors of it.

        backup: reads all of the chip first, into a new file; without it the whole chip is not read. no_backup: as
        program.
        Raises BadArgument for a range off the sectors' borders (hint: the nearest on them), FlashIncomplete.
        """
        return self._held.erase(_pair(range), clock_hz, _path(backup), no_backup, progress, cancel)

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
        return self._held.set_mode(list(Mode).index(Mode(mode)), progress, cancel)

    def reset(self, by: ResetBy = ResetBy.LINE, *, progress: Progress | None = None,
              cancel: CancelEvent | None = None) -> float:
        """Restarts the Neuron; gives the seconds that it took."""
        return self._held.reset(ResetBy(by) is ResetBy.MESSAGE, progress, cancel)

    def press_service_pin(self, *, progress: Progress | None = None, cancel: CancelEvent | None = None) -> float:
        """Presses the service pin for 25 ms; gives the seconds that it took. DeviceFailed: the bridge has none."""
        return self._held.press_service_pin(progress, cancel)

    def domain_table(self, *, progress: Progress | None = None, cancel: CancelEvent | None = None) -> Domains:
        """Both entries of the domain table. About 2 s at most. Raises NoAnswer."""
        return _table(self._held.domain_table(progress, cancel))

    def write_domain_table(self, before: Domains, wanted: Domains, *, source: Path | None = None,
                           no_backup: bool = False, keep_keys: bool = False, progress: Progress | None = None,
                           cancel: CancelEvent | None = None) -> DomainChange:
        """Writes both entries and reads them back.

        before: what domain_table gave; kept among backups() unless no_backup, with its keys if keep_keys. source: the
        file that wanted was made from, for history(). Raises ValueError for a domain ID that has not 0, 1, 3 or 6
        bytes.
        """
        if any(len(entry.domain_id) not in (0, 1, 3, 6) for entry in wanted):
            raise ValueError("a domain ID has 0, 1, 3 or 6 bytes")
        changed, backup = self._held.write_domain_table(_raw(before), _raw(wanted), _path(source), no_backup, keep_keys,
                                                        progress, cancel)
        return DomainChange(tuple(changed), backup)

    def watch(self, *, interval: float = 2.0, looks: int = 0, on_look: Callable[[StatusLook], object] | None = None,
              progress: Progress | None = None, cancel: CancelEvent | None = None) -> StatusHistory:
        """Looks at the status every interval seconds, as often as looks says; 0: until cancel is set.

        on_look is told after each look. A cancellation is the ordinary end. Raises NoAnswer when no look was answered.
        """
        return self._held.watch(round(interval * 1000), looks, on_look, progress, cancel)

    # The bridge's configuration block, 512 bytes. What is written takes effect when the interface is plugged in again.
    # The block as it was is kept among backups(), unless no_backup; backup: in a new file, .bin, too. dry_run: plans and
    # writes nothing.

    def configuration(self, *, progress: Progress | None = None, cancel: CancelEvent | None = None) -> bytes:
        """Reads the block: three control requests. configuration_fields() says what is in it."""
        return self._held.configuration(progress, cancel)

    def write_configuration(self, block: bytes, *, serial: str | None = None, source: Path | None = None,
                            backup: Path | None = None, no_backup: bool = False, dry_run: bool = False,
                            force: bool = False, progress: Progress | None = None,
                            cancel: CancelEvent | None = None) -> ConfigurationChange:
        """Writes a block and reads it back.

        serial: None keeps the device's own. source: the file that the block is from, for messages and history().
        Raises ValueError for a block that has not 512 bytes, ImageRefused for a bad one (configuration_fields().why_bad)
        without force, BadArgument for a serial number that is not 1 to 32 printable ASCII characters, FileFailed for the
        backup: nothing is written then. With a bad block a bridge may never come up on USB again.
        """
        return ConfigurationChange(*self._held.write_configuration(block, serial, _path(source), _path(backup),
                                                                   no_backup, dry_run, force, progress, cancel))

    def set_serial_number(self, serial: str, *, backup: Path | None = None, no_backup: bool = False,
                          dry_run: bool = False, progress: Progress | None = None,
                          cancel: CancelEvent | None = None) -> ConfigurationChange:
        """Writes the serial number into the block. Raises as write_configuration."""
        return ConfigurationChange(*self._held.set_serial_number(serial, _path(backup), no_backup, dry_run, progress,
                                                                 cancel))

    def set_scb0(self, role: Scb0Role, *, backup: Path | None = None, no_backup: bool = False, dry_run: bool = False,
                 progress: Progress | None = None, cancel: CancelEvent | None = None) -> ConfigurationChange:
        """Makes serial block 0 SPI or I2C in the block. Raises as write_configuration."""
        if Scb0Role(role) is Scb0Role.OTHER:
            raise ValueError("serial block 0 can be made SPI or I2C")
        return ConfigurationChange(*self._held.set_scb0(Scb0Role(role) is Scb0Role.SPI, _path(backup), no_backup, dry_run,
                                                        progress, cancel))

    def store_neuron_id(self, neuron_id: str | None = None, *, dry_run: bool = False,
                        progress: Progress | None = None, cancel: CancelEvent | None = None) -> StoredNeuronId:
        """Keeps the Neuron ID in the bridge's user flash and reads it back. None: the Neuron is asked (about 1 s)."""
        return self._held.store_neuron_id(neuron_id, dry_run, progress, cancel)

    # What this computer keeps of the interface before a run changes it, and the way back.

    def backups(self) -> tuple[Backup, ...]:
        """Images, configuration blocks and domain tables that are kept, the latest first. Reads every file."""
        return self._held.backups()

    def find_backup(self, kind: BackupKind = BackupKind.FLASH, which: str = "") -> Backup:
        """One of them.

        which: the begin of an ID or of the sha256, or a file's name; empty: the one that was made before the run that
        has left the flash incomplete, else the latest. Raises FileFailed when there is none, BadArgument for a text
        that names several.
        """
        return self._held.find_backup(list(BackupKind).index(BackupKind(kind)), which)

    def restore(self, backup: Backup, *, no_backup: bool = False, progress: Progress | None = None,
                cancel: CancelEvent | None = None) -> RestoreResult:
        """Puts it back: an image as program does, a configuration block with its serial number, a domain table.

        no_backup: does not keep what is there now. A key that the backup of a domain table has not stays as it is in
        the Neuron. Raises ImageRefused for a file that is not what was kept, and what the operation raises that does it.
        """
        return self._held.restore(list(BackupKind).index(backup.kind), os.path.basename(backup.path), no_backup, progress,
                                  cancel)

    # All of it.

    def overview(self, flash: FlashLook = FlashLook.IF_SILENT, *, progress: Progress | None = None,
                 cancel: CancelEvent | None = None) -> Overview:
        """One look over bridge, Neuron and flash. Parts that do not answer are None. 0.1 to 4 s."""
        return self._held.overview(list(FlashLook).index(FlashLook(flash)), progress, cancel)

    def doctor(self, *, restart_neuron: bool = True, on_check: Callable[[Check], object] | None = None,
               progress: Progress | None = None, cancel: CancelEvent | None = None) -> Diagnosis:
        """Looks for what is wrong; true when nothing is. 1 to 5 s.

        restart_neuron: False leaves out the flash ID, for which the Neuron is restarted. on_check is told each check
        as it is done.
        """
        return self._held.doctor(restart_neuron, on_check, progress, cancel)

    def recover(self, *, on_step: Callable[[RecoverStep], object] | None = None, progress: Progress | None = None,
                cancel: CancelEvent | None = None) -> Recovery:
        """Puts an interface right that a killed run has left as it was, and proves it. About 3 s.

        on_step is told each step as it is done, also before a failure.
        """
        return self._held.recover(on_step, progress, cancel)
