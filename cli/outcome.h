// How a command ends: exit codes, what is known of the flash, and the failure that carries both.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tavo/status.h"

namespace cli {

/// Exit codes of the program: stable, scripts depend on them.
enum class Exit : int {
    Done = 0,
    Internal = 1,
    Usage = 2,
    NoDevice = 3,
    SeveralDevices = 4,
    NoPermission = 5,
    Busy = 6,
    FileRefused = 7,
    FileSystem = 8,
    Differs = 9,
    FailedUnchanged = 10,
    FailedFlashLost = 11,
    NoAnswer = 12,
    NeedsConfirmation = 13,
    Interrupted = 130,
};

/// What is known of the flash. Never more than is known: Uncertain when a step failed that may or
/// may not have reached the chip.
enum class FlashState { Untouched, Unchanged, Uncertain, Erased, Incomplete, Programmed };

const char* flashStateName(FlashState state);  ///< for JSON: "untouched", "incomplete" ...
const char* flashStateText(FlashState state);  ///< for people: "device not touched" ...

/// Ends a command. Not a std::exception, so that the library never takes it for one of its own.
struct Failure {
    Exit exit = Exit::Internal;
    std::string text;                     ///< what failed, without a final period
    std::string hint;                     ///< what to do next; may be empty
    std::optional<TAVO_STATUS> status;    ///< the library's code when the library failed
    std::vector<std::string> lines = {};  ///< more about text, one below the other: what there is to choose from
};

/// Which part of the interface a library call talks to: the same code means different things.
enum class Side { Bridge, Neuron };

const char* statusName(TAVO_STATUS status);

/// The failure of a library call. doing completes "cannot ...": "read the Neuron ID of 00001234".
Failure libraryFailure(TAVO_STATUS status, Side side, const std::string& doing);

}  // namespace cli
