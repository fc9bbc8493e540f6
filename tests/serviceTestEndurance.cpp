// A process that lives for days: after a thousand operations, good and bad, nothing is left of them.
#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "platform/ldv.h"
#include "tavo/service/configuration.h"
#include "tavo/service/doctor.h"
#include "tavo/service/flash.h"
#include "tavo/service/neuron.h"
#include "tavo/service/recover.h"
#include "tests/serviceTest.h"

using tavo::Control;
using tavo::Device;
using tavo::Event;
using testing::HasSubstr;
using testing::Not;

namespace {

/// What a process holds of the system and of its memory.
struct Holdings {
    std::ptrdiff_t descriptors;
    std::ptrdiff_t threads;
    std::size_t bytes;
};

Holdings holdings() {
    const auto count = [](const char* folder) {
        return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
    };
    const auto memory = mallinfo2();
    return {count("/proc/self/fd"), count("/proc/self/task"), memory.uordblks + memory.hblkhd};
}

struct Trouble {
    const char* function;  // null: none
    unsigned call;
    int status;
};

constexpr Trouble kTroubles[] = {{nullptr, 0, 0},
                                 {"CyOpen", 1, CY_ERROR_DRIVER_OPEN_FAILED},
                                 {"CyOpen", 3, CY_ERROR_DEVICE_NOT_FOUND},
                                 {"CySetSpiConfig", 1, CY_ERROR_IO_TIMEOUT},
                                 {"CySetSpiConfig", 2, CY_ERROR_IO_TIMEOUT},
                                 {"CySpiReadWrite", 1, CY_ERROR_IO_TIMEOUT},
                                 {"CySpiReadWrite", 20, CY_ERROR_IO_TIMEOUT},
                                 {"CySetGpioValue", 1, CY_ERROR_REQUEST_FAILED},
                                 {"CySetGpioValue", 2, CY_ERROR_REQUEST_FAILED},
                                 {"CyGetGpioValue", 1, CY_ERROR_REQUEST_FAILED},
                                 {"CyProgUserFlash", 1, CY_ERROR_IO_TIMEOUT},
                                 {"libusb_control_transfer", 3, -7},
                                 {"libusb_control_transfer", 5, -7},
                                 {"ldv_open", 1, LDV_DEVICE_ERR},
                                 {"ldv_write", 1, LDV_DEVICE_ERR},
                                 {"ldv_read", 1, LDV_DEVICE_ERR}};

class Endurance : public ServiceTest {
protected:
    Endurance() {
        // Every erase is remembered with a sync: no disk takes hundreds of them in a test's time.
        if (access("/dev/shm", W_OK) == 0) {
            std::filesystem::remove_all(folder);
            std::string name = "/dev/shm/tavo-endurance-XXXXXX";
            folder = mkdtemp(name.data());
        }
        sim::Options options;
        options.folder = folder + "/board";
        options.flashSize = 64U << 10;
        options.pace = sim::Pace::Virtual;
        rig.reset(options);
        rig.keepJournal = false;
        const std::vector<std::uint8_t> bytes(1000, 0x5A);
        image.add(0, bytes.data(), bytes.size());
        std::ofstream(folder + "/bad.hex") << ":00000001FE\n:zz\n";
    }

    /// Every operation, each of them on a device that is found and locked for it alone.
    std::vector<std::function<void(Device&, const Control&)>> operations() {
        using namespace tavo;
        return {
            [](Device& d, const Control& c) { inspectFlash(d, c); },
            [this](Device& d, const Control& c) { programFlash(d, image, {}, c); },
            [this](Device& d, const Control& c) {
                ProgramOptions options;
                options.backup = folder + "/backup.hex";
                std::filesystem::remove(options.backup);
                options.imageName = "image.hex";
                programFlash(d, image, options, c);
            },
            [this](Device& d, const Control& c) { verifyFlash(d, image, {}, c); },
            [](Device& d, const Control& c) { readFlash(d, c); },
            [](Device& d, const Control& c) { eraseFlash(d, c); },
            [](Device& d, const Control& c) { blankCheckFlash(d, {}, c); },
            [](Device& d, const Control& c) { readStatus(d, c); },
            [](Device& d, const Control& c) { readNeuronId(d, c); },
            [](Device& d, const Control& c) { readProgramId(d, c); },
            [](Device& d, const Control& c) { setMode(d, Mode::Offline, c); },
            [](Device& d, const Control& c) { setMode(d, Mode::Service, c); },
            [](Device& d, const Control& c) { reset(d, ResetBy::Line, c); },
            [](Device& d, const Control& c) { reset(d, ResetBy::Message, c); },
            [](Device& d, const Control& c) { pressServicePin(d, c); },
            [](Device& d, const Control& c) {
                const DomainTable table = readDomainTable(d, c);
                writeDomainTable(d, table, table, {}, c);
            },
            [](Device& d, const Control& c) { readConfiguration(d, c); },
            [](Device& d, const Control& c) {
                const bool isFirst = d.description().serial == sim::kFactorySerialNumber;
                writeConfiguration(d, planSerialNumber(d, isFirst ? "00005678" : sim::kFactorySerialNumber, c), {}, c);
            },
            [](Device& d, const Control& c) { storeNeuronId(d, NeuronId(), c); },
            [](Device& d, const Control& c) { storeNeuronId(d, std::nullopt, c); },
            [](Device& d, const Control& c) { tavo::doctor(d, {}, c); },
            [](Device& d, const Control& c) { tavo::recover(d, {}, c); },
            [this](Device&, const Control&) { readImage(folder + "/bad.hex"); },
        };
    }

    void run(const std::function<void(Device&, const Control&)>& operation, const Control& control) {
        ++made;
        try {
            Device one(tavo::devices().at(0));
            operation(one, control);
            ++good;
        } catch (const tavo::Error&) {
        } catch (int) {
        }
        EXPECT_THAT(rig.leftovers(), Not(testing::AnyOf(HasSubstr("handle"), HasSubstr("channel"))));
        rig.clearFaults();
        rig.replug();
        rig.board().violations.clear();  // a flash that cannot be asked may be busy when the Neuron is released
    }

    /// Every operation with every trouble; cancelled at its start, and ended by its observer at some event.
    void round() {
        for (const auto& operation : operations()) {
            for (const Trouble& trouble : kTroubles) {
                if (trouble.function != nullptr) rig.failFrom(trouble.function, trouble.call, trouble.status);
                run(operation, {});
            }
            tavo::CancelToken token;
            token.cancel();
            run(operation, {nullptr, &token});
            int events = 0;
            const auto observer = [&](const Event&) {
                if (++events == 8) throw 8;
            };
            run(operation, {observer, nullptr});
        }
    }

    tavo::Image image;
    unsigned made = 0;
    unsigned good = 0;
};

TEST_F(Endurance, AThousandOperationsLeaveNoDescriptorThreadOrMemory) {
    round();  // what is made once is there now
    const Holdings before = holdings();
    made = good = 0;
    while (made < 1000) round();
    const Holdings after = holdings();
    EXPECT_GT(good, made / 5);
    EXPECT_LT(good, made * 4 / 5) << "the troubles are to meet the operations";
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.threads, before.threads);
    // A block of 24 bytes in one operation of every thirty. Sanitizers give no figures; they look by themselves.
    EXPECT_LE(after.bytes, before.bytes + made / 30 * 24);
}

}  // namespace
