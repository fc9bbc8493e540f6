// The log of what was done: one line when a run begins to change something, one when it has ended.
#pragma once

#include <chrono>
#include <string>

#include "service/operation.h"
#include "tavo/service/backups.h"
#include "tavo/service/history.h"

namespace tavo {

/// One run as the log tells it. A log that cannot be written is warned of, once, and stops nothing.
class LoggedRun {
public:
    LoggedRun(Operation& op, const char* action, BackupKind part);

    /// The path is made absolute; empty and "-" stay out.
    void setImage(const std::string& path);
    void setBackup(const std::string& path);

    void begin();  ///< before the first step that changes something
    void end(const char* result = "done");
    void fail(const Error& error) noexcept;
    template <class Work>
    auto guarded(const Work& work) const {
        return op_.guarded(work);
    }

    HistoryEntry entry;

private:
    void append();

    Operation& op_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    bool isLost_ = false;
};

/// The same for a piece of work: its Error is told and thrown on.
template <class Work>
auto logged(LoggedRun& run, Work work) {
    try {
        return run.guarded(work);
    } catch (const Error& error) {
        run.fail(error);
        throw;
    }
}

/// What was done to this interface, under earlier serial numbers too.
History readLog(const DeviceDescription& device);

/// A serial number that an interface had, and when; UTC, empty: without an end.
struct SerialAge {
    std::string serial;
    std::string from;
    std::string until;
};
/// Those of the interface that has this one now, the latest first.
std::vector<SerialAge> earlierSerials(const History& log, const std::string& serial);

/// File names of the backups that the runs of this part have made which failed or were cut off since the last good one.
std::vector<std::string> unresolvedBackups(const History& log, BackupKind part);

}  // namespace tavo
