"""What operations give and take: frozen records and enumerations.

Addresses and sizes are in bytes, times in seconds, unless a field says otherwise.
"""

from __future__ import annotations

import enum
from dataclasses import dataclass, field
from typing import TYPE_CHECKING

if TYPE_CHECKING:
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
        return self.last - self.first + 1

    def __contains__(self, address: int) -> bool:
        return self.first <= address <= self.last

    def __str__(self) -> str:
        return f"0x{self.first:06X}-0x{self.last:06X}"


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

    image: str
    sha256: str
    backup: str
    started: str
    options: str
    text: str
    hint: str


@dataclass(frozen=True, slots=True)
class Overview:
    """All parts of an interface; None where a part did not tell."""

    parts: tuple[Part, ...]
    silicon_id: int | None
    neuron_id: str | None
    program_id: str | None
    status: NeuronStatus | None
    flash: FlashChip | None
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
class ConfigurationChange:
    """A rewrite of the configuration block, done or only planned. It takes effect at the next plugging in."""

    before: bytes
    after: bytes
    serial: str
    written: bool

    @property
    def changes_anything(self) -> bool:
        return self.before != self.after


@dataclass(frozen=True, slots=True)
class StoredNeuronId:
    """The Neuron ID in the bridge's user flash."""

    neuron_id: str
    written: bool
    """False: the bridge held it already."""
