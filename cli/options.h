// What the global options say.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace cli {

struct GlobalOptions {
    std::vector<std::string> devices;  ///< -d, or TAVO_DEVICE when there is none
    bool all = false;
    bool json = false;
    std::string progress = "auto";
    std::string color = "auto";
    bool quiet = false;
    int verbosity = 0;
    std::string logFile;
    bool yes = false;
    bool dryRun = false;
    std::optional<unsigned> waitSeconds;
    std::vector<std::string> usbIds;
    std::string childSpec;  ///< set by a parent process: the one of several devices that is ours
    bool asChild = false;   ///< the parent reads our JSON and events
};

}  // namespace cli
