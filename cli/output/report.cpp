#include "cli/output/report.h"

#include <iostream>
#include <mutex>

#include "cli/output/log.h"
#include "cli/output/progress.h"

namespace cli {
namespace {

constexpr const char* kPipeHint = "is the disk full or the pipe closed?";

Json statusJson(const std::optional<TAVO_STATUS>& status) {
    if (!status) return nullptr;
    return {{"code", static_cast<std::uint32_t>(*status)},
            {"name", tavo::statusName(*status)},
            {"text", tavoStatusString(*status)}};
}

}  // namespace

void Report::configure(bool json, bool quiet) {
    json_ = json;
    quiet_ = quiet;
}

void Report::line(const std::string& text) {
    line(Line{{text}});
}

void Report::line(const Line& line) {
    std::string text;
    for (const Span& span : line) text += span.text;
    log_.write(Detail::FileOnly, "result: " + text);
    if (isKept_) lines_.push_back(line);
    if (isKept_ || json_) return;
    console().clearLive();
    std::cout << console().result(line) << std::endl;
}

void Report::atOnce(const std::vector<std::string>& lines) {
    static std::mutex oneAtATime;
    std::string block;
    for (const auto& line : lines) block += tavo::printable(line) + "\n";
    const std::lock_guard lock(oneAtATime);
    if (std::cout << block << std::flush) return;
    throw tavo::Error(tavo::Problem::FileSystem, "cannot write to standard output", kPipeHint);
}

std::size_t Report::columns() const {
    constexpr int kInPipe = 120;
    const auto all = static_cast<std::size_t>(Console::resultWidth().value_or(kInPipe));
    return all > prefix_.size() ? all - prefix_.size() : 1;
}

void Report::keep(const std::string& name) {
    isKept_ = true;
    prefix_ = name + ": ";
}

void Report::script(const std::string& text) {
    if (!json_) std::cout << text << std::flush;
}

void Report::note(const std::string& text) {
    if (!quiet_) line(text);
}

void Report::tellKept() const {
    for (Line line : lines_) {
        line.insert(line.begin(), Span{prefix_});
        if (!json_) std::cout << console().result(line) << std::endl;
    }
    if (display().emitsEvents()) return;  // told when they came
    for (const auto& message : messages_) print(message, prefix_);
}

void Report::warning(const std::string& text, const std::string& hint) {
    tell({{false, text, hint}});
}

void Report::tell(Message message) {
    message.hint = pasteable(message.hint);
    const std::string& text = message.text;
    const std::string kind = message.isError ? "error" : "warning";
    log_.write(Detail::FileOnly, kind + ": " + text + message.code +
                                     (message.isError ? "; state: " + knownState() : "") + "; hint: " + message.hint);
    for (const auto& line : message.details) log_.write(Detail::FileOnly, kind + ":     " + line);
    if (display().emitsEvents()) {
        Json event{{"event", kind}, {"text", text + message.code}};
        if (message.isError) event["state"] = knownState();
        event["hint"] = message.hint;
        progress_.event(std::move(event));
    } else if (!isKept_) {
        print(message, "");
    }
    messages_.push_back(std::move(message));
}

/// An error in its three lines, a warning in one or two.
void Report::print(const Message& message, const std::string& name) const {
    const std::string text = name + message.text + message.code;
    message.isError ? console().line(Style::Error, "error:", text) : console().line(Style::Warning, "warning:", text);
    for (const auto& line : message.details) console().line("    " + line);
    if (message.isError) console().line("  state: " + knownState());
    if (!message.hint.empty()) console().line("  hint:  " + message.hint);
}

std::string Report::knownState() const {
    return pasteable(stateText.empty() ? state.text() : stateText);
}

std::vector<tavo::JobMessage> Report::told() const {
    std::vector<tavo::JobMessage> told(messages_.begin(), messages_.end());
    for (std::size_t i = 0; i < told.size(); ++i) told[i].text += messages_[i].code;
    return told;
}

void Report::fail(const std::string& text, const std::string& hint, const std::optional<TAVO_STATUS>& status,
                  const std::vector<std::string>& lines) {
    status_ = status;
    Message message{{true, text, hint, lines}};
    if (status) {
        const auto number = static_cast<std::uint32_t>(*status);
        message.code = std::string(" [") + tavo::statusName(*status) + " " + std::to_string(number) + "]";
    }
    tell(std::move(message));
}

void Report::failure(const Failure& failure) {
    fail(failure.text, failure.hint, {}, failure.lines);
}

void Report::failure(const tavo::Error& error) {
    // An operation after the one that worked on the flash knows nothing of it.
    const tavo::FlashState before = state.flash;
    state = error.state;
    if (state.flash == tavo::FlashState::Untouched) state.flash = before;
    fail(error.what(), error.hint, error.status, error.details);
}

Json Report::messagesJson() const {
    Json messages = Json::array();
    for (const auto& message : messages_) {
        std::string text = message.text;
        for (const auto& line : message.details) text += "\n    " + line;
        messages.push_back({{"severity", message.isError ? "error" : "warning"},
                            {"text", text},
                            {"hint", message.hint.empty() ? Json(nullptr) : Json(message.hint)}});
    }
    return messages;
}

Json Report::object(Exit exit) const {
    Json whole = {{"json_format_version", {1, 0}},
                  {"command", command},
                  {"device", device},
                  {"status", statusJson(status_)},
                  {"flash_state", tavo::flashStateName(state.flash)},
                  {"state", knownState()},
                  {"result", result},
                  {"messages", messagesJson()},
                  {"exit_status", static_cast<int>(exit)}};
    if (command.empty()) whole["command"] = nullptr;
    return whole;
}

int Report::finish(Exit exit) {
    if (json_) std::cout << object(exit).dump() << std::endl;
    return static_cast<int>(outputChecked(exit, knownState()));
}

Exit outputChecked(Exit exit, const std::string& state) {
    if (std::cout || exit != Exit::Done) return exit;
    console().line(Style::Error, "error:", "cannot write to standard output");
    console().line("  state: " + state);
    console().line(std::string("  hint:  ") + kPipeHint);
    return Exit::FileSystem;
}

}  // namespace cli
