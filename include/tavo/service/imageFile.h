// Images in files: read with every fault and its line, written in the formats that people use.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tavo/export.h"
#include "tavo/service/error.h"
#include "tavo/service/image.h"

namespace tavo {

class CancelToken;

/// What an image file is.
enum class Format : std::uint8_t { Automatic, Hex, SRecord, Binary, Elf };

TAVO_API const char* formatName(Format format);  ///< for people: "Intel HEX", "Motorola S-record" ...
/// By a word for programs and options: hex, srec, bin, elf, auto. Empty for any other.
TAVO_API std::optional<Format> formatOf(const std::string& word);
/// By the ending of a file name, ".gz" passed over; Automatic when it tells nothing.
TAVO_API Format formatByName(const std::string& path);
/// What a file under that name is written as: by its ending, else Intel HEX. Throws Error (BadArgument) for the ending
/// of something that is not written: ELF, gzip.
TAVO_API Format formatToWrite(const std::string& path);

/// How a file is read.
struct ReadOptions {
    /// Automatic: told by the content, and raw binary by the name's ending (.bin).
    Format format = Format::Automatic;
    /// Takes only what the library's own reader takes: Intel HEX with record types 00, 01 and 04 and line
    /// feeds, and nothing else in it.
    bool strict = false;
    /// Data above it are a fault. Bytes, at most kAddressable.
    std::uint32_t chipSize = kAddressable;
    /// Of the first byte of a raw binary; none: 0. Given for a file of another format it is a fault.
    std::optional<std::uint32_t> address;
    /// For a rewriting of the file: fills ImageFile::pieces, and counts as changes what only a rewriting
    /// changes (lower-case digits, records without effect).
    bool keepPieces = false;
    /// False leaves ImageFile::sha256 empty: it takes half of the time of a reading.
    bool digest = true;
    /// Ends the wait for a pipe or a terminal; borrowed.
    const CancelToken* cancel = nullptr;
};

/// One fault of a file, with its place and its remedy.
struct ImageFault {
    std::uint64_t line = 0;                    ///< from 1; 0: of the file as a whole, or of a format without lines
    std::string text;                          ///< what is wrong
    std::string hint;                          ///< what to do about it
    std::optional<std::uint64_t> offset = {};  ///< in the unpacked file, of a format without lines
};

/// "line 3: wrong checksum: expected A4, found A5", "offset 0x54: ..."
TAVO_API std::string faultText(const ImageFault& fault);

/// Bytes that one record of the file carries.
struct ImagePiece {
    std::uint32_t address;  ///< of its first byte
    std::uint32_t size;     ///< bytes
};

/// What was found in a file.
struct TAVO_API ImageFile {
    /// Faults kept with their text; the rest is counted. What many lines have in common is one fault.
    static constexpr std::size_t kListedFaults = 20;

    Image image;                        ///< as far as it could be read, when there are faults
    Format format = Format::Automatic;  ///< what the file is
    std::vector<ImageFault> faults;     ///< by line or offset
    std::uint64_t faultCount = 0;       ///< also those that are not listed
    bool endOfFileRecord = false;       ///< also true when the format has none and the file is whole
    std::uint64_t fileBytes = 0;        ///< as stored, before any unpacking
    std::string sha256;                 ///< of the file as stored; empty when it was not read to its end, or not wanted
    std::vector<std::string> changes;   ///< how the image differs in form from what strict reading takes
    std::vector<ImagePiece> pieces;     ///< in the order of the file; see ReadOptions::keepPieces

    /// True without a fault.
    bool isGood() const { return faultCount == 0; }

    /// The fault of data that a chip of that size cannot hold, if there are any: for a chip that became
    /// known after the reading. The line or offset is told when the size is a power of two.
    std::optional<ImageFault> faultAbove(std::uint32_t chipSize) const;

    /// Which line or offset brought the highest address.
    struct Reach {
        std::uint64_t line = 0;    ///< where it ends
        std::uint64_t lines = 0;   ///< in all
        std::uint32_t first = 0;   ///< address of the first byte
        std::uint32_t last = 0;    ///< address of the last byte
        std::uint64_t offset = 0;  ///< in the file
    };
    /// The first record that ends at 2^(i-1) to 2^i - 1, and how many do.
    std::array<Reach, 25> reaches{};
};

/// Reads the whole file and reports its faults in the result. path is a regular file.
/// Throws Error (FileSystem) when it cannot be read. Memory: the image; of ELF and gzip also the file, at
/// most 1 GiB.
TAVO_API ImageFile checkImage(const std::string& path, const ReadOptions& options = {});

/// The same from an open descriptor, which stays open: a pipe, standard input, a file.
/// @param name  what messages call it; its ending may tell the format
TAVO_API ImageFile checkImage(int descriptor, const std::string& name, const ReadOptions& options = {});

/// The image of a good file. Throws Error: FileRefused with every listed fault as a detail, FileSystem.
TAVO_API Image readImage(const std::string& path, const ReadOptions& options = {});

/// What to throw for a file with faults: names the first one; all of them are details.
TAVO_API Error refusal(const std::string& name, const ImageFile& file);
/// The failure of a file with that fault.
TAVO_API Error refusal(const std::string& name, const ImageFault& fault);

/// How an image is written.
struct WriteOptions {
    Format format = Format::Hex;     ///< Hex, SRecord or Binary
    std::uint32_t recordBytes = 32;  ///< data bytes of a record, 1 to 255 (S-record: 251)
    std::uint32_t address = 0;       ///< of the first byte of a raw binary
    std::vector<ImagePiece> pieces;  ///< write records of these bytes in this order; empty: by address
};

/// What writeImage wrote.
struct WrittenImage {
    std::uint64_t bytes = 0;  ///< of the file
    std::string sha256;       ///< of the file
};

/// Writes the image: records never cross a multiple of 64 KiB, but for pieces that do; a raw binary has FF in
/// the gaps.
/// @param name  what messages call the file
/// Throws Error: FileSystem; BadArgument for a format that cannot be written, or data below address.
TAVO_API WrittenImage writeImage(const Image& image, int descriptor, const std::string& name,
                                 const WriteOptions& options = {});

}  // namespace tavo
