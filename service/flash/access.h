// How every flash operation takes hold of the chip, lets go of it, and makes sure that it has.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "platform/cyusbserial.h"
#include "service/flash/chip.h"
#include "service/operation.h"
#include "tavo/Configurator.h"

namespace tavo {

// Milliseconds from the reset of the Neuron to the first transfer, as the library waits for the same job.
inline constexpr long kSettle = 100;
inline constexpr long kSettleBeforeErase = 50;

inline constexpr const char* kEraseStopNote = "Ctrl-C noted: a chip erase cannot be stopped, waiting for its end";

/// SCB0 as SPI master and the Neuron held in reset. Use it through withFlash.
class FlashAccess {
public:
    explicit FlashAccess(Operation& op) : op_(op), configurator_(op.device.info()) {}
    ~FlashAccess() { release(); }
    FlashAccess(const FlashAccess&) = delete;
    FlashAccess& operator=(const FlashAccess&) = delete;

    /// Takes both, waits until the Neuron has let go of the bus, and reads the ID. Throws Error, naming the
    /// step that failed.
    void take(long settleMs, std::optional<int> clockHz);
    const FlashDriver& driver() const { return *driver_; }
    const FlashChip& chip() const { return chip_; }

    /// Gives the reset line and SCB0 back, looks, tries once more. Throws nothing; op.state tells.
    void release() noexcept;
    /// After release: throws Error when something is still held, or cannot be seen to be released.
    void requireReleased();
    /// Ends the operation with that failure, after the release, told as things are now.
    [[noreturn]] void fail(const Error& error);

private:
    void lookAtScb0();
    void setClock(int clockHz);
    void readStart(std::vector<std::uint8_t>& bytes) const;
    void giveScb0Back();
    void readId();
    void identify();
    void check(CY_RETURN_STATUS status, const std::string& doing) const;

    Operation& op_;
    Configurator configurator_;
    std::optional<GPIO> gpio_;
    std::optional<IOPin> reset_;
    std::optional<CyHandle> scb0_;
    std::optional<FlashDriver> driver_;
    FlashChip chip_;
    bool touched_ = false;
    bool released_ = false;
    /// A master with a setting of its own: the configuration block makes it so at power-up.
    std::optional<CY_SPI_CONFIG> masterAsFound_;
};

/// Throws Error (BadArgument) for one that is not to be set.
void requireClock(std::optional<int> clockHz);

/// Takes the flash for its ID alone. Throws Error.
FlashChip readFlashChip(Operation& op);

/// Takes the flash, runs work(driver, chip) and releases, whatever the result. A success is one only when
/// everything was seen to be released.
template <class Work>
auto withFlash(Operation& op, long settleMs, std::optional<int> clockHz, Work work) {
    requireClock(clockHz);
    FlashAccess access(op);
    try {
        return op.guarded([&] {
            access.take(settleMs, clockHz);
            auto result = work(access.driver(), access.chip());
            access.release();
            access.requireReleased();
            return result;
        });
    } catch (const Error& error) {
        access.fail(error);
    }
}
template <class Work>
auto withFlash(Operation& op, long settleMs, Work work) {
    return withFlash(op, settleMs, std::nullopt, work);
}

/// Unprotects and erases the whole chip. Raises the state before.
TAVO_STATUS eraseAll(Operation& op, const FlashDriver& driver, const FlashChip& chip);
/// Erases a part of it by sectors, and looks that just this part was erased. @return how many
std::uint32_t erasePart(Operation& op, const FlashDriver& driver, const FlashChip& chip, const AddressRange& range,
                        const std::string& backup);

/// The Neuron starts with what is in the flash now: the time that the library gives it.
void waitForBoot(Operation& op);

/// The range, which must lie in the chip; without one the whole chip, which must be addressable.
AddressRange partOf(Operation& op, const FlashChip& chip, const std::optional<AddressRange>& range);
/// Refuses a chip that 24 address bits cannot reach in whole: reads would wrap unnoticed.
void requireAddressable(Operation& op, const FlashChip& chip);
/// What the image has in that range. Throws Error (FileRefused) when that is nothing and some is needed.
Image partOfImage(const Image& image, const AddressRange& range, const std::string& name, bool needsData);
/// Refuses (FileRefused) an image with data above this chip. file: names the line; may be null.
void requireFits(Operation& op, const Image& image, const FlashChip& chip, const std::string& name,
                 const ImageFile* file);

}  // namespace tavo
