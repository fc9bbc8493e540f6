// The bytes of a flash by address, with gaps; comparing two of them, and maps of a chip.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tavo/export.h"

namespace tavo {

/// Bytes that one page program of the flash takes.
inline constexpr std::uint32_t kPageSize = 256;
/// The flash commands carry 24 address bits.
inline constexpr std::uint32_t kAddressable = 1U << 24;

/// First and last address of some bytes side by side: never empty.
struct AddressRange {
    std::uint32_t first;  ///< the first address
    std::uint32_t last;   ///< the last address itself

    /// Bytes.
    std::uint64_t size() const { return std::uint64_t{last} - first + 1; }
    /// True when the address lies in it.
    bool contains(std::uint32_t address) const { return first <= address && address <= last; }
    /// Byte for byte.
    bool operator==(const AddressRange& other) const { return first == other.first && last == other.last; }
    /// Byte for byte.
    bool operator!=(const AddressRange& other) const { return !(*this == other); }
};

/// Memory: 72 KiB for each 64 KiB of addresses that hold a byte.
class TAVO_API Image {
public:
    Image();
    ~Image();
    /// Copies every byte.
    Image(const Image& other);
    /// Copies every byte.
    Image& operator=(const Image& other);
    Image(Image&& other) noexcept;  ///< other may then only be destroyed or assigned to
    /// The other one may then only be destroyed or assigned to.
    Image& operator=(Image&& other) noexcept;

    /// Two bytes that were to stand in one place.
    struct Overlap {
        std::uint32_t address;  ///< of the byte
        std::uint8_t before;    ///< the byte that came first
        std::uint8_t now;       ///< the byte that came later
    };

    /// Sets bytes; the later ones stay. address + size at most kAddressable.
    /// @return the first place where another byte stood before, if there is one
    std::optional<Overlap> add(std::uint32_t address, const std::uint8_t* bytes, std::size_t size);

    /// The byte there; none in a gap.
    std::optional<std::uint8_t> at(std::uint32_t address) const;
    /// The kPageSize bytes of a page as a chip holds them after programming: FF where the image has none.
    /// Null when the image has none at all in it. The pages of one 64 KiB lie side by side in memory. Good until
    /// the image changes. index below 65536.
    const std::uint8_t* page(std::uint32_t index) const;
    /// True when the image has every byte of that page.
    bool isWhole(std::uint32_t index) const;

    /// True without a byte.
    bool isEmpty() const { return count_ == 0; }
    /// Bytes, gaps left out.
    std::uint64_t byteCount() const { return count_; }
    std::uint32_t touchedPages() const;   ///< pages with a byte
    std::uint32_t pagesWithData() const;  ///< pages with a byte that is not FF
    std::uint32_t blankPages() const;     ///< pages with bytes, all FF
    /// Without gaps, in the order of their addresses.
    std::vector<AddressRange> ranges() const;
    /// What it has in that range.
    Image part(const AddressRange& range) const;

    /// SHA-256 of bytes and addresses, 64 lower-case digits: the same whatever the image was read from.
    /// Of an image without gaps that begins at 0 it is the SHA-256 of its bytes, as of a raw binary. Of any
    /// other: of the text "tavo image\n" and then, for each range, first address and size (four bytes
    /// each, most significant first) and the bytes.
    std::string identity() const;

    /// Byte for byte.
    bool operator==(const Image& other) const;
    /// Byte for byte.
    bool operator!=(const Image& other) const { return !(*this == other); }

private:
    struct Block;
    static constexpr std::size_t kBlocks = kAddressable / 0x10000;

    Block& block(std::size_t index);
    std::optional<Overlap> addOver(Block& block, std::uint32_t address, const std::uint8_t* bytes, std::size_t size);

    std::vector<std::unique_ptr<Block>> blocks_;
    std::uint64_t count_ = 0;
};

/// A place where a chip does not hold what an image has.
struct Difference {
    AddressRange range;                  ///< first to last byte that differs in pages side by side
    std::uint32_t bytes = 0;             ///< of them differ
    std::optional<std::uint8_t> wanted;  ///< first byte in the image; none: the image has no data there
    std::uint8_t found = 0;              ///< first byte in the chip
};

/// How an image and a chip differ.
struct Comparison {
    std::vector<Difference> differences;  ///< in the order of their addresses
    std::uint64_t bytes = 0;              ///< that differ
    std::uint32_t pages = 0;              ///< of 256 bytes with a difference
    /// True when nothing differs.
    bool equal() const { return bytes == 0; }
};

/// Compares the first size bytes of a chip with an image.
/// @param restBlank  bytes of the chip that the image does not cover must be FF
TAVO_API Comparison compare(const Image& wanted, const Image& chip, std::uint32_t size, bool restBlank);
/// The same of a part of the chip; inside of kAddressable.
TAVO_API Comparison compare(const Image& wanted, const Image& chip, const AddressRange& range, bool restBlank);

/// What a part of a map shows.
enum class MapCell : std::uint8_t {
    Gap,      ///< of an image: no byte
    Blank,    ///< of an image: all FF
    Part,     ///< of an image: some bytes
    Data,     ///< every byte of an image, any byte but FF of a chip
    Equal,    ///< of a chip: what the image has there, it has
    Differs,  ///< of a chip: something else
    Beyond,   ///< of a chip: data where the image has none
    Erased,   ///< of a chip: FF, and the image has nothing there
    Unread,   ///< of a chip: not looked at, or not all that the image has there
};

/// A chip as a grid from address 0, and the same as ranges.
struct ImageMap {
    static constexpr std::uint32_t kCells = 1024;  ///< to be drawn in rows of 64, 32, 16 ...

    /// Neighbouring addresses in one state.
    struct Range {
        AddressRange range;  ///< of neighbouring cells
        MapCell cell;        ///< what is there
    };

    std::uint32_t size = 0;               ///< bytes that the grid stands for
    std::uint32_t cellSize = 0;           ///< bytes of a cell
    std::array<MapCell, kCells> cells{};  ///< row by row, the lowest address first
    std::vector<Range> ranges;            ///< pages side by side that show the same; together the whole chip
};

/// @param chipSize  bytes; 0: the smallest power of two that holds the image
TAVO_API ImageMap mapImage(const Image& image, std::uint32_t chipSize = 0);
/// @param chip  what was read of it; the rest is Unread
TAVO_API ImageMap mapComparison(const Image& wanted, const Image& chip, std::uint32_t chipSize);
/// Data, Erased and Unread.
TAVO_API ImageMap mapContents(const Image& chip, std::uint32_t chipSize);

/// How often a state is on a map.
struct MapCount {
    MapCell cell;         ///< what is there
    std::uint32_t count;  ///< how many cells
};
/// What occurs in a map, and in how many cells.
TAVO_API std::vector<MapCount> mapLegend(const ImageMap& map);

TAVO_API char mapLetter(MapCell cell);           ///< ". f + #" of an image, "= X o . ?" of a chip
TAVO_API const char* mapCellName(MapCell cell);  ///< for programs: "equal", "unread"
TAVO_API const char* mapCellText(MapCell cell);  ///< for people: "equal", "not read"

}  // namespace tavo
