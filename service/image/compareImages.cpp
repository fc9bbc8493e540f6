#include <algorithm>
#include <cstring>

#include "tavo/service/image.h"

namespace tavo {
namespace {

class Comparer {
public:
    Comparer(const Image& wanted, const Image& chip, bool restBlank)
        : wanted_(wanted), chip_(chip), restBlank_(restBlank) {}

    /// The bytes of a page from one to another inside it.
    void page(std::uint32_t index, std::uint32_t from, std::uint32_t to);
    Comparison result;

private:
    bool isSame(std::uint32_t index) const;
    void note(std::uint32_t address, std::optional<std::uint8_t> wanted, std::uint8_t found);

    const Image& wanted_;
    const Image& chip_;
    bool restBlank_;
};

/// The short way for the pages that are alike: nearly all of them.
bool Comparer::isSame(std::uint32_t index) const {
    const auto* wanted = wanted_.page(index);
    const auto* found = chip_.page(index);
    if (wanted == nullptr && (found == nullptr || !restBlank_)) return true;
    return wanted != nullptr && found != nullptr && std::memcmp(wanted, found, kPageSize) == 0;
}

void Comparer::page(std::uint32_t index, std::uint32_t from, std::uint32_t to) {
    if (isSame(index)) return;
    for (std::uint32_t i = from; i <= to; ++i) {
        const std::uint32_t address = index * kPageSize + i;
        const auto byte = wanted_.at(address);
        const std::uint8_t found = chip_.at(address).value_or(0xFF);
        if (byte ? *byte != found : restBlank_ && found != 0xFF) note(address, byte, found);
    }
}

void Comparer::note(std::uint32_t address, std::optional<std::uint8_t> wanted, std::uint8_t found) {
    auto& all = result.differences;
    const std::uint32_t page = address / kPageSize;
    const std::uint32_t pageBefore = all.empty() ? 0 : all.back().range.last / kPageSize;
    if (all.empty() || page != pageBefore) ++result.pages;
    if (all.empty() || page > pageBefore + 1) all.push_back({{address, address}, 0, wanted, found});
    all.back().range.last = address;
    ++all.back().bytes;
    ++result.bytes;
}

}  // namespace

Comparison compare(const Image& wanted, const Image& chip, std::uint32_t size, bool restBlank) {
    if (size == 0) return {};
    return compare(wanted, chip, AddressRange{0, std::min(size, kAddressable) - 1}, restBlank);
}

Comparison compare(const Image& wanted, const Image& chip, const AddressRange& range, bool restBlank) {
    Comparer comparer(wanted, chip, restBlank);
    for (std::uint32_t index = range.first / kPageSize; index <= range.last / kPageSize; ++index) {
        const std::uint32_t start = index * kPageSize;
        const std::uint32_t from = std::max(range.first, start) - start;
        comparer.page(index, from, std::min(range.last, start + kPageSize - 1) - start);
    }
    return std::move(comparer.result);
}

}  // namespace tavo
