// Keeps what the library prints for itself away from our own output.
#pragma once

#include <sstream>
#include <streambuf>
#include <string>

namespace cli {

/// While it lives, standard output goes to a file in memory and std::cerr to a string. Our own
/// lines are written to descriptor 2 and are not caught.
class Capture {
public:
    Capture();
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    std::string errors() const { return errors_.str(); }
    /// What was printed so far.
    std::string output() const;

private:
    int realOutput_ = -1;
    int heldOutput_ = -1;
    std::ostringstream errors_;
    std::streambuf* realErrors_;
};

}  // namespace cli
