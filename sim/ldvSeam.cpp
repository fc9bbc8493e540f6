// The LDV driver's functions, answered by the simulated Neuron or by a test's script.
#include <algorithm>
#include <cstdio>
#include <string>

#include "platform/ldv.h"
#include "sim/bus.h"
#include "sim/seam.h"

namespace sim {

namespace {

// One channel at a time and interface, as the driver has it.
short handleOf(const Seam::State& state) {
    return static_cast<short>(state.index + 1);
}

Rig& ownerOf(short handle) {
    Bus& bus = Bus::instance();
    bus.setUpFromEnvironment();
    const std::vector<Rig*> rigs = bus.rigs();
    return handle > 0 && static_cast<std::size_t>(handle) <= rigs.size() ? *rigs[static_cast<std::size_t>(handle - 1)]
                                                                         : bus.first();
}

/// The interface is known by its serial number and by its Neuron ID; the bridge maker's vendor ID puts a C in front.
bool isNameOf(const Board& board, const std::string& name) {
    constexpr UINT16 kBridgeMaker = 0x04B4;
    const CY_DEVICE_INFO info = board.bridge.describe();
    const char* family = info.vidPid.vid == kBridgeMaker ? "C" : "";
    const auto* id = &board.neuron.data.readOnly[NeuronData::kNeuronId];
    return name == text("%sSN%8s", family, info.serialNum) ||
           name == text("%sID%02x%02x%02x%02x%02x%02x", family, id[0], id[1], id[2], id[3], id[4], id[5]);
}

/// The interface of that name; of several the first without a channel, the first of all when there is none.
Rig& ownerOf(const std::string& name) {
    Bus& bus = Bus::instance();
    bus.setUpFromEnvironment();
    std::vector<Rig*> free;
    std::vector<Rig*> taken;
    for (Rig* each : bus.rigs()) {
        if (!Seam::isAttached(*each)) continue;
        Seam::State& state = Seam::state(*each);
        const std::lock_guard lock(state.mutex);
        if (state.isAttached() && isNameOf(*state.board, name)) (state.ldvChannels > 0 ? taken : free).push_back(each);
    }
    if (free.size() + taken.size() > 1) {
        std::fprintf(stderr,
                     "simulated interface: %zu of them have the LDV name %s, so it may be any that answers; "
                     "give them serial numbers of their own\n",
                     free.size() + taken.size(), name.c_str());
    }
    if (!free.empty()) return *free.front();
    return taken.empty() ? bus.first() : *taken.front();
}

int open(Seam::State& state, const char* name, short* handle) {
    if (!state.isAttached() || !isNameOf(*state.board, name)) return LDV_NOT_FOUND;
    if (state.board->isDenied()) return LDV_ACCESS_DENIED;
    if (state.ldvChannels > 0 || !state.claim()) return LDV_ALREADY_OPEN;
    state.board->neuron.discardMessages();
    state.ldvChannels = 1;
    state.isLdvGone = false;
    *handle = handleOf(state);
    return LDV_OK;
}

bool isOpen(const Seam::State& state, short handle) {
    return state.board != nullptr && state.ldvChannels > 0 && handle == handleOf(state);
}

int write(Seam::State& state, short handle, const void* message, unsigned short length) {
    if (!isOpen(state, handle)) return LDV_NOT_OPEN;
    if (state.isLdvGone) return LDV_DEVICE_ERR;
    if (state.ldvScript) return LDV_OK;
    const auto* bytes = static_cast<const std::uint8_t*>(message);
    state.board->neuron.write({bytes, bytes + length});
    state.board->save();
    return LDV_OK;
}

int readScript(Seam::State::LdvScript& script, std::uint64_t now, Bytes& message) {
    if (script.steps.empty()) return LDV_NO_MSG_AVAIL;
    LdvStep& step = script.steps.front();
    if (now < script.start + step.atMs * std::uint64_t{1000}) return LDV_NO_MSG_AVAIL;
    message = step.message;
    const int status = step.status;
    if (--step.times == 0) script.steps.pop_front();
    return status;
}

int readNeuron(Neuron& neuron, Bytes& message) {
    auto next = neuron.read();
    if (!next) return LDV_NO_MSG_AVAIL;
    message = std::move(*next);
    return LDV_OK;
}

int read(Seam::State& state, short handle, Bytes& message) {
    if (!isOpen(state, handle)) return LDV_NOT_OPEN;
    if (state.isLdvGone) return LDV_DEVICE_ERR;
    return state.ldvScript ? readScript(*state.ldvScript, state.board->clock.now(), message)
                           : readNeuron(state.board->neuron, message);
}

void giveUp(Seam::State& state, short handle) {
    if (!isOpen(state, handle)) return;
    state.ldvChannels = 0;
    if (!state.isLdvGone) state.board->release();
}

}  // namespace

void Rig::scriptLdv(const std::vector<LdvStep>& steps) {
    const std::lock_guard lock(state_->mutex);
    state_->ldvScript = State::LdvScript{{steps.begin(), steps.end()}, now()};
}

}  // namespace sim

using sim::Function;
using sim::Seam;

#define TAVO_SEAM extern "C" TAVO_SIM_API

namespace {

template <class Text, class Body>
unsigned short call(sim::Rig& rig, Function function, Text text, Body body) {
    return static_cast<unsigned short>(Seam::call(rig, function, text, body));
}

}  // namespace

TAVO_SEAM unsigned short ldv_open(const char* deviceName, short* handle) {
    return call(
        sim::ownerOf(std::string(deviceName)), Function::ldv_open,
        [&] { return "ldv_open " + std::string(deviceName); },
        [&](Seam::State& state) { return sim::open(state, deviceName, handle); });
}

TAVO_SEAM unsigned short ldv_write(short handle, const void* message, unsigned short length) {
    return call(
        sim::ownerOf(handle), Function::ldv_write, [&] { return "ldv_write" + sim::hexBytes(message, length, length); },
        [&](Seam::State& state) { return sim::write(state, handle, message, length); });
}

TAVO_SEAM unsigned short ldv_read(short handle, void* message, unsigned short length) {
    sim::Bytes arrived;
    return call(
        sim::ownerOf(handle), Function::ldv_read,
        [&] { return "ldv_read" + sim::hexBytes(arrived.data(), arrived.size(), arrived.size()); },
        [&](Seam::State& state) -> int {
            const int status = sim::read(state, handle, arrived);
            if (arrived.size() > length) return LDV_INVALID_BUF_LEN;
            std::copy(arrived.begin(), arrived.end(), static_cast<std::uint8_t*>(message));
            return status;
        });
}

TAVO_SEAM unsigned short ldv_close(short handle) {
    sim::Rig& rig = sim::ownerOf(handle);
    const std::lock_guard lock(Seam::state(rig).mutex);
    const auto status = call(
        rig, Function::ldv_close, [] { return std::string("ldv_close"); },
        [&](Seam::State& state) { return sim::isOpen(state, handle) ? LDV_OK : LDV_NOT_OPEN; });
    sim::giveUp(Seam::state(rig), handle);  // also when it fails, as a closed bridge handle is
    return status;
}
