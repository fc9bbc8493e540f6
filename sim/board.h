// One simulated interface: bridge, SPI flash and Neuron, wired together.
#pragma once

#include <string>
#include <vector>

#include "sim/bridge.h"
#include "sim/clock.h"
#include "sim/export.h"
#include "sim/flashChip.h"
#include "sim/neuron.h"
#include "sim/options.h"
#include "sim/store.h"

namespace sim {

class TAVO_SIM_API Board {
public:
    static constexpr unsigned kResetPin = 8;
    static constexpr unsigned kServicePin = 14;

    /// Opens the folder of the options; a configuration block written since the last run takes effect.
    /// Throws std::runtime_error, naming file and remedy, for a folder that cannot be used.
    explicit Board(const Options& options);
    ~Board();  // there, since only this library knows the store

    /// Unplugged and plugged in again.
    void powerCycle();
    /// True when the interface has been unplugged or plugged in since it was looked at last.
    bool isPlugChanged() const { return store.plugChanges() != plugChanges_; }
    /// Goes along with that: the claims are gone, and with power everything is as the memories say. A folder that
    /// cannot be used any more is told on standard error.
    void followPlug();
    bool isUnplugged() const;
    /// It is there, but this user may not open it.
    bool isDenied() const { return options_.denied; }
    /// Why it is not on USB; empty when it is.
    const std::string& whyAbsent() const { return whyAbsent_; }
    /// "sim:" and the absolute folder.
    std::string portPath() const;
    std::string nameInMemory = "memory";  ///< stands for the folder in it when there is none

    /// Claims the folder for this process; claims are counted.
    /// @return 0, or the process ID of the holder (-1 when unknown).
    /// Throws like the constructor when another process has left something that cannot be used.
    int claim();
    void release();
    void dropClaims();

    /// An SPI transfer by SCB0: takes its time on the wire and reaches the chip when the board is set up for it.
    /// Behind an unfinished one it takes that many milliseconds and fails with a time-out.
    CY_RETURN_STATUS transfer(const std::uint8_t* out, std::uint8_t* in, std::size_t length, std::uint32_t timeout);
    CY_RETURN_STATUS setSpiConfig(unsigned interfaceNumber, const CY_SPI_CONFIG& config);
    CY_RETURN_STATUS setPin(unsigned pin, bool high);
    int control(std::uint8_t type, std::uint8_t request, std::uint16_t value, std::uint16_t index, std::uint8_t* data,
                std::uint16_t length);
    /// Output pins that are low, as "pin 8 low".
    std::vector<std::string> lowPins() const;

    /// Writes what is not in the memories to the folder, so that a killed run leaves what a real one would.
    /// Cheap when nothing has changed. A failure is told on standard error: the interface works on without.
    void save();

    std::vector<std::string> violations;
    Clock clock;
    Store store;
    Bridge bridge;
    FlashChip flash;
    Neuron neuron;

private:
    void restore(const Store::Values& values);
    void forgetClaims();
    void restorePins(const Store::Values& values);
    const char* whyFlashIsUnreachable() const;
    void wirePins();

    const Options options_;
    std::string whyAbsent_;
    unsigned claims_ = 0;
    unsigned plugChanges_ = 0;
    std::uint8_t savedProtection_ = 0;
};

}  // namespace sim
