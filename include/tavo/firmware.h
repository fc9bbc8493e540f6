// Words kept for host programs; no operation of the library reads or writes them. Zero at load.
#pragma once

#include "tavo/export.h"

extern TAVO_API unsigned int firmwareStart;
extern TAVO_API unsigned int firmwareEntry;
extern TAVO_API unsigned int firmwareSize;
extern TAVO_API unsigned int fmChecksum;
extern TAVO_API unsigned int fmVersion;
