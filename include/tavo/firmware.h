// Words kept for host programs; no operation of the library reads or writes them. Zero at load.
#pragma once

#include "tavo/export.h"

extern TAVO_API unsigned int firmwareStart;  ///< for host programs
extern TAVO_API unsigned int firmwareEntry;  ///< for host programs
extern TAVO_API unsigned int firmwareSize;   ///< for host programs
extern TAVO_API unsigned int fmChecksum;     ///< for host programs
extern TAVO_API unsigned int fmVersion;      ///< for host programs
