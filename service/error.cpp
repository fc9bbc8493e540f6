#include "tavo/service/error.h"

#include <iterator>
#include <utility>

namespace tavo {
namespace {

struct StateRow {
    const char* name;
    const char* text;
};

constexpr StateRow kFlashStates[] = {
    {"untouched", "device not touched"},
    {"unchanged", "flash contents unchanged"},
    {"uncertain", "the flash may be partly erased; treat it as incomplete"},
    {"erased", "flash erased: the Neuron has no firmware"},
    {"incomplete", "flash incomplete: part of the image is missing"},
    {"programmed", "flash programmed and verified"},
};

constexpr const char* kProblems[] = {"internal",      "bad-argument", "no-device",    "several-devices",
                                     "no-permission", "busy",         "file-refused", "file-system",
                                     "device-failed", "no-answer",    "interrupted"};
static_assert(std::size(kProblems) == static_cast<std::size_t>(Problem::Interrupted) + 1);

constexpr const char* kReplug = "unplug the interface, plug it in again and repeat the command";
constexpr const char* kRights = "log in at this machine or join the group plugdev, then replug; sudo is not needed";
constexpr const char* kHeld = "another program or a kernel driver may hold the interface: close it, or replug";
constexpr const char* kNoAnswer = "let the Neuron run (tavo-util recover), then ask what is wrong: tavo-util doctor";
constexpr const char* kDoctor = "tavo-util doctor looks for the cause";
constexpr const char* kUsbId = "accept its IDs with --usb-id VVVV:PPPP";
constexpr const char* kMemory = "close other programs: memory is short";
constexpr const char* kPlugged = "is it still plugged in? tavo-util list";

struct StatusRow {
    const char* name;
    Problem onBridge;
    const char* bridgeHint;
    Problem onNeuron;
    const char* neuronHint;
};

constexpr StatusRow failed(const char* name, const char* hint) {
    return {name, Problem::DeviceFailed, hint, Problem::DeviceFailed, hint};
}

// Indexed by the status.
constexpr StatusRow kStatuses[] = {
    {"TAVO_SUCCESS", Problem::Internal, "", Problem::Internal, ""},
    {"TAVO_WRONG_VID_PID", Problem::NoDevice, kUsbId, Problem::NoDevice, kUsbId},
    {"TAVO_FILE_NOT_FOUND", Problem::FileSystem, "check the path and its permissions", Problem::FileSystem,
     "check the path and its permissions"},
    {"TAVO_HEX_FORMAT_ERROR", Problem::FileRefused, "", Problem::FileRefused, ""},
    failed("TAVO_FLASH_PROGRAMMING_FAILED", "program the image again"),
    {"TAVO_WRONG_CONFIG_SIZE", Problem::FileRefused, "a configuration file has exactly 512 bytes", Problem::FileRefused,
     ""},
    failed("TAVO_UNSUPPORTED_ON_OS", kReplug),
    {"TAVO_TRANSACTION_FAILED", Problem::NoAnswer, kNoAnswer, Problem::NoAnswer, kNoAnswer},
    {"TAVO_ACCESS_DENIED", Problem::NoPermission, kRights, Problem::NoPermission, kRights},
    {"TAVO_DRIVER_INIT_FAILED", Problem::DeviceFailed, kReplug, Problem::NoAnswer, kDoctor},
    {"TAVO_DEVICE_INFO_FETCH_FAILED", Problem::DeviceFailed, kReplug, Problem::NoAnswer, kDoctor},
    {"TAVO_DEVICE_OPEN_FAILED", Problem::Busy, kHeld, Problem::NoAnswer,
     "the Neuron's LDV channel cannot be opened: is the LDV driver running? tavo-util doctor tells more"},
    {"TAVO_INVALID_PARAMETER", Problem::DeviceFailed, kDoctor, Problem::NoAnswer, kDoctor},
    failed("TAVO_REQUEST_FAILED", kReplug),
    failed("TAVO_DOWNLOAD_FAILED", kReplug),
    failed("TAVO_INVALID_SIGNATURE", kDoctor),
    failed("TAVO_INVALID_FIRMWARE", kDoctor),
    {"TAVO_DEVICE_NOT_FOUND", Problem::NoDevice, kPlugged, Problem::NoDevice, kPlugged},
    {"TAVO_TIMEOUT", Problem::NoAnswer, kReplug, Problem::NoAnswer, kNoAnswer},
    failed("TAVO_PIPE_HALTED", kReplug),
    failed("TAVO_BUFFER_OVERFLOW", kReplug),
    failed("TAVO_INVALID_HANDLE", kReplug),
    failed("TAVO_MEMORY_ALLOC_FAILED", kMemory),
    failed("TAVO_DEVICE_BUSY", kReplug),
    failed("TAVO_DEVICE_NO_ACK", kReplug),
    failed("TAVO_ARBITRATION_ERROR", kReplug),
    failed("TAVO_I2C_ERROR", kReplug),
    failed("TAVO_I2C_BUS_BUSY", kReplug),
    failed("TAVO_I2C_STOP_BIT_SET", kReplug),
    failed("TAVO_MONITOR_EXISTS", kReplug),
    {"TAVO_WRONG_FILE_EXTENSION", Problem::FileRefused, "rename the file to end in .bin", Problem::FileRefused, ""},
};
static_assert(std::size(kStatuses) == TAVO_WRONG_FILE_EXTENSION + 1);

constexpr StatusRow kUnknownStatus = failed("TAVO_UNKNOWN_ERROR", kDoctor);

const StatusRow& row(TAVO_STATUS status) {
    return status < std::size(kStatuses) ? kStatuses[status] : kUnknownStatus;
}

void join(std::string& text, const std::string& more) {
    if (more.empty()) return;
    text += (text.empty() ? "" : "; ") + more;
}

const char* lineText(LineState state, const char* held, const char* unknown) {
    if (state == LineState::Held) return held;
    return state == LineState::Unknown ? unknown : "";
}

}  // namespace

bool DeviceState::isSomethingHeld() const {
    return resetLine == LineState::Held || serviceLine == LineState::Held || scb0 == Scb0State::SpiMaster;
}

bool DeviceState::isFlashLost() const {
    return flash == FlashState::Uncertain || flash == FlashState::Erased || flash == FlashState::Incomplete;
}

std::string DeviceState::text() const {
    std::string text;
    const bool otherPart = !configuration.text.empty() || !userFlash.text.empty() || !node.text.empty();
    // A command that worked on another memory says nothing about the flash, unless the flash lacks its image.
    if (flash != FlashState::Untouched && (!otherPart || isFlashLost())) join(text, flashStateText(flash));
    for (const PartState* part : {&configuration, &userFlash, &node}) join(text, part->text);
    join(text, lineText(resetLine, "the Neuron is held in reset (pin 8 low)",
                        "not known whether the Neuron is held in reset (pin 8)"));
    join(text, lineText(serviceLine, "the service line is held (pin 14 low)",
                        "not known whether the service line is held (pin 14)"));
    if (scb0 == Scb0State::SpiMaster) join(text, "SCB0 is still SPI master beside the Neuron");
    if (scb0 == Scb0State::Unknown) join(text, "not known whether SCB0 is still SPI master");
    return text.empty() ? flashStateText(FlashState::Untouched) : text;
}

const char* flashStateName(FlashState state) {
    return kFlashStates[static_cast<std::size_t>(state)].name;
}

const char* flashStateText(FlashState state) {
    return kFlashStates[static_cast<std::size_t>(state)].text;
}

const char* problemName(Problem problem) {
    return kProblems[static_cast<std::size_t>(problem)];
}

const char* statusName(TAVO_STATUS status) {
    return row(status).name;
}

Error::Error(Problem whatKind, const std::string& text, std::string whatNext)
    : std::runtime_error(text), problem(whatKind), hint(std::move(whatNext)) {}

Error::~Error() = default;

Error statusError(TAVO_STATUS status, Side side, const std::string& doing) {
    const StatusRow& found = row(status);
    const bool bridge = side == Side::Bridge;
    Error error(bridge ? found.onBridge : found.onNeuron, "cannot " + doing + ": " + tavoStatusString(status),
                bridge ? found.bridgeHint : found.neuronHint);
    error.status = status;
    return error;
}

}  // namespace tavo
