// How a command ends: exit codes, and the one table that gives them for a failure of the service layer.
#pragma once

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
struct Failure {
    Exit exit = Exit::Internal;
    std::string text;                     ///< what failed, without a final period
    std::string hint;                     ///< what to do next; may be empty
    std::vector<std::string> lines = {};  ///< more about text, one below the other: what there is to choose from
};

}  // namespace cli
