"""Service operations for USB network interfaces built around a Neuron chip (LON).

    import tavo_util

    image = tavo_util.Image.read("image.hex")              # a bad file is refused here
    with tavo_util.open("usb:1-4.2") as device:            # nobody else works on it meanwhile
        result = device.program(image, backup="before.hex", progress=print)
        assert device.verify(image)

open() chooses one interface, devices() lists them; Device has the operations, Image the bytes of a flash. Each
operation takes progress= (called with an Event, on the calling thread) and cancel= (a threading.Event, or anything
with is_set()), works without the GIL, and gives a frozen record (tavo_util.results). Ctrl-C ends it as cancel does:
everything is released, and then KeyboardInterrupt is raised, with what became of the device as its __cause__.

What is in an interface is kept before it is changed: Device.backups(), Device.restore(). history() tells what was done.

Failures are Error and below, with .state (what is known of the device now), .hint (what to do next) and .status.
tavo_util.sim has simulated interfaces, for trying this and for tests.
"""

from tavo_util._core import Image, __version__
from tavo_util.device import (Device, STATUS_COUNTERS, allow_usb_id, compare_configuration, configuration_fields,
                              devices, domain_table_text, domains_with, forecast, history, load_configuration,
                              load_domains, load_layout, open, parse_number, parse_range, printable, save_configuration)
from tavo_util.errors import (BadArgument, Cancelled, DeviceBusy, DeviceFailed, Error, FileFailed, FlashIncomplete,
                              ImageRefused, Internal, NoAnswer, NoDevice, NoPermission, SeveralDevices)
from tavo_util.page import job_page
from tavo_util.results import (AddressRange, Backup, BackupKind, BlankCheckResult, ByteChange, Check, Comparison,
                               ConfigurationChange, ConfigurationFields, DeviceDescription, DeviceState, Diagnosis,
                               Difference, DomainChange, DomainEntry, DomainFileEntry, EraseResult, EraseType, Event,
                               EventKind, FlashChip, FlashLook, FlashState, Forecast, History, HistoryEntry,
                               ImageFault, ImageFile, ImageMap, InterruptedRun, Knowledge, LineState, MapCell,
                               MapCount, MapRange, Mode, ModeChange, NamedRange, NeuronStatus, Overview, Part,
                               PartState, Phase, ProgramResult, ProgramWay, ReadResult, RecoverStep, Recovery, ResetBy,
                               RestoreResult, Scb0Role, Scb0State, StatusCounter, StatusHistory, StatusLook,
                               StoredNeuronId, Verdict, VerifyResult)

__all__ = [
    "AddressRange", "Backup", "BackupKind", "BadArgument", "BlankCheckResult", "ByteChange", "Cancelled", "Check",
    "Comparison", "ConfigurationChange", "ConfigurationFields", "Device", "DeviceBusy", "DeviceDescription",
    "DeviceFailed", "DeviceState", "Diagnosis", "Difference", "DomainChange", "DomainEntry", "DomainFileEntry",
    "EraseResult", "EraseType", "Error", "Event", "EventKind", "FileFailed", "FlashChip", "FlashIncomplete",
    "FlashLook", "FlashState", "Forecast", "History", "HistoryEntry", "Image", "ImageFault", "ImageFile", "ImageMap",
    "ImageRefused", "Internal", "InterruptedRun", "Knowledge", "LineState", "MapCell", "MapCount", "MapRange", "Mode",
    "ModeChange", "NamedRange", "NeuronStatus", "NoAnswer", "NoDevice", "NoPermission", "Overview", "Part",
    "PartState", "Phase", "ProgramResult", "ProgramWay", "ReadResult", "RecoverStep", "Recovery", "ResetBy",
    "RestoreResult", "STATUS_COUNTERS", "Scb0Role", "Scb0State", "SeveralDevices", "StatusCounter", "StatusHistory",
    "StatusLook", "StoredNeuronId", "Verdict", "VerifyResult", "allow_usb_id", "compare_configuration",
    "configuration_fields", "devices", "domain_table_text", "domains_with", "forecast", "history", "job_page",
    "load_configuration", "load_domains", "load_layout", "open", "parse_number", "parse_range", "printable",
    "save_configuration",
]
