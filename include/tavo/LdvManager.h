// The channel to the Neuron's network interface through the LDV driver.
#pragma once

#include "tavo/deviceAccess.h"

/// Opens the LDV device of one interface and exchanges messages with the local Neuron.
/// One thread; the device is closed when the object is destroyed.
class LdvManager {
public:
    /// One test of a response: (response[offset] & mask) == value.
    struct C {
        unsigned char offset;  ///< in the response
        unsigned char mask;    ///< bits that are compared
        unsigned char value;   ///< that they must have
    };

    /// ldvStatus when the DeviceInfo gives no usable device name (the value of TAVO_INVALID_PARAMETER).
    static constexpr unsigned short kNoDeviceName = 12;

    /// Chooses the device name and opens it. The outcome is in isOpen and ldvStatus.
    ///
    /// linkDeviceNumber 255: ldvDeviceName as it is (needs serialNumberValid). Otherwise "SN%8s" of a
    /// valid, non-empty serial number, else "ID" and the 12 lower-case digits of a valid Neuron ID;
    /// both with a "C" in front for vendor ID 0x04B4. Cut to 63 characters.
    TAVO_API LdvManager(const DeviceInfo& info);
    TAVO_API ~LdvManager();
    LdvManager(const LdvManager&) = delete;
    LdvManager& operator=(const LdvManager&) = delete;

    /// Sends a request and waits for the message that passes every test.
    ///
    /// Reads every 10 ms, the first time 10 ms after the write. Messages that fail a test are
    /// dropped and do not shorten the wait: it ends after timeoutMs / 10 reads that found nothing, so
    /// never while other messages keep coming. A message that was waiting before the request, or
    /// answers an earlier one, is taken like any other that passes.
    /// @param response    responseLength bytes of the caller, zeroed before each read; null sends only.
    /// @param timeoutMs   10 to 327,679; no read is made below 10, nor from 327,680 to 655,369.
    /// @param match       matchCount tests, offsets below responseLength; null or 0 takes the first message.
    /// @return false when the write or a read fails or the polls run out; ldvStatus tells why (0 when
    ///         no read was made). response then holds zeros or the last message dropped.
    [[nodiscard]] TAVO_API bool transaction(const unsigned char* request, unsigned char requestLength,
                                            unsigned char* response, unsigned char responseLength,
                                            unsigned int timeoutMs, const C* match, unsigned char matchCount);

    short ldvHandle = -1;      ///< of the driver; -1: none
    unsigned short ldvStatus;  ///< of the last driver call made by this object
    bool isOpen;               ///< the channel can be used
};
static_assert(sizeof(LdvManager::C) == 3, "three bytes a test");
