// The Intel HEX reader: against a plain field-by-field reference, against bytes kept by address, and
// against files of other people's tools.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <tuple>
#include <typeinfo>
#include <utility>
#include <vector>

#include "tavo/hexFileReader.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

using Bytes = std::vector<unsigned char>;
using Pages = std::vector<std::pair<unsigned, Bytes>>;

const char* const kWrongChecksum = "Corrupt Intel HEX, wrong checksum.\n";
const char* const kNoDigits = "Could not interpret hex values from file.\n";
const std::string kEnd = ":00000001FF";

std::string hex(unsigned value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "%0*X", digits, value);
    return text;
}

std::string record(unsigned offset, const Bytes& data, unsigned type = 0) {
    const unsigned sum =
        std::accumulate(data.begin(), data.end(), static_cast<unsigned>(data.size()) + (offset >> 8) + offset + type);
    std::string line = ":" + hex(static_cast<unsigned>(data.size()), 2) + hex(offset, 4) + hex(type, 2);
    for (const auto byte : data) line += hex(byte, 2);
    return line + hex(-sum & 0xFF, 2);
}

std::string upperHalf(unsigned upper) {
    return record(0, {static_cast<unsigned char>(upper >> 8), static_cast<unsigned char>(upper)}, 4);
}

Bytes counting(std::size_t size, unsigned char first = 0) {
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

// The reader in its plainest form: every field a substring given to strtoul, every byte moved alone.
struct Reference {
    int pageSize;
    unsigned pageAddress = 0, lineAddress = 0, previousLineAddress = 0, previousLineLength = 0;
    unsigned short extendedAddress = 0;
    bool pageReady = false;
    Bytes lineData;
    bool firstLine = true;
    std::deque<unsigned char> dataQueue;
    bool closed = false;

    explicit Reference(int size) : pageSize(size) {}

    static unsigned long field(const char* line, std::size_t position, std::size_t count) {
        errno = 0;
        const std::string text = std::string(line).substr(position, count);
        char* end = nullptr;
        const unsigned long value = std::strtoul(text.c_str(), &end, 16);
        if (errno != 0 || end == text.c_str()) throw std::runtime_error(kNoDigits);
        return value;
    }
    static unsigned char length(const char* line) { return static_cast<unsigned char>(field(line, 1, 2)); }
    static unsigned char checksum(const char* line) {
        const std::size_t size = std::string(line).size();
        unsigned sum = 0;
        for (std::size_t i = 0; size >= 4 && i <= (size - 4) / 2; ++i)
            sum += static_cast<unsigned>(field(line, 1 + 2 * i, 2));
        return static_cast<unsigned char>(-sum);
    }

    void ParseRecord(const char* line) {
        const auto stored = static_cast<unsigned char>(field(line, 9U + 2U * length(line), 2));
        if (stored != checksum(line)) throw std::runtime_error(kWrongChecksum);
        const auto type = static_cast<unsigned>(field(line, 7, 2));
        pageReady = type == 1 || (type == 0 && pageReady);
        if (type == 0) return data(line);
        if (type == 1) closed = true;
        if (type == 4) extendedAddress = static_cast<unsigned short>(field(line, 9, 4));
        if (type != 0 && type != 1 && type != 4)
            throw std::runtime_error("Unsupported Intel HEX record type 0x" + hex(type, 1) + "\n");
    }
    void data(const char* line) {
        lineAddress = static_cast<unsigned>(field(line, 3, 4)) | static_cast<unsigned>(extendedAddress) << 16;
        lineData.clear();
        for (unsigned i = 0; i < length(line); ++i)
            lineData.push_back(static_cast<unsigned char>(field(line, 9 + 2 * i, 2)));
        if (dataQueue.empty()) pageAddress = lineAddress;
        const bool gap = !firstLine && previousLineAddress + previousLineLength != lineAddress;
        closed = gap && !dataQueue.empty();
        if (closed) pageReady = true;
        if (!closed) push();
        if (!gap) pageReady = dataQueue.size() >= static_cast<std::size_t>(pageSize);
        previousLineAddress = lineAddress;
        previousLineLength = length(line);
        firstLine = false;
    }
    void push() {
        for (const auto byte : lineData) dataQueue.push_back(byte);
        lineData.clear();
    }
    bool isPageReady() const { return pageReady; }
    unsigned FetchAddress() const { return pageAddress; }
    Bytes FetchPage() {
        const unsigned boundary = pageAddress - pageAddress % 256 + 256;
        Bytes page;
        while (!dataQueue.empty()) {
            page.push_back(dataQueue.front());
            dataQueue.pop_front();
            if (++pageAddress == boundary || page.size() == static_cast<std::size_t>(pageSize)) break;
        }
        if (dataQueue.empty()) closed = false;
        if (dataQueue.empty() && !lineData.empty()) {
            pageAddress = lineAddress;
            push();
        }
        pageReady = !dataQueue.empty() && (closed || dataQueue.size() >= static_cast<std::size_t>(pageSize));
        return page;
    }
};

template <class Parser>
Pages fetchAll(Parser& parser) {
    Pages pages;
    while (parser.isPageReady()) {
        const unsigned address = parser.FetchAddress();
        pages.emplace_back(address, parser.FetchPage());
    }
    return pages;
}

template <class Parser>
auto fields(const Parser& p) {
    return std::make_tuple(p.pageSize, p.pageAddress, p.lineAddress, p.previousLineAddress, p.previousLineLength,
                           p.extendedAddress, p.pageReady, p.lineData, p.firstLine, p.dataQueue);
}

// Type and text of what a step throws; empty when it returns with errno at 0, as reading a field leaves it.
template <class Step>
std::string thrownBy(Step step) {
    errno = EDOM;
    try {
        step();
    } catch (const std::exception& e) {
        return std::string(typeid(e).name()) + ": " + e.what();
    }
    return errno == 0 ? "" : "errno left at " + std::to_string(errno);
}

std::string runtimeError(const std::string& text) {
    return std::string(typeid(std::runtime_error).name()) + ": " + text;
}

Pages pagesOf(const std::vector<std::string>& lines, int pageSize = 256) {
    IntelHexParser parser(pageSize);
    Pages pages;
    for (const auto& line : lines) {
        parser.ParseRecord(line.c_str());
        auto released = fetchAll(parser);
        std::move(released.begin(), released.end(), std::back_inserter(pages));
    }
    return pages;
}

class Random {
public:
    unsigned below(unsigned limit) { return static_cast<unsigned>(engine() % limit); }
    bool once(unsigned in) { return below(in) == 0; }
    unsigned char byte() { return static_cast<unsigned char>(below(256)); }
    Bytes bytes(std::size_t size) {
        Bytes all(size);
        for (auto& one : all) one = byte();
        return all;
    }

private:
    std::mt19937 engine{20261122};  // the same lines in every run
};

// Lines as files hold them: runs of data with gaps, blocks of 64 KiB, ends, and types nobody supports.
class Lines {
public:
    explicit Lines(Random& source) : random(source) {}

    std::string next() {
        if (random.once(12)) return upperHalf(random.once(2) ? random.below(3) : 0xFFFF);
        if (random.once(25)) return kEnd;
        if (random.once(40)) return record(0, random.bytes(random.below(5)), random.byte());
        if (random.once(6)) address = random.below(0x10000);
        const auto data = random.bytes(random.once(9) ? 0 : random.once(2) ? random.below(256) : 16);
        const auto line = record(address & 0xFFFF, data);
        address += static_cast<unsigned>(data.size());
        return line;
    }

    std::string damaged() {
        std::string line = next();
        for (unsigned hits = 1 + random.below(2); hits > 0; --hits) damage(line);
        if (random.once(2)) mendChecksum(line);
        return line;
    }

private:
    Random& random;
    unsigned address = 0;

    char oddCharacter() {
        static const std::string odd = " \t\r+-xXgG0:fz\x80\xFF";
        return random.once(3) ? static_cast<char>(1 + random.below(255))
                              : odd[random.below(static_cast<unsigned>(odd.size()))];
    }
    void damage(std::string& line) {
        const std::size_t at = random.below(static_cast<unsigned>(random.once(2) ? 12 : line.size() + 1));
        if (at >= line.size() || random.once(8)) {
            line += random.once(2) ? '\r' : oddCharacter();
        } else if (random.once(8)) {
            line.resize(at);
        } else if (random.once(8)) {
            line.erase(at, 1);
        } else if (random.once(8)) {
            for (auto& c : line) c = static_cast<char>(1 + random.below(255));
        } else if (random.once(8)) {
            for (auto& c : line) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        } else {
            line[at] = oddCharacter();
        }
    }
    static void mendChecksum(std::string& line) {
        try {
            const std::size_t at = 9U + 2U * Reference::length(line.c_str());
            if (at + 2 <= line.size()) line.replace(at, 2, hex(Reference::checksum(line.c_str()), 2));
        } catch (const std::exception&) {  // no field to compute it from: stays as it is
        }
    }
};

}  // namespace

TEST(HexReader, DoesWithDamagedLinesWhatThePlainReferenceDoes) {
    Random random;
    Lines lines(random);
    std::map<std::string, unsigned> outcomes;
    for (int file = 0; file < 5000; ++file) {
        const int pageSize = random.once(4) ? static_cast<int>(1 + random.below(300)) : 256;
        IntelHexParser parser(pageSize);
        Reference reference(pageSize);
        std::string thrown;
        for (int i = 0; i < 20 && thrown.empty(); ++i) {
            const std::string line = random.once(5) ? lines.damaged() : lines.next();
            SCOPED_TRACE("file " + std::to_string(file) + ", line " + testing::PrintToString(line));
            thrown = thrownBy([&] { reference.ParseRecord(line.c_str()); });
            ASSERT_EQ(thrownBy([&] { parser.ParseRecord(line.c_str()); }), thrown);
            ASSERT_EQ(fields(parser), fields(reference));
            if (thrown.empty() && !random.once(50)) {
                ASSERT_EQ(fetchAll(parser), fetchAll(reference));
                ASSERT_EQ(fields(parser), fields(reference));
            }
            ++outcomes[thrown.substr(0, 40)];
        }
    }
    const auto seen = [&](const std::string& outcome) { return outcomes[outcome.substr(0, 40)]; };
    EXPECT_GT(seen(""), 20000U);  // each way out was taken, or the comparison is worth nothing
    EXPECT_GT(seen(runtimeError(kWrongChecksum)), 400U);
    EXPECT_GT(seen(runtimeError(kNoDigits)), 400U);
    EXPECT_GT(seen(runtimeError("Unsupported Intel HEX record type 0x")), 400U);
    EXPECT_GT(seen(std::string(typeid(std::out_of_range).name()) + ": basic_string::substr: __pos (which is "), 200U);
}

// Every character, in both places of a pair, with the checksum that would hold if it were a digit of any value.
TEST(HexReader, TakesNoOtherCharacterForADigit) {
    for (const std::size_t position : {9U, 16U, 45U, 46U}) {
        for (unsigned as = 0; as < 16; ++as) {
            // Among zeros, on which a character that is no digit leaves nothing but its own mark, and among others.
            std::string line = record(0x20, as % 2 == 0 ? Bytes(20) : counting(20));
            line[position] = hex(as, 1)[0];
            line.replace(line.size() - 2, 2, hex(Reference::checksum(line.c_str()), 2));
            for (unsigned character = 1; character < 256; ++character) {
                line[position] = static_cast<char>(character);
                IntelHexParser parser(256);
                Reference reference(256);
                const auto thrown = thrownBy([&] { reference.ParseRecord(line.c_str()); });
                ASSERT_EQ(thrownBy([&] { parser.ParseRecord(line.c_str()); }), thrown) << line;
                ASSERT_EQ(fields(parser), fields(reference)) << line;
            }
        }
    }
}

TEST(HexReader, BringsEveryByteOnceToItsOwnAddressInPagesThatCrossNoBoundary) {
    Random random;
    for (int file = 0; file < 400; ++file) {
        IntelHexParser parser(256);
        std::map<unsigned, unsigned char> expected, flash;
        std::size_t sent = 0, received = 0;
        unsigned address = random.below(0x300), upper = 0;
        const auto take = [&](const std::string& line) {
            parser.ParseRecord(line.c_str());
            for (const auto& [start, page] : fetchAll(parser)) {
                ASSERT_LE(start % 256 + page.size(), 256U);
                for (std::size_t i = 0; i < page.size(); ++i) flash[start + static_cast<unsigned>(i)] = page[i];
                received += page.size();
            }
        };
        for (int line = 0; line < 60; ++line) {
            if (random.once(8)) address = random.once(2) ? random.byte() - 128U : 0xFF80 + random.below(0x200);
            if (random.once(20)) take(kEnd);
            if (address >> 16 != upper) take(upperHalf(upper = address >> 16));
            const auto data = random.bytes(random.once(4) ? random.below(4) : random.below(256));
            take(record(address & 0xFFFF, data));
            for (const auto byte : data) expected[address++] = byte;
            sent += data.size();
        }
        take(kEnd);
        ASSERT_EQ(received, sent) << "file " << file;
        ASSERT_EQ(flash, expected) << "file " << file;
    }
}

TEST(HexReader, ClosesRunsAtGapsAndAtTheEnd) {
    const auto page = [](std::size_t size, unsigned first) {
        return counting(size, static_cast<unsigned char>(first));
    };
    EXPECT_THAT(pagesOf({kEnd}), ElementsAre(Pair(0U, IsEmpty())));
    EXPECT_THAT(pagesOf({record(0, page(128, 0)), record(0x80, page(128, 128)), kEnd}),
                ElementsAre(Pair(0U, page(256, 0)), Pair(0x100U, IsEmpty())));
    EXPECT_THAT(pagesOf({record(0, page(64, 0)), record(0x1000, page(16, 64)), kEnd}),
                ElementsAre(Pair(0U, page(64, 0)), Pair(0x1000U, page(16, 64))));
    // Starts and ends inside flash pages and is closed before it holds 256 bytes.
    EXPECT_THAT(pagesOf({record(0xF0, page(32, 0)), kEnd}),
                ElementsAre(Pair(0xF0U, page(16, 0)), Pair(0x100U, page(16, 16))));
    EXPECT_THAT(pagesOf({record(0xF0, page(32, 0)), record(0x1000, page(4, 32)), record(0x1004, page(4, 36)), kEnd}),
                ElementsAre(Pair(0xF0U, page(16, 0)), Pair(0x100U, page(16, 16)), Pair(0x1000U, page(8, 32))));
    EXPECT_THAT(pagesOf({record(0xF0, page(32, 0)), record(0x1000, {}), record(0x1000, page(4, 32)), kEnd}),
                ElementsAre(Pair(0xF0U, page(16, 0)), Pair(0x100U, page(16, 16)), Pair(0x1000U, page(4, 32))));
    // After an end-of-file record a run grows to a full page again.
    EXPECT_THAT(pagesOf({record(0xF0, page(32, 0)), kEnd, record(0x110, page(8, 32)), record(0x118, page(8, 40))}),
                ElementsAre(Pair(0xF0U, page(16, 0)), Pair(0x100U, page(16, 16))));
    EXPECT_THAT(pagesOf({record(0xFFF8, page(16, 0)), upperHalf(1), record(8, page(8, 16)), kEnd}),
                ElementsAre(Pair(0xFFF8U, page(8, 0)), Pair(0x10000U, page(16, 8))));
}

struct Refusal {
    std::string line, thrown;
};

class RefusedLine : public testing::TestWithParam<Refusal> {};

TEST_P(RefusedLine, IsToldByTypeAndText) {
    IntelHexParser parser(256);
    parser.ParseRecord(record(0xF0, counting(32)).c_str());
    parser.DataReadyToFetch(true);
    auto expected = fields(parser);
    if (GetParam().thrown.find("Unsupported") != std::string::npos) std::get<6>(expected) = false;  // pageReady
    EXPECT_EQ(thrownBy([&] { parser.ParseRecord(GetParam().line.c_str()); }), GetParam().thrown);
    EXPECT_EQ(fields(parser), expected);
}

const std::string kBeyond = std::string(typeid(std::out_of_range).name()) + ": basic_string::substr: __pos (which is ";
INSTANTIATE_TEST_SUITE_P(
    HexReader, RefusedLine,
    testing::Values(Refusal{"", kBeyond + "1) > this->size() (which is 0)"}, Refusal{":", runtimeError(kNoDigits)},
                    Refusal{":0", kBeyond + "9) > this->size() (which is 2)"},
                    Refusal{":050200000102F6", kBeyond + "19) > this->size() (which is 15)"},
                    Refusal{":04000000010203", kBeyond + "17) > this->size() (which is 15)"},
                    Refusal{":10", kBeyond + "41) > this->size() (which is 3)"},
                    Refusal{":0100000001", runtimeError(kNoDigits)},
                    Refusal{":0100000001FF", runtimeError(kWrongChecksum)},
                    Refusal{":0100000001FE\r", runtimeError(kWrongChecksum)},
                    Refusal{":01000000G1FE", runtimeError(kNoDigits)},
                    Refusal{":020000021000ED", runtimeError(kWrongChecksum)},
                    Refusal{":020000021000EC", runtimeError("Unsupported Intel HEX record type 0x2\n")},
                    Refusal{":0000001AE6", runtimeError("Unsupported Intel HEX record type 0x1A\n")},
                    Refusal{":000000-101", runtimeError("Unsupported Intel HEX record type 0xFFFFFFFF\n")}));

TEST(HexReader, ReadsFieldsByPositionWithTheMeaningOfStrtoul) {
    IntelHexParser parser(256);
    const char* volatile none = nullptr;  // not known to the compiler
    EXPECT_EQ(thrownBy([&] { parser.ParseRecord(none); }), thrownBy([&] { std::string text(none); }));
    EXPECT_EQ(parser.GetHexCharacterAsLong("+a -1 0x1f 1G", 0, 2), 10U);
    EXPECT_EQ(parser.GetHexCharacterAsLong("+a -1 0x1f 1G", 2, 3), ~0UL);
    EXPECT_EQ(parser.GetHexCharacterAsLong("+a -1 0x1f 1G", 6, 4), 0x1FU);
    EXPECT_EQ(parser.GetHexCharacterAsLong("+a -1 0x1f 1G", 11, 9), 1U);
    EXPECT_EQ(thrownBy([&] { parser.GetHexCharacterAsLong("10000000000000000", 0, 17); }), runtimeError(kNoDigits));
    EXPECT_EQ(parser.GetTwosComplement(0x101), 0xFFFFFEFFU);
    const char* const line = "x02fFfe00aBcD8a";
    parser.HandleExtendedSegmentAddressType(line);
    EXPECT_EQ(parser.RecordAddress(line), 0xABCDFFFEU);
    EXPECT_EQ(parser.RecordLength(line), 2);
    EXPECT_EQ(parser.RecordType(line), 0U);
    EXPECT_EQ(parser.RecordChecksum(line), 0x8A);
    EXPECT_THAT(parser.RecordData(line), ElementsAre(0xAB, 0xCD));
    EXPECT_EQ(parser.CalculateRecordChecksum(line, 15), static_cast<unsigned char>(-(2 + 0xFF + 0xFE + 0xAB + 0xCD)));
    EXPECT_EQ(parser.CalculateRecordChecksum(line, 2), 0);
    EXPECT_EQ(parser.CalculateRecordChecksum(line, 3), 0);
    EXPECT_EQ(parser.CalculateRecordChecksum(line, 4), 0xFE);  // of the byte count 02
    EXPECT_EQ(thrownBy([&] { parser.CalculateRecordChecksum("", 0); }), kBeyond + "1) > this->size() (which is 0)");
    EXPECT_EQ(thrownBy([&] { parser.CalculateRecordChecksum(":", 1); }), runtimeError(kNoDigits));
    // A carriage return is counted with the checksum field, which does no harm when that is 00.
    parser.ParseRecord(":01000000FF00\r");
    EXPECT_THAT(parser.dataQueue, ElementsAre(0xFF));
}

namespace {

// A HEX file made by somebody else's tool from random bytes.
class ForeignFile {
public:
    explicit ForeignFile(std::size_t size) : image(Random().bytes(size)) {
        std::filesystem::create_directories(folder);
        std::ofstream(folder / "image.bin", std::ios::binary)
            .write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(size));
    }
    ~ForeignFile() { std::filesystem::remove_all(folder); }

    int make(const std::string& command) const {
        return std::system(("cd '" + folder.string() + "' && " + command).c_str());
    }
    std::vector<std::string> lines() const {
        std::ifstream file(folder / "image.hex");
        std::vector<std::string> all;
        for (std::string line; std::getline(file, line);) all.push_back(line);
        return all;
    }
    const Bytes image;

private:
    std::filesystem::path folder = std::filesystem::temp_directory_path() / ("tavo-hex-" + std::to_string(getpid()));
};

struct Tool {
    std::size_t size;
    unsigned offset;
    std::string command;
};

std::string srecCat(unsigned offset, unsigned recordLength) {
    return "srec_cat image.bin -Binary -Offset " + std::to_string(offset) +
           " -Output image.hex -Intel -Output_Block_Size=" + std::to_string(recordLength);
}

std::string intelhex(unsigned offset, unsigned recordLength) {
    return "/usr/bin/python3 -c \"from intelhex import IntelHex; h = IntelHex(); h.loadbin('image.bin', " +
           std::to_string(offset) + "); h.write_hex_file('image.hex', byte_count=" + std::to_string(recordLength) +
           ")\"";
}

}  // namespace

class FileOfAnotherTool : public testing::TestWithParam<Tool> {};

TEST_P(FileOfAnotherTool, HoldsTheBytesOfItsBinary) {
    const ForeignFile file(GetParam().size);
    ASSERT_EQ(file.make(GetParam().command), 0) << GetParam().command;
    Bytes read(file.image.size());
    std::size_t count = 0;
    for (const auto& [address, page] : pagesOf(file.lines())) {
        ASSERT_LE(address - GetParam().offset + page.size(), read.size());
        std::copy(page.begin(), page.end(), read.begin() + (address - GetParam().offset));
        count += page.size();
    }
    EXPECT_EQ(count, file.image.size());
    EXPECT_TRUE(read == file.image);
}

INSTANTIATE_TEST_SUITE_P(HexReader, FileOfAnotherTool,
                         testing::Values(Tool{0x30000, 0, srecCat(0, 16)}, Tool{0x12345, 0xFFF3, srecCat(0xFFF3, 255)},
                                         Tool{1000, 0xF00077, srecCat(0xF00077, 32)}, Tool{0x12345, 0, intelhex(0, 16)},
                                         Tool{3000, 0xFFFE81, intelhex(0xFFFE81, 255)},
                                         Tool{0x10001, 0x10, intelhex(0x10, 7)}));

TEST(HexReader, RefusesTheCarriageReturnsOfObjcopy) {
    const ForeignFile file(1000);
    ASSERT_EQ(file.make("objcopy -I binary -O ihex image.bin image.hex"), 0);
    ASSERT_THAT(file.lines(), SizeIs(testing::Gt(60U)));
    EXPECT_EQ(thrownBy([&] { pagesOf(file.lines()); }), runtimeError(kWrongChecksum));
}
