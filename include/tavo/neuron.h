// Operations on the Neuron: reset, service pin, mode, status, identity, domain table.
//
// Each blocks until it is done and holds its pins or its LDV channel only meanwhile. A time given
// for an answer counts while the channel is silent: each other message that arrives adds 10 ms, so
// a Neuron that never stops sending is waited for without end. Answers carry no number: one that
// comes late is taken for that of the next request of its kind. Callers
// serialise operations on one device. Outputs keep their value when an operation fails, entry 0 of
// readDomainTable excepted. Common results: TAVO_WRONG_VID_PID (nothing touched; every operation but
// sendServicePin and readNeuronId), TAVO_DEVICE_OPEN_FAILED (no LDV channel), TAVO_TRANSACTION_FAILED
// (the request could not be written, or no accepted answer in time; a refusal is none).
#pragma once

#include <type_traits>

#include "tavo/LonAddress.h"
#include "tavo/deviceAccess.h"
#include "tavo/status.h"

/// Argument of writeMode.
enum MODE : int {
    MODE_SERVICE = 0,       ///< reset line held, then the service line too, for 11 s
    MODE_UNCONFIGURED = 1,  ///< node state 0x02
    MODE_OFFLINE = 2,       ///< node state 0x06, hard offline
    MODE_CONFIGURED = 3,    ///< node state 0x04
};

/// The answer to Query Status (ISO/IEC 14908-1) as it travels: counters most significant byte first.
struct NeuronState {
    unsigned char transmitErrors[2];           ///< packets that arrived damaged; big-endian, as all five counters
    unsigned char transactionTimeouts[2];      ///< transactions that ended without an answer
    unsigned char receiveTransactionsFull[2];  ///< messages dropped: no receive transaction was free
    unsigned char lostMessages[2];             ///< messages dropped: no application buffer was free
    unsigned char missedMessages[2];           ///< messages dropped: no network buffer was free
    unsigned char resetCause;                  ///< raw; resetCauseName of the service layer has words
    unsigned char nodeState;                   ///< 0x02 unconfigured, 0x04 configured, 0x06 hard offline
    unsigned char versionNumber;               ///< of the firmware
    unsigned char errorLog;                    ///< raw; errorLogName of the service layer has words
    unsigned char modelNumber;                 ///< of the chip
    unsigned char reserved;                    ///< the byte after the answer, 0
};
static_assert(sizeof(NeuronState) == 16 && std::is_trivially_copyable<NeuronState>::value,
              "16 bytes are copied from the answer");

/// Pulses the reset line (pin 8) for 25 ms, then waits 1500 ms for the Neuron to boot.
[[nodiscard]] TAVO_API TAVO_STATUS hardReset(const DeviceInfo& deviceInfo);

/// Sends the network-interface reset and waits for its notice, at most 65 s; then 1000 ms more. A
/// notice of an earlier reset that nobody has read yet is taken for it.
[[nodiscard]] TAVO_API TAVO_STATUS softReset(const DeviceInfo& deviceInfo);

/// Pulses the service line (pin 14) for 25 ms, as a press of the service button does. Tests no IDs.
[[nodiscard]] TAVO_API TAVO_STATUS sendServicePin(const DeviceInfo& deviceInfo);

/// Sets the node state by message (at most about 1 s), or holds reset and service line (11.5 s) for
/// MODE 0. TAVO_UNKNOWN_ERROR for a value outside 0 to 3. The state is not read back; for MODE 0
/// success says that both lines went low, not that they are up again.
[[nodiscard]] TAVO_API TAVO_STATUS writeMode(const DeviceInfo& deviceInfo, MODE mode);

/// Reads the Neuron's status. At most about 1 s.
[[nodiscard]] TAVO_API TAVO_STATUS readState(const DeviceInfo& deviceInfo, NeuronState& state);

/// Reads the 48-bit Neuron ID from the Neuron itself. At most about 1 s. Tests no IDs.
[[nodiscard]] TAVO_API TAVO_STATUS readNeuronId(const DeviceInfo& deviceInfo, NeuronId& neuronId);

/// Reads the 8-byte program ID of the application in the Neuron. At most about 1 s.
[[nodiscard]] TAVO_API TAVO_STATUS readProgramId(const DeviceInfo& deviceInfo, unsigned char (&programId)[8]);

/// Reads both domain-table entries. At most about 2 s. When the second request fails, entry 0 has
/// been filled.
[[nodiscard]] TAVO_API TAVO_STATUS readDomainTable(const DeviceInfo& deviceInfo, LonAddress (&entries)[2]);

/// Writes both domain-table entries, 0 then 1. At most about 2 s. When the second request fails,
/// entry 0 is in the Neuron already; read the table back to see.
[[nodiscard]] TAVO_API TAVO_STATUS writeDomainTable(const DeviceInfo& deviceInfo, const LonAddress (&entries)[2]);
