#include <chrono>
#include <memory>

#include "service/flash/access.h"
#include "service/flash/journal.h"
#include "service/flash/plan.h"
#include "service/flash/read.h"
#include "tavo/service/files.h"
#include "tavo/service/history.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr const char* kOtherName = "choose another name: a backup is never overwritten";
constexpr const char* kProgramAgain = "program the image again before the interface is used";
constexpr std::size_t kToldRetries = 8;

/// The file of the backup: opened before the device is touched, so that one that cannot be written does not
/// cost the Neuron a restart.
std::unique_ptr<NewFile> openBackup(const ProgramOptions& options) {
    if (options.backup.empty()) return nullptr;
    dumpFormat(options.backup);
    return std::make_unique<NewFile>(options.backup, false, kOtherName);
}

/// One run of programFlash.
class Programming {
public:
    Programming(Operation& op, const Image& image, const ProgramOptions& options)
        : op_(op), image_(image), options_(options), plan_(makePlan(image)), backup_(openBackup(options)) {}

    ProgramResult run(const FlashDriver& driver, const FlashChip& chip) {
        result_.chip = chip;
        result_.pagesBlank = plan_.pagesBlank;
        requireFits(op_, image_, chip, options_.imageName, options_.file);
        if (!lookBefore(driver)) return result_;
        op_.throwIfCancelled();
        try {
            erase(driver);
            writePages(driver);
        } catch (Error& error) {
            explain(error);
            throw;
        }
        return result_;
    }

private:
    bool lookBefore(const FlashDriver& driver);
    void keep(const Image& contents);
    void erase(const FlashDriver& driver);
    void writePages(const FlashDriver& driver);
    void writePage(const FlashDriver& driver, const PageWrite& write);
    void requireAllCompared() const;
    void tellRetries() const;
    void explain(Error& error) const;

    Operation& op_;
    const Image& image_;
    const ProgramOptions& options_;
    const FlashPlan plan_;
    std::unique_ptr<NewFile> backup_;
    ProgramResult result_;
    std::uint64_t compared_ = 0;  // bytes that were read back equal
};

/// What is in the chip now, as far as the options want to know: read once for both of them.
/// False when the image is there already.
bool Programming::lookBefore(const FlashDriver& driver) {
    if (!backup_ && !options_.ifDifferent) return true;
    FlashReader reader(op_, driver);
    const Image contents = readChip(op_, reader, result_.chip, backup_ ? Phase::Backup : Phase::Read);
    result_.upToDate = options_.ifDifferent && compare(image_, contents, result_.chip.size, true).equal();
    if (result_.upToDate) {
        op_.state.flash = FlashState::Unchanged;  // also when a run that was cut off just missed its end
        forgetChange(op_);
        return false;
    }
    if (backup_) keep(contents);
    return true;
}

void Programming::keep(const Image& contents) {
    const Format format = dumpFormat(options_.backup);
    WriteOptions how;
    how.format = format;
    writeImage(contents, backup_->descriptor(), options_.backup, how);
    ReadOptions asWritten;
    asWritten.format = format;
    const ImageFile written = checkImage(backup_->temporaryPath(), asWritten);
    if (!written.isGood() || written.image != contents) {
        op_.fail(Error(Problem::FileSystem, options_.backup + " cannot be read back as it was written",
                       "is the disk sound? Try another folder"));
    }
    backup_->commit();
    result_.backup = options_.backup;
    result_.backupSha256 = contents.identity();
    if (op_.state.flash != FlashState::Incomplete) return;
    const auto before = interruptedRun(op_.device.description());
    op_.warn("this backup holds what a run that was cut off has left in the flash",
             before ? interruptedHint(*before) : "");
}

void Programming::erase(const FlashDriver& driver) {
    op_.begin(Phase::Erase, usualEraseTime(result_.chip.size));
    op_.stopNote(kEraseStopNote);
    const TAVO_STATUS status = op_.tryCall("program the flash", [&] {
        rememberChange(op_, options_.imageName, image_.identity(), result_.backup);
        return eraseAll(op_, driver, result_.chip);
    });
    if (status != TAVO_SUCCESS) {
        op_.fail(statusError(status, Side::Bridge, "erase the flash of " + op_.device.name()));
    }
    op_.state.flash = FlashState::Erased;
    op_.end();
}

void Programming::writePages(const FlashDriver& driver) {
    op_.throwIfCancelled();
    op_.begin(Phase::Program, "", plan_.bytes);
    op_.state.flash = FlashState::Incomplete;
    for (const PageWrite& write : plan_.writes) {
        op_.throwIfCancelled();
        writePage(driver, write);
        op_.advance(compared_);
    }
    op_.end();
    requireAllCompared();
    op_.begin(Phase::Verify);
    op_.state.flash = FlashState::Programmed;
    result_.pagesWritten = plan_.pagesWritten;
    forgetChange(op_);
    op_.end("every page was read back and compared right after it was programmed");
    tellRetries();
}

void Programming::writePage(const FlashDriver& driver, const PageWrite& write) {
    const PageOutcome page = driver.programPage(write.address, bytesOf(image_, write), write.size);
    if (page.attempts > 1) {
        result_.retries.push_back(write.address);
        op_.tell(
            {.kind = Event::Kind::Retry, .phase = Phase::Program, .done = page.attempts - 1, .address = write.address});
    }
    if (page.status == CY_SUCCESS) {
        compared_ += write.size;
        return;
    }
    const std::string why = page.status == CY_ERROR_DOWNLOAD_FAILED ? "it does not hold what was written"
                                                                    : tavoStatusString(cypressToTavo(page.status));
    Error error(Problem::DeviceFailed, "cannot program " + op_.device.name() + ": " + std::to_string(page.attempts) +
                                           " attempts failed at " + hexAddress(write.address) + ": " + why);
    error.status = TAVO_FLASH_PROGRAMMING_FAILED;
    op_.fail(error);
}

/// Nothing but the count of what was read back makes a success.
void Programming::requireAllCompared() const {
    if (compared_ == plan_.bytes && (plan_.bytes > 0) == (plan_.pagesWritten > 0)) return;
    op_.fail(Error(Problem::Internal,
                   "of " + std::to_string(plan_.bytes) + " bytes only " + std::to_string(compared_) + " were compared",
                   "please report this, with the file"));
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

void Programming::explain(Error& error) const {
    if (error.problem != Problem::Interrupted && error.problem != Problem::Internal) error.hint = kProgramAgain;
    if (result_.backup.empty()) return;
    error.hint += "; what was in the flash before is in " + result_.backup;
    error.details.push_back("backup: " + result_.backup + ", sha256 " + result_.backupSha256);
}

}  // namespace

ProgramForecast forecastProgram(const Image& image, const ProgramOptions& options) {
    openBackup(options);
    const FlashPlan plan = makePlan(image);
    ProgramForecast forecast;
    if (options.ifDifferent) forecast.steps = {"compare"};
    if (!options.backup.empty()) forecast.steps.emplace_back("backup");
    for (const char* step : {"erase", "program", "verify"}) forecast.steps.emplace_back(step);
    forecast.pagesWritten = plan.pagesWritten;
    forecast.pagesBlank = plan.pagesBlank;
    forecast.seconds = estimate(plan);
    return forecast;
}

ProgramResult programFlash(Device& device, const Image& image, const ProgramOptions& options, const Control& control) {
    if (image.isEmpty()) throw Error(Problem::BadArgument, "the image is empty", "there is nothing to program");
    const auto start = std::chrono::steady_clock::now();
    Operation op(device, control);
    Programming programming(op, image, options);
    ProgramResult result = withFlash(
        op, kSettle, [&](const FlashDriver& driver, const FlashChip& chip) { return programming.run(driver, chip); });
    if (!result.upToDate) waitForBoot(op);
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    result.state = op.state;
    return result;
}

}  // namespace tavo
