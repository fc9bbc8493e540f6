#include "cli/output/display.h"

#include <chrono>
#include <system_error>

#include "cli/output/console.h"
#include "cli/output/progress.h"

namespace cli {
namespace {

constexpr auto kTick = std::chrono::milliseconds(200);

struct ModeName {
    const char* name;
    Display::Mode mode;
};
constexpr ModeName kModes[] = {{"none", Display::Mode::None},
                               {"bar", Display::Mode::Bar},
                               {"plain", Display::Mode::Plain},
                               {"json", Display::Mode::Events}};

}  // namespace

Display::~Display() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (ticker_.joinable()) ticker_.join();
}

void Display::configure(const std::string& mode, bool quiet) {
    for (const auto& row : kModes) {
        if (mode == row.name) mode_ = row.mode;
    }
    if (mode == "auto") mode_ = quiet ? Mode::None : console().isTerminal() ? Mode::Bar : Mode::Plain;
}

void Display::event(const Json& fields) {
    console().exactLine(fields.dump());
}

void Display::add(Progress& progress) {
    const std::lock_guard lock(mutex_);
    shown_.push_back(&progress);
}

void Display::remove(const Progress& progress) {
    const std::lock_guard lock(mutex_);
    std::erase(shown_, &progress);
}

std::string Display::startTicker() {
    if (ticker_.joinable()) return "";
    try {
        ticker_ = std::thread([this] { tick(); });
    } catch (const std::system_error& error) {
        return error.what();
    }
    return "";
}

void Display::tick() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        wake_.wait_for(lock, kTick);
        for (Progress* progress : shown_) progress->tellStopNote();
        draw();
    }
}

void Display::draw() const {
    if (mode_ != Mode::Bar) return;
    std::vector<std::string> rows;
    for (const Progress* progress : shown_) {
        for (std::string& row : progress->rows()) rows.push_back(std::move(row));
    }
    if (!rows.empty()) console().live(rows);
}

Display& display() {
    static Display instance;
    return instance;
}

}  // namespace cli
