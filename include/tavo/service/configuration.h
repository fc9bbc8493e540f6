// The bridge's 512-byte configuration block: read, compared, rewritten; and the Neuron ID kept in its user flash.
//
// A rewrite is a plan first: what the bridge holds, what it would hold, what would be written. The caller can
// show it, ask, and then carry it out, which keeps the old block first; a failed write is followed by a look at what
// the bridge holds now. A written block takes effect when the interface is plugged in again.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tavo/service/device.h"

namespace tavo {

/// All bytes of a configuration block.
using ConfigurationBlock = std::array<unsigned char, 512>;

/// What people and programs want to know of a block.
struct ConfigurationFields {
    std::string serial;                 ///< as the block has it
    std::string manufacturer;           ///< as the block has it
    std::string product;                ///< as the block has it
    std::uint16_t vendorId = 0;         ///< USB vendor ID
    std::uint16_t productId = 0;        ///< USB product ID
    const char* scb0 = "";              ///< "SPI", "I2C", "UART", "none", "unknown"
    unsigned maxPowerMilliamperes = 0;  ///< that the bridge asks USB for
    std::string format;                 ///< "1.0.3"
    bool checksumRight = false;         ///< it fits the bytes
    std::string whyBad;                 ///< why a bridge may not come up on USB with this block; empty when it should
};
/// Decodes a block, also a bad one.
TAVO_API ConfigurationFields fieldsOf(const ConfigurationBlock& block);

/// One byte that differs.
struct ByteChange {
    std::size_t offset;    ///< in the block
    unsigned char before;  ///< as it was
    unsigned char after;   ///< as it is to be
};
/// One entry a byte that differs.
TAVO_API std::vector<ByteChange> compareConfiguration(const ConfigurationBlock& before,
                                                      const ConfigurationBlock& after);
/// The field that this byte belongs to: "serial number"; empty for bytes without a known meaning.
TAVO_API const char* configurationFieldAt(std::size_t offset);

/// True for a name that ends in .bin, in either case: configuration files are told by it.
TAVO_API bool isConfigurationFileName(const std::string& path);
/// A configuration file: 512 bytes, named .bin. Throws Error: FileRefused for another name or size, FileSystem
/// for one that cannot be read.
TAVO_API ConfigurationBlock loadConfiguration(const std::string& path);
/// Writes a new file, whole or not at all. Throws Error (FileSystem), also when path exists and replace is false.
TAVO_API void saveConfiguration(const std::string& path, const ConfigurationBlock& block, bool replace);

/// Reads the block: three control requests. The bridge leaves its configuration mode on every path.
TAVO_API ConfigurationBlock readConfiguration(Device& device, const Control& control = {});

/// One rewrite, thought out and not carried out.
struct ConfigurationPlan {
    ConfigurationBlock before{};  ///< as it was
    ConfigurationBlock after{};   ///< what the bridge will hold, serial number and checksum made anew
    std::string serial;           ///< that the block will carry
    std::string pendingSerial;    ///< set since the interface was plugged in, and lost by this rewrite; empty: none
    std::string doing;            ///< completes "cannot ...": "set the serial number"
    std::string action;           ///< for the log (history.h): "set-serial"
    std::string source = {};      ///< the file that it was made from, for the log; may be empty
    bool isEdit = false;          ///< made from the block in the bridge: written only while that is still the same

    /// True when a byte is to be written.
    bool changesAnything() const { return before != after; }
};

/// What a block is to become in the bridge.
struct ConfigurationPlanOptions {
    std::optional<std::string> serial = {};  ///< none: the device keeps the one that is in effect
    std::string source = {};                 ///< the file that holds the block, for messages and the log; may be empty
    bool force = false;                      ///< takes a bad block too (ConfigurationFields::whyBad)
};
/// Throws Error with nothing asked of the device: FileRefused for a bad block, with which a bridge may never come up on
/// USB again; BadArgument for a serial number that is not 1 to 32 printable ASCII characters.
TAVO_API ConfigurationPlan planConfiguration(Device& device, const ConfigurationBlock& image,
                                             const ConfigurationPlanOptions& options, const Control& control = {});
/// The same of a block without a file, not forced.
TAVO_API ConfigurationPlan planConfiguration(Device& device, const ConfigurationBlock& image,
                                             const std::optional<std::string>& serial, const Control& control = {});
/// As planConfiguration: the block that is there, with another serial number.
TAVO_API ConfigurationPlan planSerialNumber(Device& device, const std::string& serial, const Control& control = {});
/// As planConfiguration: the block that is there, with another role of SCB0.
TAVO_API ConfigurationPlan planScb0(Device& device, Scb0Role role, const Control& control = {});

/// What is kept of the block that was there.
struct ConfigurationWriteOptions {
    std::string backup = {};  ///< writes what was there into this file too, which must not exist yet; empty: into none
    bool noBackup = false;    ///< does not keep it among the backups of the interface (backups.h)
};

/// Keeps what is there, writes plan.after and reads it back. Does nothing when nothing changes.
/// @return the file that keeps plan.before; empty: none
/// Throws Error: the state says whether the block is as it was, written all the same, or not known.
TAVO_API std::string writeConfiguration(Device& device, const ConfigurationPlan& plan,
                                        const ConfigurationWriteOptions& options = {}, const Control& control = {});

/// What storeNeuronId did.
struct StoredNeuronId {
    NeuronId id;           ///< that the bridge keeps now
    bool written = false;  ///< false: the bridge held it already, nothing was written
};
/// Keeps the Neuron ID in the bridge's user flash and reads it back.
/// @param id  none: the Neuron is asked (about 1 s)
TAVO_API StoredNeuronId storeNeuronId(Device& device, const std::optional<NeuronId>& id, const Control& control = {});

/// The Neuron ID that is to be stored, asked of the Neuron when none is given, without storing it.
TAVO_API StoredNeuronId planNeuronId(Device& device, const std::optional<NeuronId>& id, const Control& control = {});

}  // namespace tavo
