#include "cli/report.h"

#include <cstdio>
#include <iostream>

#include "cli/console.h"
#include "cli/log.h"
#include "cli/printable.h"
#include "cli/progress.h"

namespace cli {
namespace {

/// Bytes from a file or a device may not be UTF-8; the object must be.
std::string dumped(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

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
    log().write(Detail::FileOnly, "result: " + text);
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
    if (progress().emitsEvents()) {
        progress().event({{"event", "warning"}, {"text", text}, {"hint", hint}});
        return;
    }
    console().line(Style::Warning, "warning:", text);
    if (!hint.empty()) console().line("  hint:  " + hint);
}

std::string Report::state() const {
    return stateText.empty() ? flashStateText(flashState) : stateText;
}

void Report::failure(const Failure& failure) {
    std::string text = failure.text;
    if (failure.status) {
        text += std::string(" [") + statusName(*failure.status) + " " +
                std::to_string(static_cast<std::uint32_t>(*failure.status)) + "]";
    }
    status_ = failure.status;
    std::string whole = failure.text;
    for (const auto& line : failure.lines) whole += "\n    " + line;
    tell("error", whole, failure.hint);
    printError(text, state(), failure.hint, failure.lines);
}

void Report::interrupted() {
    status_.reset();
    const char* hint = "program an image before the interface is used";
    if (flashState <= FlashState::Unchanged) hint = "repeat the command at any time";
    if (flashState == FlashState::Programmed) hint = "the image is in place; nothing is left to do";
    tell("error", "interrupted; everything is released", hint);
    printError("interrupted; everything is released", state(), hint);
}

Json Report::object(Exit exit) const {
    Json whole = {{"json_format_version", {1, 0}},
                  {"command", command},
                  {"device", device},
                  {"status", statusJson(status_)},
                  {"flash_state", flashStateName(flashState)},
                  {"result", result},
                  {"messages", messages_},
                  {"exit_status", static_cast<int>(exit)}};
    if (command.empty()) whole["command"] = nullptr;
    if (keepLines_) {
        whole["lines"] = lines_;
        whole["state_text"] = state();
    }
    return whole;
}

int Report::finish(Exit exit) {
    if (json_) std::cout << dumped(object(exit)) << std::endl;
    if (!std::cout && exit == Exit::Done) {
        printError("cannot write to standard output", state(), "is the disk full or the pipe closed?");
        return static_cast<int>(Exit::FileSystem);
    }
    return static_cast<int>(exit);
}

void printError(const std::string& text, const std::string& state, const std::string& hint,
                const std::vector<std::string>& lines) {
    log().write(Detail::FileOnly, "error: " + text + "; state: " + state + "; hint: " + hint);
    for (const auto& line : lines) log().write(Detail::FileOnly, "error:     " + line);
    if (progress().emitsEvents()) {
        progress().event({{"event", "error"}, {"text", text}, {"state", state}, {"hint", hint}});
        return;
    }
    console().line(Style::Error, "error:", text);
    for (const auto& line : lines) console().line("    " + line);
    if (!state.empty()) console().line("  state: " + state);
    if (!hint.empty()) console().line("  hint:  " + hint);
}

std::string hexText(const unsigned char* bytes, std::size_t count, const char* separator) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", bytes[i]);
        text += (i == 0 ? "" : separator) + std::string(digits);
    }
    return text;
}

std::string hexAddress(std::uint32_t address) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%06X", address);
    return text;
}

std::string sizeText(std::uint64_t bytes) {
    constexpr std::uint64_t kKi = 1024;
    if (bytes >= kKi * kKi && bytes % (kKi * kKi) == 0) return std::to_string(bytes / kKi / kKi) + " MiB";
    if (bytes >= kKi && bytes % kKi == 0) return std::to_string(bytes / kKi) + " KiB";
    return countText(bytes, "byte");
}

std::string secondsText(double seconds) {
    char text[48];
    if (seconds < 100) {
        std::snprintf(text, sizeof text, "%.1f s", seconds);
    } else {
        const auto whole = static_cast<unsigned>(seconds);
        std::snprintf(text, sizeof text, "%u min %u s", whole / 60, whole % 60);
    }
    return text;
}

std::string countText(std::uint64_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace cli
