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
    std::vector<std::string*> texts;    ///< argument values in which {serial} is replaced; owned by run
    std::vector<std::string*> outputs;  ///< those of them that name files to be written
    int exitCode = 0;
};

/// Reads the command line. Help, version and usage errors are printed here.
Invocation readCommandLine(int argc, char** argv);

/// What completion scripts are made of: a command's words and its options, or the global options.
struct CommandWords {
    std::string name;  ///< empty: the global ones
    std::string summary;
    std::vector<std::string> options;
    std::vector<std::string> choices;  ///< words that its first argument may be
};
std::vector<CommandWords> commandWords();

}  // namespace cli
