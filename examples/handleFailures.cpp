// Programs an image and decides by the kind of failure what to do: wait, ask somebody, mend and try once more.
//
//   handleFailures DEVICE FILE
#include <tavo/service/flash.h>
#include <tavo/service/imageFile.h>
#include <tavo/service/recover.h>

#include <chrono>
#include <iostream>
#include <thread>

namespace {

void tell(const tavo::Error& error) {
    std::cerr << problemName(error.problem) << ": " << error.what() << '\n';
    for (const std::string& detail : error.details) std::cerr << "  " << detail << '\n';
    std::cerr << "the device: " << error.state.text() << "\nwhat next:  " << error.hint << '\n';
}

void programOnce(const std::string& device, const tavo::Image& image) {
    tavo::Device interface = tavo::Device::open(device);
    programFlash(interface, image);
}

/// True when another attempt makes sense.
bool mend(const std::string& device, const tavo::Error& error) {
    if (error.problem == tavo::Problem::Busy) {  // another program works on it
        std::this_thread::sleep_for(std::chrono::seconds(1));
        return true;
    }
    if (error.problem == tavo::Problem::DeviceFailed || error.problem == tavo::Problem::NoAnswer) {
        tavo::Device interface = tavo::Device::open(device);
        tavo::recover(interface);  // lets the Neuron out of reset, gives SCB0 back
        return true;
    }
    return false;  // a bad file, no permission, no such device: a person's turn
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 3) throw tavo::Error(tavo::Problem::BadArgument, "usage: handleFailures DEVICE FILE");
    const tavo::Image image = tavo::readImage(argv[2]);
    try {
        programOnce(argv[1], image);
    } catch (const tavo::Error& error) {
        tell(error);
        if (!mend(argv[1], error)) return 1;
        programOnce(argv[1], image);  // finishes what the first run began
    }
    std::cout << "programmed\n";
    return 0;
} catch (const tavo::Error& error) {
    tell(error);
    return error.state.isFlashLost() ? 2 : 1;
}
