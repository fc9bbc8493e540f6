#include "tavo/LonAddress.h"

LonAddress::LonAddress() : domainId{}, subnet(0xFF), node(0xFF), domainIdLength(0x80), authenticationKey{} {}
