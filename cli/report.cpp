#include "cli/report.h"

#include <iostream>

#include "cli/console.h"
#include "cli/log.h"
#include "cli/printable.h"
#include "cli/progress.h"

namespace cli {
namespace {

Json statusJson(const std::optional<TAVO_STATUS>& status) {
    if (!status) return nullptr;
    return {{"code", static_cast<std::uint32_t>(*status)},
            {"name", statusName(*status)},
            {"text", tavoStatusString(*status)}};
}

}  // namespace

void Report::configure(bool json, bool quiet) {
    json_ = json;
    quiet_ = quiet;
}

void Report::line(const std::string& text) {
    log_.write(Detail::FileOnly, "result: " + text);
    if (keepLines_) lines_.push_back(text);
    if (json_) return;
    console().clearLive();
    std::cout << printable(text) << std::endl;
}

void Report::script(const std::string& text) {
    if (!json_) std::cout << text << std::flush;
}

void Report::note(const std::string& text) {
    if (!quiet_) line(text);
}

void Report::tell(const char* severity, const std::string& text, const std::string& hint) {
    messages_.push_back({{"severity", severity}, {"text", text}, {"hint", hint.empty() ? Json(nullptr) : Json(hint)}});
}

void Report::warning(const std::string& text, const std::string& hint) {
    tell("warning", text, hint);
    if (display().emitsEvents()) {
        progress_.event({{"event", "warning"}, {"text", text}, {"hint", hint}});
        return;
    }
    console().line(Style::Warning, "warning:", text);
    if (!hint.empty()) console().line("  hint:  " + hint);
}

std::string Report::knownState() const {
    return stateText.empty() ? state.text() : stateText;
}

void Report::fail(const std::string& text, const std::string& hint, const std::optional<TAVO_STATUS>& status,
                  const std::vector<std::string>& lines) {
    std::string coded = text;
    if (status) {
        coded +=
            std::string(" [") + statusName(*status) + " " + std::to_string(static_cast<std::uint32_t>(*status)) + "]";
    }
    status_ = status;
    std::string whole = text;
    for (const auto& line : lines) whole += "\n    " + line;
    tell("error", whole, hint);
    print(coded, hint, lines);
}

void Report::failure(const Failure& failure) {
    fail(failure.text, failure.hint, failure.status, failure.lines);
}

void Report::failure(const tavo::Error& error) {
    // An operation after the one that worked on the flash knows nothing of it.
    const FlashState before = state.flash;
    state = error.state;
    if (state.flash == FlashState::Untouched) state.flash = before;
    fail(error.what(), error.hint, error.status, error.details);
}

void Report::interrupted() {
    const char* hint = "program an image before the interface is used";
    if (state.flash <= FlashState::Unchanged) hint = "repeat the command at any time";
    if (state.flash == FlashState::Programmed) hint = "the image is in place; nothing is left to do";
    fail("interrupted; everything is released", hint, {}, {});
}

Json Report::object(Exit exit) const {
    Json whole = {{"json_format_version", {1, 0}},
                  {"command", command},
                  {"device", device},
                  {"status", statusJson(status_)},
                  {"flash_state", tavo::flashStateName(state.flash)},
                  {"state", knownState()},
                  {"result", result},
                  {"messages", messages_},
                  {"exit_status", static_cast<int>(exit)}};
    if (command.empty()) whole["command"] = nullptr;
    if (keepLines_) {
        whole["lines"] = lines_;
        whole["state_text"] = knownState();
    }
    return whole;
}

int Report::finish(Exit exit) {
    if (json_) std::cout << object(exit).dump() << std::endl;
    if (!std::cout && exit == Exit::Done) {
        print("cannot write to standard output", "is the disk full or the pipe closed?", {});
        return static_cast<int>(Exit::FileSystem);
    }
    return static_cast<int>(exit);
}

void Report::print(const std::string& text, const std::string& hint, const std::vector<std::string>& lines) {
    log_.write(Detail::FileOnly, "error: " + text + "; state: " + knownState() + "; hint: " + hint);
    for (const auto& line : lines) log_.write(Detail::FileOnly, "error:     " + line);
    if (display().emitsEvents()) {
        return progress_.event({{"event", "error"}, {"text", text}, {"state", knownState()}, {"hint", hint}});
    }
    printError(text, knownState(), hint, lines);
}

void printError(const std::string& text, const std::string& state, const std::string& hint,
                const std::vector<std::string>& lines) {
    console().line(Style::Error, "error:", text);
    for (const auto& line : lines) console().line("    " + line);
    if (!state.empty()) console().line("  state: " + state);
    if (!hint.empty()) console().line("  hint:  " + hint);
}

}  // namespace cli
