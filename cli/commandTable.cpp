#include "cli/commands/commands.h"

namespace cli {
namespace {

constexpr Command kCommands[] = {
    // name, summary, needs, asks, two examples, declaring function
    {"list",
     "show the attached interfaces",
     Needs::List,
     nullptr,
     {"tavo-util list", "tavo-util --json list"},
     declareList},
    {"check",
     "read and check an Intel HEX file; no device is touched",
     Needs::Nothing,
     nullptr,
     {"tavo-util check image.hex", "tavo-util check image.hex --flash-size 1M --map"},
     declareCheck},
    {"program",
     "check, erase, program and verify an Intel HEX image",
     Needs::Device,
     nullptr,
     {"tavo-util program image.hex", "tavo-util -d 00001234 program image.hex --backup before.hex"},
     declareProgram},
    {"erase",
     "erase the whole flash",
     Needs::Device,
     "erase the whole flash",
     {"tavo-util erase", "tavo-util -d usb:1-4.2 -y erase"},
     declareErase},
};

constexpr Group kGroups[] = {
    {"config", "the bridge's configuration block"},
    {"neuron-id", "the Neuron ID, in the Neuron and in the bridge"},
    {"domain", "the Neuron's domain table"},
};

}  // namespace

std::span<const Command> commands() {
    return kCommands;
}

std::span<const Group> groups() {
    return kGroups;
}

}  // namespace cli
