#include "service/flash/plan.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "service/flash/chip.h"

namespace tavo {
namespace {

// Beside SPI clock and flash time, on a full-speed bus of 1 ms frames: Write Enable, the start of Page Program and a
// status; the same of an erase, which is asked every other millisecond; the start of a long read.
constexpr double kPageOverhead = 0.002;
constexpr double kEraseOverhead = 0.006;
constexpr double kReadOverhead = 0.001;
constexpr double kUsualPageProgram = 0.0007;
constexpr double kUsualSectorErase = 0.06;  // of a chip that tells no times
constexpr double kUsualBlockErase = 0.2;
constexpr std::uint32_t kSector = 4096;
constexpr std::uint32_t kWindowPages = kLongRead / kPageSize;
// One window of that many is a sample, and one of fewer where they would be less than that.
constexpr std::uint32_t kStride = 16;
constexpr std::uint32_t kFewestSamples = 8;

constexpr auto kBlank = [] {
    std::array<std::uint8_t, kPageSize> page{};
    page.fill(0xFF);
    return page;
}();

bool isEqual(const std::uint8_t* a, const std::uint8_t* b) {
    return std::memcmp(a, b, kPageSize) == 0;
}

bool isCovered(const Image& image, std::uint32_t window) {
    for (std::uint32_t page = window * kWindowPages; page < (window + 1) * kWindowPages; ++page) {
        if (image.page(page) != nullptr) return true;
    }
    return false;
}

AddressRange rangeOf(std::uint32_t window) {
    return {window * kLongRead, window * kLongRead + kLongRead - 1};
}

/// Programming clears bits and cannot set them.
bool needsErase(const std::uint8_t* before, const std::uint8_t* wanted) {
    for (std::uint32_t i = 0; i < kPageSize; ++i) {
        if ((wanted[i] & ~before[i]) != 0) return true;
    }
    return false;
}

double usual(const EraseType& type) {
    if (type.typical > 0) return type.typical + kEraseOverhead;
    return (type.size <= kSector ? kUsualSectorErase : kUsualBlockErase) + kEraseOverhead;
}

class Planner {
public:
    Planner(const FlashChip& chip, const Image& image, const Image* before, std::uint32_t clockHz)
        : chip_(chip),
          image_(image),
          before_(before),
          clockHz_(clockHz),
          pages_(std::max(chip.size / kPageSize, 1U)),
          pageSeconds_((kPageSize + 4) * 8.0 / clockHz + kPageOverhead +
                       (chip.programTypical > 0 ? chip.programTypical : kUsualPageProgram) +
                       readSeconds(kPageSize, clockHz)) {}

    FlashPlan full() const;
    FlashPlan sectors() const;
    double pageSeconds() const { return pageSeconds_; }
    /// By what is known of some windows: of reading the others, and of the whole job by sectors.
    double secondsBySample() const;
    /// Nothing but erasing everything can do it.
    bool needsChipErase() const;

private:
    double blockCost(std::size_t level, std::uint32_t address, std::vector<BlockErase>& erases) const;
    double sectorCost(std::uint32_t address, std::vector<BlockErase>& erases) const;
    /// What a run of pages is in for.
    struct Need {
        bool erase = false;
        std::uint32_t differing = 0;
    };
    Need needOf(std::uint32_t first, std::uint32_t count) const;
    double windowCost(std::uint32_t window) const;
    std::uint32_t pagesWithData(std::uint32_t first, std::uint32_t count) const;
    double cost(const FlashPlan& plan) const;
    void addWrites(FlashPlan& plan, const std::vector<bool>& isErased) const;

    const FlashChip& chip_;
    const Image& image_;
    const Image* before_;
    const std::uint32_t clockHz_;
    const std::uint32_t pages_;
    const double pageSeconds_;
};

std::uint32_t Planner::pagesWithData(std::uint32_t first, std::uint32_t count) const {
    std::uint32_t found = 0;
    for (std::uint32_t page = first; page < first + count; ++page)
        found += !isEqual(pageOf(image_, page), kBlank.data());
    return found;
}

bool Planner::needsChipErase() const {
    if (!chip_.eraseTypes.empty()) return false;
    for (std::uint32_t page = 0; page < pages_; ++page) {
        if (needsErase(pageOf(*before_, page), pageOf(image_, page))) return true;
    }
    return false;
}

Planner::Need Planner::needOf(std::uint32_t first, std::uint32_t count) const {
    Need need;
    for (std::uint32_t page = first; page < first + count; ++page) {
        need.erase = need.erase || needsErase(pageOf(*before_, page), pageOf(image_, page));
        need.differing += !isEqual(pageOf(*before_, page), pageOf(image_, page));
    }
    return need;
}

/// The smallest that can be erased: an erase if a bit is to be set, then what differs.
double Planner::sectorCost(std::uint32_t address, std::vector<BlockErase>& erases) const {
    const EraseType& type = chip_.eraseTypes.front();
    const std::uint32_t first = address / kPageSize;
    const std::uint32_t count = type.size / kPageSize;
    const Need need = needOf(first, count);
    if (!need.erase) return need.differing * pageSeconds_ + readSeconds((count - need.differing) * kPageSize, clockHz_);
    erases.push_back({address, type});
    return usual(type) + pagesWithData(first, count) * pageSeconds_;
}

/// A block at once, where that is shorter than its parts.
double Planner::blockCost(std::size_t level, std::uint32_t address, std::vector<BlockErase>& erases) const {
    if (level == 0) return sectorCost(address, erases);
    const EraseType& type = chip_.eraseTypes[level];
    const std::size_t erasesBefore = erases.size();
    double parts = 0;
    const std::uint32_t step = chip_.eraseTypes[level - 1].size;
    for (std::uint32_t at = address; at < address + type.size; at += step) parts += blockCost(level - 1, at, erases);
    if (erases.size() == erasesBefore) return parts;
    const double whole = usual(type) + pagesWithData(address / kPageSize, type.size / kPageSize) * pageSeconds_;
    if (whole >= parts) return parts;
    erases.resize(erasesBefore);
    erases.push_back({address, type});
    return whole;
}

/// For each page, what differs from what it holds by then.
void Planner::addWrites(FlashPlan& plan, const std::vector<bool>& isErased) const {
    for (std::uint32_t index = 0; index < pages_; ++index) {
        const std::uint8_t* wanted = pageOf(image_, index);
        const std::uint8_t* holds = isErased[index] ? kBlank.data() : pageOf(*before_, index);
        if (isEqual(wanted, holds)) {
            plan.pagesKept += !isErased[index] && !isEqual(wanted, kBlank.data());
            continue;
        }
        std::uint32_t first = 0;
        std::uint32_t end = kPageSize;
        while (wanted[first] == holds[first]) ++first;
        while (wanted[end - 1] == holds[end - 1]) --end;
        plan.writes.push_back({index * kPageSize + first, end - first});
    }
}

FlashPlan Planner::full() const {
    FlashPlan plan;
    plan.compared.resize(pages_);
    for (std::uint32_t page = 0; page < pages_; ++page) plan.compared[page] = image_.page(page) != nullptr;
    addWrites(plan, std::vector<bool>(pages_, true));
    plan.seconds = usualErase(chip_) + cost(plan);
    return plan;
}

/// But for the whole erase.
double Planner::cost(const FlashPlan& plan) const {
    const auto compared = static_cast<std::size_t>(std::count(plan.compared.begin(), plan.compared.end(), true));
    double seconds = static_cast<double>(plan.writes.size()) * pageSeconds_ +
                     readSeconds((compared - plan.writes.size()) * kPageSize, clockHz_);
    for (const BlockErase& each : plan.erases) seconds += usual(each.type);
    return seconds;
}

FlashPlan Planner::sectors() const {
    FlashPlan plan;
    plan.way = ProgramWay::Sectors;
    plan.compared.resize(pages_);
    for (std::uint32_t page = 0; page < pages_; ++page) plan.compared[page] = image_.page(page) != nullptr;
    std::vector<bool> isErased(pages_);
    if (!chip_.eraseTypes.empty()) {
        const std::size_t top = chip_.eraseTypes.size() - 1;
        for (std::uint32_t at = 0; at < chip_.size; at += chip_.eraseTypes[top].size) blockCost(top, at, plan.erases);
    }
    for (const BlockErase& erase : plan.erases) {
        for (std::uint32_t i = 0; i < erase.type.size / kPageSize; ++i)
            isErased[erase.address / kPageSize + i] = plan.compared[erase.address / kPageSize + i] = true;
    }
    addWrites(plan, isErased);
    plan.seconds = cost(plan);
    if (plan.erases.empty() && plan.writes.empty()) plan.way = ProgramWay::Nothing;
    return plan;
}

/// Erases count by their bytes: it is not known which block they would share.
double Planner::windowCost(std::uint32_t window) const {
    const std::uint32_t first = window * kWindowPages;
    const Need need = needOf(first, kWindowPages);
    const std::uint32_t written = need.erase ? pagesWithData(first, kWindowPages) : need.differing;
    double erase = 0;
    if (need.erase) {
        erase = chip_.eraseTypes.empty() ? usualErase(chip_) : std::numeric_limits<double>::max();
        for (const EraseType& type : chip_.eraseTypes) erase = std::min(erase, usual(type) * kLongRead / type.size);
    }
    return written * pageSeconds_ + readSeconds((kWindowPages - written) * kPageSize, clockHz_) + erase;
}

double Planner::secondsBySample() const {
    struct Part {
        double windows = 0, known = 0, seconds = 0;
    };
    Part parts[2];
    for (std::uint32_t window = 0; window < pages_ / kWindowPages; ++window) {
        Part& part = parts[isCovered(image_, window)];
        ++part.windows;
        if (before_->page(window * kWindowPages) == nullptr) continue;
        ++part.known;
        part.seconds += windowCost(window);
    }
    double seconds = 0;
    for (const Part& part : parts) {
        const double unread = part.windows - part.known;
        seconds += unread * readSeconds(kLongRead, clockHz_);
        if (part.known > 0) seconds += part.seconds * part.windows / part.known;
    }
    return seconds;
}

}  // namespace

const std::uint8_t* pageOf(const Image& image, std::uint32_t index) {
    const std::uint8_t* page = image.page(index);
    return page != nullptr ? page : kBlank.data();
}

double readSeconds(std::uint64_t bytes, std::uint32_t clockHz) {
    return static_cast<double>(bytes) * (8.0 / clockHz + kReadOverhead / kLongRead);
}

double sectorSeconds(std::uint32_t clockHz) {
    const double pages = Planner({}, {}, nullptr, clockHz).pageSeconds() * kSector / kPageSize;
    return kUsualSectorErase + kEraseOverhead + pages;
}

ReadOrder readOrder(const FlashChip& chip, const Image& image) {
    std::vector<std::uint32_t> parts[2];
    const std::uint32_t windows = chip.size / kLongRead;
    for (std::uint32_t window = 0; window < windows; ++window) parts[isCovered(image, window)].push_back(window);
    if (windows <= kStride) return {{{0, chip.size - 1}}, 0};
    ReadOrder order;
    std::vector<bool> isSample(windows);
    for (const auto& part : parts) {
        const auto size = static_cast<std::uint32_t>(part.size());
        const std::uint32_t stride = std::clamp(size / kFewestSamples, 1U, kStride);
        // Not always the same one of so many: images have parts that begin at round addresses.
        for (std::uint32_t i = 0; i < size; i += stride) {
            const std::uint32_t shift = i / stride * 7 % std::min(stride, size - i);
            isSample[part[i + shift]] = true;
        }
    }
    for (const bool samples : {true, false}) {
        for (std::uint32_t window = 0; window < windows; ++window) {
            if (isSample[window] == samples) order.ranges.push_back(rangeOf(window));
        }
        if (samples) order.samples = static_cast<std::uint32_t>(order.ranges.size());
    }
    return order;
}

bool isFullShorter(const FlashChip& chip, const Image& image, const Image& read, std::uint32_t clockHz) {
    const auto size = static_cast<std::uint32_t>(std::min<std::uint64_t>(chip.size, kAddressable));
    bool differs = false;
    for (std::uint32_t page = 0; page < size / kPageSize && !differs; ++page)
        differs = read.page(page) != nullptr && !isEqual(pageOf(image, page), pageOf(read, page));
    const Planner planner(chip, image, &read, clockHz);
    return differs && planner.full().seconds < planner.secondsBySample();
}

FlashPlan planFull(const FlashChip& chip, const Image& image, std::uint32_t clockHz) {
    return Planner(chip, image, nullptr, clockHz).full();
}

FlashPlan planKeeping(const FlashChip& chip, const Image& image, const Image& before, std::uint32_t clockHz) {
    const Planner planner(chip, image, &before, clockHz);
    return planner.needsChipErase() ? planner.full() : planner.sectors();
}

FlashPlan planProgram(const FlashChip& chip, const Image& image, const Image& before, std::uint32_t clockHz) {
    FlashPlan sectors = planKeeping(chip, image, before, clockHz);
    if (sectors.way != ProgramWay::Sectors) return sectors;
    FlashPlan full = planFull(chip, image, clockHz);
    return full.seconds < sectors.seconds ? full : sectors;
}

}  // namespace tavo
