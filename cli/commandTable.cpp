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
    {"doctor",
     "look for what is wrong; restarts the Neuron",
     Needs::DeviceAsItIs,
     nullptr,
     {"tavo-util doctor", "tavo-util -d 00001234 --json doctor"},
     declareDoctor},
    {"recover",
     "let the Neuron run and give SCB0 back after a killed run",
     Needs::Device,
     nullptr,
     {"tavo-util recover", "tavo-util -d usb:1-4.2 recover"},
     declareRecover},
    {"config read",
     "show the bridge's configuration block, or write it to a file",
     Needs::Device,
     nullptr,
     {"tavo-util config read", "tavo-util config read saved-{serial}.bin --hex"},
     declareConfigRead},
    {"config write",
     "write a configuration block; the old one is saved first",
     Needs::Device,
     nullptr,
     {"tavo-util config write block.bin", "tavo-util -y config write block.bin --serial 00001299"},
     declareConfigWrite},
    {"config set-serial",
     "give the interface another serial number",
     Needs::Device,
     nullptr,
     {"tavo-util config set-serial 00001299", "tavo-util -d 00001234 -y config set-serial 00001299"},
     declareConfigSetSerial},
    {"config diff",
     "compare the configuration block with a file",
     Needs::Device,
     nullptr,
     {"tavo-util config diff block.bin", "tavo-util --json config diff block.bin"},
     declareConfigDiff},
    {"scb0",
     "make the bridge's serial block 0 SPI or I2C",
     Needs::Device,
     nullptr,
     {"tavo-util scb0 spi", "tavo-util -y scb0 i2c"},
     declareScb0},
    {"neuron-id store",
     "keep the Neuron ID in the bridge",
     Needs::Device,
     nullptr,
     {"tavo-util neuron-id store", "tavo-util neuron-id store 050102030405"},
     declareNeuronIdStore},
    {"completion",
     "print the completion script of a shell",
     Needs::Nothing,
     nullptr,
     {"tavo-util completion bash > ~/.local/share/bash-completion/completions/tavo-util",
      "tavo-util completion fish > ~/.config/fish/completions/tavo-util.fish"},
     declareCompletion},
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
