// Reads one Intel HEX file into pages the way a flash is programmed, without the flash.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <string>

#include "tavo/hexFileReader.h"

namespace {

// In KiB. The resource usage that a parent sees would count what the parent held when it started us.
unsigned long peakMemory() {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word && word != "VmHWM:") {
    }
    unsigned long size = 0;
    status >> size;
    return size;
}

}  // namespace

int main(int argc, char** argv) try {
    std::ifstream file(argc > 1 ? argv[1] : "");
    if (!file.is_open()) return 2;
    IntelHexParser parser(256);
    unsigned char buffer[260] = {};
    unsigned long pages = 0, bytes = 0, sum = 0;
    std::string line;
    while (std::getline(file, line)) {
        parser.ParseRecord(line.c_str());
        while (parser.isPageReady()) {
            const unsigned int address = parser.FetchAddress();
            const auto page = parser.FetchPage();
            std::copy(page.begin(), page.end(), buffer + 4);
            ++pages;
            bytes += page.size();
            sum += address ^ buffer[4];
        }
    }
    std::printf("%lu pages, %lu bytes, sum %lx, peak %lu KiB\n", pages, bytes, sum, peakMemory());
    return 0;
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s", e.what());
    return 1;
}
