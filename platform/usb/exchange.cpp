#include "platform/usb/exchange.h"

#include <algorithm>

namespace usb {

Deadline::Deadline(UINT32 milliseconds)
    : limited_(milliseconds != 0), end_(Clock::now() + std::chrono::milliseconds(milliseconds)) {}

bool Deadline::hasPassed() const {
    return limited_ && Clock::now() >= end_;
}

unsigned Deadline::remaining() const {
    if (!limited_) return 0;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
    return static_cast<unsigned>(std::max<long>(1, left));
}

Side::Side(const CY_DATA_BUFFER* record)
    : data(record != nullptr ? record->buffer : nullptr), length(data != nullptr ? record->length : 0) {}

bool Side::hasFailed() const {
    // A cancelled transfer only followed the other direction's failure.
    return status != LIBUSB_TRANSFER_COMPLETED && status != LIBUSB_TRANSFER_CANCELLED;
}

Exchange::Exchange(const Claim& claim, const CY_DATA_BUFFER* read, const CY_DATA_BUFFER* write,
                   const Deadline& deadline)
    : in(read), out(write), claim_(claim), deadline_(deadline) {}

bool Exchange::prepare() {
    return allocate(in, claim_.bulkIn()) && allocate(out, claim_.bulkOut());
}

bool Exchange::allocate(Side& side, unsigned char endpoint) {
    if (!side.isPresent()) return true;
    side.transfer.reset(libusb_alloc_transfer(0));
    if (!side.transfer) return false;
    libusb_fill_bulk_transfer(side.transfer.get(), claim_.usb(), endpoint, nullptr, 0, onReturn, this, 0);
    return true;
}

bool Exchange::submit(Side& side) {
    libusb_transfer& transfer = *side.transfer;
    // Exactly what is missing: the bridge sends no more than that, so its last packet cannot overflow,
    // and a zero-length packet left over from an earlier transfer is one more short piece.
    transfer.buffer = side.data + side.moved;
    transfer.length = static_cast<int>(side.length - side.moved);
    transfer.timeout = deadline_.remaining();
    const int result = libusb_submit_transfer(&transfer);
    if (result == LIBUSB_SUCCESS) return true;
    side.status = result == LIBUSB_ERROR_NO_DEVICE ? LIBUSB_TRANSFER_NO_DEVICE : LIBUSB_TRANSFER_ERROR;
    return false;
}

void Exchange::run() {
    pending_ = 1;  // this function: nothing is complete before both directions had their turn
    for (Side* side : {&in, &out}) {
        if (!side->isPresent() || stopped_) continue;
        ++pending_;
        if (submit(*side)) continue;
        --pending_;
        stop();
    }
    finish();
    while (!isCompleted()) {
        timeval wait{60, 0};  // events end it sooner; libusb keeps the transfers' own timeouts
        // The context stays while a handle is open, so no lock is needed to look at it.
        const int result = libusb_handle_events_timeout_completed(Bus::instance().context(), &wait, &completed_);
        // What is in flight must come back before its memory goes, so an error is no way out of here.
        if (result != LIBUSB_SUCCESS && result != LIBUSB_ERROR_INTERRUPTED) stop();
        if (stopped_) stop();  // reaches a piece that was submitted while the first stop ran
    }
}

void LIBUSB_CALL Exchange::onReturn(libusb_transfer* transfer) {
    auto& exchange = *static_cast<Exchange*>(transfer->user_data);
    exchange.takeBack(transfer == exchange.in.transfer.get() ? exchange.in : exchange.out);
}

void Exchange::takeBack(Side& side) {
    side.status = side.transfer->status;
    side.moved += static_cast<UINT32>(side.transfer->actual_length);
    if (wantsMore(side)) {
        if (deadline_.hasPassed()) {
            side.status = LIBUSB_TRANSFER_TIMED_OUT;
        } else if (submit(side)) {
            return;
        }
    } else if (side.status == LIBUSB_TRANSFER_COMPLETED && !side.isComplete()) {
        side.status = stopped_ ? LIBUSB_TRANSFER_CANCELLED : LIBUSB_TRANSFER_ERROR;
    }
    if (side.hasFailed()) stop();
    finish();
}

bool Exchange::wantsMore(const Side& side) const {
    // The bridge answers in pieces as its SPI clock delivers them; it never takes a write in part.
    return &side == &in && side.status == LIBUSB_TRANSFER_COMPLETED && !side.isComplete() && !stopped_;
}

void Exchange::stop() {
    stopped_ = true;
    for (const Side* side : {&in, &out}) {
        if (side->transfer) libusb_cancel_transfer(side->transfer.get());  // no harm when it is not in flight
    }
}

void Exchange::finish() {
    if (--pending_ == 0) std::atomic_ref<int>(completed_).store(1);
}

bool Exchange::isCompleted() {
    return std::atomic_ref<int>(completed_).load() != 0;
}

}  // namespace usb
