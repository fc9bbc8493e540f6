// One entry of the Neuron's domain table.
#pragma once

#include <type_traits>

#include "tavo/export.h"

/// A domain-table entry (ISO/IEC 14908-1), laid out as it travels in Query Domain and Update Domain.
struct LonAddress {
    TAVO_API LonAddress();  ///< Not a member of the domain: subnet 0xFF, node 0xFF, domainIdLength 0x80, rest 0.

    unsigned char domainId[6];           ///< its first bytes, as many as its length says
    unsigned char subnet;                ///< 1 to 255; 0: none
    unsigned char node;                  ///< bits 0-6: node number; bit 7: a flag of the entry
    unsigned char domainIdLength;        ///< low bits: bytes of the domain ID; bit 7: a flag of the entry
    unsigned char authenticationKey[6];  ///< 48 bits; secret
};
static_assert(sizeof(LonAddress) == 15 && std::is_trivially_copyable<LonAddress>::value,
              "an entry is copied byte for byte to and from the frame");
