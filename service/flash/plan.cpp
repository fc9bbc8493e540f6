#include "service/flash/plan.h"

#include <algorithm>

namespace tavo {
namespace {

// A page program with its verification, and the waits around a run.
constexpr double kSecondsPerPage = 0.0066;
constexpr double kFixedSeconds = 1.7;

bool isBlank(const std::uint8_t* bytes, std::uint32_t size) {
    return std::all_of(bytes, bytes + size, [](std::uint8_t byte) { return byte == 0xFF; });
}

}  // namespace

FlashPlan makePlan(const Image& image) {
    FlashPlan plan;
    plan.pagesWritten = image.pagesWithData();
    plan.pagesBlank = image.blankPages();
    for (const AddressRange& range : image.ranges()) {
        // A page program wraps inside its page: one write for each page that the range touches.
        for (std::uint32_t address = range.first; address <= range.last;) {
            const std::uint32_t pageEnd = (address / kPageSize + 1) * kPageSize;
            const PageWrite write{address, std::min(range.last + 1, pageEnd) - address};
            if (!isBlank(bytesOf(image, write), write.size)) {
                plan.writes.push_back(write);
                plan.bytes += write.size;
            }
            address += write.size;
        }
    }
    return plan;
}

double estimate(const FlashPlan& plan) {
    return kFixedSeconds + kSecondsPerPage * plan.pagesWritten;
}

}  // namespace tavo
