#include <algorithm>
#include <array>
#include <cstring>

#include "service/image/sha256.h"
#include "tavo/service/files.h"
#include "tavo/service/imageFile.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr std::uint32_t kBlock = 0x10000;
constexpr std::size_t kFlushAt = 128 * 1024;
constexpr std::size_t kLongestText = 2 * (256 + 6);

/// Two digits for each byte. @return the sum of the bytes. The loops are plain, so that the compiler makes vector
/// code of them.
unsigned encodeDigits(const std::uint8_t* bytes, std::size_t size, char* text) {
    unsigned sum = 0;
    for (std::size_t i = 0; i < size; ++i) sum += bytes[i];
    for (std::size_t i = 0; i < size; ++i) {
        const auto high = static_cast<std::uint8_t>(bytes[i] >> 4);
        const auto low = static_cast<std::uint8_t>(bytes[i] & 0xF);
        text[2 * i] = static_cast<char>(high + (high > 9 ? 'A' - 10 : '0'));
        text[2 * i + 1] = static_cast<char>(low + (low > 9 ? 'A' - 10 : '0'));
    }
    return sum;
}

/// Gathers what is written into large pieces.
class Output {
public:
    Output(int descriptor, const std::string& name)
        : descriptor_(descriptor), name_(name), text_(kFlushAt + kLongestText) {}

    /// Room for one record's text; give it back with taken.
    char* room() {
        if (size_ >= kFlushAt) flush();
        return text_.data() + size_;
    }
    void taken(const char* end) { size_ = static_cast<std::size_t>(end - text_.data()); }
    /// size at most kLongestText.
    void add(const void* data, std::size_t size) {
        char* at = room();
        std::memcpy(at, data, size);
        taken(at + size);
    }
    WrittenImage finish() {
        flush();
        return {bytes_, digest_.text()};
    }

private:
    void flush() {
        put(text_.data(), size_);
        size_ = 0;
    }
    void put(const char* data, std::size_t size) {
        digest_.add(data, size);
        writeAll(descriptor_, data, size, name_);
        bytes_ += size;
    }

    int descriptor_;
    const std::string& name_;
    std::vector<char> text_;
    std::size_t size_ = 0;
    std::uint64_t bytes_ = 0;
    Sha256 digest_;
};

/// The text of one record while it is built, with the sum of its bytes.
class RecordText {
public:
    RecordText(Output& output, const char* start) : output_(output), at_(output.room()) {
        for (; *start != '\0'; ++start) *at_++ = *start;
    }
    void number(std::uint32_t value, unsigned count) {
        std::uint8_t bytes[4];
        for (unsigned i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>(value >> 8 * (count - 1 - i));
        data(bytes, count);
    }
    void data(const std::uint8_t* bytes, std::size_t size) {
        sum_ += encodeDigits(bytes, size, at_);
        at_ += 2 * size;
    }
    void end(unsigned base) {
        number((base - sum_) & 0xFF, 1);
        *at_++ = '\n';
        output_.taken(at_);
    }

private:
    Output& output_;
    char* at_;
    unsigned sum_ = 0;
};

class HexWriter {
public:
    static constexpr std::uint32_t kMostBytes = 255;

    HexWriter(Output& output, const Image&) : output_(output) {}

    void record(std::uint32_t address, const std::uint8_t* bytes, std::size_t size) {
        if (address / kBlock != upper_) announce(address / kBlock);
        emit(kData, address % kBlock, bytes, size);
    }
    void finish() { emit(kEndOfFile, 0, nullptr, 0); }

private:
    static constexpr unsigned kData = 0;
    static constexpr unsigned kEndOfFile = 1;
    static constexpr unsigned kExtendedLinear = 4;

    void announce(std::uint32_t upper) {
        const std::uint8_t bytes[] = {static_cast<std::uint8_t>(upper >> 8), static_cast<std::uint8_t>(upper)};
        emit(kExtendedLinear, 0, bytes, sizeof bytes);
        upper_ = upper;
    }
    void emit(unsigned type, std::uint32_t offset, const std::uint8_t* bytes, std::size_t size) {
        RecordText text(output_, ":");
        text.number(static_cast<std::uint32_t>(size), 1);
        text.number(offset, 2);
        text.number(type, 1);
        text.data(bytes, size);
        text.end(0);
    }

    Output& output_;
    std::uint32_t upper_ = 0;
};

class SRecordWriter {
public:
    static constexpr std::uint32_t kMostBytes = 251;  // and three address bytes and the checksum: 255

    SRecordWriter(Output& output, const Image& image) : output_(output) {
        const auto ranges = image.ranges();
        if (!ranges.empty() && ranges.back().last >= kBlock) addressBytes_ = 3;
        emit("S0", 0, 2, nullptr, 0);
    }
    void record(std::uint32_t address, const std::uint8_t* bytes, std::size_t size) {
        ++records_;
        emit(addressBytes_ == 2 ? "S1" : "S2", address, addressBytes_, bytes, size);
    }
    void finish() {
        if (records_ < 1U << 16)
            emit("S5", records_, 2, nullptr, 0);
        else if (records_ < 1U << 24)
            emit("S6", records_, 3, nullptr, 0);
        emit(addressBytes_ == 2 ? "S9" : "S8", 0, addressBytes_, nullptr, 0);
    }

private:
    void emit(const char* type, std::uint32_t address, unsigned addressBytes, const std::uint8_t* bytes,
              std::size_t size) {
        RecordText text(output_, type);
        text.number(static_cast<std::uint32_t>(size) + addressBytes + 1, 1);
        text.number(address, addressBytes);
        text.data(bytes, size);
        text.end(0xFF);
    }

    Output& output_;
    unsigned addressBytes_ = 2;
    std::uint32_t records_ = 0;
};

std::vector<ImagePiece> piecesOf(const Image& image) {
    std::vector<ImagePiece> pieces;
    for (const auto& range : image.ranges()) pieces.push_back({range.first, static_cast<std::uint32_t>(range.size())});
    return pieces;
}

constexpr std::size_t kLongestRecord = 255;

/// The image's own bytes where they lie side by side in memory, and that is within 64 KiB; else a copy.
const std::uint8_t* bytesOf(const Image& image, std::uint32_t at, std::uint32_t count,
                            std::array<std::uint8_t, kLongestRecord>& gathered) {
    if (at % kBlock + count <= kBlock) return image.page(at / kPageSize) + at % kPageSize;
    for (std::uint32_t i = 0; i < count; ++i) gathered[i] = image.at(at + i).value_or(0xFF);
    return gathered.data();
}

template <class Writer>
void writeRecords(const Image& image, Output& output, const WriteOptions& options) {
    const bool kept = !options.pieces.empty();
    const std::uint32_t most = kept ? Writer::kMostBytes : std::clamp(options.recordBytes, 1U, Writer::kMostBytes);
    Writer writer(output, image);
    for (const auto& piece : kept ? options.pieces : piecesOf(image)) {
        for (std::uint32_t at = piece.address, left = piece.size; left > 0;) {
            const std::uint32_t inBlock = kBlock - at % kBlock;
            const std::uint32_t count = std::min({left, most, kept ? left : inBlock});
            std::array<std::uint8_t, kLongestRecord> gathered;
            writer.record(at, bytesOf(image, at, count, gathered), count);
            at += count;
            left -= count;
        }
    }
    writer.finish();
}

void writeBinary(const Image& image, Output& output, const WriteOptions& options) {
    const std::vector<std::uint8_t> blank(kPageSize, 0xFF);
    const auto ranges = image.ranges();
    if (ranges.empty()) return;
    if (ranges.front().first < options.address) {
        throw Error(Problem::BadArgument,
                    "data at " + hexAddress(ranges.front().first) + " lie before the file's first byte, " +
                        hexAddress(options.address),
                    "give a lower address");
    }
    for (std::uint32_t at = options.address; at <= ranges.back().last;) {
        const std::uint32_t count = std::min(kPageSize - at % kPageSize, ranges.back().last + 1 - at);
        const std::uint8_t* page = image.page(at / kPageSize);
        output.add((page == nullptr ? blank.data() : page) + at % kPageSize, count);
        at += count;
    }
}

struct Writer {
    Format format;
    void (*write)(const Image&, Output&, const WriteOptions&);
};
constexpr Writer kWriters[] = {{Format::Hex, writeRecords<HexWriter>},
                               {Format::SRecord, writeRecords<SRecordWriter>},
                               {Format::Binary, writeBinary}};

}  // namespace

WrittenImage writeImage(const Image& image, int descriptor, const std::string& name, const WriteOptions& options) {
    Output output(descriptor, name);
    for (const auto& row : kWriters) {
        if (row.format != options.format) continue;
        row.write(image, output, options);
        return output.finish();
    }
    throw Error(Problem::BadArgument, std::string(formatName(options.format)) + " cannot be written",
                "write Intel HEX, S-record or raw binary");
}

}  // namespace tavo
