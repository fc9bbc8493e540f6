#include "bench/bus/frameBridge.h"

#include <algorithm>
#include <bit>
#include <cerrno>

#include "sim/sfdp.h"

namespace bench {

namespace {

constexpr std::uint64_t kFrame = 1'000'000;  // ns
constexpr std::uint64_t kSlots = 19;         // transactions of 64 bytes in a frame
constexpr std::size_t kPacket = 64;
constexpr std::size_t kBuffer = 256;
constexpr std::uint64_t kNeuronsWait = 50'000'000;
constexpr std::uint8_t kNeuronResetPin = 8;

// Start, status, SPI reset and the like: the bridge's vendor requests.
enum Request : std::uint8_t {
    kSpiGetConfig = 0xC2,
    kSpiSetConfig = 0xC3,
    kSpiTransfer = 0xCA,
    kSpiReset = 0xCB,
    kSpiStatus = 0xCC,
    kGpioGet = 0xDA,
    kGpioSet = 0xDB,
    kSignature = 0xBD,
    kUserFlashRead = 0xE1,
};

/// Where the n-th transaction of its frame begins.
std::uint64_t slotTime(std::uint64_t slot) {
    return slot / kSlots * kFrame + slot % kSlots * kFrame / kSlots;
}
std::uint64_t slotAtOrAfter(std::uint64_t time) {
    std::uint64_t slot = time / kFrame * kSlots;
    while (slotTime(slot) < time) ++slot;
    return slot;
}

/// What the chip does with a command that it takes, in microseconds.
std::uint64_t workOf(std::uint8_t opcode, std::size_t size) {
    if (opcode == 0x02) return sim::kPageProgramTime;
    for (const sim::EraseType& type : sim::kEraseTypes) {
        if (type.opcode == opcode) return type.microseconds;
    }
    return sim::chipEraseTime(size);
}

}  // namespace

Traffic Traffic::operator-(const Traffic& before) const {
    return {starts - before.starts,   statuses - before.statuses, others - before.others,
            bulkOut - before.bulkOut, bulkIn - before.bulkIn,     time - before.time,
            waits - before.waits,     spi - before.spi,           flash - before.flash};
}

FrameBridge::FrameBridge(std::size_t flashSize)
    : cells_(flashSize, 0xFF),
      usb_(EmulatedUsb::instance()),
      chip_(cells_, std::countr_zero(flashSize), 0, clock_, violations_),
      setting_{0x40, 0x42, 0x0F, 0, 8, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0} {
    pins_.fill(1);
    usb_.attach({[this](EmulatedUrb& urb) { submit(urb); }, [](const char*) {},
                 [this](std::uint64_t due) { now_ = std::max(now_, due); }});
}

void FrameBridge::sleep(long milliseconds) {
    const std::lock_guard lock(usb_.mutex);
    const std::uint64_t time = static_cast<std::uint64_t>(milliseconds) * kFrame;
    now_ += time;
    if (time >= kNeuronsWait) traffic_.waits += time;
}

Traffic FrameBridge::traffic() {
    const std::lock_guard lock(usb_.mutex);
    return traffic_;
}

std::vector<std::string> FrameBridge::violations() {
    const std::lock_guard lock(usb_.mutex);
    return violations_;
}

void FrameBridge::submit(EmulatedUrb& urb) {
    urb.isControl() ? control(urb) : bulk(urb);
}

void FrameBridge::control(EmulatedUrb& urb) {
    const std::uint64_t setup = slotAtOrAfter(now_);
    const std::uint64_t end = (slotTime(setup + 3) + kFrame - 1) / kFrame * kFrame;
    urb.answer(obey(urb, urb.setup(), slotTime(setup + 1)), end);
    if (urb.setup().bRequest == kSpiTransfer) start(urb.setup(), end);
}

std::vector<std::uint8_t> FrameBridge::obey(const EmulatedUrb& urb, const usb_ctrlrequest& setup, std::uint64_t at) {
    ++(setup.bRequest == kSpiTransfer ? traffic_.starts
       : setup.bRequest == kSpiStatus ? traffic_.statuses
                                      : traffic_.others);
    switch (setup.bRequest) {
        case USB_REQ_GET_DESCRIPTOR:
            return EmulatedUsb::stringDescriptor(setup.wValue & 0xFF);
        case kSignature:
            return {'C', 'Y', 'U', 'S'};
        case kUserFlashRead:
            return {5, 1, 2, 3, 4, 5};
        case kSpiGetConfig:
            return {setting_.begin(), setting_.end()};
        case kSpiSetConfig:
            std::copy_n(urb.sent(), setting_.size(), setting_.begin());
            return {};
        case kSpiStatus:
            return {static_cast<std::uint8_t>(at < idleAt_), 0, 0, 0};
        case kGpioGet:
            return {0, pins_.at(setup.wValue)};
        case kGpioSet:
            pins_.at(setup.wValue) = setup.wIndex != 0;
            return {};
        case kSpiReset:
        case kSpiTransfer:
            return {};
        default:
            violations_.push_back("unknown request " + std::to_string(setup.bRequest));
            return {};
    }
}

void FrameBridge::start(const usb_ctrlrequest& setup, std::uint64_t end) {
    if (end < idleAt_) violations_.push_back("a transfer was started while another one ran");
    if (pins_[kNeuronResetPin] != 0) violations_.push_back("a transfer while the Neuron runs");
    reads_ = (setup.wValue & 1) != 0;
    writes_ = (setup.wValue & 2) != 0;
    length_ = setup.wIndex;
}

void FrameBridge::bulk(EmulatedUrb& urb) {
    ++(urb.isIn() ? traffic_.bulkIn : traffic_.bulkOut);
    (urb.isIn() ? in_ : out_) = &urb;
    if (urb.length() != length_ || !writes_) {
        violations_.push_back("a bulk transfer that does not fit the start before it");
        return urb.finish(-EPIPE);
    }
    if (out_ != nullptr && (in_ != nullptr || !reads_)) run();
}

/// Both directions are there: all that follows is known.
void FrameBridge::run() {
    const Timeline line = pass();
    idleAt_ = line.shifted;
    std::vector<std::uint8_t> answer(length_);
    reachChip(out_->bytes(), answer);
    out_->finish(0, length_, line.outDone);
    if (in_ != nullptr) {
        std::copy(answer.begin(), answer.end(), in_->bytes());
        in_->finish(0, length_, line.inDone);
    }
    out_ = in_ = nullptr;
    length_ = 0;
}

/// The bytes of one transfer: come from the host, shifted, gone back to the host.
struct FrameBridge::Shifter {
    std::uint64_t byteTime;
    bool reads;
    std::size_t come = 0;
    std::size_t shifted = 0;
    std::size_t back = 0;
    std::uint64_t nextAt = 0;  // when the next byte's first bit is shifted at the earliest

    bool canShift() const { return shifted < come && (!reads || shifted - back < kBuffer); }
    void shiftUntil(std::uint64_t time) {
        for (; canShift() && nextAt + byteTime <= time; nextAt += byteTime) ++shifted;
    }
    /// A packet has moved at that time: what had stopped the clock may have gone.
    void moved(std::size_t& direction, std::size_t count, std::uint64_t time) {
        const bool stood = !canShift();
        direction += count;
        if (stood && canShift()) nextAt = std::max(nextAt, time);
    }
};

FrameBridge::Timeline FrameBridge::pass() const {
    const std::uint64_t hertz = setting_[0] | setting_[1] << 8 | setting_[2] << 16;
    Shifter bytes{8'000'000'000ULL / hertz, in_ != nullptr};
    Timeline line;
    for (std::uint64_t slot = slotAtOrAfter(now_); bytes.come < length_ || (bytes.reads && bytes.back < length_);
         ++slot) {
        bytes.shiftUntil(slotTime(slot));
        const std::uint64_t end = slotTime(slot + 1);
        const std::size_t ready = bytes.shifted - bytes.back;
        if (bytes.reads && ready > 0 && (ready >= kPacket || bytes.shifted == length_)) {
            bytes.moved(bytes.back, std::min(ready, kPacket), end);
            line.inDone = end;
        } else if (const std::size_t count = std::min(kPacket, length_ - bytes.come);
                   count > 0 && bytes.come - bytes.shifted + kPacket <= kBuffer) {
            bytes.moved(bytes.come, count, end);
            line.outDone = end;
        }
    }
    line.shifted = bytes.nextAt + (length_ - bytes.shifted) * bytes.byteTime;
    return line;
}

/// As one select period that ends now: what the chip starts, it starts then.
void FrameBridge::reachChip(const std::uint8_t* out, std::vector<std::uint8_t>& in) {
    clock_.pass(idleAt_ - chipTime_);
    chipTime_ = idleAt_;
    const std::uint64_t before = chip_.changes;
    chip_.transfer(out, in.data(), in.size());
    if (chip_.changes != before) traffic_.flash += workOf(out[0], cells_.size()) * 1000;
    const std::uint64_t hertz = setting_[0] | setting_[1] << 8 | setting_[2] << 16;
    traffic_.spi += in.size() * 8'000'000'000ULL / hertz;
}

}  // namespace bench
