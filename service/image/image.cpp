#include "tavo/service/image.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "service/image/sha256.h"

namespace tavo {
namespace {

constexpr std::uint32_t kBlockSize = 0x10000;
constexpr std::uint32_t kWordBits = 64;
constexpr std::uint64_t kAllBits = ~std::uint64_t{0};

constexpr auto kBlankPage = [] {
    std::array<std::uint8_t, kPageSize> page{};
    page.fill(0xFF);
    return page;
}();

bool isBlank(const std::uint8_t* page) {
    return std::memcmp(page, kBlankPage.data(), kPageSize) == 0;
}

/// Calls each(word index, mask) for the words that hold the bits first to first + size - 1.
template <class Each>
void forWords(std::uint32_t first, std::size_t size, Each each) {
    for (std::size_t at = first, end = first + size; at < end;) {
        const std::size_t bit = at % kWordBits;
        const std::size_t count = std::min(end - at, kWordBits - bit);
        each(at / kWordBits, kAllBits >> (kWordBits - count) << bit);
        at += count;
    }
}

void addNumber(Sha256& digest, std::uint64_t number) {
    const std::uint8_t bytes[] = {static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
                                  static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
    digest.add(bytes, sizeof bytes);
}

}  // namespace

/// 64 KiB of addresses. Bytes that are not present are FF, as an erased chip has them.
struct Image::Block {
    Block() { bytes.fill(0xFF); }

    bool anyPresent(std::uint32_t page) const {
        const auto* words = &present[page * kPageSize / kWordBits];
        return (words[0] | words[1] | words[2] | words[3]) != 0;
    }
    bool allPresent(std::uint32_t page) const {
        const auto* words = &present[page * kPageSize / kWordBits];
        return (words[0] & words[1] & words[2] & words[3]) == kAllBits;
    }

    std::array<std::uint8_t, kBlockSize> bytes;
    std::array<std::uint64_t, kBlockSize / kWordBits> present{};
};
static_assert(kPageSize == 4 * kWordBits, "anyPresent and allPresent look at four words");

Image::Image() : blocks_(kBlocks) {}
Image::~Image() = default;
Image::Image(Image&& other) noexcept = default;
Image& Image::operator=(Image&& other) noexcept = default;

Image::Image(const Image& other) : blocks_(other.blocks_.size()), count_(other.count_) {
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
        if (other.blocks_[i]) blocks_[i] = std::make_unique<Block>(*other.blocks_[i]);
    }
}

Image& Image::operator=(const Image& other) {
    return *this = Image(other);
}

Image::Block& Image::block(std::size_t index) {
    if (blocks_[index] == nullptr) blocks_[index] = std::make_unique<Block>();
    return *blocks_[index];
}

std::optional<Image::Overlap> Image::add(std::uint32_t address, const std::uint8_t* bytes, std::size_t size) {
    std::optional<Overlap> first;
    while (size > 0) {
        const std::uint32_t offset = address % kBlockSize;
        const std::size_t count = std::min<std::size_t>(size, kBlockSize - offset);
        Block& target = block(address / kBlockSize);
        std::uint64_t before = 0;
        forWords(offset, count, [&](std::size_t word, std::uint64_t mask) { before |= target.present[word] & mask; });
        if (before != 0) {
            const auto overlap = addOver(target, address, bytes, count);
            if (!first) first = overlap;
        } else {
            forWords(offset, count, [&](std::size_t word, std::uint64_t mask) { target.present[word] |= mask; });
            std::memcpy(&target.bytes[offset], bytes, count);
            count_ += count;
        }
        address += static_cast<std::uint32_t>(count);
        bytes += count;
        size -= count;
    }
    return first;
}

std::optional<Image::Overlap> Image::addOver(Block& target, std::uint32_t address, const std::uint8_t* bytes,
                                             std::size_t size) {
    std::optional<Overlap> first;
    for (std::uint32_t i = 0; i < size; ++i) {
        const std::uint32_t offset = address % kBlockSize + i;
        const std::uint64_t bit = std::uint64_t{1} << offset % kWordBits;
        auto& present = target.present[offset / kWordBits];
        if ((present & bit) == 0) ++count_;
        if ((present & bit) != 0 && !first && target.bytes[offset] != bytes[i])
            first = Overlap{address + i, target.bytes[offset], bytes[i]};
        present |= bit;
        target.bytes[offset] = bytes[i];
    }
    return first;
}

std::optional<std::uint8_t> Image::at(std::uint32_t address) const {
    const Block* found = address < kAddressable ? blocks_[address / kBlockSize].get() : nullptr;
    const std::uint32_t offset = address % kBlockSize;
    if (found == nullptr || (found->present[offset / kWordBits] >> offset % kWordBits & 1) == 0) return {};
    return found->bytes[offset];
}

const std::uint8_t* Image::page(std::uint32_t index) const {
    constexpr std::uint32_t kPages = kBlockSize / kPageSize;
    const Block* found = blocks_[index / kPages].get();
    if (found == nullptr || !found->anyPresent(index % kPages)) return nullptr;
    return &found->bytes[index % kPages * kPageSize];
}

bool Image::isWhole(std::uint32_t index) const {
    constexpr std::uint32_t kPages = kBlockSize / kPageSize;
    const Block* found = blocks_[index / kPages].get();
    return found != nullptr && found->allPresent(index % kPages);
}

std::uint32_t Image::touchedPages() const {
    std::uint32_t count = 0;
    for (const auto& each : blocks_) {
        for (std::uint32_t page = 0; each != nullptr && page < kBlockSize / kPageSize; ++page)
            count += each->anyPresent(page);
    }
    return count;
}

std::uint32_t Image::pagesWithData() const {
    std::uint32_t count = 0;
    for (const auto& each : blocks_) {
        for (std::uint32_t at = 0; each != nullptr && at < kBlockSize; at += kPageSize)
            count += !isBlank(&each->bytes[at]);
    }
    return count;
}

std::uint32_t Image::blankPages() const {
    std::uint32_t count = 0;
    for (const auto& each : blocks_) {
        for (std::uint32_t at = 0; each != nullptr && at < kBlockSize; at += kPageSize)
            count += each->anyPresent(at / kPageSize) && isBlank(&each->bytes[at]);
    }
    return count;
}

std::vector<AddressRange> Image::ranges() const {
    std::vector<AddressRange> found;
    const auto take = [&](std::uint32_t first, std::uint32_t size) {
        if (!found.empty() && found.back().last + 1 == first)
            found.back().last += size;
        else
            found.push_back({first, first + size - 1});
    };
    for (std::uint32_t index = 0; index < blocks_.size(); ++index) {
        if (blocks_[index] == nullptr) continue;
        for (std::uint32_t word = 0; word < kBlockSize / kWordBits; ++word) {
            std::uint64_t bits = blocks_[index]->present[word];
            std::uint32_t at = index * kBlockSize + word * kWordBits;
            while (bits != 0) {
                const int gap = std::countr_zero(bits);
                bits >>= gap;
                const int run = std::countr_one(bits);
                take(at + static_cast<std::uint32_t>(gap), static_cast<std::uint32_t>(run));
                at += static_cast<std::uint32_t>(gap + run);
                bits = run == kWordBits ? 0 : bits >> run;
            }
        }
    }
    return found;
}

Image Image::part(const AddressRange& range) const {
    Image found;
    for (const auto& each : ranges()) {
        const std::uint64_t end = std::uint64_t{std::min(each.last, range.last)} + 1;
        for (std::uint64_t at = std::max(each.first, range.first); at < end;) {
            const std::uint64_t count = std::min(end, (at / kPageSize + 1) * kPageSize) - at;
            const auto address = static_cast<std::uint32_t>(at);
            found.add(address, page(address / kPageSize) + address % kPageSize, count);
            at += count;
        }
    }
    return found;
}

std::string Image::identity() const {
    Sha256 digest;
    const auto all = ranges();
    const bool plain = all.size() == 1 && all.front().first == 0;
    constexpr char kMark[] = "tavo image\n";
    if (!plain) digest.add(kMark, sizeof kMark - 1);
    for (const auto& range : all) {
        if (!plain) addNumber(digest, range.first);
        if (!plain) addNumber(digest, range.size());
        for (std::uint64_t at = range.first; at <= range.last;) {
            const auto offset = static_cast<std::uint32_t>(at % kBlockSize);
            const auto count = std::min<std::uint64_t>(range.last + 1 - at, kBlockSize - offset);
            digest.add(&blocks_[at / kBlockSize]->bytes[offset], count);
            at += count;
        }
    }
    return digest.text();
}

bool Image::operator==(const Image& other) const {
    if (count_ != other.count_) return false;
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
        const Block* mine = blocks_[i].get();
        const Block* theirs = other.blocks_[i].get();
        if ((mine == nullptr) != (theirs == nullptr)) return false;
        if (mine != nullptr && (mine->present != theirs->present || mine->bytes != theirs->bytes)) return false;
    }
    return true;
}

}  // namespace tavo
