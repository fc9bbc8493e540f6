// The fixture of every test of the service layer: a device on a simulated interface with a folder of its own,
// so that programs of tests that run side by side neither share its lock nor its history.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tavo/service/device.h"
#include "tests/rigTest.h"

class ServiceTest : public RigTest {
protected:
    ServiceTest() {
        std::string name = testing::TempDir() + "tavo-service-XXXXXX";
        folder = mkdtemp(name.data());
        plug("");
    }
    ~ServiceTest() override { std::filesystem::remove_all(folder); }

    /// The interface of the folder with these options: "pins=12,denied".
    void plug(const std::string& description) {
        sim::Options options = sim::parseOptions(folder + (description.empty() ? "" : "," + description));
        options.pace = sim::Pace::Virtual;
        rig.reset(options);
    }
    /// Found and locked at the first use.
    tavo::Device& device() {
        if (!device_) device_.emplace(tavo::devices().at(0));
        return *device_;
    }
    /// Found anew at the next use, as after a replug.
    void findAgain() { device_.reset(); }

    /// Runs the operation and gives its failure.
    tavo::Error failureOf(const std::function<void()>& work) {
        try {
            work();
        } catch (const tavo::Error& error) {
            return error;
        }
        ADD_FAILURE() << "nothing failed";
        return {tavo::Problem::Internal, ""};
    }

    /// What crosses the seam from here on.
    /// SCB0 is a master from power-up on, at 1 MHz.
    void makeBlockMaster() {
        auto& block = rig.board().bridge.block;
        block[0x024 + 8] = 1;
        const auto sum = sim::Bridge::checksum(block);
        for (unsigned i = 0; i < 4; ++i) block[8 + i] = static_cast<std::uint8_t>(sum >> 8 * i);
        rig.replug();
    }
    void clearJournal() { rig.journal.clear(); }

    std::string folder;
    const tavo::Control none;  // an Operation borrows it

private:
    std::optional<tavo::Device> device_;
};
