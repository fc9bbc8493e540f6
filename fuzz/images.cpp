#include "fuzz/images.h"

#include <algorithm>

#include "fuzz/fuzz.h"
#include "tavo/hexFileReader.h"

namespace fuzz {
namespace {

using tavo::Format;
using tavo::Image;
using tavo::ImageFile;

constexpr std::uint32_t kLargestBinary = 0x40000;

ImageFile read(const std::string& content, Format format, bool strict = false, bool keepPieces = false) {
    const MemoryFile file(content);
    tavo::ReadOptions options;
    options.format = format;
    options.strict = strict;
    options.keepPieces = keepPieces;
    return tavo::checkImage(file.descriptor(), "input", options);
}

std::string written(const Image& image, const tavo::WriteOptions& options) {
    const MemoryFile file;
    const auto facts = tavo::writeImage(image, file.descriptor(), "output", options);
    const std::string content = file.content();
    HOLDS(facts.bytes == content.size());
    return content;
}

void checkFaults(const ImageFile& file, const std::string& content) {
    HOLDS(file.isGood() == file.faults.empty());
    HOLDS(file.faultCount >= file.faults.size());
    const auto lines = static_cast<std::uint64_t>(std::count(content.begin(), content.end(), '\n')) + 1;
    const bool isPacked = content.substr(0, 2) == "\x1F\x8B";
    const bool hasLines = file.format == Format::Hex || file.format == Format::SRecord;
    std::size_t withoutPlace = 0;
    std::uint64_t before = 0;
    for (const auto& fault : file.faults) {
        HOLDS(!fault.text.empty() && !fault.hint.empty());
        HOLDS(fault.line == 0 || hasLines);
        HOLDS(isPacked || fault.line <= lines);
        if (fault.line == 0 && !fault.offset) ++withoutPlace;
        if (fault.line == 0) continue;
        HOLDS(fault.line >= before);
        before = fault.line;
    }
    if (hasLines) HOLDS(withoutPlace <= 1);  // of the file as a whole there is one thing to say
    if (!file.isGood()) HOLDS(!tavo::refusal("input", file).details.empty());
}

/// The pages that the library would program.
Image libraryImage(const std::string& content) {
    Image image;
    IntelHexParser parser(tavo::kPageSize);
    for (std::size_t at = 0; at < content.size();) {
        const std::size_t end = std::min(content.find('\n', at), content.size());
        parser.ParseRecord(content.substr(at, end - at).c_str());
        at = end + 1;
        while (parser.isPageReady()) {
            const std::uint32_t address = parser.FetchAddress();
            const auto page = parser.FetchPage();
            HOLDS(page.size() <= tavo::kPageSize - address % tavo::kPageSize);
            HOLDS(std::uint64_t{address} + page.size() <= tavo::kAddressable);
            image.add(address, page.data(), page.size());
        }
    }
    return image;
}

/// What strict reading takes is what the library's own reader takes, and to both it is the same image.
void compareReaders(const std::string& content, const ImageFile& lenient) {
    const ImageFile strict = read(content, Format::Automatic, true);
    checkFaults(strict, content);
    if (!strict.isGood()) {
        if (lenient.isGood()) HOLDS(lenient.format != Format::Hex || !lenient.changes.empty());
        return;
    }
    HOLDS(lenient.isGood() && lenient.image == strict.image && lenient.changes.empty());
    HOLDS(libraryImage(content) == strict.image);
}

void checkWriting(const Image& image, Format format) {
    tavo::WriteOptions options;
    options.format = format;
    const std::string content = written(image, options);
    const ImageFile again = read(content, format, format == Format::Hex);
    HOLDS(again.isGood() && again.image == image && again.image.identity() == image.identity());
    HOLDS(written(again.image, options) == content);
    if (format == Format::Hex) HOLDS(libraryImage(content) == image);
}

void checkBinary(const Image& image) {
    const auto ranges = image.ranges();
    if (ranges.back().last - ranges.front().first >= kLargestBinary) return;
    tavo::WriteOptions options;
    options.format = Format::Binary;
    options.address = ranges.front().first;
    const std::string content = written(image, options);
    const MemoryFile file(content);
    tavo::ReadOptions how;
    how.format = Format::Binary;
    how.address = options.address;
    const ImageFile again = tavo::checkImage(file.descriptor(), "output", how);
    HOLDS(again.isGood() && again.image.ranges().size() == 1);
    HOLDS(tavo::compare(image, again.image, ranges.back().last + 1, true).equal());
}

/// A rewriting keeps the records' own division of the bytes, and after it there is nothing to change any more.
void checkRewriting(const std::string& content, const Image& image) {
    const ImageFile kept = read(content, Format::Automatic, false, true);
    HOLDS(kept.isGood() && kept.image == image);
    tavo::WriteOptions options;
    options.pieces = kept.pieces;
    const ImageFile again = read(written(image, options), Format::Hex, true, true);
    HOLDS(again.isGood() && again.image == image && again.changes.empty());
    HOLDS(again.pieces.size() == kept.pieces.size());
}

}  // namespace

ImageFile checkedImage(const std::string& content, Format format) {
    ImageFile file = read(content, format);
    checkFaults(file, content);
    compareReaders(content, file);
    if (!file.isGood()) return file;
    HOLDS(!file.image.isEmpty() && file.endOfFileRecord && file.fileBytes == content.size());
    checkWriting(file.image, Format::Hex);
    checkWriting(file.image, Format::SRecord);
    checkBinary(file.image);
    if (file.format == Format::Hex) checkRewriting(content, file.image);
    return file;
}

}  // namespace fuzz
