#include "service/flash/plan.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "service/flash/chip.h"

namespace tavo {
namespace {

constexpr double kClockHz = 900000;
// Write Enable, Page Program and a status: ten transfers or so on a full-speed bus of 1 ms frames.
constexpr double kPageOverhead = 0.005;
constexpr double kEraseOverhead = 0.008;
constexpr double kUsualPageProgram = 0.0007;
constexpr double kUsualSectorErase = 0.06;  // of a chip that tells no times
constexpr double kUsualBlockErase = 0.2;
constexpr std::uint32_t kSector = 4096;

constexpr auto kBlank = [] {
    std::array<std::uint8_t, kPageSize> page{};
    page.fill(0xFF);
    return page;
}();

bool isEqual(const std::uint8_t* a, const std::uint8_t* b) {
    return std::memcmp(a, b, kPageSize) == 0;
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
    Planner(const FlashChip& chip, const Image& image, const Image* before)
        : chip_(chip),
          image_(image),
          before_(before),
          pages_(std::max(chip.size / kPageSize, 1U)),
          pageSeconds_((kPageSize + 4) * 8 / kClockHz + kPageOverhead +
                       (chip.programTypical > 0 ? chip.programTypical : kUsualPageProgram) + readSeconds(kPageSize)) {}

    FlashPlan full() const;
    FlashPlan sectors() const;
    /// Nothing but erasing everything can do it.
    bool needsChipErase() const;

private:
    double blockCost(std::size_t level, std::uint32_t address, std::vector<BlockErase>& erases) const;
    double sectorCost(std::uint32_t address, std::vector<BlockErase>& erases) const;
    std::uint32_t pagesWithData(std::uint32_t first, std::uint32_t count) const;
    void addWrites(FlashPlan& plan, const std::vector<bool>& isErased) const;

    const FlashChip& chip_;
    const Image& image_;
    const Image* before_;
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

/// The smallest that can be erased: an erase if a bit is to be set, then what differs.
double Planner::sectorCost(std::uint32_t address, std::vector<BlockErase>& erases) const {
    const EraseType& type = chip_.eraseTypes.front();
    const std::uint32_t first = address / kPageSize;
    const std::uint32_t count = type.size / kPageSize;
    bool erase = false;
    std::uint32_t differing = 0;
    for (std::uint32_t page = first; page < first + count; ++page) {
        erase = erase || needsErase(pageOf(*before_, page), pageOf(image_, page));
        differing += !isEqual(pageOf(*before_, page), pageOf(image_, page));
    }
    if (!erase) return differing * pageSeconds_ + readSeconds((count - differing) * kPageSize);
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
    plan.seconds = usualErase(chip_) + static_cast<double>(plan.writes.size()) * pageSeconds_;
    return plan;
}

FlashPlan Planner::sectors() const {
    FlashPlan plan;
    plan.way = ProgramWay::Sectors;
    plan.compared.resize(pages_);
    for (std::uint32_t page = 0; page < pages_; ++page) plan.compared[page] = image_.page(page) != nullptr;
    std::vector<bool> isErased(pages_);
    if (!chip_.eraseTypes.empty()) {
        const std::size_t top = chip_.eraseTypes.size() - 1;
        for (std::uint32_t at = 0; at < chip_.size; at += chip_.eraseTypes[top].size)
            plan.seconds += blockCost(top, at, plan.erases);
    }
    for (const BlockErase& erase : plan.erases) {
        for (std::uint32_t i = 0; i < erase.type.size / kPageSize; ++i)
            isErased[erase.address / kPageSize + i] = plan.compared[erase.address / kPageSize + i] = true;
    }
    addWrites(plan, isErased);
    if (plan.erases.empty()) plan.seconds = static_cast<double>(plan.writes.size()) * pageSeconds_;
    if (plan.erases.empty() && plan.writes.empty()) plan.way = ProgramWay::Nothing;
    return plan;
}

}  // namespace

const std::uint8_t* pageOf(const Image& image, std::uint32_t index) {
    const std::uint8_t* page = image.page(index);
    return page != nullptr ? page : kBlank.data();
}

double readSeconds(std::uint64_t bytes) {
    return static_cast<double>(bytes) * 8 / kClockHz * 1.05;  // and the round trips
}

FlashPlan planFull(const FlashChip& chip, const Image& image) {
    return Planner(chip, image, nullptr).full();
}

FlashPlan planProgram(const FlashChip& chip, const Image& image, const Image& before) {
    const Planner planner(chip, image, &before);
    if (planner.needsChipErase()) return planner.full();
    FlashPlan sectors = planner.sectors();
    if (sectors.way == ProgramWay::Nothing) return sectors;
    FlashPlan full = planner.full();
    return full.seconds < sectors.seconds ? full : sectors;
}

}  // namespace tavo
