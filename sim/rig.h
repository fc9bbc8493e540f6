// The test side of the simulated interface: the scene, the journal of everything that crosses the
// seam, and the fault plan. Programs under test never see this header.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/board.h"
#include "sim/export.h"
#include "sim/options.h"

namespace sim {

/// What a scripted LDV driver gives, step after step: a message or a status other than 0.
struct LdvStep {
    int status = 0;
    Bytes message = {};
    std::uint32_t atMs = 0;  ///< not before that time after the script was set; LDV_NO_MSG_AVAIL until then
    unsigned times = 1;
};

/// One simulated interface of this process. Its functions are for a test that does not use the interface in
/// another thread meanwhile.
class TAVO_SIM_API Rig {
public:
    explicit Rig(unsigned index);
    ~Rig();

    /// A fresh board, without a folder unless options.folder is set; journal, faults and call
    /// counts empty; the virtual clock at 0. Handles of the old board are forgotten. On a folder this
    /// is what a new process finds there. Of the first rig: takes the others off the bus as well. Throws
    /// std::runtime_error for a folder that cannot be used.
    void reset(const Options& options = {});
    /// Unplugs the interface and plugs it in again: a written configuration block takes effect, pins
    /// and SPI setting are as it says, handles are forgotten.
    void replug();
    /// The same in two steps. Until plug() it is in no list; the handles and LDV channels of before answer as those
    /// of a missing device, for good.
    void unplug();
    void plug();

    Board& board();

    /// One line per event, in order. A call that does not succeed ends in " !STATUS".
    ///   list            info 0        open 0.0       close 0.0       (device.interface)
    ///   getspi          setspi master 900000        setspi slave 900000
    ///   spi 06          written only; bytes in hex, at most the first 8, then the full count:
    ///                   "spi 02 00 00 00 11 22 33 44 ..(260)"
    ///   spi 05 00 <2    full duplex; <N bytes read
    ///   pin 8=0         pin 8?                      set, get
    ///   control C0 B5 0000 0000 512                 bmRequestType bRequest wValue wIndex wLength
    ///   userflash write 0 128                       userflash read 0 128   (address length)
    ///   ldv_open NAME   ldv_write 22 11 ..          ldv_read 16 0F ..   ldv_close   (all bytes)
    ///   sleep 100       milliseconds, on the virtual clock
    std::vector<std::string> journal;
    bool keepJournal = true;  ///< false saves the time; set to false when the rig comes from the environment
    /// Same, with runs of identical "spi 05 00 <2" + "sleep 1" polls left out.
    std::vector<std::string> journalWithoutPolls() const;

    /// Bytes clocked and transfers made by CySpiReadWrite since reset.
    std::uint64_t spiBytes = 0;
    std::uint64_t spiTransfers = 0;
    /// Milliseconds that the last SPI, user-flash or control transfer was given.
    std::uint32_t lastTimeout = 0;
    /// Calls of a seam function (or "sleep") since reset.
    unsigned calls(const std::string& function) const;

    // The fault plan. n counts calls from now, 1 is the next one. The call has no other effect.
    /// The n-th call of a seam function returns that status (for libusb_control_transfer: result).
    /// A failing close gives its handle up all the same. Throws std::invalid_argument for a function
    /// that is none of the seam's.
    void fail(const std::string& function, unsigned n, int status);
    /// That and every later call.
    void failFrom(const std::string& function, unsigned n, int status);
    /// The n-th Page Program is accepted, takes its time and changes nothing.
    void loseProgram(unsigned n);
    /// The same of the n-th erase, of whatever size.
    void loseErase(unsigned n);
    /// In the n-th Read Data transfer one bit of that data byte (0 = first after the header) is wrong.
    void flipReadBit(unsigned n, unsigned byte, unsigned bit);
    void clearFaults();

    /// ldv_read follows this script instead of asking the Neuron, which gets no messages any more;
    /// after the last step there is nothing to read. Until reset.
    void scriptLdv(const std::vector<LdvStep>& steps);

    /// The virtual clock, in microseconds since reset; sleeps and (with Pace::Virtual) SPI transfers
    /// advance it. Sleeps advance those of all rigs.
    std::uint64_t now() const;
    /// What a test program's Poco::ThreadImpl::sleepImpl calls.
    void sleep(long milliseconds);

    /// What is still held: open handles, LDV channels, pins driven low. Empty when all is released.
    std::string leftovers() const;
    /// What the board noticed and a real one would not forgive; empty in a correct run.
    const std::vector<std::string>& violations();

private:
    friend struct Seam;
    struct State;
    std::unique_ptr<State> state_;
};

/// The rigs of this process; those not asked for yet come into being without a board. In a program that runs on
/// simulated interfaces they are set up from the environment variable TAVO_SIM, one a line, at the first
/// call of a seam function.
TAVO_SIM_API Rig& rig(unsigned index = 0);

}  // namespace sim
