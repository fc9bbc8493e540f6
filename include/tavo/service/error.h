// How an operation of the service layer fails: what failed, what is known of the device now, what to do next.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tavo/export.h"
#include "tavo/status.h"

namespace tavo {

/// What kind of failure it is. A program decides by this; people read the texts.
enum class Problem : std::uint8_t {
    Internal,        ///< a fault of this library
    BadArgument,     ///< what was asked for makes no sense
    NoDevice,        ///< no such device, or no longer attached
    SeveralDevices,  ///< several devices, none chosen
    NoPermission,    ///< the device or the LDV channel may not be opened
    Busy,            ///< in use by another process, or by another object of this one
    FileRefused,     ///< the file is not what is needed; the device was not touched
    FileSystem,      ///< a file on this computer cannot be read or written
    DeviceFailed,    ///< a step on the device failed; `state` tells what the device holds now
    NoAnswer,        ///< the Neuron, or the bridge, did not answer in time
    Interrupted,     ///< the caller's CancelToken was set; everything is released
};

/// What is known of the flash. Never more than is known: Uncertain when a step failed that may or may
/// not have reached the chip.
enum class FlashState : std::uint8_t { Untouched, Unchanged, Uncertain, Erased, Incomplete, Programmed };

/// What is known of another memory of the device.
enum class Knowledge : std::uint8_t {
    Untouched,  ///< nothing was asked of it
    Unchanged,  ///< read, or a write that is known not to have happened
    Written,    ///< holds what was to be written
    Uncertain,  ///< a write may or may not have happened
};

/// A memory or the node state, with the words for what is known of it.
struct PartState {
    Knowledge knowledge = Knowledge::Untouched;  ///< how much is known
    std::string text;                            ///< "configuration block unchanged"; empty while untouched
};

/// A line of the Neuron. Both are active low and rest high.
enum class LineState : std::uint8_t { NotLooked, Released, Held, Unknown };

/// SCB0 as it was found after the operation.
enum class Scb0State : std::uint8_t { NotLooked, GivenBack, SpiMaster, Unknown };

/// What is known of the device after an operation, good or bad.
struct TAVO_API DeviceState {
    FlashState flash = FlashState::Untouched;      ///< the SPI flash
    PartState configuration;                       ///< the bridge's configuration block
    PartState userFlash;                           ///< the bridge's user flash, which keeps the Neuron ID
    PartState node;                                ///< the Neuron: node state, domain table
    LineState resetLine = LineState::NotLooked;    ///< pin 8
    LineState serviceLine = LineState::NotLooked;  ///< pin 14
    Scb0State scb0 = Scb0State::NotLooked;         ///< serial block 0

    /// True when a part is held that must not stay so: the Neuron in reset, its service line, SCB0.
    bool isSomethingHeld() const;
    /// True when the flash may lack its image: Uncertain, Erased or Incomplete.
    bool isFlashLost() const;
    /// One line for people about the part that was worked on: "flash incomplete: part of the image is
    /// missing; the Neuron is held in reset (pin 8 low)". "device not touched" when nothing was.
    std::string text() const;
};

TAVO_API const char* flashStateName(FlashState state);  ///< for programs: "untouched", "incomplete" ...
TAVO_API const char* flashStateText(FlashState state);  ///< for people: "flash contents unchanged" ...
TAVO_API const char* problemName(Problem problem);      ///< "no-device", "flash-failed" ...
TAVO_API const char* statusName(TAVO_STATUS status);    ///< "TAVO_DEVICE_BUSY"

/// Every failure of the service layer. what() says what failed, without a final period.
class TAVO_API Error : public std::runtime_error {
public:
    /// The other members are filled where the failure is understood.
    Error(Problem whatKind, const std::string& text, std::string whatNext = {});
    /// Copies all of it.
    Error(const Error&) = default;
    /// Copies all of it.
    Error& operator=(const Error&) = default;
    ~Error() override;

    Problem problem;                    ///< a program decides by this
    std::string hint;                   ///< what to do next; may be empty
    std::optional<TAVO_STATUS> status;  ///< the library's code when the library failed
    DeviceState state;                  ///< of the device, afterwards
    std::vector<std::string> details;   ///< further lines: the faults of a file, the devices to choose from
};

/// Which part of the interface a library call talks to: the same code means different things.
enum class Side : std::uint8_t { Bridge, Neuron };

/// The failure of a library call. doing completes "cannot ...": "read the Neuron ID of 00001234".
TAVO_API Error statusError(TAVO_STATUS status, Side side, const std::string& doing);

}  // namespace tavo
