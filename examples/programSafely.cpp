// Programs and verifies one interface with the service library, and tells what became of it when that fails.
//
//   programSafely serial:00001234 FILE.hex BACKUP.hex               on a device
//   tavo-sim board -- programSafely sim:board FILE.hex BACKUP.hex   on a simulated interface in the folder board
#include <tavo/service/flash.h>

#include <iostream>

void showProgress(const tavo::Event& event) {
    if (event.kind == tavo::Event::Kind::PhaseBegins) std::cerr << phaseName(event.phase) << "...\n";
}

int main(int argc, char** argv) try {
    if (argc != 4) throw tavo::Error(tavo::Problem::BadArgument, "usage: programSafely DEVICE FILE BACKUP");
    const tavo::Image image = tavo::readImage(argv[2]);  // refuses a bad file before any device is touched
    tavo::Device device = tavo::Device::open(argv[1]);   // nobody else works on it while this object lives

    tavo::ProgramOptions options;
    options.imageName = argv[2];
    options.backup = argv[3];  // what the chip holds now; no file is overwritten
    const tavo::ProgramResult done = programFlash(device, image, options, {showProgress, nullptr});
    const tavo::VerifyResult found = verifyFlash(device, image);
    std::cout << device.name() << ": " << done.pagesWritten << " pages in " << done.chip.text() << ", "
              << (found.comparison.equal() ? "equal to the file" : "DIFFERENT from the file") << '\n';
    return found.comparison.equal() ? 0 : 1;
} catch (const tavo::Error& error) {
    std::cerr << "failed: " << error.what() << '\n';
    for (const std::string& detail : error.details) std::cerr << "  " << detail << '\n';
    std::cerr << "the device: " << error.state.text() << '\n' << "what next:  " << error.hint << '\n';
    return error.state.isFlashLost() ? 2 : 1;
}
