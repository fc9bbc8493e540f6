// Operations on the bridge's configuration block and user flash.
//
// Each opens the configuration interface, does its work and closes it, whatever the result. USB
// requests time out after 5 s each, the write of the user flash after 1 s. Callers serialise
// operations on one device. Nothing that is written is read back. The bridge may be left in
// configuration-flash mode by a failure: see Configurator.
#pragma once

#include <string>

#include "tavo/deviceAccess.h"
#include "tavo/status.h"

/// Role of serial block 0, numbered as the mode byte of the configuration block.
enum SCB0_MODE : int {
    SCB0_SPI = 2,
    SCB0_I2C = 3,
};

/// Reads the 512-byte configuration block. On failure data may be partly filled.
[[nodiscard]] TAVO_API TAVO_STATUS readConfigData(DeviceInfo& deviceInfo, unsigned char (&data)[512]);

/// Writes SCB0's mode and settings into the configuration block: SPI for SCB0_SPI, I2C for every
/// other value. Takes effect when the bridge is plugged in again. The block's serial number becomes
/// that of deviceInfo; TAVO_INVALID_PARAMETER, with nothing touched, when it has more than 32 characters.
[[nodiscard]] TAVO_API TAVO_STATUS configureScb0(DeviceInfo& deviceInfo, SCB0_MODE mode);

/// TAVO_UNSUPPORTED_ON_OS; does nothing.
[[nodiscard]] TAVO_API TAVO_STATUS resetCypress(const DeviceInfo& deviceInfo);
/// TAVO_UNSUPPORTED_ON_OS; does nothing.
[[nodiscard]] TAVO_API TAVO_STATUS cyclePort(const DeviceInfo& deviceInfo);

/// True when what follows the last "." of path (all of it when there is none), folded to lower
/// case, equals extension. extension is compared as given: pass it in lower case. A "." in a folder's
/// name counts like any other.
[[nodiscard]] TAVO_API bool checkFileExtension(std::string path, std::string extension);

/// Writes a configuration image, a new serial number, or both (see Configurator::writeConfigData).
/// @param path    file of exactly 512 bytes with the extension "bin", or null to rewrite the block
///                that is in the bridge. Its content is not checked: any 512 bytes are written, also
///                those of another product. The opening of a named pipe blocks until somebody writes.
/// @param serial  new serial-number text without prefix, or null to keep that of deviceInfo (not that
///                of the file). A text of up to 32 characters that cannot be taken, "Gerät 7" or an
///                empty one, blanks the serial number and is a success: check it first.
/// @return TAVO_WRONG_FILE_EXTENSION, TAVO_FILE_NOT_FOUND, TAVO_WRONG_CONFIG_SIZE or, for a serial text
///         of more than 32 characters, TAVO_INVALID_PARAMETER, with the device untouched; otherwise
///         the code of the first step that failed.
[[nodiscard]] TAVO_API TAVO_STATUS updateCypressConfig(DeviceInfo& deviceInfo, const char* path, const char* serial);

/// Writes a Neuron ID into the bridge's user flash: 128 bytes at address 0, the ID and 122 zeros.
/// An ID equal to deviceInfo.neuronId is a success that opens nothing, whatever neuronIdValid and the
/// bridge say. Any other is written, also one that is not valid. deviceInfo is not changed; the
/// vendor and product ID are not tested.
[[nodiscard]] TAVO_API TAVO_STATUS programNeuronIdIntoCypress(const DeviceInfo& deviceInfo, const NeuronId& neuronId);

/// The same for an ID given as 12 hexadecimal digits without prefix.
/// @return TAVO_WRONG_VID_PID; TAVO_UNKNOWN_ERROR for a text that is no ID or no valid one.
[[nodiscard]] TAVO_API TAVO_STATUS writeNeuronId(const DeviceInfo& deviceInfo, std::string neuronId);

/// The same for the ID that the Neuron itself gives, valid or not.
/// @return TAVO_WRONG_VID_PID, a code of readNeuronId, or of the above: TAVO_DEVICE_OPEN_FAILED may
///         be of either channel.
[[nodiscard]] TAVO_API TAVO_STATUS writeNeuronId(const DeviceInfo& deviceInfo);
