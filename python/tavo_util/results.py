"""What operations give and take: frozen records and enumerations.

Addresses and sizes are in bytes, times in seconds, unless a field says otherwise.
"""

from __future__ import annotations

import enum
import struct
from dataclasses import dataclass, field
from datetime import datetime

from tavo_util import _core
from tavo_util._core import Image


class FlashState(enum.Enum):
    """What is known of the flash, never more than is known."""

    UNTOUCHED = "untouched"
    UNCHANGED = "unchanged"
    UNCERTAIN = "uncertain"
    """A step failed that may or may not have reached the chip."""
    ERASED = "erased"
    INCOMPLETE = "incomplete"
    PROGRAMMED = "programmed"


class Knowledge(enum.Enum):
    """What is known of another memory of the device."""

    UNTOUCHED = "untouched"
    UNCHANGED = "unchanged"
    WRITTEN = "written"
    UNCERTAIN = "uncertain"


class LineState(enum.Enum):
    """A line of the Neuron: active low, at rest high."""

    NOT_LOOKED = "not looked"
    RELEASED = "released"
    HELD = "held"
    UNKNOWN = "unknown"


class Scb0State(enum.Enum):
    """The bridge's serial block 0 after an operation."""

    NOT_LOOKED = "not looked"
    GIVEN_BACK = "given back"
    SPI_MASTER = "SPI master"
    UNKNOWN = "unknown"


class Scb0Role(enum.Enum):
    """What serial block 0 is on USB."""

    OTHER = "other"
    SPI = "SPI"
    I2C = "I2C"


class Mode(enum.Enum):
    """What Device.set_mode sets."""

    UNCONFIGURED = "unconfigured"
    OFFLINE = "offline"
    CONFIGURED = "configured"
    SERVICE = "service"
    """Holds the reset line and then the service line, 11.5 s in all."""


class ResetBy(enum.Enum):
    """How Device.reset restarts the Neuron."""

    LINE = "line"
    """25 ms low, then 1.5 s until the Neuron has booted."""
    MESSAGE = "message"
    """Waits for the network interface's notice, at most 65 s, then 1 s."""


class FlashLook(enum.Enum):
    """Whether Device.overview asks the flash for its ID, for which the Neuron is restarted."""

    NEVER = "never"
    IF_SILENT = "if silent"
    ALWAYS = "always"


class ProgramWay(enum.Enum):
    """How an image got into the chip."""

    NOTHING = "nothing"
    SECTORS = "sectors"
    FULL = "full"


class Verdict(enum.Enum):
    """What became of a check or a step."""

    OK = "ok"
    FAIL = "fail"
    SKIPPED = "skipped"


class Phase(enum.Enum):
    """A part of an operation."""

    NONE = ""
    WAIT = "wait"
    CHECK = "check"
    BACKUP = "backup"
    DUMP = "dump"
    READ = "read"
    ERASE = "erase"
    PROGRAM = "program"
    VERIFY = "verify"
    BOOT = "boot"
    SERVICE_MODE = "service mode"
    RESET = "reset"


class EventKind(enum.Enum):
    """What an operation tells while it works."""

    PHASE_BEGINS = "begins"
    PROGRESS = "progress"
    PHASE_ENDS = "ends"
    STOP_NOTE = "stop note"
    """What a cancellation does in this phase, when it cannot stop at once."""
    RETRY = "retry"
    """A page that needed another attempt; done counts the attempts."""
    WARNING = "warning"
    STEP = "step"


class BackupKind(enum.Enum):
    """What a backup is of."""

    FLASH = "flash"
    CONFIGURATION = "config"
    DOMAINS = "domain"


class MapCell(enum.Enum):
    """What a part of an ImageMap shows."""

    GAP = "none"
    """Of an image: no byte."""
    BLANK = "blank"
    """Of an image: all FF."""
    PART = "part"
    """Of an image: some bytes."""
    DATA = "data"
    """Every byte of an image, any byte but FF of a chip."""
    EQUAL = "equal"
    DIFFERS = "differs"
    BEYOND = "beyond"
    """Of a chip: data where the image has none."""
    ERASED = "erased"
    """Of a chip: FF, and the image has nothing there."""
    UNREAD = "unread"


@dataclass(frozen=True, slots=True)
class Event:
    """One thing that an operation tells; str() gives a line for people."""

    kind: EventKind
    phase: Phase
    done: int
    total: int
    address: int
    seconds: float
    text: str
    hint: str

    def __str__(self) -> str:
        if self.kind is EventKind.PROGRESS and self.total:
            return f"{self.phase.value}: {100 * self.done // self.total} %"
        if self.kind is EventKind.RETRY:
            return f"{self.phase.value}: 0x{self.address:06X} again, {self.done} before"
        return ": ".join(part for part in (self.phase.value, self.kind.value, self.text, self.hint) if part)


@dataclass(frozen=True, slots=True)
class AddressRange:
    """First and last address of bytes side by side: never empty."""

    first: int
    last: int

    def __post_init__(self) -> None:
        if not 0 <= self.first <= self.last:
            raise ValueError(f"no range: first {self.first:#x}, last {self.last:#x}")

    @property
    def size(self) -> int:
        """Bytes."""
        return self.last - self.first + 1

    def __contains__(self, address: int) -> bool:
        return self.first <= address <= self.last

    def aligned(self, step: int) -> tuple[AddressRange, ...]:
        """The nearest ranges on multiples of step bytes: the smallest around it and, if there is one, a shorter one."""
        return _core.aligned_ranges(self.first, self.last, step)

    def __str__(self) -> str:
        return f"0x{self.first:06X}-0x{self.last:06X}"


@dataclass(frozen=True, slots=True)
class NamedRange:
    """A line of a layout file."""

    name: str
    range: AddressRange


@dataclass(frozen=True, slots=True)
class ImageFault:
    """One fault of a file; str() is a line with its place."""

    line: int
    """From 1; 0: of the file as a whole, or of a format without lines."""
    offset: int | None
    """In the unpacked file, of a format without lines."""
    problem: str
    hint: str
    """What to do about it."""
    text: str
    """As str()."""

    def __str__(self) -> str:
        return self.text


@dataclass(frozen=True, slots=True)
class ImageFile:
    """What Image.check found; true without a fault."""

    image: Image
    """As far as it could be read, when there are faults."""
    format: str
    """"hex", "srec", "bin" or "elf"; "auto": not known."""
    faults: tuple[ImageFault, ...]
    """The first ones; what many lines have in common is one fault."""
    fault_count: int
    """Also those that are not listed."""
    file_bytes: int
    """As stored, before any unpacking."""
    sha256: str
    """Of the file as stored; empty when it was not read to its end."""
    changes: tuple[str, ...]
    """How it differs in form from what strict reading takes."""

    def __bool__(self) -> bool:
        return self.fault_count == 0


@dataclass(frozen=True, slots=True)
class MapRange:
    """Addresses side by side that show the same."""

    range: AddressRange
    cell: MapCell


@dataclass(frozen=True, slots=True)
class MapCount:
    """What a letter of an ImageMap says, and how many cells have it."""

    cell: MapCell
    letter: str
    text: str
    count: int


@dataclass(frozen=True, slots=True)
class ImageMap:
    """A chip as a grid of 1024 cells from address 0; str() draws it in rows of 64."""

    size: int
    """Bytes that the grid stands for."""
    cell_size: int
    """Bytes of a cell."""
    letters: str
    """One for each cell, the lowest address first."""
    ranges: tuple[MapRange, ...]
    """The same down to a page, and together the whole chip."""
    legend: tuple[MapCount, ...]

    def __str__(self) -> str:
        return "\n".join(self.letters[start:start + 64] for start in range(0, len(self.letters), 64))


@dataclass(frozen=True, slots=True)
class PartState:
    """What is known of a memory or of the node state, and in words."""

    knowledge: Knowledge
    text: str


@dataclass(frozen=True, slots=True)
class DeviceState:
    """What is known of a device after an operation, good or bad; str() is one line for people."""

    flash: FlashState
    configuration: PartState
    user_flash: PartState
    node: PartState
    reset_line: LineState
    service_line: LineState
    scb0: Scb0State
    is_something_held: bool
    """A part is held that must not stay so: the Neuron in reset, its service line, SCB0."""
    is_flash_lost: bool
    """The flash may lack its image."""
    text: str

    def __str__(self) -> str:
        return self.text


@dataclass(frozen=True, slots=True)
class DeviceDescription:
    """One attached interface as it was found. Texts are the device's own: not safe for a terminal."""

    serial: str
    path: str
    """The port, "1-4.2"; of a simulated interface "sim:" and its folder."""
    manufacturer: str
    product: str
    neuron_id: str
    """12 upper-case digits; empty when the bridge keeps none, or the device is in use."""
    vendor_id: int
    product_id: int
    scb0: Scb0Role
    is_accessible: bool
    """False: this user may not open it."""
    holder: int | None
    """Process that has it locked; 0 when its number is unknown."""
    name: str
    """For messages: "00001234 at 1-4.2"."""

    def __str__(self) -> str:
        return self.name

    @property
    def spec(self) -> str:
        """What open() takes for this one."""
        return self.path if self.path.startswith("sim:") else f"usb:{self.path}"


@dataclass(frozen=True, slots=True)
class EraseType:
    """One way to erase a part of a chip. A time of 0 is not told."""

    opcode: int
    size: int
    typical: float
    longest: float


@dataclass(frozen=True, slots=True)
class FlashChip:
    """What a flash chip tells of itself. A time of 0 is not told."""

    maker: int
    memory_type: int
    capacity_code: int
    size: int
    has_sfdp: bool
    sfdp_fault: str
    erase_types: tuple[EraseType, ...]
    program_typical: float
    program_longest: float
    erase_typical: float
    erase_longest: float
    maker_name: str
    id_text: str
    usual_erase_time: str
    """Of the whole chip: "usually 2 to 12 s"."""
    text: str

    def __str__(self) -> str:
        return self.text


@dataclass(frozen=True, slots=True)
class Difference:
    """A place where a chip does not hold what an image has."""

    range: AddressRange
    bytes: int
    wanted: int | None
    """First byte in the image; None: the image has no data there."""
    found: int


@dataclass(frozen=True, slots=True)
class Comparison:
    """Where two images differ."""

    differences: tuple[Difference, ...]
    bytes: int
    pages: int

    @property
    def equal(self) -> bool:
        return self.bytes == 0


@dataclass(frozen=True, slots=True)
class Forecast:
    """What Device.program is going to do, as far as it is known without the device."""

    steps: tuple[str, ...]
    pages_written: int
    """At most: fewer when some are there already."""
    pages_blank: int
    chip_size: int
    seconds: float
    least_seconds: float
    """When the image is there already."""
    sector_seconds: float
    """More than that for each 4 KiB that must be erased and programmed."""


@dataclass(frozen=True, slots=True)
class ProgramResult:
    """What Device.program did."""

    chip: FlashChip
    up_to_date: bool
    """The image was there already: nothing was erased or written."""
    way: ProgramWay
    sectors_erased: int
    pages_written: int
    pages_kept: int
    pages_blank: int
    retries: tuple[int, ...]
    """Addresses of pages that needed another attempt: a chip that wears out."""
    backup: str
    """File of what was there before: as it was named, else among Device.backups(); empty: it was not kept."""
    backup_sha256: str
    seconds: float
    state: DeviceState


@dataclass(frozen=True, slots=True)
class VerifyResult:
    """What Device.verify found; true when the chip holds the image."""

    chip: FlashChip
    comparison: Comparison
    contents: Image
    """What was read."""
    is_complete: bool
    """Everything was read; else a difference ended it, and more may follow."""
    state: DeviceState

    @property
    def equal(self) -> bool:
        return self.comparison.equal

    def __bool__(self) -> bool:
        return self.equal


@dataclass(frozen=True, slots=True)
class ReadResult:
    """What Device.read found."""

    chip: FlashChip
    contents: Image
    state: DeviceState


@dataclass(frozen=True, slots=True)
class EraseResult:
    """What Device.erase did."""

    chip: FlashChip
    sectors_erased: int
    """Blocks of whatever size; the whole chip is none."""
    backup: str
    """File of what was there before; empty: it was not read."""
    seconds: float
    state: DeviceState


@dataclass(frozen=True, slots=True)
class BlankCheckResult:
    """What Device.blank_check found; true when the chip is blank."""

    chip: FlashChip
    blank: bool
    first: int | None
    """Address of the first byte that is not FF."""
    pages: int
    contents: Image
    is_complete: bool
    state: DeviceState

    def __bool__(self) -> bool:
        return self.blank


@dataclass(frozen=True, slots=True)
class NeuronStatus:
    """The Neuron's own status (ISO/IEC 14908-1). Counters have 16 bits."""

    transmit_errors: int
    transaction_timeouts: int
    receive_transactions_full: int
    lost_messages: int
    missed_messages: int
    reset_cause: int
    reset_cause_name: str
    node_state: int
    """0x02 unconfigured, 0x04 configured, 0x06 offline."""
    node_state_name: str
    version: int
    error_log: int
    error_log_name: str
    model: int

    def __bytes__(self) -> bytes:
        """The 16 bytes of it as the Neuron sends them."""
        return struct.pack(">5H6B", self.transmit_errors, self.transaction_timeouts, self.receive_transactions_full,
                           self.lost_messages, self.missed_messages, self.reset_cause, self.node_state, self.version,
                           self.error_log, self.model, 0)


@dataclass(frozen=True, slots=True)
class ModeChange:
    """The Neuron's status before and after; None: it did not answer."""

    before: NeuronStatus | None
    after: NeuronStatus | None


@dataclass(frozen=True, slots=True)
class DomainEntry:
    """One entry of the Neuron's domain table. Its key is not shown by repr()."""

    domain_id: bytes = b""
    """0, 1, 3 or 6 bytes."""
    subnet: int = 0
    node: int = 0
    key: bytes = field(default=bytes(6), repr=False)
    """The authentication key, 6 bytes."""
    in_use: bool = True
    clone: bool = False
    flags: int = 0
    """The four other bits of the length byte."""

    _NOT_IN_USE = 0x80
    _NOT_A_CLONE = 0x80

    def __post_init__(self) -> None:
        if len(self.domain_id) > 6 or len(self.key) != 6:
            raise ValueError("a domain ID has 0, 1, 3 or 6 bytes, a key has 6")
        if not (0 <= self.subnet <= 255 and 0 <= self.node <= 127 and 0 <= self.flags <= 15):
            raise ValueError("subnet 0 to 255, node 0 to 127, flags 0 to 15")

    @classmethod
    def from_bytes(cls, raw: bytes) -> DomainEntry:
        """The 15 bytes of an entry as it travels."""
        ident, subnet, node, length, key = raw[:6], raw[6], raw[7], raw[8], raw[9:15]
        return cls(ident[:min(length & 7, 6)], subnet, node & 0x7F, key, not length & cls._NOT_IN_USE,
                   not node & cls._NOT_A_CLONE, length >> 3 & 15)

    def __bytes__(self) -> bytes:
        length = len(self.domain_id) | self.flags << 3 | (0 if self.in_use else self._NOT_IN_USE)
        node = self.node | (0 if self.clone else self._NOT_A_CLONE)
        return self.domain_id.ljust(6, b"\0") + bytes([self.subnet, node, length]) + self.key


@dataclass(frozen=True, slots=True)
class DomainChange:
    """What Device.write_domain_table did."""

    changed: tuple[int, ...]
    """Entries that differ from before."""
    backup: str
    """File that keeps what was there; empty: none."""


@dataclass(frozen=True, slots=True)
class DomainFileEntry:
    """One entry that load_domains read."""

    index: int
    entry: DomainEntry
    has_key: bool
    """False: the key that is in the Neuron stays."""
    is_key_replaced: bool
    """Of a key that was left out: what was written then had another one."""


@dataclass(frozen=True, slots=True)
class StatusCounter:
    """One of the five counters of NeuronStatus."""

    key: str
    """Its field: "transmit_errors"."""
    label: str
    meaning: str
    """What has happened each time, and where to look."""


@dataclass(frozen=True, slots=True)
class StatusLook:
    """One look at the status while it is watched."""

    seconds: float
    """Since the watch began."""
    status: NeuronStatus | None
    why: str
    """There was no answer."""
    change: tuple[int, ...]
    """Of the five counters since the last look that was answered."""
    cleared: bool
    """The counters were set back in between."""


@dataclass(frozen=True, slots=True)
class StatusHistory:
    """What was seen while the Neuron's status was watched."""

    started: float
    """As time.time() has it."""
    looks: tuple[StatusLook, ...]
    total: tuple[int, ...]
    """Change of the five counters, over everything that was set back."""
    unanswered: int
    times_cleared: int

    @property
    def last_answered(self) -> StatusLook | None:
        """None: no look was answered."""
        return next((look for look in reversed(self.looks) if look.status is not None), None)


@dataclass(frozen=True, slots=True)
class Check:
    """One thing that Device.doctor looked at."""

    item: str
    verdict: Verdict
    text: str
    hint: str


@dataclass(frozen=True, slots=True)
class Diagnosis:
    """What Device.doctor found; true when nothing failed."""

    checks: tuple[Check, ...]
    status: NeuronStatus | None
    state: DeviceState

    @property
    def failed(self) -> tuple[Check, ...]:
        """The checks that found something wrong."""
        return tuple(check for check in self.checks if check.verdict is Verdict.FAIL)

    def __bool__(self) -> bool:
        return not self.failed


@dataclass(frozen=True, slots=True)
class Part:
    """A part of the interface in one line."""

    name: str
    verdict: Verdict
    state: str
    hint: str


@dataclass(frozen=True, slots=True)
class InterruptedRun:
    """A run that began to change a flash, and was cut off."""

    flash: FlashState
    """What it holds now."""
    image: str
    """File that was being programmed; empty for an erase."""
    sha256: str
    """Of the image."""
    backup: str
    """File of what was in the flash before; empty: none."""
    kept: str
    """File of what was in the chip around what is programmed; empty: none to keep."""
    started: str
    """Local time with its offset from UTC."""
    options: str
    """That the image was given with, as on the command line."""
    text: str
    """What was going on, and what the flash holds now."""
    hint: str
    """The command that puts an image back."""


@dataclass(frozen=True, slots=True)
class Overview:
    """All parts of an interface; None where a part did not tell."""

    parts: tuple[Part, ...]
    silicon_id: int | None
    neuron_id: str | None
    program_id: str | None
    status: NeuronStatus | None
    flash: FlashChip | None
    why: tuple[tuple[str, str], ...]
    """Names of the fields that are None, each with the reason."""
    neuron_restarted: bool
    interrupted: InterruptedRun | None
    state: DeviceState


@dataclass(frozen=True, slots=True)
class RecoverStep:
    """What Device.recover did or saw."""

    text: str
    verdict: Verdict
    why: str


@dataclass(frozen=True, slots=True)
class Recovery:
    """What Device.recover did."""

    steps: tuple[RecoverStep, ...]
    interrupted: InterruptedRun | None
    """The flash still lacks its image."""
    state: DeviceState


@dataclass(frozen=True, slots=True)
class ConfigurationFields:
    """What people want to know of a bridge's configuration block."""

    serial: str
    manufacturer: str
    product: str
    vendor_id: int
    product_id: int
    scb0: str
    max_power_milliamperes: int
    format: str
    checksum_right: bool
    why_bad: str
    """Why a bridge may not come up on USB with this block; empty when it should."""


@dataclass(frozen=True, slots=True)
class ByteChange:
    """One byte of a configuration block that differs."""

    offset: int
    before: int
    after: int
    field: str
    """What it belongs to: "serial number"; empty for bytes without a known meaning."""


@dataclass(frozen=True, slots=True)
class ConfigurationChange:
    """A rewrite of the configuration block, done or only planned. It takes effect at the next plugging in."""

    before: bytes
    after: bytes
    serial: str
    """That the block will carry."""
    pending_serial: str
    """Set since the interface was plugged in, and lost by this rewrite; empty: none."""
    backup: str
    """File that keeps the block as it was; empty: none."""
    written: bool

    @property
    def changes_anything(self) -> bool:
        return self.before != self.after

    @property
    def changes(self) -> tuple[ByteChange, ...]:
        """The bytes that differ."""
        return _core.compare_configuration(self.before, self.after)


@dataclass(frozen=True, slots=True)
class StoredNeuronId:
    """The Neuron ID in the bridge's user flash."""

    neuron_id: str
    written: bool
    """False: the bridge held it already."""


@dataclass(frozen=True, slots=True)
class Backup:
    """One backup that this computer keeps of an interface."""

    kind: BackupKind
    id: str
    """"20240501-140359-3fa4b2c1d0e5": local time when it was first kept, and sha256."""
    path: str
    time: str
    """When the interface held it last, UTC: "2024-05-01T12:03:59Z"."""
    sha256: str
    """Of the file; of an image also its identity."""
    bytes: int
    is_damaged: bool
    """The file is not what was kept."""
    taken_before: str
    """What the run did then; may be empty."""


@dataclass(frozen=True, slots=True)
class RestoreResult:
    """What Device.restore did; only what belongs to the backup's kind is filled."""

    changed: bool
    """False: all of it was there already."""
    flash: ProgramResult | None
    bytes: tuple[ByteChange, ...]
    """Of the configuration block."""
    domains: tuple[int, ...]
    """Entries of the domain table that were changed."""
    kept_keys: tuple[int, ...]
    """Entries whose key is not in the backup: the Neuron's own has stayed."""
    backup: str
    """File that keeps what was there before; empty: none."""
    state: DeviceState


@dataclass(frozen=True, slots=True)
class HistoryEntry:
    """One run that changed an interface, or was to. Texts are empty where nothing is to be told."""

    time: str
    """Of its begin, UTC: "2024-05-01T12:03:59Z"."""
    action: str
    """"program", "erase", "restore", "config write", "set-serial", "scb0" or "domain write"."""
    part: str
    """"flash", "config" or "domain"."""
    result: str
    """"done", "unchanged", "failed" or "interrupted"; "started": it has not ended, or was cut off."""
    serial: str
    path: str
    neuron_id: str
    image: str
    """File that was written."""
    sha256: str
    """Identity of what was written."""
    serial_after: str
    """The serial number that a rewrite of the configuration block gave."""
    backup: str
    """File name of what was there before, among the backups of the interface."""
    state: str
    error: str
    tool: str
    """Version of what did it."""
    run: str
    """The same in all that one run did."""
    seconds: float

    @property
    def started(self) -> datetime | None:
        """time, with its zone; None when it is no time."""
        try:
            return datetime.fromisoformat(self.time.replace("Z", "+00:00"))
        except ValueError:
            return None


@dataclass(frozen=True, slots=True)
class History:
    """What history() found."""

    entries: tuple[HistoryEntry, ...]
    """Oldest first."""
    faults: tuple[str, ...]
    """Lines and files that could not be read."""
