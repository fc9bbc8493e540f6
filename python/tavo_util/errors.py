"""How operations fail: what failed, what is known of the device now, what to do next."""

from __future__ import annotations

from tavo_util.results import DeviceState


class Error(Exception):
    """Every failure of this package. str() says what failed.

    Whatever the class, state.is_flash_lost and state.is_something_held tell whether the device needs
    to be put right: an unplugged cable is NoDevice, and may have cost the image all the same.
    """

    problem: str
    """For programs: "no-device", "flash-failed"."""
    state: DeviceState
    """What is known of the device now."""
    hint: str
    """What to do next; may be empty."""
    status: int | None
    """The status of libtavo-util-api, when it was the library that failed."""
    status_name: str | None
    """Its name: "TAVO_DEVICE_BUSY"."""
    details: tuple[str, ...]
    """Further lines: the faults of a file, the devices to choose from."""

    def __init__(self, message: str, problem: str, state: DeviceState, hint: str = "", status: int | None = None,
                 status_name: str | None = None, details: tuple[str, ...] = ()) -> None:
        super().__init__(message, problem, state, hint, status, status_name, details)
        self.problem, self.state, self.hint = problem, state, hint
        self.status, self.status_name, self.details = status, status_name, details

    def __str__(self) -> str:
        return str(self.args[0])


class BadArgument(Error, ValueError):
    """What was asked for makes no sense."""


class NoDevice(Error):
    """No such device, or no longer attached."""


class SeveralDevices(Error):
    """Several devices, none chosen; details has a line for each."""


class NoPermission(Error):
    """The device or the LDV channel may not be opened by this user."""


class DeviceBusy(Error):
    """In use by another process, or by another object or thread of this one."""


class ImageRefused(Error):
    """The file is not the image or the configuration that is needed; details has its faults. No device was touched."""


class FileFailed(Error):
    """A file on this computer cannot be read or written."""


class DeviceFailed(Error):
    """A step on the device failed."""


class FlashIncomplete(DeviceFailed):
    """A step on the device failed, and the flash may lack its image now: program it again."""


class NoAnswer(Error):
    """The Neuron, or the bridge, did not answer in time."""


class Cancelled(Error):
    """The caller's event was set, or Ctrl-C pressed; everything is released."""


class Internal(Error):
    """A fault of this package."""
