#include <Poco/Thread.h>

#include <algorithm>

#include "platform/usb/exchange.h"
#include "platform/usb/request.h"
#include "tavo/export.h"

namespace usb {
namespace {

constexpr UINT16 kRead = 1;  // bits of the start request's wValue
constexpr UINT16 kWrite = 2;
constexpr long kStatusInterval = 1;  // ms
constexpr UINT32 kBuffered = 256;    // bytes that the bridge may hold when the last ones have left the host

/// A second transfer on the interface would mix its bytes with the first one's.
class Turn {
public:
    explicit Turn(Claim& claim) : claim_(claim), taken_(!claim.transferring.test_and_set()) {}
    ~Turn() {
        if (taken_) claim_.transferring.clear();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    bool isTaken() const { return taken_; }

private:
    Claim& claim_;
    bool taken_;
};

CY_RETURN_STATUS start(const Claim& claim, const Exchange& exchange) {
    UINT16 value = claim.block();
    if (exchange.in.isPresent()) value |= kRead;
    if (exchange.out.isPresent()) value |= kWrite;
    const UINT32 length = exchange.out.isPresent() ? exchange.out.length : exchange.in.length;
    const int result = requestOut(claim, kSpiTransfer, value, static_cast<UINT16>(length), nullptr, 0);
    return result >= 0 ? CY_SUCCESS : failureWithoutTimeout(result);
}

struct Failure {
    libusb_transfer_status event;
    CY_RETURN_STATUS out;
    CY_RETURN_STATUS in;
};
// As the bridge library reports them. Every other event is a failed request.
constexpr Failure kFailures[] = {
    {LIBUSB_TRANSFER_TIMED_OUT, CY_ERROR_IO_TIMEOUT, CY_ERROR_IO_TIMEOUT},
    {LIBUSB_TRANSFER_STALL, CY_ERROR_PIPE_HALTED, CY_ERROR_REQUEST_FAILED},
    {LIBUSB_TRANSFER_OVERFLOW, CY_ERROR_BUFFER_OVERFLOW, CY_ERROR_BUFFER_OVERFLOW},
    {LIBUSB_TRANSFER_NO_DEVICE, CY_ERROR_DEVICE_NOT_FOUND, CY_ERROR_DEVICE_NOT_FOUND},
};

CY_RETURN_STATUS statusOf(const Side& side, CY_RETURN_STATUS Failure::*direction) {
    for (const Failure& failure : kFailures) {
        if (failure.event == side.status) return failure.*direction;
    }
    return CY_ERROR_REQUEST_FAILED;
}

CY_RETURN_STATUS outcome(const Exchange& exchange) {
    if (exchange.out.hasFailed()) return statusOf(exchange.out, &Failure::out);
    if (exchange.in.hasFailed()) return statusOf(exchange.in, &Failure::in);
    const bool complete = exchange.in.isComplete() && exchange.out.isComplete();
    return complete ? CY_SUCCESS : CY_ERROR_REQUEST_FAILED;  // stopped because events could not be handled
}

/// Whatever failed, the bridge may still be in the middle of the transfer, and would then take the bytes of the
/// next one for it, for this process and for later ones: a reset is sent after each failure, where the bridge
/// library sends it after some. Only a clear halt, or unplugging, ends a halt (USB 2.0, 9.4.5).
void giveUp(const Claim& claim, const Exchange& exchange) {
    const bool answered = claim.spi().reset(claim);
    for (const Side* side : {&exchange.out, &exchange.in}) {
        if (side->status == LIBUSB_TRANSFER_STALL) libusb_clear_halt(claim.usb(), side->transfer->endpoint);
    }
    if (answered) claim.spi().restore(claim);
}

/// How long the bridge shifts on after a write: whole milliseconds, since the request that follows takes up to one
/// itself. A clock that this process has neither read nor set is not guessed.
long shiftTime(const Claim& claim, UINT32 length, const Deadline& deadline) {
    const UINT32 frequency = claim.spi().frequency();
    if (frequency == 0) return kStatusInterval;
    const long time = static_cast<long>(std::min(length, kBuffered)) * 8 * 1000 / static_cast<long>(frequency);
    const long left = deadline.remaining();
    return left == 0 ? time : std::min(time, left);
}

/// The bytes have left the host; the bridge still clocks them out.
CY_RETURN_STATUS waitUntilIdle(const Claim& claim, CY_DATA_BUFFER& write, const Deadline& deadline) {
    for (long wait = shiftTime(claim, write.length, deadline);; wait = kStatusInterval) {
        if (wait > 0) Poco::Thread::sleep(wait);
        UCHAR status[4] = {};
        const int result = requestIn(claim, kSpiStatus, claim.block(), 0, status, sizeof status);
        if (result != static_cast<int>(sizeof status)) return failureWithoutTimeout(result);
        if ((status[0] | status[1] | status[2] | status[3]) == 0) return CY_SUCCESS;
        if (!deadline.hasPassed()) continue;
        write.length = 0;  // as the bridge library leaves it
        return CY_ERROR_IO_TIMEOUT;
    }
}

bool isPresent(const CY_DATA_BUFFER* record) {
    return record != nullptr && record->buffer != nullptr && record->length != 0;
}

/// The bridge gets one 16-bit length for both directions. Where the bridge library would cut a length,
/// or run unequal ones into a timeout, nothing is sent.
bool areLengthsUsable(const CY_DATA_BUFFER* read, const CY_DATA_BUFFER* write) {
    if (!isPresent(read) && !isPresent(write)) return false;
    if (isPresent(read) && read->length > kMaxTransferSize) return false;
    if (isPresent(write) && write->length > kMaxTransferSize) return false;
    return !isPresent(read) || !isPresent(write) || read->length == write->length;
}

CY_RETURN_STATUS carryOut(const Claim& claim, Exchange& exchange, CY_DATA_BUFFER* read, CY_DATA_BUFFER* write,
                          const Deadline& deadline) {
    if (const auto status = start(claim, exchange); status != CY_SUCCESS) return status;
    exchange.run();
    if (isPresent(read)) read->transferCount = exchange.in.moved;
    if (isPresent(write)) write->transferCount = exchange.out.moved;
    if (const auto status = outcome(exchange); status != CY_SUCCESS) return status;
    // The last byte came in as the last one went out: when all have come, there is nothing left to wait for.
    return isPresent(read) ? CY_SUCCESS : waitUntilIdle(claim, *write, deadline);
}

CY_RETURN_STATUS transfer(Claim& claim, CY_DATA_BUFFER* read, CY_DATA_BUFFER* write, UINT32 timeout) {
    const Turn turn(claim);
    if (!turn.isTaken()) return CY_ERROR_REQUEST_FAILED;
    claim.spi().begin(claim);
    const Deadline deadline(timeout);
    Exchange exchange(claim, read, write, deadline);
    if (!exchange.prepare()) return CY_ERROR_ALLOCATION_FAILED;
    const CY_RETURN_STATUS status = carryOut(claim, exchange, read, write, deadline);
    if (status != CY_SUCCESS && status != CY_ERROR_DEVICE_NOT_FOUND) giveUp(claim, exchange);
    return status;
}

}  // namespace
}  // namespace usb

extern "C" TAVO_API CY_RETURN_STATUS CySpiReadWrite(CY_HANDLE handle, CY_DATA_BUFFER* readBuffer,
                                                    CY_DATA_BUFFER* writeBuffer, UINT32 timeout) {
    if (handle == nullptr) return CY_ERROR_INVALID_HANDLE;
    if (!usb::areLengthsUsable(readBuffer, writeBuffer)) return CY_ERROR_INVALID_PARAMETER;
    usb::Claim& claim = usb::claimOf(handle);
    if (!claim.isSpi()) return CY_ERROR_REQUEST_FAILED;
    return usb::transfer(claim, readBuffer, writeBuffer, timeout);
}
