// Shows how far an operation is: a bar on a terminal, lines in a pipe, events for a program.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

namespace cli {

/// What a phase counts. Shares come from what the library reports; nothing is estimated.
struct Measure {
    std::uint64_t total = 0;                                ///< bytes; 0: the phase has no measure
    std::function<std::uint64_t(int percent)> doneAt = {};  ///< bytes done when only a share is reported
    double seconds = 0;                                     ///< a wait of that length: counted down
};

class Progress {
public:
    ~Progress();
    /// auto, bar, plain, json, none. name goes in front when several devices share a terminal.
    void configure(const std::string& mode, bool quiet);
    bool emitsEvents() const { return mode_ == Mode::Events; }
    void event(const nlohmann::ordered_json& fields);

    /// Ends the phase before, if any, and begins one. usual: how long it takes, for phases without measure.
    void begin(const std::string& phase, const std::string& usual = "", Measure measure = {});
    void share(int percent);
    void advance(std::uint64_t doneBytes);
    /// Ends the phase; remark is shown with it.
    void end(const std::string& remark = "");
    /// Ends the phase as not completed.
    void abandon();
    /// What a Ctrl-C does in this phase, told when it comes.
    void setStopNote(const std::string& note);

private:
    enum class Mode { None, Bar, Plain, Events };
    using Clock = std::chrono::steady_clock;

    void startTicker();
    void tick();
    void draw();
    void finish(const char* outcome, const std::string& remark);
    std::string row() const;
    std::string figures() const;
    double elapsed() const;
    void show(int percent, std::uint64_t doneBytes);

    Mode mode_ = Mode::None;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::thread ticker_;
    bool stopping_ = false;

    std::string phase_;
    std::string usual_;
    std::string stopNote_;
    bool stopNoteTold_ = false;
    Measure measure_;
    std::uint64_t done_ = 0;
    int percent_ = 0;
    int toldPercent_ = 0;
    Clock::time_point start_;
};

Progress& progress();

/// The callback to hand to a library operation: shows the share, and leaves the operation when a
/// Ctrl-C was noted.
void onLibraryProgress(char percent);

}  // namespace cli
