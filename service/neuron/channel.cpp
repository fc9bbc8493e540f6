#include "service/neuron/channel.h"

#include <Poco/Thread.h>

#include <algorithm>

#include "platform/ldv.h"

namespace tavo {
namespace {

constexpr unsigned kPollMs = 10;

/// A channel that talks without giving the answer: a full queue of a busy network is gone through in less.
constexpr unsigned kLongestReads = 2 * 60 * 1000 / kPollMs;

bool passes(const frames::Answer& answer, const LdvManager::C* tests, std::size_t count) {
    return std::all_of(tests, tests + count,
                       [&](const LdvManager::C& test) { return (answer[test.offset] & test.mask) == test.value; });
}

}  // namespace

bool Channel::transaction(const unsigned char* request, unsigned short length, frames::Answer& answer,
                          unsigned timeoutMs, const LdvManager::C* tests, std::size_t count) {
    if (ldv_write(ldv_.ldvHandle, request, length) != LDV_OK) return false;
    unsigned emptyReadsLeft = timeoutMs / kPollMs;
    for (unsigned reads = 0; emptyReadsLeft > 0 && reads < kLongestReads; ++reads) {
        Poco::Thread::sleep(kPollMs);
        op_.throwIfCancelled();
        answer.fill(0);
        const auto status = ldv_read(ldv_.ldvHandle, answer.data(), std::tuple_size_v<frames::Answer>);
        if (status == LDV_NO_MSG_AVAIL) {
            --emptyReadsLeft;
        } else if (status != LDV_OK) {
            return false;
        } else if (passes(answer, tests, count)) {
            return true;
        }
    }
    return false;
}

}  // namespace tavo
