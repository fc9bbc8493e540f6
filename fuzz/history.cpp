// The record of a run that was cut off: as it may lie on the disk after a crash, and as it is written.
#include <filesystem>

#include "fuzz/fuzz.h"
#include "tavo/service/history.h"

namespace {

using tavo::InterruptedRun;

const std::string& folder() {
    static const std::string path = fuzz::scratchFolder() + "/interface";
    return path;
}

tavo::DeviceDescription device() {
    tavo::DeviceDescription found;
    found.path = "sim:" + folder();
    found.serial = "00001234";
    return found;
}

std::string record() {
    return folder() + "/interrupted.run";
}

bool isSame(const InterruptedRun& a, const InterruptedRun& b) {
    return a.image == b.image && a.sha256 == b.sha256 && a.backup == b.backup && a.started == b.started &&
           a.options == b.options && a.kept == b.kept;
}

/// A record that lies there is told of, whatever is in it.
InterruptedRun runIn(const std::string& content) {
    fuzz::writeFile(record(), content);
    const auto run = tavo::interruptedRun(device());
    HOLDS(run);
    HOLDS(!tavo::interruptedText(*run).empty() && !tavo::interruptedHint(*run).empty());
    const auto state = tavo::interruptedState(*run);
    HOLDS(state == tavo::FlashState::Uncertain || state == tavo::FlashState::Incomplete);
    return *run;
}

std::string absoluteText(fuzz::Supply& supply) {
    const std::string text = supply.text();
    return text.empty() ? text : std::filesystem::path("/" + text).lexically_normal().string();
}

/// Written and read it is the same; cut off anywhere it is one that cannot be read, and never another one.
void checkWriting(fuzz::Supply& supply) {
    InterruptedRun run;
    run.started = supply.text();
    if (run.started.empty()) run.started = "2024-05-01T14:03:59+0200";
    run.image = absoluteText(supply);
    run.sha256 = supply.text();
    run.backup = absoluteText(supply);
    run.options = supply.text();
    run.kept = supply.text();
    const std::uint16_t cut = supply.word();
    tavo::rememberRun(device(), run);
    const auto again = tavo::interruptedRun(device());
    HOLDS(again && isSame(*again, run));
    const std::string content = fuzz::readFile(record());
    tavo::rememberRun(device(), *again);
    HOLDS(fuzz::readFile(record()) == content);
    const InterruptedRun torn = runIn(content.substr(0, cut % content.size()));
    HOLDS(isSame(torn, InterruptedRun{}));
    tavo::forgetRun(device());
    HOLDS(!tavo::interruptedRun(device()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::filesystem::create_directories(folder());
    runIn({reinterpret_cast<const char*>(data), size});
    fuzz::Supply supply(data, size);
    checkWriting(supply);
    return 0;
}
