// The configuration block and the Neuron ID record: planned, written, and seen to be written.
#include <cstring>
#include <functional>
#include <stdexcept>

#include "tavo/bridge.h"
#include "tavo/service/configuration.h"
#include "tests/serviceTest.h"

using testing::HasSubstr;

namespace {

class BridgeService : public ServiceTest {
protected:
    static unsigned controls(const std::vector<std::string>& journal, const std::string& start) {
        unsigned count = 0;
        for (const auto& line : journal) count += line.rfind("control " + start, 0) == 0 ? 1 : 0;
        return count;
    }
};

TEST_F(BridgeService, APlanShowsWhatAWriteMakes) {
    const auto plan = tavo::planSerialNumber(device(), "TAVO-0042");
    EXPECT_EQ(tavo::fieldsOf(plan.before).serial, "00001234");
    EXPECT_EQ(tavo::fieldsOf(plan.after).serial, "TAVO-0042");
    EXPECT_EQ(tavo::fieldsOf(plan.after).whyBad, "");
    tavo::writeConfiguration(device(), plan, {.noBackup = true});
    EXPECT_EQ(tavo::readConfiguration(device()), plan.after);

    // What keeps the serial number in effect names the one that it would drop.
    const auto role = tavo::planScb0(device(), tavo::Scb0Role::I2c);
    EXPECT_EQ(role.pendingSerial, "TAVO-0042");
    EXPECT_STREQ(tavo::fieldsOf(role.after).scb0, "I2C");
    rig.journal.clear();
    tavo::writeConfiguration(device(), tavo::planScb0(device(), tavo::Scb0Role::I2c), {.noBackup = true});
    EXPECT_EQ(controls(rig.journal, "40 B6"), 1u);
    rig.journal.clear();
    tavo::writeConfiguration(device(), tavo::planScb0(device(), tavo::Scb0Role::I2c), {.noBackup = true});
    EXPECT_EQ(controls(rig.journal, "40 B6"), 0u) << "nothing changes";
}

TEST_F(BridgeService, ABlockIsShownFieldByField) {
    auto block = tavo::readConfiguration(device());
    auto fields = tavo::fieldsOf(block);
    EXPECT_EQ(fields.serial + "," + fields.manufacturer + "," + fields.product, "00001234,Tavo,LON Interface");
    EXPECT_EQ(fields.vendorId, 0x04B4);
    EXPECT_EQ(fields.productId, 0x0004);
    EXPECT_STREQ(fields.scb0, "SPI");
    EXPECT_EQ(fields.maxPowerMilliamperes, 100u);
    EXPECT_EQ(fields.format, "1.0.3");
    EXPECT_TRUE(fields.checksumRight);

    // What others wrote: a role of their own, more than ASCII, a string longer than its field.
    block[0x1C] = 4;
    block[0x132] = 0x1F;
    block[0x134] = 0x7E;
    block[0xEE] = 0xFF;
    fields = tavo::fieldsOf(block);
    EXPECT_STREQ(fields.scb0, "unknown");
    EXPECT_EQ(fields.product.substr(0, 3), "?~N");
    EXPECT_EQ(fields.manufacturer.size(), 32u);
    EXPECT_FALSE(fields.checksumRight);
    EXPECT_THAT(fields.whyBad, HasSubstr("checksum"));
    block[0] = 'X';
    EXPECT_THAT(tavo::fieldsOf(block).whyBad, HasSubstr("CYUS"));

    const auto nameAt = [](std::size_t offset) { return std::string(tavo::configurationFieldAt(offset)); };
    EXPECT_EQ(nameAt(0x12F) + "," + nameAt(0x130) + "," + nameAt(0x171), "manufacturer,product,product");
    EXPECT_EQ(nameAt(0x0C) + nameAt(0x1B) + nameAt(0x1B4), "") << "between and after them";
}

TEST_F(BridgeService, TheBlockIsTheOneThatTheLibraryWouldWrite) {
    const auto plan = tavo::planSerialNumber(device(), "00005678");
    tavo::writeConfiguration(device(), plan, {.noBackup = true});
    unsigned char block[512] = {};
    rig.replug();
    ASSERT_EQ(updateCypressConfig(info, nullptr, "00005678"), TAVO_SUCCESS);
    ASSERT_EQ(readConfigData(info, block), TAVO_SUCCESS);
    EXPECT_EQ(std::memcmp(block, plan.after.data(), sizeof block), 0);
}

TEST_F(BridgeService, TheConfigurationModeIsLeftAfterEveryFailure) {
    const auto plan = tavo::planSerialNumber(device(), "NEW");
    for (unsigned request = 2; request <= 5; ++request) {  // after the silicon ID: enter, read, write, leave
        rig.clearFaults();
        rig.journal.clear();
        rig.fail("libusb_control_transfer", request, -7);
        failureOf([&] { tavo::writeConfiguration(device(), plan, {.noBackup = true}); });
        unsigned entered = 0, left = 0;
        for (const auto& line : rig.journal) {
            if (line.find('!') != std::string::npos) continue;
            entered += line.rfind("control 40 E2 5C3E", 0) == 0 ? 1 : 0;
            left += line.rfind("control 40 E2 5C37", 0) == 0 ? 1 : 0;
        }
        // A request to enter whose answer was lost may have been carried out.
        EXPECT_EQ(left, entered + (request == 2 ? 1 : 0)) << request;
    }
}

TEST_F(BridgeService, ABridgeThatTakesTheOtherAccessValuesIsServedToo) {
    plug("access=letters");
    const auto plan = tavo::planSerialNumber(device(), "NEW");
    tavo::writeConfiguration(device(), plan, {.noBackup = true});
    EXPECT_EQ(tavo::readConfiguration(device()), plan.after);
    const auto& journal = rig.journal;
    EXPECT_EQ(controls(journal, "40 E2 A6BC B1B0"), 4u);  // plan, write, the look after it, and the last read
    EXPECT_EQ(controls(journal, "40 E2 A6BC B9B0"), 4u) << "left as often";
}

TEST_F(BridgeService, AFailedWriteTellsWhatTheBridgeHolds) {
    const auto plan = tavo::planSerialNumber(device(), "NEW");
    rig.fail("libusb_control_transfer", 4, -7);
    auto failure = failureOf([&] { tavo::writeConfiguration(device(), plan, {.noBackup = true}); });
    EXPECT_EQ(failure.state.text(), "configuration block unchanged");
    rig.failFrom("libusb_control_transfer", 4, -7);
    failure = failureOf([&] { tavo::writeConfiguration(device(), plan, {.noBackup = true}); });
    EXPECT_EQ(failure.state.text(), "configuration block not known: it may be damaged");
    EXPECT_THAT(failure.hint, HasSubstr("a good block first: tavo-util config write"));
    rig.clearFaults();
    rig.fail("libusb_control_transfer", 5, -7);
    failure = failureOf([&] { tavo::writeConfiguration(device(), plan, {.noBackup = true}); });
    EXPECT_EQ(failure.state.text(), "configuration block written all the same");
}

TEST_F(BridgeService, ACancellationDoesNotHideAFailedWrite) {
    const auto plan = tavo::planSerialNumber(device(), "NEW");
    tavo::CancelToken token;
    const tavo::Observer cancelInside = [&](const tavo::Event& event) {
        if (event.text == "call: " + plan.doing) token.cancel();
    };
    rig.failFrom("libusb_control_transfer", 4, -7);
    const auto failure = failureOf([&] {
        tavo::writeConfiguration(device(), plan, {folder + "/it's kept.bin", true}, {cancelInside, &token});
    });
    EXPECT_EQ(failure.state.text(), "configuration block not known: it may be damaged");
    EXPECT_EQ(failure.hint, "do not unplug the interface; write the old block first: tavo-util config write '" +
                                folder + R"(/it'\''s kept.bin')");
}

TEST_F(BridgeService, AnObserverThatThrowsWhileTheModeIsLeftEndsNothing) {
    const tavo::Observer thrower = [](const tavo::Event& event) {
        if (event.text.find("may still be in configuration mode") != std::string::npos) throw std::runtime_error("");
    };
    rig.failFrom("libusb_control_transfer", 2, -7);  // the reading and, on the way out, the leaving
    const auto failure = failureOf([&] { tavo::readConfiguration(device(), {thrower, nullptr}); });
    EXPECT_EQ(failure.state.text(), "configuration block unchanged");
}

TEST_F(BridgeService, AnEditIsNotMadeOverABlockThatSomebodyElseHasWritten) {
    const auto plan = tavo::planSerialNumber(device(), "MINE");
    ASSERT_EQ(updateCypressConfig(info, nullptr, "THEIRS"), TAVO_SUCCESS);
    const auto failure = failureOf([&] { tavo::writeConfiguration(device(), plan, {.noBackup = true}); });
    EXPECT_EQ(failure.state.text(), "configuration block unchanged");
    EXPECT_EQ(tavo::fieldsOf(tavo::readConfiguration(device())).serial, "THEIRS");
}

TEST_F(BridgeService, ASerialNumberIsCheckedBeforeAnythingIsAsked) {
    device();
    rig.journal.clear();
    for (const char* serial : {"", "Ger\xC3\xA4t", "012345678901234567890123456789012"}) {
        EXPECT_EQ(failureOf([&] { tavo::planSerialNumber(device(), serial); }).problem, tavo::Problem::BadArgument);
    }
    EXPECT_EQ(controls(rig.journal, ""), 0u);
}

TEST_F(BridgeService, TheNeuronIdIsStoredOnceAndReadBack) {
    const auto stored = tavo::storeNeuronId(device(), std::nullopt);
    EXPECT_TRUE(stored.written);
    EXPECT_FALSE(tavo::storeNeuronId(device(), std::nullopt).written);
    NeuronId other;
    ASSERT_TRUE(other.fromString("ID0A0B0C0D0E0F", nullptr));
    rig.fail("CyProgUserFlash", 1, CY_ERROR_IO_TIMEOUT);
    const auto failure = failureOf([&] { tavo::storeNeuronId(device(), other); });
    EXPECT_EQ(failure.state.text(), "user flash unchanged");
    EXPECT_TRUE(tavo::storeNeuronId(device(), other).written);
}

}  // namespace
