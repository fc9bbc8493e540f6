#include "cli/capture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

namespace cli {

Capture::Capture() : realErrors_(std::cerr.rdbuf(errors_.rdbuf())) {
    std::cout.flush();
    std::fflush(stdout);
    realOutput_ = dup(STDOUT_FILENO);
    heldOutput_ = memfd_create("library output", MFD_CLOEXEC);
    if (realOutput_ >= 0 && heldOutput_ >= 0) dup2(heldOutput_, STDOUT_FILENO);
}

Capture::~Capture() {
    std::cout.flush();
    std::fflush(stdout);
    if (realOutput_ >= 0) {
        dup2(realOutput_, STDOUT_FILENO);
        close(realOutput_);
    }
    if (heldOutput_ >= 0) close(heldOutput_);
    std::cerr.rdbuf(realErrors_);
}

std::string Capture::output() const {
    std::cout.flush();
    std::fflush(stdout);
    char text[4096];
    const ssize_t length = heldOutput_ < 0 ? 0 : pread(heldOutput_, text, sizeof text, 0);
    return length > 0 ? std::string(text, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace cli
