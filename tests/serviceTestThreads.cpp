// Eight devices in eight threads of one process. Run under ThreadSanitizer as well (.ci/run), so the clock is
// the computer's: a virtual one would lock all boards at every wait and hide what is not ordered.
#include <Poco/Thread.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "tavo/service/configuration.h"
#include "tavo/service/doctor.h"
#include "tavo/service/flash.h"
#include "tavo/service/neuron.h"
#include "tavo/service/recover.h"
#include "tavo/service/trace.h"
#include "tests/rigTest.h"

// The boards do not need the waits of real ones.
void Poco::ThreadImpl::sleepImpl(long milliseconds) {
    std::this_thread::sleep_for(std::chrono::microseconds(milliseconds * 50));
}

using tavo::Event;
using tavo::FlashState;
using tavo::Problem;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr unsigned kDevices = 8;

tavo::Image noise(unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::uint8_t> bytes(20'000 + seed);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    tavo::Image image;
    image.add(0, bytes.data(), bytes.size());
    return image;
}

tavo::VerifyOptions wholeChip() {
    tavo::VerifyOptions options;
    options.restBlank = true;
    return options;
}

/// How a thread's work ended.
struct Outcome {
    std::optional<tavo::Error> error;
    std::exception_ptr other;
    bool isGood() const { return !error && !other; }
};

class ServiceThreads : public testing::Test {
protected:
    ServiceThreads() {
        std::string name = testing::TempDir() + "tavo-threads-XXXXXX";
        folder = mkdtemp(name.data());
        for (unsigned i = 0; i < kDevices; ++i) {
            sim::Options options;
            options.folder = folder + "/" + serial(i);
            options.serialNumber = serial(i);
            options.flashSize = 64U << 10;
            options.pace = sim::Pace::Fast;
            sim::rig(i).reset(options);
            sim::rig(i).keepJournal = false;
        }
    }
    ~ServiceThreads() override {
        sim::rig().reset();  // takes the others off the bus
        std::filesystem::remove_all(folder);
    }

    static std::string serial(unsigned i) { return std::string("D") + std::to_string(i); }
    static tavo::Device open(unsigned i) { return tavo::Device::open("serial:" + serial(i)); }

    /// work(i) in a thread for each device.
    static std::array<Outcome, kDevices> inThreads(const std::function<void(unsigned)>& work) {
        std::array<Outcome, kDevices> outcomes;
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < kDevices; ++i) {
            threads.emplace_back([&, i] {
                try {
                    work(i);
                } catch (const tavo::Error& error) {
                    outcomes[i].error = error;
                } catch (...) {
                    outcomes[i].other = std::current_exception();
                }
            });
        }
        for (auto& thread : threads) thread.join();
        return outcomes;
    }

    std::string folder;
};

TEST_F(ServiceThreads, EachDoesItsOwnWork) {
    std::array<bool, kDevices> isEqual{};
    std::array<bool, kDevices> isBlank{};
    std::array<unsigned, kDevices> failedChecks{};
    std::array<std::vector<std::string>, kDevices> traced;
    std::atomic<unsigned> strayEvents = 0;
    const auto outcomes = inThreads([&](unsigned i) {
        const tavo::Control control{
            [&, own = std::this_thread::get_id()](const Event&) { strayEvents += own != std::this_thread::get_id(); }};
        const tavo::Image image = noise(i);
        tavo::Device device = open(i);
        programFlash(device, image, {}, control);
        isEqual[i] = verifyFlash(device, image, wholeChip(), control).comparison.equal() &&
                     readFlash(device, control).contents.at(i) == image.at(i);
        readStatus(device, control);
        readProgramId(device, control);
        setMode(device, tavo::Mode::Offline, control);
        const tavo::DomainTable table = readDomainTable(device, control);
        writeDomainTable(device, table, table, {}, control);
        const NeuronId id = readNeuronId(device, control);
        {
            const tavo::TransferTrace trace([&](const std::string& transfer) { traced[i].push_back(transfer); });
            storeNeuronId(device, id, control);
        }
        const auto plan = planSerialNumber(device, "new" + serial(i), control);
        writeConfiguration(device, plan, {}, control);
        reset(device, tavo::ResetBy::Line, control);
        pressServicePin(device, control);
        failedChecks[i] = doctor(device, {}, control).failed();
        recover(device, {}, control);
        eraseFlash(device, control);
        isBlank[i] = blankCheckFlash(device, {}, control).blank;
    });
    for (unsigned i = 0; i < kDevices; ++i) {
        SCOPED_TRACE(serial(i));
        EXPECT_TRUE(outcomes[i].isGood()) << (outcomes[i].error ? outcomes[i].error->what() : "no Error");
        EXPECT_TRUE(isEqual[i]);
        EXPECT_TRUE(isBlank[i]);
        EXPECT_EQ(failedChecks[i], 0u);
        EXPECT_THAT(traced[i], Contains("  program user flash at 0: 0"));
        EXPECT_THAT(traced[i], Not(Contains(HasSubstr("pin")))) << "of the operations that came later";
        EXPECT_EQ(sim::rig(i).leftovers(), "");
        EXPECT_THAT(sim::rig(i).violations(), IsEmpty());
    }
    EXPECT_EQ(strayEvents, 0u) << "an observer is told on the thread that called";
}

TEST_F(ServiceThreads, WhatBecomesOfOneStaysWithIt) {
    enum Fate { Good, Timeout, Unplugged, Cancelled, Thrower, Busy, Stuck, GoodToo };
    std::array<tavo::CancelToken, kDevices> tokens;
    sim::rig(Timeout).failFrom("CySpiReadWrite", 200, CY_ERROR_IO_TIMEOUT);
    sim::rig(Stuck).failFrom("CySetGpioValue", 2, CY_ERROR_IO_TIMEOUT);
    const tavo::Device holder = open(Busy);
    const auto halfWay = [&](unsigned i) {
        if (i == Unplugged) sim::rig(i).unplug();
        if (i == Cancelled) std::thread([&] { tokens[Cancelled].cancel(); }).join();
        if (i == Thrower) throw 42;
    };
    std::atomic<bool> areDone = false;
    std::thread lister([&] {
        while (!areDone) tavo::devices();
    });
    const auto outcomes = inThreads([&](unsigned i) {
        const auto observer = [&](const Event& event) {
            const bool isHalf = event.done > 10'000;
            if (event.kind == Event::Kind::Progress && event.phase == tavo::Phase::Program && isHalf) halfWay(i);
        };
        tavo::Device device = open(i);
        programFlash(device, noise(i), {}, {observer, &tokens[i]});
    });
    areDone = true;
    lister.join();

    for (const unsigned i : {Good, GoodToo}) {
        ASSERT_TRUE(outcomes[i].isGood()) << (outcomes[i].error ? outcomes[i].error->what() : "no Error");
        tavo::Device device = open(i);
        EXPECT_TRUE(verifyFlash(device, noise(i), wholeChip()).comparison.equal());
    }
    const auto failure = [&](unsigned i) { return outcomes[i].error.value_or(tavo::Error(Problem::Internal, "none")); };
    EXPECT_EQ(failure(Timeout).problem, Problem::DeviceFailed);
    EXPECT_EQ(failure(Timeout).state.flash, FlashState::Incomplete);
    EXPECT_THAT(failure(Unplugged).what(), HasSubstr("no longer attached"));
    EXPECT_EQ(failure(Unplugged).state.flash, FlashState::Incomplete);
    EXPECT_EQ(failure(Cancelled).problem, Problem::Interrupted);
    EXPECT_EQ(failure(Busy).problem, Problem::Busy);
    EXPECT_EQ(failure(Stuck).state.resetLine, tavo::LineState::Held);
    ASSERT_TRUE(outcomes[Thrower].other);
    EXPECT_THROW(std::rethrow_exception(outcomes[Thrower].other), int) << "the caller's own, as it was thrown";
    for (const unsigned i : {Good, Timeout, Cancelled, Thrower, Busy, GoodToo}) {
        EXPECT_EQ(sim::rig(i).leftovers(), "") << serial(i);
        EXPECT_THAT(sim::rig(i).violations(), IsEmpty()) << serial(i);
    }
    sim::rig(Stuck).clearFaults();
    tavo::Device stuck = open(Stuck);
    recover(stuck);
    EXPECT_EQ(sim::rig(Stuck).leftovers(), "");
}

}  // namespace
