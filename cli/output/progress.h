// How far the work on one device is.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/output/display.h"
#include "tavo/service/report.h"

namespace cli {

class Log;

class Progress {
public:
    explicit Progress(Log& log);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Where several devices are worked on: the name stands before each row, its description in each event.
    void setDevice(const std::string& name, const std::string& spec);
    /// Adds what tells the devices apart, and shows it as an event of --progress json.
    void event(Json fields) const;

    /// Ends the phase before, if any, and begins one.
    /// @param usual       how long it takes, for phases without measure
    /// @param totalBytes  0: the phase has no measure
    /// @param seconds     of a wait of known length, which is counted down
    void begin(const std::string& phase, const std::string& usual = "", std::uint64_t totalBytes = 0,
               double seconds = 0);
    void advance(std::uint64_t doneBytes);
    /// Ends the phase; remark is shown with it.
    void end(const std::string& remark = "");
    /// Ends the phase as not completed.
    void abandon();
    /// Shows these rows instead, until the next call; none: nothing any more.
    void show(std::vector<std::string> rows);
    /// Those that have ended.
    const std::vector<tavo::JobPhase>& phases() const { return phases_; }
    /// What a Ctrl-C does in this phase, told when it comes.
    void setStopNote(const std::string& note);

private:
    friend class Display;  // asks for the row and the note, holding its lock
    using Clock = std::chrono::steady_clock;

    void tellStopNote();
    std::vector<std::string> rows() const;
    void line(const std::string& text) const;
    void finish(const char* outcome, const std::string& remark);
    std::string phaseRow() const;
    std::string figures() const;
    double elapsed() const;

    Display& display_;
    Log& log_;
    std::string device_;
    std::string spec_;

    std::string phase_;
    std::string usual_;
    std::string ended_;  ///< the last phase and how it ended, for the row of one of several devices
    std::string stopNote_;
    std::vector<std::string> shown_;
    std::vector<tavo::JobPhase> phases_;
    bool stopNoteTold_ = false;
    std::uint64_t total_ = 0;  ///< bytes
    std::uint64_t done_ = 0;
    double seconds_ = 0;
    int percent_ = 0;
    int toldPercent_ = 0;
    Clock::time_point start_;
};

}  // namespace cli
