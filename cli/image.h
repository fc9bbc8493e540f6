// The bytes of a flash image by address, with gaps.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace cli {

inline constexpr std::uint32_t kPageSize = 256;
/// The flash commands carry 24 address bits.
inline constexpr std::uint32_t kAddressable = 1U << 24;

struct AddressRange {
    std::uint32_t first;
    std::uint32_t last;
};

class Image {
public:
    struct Page {
        std::array<std::uint8_t, kPageSize> bytes;
        std::bitset<kPageSize> present;
        bool isBlank() const;  ///< no byte present that is not FF
    };

    Image() : pages_(kAddressable / kPageSize) {}

    /// Sets a byte. @return the byte that stood there, if any. address below kAddressable.
    std::optional<std::uint8_t> put(std::uint32_t address, std::uint8_t byte);
    std::optional<std::uint8_t> at(std::uint32_t address) const;
    const Page* page(std::uint32_t index) const { return pages_[index].get(); }

    std::uint64_t byteCount() const { return count_; }
    std::uint32_t pagesWithData() const;  ///< pages with a byte that is not FF
    std::uint32_t blankPages() const;     ///< pages with bytes, all FF
    std::vector<AddressRange> ranges() const;

private:
    std::vector<std::unique_ptr<Page>> pages_;
    std::uint64_t count_ = 0;
};

}  // namespace cli
