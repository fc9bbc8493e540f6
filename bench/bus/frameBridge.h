// A bridge with a flash chip behind the real libusb, and the time of a full-speed bus: nothing here depends on
// the computer's clock.
//
// - A control transfer takes three transactions and ends with the frame (1 ms) in which it has had them; what it
//   does or answers is of its second one.
// - Bulk moves packets of 64 bytes, at most 19 of all endpoints together in a frame.
// - The bridge buffers 256 bytes each way; SPI shifts without a gap while it has bytes and room for their answers,
//   and sends back full packets, the last one excepted.
// - The flash chip takes its typical times. A program that runs takes none; its sleeps are exact.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/clock.h"
#include "sim/flashChip.h"
#include "tests/emulatedUsb.h"

namespace bench {

/// What a job cost; times in nanoseconds.
struct Traffic {
    std::uint64_t starts = 0;    // SPI transfers started
    std::uint64_t statuses = 0;  // status requests
    std::uint64_t others = 0;    // other control transfers
    std::uint64_t bulkOut = 0;
    std::uint64_t bulkIn = 0;
    std::uint64_t time = 0;
    std::uint64_t waits = 0;  // sleeps of 50 ms and more: the Neuron's, not the bus's
    std::uint64_t spi = 0;    // bits shifted, at the set clock
    std::uint64_t flash = 0;  // programming and erasing

    std::uint64_t transfers() const { return starts + statuses + others + bulkOut + bulkIn; }
    /// Of 1 ms, the last one begun; without the waits for the Neuron.
    std::uint64_t frames() const { return (time - waits + 999'999) / 1'000'000; }
    Traffic operator-(const Traffic& before) const;
};

class FrameBridge {
public:
    explicit FrameBridge(std::size_t flashSize);

    void sleep(long milliseconds);
    Traffic traffic();
    /// What a real interface would not have forgiven.
    std::vector<std::string> violations();

    /// The bytes of the flash; between two jobs only.
    const std::vector<std::uint8_t>& contents() const { return cells_; }
    void hold(const std::vector<std::uint8_t>& bytes) { std::copy(bytes.begin(), bytes.end(), cells_.begin()); }

private:
    struct Timeline {
        std::uint64_t outDone = 0;
        std::uint64_t inDone = 0;
        std::uint64_t shifted = 0;
    };
    struct Shifter;

    void submit(EmulatedUrb& urb);
    void control(EmulatedUrb& urb);
    std::vector<std::uint8_t> obey(const EmulatedUrb& urb, const usb_ctrlrequest& setup, std::uint64_t at);
    void start(const usb_ctrlrequest& setup, std::uint64_t end);
    void bulk(EmulatedUrb& urb);
    void run();
    Timeline pass() const;
    void reachChip(const std::uint8_t* out, std::vector<std::uint8_t>& in);

    std::vector<std::uint8_t> cells_;  // the chip borrows them
    EmulatedUsb& usb_;
    sim::Clock clock_{sim::Pace::Virtual};  // the chip's
    std::vector<std::string> violations_;
    sim::FlashChip chip_;
    Traffic traffic_;
    std::uint64_t& now_ = traffic_.time;
    std::uint64_t chipTime_ = 0;
    std::uint64_t idleAt_ = 0;  // SPI has shifted all it was given
    std::array<std::uint8_t, 16> setting_;
    std::array<std::uint8_t, 32> pins_{};
    // The transfer that was started last
    bool reads_ = false;
    bool writes_ = false;
    std::size_t length_ = 0;
    EmulatedUrb* out_ = nullptr;
    EmulatedUrb* in_ = nullptr;
};

}  // namespace bench
