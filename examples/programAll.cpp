// Programs every attached interface at once, a thread each. What fails on one does not touch the others.
//
//   programAll FILE.hex                       on all devices
//   tavo-sim A B C -- programAll FILE.hex     on simulated interfaces kept in the folders A, B and C
#include <tavo/service/flash.h>

#include <csignal>
#include <future>
#include <iostream>
#include <vector>

namespace {

struct Outcome {
    bool isGood;
    std::string text;
};

tavo::CancelToken stop;  // a signal handler may set it

Outcome programOne(const tavo::DeviceDescription& description, const tavo::Image& image) try {
    tavo::Device device(description);  // throws when another program has it
    programFlash(device, image, {}, {nullptr, &stop});
    const bool isEqual = verifyFlash(device, image, {}, {nullptr, &stop}).comparison.equal();
    return {isEqual, isEqual ? "programmed and verified" : "DIFFERENT from the file"};
} catch (const tavo::Error& error) {
    return {false, std::string(error.what()) + "; " + error.state.text() + "; " + error.hint};
} catch (const std::exception& error) {  // no memory, say: this device's affair as well
    return {false, error.what()};
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2) throw tavo::Error(tavo::Problem::BadArgument, "usage: programAll FILE");
    const tavo::Image image = tavo::readImage(argv[1]);
    const std::vector<tavo::DeviceDescription> found = tavo::devices();
    if (found.empty()) throw tavo::noDevice({});
    std::signal(SIGINT, [](int) { stop.cancel(); });

    std::vector<std::future<Outcome>> runs;
    for (const auto& each : found) runs.push_back(std::async(std::launch::async, programOne, each, std::cref(image)));
    bool areAllGood = true;
    for (std::size_t i = 0; i < found.size(); ++i) {
        const Outcome outcome = runs[i].get();
        areAllGood = areAllGood && outcome.isGood;
        (outcome.isGood ? std::cout : std::cerr) << found[i].name() << ": " << outcome.text << '\n';
    }
    return areAllGood ? 0 : 1;
} catch (const tavo::Error& error) {
    std::cerr << error.what() << '\n' << error.hint << '\n';
    return 2;
}
