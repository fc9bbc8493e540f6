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

Failures are Error and below, with .state (what is known of the device now), .hint (what to do next) and .status.
tavo_util.sim has simulated interfaces, for trying this and for tests.
"""

from tavo_util._core import Image, __version__
from tavo_util.device import (Device, allow_usb_id, configuration_fields, devices, forecast, load_configuration, open,
                              parse_range)
from tavo_util.errors import (BadArgument, Cancelled, DeviceBusy, DeviceFailed, Error, FileFailed, FlashIncomplete,
                              ImageRefused, Internal, NoAnswer, NoDevice, NoPermission, SeveralDevices)
from tavo_util.page import job_page
from tavo_util.results import (AddressRange, BlankCheckResult, Check, Comparison, ConfigurationChange,
                               ConfigurationFields, DeviceDescription, DeviceState, Diagnosis, Difference, DomainEntry,
                               EraseResult, EraseType, Event, EventKind, FlashChip, FlashLook, FlashState, Forecast,
                               InterruptedRun, Knowledge, LineState, Mode, ModeChange, NeuronStatus, Overview, Part,
                               PartState, Phase, ProgramResult, ProgramWay, ReadResult, RecoverStep, Recovery, ResetBy,
                               Scb0Role, Scb0State, StatusHistory, StatusLook, StoredNeuronId, Verdict, VerifyResult)

__all__ = [
    "AddressRange", "BadArgument", "BlankCheckResult", "Cancelled", "Check", "Comparison", "ConfigurationChange",
    "ConfigurationFields", "Device", "DeviceBusy", "DeviceDescription", "DeviceFailed", "DeviceState", "Diagnosis",
    "Difference", "DomainEntry", "EraseResult", "EraseType", "Error", "Event", "EventKind", "FileFailed", "FlashChip",
    "FlashIncomplete", "FlashLook", "FlashState", "Forecast", "Image", "ImageRefused", "Internal", "InterruptedRun",
    "Knowledge", "LineState", "Mode", "ModeChange", "NeuronStatus", "NoAnswer", "NoDevice", "NoPermission", "Overview",
    "Part", "PartState", "Phase", "ProgramResult", "ProgramWay", "ReadResult", "RecoverStep", "Recovery", "ResetBy",
    "Scb0Role", "Scb0State", "SeveralDevices", "StatusHistory", "StatusLook", "StoredNeuronId", "Verdict",
    "VerifyResult", "allow_usb_id", "configuration_fields", "devices", "forecast", "job_page", "load_configuration",
    "open", "parse_range",
]
