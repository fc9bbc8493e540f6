// Looking at an interface and putting it right.
#include <fstream>

#include "platform/ldv.h"
#include "service/device/health.h"
#include "tavo/Configurator.h"
#include "tavo/service/doctor.h"
#include "tavo/service/history.h"
#include "tavo/service/overview.h"
#include "tavo/service/recover.h"
#include "tavo/service/simulated.h"
#include "tests/serviceTest.h"

/// In place of the simulated one, whose interfaces no kernel driver takes: the driver of interface 0.
static const char* boundDriver = "";
extern "C" CY_RETURN_STATUS CyGetKernelDriver(UINT8 /*deviceNumber*/, UINT8 interfaceNumber, char* name, UINT32 size) {
    std::snprintf(name, size, "%s", interfaceNumber == 0 ? boundDriver : "");
    return CY_SUCCESS;
}

using tavo::LineState;
using tavo::Scb0State;
using testing::ElementsAre;

namespace {

class LinesTest : public ServiceTest {
protected:
    void drive(unsigned char pin, int level) {
        const CyHandle scb0(0, 0);
        ASSERT_EQ(CySetGpioValue(scb0.handle, pin, static_cast<UINT8>(level)), CY_SUCCESS);
    }
    /// What a run leaves that is killed while it works on the flash.
    void leaveLikeAKilledRun() {
        Configurator configurator(device().info());
        ASSERT_EQ(configurator.setupSpi(true), CY_SUCCESS);
        configurator.spiMasterSet = false;
        drive(8, 0);
    }
    void setMaster(UINT32 frequency) {
        const CyHandle scb0(0, 0);
        CY_SPI_CONFIG config{};
        ASSERT_EQ(CyGetSpiConfig(scb0.handle, &config), CY_SUCCESS);
        config.isMaster = true;
        config.frequency = frequency;
        ASSERT_EQ(CySetSpiConfig(scb0.handle, &config), CY_SUCCESS);
    }
};

class Health : public LinesTest {
protected:
    tavo::DeviceState look() {
        tavo::Operation op(device(), none);
        lookAtLines(op);
        return op.state;
    }
};

TEST_F(Health, TheLinesAreToldAsTheyAre) {
    const auto rest = look();
    EXPECT_EQ(rest.resetLine, LineState::Released);
    EXPECT_EQ(rest.serviceLine, LineState::Released);
    EXPECT_EQ(rest.scb0, Scb0State::GivenBack);
    EXPECT_FALSE(rest.isSomethingHeld());

    drive(14, 0);
    EXPECT_EQ(look().serviceLine, LineState::Held);
    drive(14, 1);
    leaveLikeAKilledRun();
    const auto left = look();
    EXPECT_EQ(left.resetLine, LineState::Held);
    EXPECT_EQ(left.scb0, Scb0State::SpiMaster);
    EXPECT_EQ(left.text(), "the Neuron is held in reset (pin 8 low); SCB0 is still SPI master beside the Neuron");
    drive(8, 1);
    // At another clock that a flash operation may be told; then one that none is.
    setMaster(3000000);
    EXPECT_EQ(look().scb0, Scb0State::SpiMaster);
    setMaster(500000);
    EXPECT_EQ(look().scb0, Scb0State::GivenBack);
    // As the block makes it, or may: it cannot be read.
    setMaster(1000000);
    rig.failFrom("libusb_control_transfer", 1, -1);
    EXPECT_EQ(look().scb0, Scb0State::GivenBack);
    rig.clearFaults();
    EXPECT_EQ(look().scb0, Scb0State::SpiMaster);
    makeBlockMaster();
    EXPECT_EQ(look().scb0, Scb0State::GivenBack);
}

TEST_F(Health, WhatIsNotThereIsNotLookedAtAndWhatCannotBeReadIsUnknown) {
    rig.fail("CyGetGpioValue", 2, CY_ERROR_REQUEST_FAILED);  // a bridge with 12 pins has no pin 14
    EXPECT_EQ(look().serviceLine, LineState::NotLooked);
    rig.failFrom("CyGetGpioValue", 1, CY_ERROR_REQUEST_FAILED);  // but each has pin 8
    EXPECT_EQ(look().resetLine, LineState::Unknown);
    EXPECT_EQ(look().serviceLine, LineState::Unknown);
    rig.clearFaults();
    {
        tavo::Operation op(device(), none);
        op.state.serviceLine = LineState::Held;  // the operation drove it
        rig.fail("CyGetGpioValue", 2, CY_ERROR_REQUEST_FAILED);
        lookAtLines(op);
        EXPECT_EQ(op.state.serviceLine, LineState::Unknown);
    }
    rig.fail("CyOpen", 1, CY_ERROR_DEVICE_NOT_FOUND);
    const auto gone = look();
    EXPECT_EQ(gone.resetLine, LineState::Unknown);
    EXPECT_EQ(gone.serviceLine, LineState::Unknown);
    EXPECT_EQ(gone.scb0, Scb0State::Unknown);
}

TEST_F(Health, WhatIsHeldIsReleasedOnceMore) {
    leaveLikeAKilledRun();
    drive(14, 0);
    tavo::Operation op(device(), none);
    clearJournal();
    letGo(op, true);
    EXPECT_FALSE(op.state.isSomethingHeld());
    std::vector<std::string> changes;
    for (const auto& line : rig.journal) {
        if (line.rfind("setspi", 0) == 0 || line.rfind("pin", 0) == 0) changes.push_back(line);
    }
    EXPECT_THAT(changes,
                ElementsAre("pin 8?", "pin 14?", "setspi slave 900000", "pin 14=1", "pin 8=1", "pin 8?", "pin 14?"));
    clearJournal();
    letGo(op, true);
    EXPECT_EQ(rig.journal.size(), 5U) << "well: only looked at";
}

TEST_F(Health, OnlyOnceMoreAndTheStateTellsWhatIsHeldAfterwards) {
    leaveLikeAKilledRun();
    rig.failFrom("CySetGpioValue", 1, CY_ERROR_IO_TIMEOUT);
    rig.failFrom("CySetSpiConfig", 1, CY_ERROR_REQUEST_FAILED);
    tavo::CancelToken cancelled;
    cancelled.cancel();  // it does not keep the lines held
    const tavo::Control control{[](const tavo::Event&) { throw 1; }, &cancelled};
    tavo::Operation op(device(), control);
    letGo(op, true);
    EXPECT_TRUE(op.state.isSomethingHeld());
    EXPECT_EQ(op.state.resetLine, LineState::Held);
    EXPECT_EQ(op.state.scb0, Scb0State::SpiMaster);
    rig.clearFaults();
    letGo(op, false);
    EXPECT_EQ(op.state.resetLine, LineState::Released);
    EXPECT_EQ(op.state.scb0, Scb0State::SpiMaster) << "it was not to be given back";
}

class History : public testing::Test {
protected:
    History() {
        std::string name = testing::TempDir() + "tavo-history-XXXXXX";
        folder = mkdtemp(name.data());
        setenv("XDG_STATE_HOME", folder.c_str(), 1);
    }
    ~History() override {
        unsetenv("XDG_STATE_HOME");
        std::filesystem::remove_all(folder);
    }
    static tavo::DeviceDescription at(const std::string& path, const std::string& serial) {
        tavo::DeviceDescription device;
        device.path = path;
        device.serial = serial;
        return device;
    }
    std::vector<std::filesystem::path> files() const {
        std::vector<std::filesystem::path> all;
        for (const auto& entry : std::filesystem::directory_iterator(folder + "/tavo-util"))
            all.push_back(entry.path());
        return all;
    }

    std::string folder;
    const tavo::InterruptedRun run{"/images/a b\n\\.hex", std::string(64, 'a'), "/b.hex", "2024-05-01T14:03:59+0200"};
};

TEST_F(History, ARunIsRememberedUntilItIsForgotten) {
    const auto device = at("1-4.2", "../x\n1");
    EXPECT_FALSE(interruptedRun(device));
    rememberRun(device, {"gone.hex", "", "", ""});
    rememberRun(device, run);
    ASSERT_EQ(files().size(), 1U);
    EXPECT_EQ(files()[0].filename(), "interrupted-1-4.2-.._x_1.run");
    const auto found = interruptedRun(device);
    ASSERT_TRUE(found);
    auto inUse = device;
    inUse.holder = 1;
    EXPECT_FALSE(interruptedRun(inUse)) << "it may still be going on";
    EXPECT_EQ(found->image, run.image);
    EXPECT_EQ(found->sha256, run.sha256);
    EXPECT_EQ(found->backup, run.backup);
    EXPECT_EQ(found->started, run.started);
    forgetRun(device);
    EXPECT_FALSE(interruptedRun(device));
    EXPECT_TRUE(files().empty());
    EXPECT_NO_THROW(forgetRun(device));
}

TEST_F(History, AnInterfaceIsKnownByItsSerialNumberElseByItsPort) {
    rememberRun(at("1-4.2", "A"), run);
    EXPECT_TRUE(interruptedRun(at("1-3", "A"))) << "moved to another port";
    EXPECT_TRUE(interruptedRun(at("1-4.2", ""))) << "its serial number cannot be read now";
    EXPECT_FALSE(interruptedRun(at("1-4.2", "B"))) << "another one at that port";
    EXPECT_FALSE(interruptedRun(at("1-3", "")));
    forgetRun(at("1-3", "A"));
    EXPECT_TRUE(files().empty());
}

TEST_F(History, ARelativeStateFolderIsIgnored) {
    rememberRun(at("1-4.2", "A"), run);
    setenv("XDG_STATE_HOME", std::filesystem::relative(folder).c_str(), 1);
    EXPECT_FALSE(interruptedRun(at("1-4.2", "A")));
}

TEST_F(History, ATornRecordIsStillAnInterruptedRun) {
    const auto device = at("1-4.2", "A");
    rememberRun(device, run);
    std::ofstream(files().at(0)) << "path=1-4.2\nserial=A\nstarted=2024-05-01T14:03:59+0200\nimage=/im";
    const auto found = interruptedRun(device);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->image, "");
    EXPECT_EQ(interruptedText(*found),
              "a run was interrupted (its record cannot be read): the image in the flash may be incomplete");
    forgetRun(device);
    EXPECT_FALSE(interruptedRun(device));
}

TEST_F(History, TheTextsNameFileSumAndBackup) {
    EXPECT_EQ(tavo::interruptedText({"/a.hex", "12ab", "/b.hex", "2024-05-01T14:03:59+0200"}),
              "the run of 2024-05-01T14:03:59+0200 was interrupted: the image is incomplete, /a.hex (sha256 12ab) was "
              "being programmed");
    EXPECT_THAT(tavo::interruptedText({"", "12ab", "", "now"}),
                testing::HasSubstr("incomplete, one from memory (sha256 12ab)"));
    EXPECT_THAT(tavo::interruptedText({"", "", "", "now"}), testing::HasSubstr("the erase of now"));
    EXPECT_EQ(tavo::interruptedHint({"/a.hex", "12ab", "/b.hex", "now"}),
              "program it again: tavo-util program /a.hex; what was there before is in /b.hex");
    EXPECT_EQ(tavo::interruptedHint({"", "", "", "now"}), "program an image");
}

TEST_F(History, AFolderThatCannotBeUsedIsAFailureOfTheFileSystem) {
    std::ofstream(folder + "/tavo-util") << "in the way";
    try {
        rememberRun(at("1-4.2", "A"), run);
        FAIL();
    } catch (const tavo::Error& error) {
        EXPECT_EQ(error.problem, tavo::Problem::FileSystem);
        EXPECT_NE(std::string(error.what()).find(folder + "/tavo-util"), std::string::npos) << error.what();
        EXPECT_FALSE(error.hint.empty());
    }
    EXPECT_FALSE(interruptedRun(at("1-4.2", "A")));
}

TEST_F(History, ASimulatedInterfaceKeepsItInItsOwnFolder) {
    const auto board = at("sim:" + folder + "/board", "00001234");
    rememberRun(board, run);
    std::filesystem::rename(folder + "/board", folder + "/moved");
    EXPECT_FALSE(interruptedRun(board));
    EXPECT_TRUE(interruptedRun(at("sim:" + folder + "/moved", "00009999")));
    EXPECT_NO_THROW(rememberRun(at("sim:memory", ""), run));
}

using tavo::Verdict;

class Doctor : public LinesTest {
protected:
    /// "FAIL SCB0: text - hint"
    std::vector<std::string> examine(bool restartNeuron = true) {
        std::vector<std::string> rows;
        const auto each = [&](const tavo::Check& check) {
            static constexpr const char* kMarks[] = {"ok ", "FAIL ", "- "};
            rows.push_back(kMarks[static_cast<int>(check.verdict)] + std::string(check.item) + ": " + check.text +
                           (check.hint.empty() ? "" : " - " + check.hint));
        };
        diagnosis = doctor(device(), {restartNeuron, each});
        EXPECT_EQ(rows.size(), diagnosis.checks.size());
        return rows;
    }

    tavo::Diagnosis diagnosis;
};

TEST_F(Doctor, AWellInterfaceIsWell) {
    EXPECT_THAT(examine(), ElementsAre("ok access: ", "ok kernel driver: none bound", "ok SCB0: SPI slave, 1000000 Hz",
                                       "ok reset line: high", "ok service line: high", "ok interrupted run: none",
                                       "ok configuration checksum: right", "ok flash ID: Winbond, ID EF 40 14, 1 MiB",
                                       "ok LDV name: ", "ok Neuron answer: "));
    EXPECT_EQ(diagnosis.failed(), 0U);
    EXPECT_EQ(examine(false)[7], "- flash ID: the look would restart the Neuron");
}

TEST_F(Doctor, LooksBeforeItTouchesAndReleasesNothing) {
    leaveLikeAKilledRun();
    clearJournal();
    const auto rows = examine();
    EXPECT_EQ(rows[2],
              "FAIL SCB0: SPI master, 900000 Hz, as flash operations make it while they run - a run was killed: "
              "tavo-util recover");
    EXPECT_EQ(rows[3],
              "FAIL reset line: held low (pin 8): the Neuron does not run - a run was killed: tavo-util recover");
    EXPECT_EQ(rows[7], "- flash ID: the look would let go what is held");
    EXPECT_EQ(rows[9], "- Neuron answer: the Neuron is held");
    for (const auto& line : rig.journal) {
        EXPECT_FALSE(line.rfind("setspi", 0) == 0 || line.find("pin 8=") == 0 || line.find("pin 14=") == 0) << line;
    }
    EXPECT_TRUE(diagnosis.state.isSomethingHeld());
    recover(device());
}

TEST_F(Doctor, AMasterThatTheBlockMakesIsToldAndNotFailed) {
    makeBlockMaster();
    EXPECT_EQ(examine(false)[2], "ok SCB0: SPI master, 1000000 Hz, as its configuration block makes it at power-up");
    setMaster(500000);
    EXPECT_EQ(examine(false)[2], "ok SCB0: SPI master, 500000 Hz, made so by another program");
    EXPECT_FALSE(diagnosis.state.isSomethingHeld());
    setMaster(3000000);
    EXPECT_THAT(examine(false)[2], testing::HasSubstr("SPI master, 3000000 Hz, as flash operations make it"));
}

TEST_F(Doctor, WhatAnEarlierFailureMakesMeaninglessIsSkipped) {
    findAgain();
    plug("denied");
    const auto denied = examine();
    EXPECT_EQ(denied[0].substr(0, 11), "FAIL access");
    EXPECT_EQ(diagnosis.failed(), 1U);
    findAgain();
    plug("pins=12");
    EXPECT_EQ(examine()[4], "- service line: this bridge has no such pin");
    EXPECT_EQ(diagnosis.failed(), 0U);
}

TEST_F(Doctor, AKernelDriverIsNamedAlsoWhereTheInterfaceOpens) {
    boundDriver = "cdc_acm";
    const auto rows = examine();
    boundDriver = "";
    EXPECT_EQ(rows[1],
              "FAIL kernel driver: cdc_acm on interface 0 - it takes the interface from other programs: install "
              "the udev rule (packaging/), replug");
    EXPECT_EQ(diagnosis.failed(), 1U);
}

TEST_F(Doctor, AnInterruptedRunIsNamedWithItsFileAndBackup) {
    rememberRun(device().description(), {"/a.hex", "12ab", "/b.hex", "2024-05-01T14:03:59+0200"});
    EXPECT_EQ(examine()[5],
              "FAIL interrupted run: the run of 2024-05-01T14:03:59+0200 was interrupted: the image is "
              "incomplete, /a.hex (sha256 12ab) was being programmed - program it again: tavo-util program "
              "/a.hex; what was there before is in /b.hex");
    EXPECT_EQ(diagnosis.state.flash, tavo::FlashState::Incomplete);
}

class Recover : public LinesTest {
protected:
    /// "ok", "FAIL" or "-" and the text of each step.
    std::vector<std::string> run() {
        std::vector<std::string> rows;
        const auto each = [&](const tavo::RecoverStep& step) {
            static constexpr const char* kMarks[] = {"ok ", "FAIL ", "- "};
            rows.push_back(kMarks[static_cast<int>(step.verdict)] + step.text +
                           (step.why.empty() ? "" : ": " + step.why));
        };
        error.reset();
        try {
            recovery = recover(device(), {each});
        } catch (const tavo::Error& thrown) {
            error = thrown;
        }
        return rows;
    }

    tavo::Recovery recovery;
    std::optional<tavo::Error> error;
};

TEST_F(Recover, LetsGoProvesItAndSaysSo) {
    leaveLikeAKilledRun();
    drive(14, 0);
    EXPECT_THAT(run(), ElementsAre("ok unfinished SPI transfer ended", "ok SCB0 made SPI slave again",
                                   "ok service line released (pin 14 high)", "ok Neuron let out of reset (pin 8 high)",
                                   "ok configuration mode left", "ok lines and SCB0 read back",
                                   "ok flash answers: Winbond, ID EF 40 14, 1 MiB", "ok the Neuron answers"));
    EXPECT_FALSE(error);
    EXPECT_FALSE(recovery.state.isSomethingHeld());
    EXPECT_EQ(run()[1], "ok SCB0 is SPI slave already");
}

TEST_F(Recover, EndsATransferThatAKilledRunLeftUnfinished) {
    plug("unfinished");
    setMaster(500000);
    rig.board().bridge.isSettingLostByReset = true;
    clearJournal();
    EXPECT_EQ(run()[0], "ok unfinished SPI transfer ended; its setting had changed and was put back");
    EXPECT_FALSE(error) << error->what();
    EXPECT_EQ(rig.board().bridge.spi.frequency, 500000u);
    const auto isSpiTransfer = [](const std::string& line) { return line.rfind("spi ", 0) == 0; };
    const auto first = std::find_if(rig.journal.begin(), rig.journal.end(), isSpiTransfer);
    EXPECT_NE(std::find(rig.journal.begin(), first, "control 40 CB 0000 0000 0"), first);
}

TEST_F(Recover, LeavesAMasterThatNoFlashOperationMade) {
    setMaster(500000);
    EXPECT_EQ(run()[1], "ok SCB0 is SPI master at 500000 Hz, which no flash operation sets: left so");
    const CyHandle scb0(0, 0);
    CY_SPI_CONFIG config{};
    ASSERT_EQ(CyGetSpiConfig(scb0.handle, &config), CY_SUCCESS);
    EXPECT_TRUE(config.isMaster && config.frequency == 500000);
}

TEST_F(Recover, LeavesTheConfigurationModeWhicheverPairTheBridgeTakes) {
    for (const char* pair : {"access=library", "access=letters"}) {
        findAgain();
        plug(pair);
        rig.board().bridge.inConfigurationMode = true;
        run();
        EXPECT_FALSE(error) << error->what();
        EXPECT_FALSE(rig.board().bridge.inConfigurationMode) << pair;
    }
}

TEST_F(Recover, AModeThatCannotBeLeftIsAFailure) {
    device();
    rig.failFrom("libusb_control_transfer", 1, -7);  // a time-out; a stall would be an answer
    EXPECT_EQ(run().at(4).substr(0, 28), "FAIL configuration mode left");
    EXPECT_TRUE(error);
}

TEST_F(Recover, ABridgeWithoutPin14IsRecovered) {
    plug("pins=12");
    leaveLikeAKilledRun();
    EXPECT_EQ(run()[2], "- service line: this bridge has no pin 14");
    EXPECT_FALSE(error);
}

TEST_F(Recover, WhatStaysHeldIsAFailureThatSaysSo) {
    leaveLikeAKilledRun();
    rig.failFrom("CySetGpioValue", 1, CY_ERROR_IO_TIMEOUT);
    const auto steps = run();
    EXPECT_EQ(steps[1], "ok SCB0 made SPI slave again") << "each step is tried";
    EXPECT_EQ(steps[3].substr(0, 5), "FAIL ");
    EXPECT_EQ(steps[5], "FAIL lines and SCB0 read back: something is still held");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->state.resetLine, LineState::Held);
    rig.clearFaults();
    run();
    EXPECT_FALSE(error);
}

TEST_F(Recover, AFlashThatDoesNotAnswerIsNotAllWell) {
    rig.failFrom("CySpiReadWrite", 1, CY_ERROR_IO_TIMEOUT);
    EXPECT_EQ(run()[6].substr(0, 13), "FAIL flash ID");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->status, TAVO_TIMEOUT);
    EXPECT_FALSE(error->state.isSomethingHeld());
}

TEST_F(Recover, ANeuronWithoutItsImageIsNoFailureOfThis) {
    rig.failFrom("ldv_open", 1, LDV_NOT_FOUND);
    EXPECT_EQ(run().back(), "- the Neuron answers: there is no LDV channel to ask it");
    EXPECT_FALSE(error);
    rig.clearFaults();
    rig.failFrom("ldv_read", 1, LDV_NO_MSG_AVAIL);
    EXPECT_EQ(run().back(), "- the Neuron answers: it does not, as the flash is blank");
    EXPECT_FALSE(error);
    rig.board().flash.cells[0] = 0x00;
    EXPECT_EQ(run().back().substr(0, 25), "FAIL the Neuron answers: ");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->problem, tavo::Problem::NoAnswer);
    rememberRun(device().description(), {"/a.hex", "", "", ""});
    EXPECT_EQ(run().back(), "- the Neuron answers: it does not, as the flash lacks its image");
    EXPECT_FALSE(error);
    EXPECT_EQ(recovery.state.flash, tavo::FlashState::Incomplete);
}

TEST_F(Recover, EndsSoonWhenCancelledAsDoctorDoes) {
    const auto stopAfter = [&](const std::string& text, const auto& work) {
        tavo::CancelToken token;
        const auto start = rig.now();
        work(tavo::Control{{}, &token}, [&](const std::string& told) {
            if (told.rfind(text, 0) == 0) token.cancel();
        });
        EXPECT_LT(rig.now() - start, 1000000U);
    };
    stopAfter("flash answers", [&](const tavo::Control& control, const auto& see) {
        EXPECT_THROW(recover(device(), {[&](const tavo::RecoverStep& step) { see(step.text); }}, control), tavo::Error);
    });
    stopAfter("LDV name", [&](const tavo::Control& control, const auto& see) {
        EXPECT_THROW(doctor(device(), {true, [&](const tavo::Check& check) { see(check.item); }}, control),
                     tavo::Error);
    });
}

TEST_F(Doctor, InterruptedItDoesNotClaimThatWhatIsHeldWasReleased) {
    leaveLikeAKilledRun();
    tavo::CancelToken token;
    const auto stop = [&](const tavo::Check& check) {
        if (check.item == std::string("reset line")) token.cancel();
    };
    try {
        doctor(device(), {true, stop}, {{}, &token});
        ADD_FAILURE() << "not interrupted";
    } catch (const tavo::Error& error) {
        EXPECT_STREQ(error.what(), "interrupted; not everything is released");
        EXPECT_TRUE(error.state.isSomethingHeld());
        EXPECT_THAT(error.hint, testing::HasSubstr("recover"));
    }
    recover(device());
}

TEST_F(Recover, InterruptedAtOnceItTellsWhatIsHeld) {
    leaveLikeAKilledRun();
    tavo::CancelToken token;
    token.cancel();
    try {
        recover(device(), {}, {{}, &token});
        ADD_FAILURE() << "not interrupted";
    } catch (const tavo::Error& thrown) {
        EXPECT_EQ(thrown.problem, tavo::Problem::Interrupted);
        EXPECT_EQ(thrown.state.resetLine, LineState::Held);
        EXPECT_THAT(thrown.hint, testing::HasSubstr("recover"));
    }
    recover(device());
}

TEST_F(Doctor, ANeuronThatStillStartsIsNotCalledSilent) {
    for (const bool held : {true, false}) rig.board().neuron.setReset(held);
    const auto found = doctor(device(), {.restartNeuron = false, .each = {}});
    EXPECT_EQ(found.check("Neuron answer").verdict, tavo::Verdict::Ok) << found.check("Neuron answer").text;
}

class Overview : public LinesTest {};

TEST_F(Overview, APartThatDoesNotAnswerIsAbsentAndTellsWhy) {
    const auto whole = overview(device(), {tavo::FlashLook::Always});
    EXPECT_TRUE(whole.siliconId.value && whole.neuronId.value && whole.status.value && whole.flash.value);
    EXPECT_FALSE(whole.state.isSomethingHeld());

    rig.failFrom("ldv_open", 1, LDV_NOT_FOUND);
    rig.failFrom("CySpiReadWrite", 1, CY_ERROR_IO_TIMEOUT);
    const auto without = overview(device(), {tavo::FlashLook::Always});
    EXPECT_FALSE(without.neuronId.value || without.programId.value || without.status.value || without.flash.value);
    for (const std::string& why : {without.neuronId.why, without.status.why, without.flash.why}) EXPECT_NE(why, "");
    EXPECT_TRUE(without.siliconId.value);
}

TEST_F(Overview, OnlyANeuronThatIsSilentIsRestarted) {
    const auto neuronOf = [](const tavo::Overview& all) { return all.parts.back().state; };
    auto all = overview(device());
    EXPECT_FALSE(all.neuronRestarted || all.flash.value);
    EXPECT_EQ(neuronOf(all), "running, configured");

    rig.failFrom("ldv_open", 1, LDV_NOT_FOUND);  // nobody knows whether it runs
    all = overview(device());
    EXPECT_FALSE(all.neuronRestarted);
    EXPECT_THAT(neuronOf(all), testing::HasSubstr("cannot be asked"));

    rig.clearFaults();
    rig.failFrom("ldv_read", 1, LDV_DEVICE_ERR);
    EXPECT_FALSE(overview(device(), {tavo::FlashLook::Never}).neuronRestarted);
    all = overview(device());
    EXPECT_TRUE(all.neuronRestarted && all.flash.value);
    EXPECT_EQ(neuronOf(all), "silent");

    rig.clearFaults();
    leaveLikeAKilledRun();
    all = overview(device());
    EXPECT_FALSE(all.neuronRestarted);
    EXPECT_EQ(neuronOf(all), "held in reset");
    EXPECT_EQ(all.parts.back().verdict, tavo::Verdict::Fail);
    recover(device());

    rememberRun(device().description(), {"image.hex", "", "", ""});
    EXPECT_EQ(overview(device()).parts[3].state, "incomplete image");
}

TEST_F(Overview, ADeviceThatCannotBeSeenToBeReleasedIsNoSuccess) {
    for (const char* function : {"CyGetGpioValue", "CyGetSpiConfig"}) {
        rig.clearFaults();
        rig.failFrom(function, 1, CY_ERROR_IO_TIMEOUT);
        EXPECT_THROW(overview(device(), {tavo::FlashLook::Always}), tavo::Error) << function;
    }
}

TEST(DeviceLock, AFileThatCannotBeMadeIsNoOtherProcess) {
    tavo::DeviceDescription description;
    description.path = std::string(300, '1');  // longer than a file name may be
    try {
        tavo::Device device(description);
        ADD_FAILURE() << "locked";
    } catch (const tavo::Error& error) {
        EXPECT_EQ(error.problem, tavo::Problem::FileSystem);
        EXPECT_THAT(error.hint, testing::HasSubstr("TMPDIR"));
    }
}

TEST(SimulatedEnvironment, WithoutACurrentFolderARelativeNameIsAFailureOfTheFileSystem) {
    namespace fs = std::filesystem;
    const fs::path before = fs::current_path();
    std::string gone = testing::TempDir() + "tavo-gone-XXXXXX";
    fs::current_path(mkdtemp(gone.data()));
    fs::remove(gone);
    EXPECT_FALSE(tavo::DeviceSpec::parse("sim:demo").matches({}));
    try {
        tavo::simulatedEnvironment({"sim:demo"});
        ADD_FAILURE() << "nothing failed";
    } catch (const tavo::Error& error) {
        EXPECT_EQ(error.problem, tavo::Problem::FileSystem);
    }
    fs::current_path(before);
}

}  // namespace
