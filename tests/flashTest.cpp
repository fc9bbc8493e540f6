#include "tavo/flash.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

#include "flash/writeImage.h"
#include "tavo/Configurator.h"
#include "tavo/SpiNand.h"
#include "tests/rigTest.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

using Bytes = std::vector<unsigned char>;
using Journal = std::vector<std::string>;

std::string record(unsigned type, unsigned address, const Bytes& data) {
    char text[16];
    std::snprintf(text, sizeof text, ":%02zX%04X%02X", data.size(), address & 0xFFFF, type);
    std::string line = text;
    unsigned sum = static_cast<unsigned>(data.size()) + (address >> 8 & 0xFF) + (address & 0xFF) + type;
    for (const unsigned char byte : data) {
        std::snprintf(text, sizeof text, "%02X", byte);
        line += text;
        sum += byte;
    }
    std::snprintf(text, sizeof text, "%02X\n", -sum & 0xFF);
    return line + text;
}

std::string dataRecord(unsigned address, const Bytes& data) {
    return record(0, address, data);
}

std::string upperRecord(unsigned upper) {
    return record(4, 0, {static_cast<unsigned char>(upper >> 8), static_cast<unsigned char>(upper)});
}

const std::string kEof = ":00000001FF\n";

/// Collects what the library tells a progress callback, which is a plain function.
std::vector<int> reported;
void collect(char percent) {
    reported.push_back(percent);
}

class FlashTest : public RigTest {
protected:
    FlashTest() {
        // Busy for two polls after each write; no time passes but the library's own waits.
        options.pace = sim::Pace::Fast;
        options.busyPolls = 2;
        rig.reset(options);
        reported.clear();
    }

    ~FlashTest() override { std::filesystem::remove(path); }

    void write(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }

    std::string contents() const {
        std::ifstream file(path, std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

    std::span<std::uint8_t> cells() { return rig.board().flash.cells; }

    Bytes cells(std::size_t address, std::size_t size) {
        return Bytes(cells().begin() + address, cells().begin() + address + size);
    }

    bool isBlank() {
        return std::all_of(cells().begin(), cells().end(), [](unsigned char cell) { return cell == 0xFF; });
    }

    /// The driver alone, on a chip that is reachable.
    template <class Work>
    void withDriver(Work work) {
        Configurator configurator(info);
        ASSERT_EQ(configurator.setupSpi(true), CY_SUCCESS);
        GPIO gpio(info);
        const IOPin reset(gpio, 8, IOPin::HIGH);
        ASSERT_EQ(reset.set(IOPin::LOW), CY_SUCCESS);
        SpiNand flash(*gpio.cyHandle);
        rig.journal.clear();
        work(flash);
    }

    sim::Options options;
    const std::string path = testing::TempDir() + "tavo-flash-" + std::to_string(getpid()) + ".hex";
};

const Journal kTakeScb0 = {"open 0.0", "getspi", "setspi master 900000", "close 0.0", "open 0.0", "pin 8=0"};
const Journal kRelease = {"pin 8=1", "close 0.0", "open 0.0", "getspi", "setspi slave 900000", "close 0.0"};
const Journal kPoll = {"spi 05 00 <2", "sleep 1", "spi 05 00 <2", "sleep 1", "spi 05 00 <2"};  // busy for two polls

Journal operator+(Journal left, const Journal& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

}  // namespace

TEST_F(FlashTest, EraseTakesWaitsErasesAndGivesEverythingBackInOrder) {
    std::fill(cells().begin(), cells().end(), 0x00);
    EXPECT_EQ(eraseSpiFlash(info), TAVO_SUCCESS);
    EXPECT_THAT(rig.journal,
                ElementsAreArray(kTakeScb0 + Journal{"sleep 50", "spi 05 00 <2", "spi 05 00 <2", "spi 06", "spi C7"} +
                                 kPoll + kRelease));
    EXPECT_TRUE(isBlank());
}

TEST_F(FlashTest, ProgramErasesWritesVerifiesReleasesAndThenPauses) {
    write(upperRecord(1) + dataRecord(0x2345, {0xAA, 0xBB, 0xCC}) + kEof);
    EXPECT_EQ(programSpiFlash(info, path.c_str(), nullptr), TAVO_SUCCESS);
    EXPECT_THAT(rig.journal,
                ElementsAreArray(
                    kTakeScb0 + Journal{"sleep 100", "open 0.0", "spi 05 00 <2", "spi 05 00 <2", "spi 06", "spi C7"} +
                    kPoll + Journal{"spi 05 00 <2", "spi 06", "spi 02 01 23 45 AA BB CC"} + kPoll +
                    Journal{"spi 03 01 23 45 AA BB CC <7", "close 0.0"} + kRelease + Journal{"sleep 1500"}));
    EXPECT_THAT(cells(0x012345, 3), ElementsAre(0xAA, 0xBB, 0xCC));
}

TEST_F(FlashTest, ProgramPausesOnlyAfterASuccess) {
    EXPECT_EQ(programSpiFlash(info, (path + ".none").c_str(), nullptr), TAVO_FILE_NOT_FOUND);
    EXPECT_EQ(rig.journal.back(), "close 0.0");
    EXPECT_EQ(rig.lastTimeout, 10000u);
    EXPECT_TRUE(isBlank());  // the chip is erased before the file is opened
}

// Every call through the seam fails once. Whatever fails, what was taken is given back, nothing else
// is sent, and the status comes through.
struct Operation {
    const char* name;
    TAVO_STATUS (*run)(DeviceInfo&, const char*);
    // Calls whose failure does not end the operation: restoring SCB0 or the pin when all is done, a
    // configuration that can be written though not read, a page that may be tried again.
    std::map<std::string, std::vector<unsigned>> tolerated;
};

const Operation kOperations[] = {
    {"erase",
     [](DeviceInfo& device, const char*) { return eraseSpiFlash(device); },
     {{"CyOpen", {3}}, {"CyGetSpiConfig", {1, 2}}, {"CySetSpiConfig", {2}}, {"CySetGpioValue", {2}}}},
    {"program",
     [](DeviceInfo& device, const char* path) { return programSpiFlash(device, path, nullptr); },
     {{"CyOpen", {4}},
      {"CyGetSpiConfig", {1, 2}},
      {"CySetSpiConfig", {2}},
      {"CySetGpioValue", {2}},
      {"CySpiReadWrite", {8, 9, 10, 11, 12, 13, 14}}}},
    {"dump",
     [](DeviceInfo& device, const char* path) { return readSpiFlash(device, path, nullptr); },
     {{"CyOpen", {4}}, {"CyGetSpiConfig", {1, 2}}, {"CySetSpiConfig", {2}}, {"CySetGpioValue", {2}}}},
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

class FlashFault : public FlashTest, public testing::WithParamInterface<Operation> {
protected:
    FlashFault() {
        options.flashSize = 1024;
        violationsExpected =
            true;  // an erase that cannot be watched to its end lets the Neuron go while the chip is busy
        prepare();
    }

    void prepare() {
        rig.reset(options);
        write(dataRecord(0x0100, {1, 2, 3, 4}) + kEof);
    }

    void failAndCheck(const std::string& function, unsigned n, bool tolerated) {
        SCOPED_TRACE(function + " call " + std::to_string(n));
        prepare();
        rig.fail(function, n, CY_ERROR_PIPE_HALTED);
        const TAVO_STATUS result = GetParam().run(info, path.c_str());
        const auto failed = std::find_if(rig.journal.begin(), rig.journal.end(),
                                         [](const std::string& line) { return line.ends_with(" !12"); });
        ASSERT_NE(failed, rig.journal.end());
        if (tolerated) {
            EXPECT_EQ(result, TAVO_SUCCESS);
        } else {
            // A page read reports a failed wait as a failed request, whatever the wait's status was.
            const bool waitOfRead = std::string(GetParam().name) == "dump" && *failed == "spi 05 00 <2 !12";
            EXPECT_EQ(result, waitOfRead ? TAVO_REQUEST_FAILED : TAVO_PIPE_HALTED);
            EXPECT_TRUE(std::none_of(failed + 1, rig.journal.end(), [](const std::string& line) {
                return line.starts_with("spi ") || line.starts_with("sleep ");
            })) << testing::PrintToString(rig.journal);
        }
        const bool pinLeft = function == "CySetGpioValue" && n == 2;  // the release itself failed
        const bool pinUnknown = function == "CySetGpioValue" && n == 1;
        EXPECT_EQ(rig.leftovers(), pinLeft ? "pin 8 low" : "");
        if (pinUnknown) {
            EXPECT_THAT(rig.journal, testing::Contains("pin 8=1"));  // the request may have arrived
        }
    }
};

TEST_P(FlashFault, EachFailingCallEndsTheOperationAndReleasesEverything) {
    ASSERT_EQ(GetParam().run(info, path.c_str()), TAVO_SUCCESS);
    std::map<std::string, unsigned> calls;
    for (const char* function : {"CyOpen", "CyGetSpiConfig", "CySetSpiConfig", "CySetGpioValue", "CySpiReadWrite"}) {
        calls[function] = rig.calls(function);
        ASSERT_GT(calls[function], 0u) << function;
    }
    for (const auto& [function, count] : calls) {
        const auto entry = GetParam().tolerated.find(function);
        for (unsigned n = 1; n <= count; ++n) {
            const bool tolerated =
                entry != GetParam().tolerated.end() && std::count(entry->second.begin(), entry->second.end(), n) != 0;
            failAndCheck(function, n, tolerated);
        }
    }
    rig.reset(options);  // the last fault may have left the pin low
}

INSTANTIATE_TEST_SUITE_P(Operations, FlashFault, testing::ValuesIn(kOperations),
                         [](const auto& instance) { return instance.param.name; });

// A bridge whose SPI block has another number: its opens, and all that follows, are let succeed by plan.
TEST_P(FlashFault, WorksOnTheInterfaceThatTheRecordNames) {
    write(kEof);
    info.scb0DeviceNumber = 3;
    info.scb0InterfaceNumber = 2;
    info.configDeviceNumber = 5;
    for (const char* function : {"CyOpen", "CyGetSpiConfig", "CySetSpiConfig", "CySetGpioValue", "CySpiReadWrite"})
        rig.failFrom(function, 1, CY_SUCCESS);
    EXPECT_EQ(GetParam().run(info, path.c_str()), TAVO_SUCCESS);
    const auto isOpen = [](const std::string& line) { return line.starts_with("open "); };
    const auto isScb0 = [](const std::string& line) { return line == "open 3.2 !0"; };
    EXPECT_EQ(std::ranges::count_if(rig.journal, isScb0), *GetParam().name == 'e' ? 3 : 4);
    EXPECT_EQ(std::ranges::count_if(rig.journal, isOpen), *GetParam().name == 'e' ? 3 : 4);
}

// ---- SCB0

TEST_F(FlashTest, SetupComparesWhatMattersAndRestoresOnlyWhatItChanged) {
    struct Case {
        const char* what;
        void (*change)(CY_SPI_CONFIG&);
        bool writes;
    };
    const Case cases[] = {
        {"as wanted", [](CY_SPI_CONFIG&) {}, false},
        {"bit order", [](CY_SPI_CONFIG& c) { c.isMsbFirst = false; }, false},
        {"select precedes", [](CY_SPI_CONFIG& c) { c.isSelectPrecede = !c.isSelectPrecede; }, false},
        {"clock", [](CY_SPI_CONFIG& c) { c.frequency = 1000000; }, true},
        {"width", [](CY_SPI_CONFIG& c) { c.dataWidth = 16; }, true},
        {"framing", [](CY_SPI_CONFIG& c) { c.protocol = CY_SPI_TI; }, true},
        {"role", [](CY_SPI_CONFIG& c) { c.isMaster = false; }, true},
        {"select held", [](CY_SPI_CONFIG& c) { c.isContinuousMode = false; }, true},
        {"phase", [](CY_SPI_CONFIG& c) { c.isCpha = true; }, true},
        {"polarity", [](CY_SPI_CONFIG& c) { c.isCpol = true; }, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        rig.reset(options);
        CY_SPI_CONFIG& config = rig.board().bridge.spi;
        config = CY_SPI_CONFIG{900000, 8, CY_SPI_MOTOROLA, true, true, true, false, false, false};
        c.change(config);
        {
            Configurator configurator(info);
            EXPECT_EQ(configurator.setupSpi(true), CY_SUCCESS);
            EXPECT_EQ(configurator.spiMasterSet, c.writes);
            EXPECT_EQ(rig.calls("CySetSpiConfig"), c.writes ? 1u : 0u);
        }
        EXPECT_EQ(rig.calls("CySetSpiConfig"), c.writes ? 2u : 0u);
        EXPECT_EQ(rig.board().bridge.spi.isMaster, !c.writes);
    }
}

TEST_F(FlashTest, SetupWritesEveryFieldButSelectPrecede) {
    for (const bool precede : {false, true}) {
        CY_SPI_CONFIG& config = rig.board().bridge.spi;
        config = CY_SPI_CONFIG{3000000, 16, CY_SPI_TI, false, false, false, precede, true, true};
        Configurator configurator(info);
        EXPECT_EQ(configurator.setupSpi(true), CY_SUCCESS);
        EXPECT_EQ(config.frequency, 900000u);
        EXPECT_EQ(config.dataWidth, 8);
        EXPECT_EQ(config.protocol, CY_SPI_MOTOROLA);
        EXPECT_TRUE(config.isMsbFirst && config.isMaster && config.isContinuousMode);
        EXPECT_EQ(config.isSelectPrecede, precede);
        EXPECT_FALSE(config.isCpha || config.isCpol);
    }
}

TEST_F(FlashTest, SetupOwesASlaveOnlyForAMasterThatWasWritten) {
    for (const bool master : {true, false}) {
        for (const auto result : {CY_SUCCESS, CY_ERROR_IO_TIMEOUT}) {
            rig.reset(options);
            rig.board().bridge.spi.isMaster = !master;
            Configurator configurator(info);
            configurator.spiMasterSet = !master;  // as an earlier call left it
            if (result != CY_SUCCESS) rig.fail("CySetSpiConfig", 1, result);
            EXPECT_EQ(configurator.setupSpi(master), result);
            EXPECT_EQ(configurator.spiMasterSet, master && result == CY_SUCCESS) << master << result;
        }
    }
}

TEST_F(FlashTest, SetupOfABlockThatCannotBeReadIsNotAnError) {
    rig.fail("CyGetSpiConfig", 1, CY_ERROR_IO_TIMEOUT);
    Configurator configurator(info);
    EXPECT_EQ(configurator.setupSpi(true), CY_SUCCESS);
    EXPECT_TRUE(configurator.spiMasterSet);
    EXPECT_FALSE(rig.board().bridge.spi.isSelectPrecede);

    rig.fail("CySetSpiConfig", 1, CY_ERROR_IO_TIMEOUT);
    EXPECT_EQ(configurator.setupSpi(false), CY_ERROR_IO_TIMEOUT);
    EXPECT_FALSE(configurator.spiMasterSet);  // unknown now: the destructor leaves it
}

// ---- the driver

TEST_F(FlashTest, SizeIsTwoToTheCapacityCodeAndAbsentChipsAreRefused) {
    for (const int code : {0, 0x10, 0x14, 0x18, 0x1F, 0x20, 0xFF}) {
        SCOPED_TRACE(code);
        options.capacityCode = code;
        rig.reset(options);
        withDriver([&](SpiNand& flash) {
            unsigned int size = 7;
            if (code < 32) {
                EXPECT_EQ(flash.getFlashSize(size), CY_SUCCESS);
                EXPECT_EQ(size, 1u << code);
            } else {
                EXPECT_EQ(flash.getFlashSize(size), CY_ERROR_REQUEST_FAILED);
                EXPECT_EQ(size, 7u);
            }
            EXPECT_THAT(rig.journal, ElementsAre("spi 9F 00 00 00 <4"));
        });
    }
}

TEST_F(FlashTest, ProtectionIsRemovedWhenABitIsSetAndOnlyThen) {
    for (const int status : {0x00, 0x02, 0x04, 0x08, 0x10, 0x80, 0x9C}) {
        SCOPED_TRACE(status);
        rig.reset(options);
        withDriver([&](SpiNand& flash) {
            rig.board().flash.status = static_cast<std::uint8_t>(status);
            EXPECT_EQ(flash.disableWriteProtection(), CY_SUCCESS);
            const bool isProtected = (status & 0x9C) != 0;
            EXPECT_THAT(rig.journal, ElementsAreArray(isProtected ? Journal{"spi 05 00 <2", "spi 06", "spi 01 00"}
                                                                  : Journal{"spi 05 00 <2"}));
            EXPECT_EQ(rig.board().flash.status & 0x9C, 0);
            EXPECT_EQ(flash.waitForOpInProgress(), CY_SUCCESS);
        });
    }
}

TEST_F(FlashTest, ReadingSendsTheAddressAndKeepsTheDataBehindTheHeader) {
    for (unsigned i = 0; i < 16; ++i) cells()[0x100 + i] = static_cast<std::uint8_t>(i);
    withDriver([&](SpiNand& flash) {
        Bytes buffer(20, 0xEE);
        EXPECT_EQ(flash.readPage((1u << 24) + 0x100, buffer.data(), 20), CY_SUCCESS);  // bits above 23 are not sent
        EXPECT_EQ(Bytes(buffer.begin() + 4, buffer.end()), cells(0x100, 16));
        EXPECT_THAT(rig.journal, ElementsAre("spi 05 00 <2", "spi 03 00 01 00 00 00 00 00 ..(20) <20"));
        rig.fail("CySpiReadWrite", 1, CY_ERROR_IO_TIMEOUT);
        EXPECT_EQ(flash.readPage(0, buffer.data(), 20), CY_ERROR_REQUEST_FAILED);
        rig.fail("CySpiReadWrite", 2, CY_ERROR_IO_TIMEOUT);
        EXPECT_EQ(flash.readPage(0, buffer.data(), 20), CY_ERROR_IO_TIMEOUT);
        EXPECT_EQ(buffer, Bytes(20, 0)) << "no data of an earlier page";
    });
}

TEST_F(FlashTest, BlankPagesCostNothingAndOneOddByteCostsAPage) {
    withDriver([&](SpiNand& flash) {
        Bytes page(260, 0xFF);
        Bytes readBack(260, 0xEE);
        page[0] = 0x55;
        EXPECT_EQ(flash.writePage(0, page.data(), readBack.data(), 256), CY_SUCCESS);
        EXPECT_EQ(flash.writePage(0, page.data(), readBack.data(), 0), CY_SUCCESS);
        EXPECT_THAT(rig.journal, IsEmpty());
        EXPECT_EQ(page[0], 0x55);
        EXPECT_EQ(readBack[0], 0xEE);
        page[259] = 0x7F;
        EXPECT_EQ(flash.writePage(0x200, page.data(), readBack.data(), 256), CY_SUCCESS);
        EXPECT_EQ(cells()[0x2FF], 0x7F);
        EXPECT_EQ(page[0], 0x03);
    });
}

TEST_F(FlashTest, APageIsTriedThreeTimesWithoutAPauseAndThenGivenUp) {
    withDriver([&](SpiNand& flash) {
        Bytes page(8, 0x12);
        Bytes readBack(8);
        rig.board().flash.busyPolls = 0;
        rig.loseProgram(1);
        rig.flipReadBit(2, 3, 7);  // the second attempt is programmed and read wrongly
        EXPECT_EQ(flash.writePage(0, page.data(), readBack.data(), 4), CY_SUCCESS);
        EXPECT_EQ(std::count(rig.journal.begin(), rig.journal.end(), "spi 06"), 3);
        EXPECT_THAT(rig.journal, testing::Not(testing::Contains(testing::StartsWith("sleep"))));

        rig.journal.clear();
        for (unsigned n = 1; n <= 3; ++n) rig.loseProgram(n);
        EXPECT_EQ(flash.writePage(0x100, page.data(), readBack.data(), 4), CY_ERROR_DOWNLOAD_FAILED);
        EXPECT_EQ(std::count(rig.journal.begin(), rig.journal.end(), "spi 06"), 3);

        std::copy(page.begin(), page.end(), readBack.begin());  // as an earlier page left it
        for (const unsigned n : {5, 10, 15}) rig.fail("CySpiReadWrite", n, CY_ERROR_IO_TIMEOUT);  // the read-backs
        EXPECT_EQ(flash.writePage(0x200, page.data(), readBack.data(), 4), CY_ERROR_DOWNLOAD_FAILED);
        EXPECT_EQ(readBack, Bytes(8, 0));
    });
}

// The cells hold the page's bytes already, so a step that is taken for done would pass the comparison.
TEST_F(FlashTest, EveryStepThatFailsCostsAnAttempt) {
    const Journal attempt = {"spi 05 00 <2", "spi 06", "spi 02 00 00 00 00 00 00 00", "spi 05 00 <2",
                             "spi 03 00 00 00 00 00 00 00 <8"};
    options.busyPolls = 0;
    for (std::size_t failing = 0; failing < attempt.size(); ++failing) {
        SCOPED_TRACE(attempt[failing]);
        rig.reset(options);
        std::fill_n(cells().begin(), 4, 0);
        withDriver([&](SpiNand& flash) {
            Bytes page(8, 0);
            Bytes readBack(8);
            rig.fail("CySpiReadWrite", static_cast<unsigned>(failing + 1), CY_ERROR_IO_TIMEOUT);
            EXPECT_EQ(flash.writePage(0, page.data(), readBack.data(), 4), CY_SUCCESS);
            Journal expected(attempt.begin(), attempt.begin() + static_cast<std::ptrdiff_t>(failing));
            expected.push_back(attempt[failing] + " !11");
            EXPECT_THAT(rig.journal, ElementsAreArray(expected + attempt));
        });
    }
}

// Without SCB0 as master nothing drives the line: every byte reads FF, as on a board without a chip.
TEST_F(FlashTest, AnAbsentChipIsNeitherIdleNorOfAnySize) {
    violationsExpected = true;
    const CyHandle scb0(0, 0);
    const SpiNand flash(scb0);
    unsigned char status = 0;
    unsigned int size = 7;
    EXPECT_EQ(flash.readStatus(status), CY_SUCCESS);
    EXPECT_EQ(status, 0xFF);
    EXPECT_EQ(flash.getFlashSize(size), CY_ERROR_REQUEST_FAILED);
    EXPECT_EQ(size, 7u);
    rig.keepJournal = false;
    Bytes buffer(5);
    const unsigned before = rig.calls("CySpiReadWrite");
    EXPECT_EQ(flash.erase(), CY_ERROR_IO_TIMEOUT);
    EXPECT_EQ(flash.readPage(0, buffer.data(), 5), CY_ERROR_REQUEST_FAILED);
    EXPECT_EQ(rig.calls("CySpiReadWrite") - before, 2 * 1200000u) << "the polls and nothing else";
}

TEST_F(FlashTest, AHandleThatIsNotOpenIsNeverUsed) {
    rig.fail("CyOpen", 1, CY_ERROR_ACCESS_DENIED);
    const CyHandle closed(0, 0);
    const SpiNand flash(closed);
    Bytes page(5, 0xFF);
    unsigned char status = 0;
    unsigned int size = 0;
    bool busy = false;
    const CY_RETURN_STATUS results[] = {
        flash.enableWrite(),
        flash.readStatus(status),
        flash.writeStatus(0),
        flash.getFlashSize(size),
        flash.isOpInProgress(busy),
        flash.waitForOpInProgress(),
        flash.disableWriteProtection(),
        flash.erase(),
        flash.readPage(0, page.data(), 5),
        flash.writePage(0, page.data(), page.data(), 1),  // although the page is blank
    };
    EXPECT_THAT(results, testing::Each(CY_ERROR_ACCESS_DENIED));
    EXPECT_THAT(rig.journal, ElementsAre("open 0.0 !1"));
}

TEST_F(FlashTest, AChipThatStaysBusyIsGivenUpAfterTwentyMinutes) {
    withDriver([&](SpiNand& flash) {
        rig.keepJournal = false;
        rig.board().flash.busyPolls = 2000000;
        const auto sleeps = rig.calls("sleep");
        EXPECT_EQ(flash.erase(), CY_ERROR_IO_TIMEOUT);
        EXPECT_EQ(rig.calls("sleep") - sleeps, 1200000u);
        rig.keepJournal = true;
    });
    rig.reset(options);  // let go of a busy chip
}

TEST_F(FlashTest, AFullPageCosts527BytesInSixTransfersAndOneSleep) {
    withDriver([&](SpiNand& flash) {
        Bytes page(260, 0x12);
        Bytes readBack(260);
        rig.board().flash.busyPolls = 1;
        const auto bytes = rig.spiBytes;
        const auto transfers = rig.spiTransfers;
        EXPECT_EQ(flash.writePage(0, page.data(), readBack.data(), 256), CY_SUCCESS);
        EXPECT_EQ(rig.spiBytes - bytes, 527u);
        EXPECT_EQ(rig.spiTransfers - transfers, 6u);
        EXPECT_EQ(std::count(rig.journal.begin(), rig.journal.end(), "sleep 1"), 1);
    });
}

// ---- files

TEST_F(FlashTest, AFileIsProgrammedAsFarAsItCanBeRead) {
    struct Case {
        const char* what;
        std::string text;
        TAVO_STATUS result;
        const char* message;
        bool firstPage;  // 0x0000 to 0x00FF programmed
        bool rest;       // 4 bytes at 0x0100
    };
    const std::string page = dataRecord(0, Bytes(255, 0x11)) + dataRecord(255, {0x11});
    const std::string rest = dataRecord(0x100, {1, 2, 3, 4});
    std::string wrongSum = rest;
    wrongSum[wrongSum.size() - 2] ^= 1;
    std::string carriageReturn = rest;
    carriageReturn.insert(carriageReturn.size() - 1, "\r");
    const Case cases[] = {
        {"whole", page + rest + kEof, TAVO_SUCCESS, "", true, true},
        {"empty", "", TAVO_SUCCESS, "", false, false},
        {"only the end", kEof, TAVO_SUCCESS, "", false, false},
        {"no end-of-file record", page + rest, TAVO_SUCCESS, "", true, false},
        {"last line without line feed", page + rest + kEof.substr(0, 11), TAVO_SUCCESS, "", true, true},
        {"wrong checksum", page + wrongSum + kEof, TAVO_FLASH_PROGRAMMING_FAILED,
         "Corrupt Intel HEX, wrong checksum.\n\n", true, false},
        {"carriage return", page + carriageReturn + kEof, TAVO_FLASH_PROGRAMMING_FAILED,
         "Corrupt Intel HEX, wrong checksum.\n\n", true, false},
        {"blank line", page + "\n" + rest + kEof, TAVO_FLASH_PROGRAMMING_FAILED,
         "basic_string::substr: __pos (which is 1) > this->size() (which is 0)\n", true, false},
        {"start address record", page + record(5, 0, {0, 0, 0, 0}), TAVO_FLASH_PROGRAMMING_FAILED,
         "Unsupported Intel HEX record type 0x5\n\n", true, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        rig.reset(options);
        write(c.text);
        testing::internal::CaptureStderr();
        EXPECT_EQ(programSpiFlash(info, path.c_str(), nullptr), c.result);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message);
        EXPECT_EQ(cells(0, 256), Bytes(256, c.firstPage ? 0x11 : 0xFF));
        EXPECT_EQ(cells(0x100, 4), c.rest ? Bytes({1, 2, 3, 4}) : Bytes(4, 0xFF));
    }
}

// What cannot be read ends the loop as the end of a file does; a size can only be asked of a file.
TEST_F(FlashTest, AFolderOrAPipeIsASuccessThatLeavesTheChipErased) {
    const auto programPipe = [&](void (*progress)(char)) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const std::string text = dataRecord(0, {1, 2}) + kEof;
        EXPECT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(ends[1]);
        EXPECT_EQ(programSpiFlash(info, ("/dev/fd/" + std::to_string(ends[0])).c_str(), progress), TAVO_SUCCESS);
        close(ends[0]);
    };
    for (const auto progress : {static_cast<void (*)(char)>(nullptr), &collect}) {
        cells()[0] = 0;
        EXPECT_EQ(programSpiFlash(info, testing::TempDir().c_str(), progress), TAVO_SUCCESS);
        EXPECT_TRUE(isBlank());
    }
    cells()[0] = 0;
    programPipe(collect);
    EXPECT_TRUE(isBlank());
    EXPECT_THAT(reported, IsEmpty());
    programPipe(nullptr);
    EXPECT_THAT(cells(0, 3), ElementsAre(1, 2, 0xFF));
}

TEST_F(FlashTest, APageThatCannotBeProgrammedEndsTheImage) {
    write(dataRecord(0, {1}) + dataRecord(0x100, {2}) + dataRecord(0x200, {3}) + kEof);
    for (unsigned n = 2; n <= 4; ++n) rig.loseProgram(n);
    EXPECT_EQ(programSpiFlash(info, path.c_str(), nullptr), TAVO_FLASH_PROGRAMMING_FAILED);
    EXPECT_EQ(rig.journal.back(), "close 0.0");  // no pause
    EXPECT_EQ(cells()[0], 1);
    EXPECT_EQ(cells(0x100, 0x101), Bytes(0x101, 0xFF));
}

TEST_F(FlashTest, RunsThatStartInsideAPageReachTheirOwnAddresses) {
    write(dataRecord(0x00FE, {1, 2, 3, 4}) + dataRecord(0x01FF, {5, 6}) + upperRecord(1) + dataRecord(0xFFFF, {7, 8}) +
          kEof);
    EXPECT_EQ(programSpiFlash(info, path.c_str(), nullptr), TAVO_SUCCESS);
    EXPECT_THAT(cells(0x00FD, 6), ElementsAre(0xFF, 1, 2, 3, 4, 0xFF));
    EXPECT_THAT(cells(0x01FE, 4), ElementsAre(0xFF, 5, 6, 0xFF));
    EXPECT_THAT(cells(0x1FFFE, 4), ElementsAre(0xFF, 7, 8, 0xFF));
}

TEST_F(FlashTest, ProgressCountsTheBytesOfTheText) {
    const std::string first = dataRecord(0, Bytes(200, 0)) + dataRecord(200, Bytes(255, 0xFF));
    const std::string second = first + dataRecord(0x10F0, Bytes(32, 0));
    const std::string third = second + dataRecord(0x2000, {1});  // closes a run that lies in two pages
    write(third + kEof.substr(0, 11));                           // the last line has no line feed
    const auto size = static_cast<int>(contents().size());
    EXPECT_EQ(programSpiFlash(info, path.c_str(), collect), TAVO_SUCCESS);
    const auto share = [&](const std::string& read) { return static_cast<int>(read.size()) * 100 / size; };
    EXPECT_THAT(reported, ElementsAre(share(first), share(second), share(third), 100));

    // The first page at 1 % of the text, and at 0 %, which is not told.
    for (const int records : {5, 6}) {
        reported.clear();
        std::string text = dataRecord(0, {1}) + dataRecord(0x1000, {2});
        for (int i = 0; i < records; ++i)
            text += dataRecord(0x2000U + 0x200U * static_cast<unsigned>(i), Bytes(255, 0));
        write(text + kEof);
        EXPECT_EQ(programSpiFlash(info, path.c_str(), collect), TAVO_SUCCESS);
        EXPECT_EQ(reported.front() == 1, records == 5);
        EXPECT_THAT(reported, testing::Each(testing::Gt(0)));
    }

    reported.clear();
    write(kEof.substr(0, 11));  // an empty page is a page; no line feed is counted that is not there
    EXPECT_EQ(programSpiFlash(info, path.c_str(), collect), TAVO_SUCCESS);
    EXPECT_THAT(reported, ElementsAre(100));
}

TEST_F(FlashTest, ACallbackCanLeaveAndEverythingIsReleased) {
    write(dataRecord(0, {1}) + kEof);
    struct Interrupted {};
    EXPECT_THROW(static_cast<void>(programSpiFlash(info, path.c_str(), [](char) { throw Interrupted(); })),
                 Interrupted);
    EXPECT_EQ(rig.leftovers(), "");
    EXPECT_EQ(rig.journal.back(), "close 0.0");
    EXPECT_THROW(static_cast<void>(readSpiFlash(info, path.c_str(), [](char) { throw Interrupted(); })), Interrupted);
    EXPECT_EQ(rig.leftovers(), "");

    write(dataRecord(0, {1}) + kEof);
    testing::internal::CaptureStderr();
    const auto fail = [](char) { throw std::runtime_error("out of paper"); };
    EXPECT_EQ(programSpiFlash(info, path.c_str(), fail), TAVO_FLASH_PROGRAMMING_FAILED);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "out of paper\n");
}

// ---- dump

TEST_F(FlashTest, DumpTakesReadsReleasesAndThenPauses) {
    options.flashSize = 256;
    options.busyPolls = 0;
    rig.reset(options);
    EXPECT_EQ(readSpiFlash(info, path.c_str(), nullptr), TAVO_SUCCESS);
    EXPECT_THAT(rig.journal, ElementsAreArray(kTakeScb0 +
                                              Journal{"sleep 100", "open 0.0", "spi 9F 00 00 00 <4", "spi 05 00 <2",
                                                      "spi 03 00 00 00 00 00 00 00 ..(259) <259", "spi 05 00 <2",
                                                      "spi 03 00 00 FF 00 <5", "close 0.0"} +
                                              kRelease + Journal{"sleep 1500"}));
}

TEST_F(FlashTest, ADumpHoldsEveryByteInRisingOrder) {
    struct Case {
        std::uint32_t size;
        int dataRecords;
        int upperRecords;
        std::string last;
        int lastPercent;
    };
    const Case cases[] = {
        {0x10000, 258, 0, dataRecord(0xFFFF, {0x5A}), 100},
        {0x100000, 4113, 15, dataRecord(0xFFF0, Bytes(16, 0x5A)), 99},
        {0x1000000, 65794, 255, dataRecord(0xFFFF, {0x5A}), 100},
    };
    rig.keepJournal = false;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.size);
        options.flashSize = c.size;
        rig.reset(options);
        std::fill(cells().begin(), cells().end(), 0x5A);
        reported.clear();
        testing::internal::CaptureStdout();
        EXPECT_EQ(readSpiFlash(info, path.c_str(), collect), TAVO_SUCCESS);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "FlashSize: " + std::to_string(c.size) + " Bytes\n");
        const std::string text = contents();
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), c.dataRecords + c.upperRecords + 1);
        EXPECT_TRUE(text.ends_with(c.last + kEof));
        EXPECT_EQ(reported.size(), static_cast<std::size_t>(c.dataRecords));
        EXPECT_EQ(reported.front(), 0);
        EXPECT_EQ(reported.back(), c.lastPercent);
        if (c.size > 0x10000) {  // a chunk does not stop at 64 KiB
            const auto crossing = text.find(dataRecord(0xFFFF, Bytes(255, 0x5A)) + upperRecord(1) + ":FF00FE00");
            EXPECT_NE(crossing, std::string::npos);
        }
    }
}

TEST_F(FlashTest, ADumpThatFailsTellsWhyAndLeavesWholeRecords) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(readSpiFlash(info, "/nonexistent/dump.hex", nullptr), TAVO_FILE_NOT_FOUND);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "FlashSize: 1048576 Bytes\n");
    EXPECT_EQ(rig.journal.back(), "close 0.0");  // no pause
    const unsigned before = rig.calls("CySpiReadWrite");
    EXPECT_EQ(readSpiFlash(info, "/dev/full", nullptr), TAVO_REQUEST_FAILED);
    EXPECT_EQ(rig.calls("CySpiReadWrite") - before, 3u) << "the ID, then status and data of one chunk";
    EXPECT_EQ(rig.leftovers(), "");

    rig.fail("CySpiReadWrite", 7, CY_ERROR_PIPE_HALTED);  // the ID, then status and data of three chunks
    EXPECT_EQ(readSpiFlash(info, path.c_str(), nullptr), TAVO_PIPE_HALTED);
    EXPECT_EQ(contents(), dataRecord(0, Bytes(255, 0xFF)) + dataRecord(255, Bytes(255, 0xFF)));

    options.capacityCode = 0xFF;
    rig.reset(options);
    std::filesystem::remove(path);
    EXPECT_EQ(readSpiFlash(info, path.c_str(), nullptr), TAVO_REQUEST_FAILED);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FlashTest, AChipOfOneByteIsDoneAfterItsOnlyChunk) {
    options.capacityCode = 0;
    rig.reset(options);
    EXPECT_EQ(readSpiFlash(info, path.c_str(), collect), TAVO_SUCCESS);
    EXPECT_THAT(reported, ElementsAre(100));
    EXPECT_EQ(contents(), dataRecord(0, {0xFF}) + kEof);
}

TEST_F(FlashTest, ADumpIsAFixedPointOfProgramming) {
    options.flashSize = 0x40000;
    rig.reset(options);
    write(dataRecord(0x00F3, Bytes(40, 0x21)) + upperRecord(0) + dataRecord(0xFFF0, Bytes(32, 0x43)) + upperRecord(3) +
          dataRecord(0xFFFF, {0x65}) + kEof);
    ASSERT_EQ(programSpiFlash(info, path.c_str(), nullptr), TAVO_SUCCESS);
    const Bytes before(cells().begin(), cells().end());
    ASSERT_EQ(readSpiFlash(info, path.c_str(), nullptr), TAVO_SUCCESS);
    ASSERT_EQ(programSpiFlash(info, path.c_str(), nullptr), TAVO_SUCCESS);
    EXPECT_EQ(Bytes(cells().begin(), cells().end()), before);
}
