// A JEDEC SPI NOR flash chip: what it does with each transfer, and how long it is busy afterwards.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "sim/clock.h"
#include "sim/export.h"
#include "sim/options.h"

namespace sim {

class TAVO_SIM_API FlashChip {
public:
    static constexpr std::size_t kPageSize = 256;
    static constexpr std::uint8_t kBusy = 0x01;             // write in progress
    static constexpr std::uint8_t kWriteEnabled = 0x02;     // write enable latch
    static constexpr std::uint8_t kBlockProtection = 0x1C;  // BP0 to BP2: any of them protects the whole chip here
    static constexpr std::uint8_t kProtection = 0x9C;       // and SRWD; these bits keep their value without power

    /// @param cells  the memory, a power of two of bytes; borrowed
    FlashChip(std::span<std::uint8_t> cells, int capacityCode, unsigned busyPolls, const Clock& clock,
              std::vector<std::string>& violations);

    /// One select period: out is clocked in, as many bytes come out. Either may be null.
    void transfer(const std::uint8_t* out, std::uint8_t* in, std::size_t length);
    bool isBusy() const;

    std::span<std::uint8_t> cells;
    std::uint8_t status = 0;  ///< without the busy bit
    int capacityCode;
    unsigned busyPolls;  ///< status reads for which it stays busy after each write, beside its time

    Sfdp sfdp = Sfdp::Told;

    // What a fault plan asks for, counted in Page Program, erase and Read Data transfers.
    struct Flip {
        std::uint64_t read;
        unsigned byte;
        unsigned bit;
    };
    std::vector<std::uint64_t> lostPrograms;
    std::vector<Flip> flips;
    std::vector<std::uint64_t> lostErases;
    std::uint64_t programs = 0;
    std::uint64_t erases = 0;
    std::uint64_t reads = 0;
    std::uint64_t changes = 0;  ///< programs and erases that it took, lost ones included
    std::uint64_t transfers = 0;
    /// From the transfer after that one its output stays FF; what it is told it still does.
    std::uint64_t diesAfter = std::numeric_limits<std::uint64_t>::max();

private:
    using Action = void (FlashChip::*)(const std::uint8_t* out, std::uint8_t* in, std::size_t length);
    struct Command;
    static const Command kCommands[];

    void obey(const std::uint8_t* out, std::uint8_t* in, std::size_t length);
    void writeEnable(const std::uint8_t*, std::uint8_t*, std::size_t);
    void writeDisable(const std::uint8_t*, std::uint8_t*, std::size_t);
    void readStatus(const std::uint8_t*, std::uint8_t* in, std::size_t length);
    void writeStatus(const std::uint8_t* out, std::uint8_t*, std::size_t length);
    void readId(const std::uint8_t*, std::uint8_t* in, std::size_t length);
    void readSfdp(const std::uint8_t* out, std::uint8_t* in, std::size_t length);
    void readData(const std::uint8_t* out, std::uint8_t* in, std::size_t length);
    void pageProgram(const std::uint8_t* out, std::uint8_t*, std::size_t length);
    void blockErase(const std::uint8_t* out, std::uint8_t*, std::size_t length);
    void chipErase(const std::uint8_t*, std::uint8_t*, std::size_t);

    bool takeWriteEnable(const char* command);
    void becomeBusy(std::uint64_t microseconds);
    void eraseRange(const char* command, const std::uint8_t* out, std::size_t size, std::uint64_t microseconds);
    std::size_t address(const std::uint8_t* header) const;
    void note(const std::string& text);

    const Clock& clock_;
    std::vector<std::string>& violations_;
    std::uint64_t busyUntil_ = 0;  // microseconds of the clock
    unsigned pollsLeft_ = 0;
};

/// Notes a violation; a run that goes wrong at every page does not fill the memory with them.
TAVO_SIM_API void noteViolation(std::vector<std::string>& violations, const std::string& text);

}  // namespace sim
