#include "sim/rig.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

#include "sim/bus.h"
#include "sim/seam.h"

namespace sim {

namespace {

constexpr unsigned kForever = std::numeric_limits<unsigned>::max();

std::size_t slot(Function function) {
    return static_cast<std::size_t>(function);
}

}  // namespace

std::string text(const char* format, ...) {
    char buffer[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    return buffer;
}

std::string hexBytes(const void* bytes, std::size_t length, std::size_t most) {
    std::string result;
    const auto* byte = static_cast<const unsigned char*>(bytes);
    for (std::size_t i = 0; i < std::min(length, most); ++i) result += text(" %02X", byte[i]);
    if (length > most) result += text(" ..(%zu)", length);
    return result;
}

Rig::Rig(unsigned index) : state_(std::make_unique<State>(index)) {}

Rig::~Rig() = default;

void Rig::reset(const Options& options) {
    journal.clear();
    spiBytes = 0;
    spiTransfers = 0;
    lastTimeout = 0;
    state_->calls.fill(0);
    Bus& bus = Bus::instance();
    bus.setByTest();
    for (Rig* other : bus.rigs()) {
        if (state_->index == 0 && other != this) Seam::takeOff(*other->state_);
    }
    Seam::setUp(*this, options);
}

void Rig::replug() {
    Seam::forgetHandles(*state_);
    board().powerCycle();
    board().dropClaims();
}

void Rig::unplug() {
    board().store.setPluggedIn(false);
}

void Rig::plug() {
    board().store.setPluggedIn(true);
}

Board& Rig::board() {
    if (!state_->board) throw std::logic_error("the rig has no board: call reset() first");
    return *state_->board;
}

std::vector<std::string> Rig::journalWithoutPolls() const {
    std::vector<std::string> result;
    for (std::size_t i = 0; i < journal.size(); ++i) {
        const bool isPoll = journal[i] == "spi 05 00 <2" && i + 1 < journal.size() && journal[i + 1] == "sleep 1";
        if (isPoll) {
            ++i;
        } else {
            result.push_back(journal[i]);
        }
    }
    return result;
}

unsigned Rig::calls(const std::string& function) const {
    const Function known = functionNamed(function);
    if (known == Function::Count) throw std::invalid_argument(function + " is no function of the seam");
    return state_->calls[slot(known)];
}

void Rig::fail(const std::string& function, unsigned n, int status) {
    Seam::plan(*state_, function, n, n, status);
}

void Rig::failFrom(const std::string& function, unsigned n, int status) {
    Seam::plan(*state_, function, n, kForever, status);
}

void Rig::loseProgram(unsigned n) {
    board().flash.lostPrograms.push_back(board().flash.programs + n);
}

void Rig::loseErase(unsigned n) {
    board().flash.lostErases.push_back(board().flash.erases + n);
}

void Rig::flipReadBit(unsigned n, unsigned byte, unsigned bit) {
    board().flash.flips.push_back({board().flash.reads + n, byte, bit});
}

void Rig::clearFaults() {
    state_->faults.clear();
    board().flash.lostPrograms.clear();
    board().flash.lostErases.clear();
    board().flash.flips.clear();
}

std::uint64_t Rig::now() const {
    return state_->board ? state_->board->clock.now() : 0;
}

void Rig::sleep(long milliseconds) {
    {
        const std::lock_guard lock(state_->mutex);
        ++state_->calls[slot(Function::sleep)];
        if (keepJournal) journal.push_back(text("sleep %ld", milliseconds));
    }
    for (Rig* each : Bus::instance().rigs()) {
        const std::lock_guard lock(each->state_->mutex);
        Board* const board = each->state_->board.get();
        if (board != nullptr && milliseconds > 0) board->clock.skip(static_cast<std::uint64_t>(milliseconds) * 1000);
    }
}

std::string Rig::leftovers() const {
    std::vector<std::string> held;
    if (!state_->handles.empty()) held.push_back(text("%zu bridge handle(s)", state_->handles.size()));
    if (state_->ldvChannels > 0) held.push_back(text("%u LDV channel(s)", state_->ldvChannels));
    if (state_->board) {
        for (const std::string& pin : state_->board->lowPins()) held.push_back(pin);
    }
    std::string result;
    for (const std::string& each : held) result += (result.empty() ? "" : ", ") + each;
    return result;
}

const std::vector<std::string>& Rig::violations() {
    return board().violations;
}

Handle::Handle(unsigned device, unsigned interface) : deviceNumber(device), interfaceNumber(interface) {
    record[kInterfaceOffset] = static_cast<unsigned char>(interface);
    void* const usb = usbHandle();
    std::memcpy(record.data() + CY_HANDLE_LIBUSB_OFFSET, &usb, sizeof usb);
}

Handle* Rig::State::find(CY_HANDLE handle) const {
    for (const auto& each : handles) {
        if (each->record.data() == handle) return each.get();
    }
    return nullptr;
}

bool Rig::State::claim() try {
    const int holder = board->claim();
    if (holder == 0) return true;
    if (std::exchange(holderTold, holder) == holder) return false;
    const std::string who = holder > 0 ? text("process %d", holder) : "another process";
    std::fprintf(stderr, "simulated interface: %s is in use by %s\n", board->store.folder.c_str(), who.c_str());
    return false;
} catch (const std::runtime_error& error) {
    board->store.unlock();
    std::fprintf(stderr, "%s\n", error.what());
    return false;
}

void Seam::forgetHandles(Rig::State& state) {
    for (const auto& handle : state.handles) {
        Bus::instance().remove(handle->record.data());
        Bus::instance().remove(handle->usbHandle());
    }
    state.handles.clear();
    state.ldvChannels = 0;
    state.isLdvGone = false;
}

void Seam::takeOff(Rig::State& state) {
    const std::lock_guard lock(state.mutex);
    forgetHandles(state);
    state.board.reset();  // lets go of its folder, which may be the next one's too
    Bus::instance().forgetNumbers();
}

void Seam::setUp(Rig& rig, const Options& options) {
    State& state = *rig.state_;
    const std::lock_guard lock(state.mutex);
    takeOff(state);
    state.isFromEnvironment = false;
    state.ldvScript.reset();
    state.faults.clear();
    state.violationsTold = 0;
    state.holderTold = 0;
    for (const PlannedFault& fault : options.faults) {
        plan(state, fault.function, fault.nth, fault.andLater ? kForever : fault.nth, fault.status);
    }
    state.board = std::make_unique<Board>(options);
    if (state.index > 0) state.board->nameInMemory += text("-%u", state.index);
    state.board->flash.lostPrograms.assign(options.lostPrograms.begin(), options.lostPrograms.end());
    state.board->flash.lostErases.assign(options.lostErases.begin(), options.lostErases.end());
}

void Seam::plan(Rig::State& state, const std::string& function, unsigned first, unsigned last, int status) {
    const Function known = functionNamed(function);
    if (known == Function::Count) throw std::invalid_argument(function + " is no function of the seam");
    const unsigned made = state.calls[slot(known)];
    state.faults.push_back({known, made + first, last == kForever ? kForever : made + last, status});
}

void Seam::setUpFromEnvironment(Rig& rig, const Options& options) {
    rig.keepJournal = false;
    setUp(rig, options);
    rig.state_->isFromEnvironment = true;
    const Board& board = *rig.state_->board;
    const char* folder = board.store.folder.c_str();
    if (board.isUnplugged()) {
        std::fprintf(stderr, "simulated interface: %s is unplugged; tavo-sim --plug %s plugs it in\n", folder, folder);
    } else if (const std::string& why = board.whyAbsent(); !why.empty()) {
        std::fprintf(stderr,
                     "simulated interface: %s/config.bin: %s, so the bridge does not come up on USB; restore the "
                     "file, or delete it for the factory block\n",
                     folder, why.c_str());
    }
}

bool Seam::isAttached(Rig& rig) {
    State& state = *rig.state_;
    const std::lock_guard lock(state.mutex);
    lookAtPlug(state);
    return state.isAttached();
}

void Seam::lookAtPlug(Rig::State& state) {
    if (!state.board || !state.board->isPlugChanged()) return;
    for (const auto& handle : state.handles) handle->isGone = true;
    state.isLdvGone = state.ldvChannels > 0;
    state.board->followPlug();
}

bool Seam::takeFault(Rig::State& state, Function function, int& status) {
    const unsigned made = ++state.calls[slot(function)];
    for (const Rig::State::Fault& fault : state.faults) {
        if (fault.function != function || made < fault.first || made > fault.last) continue;
        status = fault.status;
        return true;
    }
    return false;
}

bool Seam::isFailure(Function function, int status) {
    return function == Function::libusb_control_transfer ? status < 0 : status != 0;
}

void Seam::note(Rig& own, std::string line, int status, bool failed) {
    if (line.empty()) return;
    if (failed) line += text(" !%d", status);
    own.journal.push_back(std::move(line));
}

void Seam::tellViolations(Rig::State& state) {
    if (!state.board) return;
    const std::vector<std::string>& all = state.board->violations;
    constexpr std::size_t kMostTold = 10;
    for (; state.violationsTold < std::min(all.size(), kMostTold); ++state.violationsTold) {
        std::fprintf(stderr, "simulated interface: a real one would not forgive this: %s\n",
                     all[state.violationsTold].c_str());
    }
}

}  // namespace sim
