// Intel HEX writer: complete record lines into an open file. Every line is flushed when it is
// complete. The stream's error state is not looked at: check it after a call. One file at a time in a
// process for what uses g_extAddress; the rest keeps nothing.
#pragma once

#include <fstream>
#include <string>

#include "tavo/SpiNand.h"

/// Record types, as the Intel HEX type codes.
enum HexFileDataType {
    HEX_DATA = 0,
    HEX_END_OF_FILE = 1,
    HEX_EXTENDED_LINEAR_ADDRESS = 4,
};

/// Upper address half announced last (address bits 31 to 16). Only HandleAddressOverflow raises it;
/// set it to 0 before a new file.
extern TAVO_API unsigned short g_extAddress;

/// Two upper-case hexadecimal digits.
[[nodiscard]] TAVO_API std::string convertHexToString(unsigned char value);
/// Four upper-case hexadecimal digits.
[[nodiscard]] TAVO_API std::string convertHexToString(unsigned short value);

[[nodiscard]] TAVO_API unsigned short getLowBytes(unsigned int value);   ///< bits 15 to 0
[[nodiscard]] TAVO_API unsigned short getHighBytes(unsigned int value);  ///< bits 31 to 16
[[nodiscard]] TAVO_API unsigned char getLowByte(unsigned short value);   ///< bits 7 to 0
[[nodiscard]] TAVO_API unsigned char getHighByte(unsigned short value);  ///< bits 15 to 8

/// Writes and flushes one record. data may be null when length is 0. Of type the low 8 bits are written.
TAVO_API void writeToHexFile(std::ofstream* file, unsigned char* data, unsigned char length, unsigned short address,
                             HexFileDataType type);

/// True when a chunk that starts at address needs a new extended linear address record first.
[[nodiscard]] TAVO_API bool checkFor16BitOverflow(unsigned int address);

/// Writes that record when it is needed and updates g_extAddress.
TAVO_API void HandleAddressOverflow(std::ofstream* file, unsigned int address);

/// Reads up to recordLength bytes from the flash, none above lastAddress, and writes them as one
/// data record. Needs address <= lastAddress and a recordLength of at least 1.
/// @return CY_ERROR_ALLOCATION_FAILED or the status of the read; then nothing was written.
[[nodiscard]] TAVO_API CY_RETURN_STATUS WriteSPIFlashDataToHexFile(std::ofstream* file, SpiNand& flash,
                                                                   unsigned char recordLength, unsigned int address,
                                                                   unsigned int lastAddress);

/// Writes the end-of-file record.
TAVO_API void setEofHexFile(std::ofstream* file);
