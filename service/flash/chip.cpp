#include "service/flash/chip.h"

#include <Poco/Thread.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <iterator>

#include "platform/cyusbserial.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

// JEDEC standard SPI NOR commands.
namespace opcode {
constexpr std::uint8_t kPageProgram = 0x02;
constexpr std::uint8_t kReadData = 0x03;
constexpr std::uint8_t kWriteEnable = 0x06;
constexpr std::uint8_t kReadSfdp = 0x5A;  // a dummy byte follows the address
constexpr std::uint8_t kReadJedecId = 0x9F;
constexpr std::uint8_t kChipErase = 0xC7;
}  // namespace opcode

constexpr std::uint8_t kBusy = 0x01;
// BP0 and BP1. Bit 4 is a third one on most parts, but tells the level of the write-protect pin on others.
constexpr std::uint8_t kProtected = 0x0C;
constexpr std::uint8_t kFloating = 0xFF;  // nobody drives the line

constexpr std::uint32_t kHeaderSize = 4;  // command, then a 24-bit address, most significant byte first
constexpr UINT32 kTransferTimeoutMs = 10000;
constexpr long kPollIntervalMs = 1;
constexpr unsigned kPromptPolls = 4;   // of a page program: over the longest of most data sheets
constexpr double kPatience = 10;       // times the data sheet's longest
constexpr unsigned kFewestPolls = 50;  // before a wait is too long, however late this process was woken

constexpr double kLongestPageProgram = 0.005;
constexpr double kLongestStatusWrite = 0.015;
constexpr double kLongestBlockErase = 3;
constexpr double kLongestSilence = 1;
constexpr std::uint32_t kLargestChip = kAddressable;

using Clock = std::chrono::steady_clock;

void putHeader(std::uint8_t* buffer, std::uint8_t command, std::uint32_t address) {
    buffer[0] = command;
    buffer[1] = static_cast<std::uint8_t>(address >> 16);
    buffer[2] = static_cast<std::uint8_t>(address >> 8);
    buffer[3] = static_cast<std::uint8_t>(address);
}

Error staysBusy(const std::string& how) {
    Error error(Problem::DeviceFailed, "the flash " + how,
                "replug the interface and repeat the command; a flash that fails so again is dead or badly wired");
    error.status = TAVO_TIMEOUT;
    return error;
}

std::string longestText(double seconds) {
    return seconds < 1 ? std::to_string(std::lround(seconds * 1000)) + " ms" : secondsText(seconds);
}

Error waitedTooLong(const BusyWait& wait) {
    return staysBusy(std::string("stays busy: ") + wait.what + " takes at most " + longestText(wait.longest) +
                     ", and was waited for ten times as long");
}

/// How long a wait has lasted. Each poll takes a millisecond at least, also where no clock runs.
class Patience {
public:
    explicit Patience(double longest) : longest_(longest) {}

    unsigned polls() const { return polls_; }
    void countPoll(std::uint8_t status) {
        ++polls_;
        // A chip drives its status also while it is busy.
        if (status != kFloating) silentSince_ = seconds();
    }
    bool isSilent() const { return polls_ >= kFewestPolls && seconds() - silentSince_ >= kLongestSilence; }
    bool isLate() const { return seconds() >= longest_; }
    bool isOver() const { return polls_ >= kFewestPolls && seconds() >= kPatience * longest_; }

private:
    double seconds() const {
        const double elapsed = std::chrono::duration<double>(Clock::now() - start_).count();
        return std::max(elapsed, polls_ * kPollIntervalMs / 1000.0);
    }

    double longest_;
    unsigned polls_ = 0;
    double silentSince_ = 0;
    Clock::time_point start_ = Clock::now();
};

bool mayStop(const BusyWait& wait, const Patience& patience, std::uint8_t status) {
    if (wait.stop == BusyWait::Stop::AtOnce || status == kFloating) return true;
    return wait.stop == BusyWait::Stop::WhenLate && patience.isLate();
}

}  // namespace

CY_RETURN_STATUS FlashDriver::transfer(std::uint8_t* out, std::uint8_t* in, std::uint32_t length) const {
    CY_DATA_BUFFER write{out, length, 0};
    CY_DATA_BUFFER read{in, length, 0};
    return CySpiReadWrite(handle_.handle, in != nullptr ? &read : nullptr, &write, kTransferTimeoutMs);
}

CY_RETURN_STATUS FlashDriver::readId(FlashChip& chip) const {
    std::uint8_t out[4] = {opcode::kReadJedecId};
    std::uint8_t in[4] = {};
    if (const auto status = transfer(out, in, sizeof out); status != CY_SUCCESS) return status;
    chip.maker = in[1];
    chip.memoryType = in[2];
    chip.capacityCode = in[3];
    return CY_SUCCESS;
}

CY_RETURN_STATUS FlashDriver::readSize(FlashChip& chip) const {
    return primitives_.getFlashSize(chip.size);
}

CY_RETURN_STATUS FlashDriver::waitUntilIdle(const BusyWait& wait, std::uint8_t& status) const {
    for (Patience patience(wait.longest);; patience.countPoll(status)) {
        if (const auto result = readStatus(status); result != CY_SUCCESS) return result;
        if ((status & kBusy) == 0) return CY_SUCCESS;
        if (patience.isSilent()) op_.fail(staysBusy("no longer answers: its status has read FF for a second"));
        if (patience.isOver()) op_.fail(waitedTooLong(wait));
        if (mayStop(wait, patience, status)) op_.throwIfCancelled();
        if (patience.polls() >= wait.prompt) Poco::Thread::sleep(kPollIntervalMs);
    }
}

CY_RETURN_STATUS FlashDriver::readSfdp(std::uint32_t address, std::uint8_t* data, std::uint32_t size) const {
    return fetch(opcode::kReadSfdp, kHeaderSize + 1, address, data, size);
}

CY_RETURN_STATUS FlashDriver::eraseChip(const FlashChip& chip) const {
    std::uint8_t command[] = {opcode::kChipErase};
    return erase(command, sizeof command, longestErase(chip));
}

CY_RETURN_STATUS FlashDriver::eraseBlock(const EraseType& type, std::uint32_t address) const {
    std::uint8_t command[kHeaderSize];
    putHeader(command, type.opcode, address);
    return erase(command, sizeof command, std::max(type.longest, kLongestBlockErase));
}

CY_RETURN_STATUS FlashDriver::erase(std::uint8_t* command, std::uint32_t size, double longest) const {
    // Busy before: with the status write of unprotect, or with what a killed run has begun.
    const BusyWait before{longestErase(kLargestChip), "a chip erase", BusyWait::Stop::AtOnce};
    const BusyWait during{longest, "an erase", BusyWait::Stop::Never};
    std::uint8_t status = 0;
    if (const auto result = waitUntilIdle(before, status); result != CY_SUCCESS) return result;
    if (const auto result = primitives_.enableWrite(); result != CY_SUCCESS) return result;
    if (const auto result = transfer(command, nullptr, size); result != CY_SUCCESS) return result;
    if (const auto result = waitUntilIdle(during, status); result != CY_SUCCESS) return result;
    if ((status & kProtected) == 0) return CY_SUCCESS;
    op_.fail(Error(Problem::DeviceFailed,
                   "the flash stays write-protected (status " + hexText(&status, 1) + "): it refuses the erase",
                   "its write-protect pin (WP#) is held low: see to the wiring"));
}

CY_RETURN_STATUS FlashDriver::waitUntilReadable() const {
    const BusyWait wait{longestErase(kLargestChip), "a chip erase", BusyWait::Stop::AtOnce};
    std::uint8_t status = 0;
    return waitUntilIdle(wait, status);
}

CY_RETURN_STATUS FlashDriver::read(std::uint32_t address, std::uint8_t* data, std::uint32_t size) const {
    if (const auto result = waitUntilReadable(); result != CY_SUCCESS) return result;
    return readLong(address, data, size);
}

CY_RETURN_STATUS FlashDriver::readLong(std::uint32_t address, std::uint8_t* data, std::uint32_t size) const {
    return fetch(opcode::kReadData, kHeaderSize, address, data, size);
}

CY_RETURN_STATUS FlashDriver::fetch(std::uint8_t command, std::uint32_t header, std::uint32_t address,
                                    std::uint8_t* data, std::uint32_t size) const {
    std::array<std::uint8_t, kHeaderSize + kLongRead> out;
    std::array<std::uint8_t, kHeaderSize + kLongRead> in;
    std::fill_n(out.begin(), header + size, std::uint8_t{0});
    putHeader(out.data(), command, address);
    if (const auto result = transfer(out.data(), in.data(), header + size); result != CY_SUCCESS) return result;
    std::copy_n(in.data() + header, size, data);
    return CY_SUCCESS;
}

CY_RETURN_STATUS FlashDriver::waitUntilWritable() const {
    const BusyWait wait{kLongestStatusWrite, "a status write", BusyWait::Stop::WhenLate};
    std::uint8_t status = 0;
    return waitUntilIdle(wait, status);
}

// Here and in attempt what comes in is dropped. Its last byte tells that the bridge is through: of a transfer
// that only writes, the bridge has to be asked, which costs another USB frame.
CY_RETURN_STATUS FlashDriver::enableWrite() const {
    std::uint8_t out[] = {opcode::kWriteEnable};
    std::uint8_t dropped[sizeof out];
    return transfer(out, dropped, sizeof out);
}

CY_RETURN_STATUS FlashDriver::attempt(std::uint8_t* out, std::uint32_t address, std::uint32_t size,
                                      double longest) const {
    const BusyWait during{longest, "a page program", BusyWait::Stop::WhenLate, kPromptPolls};
    std::array<std::uint8_t, kHeaderSize + kPageSize> dropped;
    std::uint8_t status = 0;
    if (const auto result = enableWrite(); result != CY_SUCCESS) return result;
    putHeader(out, opcode::kPageProgram, address);
    if (const auto result = transfer(out, dropped.data(), kHeaderSize + size); result != CY_SUCCESS) return result;
    return waitUntilIdle(during, status);
}

PageOutcome FlashDriver::programPage(const FlashChip& chip, std::uint32_t address, const std::uint8_t* data,
                                     std::uint32_t size) const {
    const double longest = std::max(chip.programLongest, kLongestPageProgram);
    std::array<std::uint8_t, kHeaderSize + kPageSize> out{};
    std::copy_n(data, size, out.data() + kHeaderSize);
    PageOutcome outcome;
    do {
        // What a step that failed has left in the chip is not known; after one that did not it is idle.
        if (++outcome.attempts > 1) outcome.status = waitUntilWritable();
        if (outcome.status == CY_SUCCESS) outcome.status = attempt(out.data(), address, size, longest);
    } while (outcome.status != CY_SUCCESS && outcome.attempts < kAttempts);
    return outcome;
}

}  // namespace tavo
