// How far everything is that this process works on: the one place where its devices share a terminal.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cli/output/json.h"

namespace cli {

class Progress;

/// Shows the progress of each device: rows on a terminal, lines in a pipe, events for a program.
class Display {
public:
    enum class Mode { None, Bar, Plain, Events };

    Display() = default;
    ~Display();
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    /// auto, bar, plain, json, none.
    void configure(const std::string& mode, bool quiet);
    Mode mode() const { return mode_; }
    /// Rows that are drawn anew in their place.
    bool hasRows() const { return mode_ == Mode::Bar; }
    bool emitsEvents() const { return mode_ == Mode::Events; }
    /// One line of JSON on standard error.
    static void event(const Json& fields);

private:
    friend class Progress;

    void add(Progress& progress);
    void remove(const Progress& progress);
    /// The rows move between the reports of the devices, and a Ctrl-C is told at once.
    /// @return why there is no thread for it; the work goes on without
    std::string startTicker();
    void tick();
    void draw() const;

    Mode mode_ = Mode::None;
    std::mutex mutex_;  ///< also of what each Progress shows
    std::condition_variable wake_;
    std::thread ticker_;
    bool stopping_ = false;
    std::vector<Progress*> shown_;
};

Display& display();

}  // namespace cli
