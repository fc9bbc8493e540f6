// Operations on the Neuron of one interface: status, identity, node state, reset, domain table.
//
// Each holds its pins or its LDV channel only while it runs. Throws Error; the state it carries tells what
// is known of the Neuron: an answer that did not come does not mean that a change was not made. When
// cancelled, every one ends within a second with all lines released.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tavo/LonAddress.h"
#include "tavo/neuron.h"
#include "tavo/service/device.h"

namespace tavo {

/// The Neuron's status: node state, last reset, last error, counters. At most about 1 s on a quiet channel;
/// messages of other nodes do not count, but after two minutes of nothing else it gives up.
TAVO_API NeuronState readStatus(Device& device, const Control& control = {});

/// The 48-bit Neuron ID from the Neuron itself. As long as readStatus.
TAVO_API NeuronId readNeuronId(Device& device, const Control& control = {});

/// Eight bytes, as the Neuron sends them.
using ProgramId = std::array<unsigned char, 8>;
/// The program ID of the application in the Neuron. As long as readStatus.
TAVO_API ProgramId readProgramId(Device& device, const Control& control = {});

/// What setMode sets. Service holds the reset line and then the service line, 11.5 s in all.
enum class Mode : std::uint8_t { Unconfigured, Offline, Configured, Service };

/// Node states around a change.
struct ModeChange {
    std::optional<NeuronState> before;  ///< none: the Neuron did not answer
    std::optional<NeuronState> after;   ///< as it was read back
};

/// The node state that the Neuron has after a mode was set: 0x02, 0x06, 0x04, 0x02.
TAVO_API std::uint8_t nodeStateOf(Mode mode);
/// "unconfigured", "offline", "configured", "service".
TAVO_API const char* modeName(Mode mode);

/// Sets the node state by message (about 1 s), or by holding both lines (13 s with the start of the Neuron), and
/// reads it before and after. Error: DeviceFailed when the Neuron answers and is in another state than asked for.
TAVO_API ModeChange setMode(Device& device, Mode mode, const Control& control = {});

/// The reset line, or a message.
enum class ResetBy : std::uint8_t {
    Line,     ///< 25 ms low, then 1.5 s until the Neuron has booted
    Message,  ///< waits for the network interface's notice, at most 65 s, then 1 s
};
/// @return seconds taken
TAVO_API double reset(Device& device, ResetBy by = ResetBy::Line, const Control& control = {});

/// Presses the service pin for 25 ms. Error: DeviceFailed on a bridge without GPIO 14, and when the line stays low.
/// @return seconds taken
TAVO_API double pressServicePin(Device& device, const Control& control = {});

/// Both entries.
using DomainTable = std::array<LonAddress, 2>;
/// Both entries of the domain table. About twice as long as readStatus at most.
TAVO_API DomainTable readDomainTable(Device& device, const Control& control = {});

/// What is kept of the table that was there.
struct DomainWriteOptions {
    /// May be null; receives the indexes of the entries that differ from before, also when this throws.
    std::vector<unsigned>* changed = nullptr;
    std::string source = {};  ///< the file that it was made from, for the log (history.h)
    bool noBackup = false;    ///< does not keep what was there among the backups of the interface (backups.h)
    bool keepKeys = false;    ///< keeps its authentication keys there, too
};

/// Keeps what is there, then writes both entries, 0 then 1, and reads the table back: success is only told of a Neuron
/// that holds it. After a failure the state says which entry was written, and so does changed.
/// @param before  what readDomainTable gave: what "unchanged" means
/// @return the file that keeps what was there; empty: none
TAVO_API std::string writeDomainTable(Device& device, const DomainTable& before, const DomainTable& wanted,
                                      const DomainWriteOptions& options = {}, const Control& control = {});

// Names of ISO/IEC 14908-1; "unknown" for a code without one.
/// In words; "unknown" for a code that none is.
TAVO_API const char* nodeStateName(std::uint8_t state);
/// In words; "unknown" for a code that none is.
TAVO_API const char* resetCauseName(std::uint8_t cause);
/// In words; "unknown" for a code that none is.
TAVO_API const char* errorLogName(std::uint8_t error);
TAVO_API std::string named(const char* name, std::uint8_t raw);  ///< "configured (0x04)"

}  // namespace tavo
