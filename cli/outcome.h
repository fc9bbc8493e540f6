// How a command ends: exit codes, and the one table that gives them for a failure of the service layer.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tavo/service/error.h"

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

/// What a failure of the service layer ends the program with.
Exit exitOf(const tavo::Error& error);

/// Ends a command for a reason that lies in the tool itself: usage, confirmation, a difference found.
/// Not a std::exception, so that the library never takes it for one of its own.
struct Failure {
    Exit exit = Exit::Internal;
    std::string text;                     ///< what failed, without a final period
    std::string hint;                     ///< what to do next; may be empty
    std::optional<TAVO_STATUS> status;    ///< the library's code when the library failed
    std::vector<std::string> lines = {};  ///< more about text, one below the other: what there is to choose from
};

using tavo::FlashState;
using tavo::Side;
using tavo::statusName;

/// The failure of a library call that a command makes itself.
Failure libraryFailure(TAVO_STATUS status, Side side, const std::string& doing);

}  // namespace cli
