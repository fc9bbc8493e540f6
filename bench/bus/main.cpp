// What the flash operations cost on a full-speed USB bus: transfers and frames, on a clock that only the emulated
// bus moves. Same figures on every machine.
//   umockdev-wrapper bench-bus [KIBIBYTES OF THE CHIP]      default 1024
// Exit code 1: an operation failed, left other bytes than it should, or the first goal is missed.
#include <Poco/Thread.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/bus/frameBridge.h"
#include "tavo/flash.h"
#include "tavo/service/flash.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kPage = 256;
constexpr std::size_t kGoalSize = 1u << 20;  // the goals are of a chip of 1 MiB
constexpr double kClock = 900'000;           // Hz

bench::FrameBridge* theBridge = nullptr;

Bytes noise(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
    return bytes;
}

tavo::Image imageOf(const Bytes& bytes) {
    tavo::Image image;
    image.add(0, bytes.data(), bytes.size());
    return image;
}

void require(bool good, const std::string& what) {
    if (!good) throw std::runtime_error(what);
}

/// Files of this run, its history and its locks among them.
struct Folder {
    Folder() : path((std::filesystem::temp_directory_path() / "tavo-bus-XXXXXX").string()) {
        require(mkdtemp(path.data()) != nullptr, "no temporary folder");
        setenv("XDG_STATE_HOME", path.c_str(), 1);
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string path;
};

class Jobs {
public:
    explicit Jobs(std::size_t size)
        : bridge_(size),
          device_((theBridge = &bridge_, tavo::Device::open("usb:" + EmulatedUsb::portPath()))),
          image_(noise(size, 1)) {}

    void run() {
        ofTheLibrary();
        ofTheService();
        for (const std::string& violation : bridge_.violations()) require(false, violation);
    }
    bool print() const;

private:
    void measure(const std::string& name, const std::function<void()>& work) {
        const bench::Traffic before = bridge_.traffic();
        work();
        names_.push_back(name);
        traffic_[name] = bridge_.traffic() - before;
    }
    void program(const std::string& name, const Bytes& before, const Bytes& wanted,
                 const tavo::ProgramOptions& options = {}) {
        bridge_.hold(before);
        measure(name, [&] { tavo::programFlash(device_, imageOf(wanted), options); });
        require(bridge_.contents() == wanted, name + ": other bytes on the chip");
    }
    void ofTheLibrary();
    void ofTheService();
    const bench::Traffic& of(const std::string& name) const { return traffic_.at(name); }
    double perPage(const std::string& program, const std::string& erase) const;
    bool printGoals() const;

    Folder folder_;
    bench::FrameBridge bridge_;
    tavo::Device device_;
    Bytes image_;
    std::vector<std::string> names_;
    std::map<std::string, bench::Traffic> traffic_;
};

void Jobs::ofTheLibrary() {
    const std::string file = folder_.path + "/image.hex";
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT, 0600);
    tavo::writeImage(imageOf(image_), descriptor, file);
    close(descriptor);
    bridge_.hold(noise(image_.size(), 2));
    measure("eraseSpiFlash", [&] { require(eraseSpiFlash(device_.info()) == TAVO_SUCCESS, "eraseSpiFlash"); });
    require(bridge_.contents() == Bytes(image_.size(), 0xFF), "eraseSpiFlash: not blank");
    measure("programSpiFlash", [&] {
        require(programSpiFlash(device_.info(), file.c_str(), nullptr) == TAVO_SUCCESS, "programSpiFlash");
    });
    require(bridge_.contents() == image_, "programSpiFlash: other bytes on the chip");
    const std::string dump = folder_.path + "/dump.hex";
    measure("readSpiFlash",
            [&] { require(readSpiFlash(device_.info(), dump.c_str(), nullptr) == TAVO_SUCCESS, "readSpiFlash"); });
    require(tavo::readImage(dump) == imageOf(image_), "readSpiFlash: other bytes in the file");
}

void Jobs::ofTheService() {
    constexpr int kFastest = 3000000;
    tavo::ReadFlashOptions fastest;
    fastest.clockHz = kFastest;
    measure("erase", [&] { tavo::eraseFlash(device_); });
    program("program, blank chip", Bytes(image_.size(), 0xFF), image_);
    program("program, blank chip, 3 MHz", Bytes(image_.size(), 0xFF), image_, {.clockHz = kFastest});
    program("program, other image kept", noise(image_.size(), 2), image_);
    program("program, other, not kept", noise(image_.size(), 2), image_, {.noBackup = true});
    program("program, there already", image_, image_);
    Bytes changed = image_;
    const Bytes other = noise(image_.size() / kPage / 20 * kPage, 3);  // 5 % of the pages
    std::copy(other.begin(), other.end(), changed.begin() + static_cast<long>(image_.size() / kPage / 3 * kPage));
    program("program, 5 % changed", image_, changed);
    bridge_.hold(image_);
    measure("dump", [&] { require(tavo::readFlash(device_).contents == imageOf(image_), "dump: other bytes"); });
    const auto atFastest = [&] {
        require(tavo::readFlash(device_, fastest).contents == imageOf(image_), "dump: other");
    };
    measure("dump, 3 MHz", atFastest);
    const Bytes part(image_.begin(), image_.begin() + static_cast<long>(image_.size() * 3 / 32));  // 96 KiB of 1 MiB
    measure("verify, 3/32 of the chip",
            [&] { require(tavo::verifyFlash(device_, imageOf(part)).comparison.equal(), "verify: differs"); });
    bridge_.hold(Bytes(image_.size(), 0xFF));
    measure("blank-check", [&] { require(tavo::blankCheckFlash(device_).blank, "blank-check: not blank"); });
}

double Jobs::perPage(const std::string& program, const std::string& erase) const {
    const auto transfers = of(program).transfers() - of(erase).transfers();
    return static_cast<double>(transfers) / static_cast<double>(image_.size() / kPage);
}

bool Jobs::print() const {
    std::printf("%-26s %9s %8s %8s %8s %8s %8s %9s %8s %8s %6s\n", "", "transfers", "starts", "statuses", "bulk out",
                "bulk in", "others", "frames", "SPI ms", "flash ms", "ratio");
    for (const std::string& name : names_) {
        const bench::Traffic& t = of(name);
        const double needed = static_cast<double>(t.spi + t.flash) / 1e6;
        std::printf("%-26s %9llu %8llu %8llu %8llu %8llu %8llu %9llu %8.0f %8.0f %6.2f\n", name.c_str(),
                    static_cast<unsigned long long>(t.transfers()), static_cast<unsigned long long>(t.starts),
                    static_cast<unsigned long long>(t.statuses), static_cast<unsigned long long>(t.bulkOut),
                    static_cast<unsigned long long>(t.bulkIn), static_cast<unsigned long long>(t.others),
                    static_cast<unsigned long long>(t.frames()), static_cast<double>(t.spi) / 1e6,
                    static_cast<double>(t.flash) / 1e6, static_cast<double>(t.frames()) / needed);
    }
    return printGoals();
}

bool Jobs::printGoals() const {
    // Frames of 1 MiB before anything was done about them, measured with this program: docs/performance.md.
    constexpr double kProgramBefore = 80355;
    constexpr double kVerifyBefore = 32918;
    const auto frames = [&](const char* name) { return static_cast<double>(of(name).frames()); };
    const double clock = static_cast<double>(image_.size()) * 8 / kClock * 1000;  // ms
    struct Goal {
        const char* what;
        double measured;
        double goal;
        bool isOfSize;
    };
    const Goal goals[] = {
        {"transfers a page, programSpiFlash", perPage("programSpiFlash", "eraseSpiFlash"), 15.3, false},
        {"transfers a page, program, blank chip", perPage("program, blank chip", "erase"), 10, false},
        {"transfers a page, other image kept", perPage("program, other image kept", "erase"), 10, false},
        {"frames of program, blank chip, before = 1", frames("program, blank chip") / kProgramBefore, 0.45, true},
        {"frames, other image kept", frames("program, other image kept") / kProgramBefore, 0.45, true},
        {"frames, other image not kept", frames("program, other, not kept") / kProgramBefore, 0.45, true},
        {"frames of a dump over SPI clock", frames("dump") / clock, 1.06, false},
        {"program of what is there, over a dump", frames("program, there already") / frames("dump"), 1.1, true},
        {"program of 5 % changed, over all before", frames("program, 5 % changed") / kProgramBefore, 0.3, true},
        {"verify of 3/32 of the chip, before = 1", frames("verify, 3/32 of the chip") / kVerifyBefore, 0.05, true},
    };
    std::printf("\n%-42s %9s %9s\n", "", "measured", "goal");
    for (const Goal& goal : goals) {
        if (goal.isOfSize && image_.size() != kGoalSize) continue;
        std::printf("%-42s %9.3f %9.2f%s\n", goal.what, goal.measured, goal.goal,
                    goal.measured <= goal.goal ? "" : "  not reached");
    }
    return goals[0].measured <= goals[0].goal;
}

}  // namespace

/// Every wait of the library, the service and the platform.
void Poco::ThreadImpl::sleepImpl(long milliseconds) {
    theBridge->sleep(milliseconds);
}

int main(int argc, char** argv) try {
    const std::size_t size = argc > 1 ? std::stoul(argv[1]) << 10 : kGoalSize;
    Jobs jobs(size);
    jobs.run();
    return jobs.print() ? 0 : 1;
} catch (const std::exception& error) {
    std::fprintf(stderr, "bench-bus: %s\n", error.what());
    return 1;
}
