// Streams an Intel HEX file into a chip that has been unprotected and erased.
#pragma once

#include "tavo/SpiNand.h"
#include "tavo/status.h"

/// Programs and verifies the file's pages in the order in which its records complete them.
/// @param progress  may be null; percent of the file's text read, after a page, when it has changed.
/// @return TAVO_FILE_NOT_FOUND, TAVO_MEMORY_ALLOC_FAILED or TAVO_FLASH_PROGRAMMING_FAILED; the text
///         of a std::exception met on the way goes to std::cerr. A file that cannot be read to its
///         end, or has no end-of-file record, is programmed as far as it goes.
[[nodiscard]] TAVO_STATUS writeImage(SpiNand& flash, const char* path, void (*progress)(char));
