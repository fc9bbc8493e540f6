// Whole-chip operations on the SPI flash that holds the Neuron's firmware.
//
// Each of them makes SCB0 an SPI master, holds the Neuron in reset, does its work and gives both
// back, whatever the result. A release that fails is not reported: TAVO_SUCCESS does not say that the
// Neuron runs again and that SCB0 is a slave again. An SCB0 that was master with the wanted setting
// before the call stays so. Callers serialise operations on one device; operations on several devices
// may run side by side, two readSpiFlash excepted. The vendor and product ID are not tested.
//
// The chip is known by its answers alone. Where none is fitted and the line reads FF, it is busy for
// ever; where the line reads 00, it is idle, has 1 byte, and an erase succeeds.
//
// Exceptions (of a progress callback, say) leave after the same releases; programSpiFlash turns a
// std::exception met while it writes the image into TAVO_FLASH_PROGRAMMING_FAILED.
#pragma once

#include "tavo/deviceAccess.h"
#include "tavo/status.h"

/// Erases the whole chip.
///
/// Blocks for the whole erase (seconds to minutes); the wait ends after 1,200,000 polls of 1 ms.
/// Nothing is read back: a chip that ignores the command, because its protection could not be
/// removed, is idle at once and a success.
/// @param deviceInfo  borrowed; scb0DeviceNumber and scb0InterfaceNumber must be set.
/// @return TAVO_SUCCESS, or the code of the first step that failed; TAVO_TIMEOUT for a chip that
///         stays busy. After a failure the chip may be partly erased, and still at it.
[[nodiscard]] TAVO_API TAVO_STATUS eraseSpiFlash(DeviceInfo& deviceInfo);

/// Erases the chip, then programs and verifies the image of an Intel HEX file page by page.
///
/// The chip is erased before the file is opened: check the file first. Lines end with a line feed;
/// records 00, 01 and 04 are read. A file without end-of-file record loses its last, partial page.
///
/// TAVO_SUCCESS says that what could be read of the file is in the chip, not that all of the file
/// could be read: a read error ends it as its end does. So a folder is a success, and so is a pipe
/// with a progress callback (its size cannot be told); both leave the chip erased. A pipe nobody
/// writes to blocks with the chip erased and the Neuron in reset.
///
/// Addresses are not compared with the size of the chip: the driver drops the bits above 23, the chip
/// those it has no cells for. Pages of FF are not sent and not read back.
/// Blocks for the erase, about 11 ms (full-speed USB) for each page that is not blank, and 1.6 s of waits.
/// @param path      the Intel HEX file; a regular one.
/// @param progress  may be null. Called on this thread after a page when the share of the file's
///                  text that has been read has changed: percent, 1 to 100.
/// @return TAVO_FILE_NOT_FOUND (chip erased), TAVO_MEMORY_ALLOC_FAILED (chip erased),
///         TAVO_FLASH_PROGRAMMING_FAILED (a page failed three times, or the file was refused, with
///         the reason on std::cerr; the pages before it are programmed), or the code of the first
///         step that failed before the file was opened (the chip may be partly erased).
[[nodiscard]] TAVO_API TAVO_STATUS programSpiFlash(DeviceInfo& deviceInfo, const char* path, void (*progress)(char));

/// Copies the whole chip into an Intel HEX file: 255-byte data records, line feeds, upper case.
///
/// Prints "FlashSize: %d Bytes\n" to standard output. Not safe for two dumps at once in a process.
/// Of a chip above 16 MiB the first 16 MiB come again and again: an address has 24 bits.
/// Blocks for about 4 ms (full-speed USB) for each 255 bytes, and 1.6 s of waits.
/// @param path      created or replaced, once the chip has told its size.
/// @param progress  may be null. Called on this thread after each record with the percent of its
///                  start address.
/// @return TAVO_FILE_NOT_FOUND when the file cannot be created; TAVO_REQUEST_FAILED also when it
///         cannot be written (a full disk), for a chip whose size does not fit (an absent one reads
///         FF) and for one that stays busy; otherwise the code of the first step that failed. After
///         a failure the file, if created, has no end-of-file record; its records are whole, but for
///         the last one of a file that could not be written.
[[nodiscard]] TAVO_API TAVO_STATUS readSpiFlash(DeviceInfo& deviceInfo, const char* path, void (*progress)(char));
