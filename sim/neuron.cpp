#include "sim/neuron.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace sim {

namespace {

constexpr std::uint64_t kMillisecond = 1000;
constexpr std::uint64_t kBootTime = 200 * kMillisecond;
constexpr std::uint64_t kAnswerTime = 5 * kMillisecond;
constexpr std::size_t kFirstPage = 256;                        // of the flash: the image's header lies there
constexpr std::uint64_t kServiceHold = 10'000 * kMillisecond;  // held this long, the service pin unconfigures the node

// Reset causes and node states of ISO/IEC 14908-1.
constexpr std::uint8_t kExternalReset = 0x02;
constexpr std::uint8_t kSoftwareReset = 0x14;
constexpr std::uint8_t kUnconfigured = 0x02;
constexpr std::uint8_t kConfigured = 0x04;
constexpr std::uint8_t kHardOffline = 0x06;

// Network-interface format: 2 bytes header, 3 bytes message header, 11 bytes address, code, data.
constexpr std::uint8_t kInterfaceReset = 0x50;
constexpr std::uint8_t kRequestQueued = 0x22;    // transaction queue
constexpr std::uint8_t kRequestUnqueued = 0x24;  // non-transaction queue
constexpr std::uint8_t kIncoming = 0x16;         // answer or message, to the host
constexpr std::uint8_t kLocalAddress = 0x7F;
constexpr std::uint8_t kResponseFlag = 0x01;
constexpr std::size_t kAddress = 5;
constexpr std::size_t kCode = 16;
constexpr std::size_t kParameters = 17;

constexpr std::uint8_t kServicePinMessage = 0x7F;
constexpr std::uint8_t kQueryStatus = 0x51;

Bytes incoming(std::uint8_t flags, std::uint8_t code, const Bytes& data) {
    const auto dataLength = static_cast<std::uint8_t>(1 + data.size());
    Bytes message{kIncoming, static_cast<std::uint8_t>(14 + dataLength), 0x60, flags, dataLength, kLocalAddress};
    message.resize(kCode);
    message.push_back(code);
    message.insert(message.end(), data.begin(), data.end());
    return message;
}

/// Success answers: the code minus 0x40, of the diagnostic minus 0x20; failures 0x20 lower still.
std::uint8_t successCode(std::uint8_t code) {
    return static_cast<std::uint8_t>(code - (code == kQueryStatus ? 0x20 : 0x40));
}

Bytes success(std::uint8_t code, const Bytes& data = {}) {
    return incoming(kResponseFlag, successCode(code), data);
}

Bytes failure(std::uint8_t code) {
    return incoming(kResponseFlag, static_cast<std::uint8_t>(successCode(code) - 0x20), {});
}

/// Messages of other nodes: network-variable updates, and now and then a service pin.
Bytes unsolicitedMessage(std::uint32_t n) {
    if (n % 4 == 3) return incoming(0, kServicePinMessage, Bytes(14, 0xEE));
    return incoming(0, 0x80, {0x01, static_cast<std::uint8_t>(n), 0x00});
}

using Request = const Bytes&;

Bytes queryStatus(NeuronData& data, Request request) {
    Bytes answer = success(request[kCode], {data.status.begin(), data.status.end()});
    for (std::size_t low = 1; low < data.growth.size(); low += 2) {  // of each counter, which goes over FFFF to 0
        const int sum = (data.status[low - 1] << 8 | data.status[low]) + (data.growth[low - 1] << 8 | data.growth[low]);
        data.status[low - 1] = static_cast<std::uint8_t>(sum >> 8);
        data.status[low] = static_cast<std::uint8_t>(sum);
    }
    return answer;
}

Bytes setNodeMode(NeuronData& data, Request request) {
    constexpr std::uint8_t kChangeState = 3;
    if (request.size() < kParameters + 2 || request[kParameters] != kChangeState) return failure(request[kCode]);
    const std::uint8_t state = request[kParameters + 1];
    if (state != kUnconfigured && state != kConfigured && state != kHardOffline) return failure(request[kCode]);
    data.status[NeuronData::kNodeState] = state;
    return success(request[kCode]);
}

Bytes readMemory(NeuronData& data, Request request) {
    constexpr std::uint8_t kReadOnlyRelative = 1;
    if (request.size() < kParameters + 4 || request[kParameters] != kReadOnlyRelative) return failure(request[kCode]);
    const std::size_t offset = static_cast<std::size_t>(request[kParameters + 1] << 8 | request[kParameters + 2]);
    const std::size_t count = request[kParameters + 3];
    if (offset + count > data.readOnly.size()) return failure(request[kCode]);
    const auto* first = data.readOnly.data() + offset;
    return success(request[kCode], {first, first + count});
}

Bytes queryDomain(NeuronData& data, Request request) {
    if (request.size() <= kParameters || request[kParameters] >= data.domains.size()) return failure(request[kCode]);
    const auto& entry = data.domains[request[kParameters]];
    return success(request[kCode], {entry.begin(), entry.end()});
}

Bytes updateDomain(NeuronData& data, Request request) {
    constexpr std::size_t kEntry = kParameters + 1;
    if (request.size() < kEntry + sizeof data.domains[0] || request[kParameters] >= data.domains.size()) {
        return failure(request[kCode]);
    }
    auto& entry = data.domains[request[kParameters]];
    std::copy_n(request.begin() + kEntry, entry.size(), entry.begin());
    return success(request[kCode]);
}

struct Service {
    std::uint8_t code;
    Bytes (*answer)(NeuronData&, Request);
};
constexpr Service kServices[] = {
    {kQueryStatus, queryStatus}, {0x63, updateDomain}, {0x6A, queryDomain}, {0x6C, setNodeMode}, {0x6D, readMemory},
};

// The folder's text: blocks in hexadecimal, numbers in decimal.

struct Block {
    const char* key;
    std::uint8_t* (*first)(NeuronData&);
    std::size_t size;
};
constexpr Block kBlocks[] = {
    {"neuron.id", [](NeuronData& d) { return &d.readOnly[NeuronData::kNeuronId]; }, 6},
    {"neuron.program-id", [](NeuronData& d) { return &d.readOnly[NeuronData::kProgramId]; }, 8},
    {"neuron.counters", [](NeuronData& d) { return d.status.data(); }, 10},
    {"neuron.growth", [](NeuronData& d) { return d.growth.data(); }, 10},
    {"neuron.reset-cause", [](NeuronData& d) { return &d.status[NeuronData::kResetCause]; }, 1},
    {"neuron.state", [](NeuronData& d) { return &d.status[NeuronData::kNodeState]; }, 1},
    {"neuron.version", [](NeuronData& d) { return &d.status[NeuronData::kVersion]; }, 1},
    {"neuron.error-log", [](NeuronData& d) { return &d.status[NeuronData::kErrorLog]; }, 1},
    {"neuron.model", [](NeuronData& d) { return &d.status.back(); }, 1},
    {"neuron.domain0", [](NeuronData& d) { return d.domains[0].data(); }, 15},
    {"neuron.domain1", [](NeuronData& d) { return d.domains[1].data(); }, 15},
};

constexpr const char* kAnswerKey = "neuron.answer";
constexpr const char* kAnswerNames[] = {"normal", "negative", "wrong", "stranger", "silent"};  // as in Answers

constexpr const char* kBootsFromKey = "neuron.boots-from";

struct Number {
    const char* key;
    std::uint32_t NeuronBehaviour::*value;
};
constexpr Number kNumbers[] = {{"neuron.delay-ms", &NeuronBehaviour::delayMs},
                               {"neuron.unsolicited", &NeuronBehaviour::unsolicited}};

bool parseHex(const std::string& text, std::uint8_t* out, std::size_t size) {
    if (text.size() != 2 * size) return false;
    for (std::size_t i = 0; i < size; ++i) {
        const char* digits = text.data() + 2 * i;
        if (std::from_chars(digits, digits + 2, out[i], 16).ptr != digits + 2) return false;
    }
    return true;
}

std::string hex(const std::uint8_t* bytes, std::size_t size) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0x0F];
    }
    return text;
}

const std::string* find(const Properties& properties, const char* key) {
    const auto found = properties.find(key);
    return found == properties.end() ? nullptr : &found->second;
}

void require(bool accepted, const char* key, const std::string& what) {
    if (!accepted) throw std::invalid_argument(std::string(key) + ": " + what + " expected");
}

void loadBehaviour(const Properties& properties, NeuronBehaviour& behaviour) {
    if (const auto* name = find(properties, kAnswerKey)) {
        const auto* known = std::find(std::begin(kAnswerNames), std::end(kAnswerNames), *name);
        require(known != std::end(kAnswerNames), kAnswerKey, "normal, negative, wrong, stranger or silent");
        behaviour.answers = static_cast<NeuronBehaviour::Answers>(known - kAnswerNames);
    }
    for (const Number& number : kNumbers) {
        const auto* text = find(properties, number.key);
        if (text == nullptr) continue;
        const char* end = text->data() + text->size();
        const auto [stop, error] = std::from_chars(text->data(), end, behaviour.*number.value);
        require(stop == end && error == std::errc{}, number.key, "a number");
    }
}

}  // namespace

NeuronData::NeuronData() {
    constexpr std::uint8_t kIdentity[] = {0x05, 0x01, 0x02, 0x03, 0x04, 0x05};
    constexpr std::uint8_t kProgram[] = {0x9F, 0xFF, 0xFF, 0x05, 0x01, 0x84, 0x04, 0x60};
    std::copy(std::begin(kIdentity), std::end(kIdentity), readOnly.begin() + kNeuronId);
    std::copy(std::begin(kProgram), std::end(kProgram), readOnly.begin() + kProgramId);
    readOnly[kModel] = 0x08;
    status[kResetCause] = 0x01;  // power-up
    status[kNodeState] = kConfigured;
    status[kVersion] = 0x16;
    status.back() = readOnly[kModel];
    domains[0] = {0x4A, 0,    0,    0,    0,    0,    0x01, 0x8A,
                  0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};  // domain 4A, subnet 1, node 10
    domains[1] = {0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0x80};        // not in use
}

void Neuron::load(const Properties& properties) {
    for (const Block& block : kBlocks) {
        const auto* text = find(properties, block.key);
        if (text == nullptr) continue;
        require(parseHex(*text, block.first(data), block.size), block.key,
                std::to_string(2 * block.size) + " hexadecimal digits");
    }
    data.readOnly[NeuronData::kModel] = data.status.back();
    if (const auto* from = find(properties, kBootsFromKey)) {
        require(*from == "factory" || *from == "flash", kBootsFromKey, "factory or flash");
        hasFactoryProgram_ = *from == "factory";
    }
    loadBehaviour(properties, behaviour);
    lookAtFlash();
}

void Neuron::save(Properties& properties) const {
    NeuronData copy = data;
    for (const Block& block : kBlocks) properties[block.key] = hex(block.first(copy), block.size);
    properties[kBootsFromKey] = hasFactoryProgram_ ? "factory" : "flash";
    properties[kAnswerKey] = kAnswerNames[static_cast<std::size_t>(behaviour.answers)];
    for (const Number& number : kNumbers) properties[number.key] = std::to_string(behaviour.*number.value);
}

std::uint64_t Neuron::after(std::uint64_t microseconds) const {
    return clock_.now() + (clock_.isPaced() ? microseconds : 0);
}

void Neuron::setReset(bool held) {
    const bool isReleased = held_ && !held;
    held_ = held;
    if (held) outgoing_.clear();
    if (isReleased) boot(kExternalReset);
}

bool Neuron::canBoot() {
    const auto page = flash_.first(std::min(kFirstPage, flash_.size()));
    const bool blank = std::all_of(page.begin(), page.end(), [](std::uint8_t byte) { return byte == 0xFF; });
    if (!blank) hasFactoryProgram_ = false;
    return hasFactoryProgram_ || !blank;
}

void Neuron::boot(std::uint8_t resetCause) {
    outgoing_.clear();
    isStarted_ = canBoot();
    if (!isStarted_) return;
    data.status[NeuronData::kResetCause] = resetCause;
    runningFrom_ = after(kBootTime);
    post({kInterfaceReset, 0x00}, runningFrom_ + behaviour.delayMs * kMillisecond);
}

void Neuron::setService(bool pressed) {
    if (pressed && !pressed_) {
        pressedAt_ = clock_.now();
        if (isRunning()) sendServicePinMessage();
    }
    if (!pressed && pressed_ && isStarted_ && clock_.now() - pressedAt_ >= kServiceHold) {
        data.status[NeuronData::kNodeState] = kUnconfigured;
    }
    pressed_ = pressed;
}

void Neuron::sendServicePinMessage() {
    const auto id = data.readOnly.begin() + NeuronData::kNeuronId;
    const auto program = data.readOnly.begin() + NeuronData::kProgramId;
    Bytes identity(id, id + 6);
    identity.insert(identity.end(), program, program + 8);
    post(incoming(0, kServicePinMessage, identity), clock_.now());
}

void Neuron::write(const Bytes& message) {
    if (!isRunning() || message.empty()) return;
    if (message[0] == kInterfaceReset) return boot(kSoftwareReset);
    const bool isRequest = message[0] == kRequestQueued || message[0] == kRequestUnqueued;
    if (!isRequest || message.size() <= kCode || message[kAddress] != kLocalAddress) return;

    const auto when = after(kAnswerTime) + behaviour.delayMs * kMillisecond;
    for (std::uint32_t i = 0; i < behaviour.unsolicited; ++i) post(unsolicitedMessage(i), when);
    if (const Bytes answer = distort(answerTo(message)); !answer.empty()) post(answer, when);
}

Bytes Neuron::answerTo(const Bytes& request) {
    if (behaviour.answers == NeuronBehaviour::Answers::Negative) return failure(request[kCode]);
    const auto* service = std::find_if(std::begin(kServices), std::end(kServices),
                                       [&](const Service& s) { return s.code == request[kCode]; });
    return service == std::end(kServices) ? failure(request[kCode]) : service->answer(data, request);
}

Bytes Neuron::distort(Bytes answer) const {
    switch (behaviour.answers) {
        case NeuronBehaviour::Answers::Normal:
        case NeuronBehaviour::Answers::Negative:
            return answer;
        case NeuronBehaviour::Answers::Wrong:
            --answer[1];
            answer.pop_back();
            return answer;
        case NeuronBehaviour::Answers::Stranger:
            return success(0x6E, {0x00});
        case NeuronBehaviour::Answers::Silent:
            break;
    }
    return {};
}

std::optional<Bytes> Neuron::read() {
    const auto next = outgoing_.begin();
    if (next == outgoing_.end() || next->first > clock_.now()) return std::nullopt;
    Bytes message = std::move(next->second);
    outgoing_.erase(next);
    return message;
}

}  // namespace sim
