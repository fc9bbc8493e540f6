// Images in files: what is read, what is refused and where, what is written.
#include <elf.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>

#include "tavo/hexFileReader.h"
#include "tavo/service/files.h"
#include "tavo/service/imageFile.h"
#include "tavo/service/operation.h"
#include "tavo/service/range.h"
#include "tavo/service/text.h"

namespace {

using tavo::AddressRange;
using tavo::Format;
using tavo::Image;
using tavo::ImageFile;
using tavo::MapCell;
using tavo::ReadOptions;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

std::mt19937 chance{20};

unsigned below(unsigned end) {
    return std::uniform_int_distribution<unsigned>(0, end - 1)(chance);
}

Bytes noise(std::size_t size, unsigned seed = 1) {
    std::mt19937 generator(seed);
    Bytes bytes(size);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(generator());
    return bytes;
}

std::string hex(const Bytes& bytes) {
    std::string text;
    for (const unsigned byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", byte);
        text += digits;
    }
    return text;
}

std::string record(unsigned type, unsigned offset, const Bytes& data) {
    Bytes bytes{static_cast<std::uint8_t>(data.size()), static_cast<std::uint8_t>(offset >> 8),
                static_cast<std::uint8_t>(offset), static_cast<std::uint8_t>(type)};
    bytes.insert(bytes.end(), data.begin(), data.end());
    unsigned sum = 0;
    for (const auto byte : bytes) sum += byte;
    bytes.push_back(static_cast<std::uint8_t>(0U - sum));
    return ":" + hex(bytes);
}

std::string sRecord(unsigned type, unsigned address, unsigned addressBytes, const Bytes& data = {}) {
    Bytes bytes{static_cast<std::uint8_t>(data.size() + addressBytes + 1)};
    for (unsigned i = addressBytes; i-- > 0;) bytes.push_back(static_cast<std::uint8_t>(address >> 8 * i));
    bytes.insert(bytes.end(), data.begin(), data.end());
    unsigned sum = 0;
    for (const auto byte : bytes) sum += byte;
    bytes.push_back(static_cast<std::uint8_t>(~sum));
    return "S" + std::to_string(type) + hex(bytes);
}

const std::string kEnd = ":00000001FF";

Lines hexLines(unsigned address, const Bytes& data, std::size_t width = 32) {
    Lines lines;
    for (std::size_t at = 0; at < data.size(); at += width) {
        const auto start = address + static_cast<unsigned>(at);
        if (start >> 16 != 0 && (at == 0 || (start - width) >> 16 != start >> 16))
            lines.push_back(
                record(4, 0, {static_cast<std::uint8_t>(start >> 24), static_cast<std::uint8_t>(start >> 16)}));
        const auto end = std::min(data.size(), at + width);
        lines.push_back(record(0, start & 0xFFFF,
                               Bytes(data.begin() + static_cast<long>(at), data.begin() + static_cast<long>(end))));
    }
    return lines;
}

Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

std::string joined(const Lines& lines, const std::string& end = "\n") {
    std::string text;
    for (const auto& line : lines) text += line + end;
    return text;
}

std::string asText(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

Image imageOf(unsigned address, const Bytes& bytes) {
    Image image;
    image.add(address, bytes.data(), bytes.size());
    return image;
}

class ImageTest : public ::testing::Test {
protected:
    ImageTest() {
        char name[] = "/tmp/imageTest-XXXXXX";
        folder = mkdtemp(name);
    }
    ~ImageTest() override { std::filesystem::remove_all(folder); }

    std::string path(const std::string& name) const { return folder + "/" + name; }
    std::string save(const std::string& text, const std::string& name = "image.hex") const {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    std::string content(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    ImageFile check(const std::string& text, const ReadOptions& options = {},
                    const std::string& name = "image.hex") const {
        const tavo::Descriptor file(memfd_create("image", MFD_CLOEXEC));
        EXPECT_EQ(write(file.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
        lseek(file.get(), 0, SEEK_SET);
        return tavo::checkImage(file.get(), name, options);
    }
    std::string written(const Image& image, const tavo::WriteOptions& options = {}) const {
        const int file = open(path("written").c_str(), O_CREAT | O_TRUNC | O_RDWR, 0600);
        tavo::writeImage(image, file, "written", options);
        close(file);
        return content("written");
    }
    std::string folder;
};

ReadOptions strict() {
    ReadOptions options;
    options.strict = true;
    return options;
}

// ---- faults

struct BadFile {
    const char* name;
    std::string text;
    std::uint64_t line;
    std::string fault;
    std::string hint;
};

TEST_F(ImageTest, EveryFaultIsToldWithItsLineAndARemedyInBothModes) {
    const Lines good = hexLines(0, noise(600)) + Lines{kEnd};
    const auto with = [&](std::size_t at, const std::string& line) {
        Lines lines = good;
        lines[at] = line;
        return joined(lines);
    };
    std::string wrong = good[1];
    wrong.back() = wrong.back() == '0' ? '1' : '0';
    const std::vector<BadFile> files{
        {"empty", "", 0, "the file is empty", "name the image"},
        {"text", "this is a note\n", 1, "begins with 't', a record begins with ':'", "damaged"},
        {"comment line", "# made today\n" + joined(good), 1, "a comment ('#')", "comments out"},
        {"a damaged start code is no comment", with(1, ";" + good[1].substr(1)), 2, "a comment (';')", "comments out"},
        {"comment behind", with(0, good[0] + "  ; reset"), 1, "a comment in column 78", "comments out"},
        {"binary", "\x01\x02\x03", 1, "byte 0x01: not a text file, so not Intel HEX", "--format bin"},
        {"checksum", with(1, wrong), 2, "wrong checksum: expected " + good[1].substr(good[1].size() - 2), "damaged"},
        {"digit", with(0, ":2000G000"), 1, "'G' in column 6 is no hexadecimal digit", "damaged"},
        {"colon", with(2, ":"), 3, "too short for a record", "damaged"},
        {"colon and a digit", with(2, ":0"), 3, "too short for a record", "damaged"},
        {"short", with(0, good[0].substr(0, 71)), 1, "byte count 20 makes 75 characters, the line has 71", "damaged"},
        {"unknown type", with(0, record(6, 0, {})), 1, "unknown record type 06", "damaged"},
        {"address length", with(0, record(4, 0, {1})), 1,
         "an extended linear address record has 2 data bytes, this one 1", "damaged"},
        {"no end", joined(hexLines(0, noise(64))), 0, "no end-of-file record", "damaged"},
        {"after the end", joined(good + hexLines(0, noise(64))), good.size() + 1,
         "record after the end-of-file record of line " + std::to_string(good.size()) + ", here and in 1 more line",
         "two files"},
        {"overlap", joined({record(0, 0, {1, 2, 3}), record(0, 1, {2, 4}), kEnd}), 2,
         "overlaps earlier data with other bytes: at 0x000002 03 before, 04 here", "memory map"},
        {"24 bits", joined({record(4, 0, {1, 0}), record(0, 0, {1}), kEnd}), 2,
         "data at 0x1000000 to 0x1000000 lies above 24 address bits (0xFFFFFF)", "from address 0"},
        {"across 24 bits", joined({record(4, 0, {0, 0xFF}), record(0, 0xFFFF, {1, 2}), kEnd}), 2, "data at 0xFFFFFF to",
         ""},
        {"no data", kEnd + "\n", 0, "no data at all", "name the image"},
        {"too long", ":" + std::string(300000, '0') + "\n" + kEnd + "\n", 1, "longer than the longest record", "name"},
    };
    for (const auto& file : files) {
        for (const bool mode : {false, true}) {
            SCOPED_TRACE(std::string(file.name) + (mode ? ", strict" : ""));
            ReadOptions options;
            options.strict = mode;
            const ImageFile found = check(file.text, options);
            ASSERT_FALSE(found.isGood());
            EXPECT_EQ(found.faults.front().line, file.line);
            EXPECT_THAT(found.faults.front().text, HasSubstr(file.fault));
            EXPECT_THAT(found.faults.front().hint, HasSubstr(file.hint));
        }
    }
}

TEST_F(ImageTest, TheFirstTwentyFaultsAreListedAndTheRestCounted) {
    const auto file = check(joined(Lines(34, ":00000000FF") + Lines{kEnd}));
    EXPECT_EQ(file.faultCount, 34U);
    ASSERT_THAT(file.faults, SizeIs(20));
    EXPECT_EQ(file.faults.back().line, 20U);
    const auto error = tavo::refusal("x.hex", file);
    EXPECT_EQ(error.problem, tavo::Problem::FileRefused);
    EXPECT_STREQ(error.what(),
                 "x.hex refused: line 1: wrong checksum: expected 00, found FF (and 33 more faults: tavo-util check)");
    EXPECT_THAT(error.details, SizeIs(20));
    EXPECT_THAT(tavo::refusal("x.hex", check(":00000000FF\n:00000000FF\n:00000001FF\n")).what(),
                HasSubstr("(and 1 more fault: "));
}

TEST_F(ImageTest, DataAboveTheChipAreRefusedBeforeOrAfterItIsKnown) {
    const std::string text = joined(hexLines(0xFFFC0, noise(4096)) + Lines{kEnd});
    ReadOptions small;
    small.chipSize = 1 << 20;
    const auto refused = check(text, small);
    ASSERT_THAT(refused.faults, SizeIs(1));
    const auto known = check(text);
    ASSERT_TRUE(known.isGood());
    const auto later = known.faultAbove(1 << 20);
    ASSERT_TRUE(later);
    for (const auto& fault : {refused.faults.front(), *later}) {
        EXPECT_EQ(
            tavo::faultText(fault),
            "line 5: data at 0x100000 to 0x10001F lies above the chip's last address (0x0FFFFF), here and in 125 more "
            "lines");
        EXPECT_EQ(fault.hint, "choose an image made for a chip of 1 MiB");
    }
    EXPECT_FALSE(known.faultAbove(1 << 21));
    EXPECT_THAT(known.faultAbove(0x100800)->text, HasSubstr("data at 0x0FFFC0 to 0x100FBF"));
    const auto binary = check(std::string(0x100001, 'x'), small, "image.bin");
    const auto binaryLater = check(std::string(0x100001, 'x'), {}, "image.bin").faultAbove(1 << 20);
    for (const auto& fault : {binary.faults.front(), *binaryLater}) {
        EXPECT_EQ(tavo::faultText(fault),
                  "offset 0x100000: data at 0x000000 to 0x100000 lies above the chip's last address (0x0FFFFF)");
    }
}

// ---- forms of Intel HEX

struct Dress {
    const char* name;
    std::string text;
    Image image;
    std::string change;
    std::string strictFault;
};

TEST_F(ImageTest, WhatToolsWriteIsTakenAndTold) {
    const Image abc = imageOf(0, {'a', 'b', 'c'});
    const std::string data = record(0, 0, {'a', 'b', 'c'});
    Image wrapped = imageOf(0x1FFFF, {'a'});
    wrapped.add(0x10000, Bytes{'b'}.data(), 1);
    Image moved = imageOf(0x20000, {'a'});
    moved.add(0, Bytes{'b'}.data(), 1);
    const std::vector<Dress> all{
        {"line ends", joined({data, kEnd}, "\r\n"), abc, "carriage returns taken away, 2 lines", "carriage return"},
        {"no last line end", data + "\n" + kEnd, abc, "", ""},
        {"lower case", joined({record(0, 0, {0xAB}), ":00000001ff"}), imageOf(0, {0xAB}), "", ""},
        {"mark", "\xEF\xBB\xBF" + joined({data, kEnd}), abc, "byte order mark (UTF-8) taken away, 1 line",
         "byte order mark"},
        {"blanks", joined({data + " \t", kEnd}), abc, "blanks after the record taken away, 1 line", "blanks after"},
        {"blank lines", joined({data, "", " ", kEnd}), abc, "blank lines taken away, 2 lines", "empty line"},
        {"start", joined({record(3, 0, {0, 0, 0, 0}), data, record(5, 0, {0, 0, 0, 0}), kEnd}), abc,
         "start address records left out: the flash holds none, 2 lines", "record type 03 is not taken"},
        {"segment", joined({record(2, 0, {0x10, 0x01}), record(0, 0xFFEF, {'a', 'b'}), kEnd}),
         imageOf(0x1FFFF, {'a', 'b'}), "segment address records (02) turned into linear ones (04), 1 line",
         "record type 02 is not taken"},
        {"wrap", joined({record(2, 0, {0x10, 0}), record(0, 0xFFFF, {'a', 'b'}), kEnd}), wrapped, "segment", "type 02"},
        {"back",
         joined({record(2, 0, {0x20, 0}), record(0, 0, {'a'}), record(4, 0, {0, 0}), record(0, 0, {'b'}), kEnd}), moved,
         "segment", "type 02"},
        {"across 64 KiB", joined({record(0, 0xFFFF, {'a', 'b'}), kEnd}), imageOf(0xFFFF, {'a', 'b'}), "", ""},
        {"same bytes twice", joined({data, data, kEnd}), abc, "", ""},
        {"empty record", joined({record(0, 9, {}), data, kEnd}), abc, "", ""},
    };
    for (const auto& each : all) {
        SCOPED_TRACE(each.name);
        const auto file = check(each.text);
        ASSERT_THAT(file.faults, IsEmpty());
        EXPECT_EQ(file.image, each.image);
        EXPECT_TRUE(file.endOfFileRecord);
        EXPECT_EQ(file.changes.empty(), each.change.empty());
        if (!each.change.empty()) {
            EXPECT_THAT(file.changes.front(), HasSubstr(each.change));
        }
        const auto again = check(each.text, strict());
        ASSERT_EQ(again.isGood(), each.strictFault.empty());
        if (again.isGood()) continue;
        EXPECT_THAT(again.faults.front().text, HasSubstr(each.strictFault));
        EXPECT_THAT(again.faults.front().hint, HasSubstr("tavo-util convert"));
    }
}

TEST_F(ImageTest, ARewritingKeepsTheOrderAndTellsWhatItChanges) {
    const Lines lines{record(4, 0, {0, 0}),
                      record(4, 0, {0, 2}),
                      record(0, 0, {0xAB, 1}),
                      record(4, 0, {0, 0}),
                      record(0, 0xFFFF, {1, 2}),
                      record(0, 7, {}),
                      kEnd};
    std::string text = joined(lines);
    text[text.find("AB")] = 'a';
    ReadOptions options;
    options.keepPieces = true;
    const auto file = check(text, options);
    EXPECT_THAT(file.changes, ElementsAre("lower-case digits made upper case, 1 line",
                                          "address records without effect left out, 1 line",
                                          "data records without data left out, 1 line"));
    tavo::WriteOptions as;
    as.pieces = file.pieces;
    EXPECT_EQ(written(file.image, as), joined({record(4, 0, {0, 2}), record(0, 0, {0xAB, 1}), record(4, 0, {0, 0}),
                                               record(0, 0xFFFF, {1, 2}), kEnd}));
    const std::string plain = joined(hexLines(0xFFF0, noise(300), 16) + Lines{kEnd});
    const auto same = check(plain, options);
    as.pieces = same.pieces;
    EXPECT_THAT(same.changes, IsEmpty());
    EXPECT_EQ(written(same.image, as), plain);
}

// ---- the library's reader takes the same for the same

Lines damaged(Lines lines) {
    constexpr char kOther[] = "0123456789ABCDEFabcdef:; \r-+xG";
    for (unsigned count = below(3); count > 0; --count) {
        std::string& line = lines[below(static_cast<unsigned>(lines.size()))];
        const std::string copy = line;
        switch (below(6)) {
            case 0:
                if (!line.empty()) line[below(static_cast<unsigned>(line.size()))] = kOther[below(sizeof kOther - 1)];
                break;
            case 1:
                line.clear();
                break;
            case 2:
                lines.insert(lines.begin() + below(static_cast<unsigned>(lines.size())), copy);
                break;
            case 3:
                line += kOther[below(sizeof kOther - 1)];
                break;
            case 4:
                for (char& c : line) c = static_cast<char>(std::tolower(c));
                break;
            default:
                lines.erase(lines.begin() + below(static_cast<unsigned>(lines.size())));
                if (lines.empty()) lines.push_back(kEnd);
        }
    }
    return lines;
}

Image libraryImage(const Lines& lines) {
    IntelHexParser parser(256);
    Image image;
    for (const auto& line : lines) {
        parser.ParseRecord(line.c_str());
        while (parser.isPageReady()) {
            const unsigned address = parser.FetchAddress();
            const auto page = parser.FetchPage();
            image.add(address, page.data(), page.size());
        }
    }
    return image;
}

TEST_F(ImageTest, WhatStrictReadingTakesTheLibrarysReaderDecodesAlike) {
    unsigned taken = 0;
    constexpr unsigned kFiles = 3000;
    for (unsigned i = 0; i < kFiles; ++i) {
        constexpr unsigned kWidths[] = {1, 16, 21, 32, 255};
        constexpr unsigned kBases[] = {0, 0xFFE0, 0x20000, 0xFEFFF0};
        Lines lines;
        for (unsigned piece = 0; piece < 3; ++piece) {
            lines = lines + Lines{record(4, 0, {0, 0})} +
                    hexLines(kBases[below(4)] + below(1000), noise(1 + below(90), below(1000)), kWidths[below(5)]);
        }
        lines = damaged(lines + Lines{kEnd});
        const auto file = check(joined(lines), strict());
        const auto loose = check(joined(lines));
        if (!file.isGood()) {  // looser reading says what it passed over, or refuses as well
            EXPECT_FALSE(loose.isGood() && loose.changes.empty()) << joined(lines);
            continue;
        }
        ++taken;
        ASSERT_EQ(file.image, libraryImage(lines)) << joined(lines);
        ASSERT_EQ(file.image, loose.image) << joined(lines);
        ASSERT_THAT(loose.changes, IsEmpty()) << joined(lines);
    }
    EXPECT_GT(taken, kFiles / 4);
    EXPECT_LT(taken, kFiles * 3 / 4);
}

// ---- formats

TEST_F(ImageTest, OneImageHasOneIdentityInEveryFormat) {
    const Image image = imageOf(0, noise(70000));
    tavo::WriteOptions options;
    for (const Format format : {Format::Hex, Format::SRecord, Format::Binary}) {
        options.format = format;
        const auto file = check(written(image, options), {}, "image.bin");
        ASSERT_TRUE(file.isGood()) << tavo::formatName(format) << tavo::faultText(file.faults.front());
        EXPECT_EQ(file.format, format);
        EXPECT_EQ(file.image.identity(), image.identity());
    }
    // without gaps from 0: what sha256sum says of the raw binary
    EXPECT_EQ(check(written(image, options), {}, "image.bin").sha256, image.identity());
    EXPECT_NE(imageOf(1, noise(70000)).identity(), image.identity());
    Image two = imageOf(0, {1});
    two.add(2, Bytes{2}.data(), 1);
    EXPECT_NE(two.identity(), imageOf(0, {1, 2}).identity());
    EXPECT_NE(two.identity(), Image().identity());
}

TEST_F(ImageTest, RandomImagesComeBackAsTheyWereWritten) {
    for (unsigned i = 0; i < 60; ++i) {
        Image image;
        for (unsigned piece = 0; piece < 4; ++piece) {
            const auto bytes = noise(1 + below(200000), i);
            image.add(below(0x20000) + piece * 0x3FFF0, bytes.data(), bytes.size());
        }
        tavo::WriteOptions options;
        options.format = i % 2 == 0 ? Format::Hex : Format::SRecord;
        options.recordBytes = 1 + below(256);
        const auto text = written(image, options);
        const auto file = check(text, i % 2 == 0 ? strict() : ReadOptions{});
        ASSERT_THAT(file.faults, IsEmpty());
        ASSERT_EQ(file.image, image);
        ASSERT_EQ(file.fileBytes, text.size());
    }
}

TEST_F(ImageTest, SRecordsAreReadStrictly) {
    const std::string data = sRecord(1, 0x1234, 2, {1, 2, 3});
    const auto good = check(joined({sRecord(0, 0, 2, {'x'}), data, sRecord(2, 0x20000, 3, {4}),
                                    sRecord(3, 0xFFFFFF, 4, {5}), sRecord(5, 3, 2), sRecord(7, 0x1234, 4)}));
    ASSERT_THAT(good.faults, IsEmpty());
    EXPECT_THAT(good.image.ranges(),
                ElementsAre(tavo::AddressRange{0x1234, 0x1236}, tavo::AddressRange{0x20000, 0x20000},
                            tavo::AddressRange{0xFFFFFF, 0xFFFFFF}));
    EXPECT_THAT(good.changes, ElementsAre("Motorola S-record read", HasSubstr("start address")));
    const std::string end = sRecord(9, 0, 2);
    const std::vector<BadFile> files{
        {"no end", joined({data}), 0, "no end-of-file record", ""},
        {"data behind the count", joined({data, sRecord(5, 1, 2), sRecord(1, 9, 2, {1})}), 0, "no end-of-file record",
         ""},
        {"after the end", joined({data, end, data}), 3, "record after the end-of-file record of line 2", "two files"},
        {"count", joined({data, sRecord(5, 2, 2), end}), 2, "counts 2 data records, there are 1 before it", "damaged"},
        {"checksum", joined({data.substr(0, data.size() - 1) + "0", end}), 1, "wrong checksum: expected AD, found A0",
         ""},
        {"length", joined({data + "00", end}), 1, "byte count 06 makes 16 characters, the line has 18", "damaged"},
        {"type", joined({sRecord(4, 0, 2), end}), 1, "unknown record type S4", "damaged"},
        {"no address",
         joined({data,
                 "S30300"
                 "00FC",
                 end}),
         2, "byte count 03 has no room for the address", "damaged"},
        {"start", joined({data, "X" + data.substr(1), end}), 2, "begins with 'X', a record begins with 'S'", "damaged"},
        {"above", joined({sRecord(3, 0xFFFFFFFF, 4, {1, 2}), end}), 1, "data at 0xFFFFFFFF to 0x100000000 lies above",
         ""},
        {"overlap", joined({data, sRecord(1, 0x1235, 2, {9}), end}), 2, "overlaps earlier data", "memory map"},
    };
    for (const auto& file : files) {
        SCOPED_TRACE(file.name);
        const auto found = check(file.text);
        ASSERT_FALSE(found.isGood());
        EXPECT_EQ(found.faults.front().line, file.line);
        EXPECT_THAT(found.faults.front().text, HasSubstr(file.fault));
        EXPECT_THAT(found.faults.front().hint, HasSubstr(file.hint));
    }
}

/// An ELF program of two segments, as its header file lays it out.
template <class Header, class Segment>
std::string elf(unsigned char fileClass, unsigned type, const std::vector<std::pair<unsigned, Bytes>>& parts) {
    Header header{};
    const std::uint16_t one = 1;
    const bool little = *reinterpret_cast<const std::uint8_t*>(&one) == 1;
    const unsigned char ident[] = {
        0x7F, 'E', 'L', 'F', fileClass, little ? std::uint8_t{ELFDATA2LSB} : std::uint8_t{ELFDATA2MSB}, EV_CURRENT};
    std::copy(std::begin(ident), std::end(ident), header.e_ident);
    header.e_type = static_cast<std::uint16_t>(type);
    header.e_version = EV_CURRENT;
    header.e_ehsize = sizeof header;
    header.e_phoff = sizeof header;
    header.e_phentsize = sizeof(Segment);
    header.e_phnum = static_cast<std::uint16_t>(parts.size());
    std::string text(reinterpret_cast<const char*>(&header), sizeof header);
    std::size_t offset = sizeof header + parts.size() * sizeof(Segment);
    std::string data;
    for (const auto& [address, bytes] : parts) {
        Segment segment{};
        segment.p_type = PT_LOAD;
        segment.p_offset = static_cast<decltype(segment.p_offset)>(offset + data.size());
        segment.p_paddr = address;
        segment.p_vaddr = 0x80000000 + address;
        segment.p_filesz = static_cast<decltype(segment.p_filesz)>(bytes.size());
        segment.p_memsz = segment.p_filesz + 100;
        text.append(reinterpret_cast<const char*>(&segment), sizeof segment);
        data += asText(bytes);
    }
    return text + data;
}

std::string elf32(unsigned type, const std::vector<std::pair<unsigned, Bytes>>& parts) {
    return elf<Elf32_Ehdr, Elf32_Phdr>(ELFCLASS32, type, parts);
}

TEST_F(ImageTest, ElfIsReadByThePhysicalAddressesOfItsSegments) {
    const std::vector<std::pair<unsigned, Bytes>> parts{{0x100, {1, 2}}, {0x8000, noise(300)}};
    Image wanted = imageOf(0x100, {1, 2});
    wanted.add(0x8000, parts[1].second.data(), 300);
    const std::string text = elf32(ET_EXEC, parts);
    for (const auto& each : {text, elf<Elf64_Ehdr, Elf64_Phdr>(ELFCLASS64, ET_EXEC, parts)}) {
        const auto file = check(each);
        ASSERT_THAT(file.faults, IsEmpty());
        EXPECT_EQ(file.format, Format::Elf);
        EXPECT_EQ(file.image, wanted);
        EXPECT_THAT(file.changes, ElementsAre("ELF read: 2 segments by their physical addresses"));
    }
    const std::vector<BadFile> files{
        {"cut short", text.substr(0, text.size() - 1), 0, "segment 1 (offset 0x76, 300 bytes) lies beyond the end",
         "damaged"},
        {"headers cut", text.substr(0, 60), 0, "program headers cannot be read", "damaged"},
        {"hardly begun", text.substr(0, 10), 0, "not a sound ELF file", "linked"},
        {"object", elf32(ET_REL, parts), 0, "object file that is not linked", "linked"},
        {"nothing to load", elf32(ET_EXEC, {}), 0, "no data at all", ""},
        {"above", elf32(ET_EXEC, {{0xFFFFFE, {1, 2, 3}}, {0x08000000, {1}}}), 0,
         "offset 0x76: data at 0xFFFFFE to 0x1000000 lies above 24 address bits (0xFFFFFF), here and in 1 more segment",
         "link"},
        {"overlap", elf32(ET_EXEC, {{0, {1, 1}}, {1, {2}}}), 0, "offset 0x76: overlaps earlier data", "memory map"},
    };
    for (const auto& file : files) {
        SCOPED_TRACE(file.name);
        const auto found = check(file.text);
        ASSERT_FALSE(found.isGood());
        EXPECT_THAT(tavo::faultText(found.faults.front()), HasSubstr(file.fault));
        EXPECT_THAT(found.faults.front().hint, HasSubstr(file.hint));
    }
}

TEST_F(ImageTest, TheFormatIsToldByContentThenByNameThenNamed) {
    const std::string data = joined({record(0, 0, {1, 2}), kEnd});
    ReadOptions forced;
    forced.format = Format::Binary;
    forced.address = 0x100;
    EXPECT_EQ(check(data, {}, "image.bin").format, Format::Hex);
    EXPECT_EQ(check(data.substr(0, 11) + "\x01" + data.substr(12), {}, "image.bin").format, Format::Hex);
    EXPECT_EQ(check("\x01\x02", {}, "x.BIN").image, imageOf(0, {1, 2}));
    EXPECT_EQ(check("\x01\x02", {}, "x.bin").changes.front(),
              "raw binary read, its first byte at 0x000000 as no other address is given");
    EXPECT_EQ(check("\x01\x02", forced, "x").image, imageOf(0x100, {1, 2}));
    EXPECT_EQ(check("\x01\x02", forced, "x").changes.front(), "raw binary read, its first byte at 0x000100");
    forced.format = Format::Automatic;
    EXPECT_EQ(tavo::faultText(check(data, forced).faults.front()),
              "Intel HEX has addresses of its own: none can be given");
    forced.address.reset();
    forced.format = Format::SRecord;
    const auto refused = check(data, forced);
    EXPECT_EQ(refused.faults.front().text, "Intel HEX, not Motorola S-record");
    EXPECT_THAT(refused.faults.front().hint, HasSubstr("the content"));
    for (const auto& [text, name] : std::vector<std::pair<std::string, std::string>>{
             {joined({sRecord(9, 0, 2)}), "Motorola S-record, not Intel HEX"},
             {elf32(ET_EXEC, {}), "ELF, not Intel HEX"}}) {
        const auto file = check(text, strict());
        EXPECT_EQ(file.faults.front().text, name);
        EXPECT_THAT(file.faults.front().hint, HasSubstr("tavo-util convert"));
    }
    EXPECT_EQ(tavo::formatByName("/a.b/Image.S19.gz"), Format::SRecord);
    EXPECT_EQ(tavo::formatByName("/a.hex/image"), Format::Automatic);
    EXPECT_EQ(tavo::formatOf("srec"), Format::SRecord);
    EXPECT_FALSE(tavo::formatOf("hexx"));
}

TEST_F(ImageTest, GzipIsReadThroughAndItsFaultsAreToldAsSuch) {
    const auto bytes = noise(400000);
    const auto pack = [&](const char* mode, const std::string& text) {
        const gzFile file = gzopen(path("packed").c_str(), mode);
        gzwrite(file, text.data(), static_cast<unsigned>(text.size()));
        gzclose(file);
    };
    const std::string text = joined(hexLines(0, bytes) + Lines{kEnd});
    pack("wb", text.substr(0, 5000));
    pack("ab", text.substr(5000));  // a second member
    const std::string packed = content("packed");
    const auto good = check(packed, {}, "image.hex.gz");
    ASSERT_THAT(good.faults, IsEmpty());
    EXPECT_EQ(good.image, imageOf(0, bytes));
    EXPECT_THAT(good.changes, ElementsAre("gzip unpacked"));
    EXPECT_EQ(good.fileBytes, packed.size());
    EXPECT_THAT(check(packed, strict()).faults.front().text, HasSubstr("gzip data, not Intel HEX"));
    pack("wb", asText(bytes));
    EXPECT_EQ(check(content("packed"), {}, "image.bin.gz").image, imageOf(0, bytes));
    ReadOptions binary;
    binary.format = Format::Binary;
    EXPECT_EQ(check(content("packed"), binary, "image.bin.GZ").image, imageOf(0, bytes));
    const std::string begins = content("packed").substr(0, 20);  // as a chip may, too
    EXPECT_EQ(check(begins, binary, "image.bin").image, imageOf(0, Bytes(begins.begin(), begins.end())));
    std::string broken = packed;
    broken[broken.size() / 2] = static_cast<char>(~broken[broken.size() / 2]);
    const auto hasFault = [](const ImageFile& file, const char* wanted) {
        return std::any_of(file.faults.begin(), file.faults.end(),
                           [&](const auto& fault) { return fault.text.find(wanted) != std::string::npos; });
    };
    EXPECT_TRUE(hasFault(check(packed.substr(0, packed.size() - 9)), "the gzip data end early"));
    EXPECT_TRUE(hasFault(check(broken), "the gzip data are broken before offset"));
    EXPECT_TRUE(hasFault(check(packed + "tail"), "the gzip data are broken before offset"));
}

TEST_F(ImageTest, AStreamIsReadLikeAFile) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::string text = joined(hexLines(0x30, noise(100)) + Lines{kEnd});
    ASSERT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(ends[1]);
    const auto file = tavo::checkImage(ends[0], "standard input");
    close(ends[0]);
    EXPECT_EQ(file.image, imageOf(0x30, noise(100)));
    ASSERT_EQ(pipe(ends), 0);  // nothing comes, and somebody gives up
    tavo::CancelToken token;
    token.cancel();
    ReadOptions options;
    options.cancel = &token;
    EXPECT_THROW(tavo::checkImage(ends[0], "standard input", options), tavo::Error);
    for (const int end : ends) close(end);
}

// ---- ranges

std::string refused(const std::function<void()>& work) {
    try {
        work();
    } catch (const tavo::Error& error) {
        std::string text = std::string(error.what()) + " - " + error.hint;
        for (const auto& detail : error.details) text += "\n" + detail;
        return text;
    }
    return "taken";
}

TEST_F(ImageTest, RangesAreReadAsPeopleWriteThem) {
    const std::vector<tavo::NamedRange> layout{{"boot", {0, 0xFFF}}, {"1+1", {7, 7}}};
    const std::vector<std::pair<const char*, AddressRange>> good{{"0x10000-0x1FFFF", {0x10000, 0x1FFFF}},
                                                                 {"16-31", {16, 31}},
                                                                 {"64K+4K", {0x10000, 0x10FFF}},
                                                                 {"0+16M", {0, 0xFFFFFF}},
                                                                 {"5-5", {5, 5}},
                                                                 {"0x1fffff+1", {0x1FFFFF, 0x1FFFFF}},
                                                                 {"boot", {0, 0xFFF}},
                                                                 {"1+1", {7, 7}},
                                                                 {"010-011", {10, 11}},
                                                                 {"1m-0x10FFFF", {0x100000, 0x10FFFF}},
                                                                 {"0-16777215", {0, 0xFFFFFF}}};
    for (const auto& [text, range] : good) EXPECT_EQ(tavo::parseRange(text, layout), range) << text;
    const std::vector<std::pair<const char*, const char*>> bad{{"", "is no range"},
                                                               {"0", "a name of the layout: boot, 1+1"},
                                                               {"-5", "is no range"},
                                                               {"0x-5", "is no range"},
                                                               {"1-2-3", "is no range"},
                                                               {"0- 5", "is no range"},
                                                               {"1G+1", "is no range"},
                                                               {"0xFFFFFFFFFFFFFFFFF-1", "is no range"},
                                                               {"2-1", "ends before"},
                                                               {"5+0", "holds no byte"},
                                                               {"16M+1", "24 address bits"},
                                                               {"0xFFFFFF+2", "24 address bits"},
                                                               {"4294967295+4294967295", "24 address bits"},
                                                               {"0-64K", "write FIRST+SIZE, or 0x000000-0x00FFFF"}};
    for (const auto& [text, fault] : bad)
        EXPECT_THAT(refused([&, text = text] { tavo::parseRange(text, layout); }), HasSubstr(fault)) << text;
    EXPECT_THAT(refused([&] { tavo::parseRange("boot"); }), HasSubstr("--layout"));
}

TEST_F(ImageTest, LayoutFilesNameRangesAndTheirFaultsHaveLines) {
    const auto layout = tavo::readLayout(
        save("# the chip\r\n00000000:00000fff boot\r\n\n  0x1000-1FFF\tapp-1 # and more\n2000-2000 last", "layout"));
    ASSERT_THAT(layout, SizeIs(3));
    EXPECT_EQ(layout[0].name + layout[1].name + layout[2].name, "bootapp-1last");
    EXPECT_EQ(layout[0].range, (AddressRange{0, 0xFFF}));
    EXPECT_EQ(layout[1].range, (AddressRange{0x1000, 0x1FFF}));
    EXPECT_EQ(layout[2].range, (AddressRange{0x2000, 0x2000}));
    const std::string text = refused([&] {
        tavo::readLayout(save("0-FFF a\n1000-1FFF a\n2000-2FFF\nx-y z\n30-20 c\n0-1000000 d\n0-1 e f\n", "bad"));
    });
    EXPECT_THAT(text, HasSubstr("bad refused: line 2: 'a' is named twice"));
    for (const char* fault :
         {"line 3: '2000-2FFF': no name - write it as", "line 4: 'x-y' is no range", "line 5: '30-20' ends",
          "line 6: '0-1000000' reaches beyond 24", "line 7: more than a range and a name"}) {
        EXPECT_THAT(text, HasSubstr(fault));
    }
    EXPECT_THAT(refused([&] { tavo::readLayout(save("# nothing\n", "none")); }), HasSubstr("it names no range"));
    EXPECT_THAT(refused([&] { tavo::readLayout(save(std::string(2 << 20, 'x'), "long")); }), HasSubstr("longer"));
}

TEST_F(ImageTest, TheNearestRangesOnSectorBordersAreFound) {
    using tavo::alignedRanges;
    EXPECT_THAT(alignedRanges({0x1000, 0x2FFF}, 0x1000), ElementsAre(AddressRange{0x1000, 0x2FFF}));
    EXPECT_THAT(alignedRanges({0x0FFF, 0x3000}, 0x1000),
                ElementsAre(AddressRange{0, 0x3FFF}, AddressRange{0x1000, 0x2FFF}));
    EXPECT_THAT(alignedRanges({0x1800, 0x27FF}, 0x1000),
                ElementsAre(AddressRange{0x1000, 0x2FFF}, AddressRange{0x1000, 0x1FFF}));
    EXPECT_THAT(alignedRanges({0x1001, 0x1001}, 0x1000), ElementsAre(AddressRange{0x1000, 0x1FFF}));
    EXPECT_THAT(alignedRanges({0xFFFFFE, 0xFFFFFF}, 0x1000), ElementsAre(AddressRange{0xFFF000, 0xFFFFFF}));
}

TEST_F(ImageTest, APartOfAnImageHasItsBytesInTheRangeOnly) {
    Image image = imageOf(0xFFF0, noise(0x130));
    image.add(0xFFFFFF, Bytes{7}.data(), 1);
    const auto all = noise(0x130);
    EXPECT_EQ(image.part({0xFFF8, 0x10100}), imageOf(0xFFF8, Bytes(all.begin() + 8, all.begin() + 0x111)));
    EXPECT_EQ(image.part({0, 0xFFFFFF}), image);
    EXPECT_TRUE(image.part({0x10200, 0xFFFFFE}).isEmpty());
}

TEST_F(ImageTest, OtherPeoplesToolsReadAndWriteTheSame) {
    if (std::system("objcopy --version >/dev/null 2>&1 && srec_cat --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "objcopy and srec_cat are not installed";
    const auto bytes = noise(150000);
    save(asText(bytes), "in.bin");
    const auto run = [&](const std::string& command) {
        ASSERT_EQ(std::system(("cd " + folder + " && " + command).c_str()), 0) << command;
    };
    for (const char* command : {"objcopy -I binary -O ihex in.bin out", "objcopy -I binary -O srec in.bin out",
                                "srec_cat in.bin -Binary -o out -Intel", "srec_cat in.bin -Binary -o out -Motorola",
                                "srec_cat in.bin -Binary -o out -Intel -address-length=3"}) {
        run(command);
        const auto file = tavo::checkImage(path("out"));
        ASSERT_THAT(file.faults, IsEmpty()) << command;
        EXPECT_EQ(file.image, imageOf(0, bytes)) << command;
    }
    for (const auto& [format, name] : {std::pair{Format::Hex, "ihex"}, {Format::SRecord, "srec"}}) {
        tavo::WriteOptions options;
        options.format = format;
        written(imageOf(0, bytes), options);
        run(std::string("objcopy -I ") + name + " -O binary written back.bin");
        EXPECT_EQ(content("back.bin"), asText(bytes)) << name;
    }
}

// ---- the image itself

TEST_F(ImageTest, PagesRangesAndGapsAreCounted) {
    Image image = imageOf(0x10, noise(300));
    const Bytes blank(512, 0xFF);
    image.add(0x1FF00, blank.data(), blank.size());
    EXPECT_EQ(image.touchedPages(), 4U);
    EXPECT_EQ(image.pagesWithData(), 2U);
    EXPECT_EQ(image.blankPages(), 2U);
    EXPECT_EQ(image.byteCount(), 812U);
    EXPECT_THAT(image.ranges(), ElementsAre(tavo::AddressRange{0x10, 0x13B}, tavo::AddressRange{0x1FF00, 0x200FF}));
    EXPECT_EQ(image.page(0)[0xF], 0xFF);
    EXPECT_EQ(image.page(0)[0x10], noise(1)[0]);
    EXPECT_EQ(image.page(2), nullptr);
    EXPECT_FALSE(image.isWhole(1));
    EXPECT_TRUE(image.isWhole(0x200));
    EXPECT_FALSE(image.at(0xF));
    EXPECT_FALSE(image.at(1 << 24));
    const auto overlap = image.add(0x13A, Bytes{noise(300)[298], 0, 0}.data(), 3);
    ASSERT_TRUE(overlap);
    EXPECT_EQ(overlap->address, 0x13BU);
    EXPECT_EQ(overlap->before, noise(300)[299]);
    EXPECT_EQ(image.byteCount(), 813U);
    Image copy = image;
    copy.add(0, Bytes{1}.data(), 1);
    EXPECT_NE(copy, image);
}

TEST_F(ImageTest, ComparingFindsWhatDiffersByPagesSideBySide) {
    const auto bytes = noise(3000);
    Image chip = imageOf(0, bytes);
    Image wanted = imageOf(0, bytes);
    for (const unsigned at : {0x100U, 0x2FFU, 0x9FFU}) {
        const auto other = static_cast<std::uint8_t>(bytes[at] ^ 1);
        wanted.add(at, &other, 1);
    }
    const auto found = tavo::compare(wanted, chip, 1 << 20, true);
    EXPECT_EQ(found.bytes, 3U);
    EXPECT_EQ(found.pages, 3U);
    ASSERT_THAT(found.differences, SizeIs(2));
    EXPECT_EQ(found.differences[0].range, (tavo::AddressRange{0x100, 0x2FF}));
    EXPECT_EQ(found.differences[0].bytes, 2U);
    EXPECT_EQ(found.differences[0].wanted, bytes[0x100] ^ 1);
    EXPECT_EQ(found.differences[0].found, bytes[0x100]);
    const Image part = imageOf(0, Bytes(bytes.begin(), bytes.begin() + 100));
    EXPECT_TRUE(tavo::compare(part, chip, 3000, false).equal());
    const auto rest = tavo::compare(part, chip, 3000, true);
    EXPECT_EQ(rest.differences.front().range.first, 100U);
    EXPECT_FALSE(rest.differences.front().wanted);
    EXPECT_TRUE(tavo::compare(imageOf(0x200, Bytes(9, 0xFF)), Image(), 1024, true).equal());
    EXPECT_EQ(tavo::compare(wanted, chip, 0x100, true).bytes, 0U);
}

TEST_F(ImageTest, TheMapShowsEachPartOfTheChip) {
    Image image = imageOf(0, noise(1024));
    const Bytes blank(1024, 0xFF);
    image.add(0x800, Bytes{'a'}.data(), 1);
    image.add(0xFFC00, blank.data(), blank.size());
    const auto map = tavo::mapImage(image);
    EXPECT_EQ(map.size, 1U << 20);
    EXPECT_EQ(map.cellSize, 1024U);
    std::string letters;
    for (const auto cell : map.cells) letters += tavo::mapLetter(cell);
    EXPECT_EQ(letters, "#.+" + std::string(1020, '.') + "f");
    Image chip = imageOf(0, noise(1024));
    chip.add(0x400, Bytes{1}.data(), 1);
    const Bytes rest(0xFF800, 0xFF);
    chip.add(0x401, rest.data(), rest.size());  // up to 0x0FFC00
    const auto seen = tavo::mapComparison(image, chip, 1 << 20);
    std::string names;
    for (const auto& part : seen.ranges)
        names += tavo::hexAddress(part.range.first) + " " + tavo::mapCellName(part.cell) + ", ";
    EXPECT_EQ(names,
              "0x000000 equal, 0x000400 beyond, 0x000500 erased, 0x000800 differs, 0x000900 erased, "
              "0x0FFC00 unread, ");
    EXPECT_THAT(std::vector(seen.cells.begin(), seen.cells.begin() + 4),
                ElementsAre(MapCell::Equal, MapCell::Beyond, MapCell::Differs, MapCell::Erased));
    EXPECT_EQ(seen.cells[1023], MapCell::Unread);
    EXPECT_EQ(tavo::mapContents(chip, 1 << 20).cells[1], MapCell::Data);
    EXPECT_EQ(tavo::mapImage(imageOf(2999, {1}), 3000).cells[999], MapCell::Part);
}

}  // namespace
