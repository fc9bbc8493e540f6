// The LDV driver's functions, answered by the simulated Neuron or by a test's script.
#include <algorithm>
#include <string>

#include "platform/ldv.h"
#include "sim/seam.h"

namespace sim {

namespace {

constexpr short kHandle = 1;  // one channel at a time, as the driver has it

/// The interface is known by its serial number and by its Neuron ID; the bridge maker's vendor ID puts a C in front.
bool isNameOf(const Board& board, const std::string& name) {
    constexpr UINT16 kBridgeMaker = 0x04B4;
    const CY_DEVICE_INFO info = board.bridge.describe();
    const char* family = info.vidPid.vid == kBridgeMaker ? "C" : "";
    const auto* id = &board.neuron.data.readOnly[NeuronData::kNeuronId];
    return name == text("%sSN%8s", family, info.serialNum) ||
           name == text("%sID%02x%02x%02x%02x%02x%02x", family, id[0], id[1], id[2], id[3], id[4], id[5]);
}

int open(Seam::State& state, const char* name, short* handle) {
    if (!state.board || !state.board->whyAbsent().empty() || !isNameOf(*state.board, name)) return LDV_NOT_FOUND;
    if (state.board->isDenied()) return LDV_ACCESS_DENIED;
    if (state.ldvChannels > 0 || !state.claim()) return LDV_ALREADY_OPEN;
    state.board->neuron.discardMessages();
    state.ldvChannels = 1;
    *handle = kHandle;
    return LDV_OK;
}

bool isOpen(const Seam::State& state, short handle) {
    return state.board != nullptr && state.ldvChannels > 0 && handle == kHandle;
}

int write(Seam::State& state, short handle, const void* message, unsigned short length) {
    if (!isOpen(state, handle)) return LDV_NOT_OPEN;
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
    return state.ldvScript ? readScript(*state.ldvScript, state.board->clock.now(), message)
                           : readNeuron(state.board->neuron, message);
}

void giveUp(Seam::State& state, short handle) {
    if (!isOpen(state, handle)) return;
    state.ldvChannels = 0;
    state.board->release();
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
unsigned short call(Function function, Text text, Body body) {
    return static_cast<unsigned short>(Seam::call(function, text, body));
}

}  // namespace

TAVO_SEAM unsigned short ldv_open(const char* deviceName, short* handle) {
    return call(
        Function::ldv_open, [&] { return "ldv_open " + std::string(deviceName); },
        [&](Seam::State& state) { return sim::open(state, deviceName, handle); });
}

TAVO_SEAM unsigned short ldv_write(short handle, const void* message, unsigned short length) {
    return call(
        Function::ldv_write, [&] { return "ldv_write" + sim::hexBytes(message, length, length); },
        [&](Seam::State& state) { return sim::write(state, handle, message, length); });
}

TAVO_SEAM unsigned short ldv_read(short handle, void* message, unsigned short length) {
    sim::Bytes arrived;
    return call(
        Function::ldv_read, [&] { return "ldv_read" + sim::hexBytes(arrived.data(), arrived.size(), arrived.size()); },
        [&](Seam::State& state) -> int {
            const int status = sim::read(state, handle, arrived);
            if (arrived.size() > length) return LDV_INVALID_BUF_LEN;
            std::copy(arrived.begin(), arrived.end(), static_cast<std::uint8_t*>(message));
            return status;
        });
}

TAVO_SEAM unsigned short ldv_close(short handle) {
    const std::lock_guard lock(Seam::state().mutex);
    const auto status = call(
        Function::ldv_close, [] { return std::string("ldv_close"); },
        [&](Seam::State& state) { return sim::isOpen(state, handle) ? LDV_OK : LDV_NOT_OPEN; });
    sim::giveUp(Seam::state(), handle);  // also when it fails, as a closed bridge handle is
    return status;
}
