#include "tavo/firmware.h"

unsigned int firmwareStart;
unsigned int firmwareEntry;
unsigned int firmwareSize;
unsigned int fmChecksum;
unsigned int fmVersion;
