// Every message to the local Neuron, and how its answer is recognised. ISO/IEC 14908-1 messages in
// the frames of the network-interface format: command and length, a three-byte message header, an
// eleven-byte address, then the message code and its data.
#pragma once

#include <array>
#include <cstddef>

#include "tavo/LdvManager.h"
#include "tavo/LonAddress.h"
#include "tavo/neuron.h"

namespace frames {

// Offsets, the same in requests and answers.
inline constexpr unsigned char kCommand = 0;
inline constexpr unsigned char kLength = 1;  // of what follows the two header bytes, exceptions below
inline constexpr unsigned char kFlags = 3;
inline constexpr unsigned char kDataLength = 4;  // from kCode on
inline constexpr unsigned char kCode = 16;
inline constexpr unsigned char kData = 17;

inline constexpr unsigned int kAnswerTimeoutMs = 1000;
inline constexpr unsigned int kResetTimeoutMs = 65000;  // a network interface may take a minute to come back

template <std::size_t N>
using Frame = std::array<unsigned char, N>;
using Answer = Frame<64>;

// Requests. 0x22: network-management command on the transaction queue; 0x24: on the non-transaction
// queue, with the explicit-address flag (0x08) in the message header. 0x60: request/response service,
// not authenticated, tag 0. 0x7F: local address. The network interface takes the odd bytes below as
// they are, and the fields do not follow from the frame:
//   - the data length of a 0x22 frame is always 0x02;
//   - program-ID read (0x16) and Update Domain (0x21) count the whole frame in their length byte.

inline constexpr Frame<2> kReset{0x50, 0x00};

inline constexpr Frame<17> kQueryStatus{0x22, 0x0F, 0x60, 0x00, 0x02, 0x7F, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x51};

// Read Memory: address mode 1 (relative to the read-only data structure), offset in two bytes, count,
// and one 0x00 that the data length counts.
inline constexpr Frame<22> kReadNeuronId{0x24, 0x14, 0x60, 0x08, 0x06, 0x7F, 0,    0,    0,    0,    0,
                                         0,    0,    0,    0,    0,    0x6D, 0x01, 0x00, 0x00, 0x06, 0x00};
inline constexpr Frame<22> kReadProgramId{0x24, 0x16, 0x60, 0x08, 0x06, 0x7F, 0,    0,    0,    0,    0,
                                          0,    0,    0,    0,    0,    0x6D, 0x01, 0x00, 0x0D, 0x08, 0x00};

inline constexpr unsigned char kChangeState = 0x03;  // Set Node Mode: the next byte is the new node state

constexpr Frame<19> setNodeMode(unsigned char mode, unsigned char nodeState) {
    return {0x22, 0x11, 0x60, 0x00, 0x02, 0x7F, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x6C, mode, nodeState};
}

constexpr Frame<18> queryDomain(unsigned char index) {
    return {0x22, 0x10, 0x60, 0x00, 0x02, 0x7F, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x6A, index};
}

inline constexpr std::size_t kEntryOffset = 18;  // of the entry in Update Domain, after the index

/// The 15 bytes of the entry follow at kEntryOffset.
constexpr Frame<33> updateDomain(unsigned char index) {
    return {0x22, 0x21, 0x60, 0x00, 0x02, 0x7F, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x63, index};
}

static_assert(kQueryStatus[kLength] == kQueryStatus.size() - 2 && kReadNeuronId[kLength] == kReadNeuronId.size() - 2 &&
              setNodeMode(0, 0)[kLength] == setNodeMode(0, 0).size() - 2 &&
              queryDomain(0)[kLength] == queryDomain(0).size() - 2);
static_assert(kReadProgramId[kLength] == kReadProgramId.size() && updateDomain(0)[kLength] == updateDomain(0).size(),
              "these two count their own header");
static_assert(kReadNeuronId[kDataLength] == kReadNeuronId.size() - kCode &&
              kReadProgramId[kDataLength] == kReadProgramId.size() - kCode);
static_assert(updateDomain(0).size() == kEntryOffset + sizeof(LonAddress));

// Answers.

using Tests = std::array<LdvManager::C, 4>;

/// A success answer: the response flag, its own code, and both lengths for that many result bytes.
constexpr Tests answer(unsigned char code, unsigned char resultBytes) {
    const auto dataLength = static_cast<unsigned char>(1 + resultBytes);
    return {{{kLength, 0xFF, static_cast<unsigned char>(14 + dataLength)},
             {kFlags, 0x01, 0x01},
             {kDataLength, 0xFF, dataLength},
             {kCode, 0xFF, code}}};
}

/// A network-management request is answered with its code minus 0x40. A failure has another code.
constexpr unsigned char successOf(unsigned char code) {
    return static_cast<unsigned char>(code - 0x40);
}

inline constexpr std::array<LdvManager::C, 1> kResetNotice{{{kCommand, 0xFF, kReset[kCommand]}}};
inline constexpr Tests kNodeModeAnswer = answer(successOf(0x6C), 0);
inline constexpr Tests kStatusAnswer = answer(0x31, 15);  // a network diagnostic: 0x51 minus 0x20
inline constexpr Tests kNeuronIdAnswer = answer(successOf(0x6D), kReadNeuronId[20]);
inline constexpr Tests kProgramIdAnswer = answer(successOf(0x6D), kReadProgramId[20]);
inline constexpr Tests kQueryDomainAnswer = answer(successOf(0x6A), sizeof(LonAddress));
inline constexpr Tests kUpdateDomainAnswer = answer(successOf(0x63), 0);

static_assert(kStatusAnswer[0].value == 0x1E && kNeuronIdAnswer[0].value == 0x15 && kProgramIdAnswer[0].value == 0x17 &&
              kQueryDomainAnswer[0].value == 0x1E && kUpdateDomainAnswer[0].value == 0x0F);
static_assert(kData + sizeof(NeuronState) <= Answer{}.size(), "the byte after the status answer is taken too");

/// One request and its answer.
template <std::size_t N, std::size_t T>
bool exchange(LdvManager& ldv, const Frame<N>& request, const std::array<LdvManager::C, T>& tests, Answer& answer,
              unsigned int timeoutMs = kAnswerTimeoutMs) {
    return ldv.transaction(request.data(), N, answer.data(), std::tuple_size_v<Answer>, timeoutMs, tests.data(), T);
}

}  // namespace frames
