// What the readers of all formats have in common: bytes find their place, faults and changes are counted.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tavo/service/imageFile.h"

namespace tavo {

/// What a reader passes over or puts right. The order is that of the notes.
enum class Change : std::uint8_t {
    ByteOrderMark,
    CarriageReturn,
    Blanks,
    BlankLine,
    LowerCase,
    Segment,
    StartAddress,
    Divided,
    AddressRecord,
    EmptyRecord,
    Count_,
};

/// What to do about a fault; the same words in all formats.
namespace hint {
inline constexpr const char* kConvert = "leave --strict out, or convert it: tavo-util convert IN OUT.hex";
inline constexpr const char* kMakeAgain = "the file is damaged: make or copy it again";
inline constexpr const char* kWrongFile = "name the image that the firmware's build made";
}  // namespace hint

class ImageCollector {
public:
    ImageCollector(ImageFile& file, const ReadOptions& options) : file_(file), options_(options) {}

    const ReadOptions& options() const { return options_; }
    ImageFile& file() { return file_; }

    void fault(std::uint64_t line, const std::string& text, const std::string& remedy);
    /// A fault that many lines may have in common: told once, at the first of them.
    void cause(const std::string& name, std::uint64_t line, const std::string& text, const std::string& remedy,
               std::uint64_t offset = 0);
    void change(Change what) { ++changes_[static_cast<std::size_t>(what)]; }
    /// A change that is told as it is, before the counted ones.
    void note(const std::string& text) { file_.changes.push_back(text); }

    /// Data of one record, or of a part of a file without lines (line 0, and its offset). Too high: a fault. address is
    /// below 2^33.
    void place(std::uint64_t line, std::uint64_t address, const std::uint8_t* bytes, std::size_t size,
               std::uint64_t offset = 0);

    /// The fault of data that do not fit; offset: of the byte at first.
    void tooHigh(std::uint64_t line, std::uint64_t first, std::uint64_t last, std::uint64_t offset = 0);

    /// Sorts the faults and words the changes; afterwards the file is complete.
    void finish();

private:
    struct Cause {
        std::uint64_t line = 0;
        std::uint64_t lines = 0;
        std::string text;
        std::string remedy;
        std::uint64_t offset = 0;
    };

    ImageFile& file_;
    const ReadOptions& options_;
    std::map<std::string, Cause> causes_;
    std::uint64_t changes_[static_cast<std::size_t>(Change::Count_)] = {};
};

/// Two upper-case digits.
std::string hexByteText(unsigned value);

}  // namespace tavo
