// The command line: what it may hold, its help, and what it says.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/options.h"

namespace cli {

struct Invocation {
    GlobalOptions options;
    const Command* command = nullptr;  ///< null: nothing left to run, exit with exitCode
    Run run;
    std::vector<std::string*> outputs;  ///< values in which {serial} is replaced; owned by run
    int exitCode = 0;
};

/// Reads the command line. Help, version and usage errors are printed here.
Invocation readCommandLine(int argc, char** argv);

}  // namespace cli
