#include "cli/image.h"

#include <algorithm>

namespace cli {

bool Image::Page::isBlank() const {
    for (std::uint32_t i = 0; i < kPageSize; ++i) {
        if (present[i] && bytes[i] != 0xFF) return false;
    }
    return true;
}

std::optional<std::uint8_t> Image::put(std::uint32_t address, std::uint8_t byte) {
    auto& page = pages_[address / kPageSize];
    if (page == nullptr) page = std::make_unique<Page>();
    const std::uint32_t offset = address % kPageSize;
    std::optional<std::uint8_t> before;
    if (page->present[offset]) before = page->bytes[offset];
    if (!before) ++count_;
    page->bytes[offset] = byte;
    page->present[offset] = true;
    return before;
}

std::optional<std::uint8_t> Image::at(std::uint32_t address) const {
    const Page* found = address < kAddressable ? page(address / kPageSize) : nullptr;
    if (found == nullptr || !found->present[address % kPageSize]) return {};
    return found->bytes[address % kPageSize];
}

std::uint32_t Image::pagesWithData() const {
    return static_cast<std::uint32_t>(std::count_if(
        pages_.begin(), pages_.end(), [](const auto& page) { return page != nullptr && !page->isBlank(); }));
}

std::uint32_t Image::blankPages() const {
    return static_cast<std::uint32_t>(std::count_if(
        pages_.begin(), pages_.end(), [](const auto& page) { return page != nullptr && page->isBlank(); }));
}

std::vector<AddressRange> Image::ranges() const {
    std::vector<AddressRange> found;
    for (std::uint32_t index = 0; index < pages_.size(); ++index) {
        if (pages_[index] == nullptr) continue;
        for (std::uint32_t i = 0; i < kPageSize; ++i) {
            if (!pages_[index]->present[i]) continue;
            const std::uint32_t address = index * kPageSize + i;
            if (found.empty() || found.back().last + 1 != address) found.push_back({address, address});
            found.back().last = address;
        }
    }
    return found;
}

}  // namespace cli
