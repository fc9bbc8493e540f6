// The flash operations of the service layer: what is on the wire, what is told, what is released.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>

#include "platform/cyusbserial.h"
#include "service/flash/plan.h"
#include "tavo/Configurator.h"
#include "tavo/flash.h"
#include "tavo/service/backups.h"
#include "tavo/service/configuration.h"
#include "tavo/service/doctor.h"
#include "tavo/service/flash.h"
#include "tavo/service/history.h"
#include "tavo/service/neuron.h"
#include "tavo/service/overview.h"
#include "tavo/service/recover.h"
#include "tests/serviceTest.h"

using tavo::FlashState;
using tavo::Problem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using Bytes = std::vector<std::uint8_t>;
using Journal = std::vector<std::string>;

Bytes noise(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
    return bytes;
}

tavo::Image imageOf(const std::map<std::uint32_t, Bytes>& pieces) {
    tavo::Image image;
    for (const auto& [address, bytes] : pieces) image.add(address, bytes.data(), bytes.size());
    return image;
}

/// What reaches the wire, in order: transfers, the reset line, the role of SCB0, and the time between them.
/// The looks that the service adds (ID, levels, settings) change nothing.
Journal wire(const Journal& journal) {
    Journal result;
    long slept = 0;
    const auto flush = [&] {
        if (slept > 0) result.push_back("sleep " + std::to_string(slept));
        slept = 0;
    };
    for (const std::string& line : journal) {
        if (line.starts_with("sleep ")) slept += std::stol(line.substr(6));
        const bool counts = line.starts_with("setspi ") || (line.starts_with("pin ") && !line.ends_with("?")) ||
                            (line.starts_with("spi ") && !line.starts_with("spi 9F ") && !line.starts_with("spi 5A "));
        if (!counts) continue;
        flush();
        result.push_back(line);
    }
    flush();
    return result;
}

class Flash : public ServiceTest {
protected:
    Flash() {
        options.pace = sim::Pace::Fast;  // no time but the waits, and three polls after each write
        options.busyPolls = 2;
        options.folder = folder + "/board";
        options.flashSize = 64U << 10;
        fresh();
    }

    void fresh() {
        findAgain();
        rig.reset(options);
        rig.keepJournal = true;
    }

    std::span<std::uint8_t> cells() { return rig.board().flash.cells; }

    /// Just that, and FF everywhere else.
    bool holds(const tavo::Image& wanted) {
        for (std::uint32_t at = 0; at < cells().size(); ++at) {
            if (cells()[at] != wanted.at(at).value_or(0xFF)) return false;
        }
        return true;
    }

    CY_SPI_CONFIG spi() {
        const CyHandle scb0(0, 0);
        CY_SPI_CONFIG config{};
        EXPECT_EQ(CyGetSpiConfig(scb0.handle, &config), CY_SUCCESS);
        return config;
    }

    /// Runs it and returns the failure.
    template <class Work>
    tavo::Error failureOf(Work work) {
        try {
            work();
        } catch (const tavo::Error& error) {
            return error;
        }
        ADD_FAILURE() << "it did not fail";
        return {Problem::Internal, ""};
    }
    /// Of the whole-chip way, unless told otherwise.
    tavo::Error failureOfProgram(const tavo::ProgramOptions& how = {.full = true}) {
        return failureOf([&] { programFlash(device(), image, how, control()); });
    }

    tavo::Control control() {
        return {[this](const tavo::Event& event) { onEvent(event); }, &token};
    }
    void onEvent(const tavo::Event& event) {
        if (event.kind == tavo::Event::Kind::Warning) warnings.push_back(event.text);
        if (event.kind == tavo::Event::Kind::PhaseBegins) phases.emplace_back(phaseName(event.phase));
        if (observe) observe(event);
    }
    void cancelIn(tavo::Phase phase, tavo::Event::Kind kind) {
        observe = [this, phase, kind](const tavo::Event& event) {
            if (event.phase == phase && event.kind == kind) token.cancel();
        };
    }

    std::optional<tavo::InterruptedRun> remembered() { return interruptedRun(device().description()); }

    sim::Options options;
    tavo::CancelToken token;
    std::function<void(const tavo::Event&)> observe;
    std::vector<std::string> warnings;
    std::vector<std::string> phases;
    const tavo::Image image = imageOf({{0x20, noise(700, 1)}, {0x8100, Bytes(512, 0xFF)}, {0xFFF8, noise(8, 2)}});
};

}  // namespace

// ---- the same on the wire as the library

TEST_F(Flash, BothWaysEndWithTheSameBytes) {
    for (const bool full : {true, false}) {
        fresh();
        const Bytes before = noise(cells().size(), 7);
        std::copy(before.begin(), before.end(), cells().begin());
        rig.board().flash.status = 0x1C;  // protected
        phases.clear();
        const auto result = programFlash(device(), image, {.full = full}, control());
        EXPECT_TRUE(holds(image));
        EXPECT_EQ(result.pagesWritten, 4u);
        EXPECT_EQ(result.pagesBlank, 2u);
        EXPECT_EQ(result.state.text(), "flash programmed and verified");
        Journal expected = {"read", "erase", "program", "verify", "boot"};
        if (full) expected.erase(expected.begin());
        EXPECT_EQ(phases, expected);
    }
}

TEST_F(Flash, EraseSendsWhatTheLibrarySends) {
    ASSERT_EQ(eraseSpiFlash(info), TAVO_SUCCESS);
    Journal libraryErase = wire(rig.journal);
    libraryErase.insert(std::find(libraryErase.begin(), libraryErase.end(), "spi 05 00 <2"), "spi 05 00 <2");  // a look
    cells()[77] = 0;
    clearJournal();
    EXPECT_EQ(eraseFlash(device(), control()).state.text(), "flash erased: the Neuron has no firmware");
    EXPECT_EQ(wire(rig.journal), libraryErase);
    EXPECT_TRUE(blankCheckFlash(device()).blank);
    cells()[300] = 0x7F;
    cells()[0x9000] = 0;
    const auto check = blankCheckFlash(device());
    EXPECT_EQ(check.first, 300u);
    EXPECT_EQ(check.pages, 1u);
    EXPECT_FALSE(check.isComplete);
    const auto all = blankCheckFlash(device(), {.every = true});
    EXPECT_EQ(all.first, 300u);
    EXPECT_EQ(all.pages, 2u);
    EXPECT_TRUE(all.isComplete);
}

// ---- what fails

TEST_F(Flash, ThatMemoryIsShortIsAFailureThatTellsTheState) {
    observe = [](const tavo::Event& event) {
        if (event.phase == tavo::Phase::Program && event.kind == tavo::Event::Kind::Progress) throw std::bad_alloc();
    };
    const tavo::Error half = failureOfProgram();
    EXPECT_EQ(half.problem, Problem::Internal);
    EXPECT_EQ(half.state.text(), "flash incomplete: part of the image is missing");
    EXPECT_THAT(half.hint, AllOf(HasSubstr("memory is short"), HasSubstr("program an image")));
    EXPECT_EQ(half.state.resetLine, tavo::LineState::Released);

    observe = [](const tavo::Event&) { throw std::bad_alloc(); };
    tavo::ConfigurationPlan rewrite;
    rewrite.after[0] = 1;
    const std::function<void()> operations[] = {
        [&] { eraseFlash(device(), control()); },
        [&] { readFlash(device(), control()); },
        [&] { verifyFlash(device(), image, {}, control()); },
        [&] { blankCheckFlash(device(), {}, control()); },
        [&] { inspectFlash(device(), control()); },
        [&] { readConfiguration(device(), control()); },
        [&] { planSerialNumber(device(), "NEW", control()); },
        [&] { writeConfiguration(device(), rewrite, {.noBackup = true}, control()); },
        [&] { storeNeuronId(device(), {}, control()); },
        [&] { planNeuronId(device(), {}, control()); },
        [&] { readStatus(device(), control()); },
        [&] { readNeuronId(device(), control()); },
        [&] { readProgramId(device(), control()); },
        [&] { readDomainTable(device(), control()); },
        [&] { writeDomainTable(device(), {}, {}, {.noBackup = true}, control()); },
        [&] { setMode(device(), tavo::Mode::Service, control()); },
        [&] { reset(device(), tavo::ResetBy::Line, control()); },
        [&] { pressServicePin(device(), control()); },
        [&] { doctor(device(), {.each = [](const tavo::Check&) { throw std::bad_alloc(); }}, control()); },
        [&] { recover(device(), {}, control()); },
        [&] { overview(device(), {}, control()); },
    };
    for (const auto& operation : operations) {
        const tavo::Error error = failureOf(operation);
        EXPECT_STREQ(error.what(), "out of memory") << &operation - operations;
        EXPECT_FALSE(error.state.isSomethingHeld());
    }
}

// ---- long reads

TEST_F(Flash, ReadsAreLongAndProvenByShortOnes) {
    const Bytes before = noise(cells().size(), 3);
    std::copy(before.begin(), before.end(), cells().begin());
    EXPECT_EQ(readFlash(device(), control()).contents, imageOf({{0, before}}));
    EXPECT_EQ(rig.board().flash.reads, 16u + 17u);
    EXPECT_THAT(warnings, IsEmpty());

    // What is blank proves little: the first that is not is compared too.
    fresh();
    std::fill_n(cells().begin(), 0x3000, std::uint8_t{0xFF});
    readFlash(device(), control());
    EXPECT_EQ(rig.board().flash.reads, 16u + 2 * 17u);
}

TEST_F(Flash, LongReadsThatAreNoGoodAreLeftAndTold) {
    const Bytes before = noise(cells().size(), 3);
    const auto failFirst = [this] { rig.fail("CySpiReadWrite", 4, CY_ERROR_IO_TIMEOUT); };  // ID, size, status
    const auto spoilFirst = [this] { rig.flipReadBit(1, 4000, 3); };
    const std::pair<std::function<void()>, const char*> cases[] = {{failFirst, "failed"},
                                                                   {spoilFirst, "differs from short ones at 0x000000"}};
    for (const auto& [fault, why] : cases) {
        fresh();
        std::copy(before.begin(), before.end(), cells().begin());
        warnings.clear();
        fault();
        EXPECT_EQ(readFlash(device(), control()).contents, imageOf({{0, before}}));
        EXPECT_THAT(warnings, ElementsAre(HasSubstr(why)));
        EXPECT_GE(rig.board().flash.reads, cells().size() / 255);
    }
}

TEST_F(Flash, VerifyReadsWhatTheImageCoversAndStopsAtADifference) {
    programFlash(device(), image);
    cells()[0x4000] = 0;  // nothing of the image
    rig.board().flash.reads = 0;
    const auto equal = verifyFlash(device(), image);
    EXPECT_TRUE(equal.comparison.equal() && equal.isComplete);
    EXPECT_EQ(equal.contents.byteCount(), 700u + 512 + 8);
    EXPECT_EQ(verifyFlash(device(), image, {.restBlank = true}).comparison.differences.at(0).range.first, 0x4000u);

    cells()[0x30] ^= 1;
    cells()[0x40] ^= 1;
    cells()[0xFFFF] ^= 1;
    const auto first = verifyFlash(device(), image);
    EXPECT_FALSE(first.isComplete);
    EXPECT_EQ(first.comparison.bytes, 2u);
    const auto every = verifyFlash(device(), image, {.every = true});
    EXPECT_TRUE(every.isComplete);
    EXPECT_EQ(every.comparison.bytes, 3u);
    EXPECT_EQ(every.comparison.pages, 2u);
}

// ---- released, or told

TEST_F(Flash, SuccessIsOnlyToldOfAnInterfaceThatIsLetGo) {
    struct Case {
        const char* function;
        unsigned from;
        int status;
        const char* held;
    };
    const Case cases[] = {
        {"CySetGpioValue", 2, CY_ERROR_PIPE_HALTED, "the Neuron is held in reset (pin 8 low)"},
        {"CySetSpiConfig", 2, CY_ERROR_PIPE_HALTED, "SCB0 is still SPI master beside the Neuron"},
        {"CyGetGpioValue", 1, CY_ERROR_PIPE_HALTED, "not known whether the Neuron is held in reset (pin 8)"},
    };
    const std::map<const char*, std::function<void()>> operations = {
        {"flash programmed and verified", [this] { programFlash(device(), image); }},
        {"flash erased: the Neuron has no firmware", [this] { eraseFlash(device()); }},
        {"flash contents unchanged", [this] { readFlash(device()); }},
    };
    for (const Case& each : cases) {
        for (const auto& [flash, run] : operations) {
            SCOPED_TRACE(std::string(each.function) + ", " + flash);
            fresh();
            rig.failFrom(each.function, each.from, each.status);
            const tavo::Error error = failureOf(run);
            EXPECT_EQ(error.problem, Problem::DeviceFailed);
            EXPECT_THAT(error.state.text(), HasSubstr(std::string(flash) + "; "));
            EXPECT_THAT(error.state.text(), HasSubstr(each.held));
            EXPECT_THAT(error.hint, HasSubstr("tavo-util recover"));
            EXPECT_THAT(error.details, IsEmpty());
            fresh();
            rig.fail(each.function, each.from, each.status);  // once: the second try does it
            EXPECT_NO_THROW(run());
            EXPECT_EQ(rig.leftovers(), "");
            EXPECT_FALSE(spi().isMaster);
        }
    }
    EXPECT_FALSE(remembered());  // the image is in place all the same
    fresh();
    rig.failFrom("CySetGpioValue", 2, CY_ERROR_PIPE_HALTED);
    EXPECT_EQ(failureOf([this] { inspectFlash(device()); }).state.resetLine, tavo::LineState::Held);
    fresh();
    const CyHandle scb0(0, 0);
    CySetGpioValue(scb0.handle, 8, 1);
}

TEST_F(Flash, AFailureTellsWhatIsStillHeldToo) {
    rig.failFrom("CySetGpioValue", 2, CY_ERROR_PIPE_HALTED);
    rig.failFrom("CySpiReadWrite", 15, CY_ERROR_PIPE_HALTED);
    const tavo::Error error = failureOfProgram();
    EXPECT_EQ(error.status, TAVO_FLASH_PROGRAMMING_FAILED);
    EXPECT_EQ(error.state.flash, FlashState::Incomplete);
    EXPECT_EQ(error.state.resetLine, tavo::LineState::Held);
    EXPECT_THAT(error.hint, testing::AllOf(HasSubstr("tavo-util recover"), HasSubstr("program an image")));
    fresh();
    cancelIn(tavo::Phase::Program, tavo::Event::Kind::Progress);
    rig.failFrom("CySetGpioValue", 2, CY_ERROR_PIPE_HALTED);
    const tavo::Error stopped = failureOfProgram();
    EXPECT_EQ(stopped.problem, Problem::Interrupted);
    EXPECT_THAT(stopped.what(), HasSubstr("not everything could be released"));
    fresh();
    const CyHandle scb0(0, 0);
    CySetGpioValue(scb0.handle, 8, 1);
}

TEST_F(Flash, AnInterfaceThatWasUnpluggedIsToldAsThat) {
    struct Case {
        unsigned transfer;
        std::function<void()> run;
        const char* flash;
    };
    const Case cases[] = {
        {3, [this] { readFlash(device(), control()); }, "flash contents unchanged"},
        {20, [this] { programFlash(device(), image, {.full = true}, control()); },
         "flash incomplete: part of the image is missing"},
        {3, [this] { readFlash(device(), control()); }, "flash incomplete: part of the image is missing"},
    };
    for (const Case& each : cases) {
        fresh();
        device();
        observe = [&](const tavo::Event& event) {
            if (event.kind != tavo::Event::Kind::PhaseBegins) return;
            for (const char* function :
                 {"CyOpen", "CySetGpioValue", "CyGetGpioValue", "CyGetDeviceInfo", "CyGetPortPath"})
                rig.failFrom(function, 1, CY_ERROR_DEVICE_NOT_FOUND);
            rig.failFrom("CySpiReadWrite", each.transfer, CY_ERROR_DEVICE_NOT_FOUND);
        };
        const tavo::Error error = failureOf(each.run);
        EXPECT_EQ(error.problem, Problem::NoDevice);
        EXPECT_THAT(error.what(), HasSubstr("no longer attached"));
        EXPECT_THAT(error.hint, testing::AllOf(HasSubstr("plug it in again, then "), Not(HasSubstr("still"))));
        EXPECT_EQ(error.state.text(), each.flash);  // without power nothing is held
        observe = nullptr;
    }
    fresh();
    const CyHandle scb0(0, 0);
    CySetGpioValue(scb0.handle, 8, 1);
}

TEST_F(Flash, WhatAKilledRunLeftIsGivenBackAndAMasterOfTheBlockIsLeft) {
    {
        Configurator configurator(info);
        ASSERT_EQ(configurator.setupSpi(true), CY_SUCCESS);
        configurator.spiMasterSet = false;
    }
    readFlash(device());
    EXPECT_FALSE(spi().isMaster);
    CY_SPI_CONFIG found = spi();  // by a run at another clock
    found.isMaster = true;
    found.frequency = 3000000;
    {
        const CyHandle scb0(0, 0);
        ASSERT_EQ(CySetSpiConfig(scb0.handle, &found), CY_SUCCESS);
    }
    readFlash(device());
    EXPECT_FALSE(spi().isMaster);

    makeBlockMaster();
    programFlash(device(), image);
    EXPECT_TRUE(holds(image));
    EXPECT_TRUE(spi().isMaster);
    EXPECT_EQ(spi().frequency, 1000000u);
}

TEST_F(Flash, AnotherClockIsTriedBeforeAnythingElseAndPutBack) {
    const std::function<void()> operations[] = {
        [this] { programFlash(device(), image, {.clockHz = 3000000}); },
        [this] { EXPECT_TRUE(verifyFlash(device(), image, {.clockHz = 3000000}).comparison.equal()); },
        [this] { EXPECT_EQ(readFlash(device(), {.clockHz = 3000000}, {}).contents.at(0x20), image.at(0x20)); },
        [this] { EXPECT_FALSE(blankCheckFlash(device(), {.clockHz = 3000000}).blank); },
        [this] { eraseFlash(device(), {.clockHz = 3000000}, {}); },
    };
    for (const auto& run : operations) {
        clearJournal();
        run();
        EXPECT_THAT(rig.journal, testing::Contains("setspi master 3000000"));
        EXPECT_FALSE(spi().isMaster);
        EXPECT_EQ(spi().frequency, 900000u);
    }
    programFlash(device(), image);
    for (const auto& run : operations) {  // the page as it is read with the other clock
        rig.board().flash.changes = 0;
        rig.flipReadBit(2, 0x30, 0);
        const tavo::Error error = failureOf(run);
        EXPECT_THAT(error.what(), HasSubstr("reads differently at 3000000 Hz than at 900000 Hz"));
        EXPECT_EQ(error.state.text(), "flash contents unchanged");
        EXPECT_EQ(rig.board().flash.changes, 0u);
        EXPECT_FALSE(spi().isMaster);
    }
    for (const int hertz : {0, 899999, 3000001})
        EXPECT_EQ(failureOfProgram({.clockHz = hertz}).problem, Problem::BadArgument);
}

TEST_F(Flash, ATransferThatAKilledRunLeftUnfinishedDoesNotBlockTheNext) {
    plug("unfinished");
    findAgain();
    programFlash(device(), image);
    EXPECT_TRUE(holds(image));
}

TEST_F(Flash, TheStepThatFailedIsNamed) {
    struct Case {
        const char* function;
        unsigned call;
        const char* step;
    };
    const Case cases[] = {{"CySetSpiConfig", 1, "make SCB0 an SPI master"},
                          {"CySetGpioValue", 1, "hold the Neuron in reset"},
                          {"CyOpen", 4, "open the flash interface"},
                          {"CySpiReadWrite", 1, "read the flash ID"},
                          {"CySpiReadWrite", 2, "tell the flash size"}};
    for (const Case& each : cases) {
        fresh();
        device();
        rig.fail(each.function, each.call, CY_ERROR_PIPE_HALTED);
        const tavo::Error error = failureOfProgram();
        EXPECT_THAT(error.what(), HasSubstr(each.step));
        EXPECT_EQ(error.state.text(), "flash contents unchanged");
        EXPECT_EQ(rig.leftovers(), "");
    }
    EXPECT_FALSE(remembered());
}

// ---- what is remembered

TEST_F(Flash, ARunIsRememberedUntilItsSuccess) {
    tavo::ProgramOptions how;
    how.backup = folder + "/before.hex";
    how.imageName = folder + "/new.hex";
    const Bytes before = noise(64U << 10, 9);
    std::copy(before.begin(), before.end(), cells().begin());
    const auto failInProgram = [this](const tavo::Event& event) {
        if (event.kind != tavo::Event::Kind::PhaseBegins || event.phase != tavo::Phase::Program) return;
        rig.failFrom("CySpiReadWrite", 6, CY_ERROR_PIPE_HALTED);
    };
    observe = failInProgram;
    const tavo::Error error = failureOfProgram(how);
    EXPECT_EQ(error.state.flash, FlashState::Incomplete);
    EXPECT_EQ(error.hint, "put back what was there before: tavo-util restore");
    ASSERT_TRUE(remembered());
    EXPECT_EQ(remembered()->image, how.imageName);
    EXPECT_EQ(remembered()->sha256, image.identity());
    const auto kept = tavo::backups(device().description());
    ASSERT_EQ(kept.size(), 1U);
    EXPECT_EQ(remembered()->backup, kept[0].path);
    EXPECT_EQ(kept[0].sha256, imageOf({{0, before}}).identity());
    EXPECT_EQ(kept[0].takenBefore, "program " + how.imageName);
    EXPECT_EQ(tavo::readImage(how.backup), imageOf({{0, before}}));

    // Nothing that follows calls the half image unchanged, and a new backup does not hide the good one.
    fresh();
    rig.fail("CySpiReadWrite", 3, CY_ERROR_PIPE_HALTED);
    EXPECT_EQ(failureOf([this] { readFlash(device()); }).state.flash, FlashState::Incomplete);
    fresh();
    how.backup = folder + "/second.hex";
    failureOfProgram(how);
    EXPECT_EQ(remembered()->backup, kept[0].path);
    EXPECT_EQ(tavo::backups(device().description()).size(), 1U) << "what the cut-off run has left";
    EXPECT_THAT(warnings, testing::Contains(HasSubstr("cut off")));

    fresh();
    observe = nullptr;
    const auto put = tavo::restore(device(), findBackup(device().description(), tavo::BackupKind::Flash));
    EXPECT_TRUE(put.changed);
    EXPECT_TRUE(std::equal(before.begin(), before.end(), cells().begin()));
    EXPECT_FALSE(remembered());
    std::vector<std::string> told;
    for (const auto& entry : tavo::history({"sim:" + options.folder}).entries)
        told.push_back(entry.action + " " + entry.result);
    EXPECT_THAT(told, ElementsAre("program failed", "program failed", "restore done"));
}

TEST_F(Flash, AnEraseByWishIsNoInterruptedRunAndAFailedOneIs) {
    rig.fail("CySpiReadWrite", 9, CY_ERROR_PIPE_HALTED);
    const tavo::Error failure = failureOf([this] { eraseFlash(device()); });
    EXPECT_EQ(failure.state.flash, FlashState::Uncertain);
    EXPECT_THAT(failure.hint, HasSubstr("repeat the erase"));
    EXPECT_TRUE(remembered());
    EXPECT_EQ(remembered()->image, "");
    fresh();
    eraseFlash(device());
    EXPECT_FALSE(remembered());
    rig.fail("CySpiReadWrite", 9, CY_ERROR_PIPE_HALTED);  // so does program, before its erase
    EXPECT_EQ(failureOfProgram().state.flash, FlashState::Uncertain);
    EXPECT_TRUE(remembered());
}

TEST_F(Flash, AnEraseOfAPartTakesThatPartAndIsRememberedUntilItIsDone) {
    const Bytes before = noise(cells().size(), 3);
    const auto fill = [&] { std::copy(before.begin(), before.end(), cells().begin()); };
    fill();
    const tavo::EraseOptions part{.range = tavo::AddressRange{0x3000, 0x4FFF}};
    const auto done = eraseFlash(device(), part, control());
    EXPECT_EQ(done.sectorsErased, 2u);
    EXPECT_EQ(done.state.flash, FlashState::Incomplete);
    EXPECT_FALSE(remembered());
    for (const std::uint32_t at : {0x2FFFu, 0x5000u, 0u}) EXPECT_EQ(cells()[at], before[at]);
    EXPECT_TRUE(std::all_of(&cells()[0x3000], &cells()[0x5000], [](std::uint8_t byte) { return byte == 0xFF; }));

    fill();
    observe = [this](const tavo::Event& event) {  // the chip takes more than it says
        if (event.kind == tavo::Event::Kind::PhaseEnds && event.phase == tavo::Phase::Erase) cells()[0x6000] = 0xFF;
    };
    const tavo::Error more = failureOf([&] { eraseFlash(device(), part, control()); });
    EXPECT_THAT(more.what(), HasSubstr("changed 0x006000 too"));
    EXPECT_EQ(more.state.flash, FlashState::Incomplete);
    EXPECT_TRUE(remembered());
    observe = nullptr;

    eraseFlash(device(), part);  // does not put right what the run before has left
    EXPECT_TRUE(remembered());
    const tavo::EraseOptions all{.range = tavo::AddressRange{0, static_cast<std::uint32_t>(cells().size() - 1)}};
    EXPECT_EQ(eraseFlash(device(), all).state.flash, FlashState::Erased);
    EXPECT_FALSE(remembered());
}

TEST_F(Flash, AHostThatCannotRememberIsToldAndMayProgram) {
    std::filesystem::create_directories(options.folder + "/interrupted.run");  // where the record would be
    std::ofstream(options.folder + "/interrupted.run/x") << "x";
    std::filesystem::create_directory(options.folder + "/history.jsonl");
    programFlash(device(), image, {}, control());
    EXPECT_THAT(warnings, testing::Contains(HasSubstr("would not be remembered")));
    EXPECT_THAT(warnings, testing::Contains(HasSubstr("missing in the history")));
    EXPECT_TRUE(holds(image));
}

// ---- retries, up to date, backup

TEST_F(Flash, PagesThatNeededAnotherAttemptAreTold) {
    rig.loseProgram(2);  // and the second attempt of its page, after the three of its sector
    rig.loseProgram(4);
    const auto result = programFlash(device(), image, {}, control());
    EXPECT_TRUE(holds(image));
    EXPECT_THAT(result.retries, ElementsAre(0x100u));
    EXPECT_THAT(warnings, ElementsAre("1 page needed more than one attempt: 0x000100"));
    eraseFlash(device());
    observe = [this](const tavo::Event& event) {  // Write Enable, then the first Page Program
        if (event.kind == tavo::Event::Kind::PhaseBegins && event.phase == tavo::Phase::Program)
            rig.fail("CySpiReadWrite", 3, CY_ERROR_PIPE_HALTED);
    };
    EXPECT_THAT(programFlash(device(), image, {}, control()).retries, ElementsAre(0x20u));
    observe = nullptr;
    EXPECT_TRUE(holds(image));
    eraseFlash(device());
    for (const unsigned lost : {1, 4, 5}) rig.loseProgram(lost);
    const tavo::Error error = failureOfProgram();
    EXPECT_THAT(error.what(), HasSubstr("3 attempts failed at 0x000020: it does not hold what was written"));
    EXPECT_EQ(error.state.flash, FlashState::Incomplete);
}

TEST_F(Flash, AnImageThatIsThereAlreadyIsLeftAlone) {
    tavo::ProgramOptions how;
    how.ifDifferent = true;
    how.backup = folder + "/b.bin";
    EXPECT_FALSE(programFlash(device(), image, how).upToDate);
    EXPECT_EQ(std::filesystem::file_size(how.backup), cells().size());  // binary, by its name
    how.backup = folder + "/c.hex";
    clearJournal();
    const auto again = programFlash(device(), image, how, control());
    EXPECT_TRUE(again.upToDate);
    EXPECT_EQ(again.state.text(), "flash contents unchanged");
    EXPECT_FALSE(std::filesystem::exists(how.backup));
    EXPECT_THAT(rig.journal, testing::Not(testing::Contains("spi C7")));
    cells()[0x9000] = 0;  // outside the image: programming would erase it
    EXPECT_FALSE(programFlash(device(), image, how).upToDate);
    how.backup = folder + "/b.bin";
    clearJournal();
    EXPECT_EQ(failureOfProgram(how).problem, Problem::FileSystem);
    EXPECT_THAT(rig.journal, IsEmpty());
    EXPECT_THROW(forecastProgram(image, how), tavo::Error);
    how.backup = folder + "/d.hex";
    EXPECT_THAT(forecastProgram(image, how).steps, ElementsAre("read", "backup", "erase", "program", "verify"));
    EXPECT_FALSE(std::filesystem::exists(how.backup));
}

TEST_F(Flash, AForecastIsWhatTheRunDoesAndFailsAsItWould) {
    tavo::ProgramOptions how;
    EXPECT_THAT(forecastProgram(image, {.full = true}).steps, ElementsAre("erase", "program", "verify"));
    how.backup = folder + "/b.hex";
    how.ifDifferent = true;
    const auto forecast = forecastProgram(image, how);
    EXPECT_THAT(forecast.steps, ElementsAre("read", "backup", "erase", "program", "verify"));
    EXPECT_EQ(forecast.chipSize, 64U << 10);
    EXPECT_GT(forecast.leastSeconds, 0.6);  // 64 KiB at 900 kHz
    EXPECT_GT(forecast.seconds, forecast.leastSeconds);
    EXPECT_FALSE(std::filesystem::exists(how.backup));
    const auto done = programFlash(device(), image, how);
    EXPECT_EQ(forecast.pagesWritten, done.pagesWritten);
    EXPECT_EQ(forecast.pagesBlank, done.pagesBlank);
    EXPECT_EQ(failureOf([&] { forecastProgram(image, how); }).problem, Problem::FileSystem) << "the backup is there";
}

TEST_F(Flash, AnImageThatDoesNotFitIsRefusedBeforeTheErase) {
    const tavo::Image tooLarge = imageOf({{0xFFFF, {1, 2}}});
    const tavo::Error error = failureOf([&] { programFlash(device(), tooLarge); });
    EXPECT_EQ(error.problem, Problem::FileRefused);
    EXPECT_THAT(error.what(), HasSubstr("0x010000"));
    EXPECT_EQ(error.state.flash, FlashState::Unchanged);
    EXPECT_THROW(verifyFlash(device(), tooLarge), tavo::Error);
    EXPECT_FALSE(remembered());
}

// ---- nothing waits for ever

TEST_F(Flash, ACancellationEndsAtTheNextPageOrChunk) {
    cancelIn(tavo::Phase::Program, tavo::Event::Kind::Progress);
    const tavo::Error stopped = failureOfProgram();
    EXPECT_EQ(stopped.problem, Problem::Interrupted);
    EXPECT_EQ(stopped.state.text(), "flash incomplete: part of the image is missing");
    EXPECT_EQ(rig.board().flash.programs, 1u);
    EXPECT_TRUE(remembered());

    token.reset();
    eraseFlash(device());
    cancelIn(tavo::Phase::Erase, tavo::Event::Kind::StopNote);  // just before it: nothing was changed
    EXPECT_EQ(failureOfProgram().state.flash, FlashState::Unchanged);
    EXPECT_FALSE(remembered());

    token.reset();
    cancelIn(tavo::Phase::Erase, tavo::Event::Kind::Step);  // cannot be stopped: told as erased, at its end
    EXPECT_EQ(failureOfProgram().state.flash, FlashState::Erased);

    token.reset();
    const auto reads = rig.board().flash.reads;
    cancelIn(tavo::Phase::Dump, tavo::Event::Kind::Progress);
    EXPECT_EQ(failureOf([this] { readFlash(device(), control()); }).problem, Problem::Interrupted);
    EXPECT_EQ(rig.board().flash.reads, reads + 18);  // the first chunk, and its proof

    token.reset();
    observe = [this](const tavo::Event& event) {
        if (event.phase == tavo::Phase::Boot) token.cancel();
    };
    EXPECT_THAT(failureOfProgram().hint, HasSubstr("the image is in place"));
}

TEST_F(Flash, AFlashThatReadsFFForEverIsAFailureAndCanBeCancelled) {
    violationsExpected = true;  // it is let go while it seems busy: nothing else can be done
    // After the ID: before the erase, in it, while pages are programmed.
    for (const unsigned answered : {6, 9, 23}) {
        for (const bool cancelled : {false, true}) {
            SCOPED_TRACE(answered);
            fresh();
            rig.keepJournal = false;
            token.reset();
            observe = [&](const tavo::Event& event) {
                const bool erases = event.kind == tavo::Event::Kind::Step && event.phase == tavo::Phase::Erase;
                if (cancelled && (erases || event.phase == tavo::Phase::Program)) token.cancel();
            };
            if (cancelled && answered == 23) {  // in the middle of a page
                observe = [&](const tavo::Event& event) {
                    if (event.phase == tavo::Phase::Program && rig.board().flash.programs == 1) token.cancel();
                };
            }
            rig.board().flash.diesAfter = answered;
            const auto start = rig.now();
            const tavo::Error error = failureOfProgram();
            const auto seconds = static_cast<double>(rig.now() - start) / 1e6;
            EXPECT_TRUE(error.state.isFlashLost());
            if (cancelled) {
                EXPECT_EQ(error.problem, Problem::Interrupted);
                EXPECT_LT(seconds, 2);
            } else {
                EXPECT_THAT(error.what(), testing::AnyOf(HasSubstr("stays busy"), HasSubstr("no longer answers")));
                EXPECT_LT(seconds, 2);
                EXPECT_EQ(error.status, TAVO_TIMEOUT);
            }
        }
    }
    fresh();
    token.reset();
    rig.board().flash.diesAfter = 8;
    EXPECT_THAT(failureOf([this] { readFlash(device()); }).what(), HasSubstr("no longer answers"));
    fresh();
    rig.board().flash.diesAfter = 0;
    const tavo::Error absent = failureOfProgram();
    EXPECT_THAT(absent.what(), HasSubstr("no flash answers"));
    EXPECT_EQ(absent.state.flash, FlashState::Incomplete);  // as the run before left it
    fresh();
    rig.fail("CySpiReadWrite", 1, CY_SUCCESS);  // a line that is held low: the ID reads 00
    EXPECT_THAT(failureOfProgram().what(), HasSubstr("no flash answers"));
}

TEST_F(Flash, AStuckPageProgramIsNotWaitedForLong) {
    violationsExpected = true;
    programFlash(device(), image);
    observe = [this](const tavo::Event& event) {
        if (event.phase == tavo::Phase::Program) rig.board().flash.busyPolls = 1000000;
    };
    const auto start = rig.now();
    EXPECT_THAT(failureOfProgram().what(), HasSubstr("a page program takes at most 5 ms"));
    EXPECT_LT(rig.now() - start, 1000000u);
}

TEST_F(Flash, AChipThatStillErasesForAKilledRunIsWaitedFor) {
    violationsExpected = true;  // the ID is asked of a busy chip, which does not answer
    options.pace = sim::Pace::Virtual;
    fresh();
    device();
    {
        Configurator configurator(info);
        ASSERT_EQ(configurator.setupSpi(true), CY_SUCCESS);
        GPIO gpio(info);
        const IOPin reset(gpio, 8, IOPin::HIGH);
        ASSERT_EQ(reset.set(IOPin::LOW), CY_SUCCESS);
        std::uint8_t enable[] = {0x06};
        std::uint8_t erase[] = {0xC7};
        for (std::uint8_t* command : {enable, erase}) {
            CY_DATA_BUFFER out{command, 1, 0};
            ASSERT_EQ(CySpiReadWrite(gpio.cyHandle->handle, nullptr, &out, 1000), CY_SUCCESS);
        }
    }
    programFlash(device(), image, {}, control());
    EXPECT_TRUE(holds(image));
}

TEST_F(Flash, AWriteProtectedChipIsNotCalledErased) {
    const Bytes before = noise(100, 4);
    std::copy(before.begin(), before.end(), cells().begin());
    rig.board().flash.status = 0x1C;
    // The write of the status register is lost, as it is with the chip's WP# pin low.
    rig.fail("CySpiReadWrite", 8, CY_SUCCESS);
    const tavo::Error error = failureOf([this] { eraseFlash(device()); });
    EXPECT_THAT(error.what(), HasSubstr("write-protected"));
    EXPECT_TRUE(std::equal(before.begin(), before.end(), cells().begin()));
    rig.board().flash.status = 0;
}

// ---- sector by sector

namespace {

struct Change {
    const char* what;
    std::function<void(Bytes&)> apply;
    unsigned sectors;
    unsigned pages;
};

}  // namespace

TEST_F(Flash, TheChipTellsItsSectorsAndIsNotBelievedEverything) {
    const auto chip = inspectFlash(device());
    ASSERT_TRUE(chip.hasSfdp);
    ASSERT_EQ(chip.eraseTypes.size(), 3u);
    EXPECT_EQ(chip.eraseTypes[0].opcode, 0x20);
    EXPECT_EQ(chip.eraseTypes[2].size, 64U << 10);
    EXPECT_NEAR(chip.eraseTypes[1].typical, 0.12, 0.01);
    EXPECT_NEAR(chip.programTypical, 0.0007, 0.0001);
    options.sfdp = sim::Sfdp::Lying;
    fresh();
    const auto liar = inspectFlash(device(), control());
    EXPECT_FALSE(liar.hasSfdp);
    EXPECT_THAT(liar.sfdpFault, HasSubstr("128 KiB, the ID of 64 KiB"));
    EXPECT_THAT(warnings, ElementsAre(HasSubstr("not used")));
    programFlash(device(), image);
    EXPECT_TRUE(holds(image));
    options.sfdp = sim::Sfdp::None;
    fresh();
    EXPECT_FALSE(inspectFlash(device()).hasSfdp);
    cells()[0x9000] = 0;
    EXPECT_EQ(programFlash(device(), image).way, tavo::ProgramWay::Full);
    EXPECT_TRUE(holds(image));
}

TEST_F(Flash, OnlyWhatMustBeIsErasedAndWritten) {
    const Bytes whole = noise(cells().size(), 5);
    const tavo::Image wanted = imageOf({{0, whole}});
    const Change changes[] = {
        {"nothing", [](Bytes&) {}, 0, 0},
        {"a bit that programming clears", [](Bytes& b) { b[0x123] |= 0xFF; }, 0, 1},
        {"a page", [](Bytes& b) { std::fill_n(b.begin() + 0x2000, 256, std::uint8_t{0}); }, 1, 16},
        {"a blank page where data are to be",
         [](Bytes& b) { std::fill_n(b.begin() + 0x2000, 256, std::uint8_t{0xFF}); }, 0, 1},
        {"half of a block", [](Bytes& b) { std::fill_n(b.begin(), 0x4000, std::uint8_t{0}); }, 4, 64},
        {"most of a block", [](Bytes& b) { std::fill_n(b.begin(), 0x7000, std::uint8_t{0}); }, 1, 128},
    };
    for (const Change& each : changes) {
        SCOPED_TRACE(each.what);
        fresh();
        Bytes before = whole;
        each.apply(before);
        std::copy(before.begin(), before.end(), cells().begin());
        const auto done = programFlash(device(), wanted, {}, control());
        EXPECT_TRUE(holds(wanted));
        EXPECT_EQ(done.sectorsErased, each.sectors);
        EXPECT_EQ(done.pagesWritten, each.pages);
        EXPECT_EQ(done.pagesWritten + done.pagesKept, 256u);
        EXPECT_EQ(rig.board().flash.erases, each.sectors);
        EXPECT_EQ(rig.board().flash.programs, each.pages);
    }
    fresh();
    std::fill(cells().begin(), cells().end(), std::uint8_t{0});
    EXPECT_EQ(programFlash(device(), wanted).pagesWritten, 256u);
    EXPECT_TRUE(holds(wanted));
    EXPECT_EQ(programFlash(device(), wanted, {.full = true}).way, tavo::ProgramWay::Full);
    EXPECT_THROW(programFlash(device(), wanted, {.full = true, .ifDifferent = true}), tavo::Error);
}

TEST(FlashPlan, IsTheShorterWay) {
    tavo::FlashChip chip;
    chip.size = 1U << 20;
    chip.eraseTypical = 2;
    chip.eraseTypes = {{0x20, 4U << 10, 0.045, 0}, {0xD8, 64U << 10, 0.15, 0}};
    tavo::FlashChip plain;
    plain.size = chip.size;
    const Bytes whole = noise(chip.size, 5);
    const auto zero = [](std::size_t at, std::size_t size) {
        return [=](Bytes& b) { std::fill_n(b.begin() + static_cast<long>(at), size, std::uint8_t{0}); };
    };
    using Way = tavo::ProgramWay;
    struct Case {
        const char* what;
        const tavo::FlashChip& chip;
        std::function<void(Bytes&)> apply;
        Way way;
        std::vector<std::uint32_t> erases;
        std::size_t writes;
    };
    const Case cases[] = {
        {"the same", chip, [](Bytes&) {}, Way::Nothing, {}, 0},
        {"bits to clear", plain, [](Bytes& b) { b[0x1234] = 0xFF; }, Way::Sectors, {}, 1},
        {"a bit to set, no sectors known", plain, zero(0x1234, 1), Way::Full, {}, 4096},
        {"a bit to set", chip, zero(0x1234, 1), Way::Sectors, {0x1000}, 16},
        {"a block but for a sector", chip, zero(0x11000, 0xF000), Way::Sectors, {0x10000}, 256},
        {"two ends", chip, [&](Bytes& b) { zero(0, 1)(b), zero(0xFFFFF, 1)(b); }, Way::Sectors, {0, 0xFF000}, 32},
        {"all", chip, zero(0, chip.size), Way::Full, {}, 4096},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.what);
        Bytes before = whole;
        each.apply(before);
        const auto plan = planProgram(each.chip, imageOf({{0, whole}}), imageOf({{0, before}}));
        EXPECT_EQ(plan.way, each.way);
        std::vector<std::uint32_t> erases;
        for (const tavo::BlockErase& erase : plan.erases) erases.push_back(erase.address);
        EXPECT_EQ(erases, each.erases);
        EXPECT_EQ(plan.writes.size(), each.writes);
        EXPECT_EQ(plan.pagesKept + plan.writes.size(), 4096u);
        EXPECT_EQ(std::count(plan.compared.begin(), plan.compared.end(), true), 4096);
    }
    const auto write = planProgram(plain, imageOf({{0x120, {1, 2}}}), {}).writes.at(0);
    EXPECT_EQ(write.address, 0x120u);
    EXPECT_EQ(write.size, 2u);

    // A part of the chip tells that all of it is to be written; unless it holds what it should.
    const tavo::Image image = imageOf({{0, whole}});
    const tavo::ReadOrder order = readOrder(chip, image);
    EXPECT_EQ(order.samples, 16u);
    EXPECT_EQ(order.ranges.size(), 256u);
    Bytes partly = whole;
    zero(0x50000, 0xD000)(partly);
    for (const auto& [before, isFull] : {std::pair{noise(chip.size, 6), true}, {partly, false}, {whole, false}}) {
        tavo::Image read;
        for (std::uint32_t i = 0; i < order.samples; ++i)
            read.add(order.ranges[i].first, &before[order.ranges[i].first], order.ranges[i].size());
        EXPECT_EQ(isFullShorter(chip, image, read), isFull);
    }
}

TEST_F(Flash, AChipThatDiffersThroughoutIsReadToItsEndOnlyToBeKept) {
    options.folder = folder + "/large";
    options.flashSize = 1U << 20;
    const Bytes other = noise(options.flashSize, 7);
    const tavo::Image wanted = imageOf({{0, noise(options.flashSize, 8)}});
    const struct {
        Bytes before;
        bool noBackup;
        unsigned reads;  // samples or all, and 17 to prove a long read: twice where FF proves nothing
    } cases[] = {{other, true, 16 + 17}, {Bytes(options.flashSize, 0xFF), false, 16 + 34}, {other, false, 256 + 17}};
    for (const auto& each : cases) {
        fresh();
        std::copy(each.before.begin(), each.before.end(), cells().begin());
        rig.board().flash.reads = 0;
        const tavo::ProgramResult result = programFlash(device(), wanted, {.noBackup = each.noBackup});
        EXPECT_EQ(result.way, tavo::ProgramWay::Full);
        EXPECT_EQ(result.backup.empty(), each.reads < 256);
        EXPECT_EQ(rig.board().flash.reads, each.reads + 1 + 256);  // the first window is compared at once, then all
        EXPECT_TRUE(holds(wanted));
    }
    std::fill_n(cells().begin() + 0x8000, 0x1000, std::uint8_t{0});
    EXPECT_EQ(programFlash(device(), wanted).pagesWritten, 16u);
    EXPECT_TRUE(holds(wanted));
}

// A chip smaller than it tells writes its end over its beginning.
TEST_F(Flash, WhatALaterWriteSpoilsIsNotCalledProgrammed) {
    violationsExpected = true;  // a page that differs is written again, over what is there
    const tavo::Image wanted = imageOf({{0, noise(cells().size(), 3)}});
    observe = [this](const tavo::Event& event) {
        if (event.kind == tavo::Event::Kind::Progress && event.phase == tavo::Phase::Program &&
            event.done + tavo::kPageSize > event.total)
            std::fill_n(cells().begin() + 5, 3, std::uint8_t{0});
    };
    const tavo::Error error = failureOf([&] { programFlash(device(), wanted, {}, control()); });
    EXPECT_EQ(error.state.flash, tavo::FlashState::Incomplete);
    EXPECT_THAT(error.what(), HasSubstr("3 attempts failed at 0x000000"));
}

// A chip that needs an erase, kept pages and written ones.
TEST_F(Flash, CutOffAtAnyTransferTheNextRunRepairsIt) {
    violationsExpected = true;  // the Neuron is let go while the flash is busy
    const Bytes whole = noise(options.flashSize, 5);
    Bytes old = whole;
    std::fill_n(old.begin() + 0x1000, 300, std::uint8_t{0});
    std::fill_n(old.begin() + 0x2100, 300, std::uint8_t{0xFF});
    const auto put = [&](const Bytes& bytes) {
        fresh();
        rig.keepJournal = false;
        std::copy(bytes.begin(), bytes.end(), cells().begin());
    };
    const tavo::Image most = imageOf({{0, Bytes(whole.begin(), whole.end() - 700)}});
    const tavo::Image part = imageOf({{0x1050, Bytes(whole.begin() + 0x1050, whole.begin() + 0x2200)}});
    Bytes oldWithPart = old;
    std::copy(whole.begin() + 0x1050, whole.begin() + 0x2200, oldWithPart.begin() + 0x1050);
    struct Case {
        const tavo::Image& image;
        bool keep;
        tavo::Image after;
    };
    for (const Case& each : {Case{most, false, most}, Case{part, true, imageOf({{0, oldWithPart}})}}) {
        SCOPED_TRACE(each.keep);
        const tavo::ProgramOptions how{.keep = each.keep};
        unsigned before = 0;  // transfers that only look
        put(old);
        observe = [&](const tavo::Event& event) {
            if (event.kind == tavo::Event::Kind::PhaseBegins && event.phase == tavo::Phase::Erase)
                before = rig.calls("CySpiReadWrite");
        };
        ASSERT_EQ(programFlash(device(), each.image, how, control()).way, tavo::ProgramWay::Sectors);
        observe = nullptr;
        EXPECT_TRUE(holds(each.after));
        unsigned cuts = before - 1;
        for (bool finished = false; !finished; ++cuts) {
            SCOPED_TRACE(cuts);
            put(old);
            finished = true;
            rig.failFrom("CySpiReadWrite", cuts + 1, CY_ERROR_DEVICE_NOT_FOUND);
            try {
                programFlash(device(), each.image, how);
            } catch (const tavo::Error& error) {
                finished = false;
                // What has changed is told, and remembered, and so are the bytes to be kept.
                if (rig.board().flash.changes > 0) {
                    EXPECT_TRUE(error.state.isFlashLost());
                    ASSERT_TRUE(remembered());
                    EXPECT_EQ(std::filesystem::exists(remembered()->kept), each.keep);
                }
            }
            put(Bytes(cells().begin(), cells().end()));
            programFlash(device(), each.image, how);
            ASSERT_TRUE(holds(each.after));
            EXPECT_FALSE(remembered());
        }
        EXPECT_GT(cuts, before + 50);
    }
    for (const auto& file : std::filesystem::directory_iterator(options.folder))
        EXPECT_THAT(file.path().filename(), Not(testing::StartsWith("kept")));
}

TEST_F(Flash, WhatIsToBeKeptIsInAPrivateFileUntilItIsInTheChip) {
    const Bytes old = noise(cells().size(), 9);
    std::copy(old.begin(), old.end(), cells().begin());
    const tavo::Image small = imageOf({{0x20, noise(700, 1)}});
    tavo::ProgramOptions how{.keep = true, .imageName = folder + "/small.hex"};
    cancelIn(tavo::Phase::Erase, tavo::Event::Kind::PhaseBegins);
    failureOfProgram(how);
    EXPECT_FALSE(remembered()) << "nothing was changed";
    const auto cutInProgram = [this](const tavo::Event& event) {
        if (event.kind == tavo::Event::Kind::PhaseBegins && event.phase == tavo::Phase::Program)
            rig.failFrom("CySpiReadWrite", 6, CY_ERROR_PIPE_HALTED);
    };
    token.reset();
    observe = cutInProgram;
    const tavo::Error error = failureOfProgram(how);
    ASSERT_TRUE(remembered());
    const std::filesystem::path kept = remembered()->kept;
    EXPECT_EQ(std::filesystem::status(kept).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_THAT(error.hint, HasSubstr("tavo-util program --keep " + how.imageName));
    EXPECT_THAT(error.details, testing::Contains(HasSubstr(kept.string())));
    EXPECT_THAT(interruptedHint(*remembered()), HasSubstr("program --keep " + how.imageName));

    // Another run that is cut off does not take what is left for what was there; a copy that is not whole is told.
    fresh();
    failureOfProgram(how);
    EXPECT_EQ(remembered()->kept, kept);
    fresh();
    observe = nullptr;
    std::filesystem::resize_file(kept, 100);
    EXPECT_EQ(failureOfProgram(how).problem, Problem::FileSystem);
    std::ofstream(kept, std::ios::binary).write(reinterpret_cast<const char*>(old.data()), 64 << 10);
    // Without --keep nothing is taken from it, and it stays.
    programFlash(device(), small, {}, control());
    EXPECT_TRUE(holds(small));
    EXPECT_THAT(warnings, ElementsAre(HasSubstr(kept.string())));
    EXPECT_TRUE(std::filesystem::exists(kept));
    EXPECT_FALSE(remembered());

    // A host that cannot save it leaves the flash alone.
    std::filesystem::create_directories(options.folder + "/interrupted.run");
    std::ofstream(options.folder + "/interrupted.run/x") << "x";
    clearJournal();
    const tavo::Image other = imageOf({{0x20, noise(700, 2)}});
    EXPECT_EQ(failureOf([&] { programFlash(device(), other, how); }).problem, Problem::FileSystem);
    EXPECT_TRUE(holds(small));
    EXPECT_THROW(programFlash(device(), small, {.full = true, .keep = true}), tavo::Error);
    // Without sectors of its own the chip is erased as a whole, and all of it written back.
    options.sfdp = sim::Sfdp::None;
    options.folder = folder + "/other";
    fresh();
    std::copy(old.begin(), old.end(), cells().begin());
    EXPECT_EQ(programFlash(device(), small, how).way, tavo::ProgramWay::Full);
    for (const std::uint32_t at : {0u, 0x1Fu, 0x2DCu, 0xFFFFu}) EXPECT_EQ(cells()[at], old[at]);
    EXPECT_EQ(cells()[0x20], small.at(0x20));
}

TEST_F(Flash, AnEraseThatDoesNothingIsFound) {
    violationsExpected = true;  // programming over what is not erased
    const tavo::Image wanted = imageOf({{0, noise(0x4000, 5)}});
    for (const std::uint32_t spoiled : {0x1000u, 0x9000u}) {  // of the image, and outside of it
        fresh();
        programFlash(device(), wanted, {.full = true});
        cells()[spoiled] = 0;
        cells()[spoiled + 1] = 0;
        fresh();
        rig.loseErase(1);
        const tavo::Error error = failureOf([&] { programFlash(device(), wanted); });
        EXPECT_EQ(error.state.flash, FlashState::Incomplete);
        EXPECT_THAT(error.what(), HasSubstr("0x00" + std::to_string(spoiled / 0x1000)));
        EXPECT_TRUE(remembered());
        programFlash(device(), wanted);
        EXPECT_TRUE(holds(wanted));
    }
}
