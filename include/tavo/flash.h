// Whole-chip operations on the SPI flash that holds the Neuron's firmware.
//
// Each of them makes SCB0 an SPI master, holds the Neuron in reset, does its work and gives both
// back, whatever the result. Callers serialise operations on one device. The vendor and product ID
// are not tested. An exception that is not a std::exception (from a progress callback, say) leaves
// them after the same releases.
#pragma once

#include "tavo/deviceAccess.h"
#include "tavo/status.h"

/// Erases the whole chip.
///
/// Blocks for the whole erase (seconds to minutes); the wait ends after 1,200,000 polls of 1 ms.
/// @param deviceInfo  borrowed; scb0DeviceNumber and scb0InterfaceNumber must be set.
/// @return TAVO_SUCCESS, or the code of the first step that failed.
[[nodiscard]] TAVO_API TAVO_STATUS eraseSpiFlash(DeviceInfo& deviceInfo);

/// Erases the chip, then programs and verifies the image of an Intel HEX file page by page.
///
/// The chip is erased before the file is opened: check the file first. Lines end with a line feed;
/// records 00, 01 and 04 are read. A file without end-of-file record loses its last, partial page.
/// Blocks for the erase, about 7 ms for each page that is not blank, and 1.6 s of waits.
/// @param path      the Intel HEX file.
/// @param progress  may be null. Called on this thread after a page when the share of the file's
///                  text that has been read has changed: percent, 1 to 100.
/// @return TAVO_FILE_NOT_FOUND (chip erased), TAVO_MEMORY_ALLOC_FAILED (chip erased),
///         TAVO_FLASH_PROGRAMMING_FAILED (a page failed three times, or the file was refused, with
///         the reason on std::cerr; the pages before it are programmed), or the code of the first
///         step that failed before the file was opened.
[[nodiscard]] TAVO_API TAVO_STATUS programSpiFlash(DeviceInfo& deviceInfo, const char* path, void (*progress)(char));

/// Copies the whole chip into an Intel HEX file: 255-byte data records, line feeds, upper case.
///
/// Prints "FlashSize: %d Bytes\n" to standard output. Not safe for two dumps at once in a process.
/// Blocks for about 2.4 ms for each 255 bytes, and 1.6 s of waits.
/// @param path      created or replaced.
/// @param progress  may be null. Called on this thread after each record with the percent of its
///                  start address.
/// @return TAVO_FILE_NOT_FOUND when the file cannot be created; TAVO_REQUEST_FAILED also when it
///         cannot be written (a full disk); otherwise the code of the first step that failed. After
///         a failure the file, if created, has no end-of-file record; its records are whole, but for
///         the last one of a file that could not be written.
[[nodiscard]] TAVO_API TAVO_STATUS readSpiFlash(DeviceInfo& deviceInfo, const char* path, void (*progress)(char));
