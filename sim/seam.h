// What the seam's functions share: the state behind a rig, and the frame of one call.
#pragma once

#include <array>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/cyusbserial.h"
#include "sim/board.h"
#include "sim/functions.h"
#include "sim/rig.h"

namespace sim {

/// What a CY_HANDLE points to: byte-packed, the interface number 3 and the libusb handle 31 bytes into it.
struct Handle {
    static constexpr std::size_t kInterfaceOffset = 3;
    static constexpr std::size_t kRecordSize = CY_HANDLE_LIBUSB_OFFSET + sizeof(void*);

    Handle(unsigned device, unsigned interface);
    void* usbHandle() { return this; }  // a stand-in that only libusb_control_transfer of this library knows

    std::array<unsigned char, kRecordSize> record{};
    unsigned deviceNumber;  // when it was opened
    unsigned interfaceNumber;
    bool isGone = false;  // its device has been unplugged since
};

struct Rig::State {
    struct Fault {
        Function function;
        unsigned first;
        unsigned last;
        int status;
    };

    struct LdvScript {
        std::deque<LdvStep> steps;
        std::uint64_t start;  // microseconds
    };

    explicit State(unsigned number) : index(number) {}

    const unsigned index;        // among the rigs
    std::recursive_mutex mutex;  // held through a call, also while the interface works
    bool isFromEnvironment = false;
    std::unique_ptr<Board> board;  // null: no interface is attached
    std::vector<std::unique_ptr<Handle>> handles;
    unsigned ldvChannels = 0;
    bool isLdvGone = false;  // the interface of the open channel has been unplugged
    std::optional<LdvScript> ldvScript;
    std::array<unsigned, static_cast<std::size_t>(Function::Count)> calls{};
    std::vector<Fault> faults;
    std::size_t violationsTold = 0;
    int holderTold = 0;  // told once: a program may look for the interface again and again

    bool isAttached() const { return board && board->whyAbsent().empty(); }
    Handle* find(CY_HANDLE handle) const;
    /// Claims the board for a handle or an LDV channel; tells on standard error who holds it otherwise.
    bool claim();
};

struct Seam {
    using State = Rig::State;

    static State& state(Rig& rig) { return *rig.state_; }
    /// Attached now, as a list would have it.
    static bool isAttached(Rig& rig);

    /// One call of a seam function on that interface: counted, answered by the fault plan or else by body(state), and
    /// journaled as text() when the journal is kept. isGood tells which statuses are no failure.
    template <class Text, class Body>
    static int call(Rig& own, Function function, Text text, Body body) {
        State& state = *own.state_;
        const std::lock_guard lock(state.mutex);
        lookAtPlug(state);
        int status = 0;
        const bool planned = takeFault(state, function, status);
        if (!planned) status = body(state);
        if (own.keepJournal) note(own, text(), status, planned || isFailure(function, status));
        if (state.isFromEnvironment) tellViolations(state);
        return status;
    }

    static void setUp(Rig& rig, const Options& options);
    static void setUpFromEnvironment(Rig& rig, const Options& options);
    /// No board any more.
    static void takeOff(State& state);
    static void forgetHandles(State& state);
    static void plan(State& state, const std::string& function, unsigned first, unsigned last, int status);

private:
    static void lookAtPlug(State& state);
    static bool takeFault(State& state, Function function, int& status);
    static bool isFailure(Function function, int status);
    static void note(Rig& own, std::string text, int status, bool failed);
    static void tellViolations(State& state);
};

/// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...);
/// " 06 FF" for each byte, at most `most` of them, then " ..(260)" with the full count.
std::string hexBytes(const void* bytes, std::size_t length, std::size_t most);

}  // namespace sim
