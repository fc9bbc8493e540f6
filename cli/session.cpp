#include "cli/session.h"

#include <poll.h>
#include <unistd.h>

#include <iostream>

#include "cli/capture.h"
#include "cli/deviceChoice.h"

namespace cli {
namespace {

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

/// Waits for an answer; a Ctrl-C ends the wait (poll is not restarted after a signal).
std::string readAnswer() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (poll(&input, 1, -1) < 0) throwIfInterrupted();
    std::string answer;
    std::getline(std::cin, answer);
    return answer;
}

Failure held(const std::string& device, int holder) {
    const std::string by = holder > 0 ? "by process " + std::to_string(holder) : "by another process";
    return {Exit::Busy, device + " is in use " + by, "wait until it has finished, or end it with Ctrl-C there", {}};
}

}  // namespace

Session::Session(const GlobalOptions& globalOptions, const Command& chosenCommand)
    : options(globalOptions), command(chosenCommand) {
    report.configure(options.json || options.asChild, options.quiet);
    report.command = command.name;
    if (options.asChild) report.keepLines();
}

std::string Session::deviceName() const {
    return describe(device_);
}

void Session::prepare() {
    if (command.needs == Needs::List) attached_ = findDevices(options.devices);
    if (!needsDevice(command.needs)) return;
    chooseDevice();
    lockDevice();
    if (command.asks != nullptr && !options.dryRun) confirm(std::string(command.asks) + " of " + deviceName() + "?");
}

void Session::chooseDevice() {
    device_ = cli::chooseDevice(options);
    const std::string serial = serialText(device_);
    report.device = {{"serial", serial.empty() ? Json(nullptr) : Json(serial)},
                     {"path", device_.info.portPath[0] == '\0' ? Json(nullptr) : Json(device_.info.portPath)}};
    log().write(Detail::Step, "device " + deviceName());
    if (device_.status != CY_SUCCESS && command.needs == Needs::Device) {
        throw libraryFailure(cypressToTavo(device_.status), Side::Bridge, "open " + deviceName());
    }
}

void Session::lockDevice() {
    const std::string path = device_.info.portPath;
    lock_ = std::make_unique<platform::DeviceLock>(path.empty() ? "serial-" + serialText(device_) : path);
    if (!lock_->isHeld()) throw held(deviceName(), lock_->holder());
}

TAVO_STATUS Session::tryCall(const std::string& doing, const std::function<TAVO_STATUS()>& operation) {
    throwIfInterrupted();
    log().write(Detail::Step, "call: " + doing);
    if (report.flashState == FlashState::Untouched) report.flashState = FlashState::Unchanged;
    Capture capture;
    const auto keep = [&] {
        libraryErrors_ = firstLine(capture.errors());
        if (!libraryErrors_.empty()) log().write(Detail::Step, "library: " + libraryErrors_);
        if (const auto out = capture.output(); !out.empty()) log().write(Detail::Step, "library: " + firstLine(out));
    };
    const TAVO_STATUS status = operation();
    keep();
    log().write(Detail::Step, std::string("result: ") + statusName(status));
    return status;
}

void Session::call(Side side, const std::string& doing, const std::function<TAVO_STATUS()>& operation) {
    const TAVO_STATUS status = tryCall(doing, operation);
    if (status != TAVO_SUCCESS) throw libraryFailure(status, side, doing + " on " + deviceName());
}

void Session::confirm(const std::string& question) {
    // A parent process has asked the question of the table, and no other.
    if (options.yes || (options.asChild && command.asks != nullptr)) return;
    if (isatty(STDIN_FILENO) != 1) {
        throw Failure{Exit::NeedsConfirmation, "needs confirmation: " + question, "repeat the command with -y", {}};
    }
    console().line("tavo-util: " + question + " [y/N]");
    const std::string answer = readAnswer();
    if (answer == "y" || answer == "Y" || answer == "yes") return;
    throw Failure{Exit::NeedsConfirmation, "not confirmed: " + question, "answer y, or repeat the command with -y", {}};
}

}  // namespace cli
