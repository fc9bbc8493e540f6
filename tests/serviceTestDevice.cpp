// Looking at an interface and putting it right.
#include "service/device/health.h"
#include "tavo/Configurator.h"
#include "tests/serviceTest.h"

using tavo::LineState;
using tavo::Scb0State;
using testing::ElementsAre;

namespace {

class Health : public ServiceTest {
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
    // Master with another setting: the block's own doing.
    setMaster(1000000);
    EXPECT_EQ(look().scb0, Scb0State::GivenBack);
}

TEST_F(Health, WhatIsNotThereIsNotLookedAtAndWhatCannotBeReadIsUnknown) {
    rig.fail("CyGetGpioValue", 1, CY_ERROR_REQUEST_FAILED);  // a bridge with 12 pins has no pin 14
    EXPECT_EQ(look().serviceLine, LineState::NotLooked);
    rig.fail("CyGetGpioValue", 2, CY_ERROR_REQUEST_FAILED);  // but each has pin 8
    EXPECT_EQ(look().resetLine, LineState::Unknown);
    {
        tavo::Operation op(device(), none);
        op.state.serviceLine = LineState::Held;  // the operation drove it
        rig.fail("CyGetGpioValue", 1, CY_ERROR_REQUEST_FAILED);
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
                ElementsAre("pin 14?", "pin 8?", "setspi slave 900000", "pin 14=1", "pin 8=1", "pin 14?", "pin 8?"));
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

}  // namespace
