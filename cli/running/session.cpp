#include "cli/running/session.h"

#include <poll.h>
#include <unistd.h>

#include <iostream>

namespace cli {
namespace {

/// Waits for an answer; a Ctrl-C ends the wait (poll is not restarted after a signal).
std::string readAnswer() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (poll(&input, 1, -1) < 0) {
        if (isInterruptNoted()) throw tavo::Error(tavo::Problem::Interrupted, "interrupted; nothing was done");
    }
    std::string answer;
    std::getline(std::cin, answer);
    return answer;
}

/// Done and Differs are results; what else ends a command is a failure.
tavo::JobResult resultOf(Exit exit) {
    if (exit == Exit::Done) return tavo::JobResult::Done;
    return exit == Exit::Differs ? tavo::JobResult::Differs : tavo::JobResult::Failed;
}

}  // namespace

Session::Session(const GlobalOptions& globalOptions, const Command& chosenCommand)
    : options(globalOptions), command(chosenCommand) {
    report.configure(options.json, options.quiet);
    report.command = command.name;
    report.deviceOptions = deviceOptions(options);
    log.setVerbosity(options.verbosity);
    control_ = {[this](const tavo::Event& event) { take(event); }, &interruptToken()};
}

void Session::setName(const std::string& name, const std::string& spec) {
    isOneOfSeveral_ = true;
    log.setDevice(name);
    progress.setDevice(name, spec);
    report.keep(name);
}

std::unique_ptr<tavo::TransferTrace> Session::trace() {
    if (options.verbosity < static_cast<int>(Detail::Transfer) && options.logFile.empty()) return nullptr;
    return std::make_unique<tavo::TransferTrace>(
        [this](const std::string& transfer) { log.write(Detail::Transfer, transfer); });
}

void Session::openPage(const std::string& path, const std::string& title) {
    if (path.empty()) return;
    page_.emplace(path);
    pagePath_ = path;
    job.title = title;
}

void Session::conclude(const std::string& text) {
    job.summary = text;
    report.note(text);
}

Exit Session::writePage(Exit ended) {
    if (!page_ || options.dryRun) return ended;
    job.tool = "tavo-util " TAVO_VERSION;
    job.seconds = watch_.seconds();
    job.result = resultOf(ended);
    const std::string state = report.knownState();
    // Of an interface that was only asked for its status there is nothing to say.
    const bool isWorthTelling =
        job.result == tavo::JobResult::Failed || state != tavo::flashStateText(tavo::FlashState::Untouched);
    job.state = hasDevice() && isWorthTelling ? state : "";
    job.messages = report.told();
    job.phases = progress.phases();
    if (hasDevice() && job.device.empty()) job.device = tavo::deviceFacts(device().description(), device().flashChip());
    try {
        page_->write(job);
    } catch (tavo::Error& error) {
        error.state = report.state;
        if (job.result != tavo::JobResult::Failed) throw;
        report.warning(error.what(), error.hint);
        return ended;
    }
    report.result["html"] = pagePath_;
    report.note("page: " + pagePath_);
    return ended;
}

void Session::take(const tavo::Event& event) {
    switch (event.kind) {
        case tavo::Event::Kind::PhaseBegins:
            return progress.begin(tavo::phaseName(event.phase), event.text, event.total, event.seconds);
        case tavo::Event::Kind::Progress:
            return progress.advance(event.done);
        case tavo::Event::Kind::PhaseEnds:
            return progress.end(event.text);
        case tavo::Event::Kind::StopNote:
            return progress.setStopNote(event.text);
        case tavo::Event::Kind::Retry:
            return log.write(Detail::Step,
                             "page " + tavo::hexAddress(event.address) + ": attempt " + std::to_string(event.done + 1));
        case tavo::Event::Kind::Warning:
            return report.warning(event.text, event.hint);
        case tavo::Event::Kind::Step:
            return log.write(Detail::Step, event.text);
    }
}

void Session::prepare(const std::string& question) {
    if (command.needs == Needs::List) attached_ = tavo::devices(options.devices);
    if (!needsDevice(command.needs)) return;
    if (command.needs == Needs::NamedDevice && options.devices.empty()) return;
    chooseDevice();
    if (!question.empty() && !options.dryRun) confirm(question + " of " + deviceName() + "?");
}

void Session::chooseDevice() {
    const auto found = tavo::chooseDevice(options.devices, options.waitSeconds, control_);
    const auto orNull = [](const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); };
    report.device = {{"serial", orNull(found.serial)}, {"path", orNull(found.path)}};
    log.write(Detail::Step, "device " + found.name());
    if (found.access != TAVO_SUCCESS && command.needs != Needs::DeviceAsItIs) {
        throw tavo::statusError(found.access, tavo::Side::Bridge, "open " + found.name());
    }
    device_.emplace(found);
}

void Session::confirm(const std::string& question) {
    if (options.yes) return;
    if (isOneOfSeveral_ || isatty(STDIN_FILENO) != 1) {
        throw Failure{Exit::NeedsConfirmation, "needs confirmation: " + question, "repeat the command with -y", {}};
    }
    console().line("tavo-util: " + question + " [y/N]");
    const std::string answer = readAnswer();
    if (answer == "y" || answer == "Y" || answer == "yes") return;
    throw Failure{Exit::NeedsConfirmation, "not confirmed: " + question, "answer y, or repeat the command with -y", {}};
}

}  // namespace cli
