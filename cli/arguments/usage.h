// The command line: what it may hold, its help, and what it says.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cli/arguments/command.h"
#include "cli/arguments/options.h"

namespace cli {

struct Invocation {
    GlobalOptions options;
    const Command* command = nullptr;  ///< null: nothing left to run, exit with exitCode
    Run run;
    std::vector<std::string*> texts;            ///< argument values in which {serial} is replaced; owned by run
    std::vector<std::string*> outputs;          ///< those of them that name files to be written
    std::function<std::string()> asks;          ///< in place of the command's question; may be empty
    std::function<std::string()> asksTogether;  ///< of several devices, where the command asks for itself; may be empty
    int exitCode = 0;
};

/// Reads the command line. Help, version and usage errors are printed here.
Invocation readCommandLine(int argc, char** argv);

/// The help of a command, of a group, or without words of the whole program. Throws Failure for others.
std::string helpText(const std::vector<std::string>& words);

/// What completion scripts are made of: a command's words, options and arguments, or the global options.
struct OptionWords {
    std::vector<std::string> names;  ///< "--device", "-d"
    std::string help;
    std::string value;                 ///< its name, "FILE"; empty when it takes none
    std::vector<std::string> choices;  ///< words that the value may be
};
struct ArgumentWords {
    std::string name;
    std::vector<std::string> choices;
};
struct CommandWords {
    std::string name;  ///< empty: the global ones
    std::string summary;
    std::vector<OptionWords> options;
    std::vector<ArgumentWords> arguments;
};
std::vector<CommandWords> commandWords();

}  // namespace cli
