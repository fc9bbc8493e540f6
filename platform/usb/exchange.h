// The bulk phase of one SPI transfer: both directions in flight at once.
#pragma once

#include <libusb.h>

#include <atomic>
#include <chrono>
#include <memory>

#include "platform/usb/bus.h"

namespace usb {

/// The end of a call's time; 0 ms: no end.
class Deadline {
public:
    explicit Deadline(UINT32 milliseconds);
    bool hasPassed() const;
    /// What is left as a libusb timeout: at least 1, or 0 for no limit.
    unsigned remaining() const;

private:
    using Clock = std::chrono::steady_clock;
    bool limited_;
    Clock::time_point end_;
};

/// One direction of an exchange.
struct Side {
    explicit Side(const CY_DATA_BUFFER* record);

    bool isPresent() const { return length != 0; }
    bool isComplete() const { return moved == length; }
    bool hasFailed() const;

    std::unique_ptr<libusb_transfer, Releaser<libusb_free_transfer>> transfer;
    UCHAR* data;
    UINT32 length;  // 0: absent
    UINT32 moved = 0;
    libusb_transfer_status status = LIBUSB_TRANSFER_COMPLETED;
};

class Exchange {
public:
    /// A null or empty record: that direction is absent. The buffers are borrowed until run returns.
    Exchange(const Claim& claim, const CY_DATA_BUFFER* read, const CY_DATA_BUFFER* write, const Deadline& deadline);
    Exchange(const Exchange&) = delete;  // transfers in flight point to it
    Exchange& operator=(const Exchange&) = delete;

    /// Allocates the transfers; false when there is no memory.
    bool prepare();
    /// Sends and receives. Returns when libusb has given both transfers back, whatever became of them.
    void run();

    Side in;
    Side out;

private:
    static void LIBUSB_CALL onReturn(libusb_transfer* transfer);
    bool allocate(Side& side, unsigned char endpoint);
    bool submit(Side& side);
    void takeBack(Side& side);
    bool wantsMore(const Side& side) const;
    void stop();
    void finish();
    bool isCompleted();

    const Claim& claim_;
    const Deadline& deadline_;
    // Callbacks run one at a time, but perhaps on another thread that handles events of this context.
    std::atomic<bool> stopped_{false};
    std::atomic<int> pending_{0};
    int completed_ = 0;  // libusb's flag: an int for it, atomic for us, since another thread may run the callback
};

}  // namespace usb
