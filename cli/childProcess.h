// One run of this program on one of several devices.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "cli/files.h"

namespace cli {

class ChildProcess {
public:
    /// Starts this program again with these arguments and an empty standard input. Throws Failure.
    explicit ChildProcess(const std::vector<std::string>& arguments);
    /// Ends a child that still runs (SIGTERM: it releases its device) and waits for it.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    const Descriptor& output() const { return output_; }
    const Descriptor& errors() const { return errors_; }
    void askToStop() const;
    /// Waits for its end. @return its exit code, or -1 when a signal ended it.
    int wait();

private:
    pid_t process_ = -1;
    Descriptor output_;
    Descriptor errors_;
};

/// Reads everything the children say, whole lines at a time, until all of them have ended.
/// isError tells standard error from standard output. Passes an interrupt on to them.
void readAll(const std::vector<ChildProcess*>& children,
             const std::function<void(std::size_t child, bool isError, const std::string& line)>& take);

}  // namespace cli
