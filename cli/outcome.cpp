#include "cli/outcome.h"

#include <array>
#include <cstddef>

namespace cli {
namespace {

struct StateRow {
    const char* name;
    const char* text;
};

constexpr StateRow kStates[] = {
    {"untouched", "device not touched"},
    {"unchanged", "flash contents unchanged"},
    {"uncertain", "the flash may be partly erased; treat it as incomplete"},
    {"erased", "flash erased: the Neuron has no firmware"},
    {"incomplete", "flash incomplete: part of the image is missing"},
    {"programmed", "flash programmed and verified"},
};

constexpr const char* kReplug = "unplug the interface, plug it in again and repeat the command";
constexpr const char* kRights = "install the udev rule (packaging/) and replug; sudo is not needed";
constexpr const char* kHeld = "another program or a kernel driver may hold the interface: close it, or replug";
constexpr const char* kNoAnswer = "let the Neuron run (tavo-util recover), then ask what is wrong: tavo-util doctor";
constexpr const char* kDoctor = "tavo-util doctor looks for the cause";

struct StatusRow {
    const char* name;
    Exit onBridge;
    const char* bridgeHint;
    Exit onNeuron;
    const char* neuronHint;
};

// Indexed by the status.
constexpr StatusRow kStatuses[] = {
    {"TAVO_SUCCESS", Exit::Done, "", Exit::Done, ""},
    {"TAVO_WRONG_VID_PID", Exit::NoDevice, "accept its IDs with --usb-id VVVV:PPPP", Exit::NoDevice,
     "accept its IDs with --usb-id VVVV:PPPP"},
    {"TAVO_FILE_NOT_FOUND", Exit::FileSystem, "check the path and its permissions", Exit::FileSystem,
     "check the path and its permissions"},
    {"TAVO_HEX_FORMAT_ERROR", Exit::FileRefused, "", Exit::FileRefused, ""},
    {"TAVO_FLASH_PROGRAMMING_FAILED", Exit::FailedFlashLost, "program the image again", Exit::FailedUnchanged, ""},
    {"TAVO_WRONG_CONFIG_SIZE", Exit::FileRefused, "a configuration file has exactly 512 bytes", Exit::FileRefused, ""},
    {"TAVO_UNSUPPORTED_ON_OS", Exit::FailedUnchanged, kReplug, Exit::FailedUnchanged, kReplug},
    {"TAVO_TRANSACTION_FAILED", Exit::NoAnswer, kNoAnswer, Exit::NoAnswer, kNoAnswer},
    {"TAVO_ACCESS_DENIED", Exit::NoPermission, kRights, Exit::NoPermission, kRights},
    {"TAVO_DRIVER_INIT_FAILED", Exit::FailedUnchanged, kReplug, Exit::NoAnswer, kDoctor},
    {"TAVO_DEVICE_INFO_FETCH_FAILED", Exit::FailedUnchanged, kReplug, Exit::NoAnswer, kDoctor},
    {"TAVO_DEVICE_OPEN_FAILED", Exit::Busy, kHeld, Exit::NoAnswer,
     "the Neuron's LDV channel cannot be opened: is the LDV driver running? tavo-util doctor tells more"},
    {"TAVO_INVALID_PARAMETER", Exit::FailedUnchanged, kDoctor, Exit::NoAnswer, kDoctor},
    {"TAVO_REQUEST_FAILED", Exit::FailedUnchanged, kReplug, Exit::FailedUnchanged, kReplug},
    {"TAVO_DOWNLOAD_FAILED", Exit::FailedUnchanged, kReplug, Exit::FailedUnchanged, kReplug},
    {"TAVO_INVALID_SIGNATURE", Exit::FailedUnchanged, kDoctor, Exit::FailedUnchanged, kDoctor},
    {"TAVO_INVALID_FIRMWARE", Exit::FailedUnchanged, kDoctor, Exit::FailedUnchanged, kDoctor},
    {"TAVO_DEVICE_NOT_FOUND", Exit::NoDevice, "is it still plugged in? tavo-util list", Exit::NoDevice,
     "is it still plugged in? tavo-util list"},
    {"TAVO_TIMEOUT", Exit::NoAnswer, kReplug, Exit::NoAnswer, kNoAnswer},
    {"TAVO_PIPE_HALTED", Exit::FailedUnchanged, kReplug, Exit::FailedUnchanged, kReplug},
    {"TAVO_BUFFER_OVERFLOW", Exit::FailedUnchanged, kReplug, Exit::FailedUnchanged, kReplug},
    {"TAVO_INVALID_HANDLE", Exit::FailedUnchanged, kReplug, Exit::FailedUnchanged, kReplug},
    {"TAVO_MEMORY_ALLOC_FAILED", Exit::FailedUnchanged, "close other programs: memory is short", Exit::FailedUnchanged,
     "close other programs: memory is short"},
    {"TAVO_DEVICE_BUSY", Exit::FailedUnchanged, kReplug, Exit::FailedUnchanged, kReplug},
    {"TAVO_DEVICE_NO_ACK", Exit::FailedUnchanged, kReplug, Exit::FailedUnchanged, kReplug},
    {"TAVO_ARBITRATION_ERROR", Exit::FailedUnchanged, kReplug, Exit::FailedUnchanged, kReplug},
    {"TAVO_I2C_ERROR", Exit::FailedUnchanged, kReplug, Exit::FailedUnchanged, kReplug},
    {"TAVO_I2C_BUS_BUSY", Exit::FailedUnchanged, kReplug, Exit::FailedUnchanged, kReplug},
    {"TAVO_I2C_STOP_BIT_SET", Exit::FailedUnchanged, kReplug, Exit::FailedUnchanged, kReplug},
    {"TAVO_MONITOR_EXISTS", Exit::FailedUnchanged, kReplug, Exit::FailedUnchanged, kReplug},
    {"TAVO_WRONG_FILE_EXTENSION", Exit::FileRefused, "rename the file to end in .bin", Exit::FileRefused, ""},
};
static_assert(std::size(kStatuses) == TAVO_WRONG_FILE_EXTENSION + 1);

constexpr StatusRow kUnknown = {"TAVO_UNKNOWN_ERROR", Exit::FailedUnchanged, kDoctor, Exit::FailedUnchanged, kDoctor};

const StatusRow& row(TAVO_STATUS status) {
    return status < std::size(kStatuses) ? kStatuses[status] : kUnknown;
}

}  // namespace

const char* flashStateName(FlashState state) {
    return kStates[static_cast<std::size_t>(state)].name;
}

const char* flashStateText(FlashState state) {
    return kStates[static_cast<std::size_t>(state)].text;
}

const char* statusName(TAVO_STATUS status) {
    return row(status).name;
}

Failure libraryFailure(TAVO_STATUS status, Side side, const std::string& doing) {
    const StatusRow& found = row(status);
    const bool bridge = side == Side::Bridge;
    return {bridge ? found.onBridge : found.onNeuron, "cannot " + doing + ": " + tavoStatusString(status),
            bridge ? found.bridgeHint : found.neuronHint, status};
}

}  // namespace cli
