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
};

}  // namespace cli
