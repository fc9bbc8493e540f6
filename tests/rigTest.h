// The fixture of every test that runs on the simulated interface.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sim/rig.h"
#include "tavo/deviceAccess.h"

class RigTest : public testing::Test {
protected:
    RigTest() {
        sim::Options options;
        options.pace = sim::Pace::Virtual;
        rig.keepJournal = true;
        rig.reset(options);
        info.scb0DeviceNumber = 0;
        info.scb0InterfaceNumber = 0;
        info.configDeviceNumber = 0;
        info.configInterfaceNumber = 1;
        info.serialNumber = "00001234";
        info.serialNumberValid = 1;
        info.vendorId = 0x04B4;
        info.productId = 0x0004;
    }

    void TearDown() override {
        EXPECT_EQ(rig.leftovers(), "") << "something is still held";
        if (!violationsExpected) {
            EXPECT_THAT(rig.violations(), testing::IsEmpty());
        }
    }

    sim::Rig& rig = sim::rig();
    DeviceInfo info;
    bool violationsExpected = false;
};
