#include "service/c/boundary.h"

#include <exception>
#include <new>

namespace tavo::c {
namespace {

constexpr std::uint32_t kSmallest = 8;
constexpr std::uint32_t kLargest = 65536;  // above: a size that was never set

constexpr bool isSame(Problem problem, tavo_result result) {
    return static_cast<tavo_result>(problem) + 1 == result;
}
static_assert(isSame(Problem::Internal, TAVO_PROBLEM_INTERNAL) && isSame(Problem::Busy, TAVO_PROBLEM_BUSY) &&
              isSame(Problem::Interrupted, TAVO_PROBLEM_INTERRUPTED));
static_assert(static_cast<int>(FlashState::Programmed) == TAVO_FLASH_PROGRAMMED &&
              static_cast<int>(Knowledge::Uncertain) == TAVO_PART_UNCERTAIN &&
              static_cast<int>(LineState::Unknown) == TAVO_LINE_UNKNOWN &&
              static_cast<int>(Scb0State::Unknown) == TAVO_SCB0_UNKNOWN);

constexpr const char* kOwnFault = "tell the makers of this library; tavo_doctor looks what the device is in";

bool isSize(std::uint32_t size) {
    return kSmallest <= size && size <= kLargest;
}

tavo_result tell(tavo_error* record, const Error& error) {
    tavo_error known{};
    known.result = static_cast<tavo_result>(error.problem) + 1;
    known.has_status = error.status.has_value();
    known.status = error.status.value_or(TAVO_SUCCESS);
    known.detail_count = static_cast<std::uint32_t>(error.details.size());
    known.state = stateOf(error.state);
    put(known.name, problemName(error.problem));
    if (error.status) put(known.status_name, statusName(*error.status));
    put(known.message, error.what());
    put(known.hint, error.hint);
    put(known.details, linesOf(error.details));
    fillRecord(record, known);
    return known.result;
}

/// What is left of a device by a failure that tells nothing of it.
tavo_device_state unknownState() noexcept {
    tavo_device_state state{};
    state.flash = TAVO_FLASH_UNCERTAIN;
    state.configuration = state.user_flash = state.node = TAVO_PART_UNCERTAIN;
    state.reset_line = state.service_line = TAVO_LINE_UNKNOWN;
    state.scb0 = TAVO_SCB0_UNKNOWN;
    state.flash_lost = 1;
    put(state.text, "not known what the device holds now");
    return state;
}

/// Needs no memory.
tavo_result tellPlainly(tavo_error* record, tavo_result result, const char* text, const char* hint,
                        bool mayBeTouched) noexcept {
    tavo_error known{};
    known.result = result;
    put(known.name, tavo_result_name(result));
    put(known.message, text);
    put(known.hint, hint);
    mayBeTouched ? void(known.state = unknownState()) : put(known.state.text, "device not touched");
    fillRecord(record, known);
    return result;
}

/// The bytes of a text that fit, without a part of a character at the end.
std::size_t wholeCharacters(std::string_view text, std::size_t room) {
    while (room > 0 && (static_cast<unsigned char>(text[room]) & 0xC0U) == 0x80U) --room;
    return room;
}

}  // namespace

bool isUsable(const tavo_error* error) noexcept {
    return error == nullptr || isSize(error->size);
}

void tellSuccess(tavo_error* error) noexcept {
    tavo_error known{};
    put(known.name, tavo_result_name(TAVO_OK));
    fillRecord(error, known);
}

tavo_result tellFailure(tavo_error* error, bool mayBeTouched) noexcept {
    try {
        throw;
    } catch (const Error& failure) {
        try {
            return tell(error, failure);
        } catch (const std::exception&) {  // no memory for the words
            const tavo_result result = static_cast<tavo_result>(failure.problem) + 1;
            return tellPlainly(error, result, failure.what(), failure.hint.c_str(), mayBeTouched);
        }
    } catch (const std::bad_alloc&) {
        return tellPlainly(error, TAVO_PROBLEM_INTERNAL, "out of memory", "close other programs: memory is short",
                           mayBeTouched);
    } catch (const std::exception& failure) {
        return tellPlainly(error, TAVO_PROBLEM_INTERNAL, failure.what(), kOwnFault, mayBeTouched);
    } catch (...) {
        return tellPlainly(error, TAVO_PROBLEM_INTERNAL, "an unknown exception", kOwnFault, mayBeTouched);
    }
}

void requireGiven(const void* argument, const char* name) {
    if (argument != nullptr) return;
    throw Error(Problem::BadArgument, std::string("no ") + name + " given: it is null", "this argument is needed");
}

void putText(char* field, std::size_t capacity, std::string_view text) {
    constexpr std::string_view kCut = "...";
    const bool fits = text.size() < capacity;
    const std::size_t kept = fits ? text.size() : wholeCharacters(text, capacity - kCut.size() - 1);
    text.copy(field, kept);
    if (!fits) kCut.copy(field + kept, kCut.size());
    field[kept + (fits ? 0 : kCut.size())] = '\0';
}

void requireSize(std::uint32_t size, const char* record) {
    if (isSize(size)) return;
    throw Error(Problem::BadArgument, std::string("the record '") + record + "' has size " + std::to_string(size),
                "set its first member to the size of the record before the call");
}

void copyOptions(const void* from, std::uint32_t size, void* into, std::size_t known, const char* record) {
    requireSize(size, record);
    const auto* bytes = static_cast<const unsigned char*>(from);
    std::memcpy(into, bytes, std::min<std::size_t>(size, known));
    if (size <= known || std::all_of(bytes + known, bytes + size, [](unsigned char byte) { return byte == 0; })) return;
    throw Error(Problem::BadArgument, std::string("the record '") + record + "' sets an option of a later version",
                std::string("this library is version ") + tavo_version() + ": install a later one");
}

InUse::InUse(tavo_device* handle) : handle_(given(handle, "device")) {
    if (!handle_.isInUse.test_and_set()) return;
    throw Error(Problem::Busy, "another operation of this process runs on " + handle_.device.name(),
                "wait until it has returned");
}

tavo_device_state stateOf(const DeviceState& state) {
    tavo_device_state told{};
    told.flash = static_cast<std::uint32_t>(state.flash);
    told.configuration = static_cast<std::uint32_t>(state.configuration.knowledge);
    told.user_flash = static_cast<std::uint32_t>(state.userFlash.knowledge);
    told.node = static_cast<std::uint32_t>(state.node.knowledge);
    told.reset_line = static_cast<std::uint32_t>(state.resetLine);
    told.service_line = static_cast<std::uint32_t>(state.serviceLine);
    told.scb0 = static_cast<std::uint32_t>(state.scb0);
    told.something_held = state.isSomethingHeld();
    told.flash_lost = state.isFlashLost();
    put(told.text, state.text());
    return told;
}

std::string linesOf(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines) text += line + "\n";
    return text;
}

std::uint32_t bitsOf(const std::vector<unsigned>& indexes) {
    std::uint32_t bits = 0;
    for (const unsigned index : indexes) bits |= 1U << index;
    return bits;
}

void hand(const std::string& bytes, char* buffer, std::uint32_t capacity, std::uint32_t* needed) {
    if (needed != nullptr) *needed = static_cast<std::uint32_t>(bytes.size());
    if (bytes.size() <= capacity) std::copy(bytes.begin(), bytes.end(), &given(buffer, "buffer"));
}

std::vector<std::string> specsOf(const char* spec) {
    return spec == nullptr ? std::vector<std::string>{} : std::vector<std::string>{spec};
}

void failNumber(const char* name, std::uint32_t number) {
    throw Error(Problem::BadArgument, std::string("there is no ") + name + " " + std::to_string(number),
                "they are counted from 0; the ranges are in tavo/service.h");
}

}  // namespace tavo::c

const char* tavo_result_name(tavo_result result) {
    if (result == TAVO_OK) return "ok";
    const bool isKnown = TAVO_PROBLEM_INTERNAL <= result && result <= TAVO_PROBLEM_INTERRUPTED;
    return isKnown ? tavo::problemName(static_cast<tavo::Problem>(result - 1)) : "unknown";
}

const char* tavo_version() {
    return TAVO_VERSION;
}
