#include "cli/output/progress.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "cli/output/console.h"
#include "cli/output/log.h"
#include "cli/running/interrupt.h"
#include "tavo/service/text.h"

namespace cli {
namespace {

using tavo::secondsText;

constexpr int kPlainStep = 10;  // percent between two lines in a pipe
constexpr int kBarWidth = 20;
constexpr int kShortestBar = 4;
constexpr double kRateAfter = 1.0;  // seconds: before that a rate is noise

std::string padded(const std::string& phase) {
    return phase + std::string(phase.size() < 8 ? 8 - phase.size() : 0, ' ');
}

/// " [####----]", as long as the phase and the share leave room for it; nothing on a narrow terminal.
std::string bar(int percent, int columns) {
    constexpr int kOthers = 8 + 3 + 6 + 1;  // phase, blank and brackets, share, the column that stays free
    const int width = std::min(kBarWidth, columns - kOthers);
    if (width < kShortestBar) return "";
    const int filled = percent * width / 100;
    return " [" + std::string(static_cast<std::size_t>(filled), '#') +
           std::string(static_cast<std::size_t>(width - filled), '-') + "]";
}

}  // namespace

Progress::Progress(Log& log) : display_(display()), log_(log) {
    display_.add(*this);
}

Progress::~Progress() {
    display_.remove(*this);
}

void Progress::setDevice(const std::string& name, const std::string& spec) {
    const std::lock_guard lock(display_.mutex_);
    device_ = name;
    spec_ = spec;
    ended_ = "waits";
}

void Progress::event(Json fields) const {
    if (!device_.empty()) fields["device"] = spec_;
    Display::event(fields);
}

void Progress::line(const std::string& text) const {
    console().line((device_.empty() ? "" : device_ + ": ") + text);
}

double Progress::elapsed() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Progress::begin(const std::string& phase, const std::string& usual, std::uint64_t totalBytes, double seconds) {
    end();
    const std::lock_guard lock(display_.mutex_);
    phase_ = phase;
    usual_ = usual;
    stopNote_.clear();
    total_ = totalBytes;
    seconds_ = seconds;
    done_ = 0;
    percent_ = toldPercent_ = 0;
    start_ = Clock::now();
    log_.write(Detail::Step, "phase: " + phase + (usual.empty() ? "" : " (" + usual + ")"));
    if (display_.emitsEvents()) event({{"event", "phase"}, {"phase", phase}, {"usual", usual}, {"bytes", total_}});
    if (display_.mode() == Display::Mode::Plain) line(phase + ": begins" + (usual.empty() ? "" : ", " + usual));
    const std::string why = display_.startTicker();
    if (!why.empty()) log_.write(Detail::Step, "no thread for the progress row: " + why);
    display_.draw();
}

void Progress::setStopNote(const std::string& note) {
    const std::lock_guard lock(display_.mutex_);
    stopNote_ = note;
}

void Progress::tellStopNote() {
    if (phase_.empty() || stopNoteTold_ || stopNote_.empty() || !isInterruptNoted()) return;
    stopNoteTold_ = true;
    if (display_.emitsEvents()) return event({{"event", "stopping"}, {"text", stopNote_}});
    line(device_.empty() ? "tavo-util: " + stopNote_ : stopNote_);
}

void Progress::advance(std::uint64_t doneBytes) {
    const std::lock_guard lock(display_.mutex_);
    if (total_ == 0) return;
    done_ = std::clamp(doneBytes, done_, total_);
    percent_ = static_cast<int>(done_ * 100 / total_);
    if (display_.emitsEvents() && percent_ != toldPercent_) {
        toldPercent_ = percent_;
        event({{"event", "progress"}, {"phase", phase_}, {"percent", percent_}, {"bytes", done_}, {"total", total_}});
    }
    if (display_.mode() == Display::Mode::Plain && percent_ / kPlainStep != toldPercent_ / kPlainStep) {
        toldPercent_ = percent_;
        line(phase_ + ": " + std::to_string(percent_) + " %  " + figures());
    }
}

std::string Progress::figures() const {
    const double seconds = elapsed();
    char text[128];
    const auto kibibytes = [](std::uint64_t bytes) { return static_cast<unsigned long long>((bytes + 1023) / 1024); };
    const int length = std::snprintf(text, sizeof text, "%llu/%llu KiB", kibibytes(done_), kibibytes(total_));
    std::string all(text, static_cast<std::size_t>(length));
    if (seconds < kRateAfter || done_ == 0) return all;
    const double rate = static_cast<double>(done_) / seconds;
    std::snprintf(text, sizeof text, "  %.0f KiB/s  ETA %.0f s", rate / 1024,
                  static_cast<double>(total_ - std::min(done_, total_)) / rate);
    return all + text;
}

std::vector<std::string> Progress::rows() const {
    if (!shown_.empty()) return shown_;
    if (!device_.empty()) return {device_ + "  " + (phase_.empty() ? ended_ : phaseRow())};
    if (phase_.empty()) return {};
    return {phaseRow()};
}

void Progress::show(std::vector<std::string> rows) {
    const std::lock_guard lock(display_.mutex_);
    shown_ = std::move(rows);
    if (shown_.empty()) ended_ = "ended";
    if (shown_.empty() && display_.mode() == Display::Mode::Bar) console().clearLive();
    display_.draw();
}

std::string Progress::phaseRow() const {
    if (seconds_ > 0) return padded(phase_) + " " + secondsText(std::max(seconds_ - elapsed(), 0.0)) + " left";
    if (total_ == 0) {
        std::string text = padded(phase_) + " " + secondsText(elapsed());
        return usual_.empty() ? text : text + "  (" + usual_ + ")";
    }
    char share[16];
    std::snprintf(share, sizeof share, " %3d %%", percent_);
    return padded(phase_) + bar(percent_, console().width()) + share + "  " + figures();
}

void Progress::finish(const char* outcome, const std::string& remark) {
    const std::lock_guard lock(display_.mutex_);
    if (phase_.empty()) return;
    phases_.push_back({phase_, outcome, elapsed(), remark});
    const std::string tail = remark.empty() ? "" : "  " + remark;
    log_.write(Detail::Step, "phase " + phase_ + " " + outcome + " after " + secondsText(elapsed()) + tail);
    if (display_.emitsEvents()) {
        event({{"event", "phase-end"},
               {"phase", phase_},
               {"outcome", outcome},
               {"seconds", elapsed()},
               {"remark", remark}});
    }
    if (display_.mode() == Display::Mode::Plain) line(phase_ + ": " + outcome + ", " + secondsText(elapsed()) + tail);
    ended_ = padded(phase_) + " " + outcome + "  " + secondsText(elapsed()) + tail;
    if (display_.mode() == Display::Mode::Bar && device_.empty()) {
        console().clearLive();
        console().line(ended_);
    }
    phase_.clear();
    display_.draw();
}

void Progress::end(const std::string& remark) {
    finish("done", remark);
}

void Progress::abandon() {
    finish("stopped", "");
}

}  // namespace cli
