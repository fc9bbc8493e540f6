// What every function of the C interface needs: nothing is thrown across it, and records of either side's version
// are understood.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tavo/service.h"
#include "tavo/service/device.h"
#include "tavo/service/error.h"
#include "tavo/service/operation.h"

/// A device as C holds it. The flag keeps a second thread out.
struct tavo_device {
    tavo::Device device;
    std::atomic_flag isInUse;
};

struct tavo_monitor {
    tavo::CancelToken token;
    mutable std::mutex mutex;
    tavo_progress progress{};  // under the mutex
};

namespace tavo::c {

/// The monitor and the observer as the operations take them. Throws Error (BadArgument).
Control controlOf(const tavo_control* control);

/// False for an error record that cannot be filled; null is usable.
bool isUsable(const tavo_error* error) noexcept;
void tellSuccess(tavo_error* error) noexcept;
/// To be called while an exception is handled: makes the result and the record of it. Only an Error knows the state
/// of the device; mayBeTouched: what anything else leaves is not known then.
tavo_result tellFailure(tavo_error* error, bool mayBeTouched) noexcept;

/// Runs work; whatever it throws becomes the result and the record.
template <typename Work>
tavo_result guarded(tavo_error* error, const Work& work, bool mayBeTouched = false) noexcept {
    if (!isUsable(error)) return TAVO_PROBLEM_BAD_ARGUMENT;
    try {
        work();
        tellSuccess(error);
        return TAVO_OK;
    } catch (...) {
        return tellFailure(error, mayBeTouched);
    }
}

/// Throws the Error of a needed argument that is null. name as in the header.
void requireGiven(const void* argument, const char* name);

template <typename T>
T& given(T* argument, const char* name) {
    requireGiven(argument, name);
    return *argument;
}

/// Copies a text into a field of a record; one that does not fit is cut between two characters and ends in "...".
void putText(char* field, std::size_t capacity, std::string_view text);

template <std::size_t N>
void put(char (&field)[N], std::string_view text) {
    putText(field, N, text);
}

/// Throws the Error of a size that cannot be one of this record.
void requireSize(std::uint32_t size, const char* record);
/// Copies the options that both sides know; throws the Error of one that is set and that this library does not know.
void copyOptions(const void* from, std::uint32_t size, void* into, std::size_t known, const char* record);

/// The caller's options; a null record gives the defaults.
template <typename Record>
Record taken(const Record* record, const char* name) {
    Record known{};
    if (record != nullptr) copyOptions(record, record->size, &known, sizeof known, name);
    return known;
}

/// Fills as much of a record as both sides know, and the rest with zeros. record: of a right size, or null.
template <typename Record>
void fillRecord(Record* record, Record known) noexcept {
    if (record == nullptr) return;
    known.size = record->size;
    std::memset(record, 0, known.size);
    std::memcpy(record, &known, std::min<std::size_t>(known.size, sizeof known));
}

/// A record of the caller's that is to be filled; checked before anything is done. May be null.
template <typename Record>
class Out {
public:
    Out(Record* record, const char* name) : record_(record) {
        if (record_ != nullptr) requireSize(record_->size, name);
    }
    void fill(const Record& known) const { fillRecord(record_, known); }

private:
    Record* record_;
};

/// The place for a handle: null until it is filled.
template <typename Handle>
Handle*& emptied(Handle** place, const char* name) {
    given(place, name) = nullptr;
    return *place;
}

/// A device, kept from other threads and from observers meanwhile. Throws Error (Busy).
class InUse {
public:
    explicit InUse(tavo_device* handle);
    ~InUse() { handle_.isInUse.clear(); }
    InUse(const InUse&) = delete;
    InUse& operator=(const InUse&) = delete;

    Device& device() const { return handle_.device; }

private:
    tavo_device& handle_;
};

/// work(Device&, const Control&), as guarded.
template <typename Work>
tavo_result onDevice(tavo_device* handle, const tavo_control* control, tavo_error* error, const Work& work) noexcept {
    const auto guardedWork = [&] {
        const Control taken = controlOf(control);
        const InUse use(handle);
        work(use.device(), taken);
    };
    return guarded(error, guardedWork, true);
}

tavo_device_state stateOf(const DeviceState& state);
/// Lines, each ended by a line feed.
std::string linesOf(const std::vector<std::string>& lines);
/// One bit an index.
std::uint32_t bitsOf(const std::vector<unsigned>& indexes);
/// Fills a buffer of the caller's when all of it fits, and tells how much there is.
void hand(const std::string& bytes, char* buffer, std::uint32_t capacity, std::uint32_t* needed);
/// What an interface is looked for by; null: nothing.
std::vector<std::string> specsOf(const char* spec);
/// Throws the Error of an index or a number that names nothing.
[[noreturn]] void failNumber(const char* name, std::uint32_t number);

/// One of a list's elements. Throws Error (BadArgument).
template <typename Element>
const Element& at(const std::vector<Element>& list, std::uint32_t index, const char* name) {
    if (index < list.size()) return list[index];
    failNumber(name, index);
}

/// A value of an enumeration that is counted from 0. Throws Error (BadArgument).
template <typename Value>
Value valueOf(std::uint32_t number, Value last, const char* name) {
    if (number <= static_cast<std::uint32_t>(last)) return static_cast<Value>(number);
    failNumber(name, number);
}

/// Null becomes an empty text.
inline std::string textOf(const char* text) {
    return text == nullptr ? "" : text;
}

}  // namespace tavo::c
