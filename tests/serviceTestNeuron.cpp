// The Neuron's operations of the service layer beside the library's: the same messages, ends of their own.
#include <functional>

#include "common/neuronPins.h"
#include "service/device/health.h"
#include "tavo/Configurator.h"
#include "tavo/service/neuron.h"
#include "tavo/service/watch.h"
#include "tests/serviceTest.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using Journal = std::vector<std::string>;

class NeuronService : public ServiceTest {
protected:
    Journal journalOf(const std::function<void()>& work) {
        rig.journal.clear();
        work();
        return rig.journal;
    }
    /// The endpoint talks without end, and nothing of it is the answer.
    void talkForEver() { rig.scriptLdv({{.status = 0, .message = {0x16, 0x01, 0x00}, .times = 1000000}}); }

    tavo::CancelToken token;
};

TEST_F(NeuronService, RequestsAndWaitsAreThoseOfTheLibrary) {
    tavo::Device& own = device();
    NeuronState state;
    NeuronId id;
    unsigned char program[8];
    LonAddress table[2];
    const auto require = [](TAVO_STATUS status) { ASSERT_EQ(status, TAVO_SUCCESS); };
    EXPECT_EQ(journalOf([&] { tavo::readStatus(own); }), journalOf([&] { require(readState(own.info(), state)); }));
    EXPECT_EQ(journalOf([&] { tavo::readNeuronId(own); }), journalOf([&] { require(readNeuronId(own.info(), id)); }));
    EXPECT_EQ(journalOf([&] { tavo::readProgramId(own); }),
              journalOf([&] { require(readProgramId(own.info(), program)); }));
    EXPECT_EQ(journalOf([&] { tavo::readDomainTable(own); }),
              journalOf([&] { require(readDomainTable(own.info(), table)); }));
    const auto now = tavo::readDomainTable(own);
    EXPECT_EQ(journalOf([&] { tavo::writeDomainTable(own, now, now); }), journalOf([&] {
                  require(writeDomainTable(own.info(), table));
                  require(readDomainTable(own.info(), table));  // read back
              }));
    EXPECT_EQ(journalOf([&] { tavo::reset(own, tavo::ResetBy::Message); }).size(),
              journalOf([&] { require(softReset(own.info())); }).size() + 9);  // its last second in ten pieces
}

TEST_F(NeuronService, AModeIsSetAndSeen) {
    for (const tavo::Mode mode : {tavo::Mode::Offline, tavo::Mode::Configured, tavo::Mode::Unconfigured}) {
        const auto change = tavo::setMode(device(), mode);
        ASSERT_TRUE(change.before && change.after);
        EXPECT_EQ(change.after->nodeState, tavo::nodeStateOf(mode));
    }
    EXPECT_STREQ(tavo::nodeStateName(tavo::readStatus(device()).nodeState), "unconfigured");
}

TEST_F(NeuronService, AFailureTellsWhetherAnythingWasSent) {
    rig.fail("ldv_open", 2, 1);
    auto failure = failureOf([&] { tavo::setMode(device(), tavo::Mode::Offline); });
    EXPECT_EQ(failure.state.text(), "nothing was sent to the Neuron");
    EXPECT_THAT(failure.hint, HasSubstr("LDV channel"));

    rig.fail("ldv_read", 2, 4);
    failure = failureOf([&] { tavo::setMode(device(), tavo::Mode::Offline); });
    EXPECT_EQ(failure.problem, tavo::Problem::NoAnswer);
    EXPECT_EQ(failure.state.text(), "the node state may have changed: tavo-util status shows it");

    rig.fail("ldv_read", 1, 4);
    failure = failureOf([&] { tavo::readStatus(device()); });
    EXPECT_EQ(failure.state.text(), "the Neuron was only asked, nothing in it changed");
}

TEST_F(NeuronService, AChannelThatTalksForEverIsLeftWhenCancelledAndGivenUpOtherwise) {
    talkForEver();
    auto failure = failureOf([&] { tavo::readStatus(device()); });
    EXPECT_EQ(failure.problem, tavo::Problem::NoAnswer);
    EXPECT_LE(rig.now(), 125'000'000u);

    talkForEver();
    const auto start = rig.now();
    token.cancel();
    failure = failureOf([&] { tavo::readStatus(device(), {{}, &token}); });
    EXPECT_EQ(failure.problem, tavo::Problem::Interrupted);
    EXPECT_LE(rig.now() - start, 2'000'000u);
}

TEST_F(NeuronService, ServiceModeEndsSoonWhenCancelledWithBothLinesReleased) {
    const tavo::Observer observer = [&](const tavo::Event& event) {
        if (event.kind == tavo::Event::Kind::PhaseBegins) token.cancel();
    };
    const auto start = rig.now();
    const auto failure = failureOf([&] { tavo::setMode(device(), tavo::Mode::Service, {observer, &token}); });
    EXPECT_EQ(failure.problem, tavo::Problem::Interrupted);
    EXPECT_LE(rig.now() - start, 2'000'000u);
    EXPECT_EQ(failure.state.resetLine, tavo::LineState::Released);
    EXPECT_EQ(failure.state.serviceLine, tavo::LineState::Released);
}

TEST_F(NeuronService, ALineThatStaysLowIsNoSuccess) {
    // Each pulse drives low, then high: the release, and the one more that follows, fail.
    rig.failFrom("CySetGpioValue", 2, CY_ERROR_IO_TIMEOUT);
    auto failure = failureOf([&] { tavo::pressServicePin(device()); });
    EXPECT_THAT(failure.state.text(), HasSubstr("pin 14 low"));
    EXPECT_EQ(failure.problem, tavo::Problem::DeviceFailed);
    EXPECT_THAT(failure.hint, HasSubstr("tavo-util recover"));
    rig.clearFaults();
    tavo::pressServicePin(device());

    rig.fail("CySetGpioValue", 2, CY_ERROR_IO_TIMEOUT);  // the destructor's own release mends it
    EXPECT_EQ(failureOf([&] { tavo::pressServicePin(device()); }).state.serviceLine, tavo::LineState::Released);
    rig.fail("CySetGpioValue", 2, CY_ERROR_IO_TIMEOUT);
    failure = failureOf([&] { tavo::reset(device(), tavo::ResetBy::Line); });
    EXPECT_EQ(failure.state.text(), "the Neuron may have been reset");
}

TEST_F(NeuronService, WhatAKilledFlashRunHoldsIsSeen) {
    const auto kill = [this] {
        const CyHandle scb0(device().info().scb0DeviceNumber, device().info().scb0InterfaceNumber);
        Configurator configurator(device().info());
        ASSERT_EQ(configurator.setupSpi(true), CY_SUCCESS);
        configurator.spiMasterSet = false;  // its destructor is left out, as by a kill
        CySetGpioValue(scb0.handle, kNeuronResetPin, 0);
    };
    kill();
    const auto failure = failureOf([&] { tavo::pressServicePin(device()); });
    EXPECT_THAT(failure.what(), HasSubstr("the Neuron is held in reset"));
    EXPECT_EQ(failure.state.resetLine, tavo::LineState::Held);
    EXPECT_THAT(failure.hint, HasSubstr("tavo-util recover"));

    tavo::reset(device(), tavo::ResetBy::Line);  // a master must not drive the flash beside the Neuron
    tavo::Operation op(device(), none);
    tavo::lookAtLines(op);
    EXPECT_FALSE(op.state.isSomethingHeld());
}

TEST_F(NeuronService, ABridgeWithoutTheServicePinIsNamed) {
    plug("pins=12");
    const auto failure = failureOf([&] { tavo::pressServicePin(device()); });
    EXPECT_THAT(failure.what(), HasSubstr("this bridge has no pin 14"));
}

TEST_F(NeuronService, AHalfWrittenDomainTableSaysWhichEntry) {
    const auto before = tavo::readDomainTable(device());
    auto wanted = before;
    wanted[0].subnet = 7;
    wanted[1].subnet = 9;
    std::vector<unsigned> changed;
    rig.fail("ldv_write", 2, 4);
    const auto failure = failureOf([&] { tavo::writeDomainTable(device(), before, wanted, {.changed = &changed}); });
    EXPECT_EQ(failure.state.text(), "domain table read back: entry 0 written, entry 1 unchanged");
    EXPECT_THAT(changed, testing::ElementsAre(0u));
    tavo::writeDomainTable(device(), before, wanted, {.changed = &changed});
    EXPECT_THAT(changed, testing::ElementsAre(0u, 1u));
    rig.fail("ldv_read", 3, 4);  // the table cannot be read back
    EXPECT_EQ(failureOf([&] { tavo::writeDomainTable(device(), wanted, before); }).problem, tavo::Problem::NoAnswer);
    tavo::writeDomainTable(device(), before, wanted);
    EXPECT_EQ(tavo::readDomainTable(device())[1].subnet, 9);
}

/// Of a status whose first two counters are these.
const tavo::StatusLook& see(tavo::StatusHistory& history, unsigned transmit, unsigned timeouts,
                            unsigned char resetCause = 1) {
    const auto byte = [](unsigned value) { return static_cast<unsigned char>(value); };
    NeuronState state{};
    state.transmitErrors[0] = byte(transmit >> 8);
    state.transmitErrors[1] = byte(transmit);
    state.transactionTimeouts[0] = byte(timeouts >> 8);
    state.transactionTimeouts[1] = byte(timeouts);
    state.resetCause = resetCause;
    return history.add(0, state);
}

TEST(StatusHistory, TellsWhatGrewOverSilenceAndTheEndOfTheRange) {
    tavo::StatusHistory history;
    EXPECT_EQ(see(history, 0xFFF0, 7).change, tavo::Counts{});
    EXPECT_EQ(see(history, 0x0002, 7).change, (tavo::Counts{0x12, 0}));
    history.add(1, std::nullopt, "transaction failed");
    EXPECT_EQ(see(history, 0x0003, 9).change, (tavo::Counts{1, 2}));
    EXPECT_EQ(history.total, (tavo::Counts{0x13, 2}));
    EXPECT_EQ(history.unanswered(), 1u);
    EXPECT_EQ(history.timesCleared(), 0u);
}

TEST(StatusHistory, CountersThatWereSetBackCountFromThere) {
    struct {
        unsigned before[2], after[2];
        unsigned char resetCause;                          // afterwards; 1 before
    } const cases[] = {{{500, 100}, {3, 0}, 1},            // cleared
                       {{0xFFF0, 100}, {0x0002, 4}, 1},    // the first could have gone over, the second not
                       {{0xFFF0, 0}, {0x0002, 0}, 0x14}};  // it could, but the Neuron was reset
    for (const auto& each : cases) {
        tavo::StatusHistory history;
        see(history, each.before[0], each.before[1]);
        const auto& look = see(history, each.after[0], each.after[1], each.resetCause);
        EXPECT_TRUE(look.cleared);
        EXPECT_EQ(look.change, (tavo::Counts{each.after[0], each.after[1]}));
    }
}

TEST_F(NeuronService, AWatchGoesOnOverSilenceAndEndsWhenCancelled) {
    rig.fail("ldv_read", 2, 4);  // the second look
    tavo::WatchOptions options;
    options.each = [&](const tavo::StatusHistory& sofar) {
        if (sofar.looks.size() == 3) token.cancel();
    };
    tavo::StatusHistory history;
    tavo::watchStatus(device(), history, options, {{}, &token});
    ASSERT_EQ(history.looks.size(), 3u);
    EXPECT_FALSE(history.looks[1].status);
    EXPECT_NE(history.looks[1].why, "");
    EXPECT_TRUE(history.looks[2].status);
    EXPECT_GE(rig.now(), 3'000'000u);  // from look to look 2 s
}

TEST_F(NeuronService, AWatchWithoutAnAnswerOrAnInterfaceIsAFailure) {
    tavo::StatusHistory history;
    tavo::WatchOptions options;
    options.looks = 2;
    rig.failFrom("ldv_read", 1, 4);
    auto failure = failureOf([&] { tavo::watchStatus(device(), history, options); });
    EXPECT_EQ(failure.problem, tavo::Problem::NoAnswer);
    EXPECT_EQ(history.looks.size(), 2u);

    rig.failFrom("ldv_open", 1, 1);
    failure = failureOf([&] { tavo::watchStatus(device(), history, options); });
    EXPECT_THAT(failure.hint, HasSubstr("LDV channel"));
    EXPECT_THAT(history.looks, IsEmpty());

    rig.clearFaults();
    options.looks = 0;
    options.each = [&](const tavo::StatusHistory&) { rig.unplug(); };
    failureOf([&] { tavo::watchStatus(device(), history, options); });
    EXPECT_EQ(history.looks.size(), 1u);
}

}  // namespace
