// The Intel HEX writer: lines as bytes, and chunks read from the simulated flash.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "platform/cyusbserial.h"
#include "tavo/Configurator.h"
#include "tavo/hexFileReader.h"
#include "tavo/hexFileWriter.h"
#include "tests/rigTest.h"

class HexWriter : public RigTest {
protected:
    HexWriter() { g_extAddress = 0; }
    ~HexWriter() override { std::remove(path.c_str()); }

    // What a reader of the file finds while the writer still holds it open; the next call starts anew.
    std::string written() {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        file.close();
        file.open(path, std::ios::trunc);
        return text.str();
    }

    const std::string path = testing::TempDir() + "hexWriter.hex";
    std::ofstream file{path};
};

TEST_F(HexWriter, HasEachLineInTheFileAtOnce) {
    setEofHexFile(&file);
    EXPECT_EQ(written(), ":00000001FF\n");
    unsigned char data[255] = {0xAB, 0x00, 0xFF};
    writeToHexFile(&file, data, 3, 0x1234, HEX_DATA);
    EXPECT_EQ(written(), ":03123400AB00FF0D\n");
    writeToHexFile(&file, nullptr, 3, 0xFEDC, static_cast<HexFileDataType>(5));
    EXPECT_EQ(written(), ":03FEDC051E\n");
    writeToHexFile(&file, data, 255, 0xFFFF, HEX_DATA);
    EXPECT_EQ(written(), ":FFFFFF00AB00FF" + std::string(504, '0') + "59\n");
    EXPECT_EQ(convertHexToString(static_cast<unsigned char>(0x0A)), "0A");
    EXPECT_EQ(convertHexToString(static_cast<unsigned short>(0x0F1E)), "0F1E");
}

TEST_F(HexWriter, AnnouncesEach64KiBBlockOnce) {
    HandleAddressOverflow(&file, 0);
    HandleAddressOverflow(&file, 0xFFFF);
    EXPECT_EQ(written(), "");
    EXPECT_TRUE(checkFor16BitOverflow(0x10000));
    HandleAddressOverflow(&file, 0x100FE);
    EXPECT_EQ(written(), ":020000040001F9\n");
    HandleAddressOverflow(&file, 0x101FD);
    EXPECT_EQ(written(), "");
    HandleAddressOverflow(&file, 0xABCD0000);
    EXPECT_EQ(written(), ":02000004ABCD82\n");
    HandleAddressOverflow(&file, 0x20000);  // below what was announced
    EXPECT_EQ(written(), "");
    EXPECT_EQ(g_extAddress, 0xABCD);
}

TEST_F(HexWriter, WritesWhatTheReaderReads) {
    std::mt19937 random(20261122);
    std::vector<unsigned char> image(0x30123);
    std::generate(image.begin(), image.end(), [&] { return static_cast<unsigned char>(random()); });
    for (std::size_t at = 0, size; at < image.size(); at += size) {
        size = std::min<std::size_t>(1 + random() % 255, image.size() - at);
        HandleAddressOverflow(&file, static_cast<unsigned int>(at));
        writeToHexFile(&file, &image[at], static_cast<unsigned char>(size), static_cast<unsigned short>(at), HEX_DATA);
    }
    setEofHexFile(&file);

    std::istringstream lines(written());
    std::vector<unsigned char> read;
    IntelHexParser parser(256);
    for (std::string line; std::getline(lines, line);) {
        parser.ParseRecord(line.c_str());
        while (parser.isPageReady()) {
            ASSERT_EQ(parser.FetchAddress(), read.size());
            const auto page = parser.FetchPage();
            read.insert(read.end(), page.begin(), page.end());
        }
    }
    EXPECT_TRUE(read == image);
}

TEST_F(HexWriter, LeavesAFullDiskToTheCallersLookAtTheStream) {
    std::ofstream full("/dev/full");
    setEofHexFile(&full);
    EXPECT_FALSE(full);
}

class HexWriterOnFlash : public HexWriter {
protected:
    HexWriterOnFlash() {
        EXPECT_EQ(configurator.setupSpi(true), CY_SUCCESS);
        EXPECT_EQ(reset.set(IOPin::LOW), CY_SUCCESS);
        auto& cells = rig.board().flash.cells;
        for (std::size_t i = 0; i < cells.size(); ++i) cells[i] = static_cast<unsigned char>(i % 251);
        rig.journal.clear();
    }
    void TearDown() override {}  // the pin and the handles are members: looked at once they are gone
    ~HexWriterOnFlash() override { EXPECT_THAT(rig.violations(), testing::IsEmpty()); }

    Configurator configurator{info};
    GPIO gpio{info};
    IOPin reset{gpio, 8, IOPin::HIGH};
    CyHandle scb0{info.scb0DeviceNumber, info.scb0InterfaceNumber};
    SpiNand flash{scb0};
};

TEST_F(HexWriterOnFlash, CutsTheLastChunkAtTheLastByte) {
    EXPECT_EQ(WriteSPIFlashDataToHexFile(&file, flash, 255, 1048560, 1048575), CY_SUCCESS);
    EXPECT_EQ(written(), ":10FFF00085868788898A8B8C8D8E8F909192939439\n");
    EXPECT_THAT(rig.journal, testing::ElementsAre("spi 05 00 <2", "spi 03 0F FF F0 00 00 00 00 ..(20) <20"));
}

TEST_F(HexWriterOnFlash, DoesNotSplitAChunkAt64KiB) {
    EXPECT_EQ(WriteSPIFlashDataToHexFile(&file, flash, 255, 0xFFFF, 1048575), CY_SUCCESS);
    const std::string text = written();
    EXPECT_EQ(text.substr(0, 13), ":FFFFFF001819");
    EXPECT_EQ(text.size(), 522U);
    EXPECT_EQ(g_extAddress, 0);
}

TEST_F(HexWriterOnFlash, WritesNothingForAChunkThatCannotBeRead) {
    rig.fail("CySpiReadWrite", 2, CY_ERROR_IO_TIMEOUT);  // 1 is the look at the chip's status
    EXPECT_EQ(WriteSPIFlashDataToHexFile(&file, flash, 255, 0, 1048575), CY_ERROR_IO_TIMEOUT);
    EXPECT_EQ(written(), "");
}
