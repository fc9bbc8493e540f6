#pragma once

#include <chrono>

namespace cli {

/// Seconds since it was made.
class Stopwatch {
public:
    double seconds() const {
        // Milliseconds are as fine as anyone reads them.
        const auto passed = std::chrono::steady_clock::now() - start_;
        return static_cast<double>(std::chrono::duration_cast<std::chrono::milliseconds>(passed).count()) / 1000;
    }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace cli
