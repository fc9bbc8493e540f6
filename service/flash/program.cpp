#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <optional>

#include "service/flash/program.h"

#include "service/flash/access.h"
#include "service/flash/chipBackup.h"
#include "service/flash/journal.h"
#include "service/flash/plan.h"
#include "service/flash/read.h"
#include "service/flash/sfdp.h"
#include "service/store/log.h"
#include "tavo/service/files.h"
#include "tavo/service/history.h"
#include "tavo/service/range.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr std::size_t kToldRetries = 8;
constexpr double kFixedSeconds = 1.7;  // the waits around a run

/// The option that keeps something; empty when nothing is kept.
std::string keepOption(const ProgramOptions& options) {
    if (options.range) return "--range " + rangeText(*options.range);
    return options.keep ? "--keep" : "";
}

void requireSense(const ProgramOptions& options) {
    const std::string opposite = options.ifDifferent ? "--if-different" : keepOption(options);
    if (!options.full || opposite.empty()) return;
    throw Error(Problem::BadArgument, "--full programs without looking: " + opposite + " says the opposite",
                "leave one of them out");
}

std::uint32_t clockHz(const ProgramOptions& options) {
    return static_cast<std::uint32_t>(options.clockHz.value_or(static_cast<int>(kUsualClockHz)));
}

/// What is to be programmed, and how.
struct Job {
    Job(const Image& whole, const ProgramOptions& asked) : options(asked), image(whole) {
        requireSense(options);
        requireClock(options.clockHz);
        if (!options.range) return;
        part = partOfImage(whole, *options.range, options.imageName, true);
        options.keep = true;
    }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    const Image& programmed() const { return part ? *part : image; }

    ProgramOptions options;
    const Image& image;
    std::optional<Image> part;
};

/// One run of programFlash.
class Programming {
public:
    Programming(Operation& op, const Image& image, const ProgramOptions& options, LoggedRun& log)
        : op_(op),
          image_(image),
          options_(options),
          log_(log),
          backup_(op.device, options.backup, !options.noBackup && (!options.full || !options.backup.empty()), image) {}

    ProgramResult run(const FlashDriver& driver, const FlashChip& chip) {
        FlashReader reader(op_, driver);
        result_.chip = chip;
        requireFits(op_, image_, chip, options_.imageName, options_.file);
        readSfdp(op_, driver, result_.chip);
        makePlan(reader);
        if (result_.upToDate) return result_;
        op_.throwIfCancelled();
        try {
            op_.guarded([&] {
                erase(driver);
                writeAndCompare(driver, reader);
            });
        } catch (Error& error) {
            if (op_.state.flash == FlashState::Unchanged && options_.keep && !isResumed_) forgetKept(op_);
            explain(error);
            throw;
        }
        return result_;
    }

private:
    void makePlan(FlashReader& reader);
    std::optional<Image> readForPlan(FlashReader& reader);
    void setTarget(const std::optional<Image>& before);
    FlashPlan planFrom(const std::optional<Image>& before) const;
    void finish();
    void erase(const FlashDriver& driver);
    TAVO_STATUS eraseByPlan(const FlashDriver& driver);
    void writeAndCompare(const FlashDriver& driver, FlashReader& reader);
    void writePages(const FlashDriver& driver, FlashReader& reader);
    bool compareAll(const FlashDriver& driver, FlashReader& reader);
    bool compareWindow(const FlashDriver& driver, FlashReader& reader, const AddressRange& window);
    void rewritePage(const FlashDriver& driver, std::uint32_t page, std::uint32_t at);
    AddressRange windowOf(std::uint32_t address) const;
    void writePage(const FlashDriver& driver, const PageWrite& write);
    [[noreturn]] void failPage(std::uint32_t address, unsigned attempts, const std::string& why) const;
    void tellRetries() const;
    void explain(Error& error) const;

    Operation& op_;
    const Image& image_;
    const ProgramOptions& options_;
    LoggedRun& log_;
    Image wanted_;            // what the chip is to hold; FF where it has no byte
    bool isResumed_ = false;  // what is to be kept was saved by a run that was cut off
    FlashPlan plan_;
    ChipBackup backup_;
    ProgramResult result_;
    std::map<std::uint32_t, unsigned> attempts_;  // by page
    std::vector<bool> isCompared_;                // by page: read by the comparison that is under way
    std::uint64_t compared_ = 0;                  // bytes
};

/// All of the chip; nothing when a part of it tells that the whole erase is the shorter way, and that there is
/// nothing to be kept: an image that nobody has a copy of is worth more than the seconds its reading takes.
std::optional<Image> Programming::readForPlan(FlashReader& reader) {
    const ReadOrder order = readOrder(result_.chip, image_);
    std::uint32_t read = 0;
    bool stopped = false;
    Image before = readRanges(op_, reader, order.ranges, Phase::Read, [&](const Image& known, const AddressRange&) {
        stopped = ++read == order.samples && isFullShorter(result_.chip, image_, known, clockHz(options_)) &&
                  (options_.noBackup || known.pagesWithData() == 0);
        return !stopped;
    });
    if (stopped) return std::nullopt;
    return before;
}

/// What is in the chip now, read once for the plan and for the backup.
void Programming::makePlan(FlashReader& reader) {
    // Without 24 address bits for all of it, nothing but the whole erase is known to do it.
    const bool full = options_.full || result_.chip.size > kAddressable;
    std::optional<Image> before;
    if (backup_.isWanted())
        before = readChip(op_, reader, result_.chip, Phase::Backup);
    else if (options_.keep)
        before = readChip(op_, reader, result_.chip, Phase::Read);
    else if (!full)
        before = readForPlan(reader);
    setTarget(before);
    plan_ = full ? planFull(result_.chip, wanted_, clockHz(options_)) : planFrom(before);
    result_.way = plan_.way;
    op_.step(std::string("plan: ") + programWayName(plan_.way) + ", " + std::to_string(plan_.erases.size()) +
             " blocks to erase, " + std::to_string(plan_.writes.size()) + " pages to write");
    result_.pagesBlank = image_.blankPages();
    result_.pagesKept = plan_.pagesKept;
    result_.upToDate = plan_.way == ProgramWay::Nothing;
    if (result_.upToDate) {
        op_.state.flash = FlashState::Unchanged;  // also when a run that was cut off just missed its end
        return finish();
    }
    if (before) {
        backup_.save(op_, *before, result_.chip.size);
        result_.backup = backup_.path();
        result_.backupSha256 = result_.backup.empty() ? "" : backup_.sha256();
    }
    if (!options_.keep || isResumed_) return;
    op_.throwIfCancelled();
    saveKept(op_, *before, options_.imageName, image_.identity(), backup_.remembered(), options_.imageOptions);
}

FlashPlan Programming::planFrom(const std::optional<Image>& before) const {
    if (!before) return planFull(result_.chip, wanted_, clockHz(options_));
    return options_.keep ? planKeeping(result_.chip, wanted_, *before, clockHz(options_))
                         : planProgram(result_.chip, wanted_, *before, clockHz(options_));
}

/// With what is to be kept: as the chip holds it, or as it did before a run that was cut off.
void Programming::setTarget(const std::optional<Image>& before) {
    wanted_ = image_;
    if (!options_.keep) return;
    const auto saved = savedKept(op_, result_.chip.size);
    isResumed_ = saved.has_value();
    if (!isResumed_ && op_.state.flash == FlashState::Incomplete)
        op_.warn("what a run that was cut off has left in the flash is kept around the image");
    wanted_ = isResumed_ ? *saved : *before;
    for (const AddressRange& range : image_.ranges()) {
        for (std::uint64_t at = range.first; at <= range.last; at = at / kPageSize * kPageSize + kPageSize) {
            const auto address = static_cast<std::uint32_t>(at);
            const std::uint32_t size = std::min(kPageSize - address % kPageSize, range.last - address + 1);
            wanted_.add(address, image_.page(address / kPageSize) + address % kPageSize, size);
        }
    }
}

/// The flash holds what it should.
void Programming::finish() {
    options_.keep ? forgetKept(op_) : forgetChange(op_);
}

void Programming::erase(const FlashDriver& driver) {
    const bool full = plan_.way == ProgramWay::Full;
    std::uint64_t bytes = 0;
    for (const BlockErase& each : plan_.erases) bytes += each.type.size;
    op_.begin(Phase::Erase, full ? usualEraseTime(result_.chip) : "", bytes);
    if (full) op_.stopNote(kEraseStopNote);
    const TAVO_STATUS status = op_.tryCall("program the flash", [&] {
        rememberChange(op_, options_.imageName, image_.identity(), backup_.remembered(), options_.imageOptions);
        log_.setBackup(backup_.remembered());
        log_.begin();
        return full ? eraseAll(op_, driver, result_.chip) : eraseByPlan(driver);
    });
    if (status != TAVO_SUCCESS) {
        op_.fail(statusError(status, Side::Bridge, "erase the flash of " + op_.device.name()));
    }
    op_.state.flash = full ? FlashState::Erased : FlashState::Incomplete;
    op_.end();
}

TAVO_STATUS Programming::eraseByPlan(const FlashDriver& driver) {
    op_.state.flash = FlashState::Uncertain;
    if (const auto status = driver.unprotect(); status != CY_SUCCESS) return cypressToTavo(status);
    std::uint64_t done = 0;
    for (const BlockErase& each : plan_.erases) {
        op_.throwIfCancelled();
        op_.state.flash = FlashState::Incomplete;
        const auto status = driver.eraseBlock(each.type, each.address);
        if (status != CY_SUCCESS) return cypressToTavo(status);
        ++result_.sectorsErased;
        op_.advance(done += each.type.size);
    }
    return TAVO_SUCCESS;
}

/// Everything is written, then everything compared: no write follows the last comparison and could spoil what
/// it saw, as one beyond the true end of a chip that tells a wrong size does.
void Programming::writeAndCompare(const FlashDriver& driver, FlashReader& reader) {
    op_.throwIfCancelled();
    writePages(driver, reader);
    while (!compareAll(driver, reader)) {
    }
    // Nothing but what was read back makes a success.
    if (isCompared_ != plan_.compared || compared_ == 0) {
        op_.fail(Error(Problem::Internal, "not every page was compared", "please report this, with the file"));
    }
    op_.state.flash = FlashState::Programmed;
    result_.pagesWritten = static_cast<std::uint32_t>(plan_.writes.size());
    finish();
    op_.end("every page was read back and compared");
    tellRetries();
}

void Programming::writePages(const FlashDriver& driver, FlashReader& reader) {
    op_.begin(Phase::Program, "", plan_.writes.size() * kPageSize);
    op_.state.flash = FlashState::Incomplete;
    if (const auto status = driver.waitUntilWritable(); status != CY_SUCCESS)
        op_.fail(statusError(cypressToTavo(status), Side::Bridge, "program the flash of " + op_.device.name()));
    isCompared_.assign(plan_.compared.size(), false);
    std::uint64_t written = 0;
    bool isTried = false;
    for (auto write = plan_.writes.begin(); write != plan_.writes.end(); ++write) {
        writePage(driver, *write);
        op_.advance(written += kPageSize);
        // A chip that takes nothing is told after one window, not after all of them.
        if (isTried || (write + 1 != plan_.writes.end() && windowOf(write[1].address).contains(write->address)))
            continue;
        while (!compareWindow(driver, reader, windowOf(write->address))) {
        }
        isTried = true;
    }
}

/// Compares every page that the plan names. False when one had to be written again: then all are compared anew.
bool Programming::compareAll(const FlashDriver& driver, FlashReader& reader) {
    const auto pages = std::count(plan_.compared.begin(), plan_.compared.end(), true);
    op_.begin(Phase::Verify, "", static_cast<std::uint64_t>(pages) * kPageSize);
    isCompared_.assign(plan_.compared.size(), false);
    compared_ = 0;
    bool isUntouched = true;
    for (std::uint32_t page = 0; page < plan_.compared.size(); ++page) {
        if (!plan_.compared[page] || isCompared_[page]) continue;
        isUntouched &= compareWindow(driver, reader, windowOf(page * kPageSize));
        op_.advance(compared_);
    }
    return isUntouched;
}

AddressRange Programming::windowOf(std::uint32_t address) const {
    const std::uint32_t first = address / kLongRead * kLongRead;
    return {first, first + kLongRead - 1};
}

/// Reads the pages of a window that are to be compared. One that was written and differs is written again, as
/// often as a page may need it; false then.
bool Programming::compareWindow(const FlashDriver& driver, FlashReader& reader, const AddressRange& window) {
    const std::uint32_t end =
        std::min<std::uint32_t>((window.last + 1) / kPageSize, static_cast<std::uint32_t>(plan_.compared.size()));
    std::uint32_t first = window.first / kPageSize;
    std::uint32_t last = end - 1;
    while (!plan_.compared[first]) ++first;
    while (!plan_.compared[last]) --last;
    std::array<std::uint8_t, kLongRead> found{};
    reader.read(first * kPageSize, found.data(), (last + 1 - first) * kPageSize);
    bool isUntouched = true;
    for (std::uint32_t page = first; page <= last; ++page) {
        if (!plan_.compared[page]) continue;
        isCompared_[page] = true;
        compared_ += kPageSize;
        const std::uint8_t* holds = &found[(page - first) * kPageSize];
        const std::uint8_t* wanted = pageOf(wanted_, page);
        if (std::memcmp(wanted, holds, kPageSize) == 0) continue;
        const auto at = static_cast<std::uint32_t>(std::mismatch(wanted, wanted + kPageSize, holds).first - wanted);
        rewritePage(driver, page, at);
        isUntouched = false;
    }
    return isUntouched;
}

/// A page that was compared and differs, first at byte `at` of it.
void Programming::rewritePage(const FlashDriver& driver, std::uint32_t page, std::uint32_t at) {
    const auto write = std::find_if(plan_.writes.begin(), plan_.writes.end(),
                                    [&](const PageWrite& each) { return each.address / kPageSize == page; });
    if (write == plan_.writes.end()) failPage(page * kPageSize + at, 0, "it does not hold what it should");
    if (attempts_[page] >= FlashDriver::kAttempts)
        failPage(write->address, attempts_[page], "it does not hold what was written");
    writePage(driver, *write);
}

void Programming::writePage(const FlashDriver& driver, const PageWrite& write) {
    op_.throwIfCancelled();
    unsigned& attempts = attempts_[write.address / kPageSize];
    const unsigned before = attempts;
    const PageOutcome page = driver.programPage(result_.chip, write.address, bytesOf(wanted_, write), write.size);
    attempts += page.attempts;
    if (attempts > 1) {
        if (before <= 1) result_.retries.push_back(write.address);
        op_.tell({.kind = Event::Kind::Retry, .phase = Phase::Program, .done = attempts - 1, .address = write.address});
    }
    if (page.status != CY_SUCCESS) failPage(write.address, attempts, tavoStatusString(cypressToTavo(page.status)));
}

void Programming::failPage(std::uint32_t address, unsigned attempts, const std::string& why) const {
    const std::string how = attempts > 0 ? std::to_string(attempts) + " attempts failed at " : "compared at ";
    Error error(Problem::DeviceFailed,
                "cannot program " + op_.device.name() + ": " + how + hexAddress(address) + ": " + why);
    error.status = TAVO_FLASH_PROGRAMMING_FAILED;
    op_.fail(error);
}

void Programming::tellRetries() const {
    if (result_.retries.empty()) return;
    std::string places;
    for (std::size_t i = 0; i < std::min(result_.retries.size(), kToldRetries); ++i) {
        places += (i == 0 ? "" : ", ") + hexAddress(result_.retries[i]);
    }
    if (result_.retries.size() > kToldRetries) places += " ...";
    op_.warn(countText(result_.retries.size(), "page") + " needed more than one attempt: " + places,
             "the flash may be wearing out, or its wiring is bad: program it again, and replace it if this stays");
}

/// The one command that puts it right.
void Programming::explain(Error& error) const {
    const auto run = interruptedRun(op_.device.description());
    if (run && op_.state.isFlashLost() && error.problem != Problem::Internal) error.hint = interruptedHint(*run);
    if (options_.keep && run && !run->kept.empty())
        error.details.push_back("what is to be kept is safe in " + run->kept + ": repeated with " +
                                keepOption(options_) + " it is taken from there");
    if (result_.backup.empty()) return;
    error.details.push_back("backup: " + result_.backup + ", sha256 " + result_.backupSha256);
}

}  // namespace

const char* programWayName(ProgramWay way) {
    constexpr const char* kNames[] = {"nothing", "sectors", "full"};
    return kNames[static_cast<std::size_t>(way)];
}

namespace {

std::uint32_t touchedSectors(const Image& image) {
    constexpr std::uint32_t kSectorPages = 4096 / kPageSize;
    std::uint32_t count = 0;
    for (std::uint32_t page = 0, next = 0; page < kAddressable / kPageSize; ++page) {
        if (page < next || image.page(page) == nullptr) continue;
        ++count;
        next = page / kSectorPages * kSectorPages + kSectorPages;
    }
    return count;
}

}  // namespace

ProgramForecast forecastProgram(const Image& whole, const ProgramOptions& asked) {
    const Job job(whole, asked);
    const Image& image = job.programmed();
    const ProgramOptions& options = job.options;
    openChipBackup(options.backup);  // told now, removed again
    constexpr std::uint32_t kSmallestChip = 64U << 10;
    const auto ranges = image.ranges();
    FlashChip chip;
    chip.size = std::max(kSmallestChip, ranges.empty() ? 0 : std::bit_ceil(ranges.back().last + 1));
    const std::uint32_t clock = clockHz(options);
    const FlashPlan plan = planFull(chip, image, clock);
    ProgramForecast forecast;
    if (!options.full) forecast.steps = {"read"};
    if (!options.backup.empty()) forecast.steps.emplace_back("backup");
    for (const char* step : {"erase", "program", "verify"}) forecast.steps.emplace_back(step);
    forecast.pagesWritten = static_cast<std::uint32_t>(plan.writes.size());
    forecast.pagesBlank = image.blankPages();
    forecast.chipSize = chip.size;
    forecast.seconds = plan.seconds + kFixedSeconds;
    forecast.leastSeconds = options.full ? forecast.seconds : readSeconds(chip.size, clock) + kFixedSeconds;
    forecast.sectorSeconds = options.full ? 0 : sectorSeconds(clock);
    if (options.keep) {
        forecast.seconds =
            forecast.leastSeconds + readSeconds(chip.size, clock) + touchedSectors(image) * forecast.sectorSeconds;
    }
    return forecast;
}

ProgramResult programFlash(Device& device, const Image& image, const ProgramOptions& options, const Control& control) {
    return programFlash(device, image, options, control, "program");
}

ProgramResult programFlash(Device& device, const Image& image, const ProgramOptions& options, const Control& control,
                           const char* action) {
    return operate(device, control, [&](Operation& op) {
        if (image.isEmpty()) throw Error(Problem::BadArgument, "the image is empty", "there is nothing to program");
        const Job job(image, options);
        const auto start = std::chrono::steady_clock::now();
        LoggedRun log(op, action, BackupKind::Flash);
        log.setImage(options.imageName);
        log.entry.sha256 = job.programmed().identity();
        Programming programming(op, job.programmed(), job.options, log);
        return logged(log, [&] {
            ProgramResult result = withFlash(
                op, kSettle, options.clockHz,
                [&](const FlashDriver& driver, const FlashChip& chip) { return programming.run(driver, chip); });
            log.end(result.upToDate ? "unchanged" : "done");
            if (!result.upToDate) waitForBoot(op);
            result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            result.state = op.state;
            return result;
        });
    });
}

}  // namespace tavo
