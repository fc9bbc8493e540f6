// The SPI flash: inspected, programmed, compared, read, erased.
#include "tavo/service/flash.h"

#include <iterator>
#include <limits>
#include <memory>

#include "service/c/image.h"
#include "tavo/service/range.h"

namespace tavo::c {
namespace {

static_assert(static_cast<int>(ProgramWay::Full) == TAVO_PROGRAM_FULL);

tavo_flash_chip chipOf(const FlashChip& chip) {
    tavo_flash_chip told{};
    told.maker = chip.maker;
    told.memory_type = chip.memoryType;
    told.capacity_code = chip.capacityCode;
    told.capacity = chip.size;
    put(told.text, chip.text());
    return told;
}

tavo_flash_description describe(const FlashChip& chip) {
    tavo_flash_description told{};
    told.has_sfdp = chip.hasSfdp;
    told.chip = chipOf(chip);
    told.program_typical = chip.programTypical;
    told.program_longest = chip.programLongest;
    told.erase_typical = chip.eraseTypical;
    told.erase_longest = chip.eraseLongest;
    for (const EraseType& type : chip.eraseTypes) {
        if (told.erase_type_count == std::size(told.erase_types)) break;
        told.erase_types[told.erase_type_count++] = {type.opcode, type.size, type.typical, type.longest};
    }
    put(told.sfdp_fault, chip.sfdpFault);
    put(told.usual_erase_time, usualEraseTime(chip));
    return told;
}

template <typename Options>
std::optional<AddressRange> rangeOf(const Options& options) {
    if (options.has_range == 0) return std::nullopt;
    const AddressRange range{options.range.first, options.range.last};
    if (range.first <= range.last && range.last < kAddressable) return range;
    throw Error(Problem::BadArgument, "the range " + rangeText(range) + " is none of a flash",
                "first and last address, below 0x1000000");
}

/// What all records of options for the flash have.
template <typename How, typename Options>
void takeRangeAndClock(How& how, const Options& options) {
    how.range = rangeOf(options);
    constexpr std::uint32_t kMost = std::numeric_limits<int>::max();
    if (options.clock_hz != 0) how.clockHz = static_cast<int>(std::min(options.clock_hz, kMost));
}

ReadFlashOptions optionsOf(const tavo_flash_options* options) {
    ReadFlashOptions how;
    takeRangeAndClock(how, taken(options, "options"));
    return how;
}

EraseOptions optionsOf(const tavo_erase_options* options) {
    const tavo_erase_options known = taken(options, "options");
    EraseOptions how;
    takeRangeAndClock(how, known);
    how.backup = textOf(known.backup);
    how.noBackup = known.no_backup != 0;
    return how;
}

ProgramOptions optionsOf(const tavo_program_options* options, const tavo_image* image) {
    const tavo_program_options known = taken(options, "options");
    ProgramOptions how;
    how.full = known.full != 0;
    how.keep = known.keep != 0;
    takeRangeAndClock(how, known);
    how.backup = textOf(known.backup);
    how.noBackup = known.no_backup != 0;
    how.imageName = known.image_name != nullptr ? known.image_name : given(image, "image").name;
    how.file = given(image, "image").origin();
    return how;
}

tavo_program_result resultOf(const ProgramResult& done) {
    tavo_program_result told{};
    told.way = static_cast<std::uint32_t>(done.way);
    told.chip = chipOf(done.chip);
    told.state = stateOf(done.state);
    told.sectors_erased = done.sectorsErased;
    told.pages_written = done.pagesWritten;
    told.pages_kept = done.pagesKept;
    told.pages_blank = done.pagesBlank;
    told.retry_count = static_cast<std::uint32_t>(done.retries.size());
    std::copy_n(done.retries.begin(), std::min(done.retries.size(), std::size(told.retries)), told.retries);
    told.seconds = done.seconds;
    put(told.backup_sha256, done.backupSha256);
    put(told.backup, done.backup);
    return told;
}

tavo_difference differenceOf(const Difference& difference) {
    return {{difference.range.first, difference.range.last},
            difference.bytes,
            difference.wanted ? *difference.wanted : -1,
            difference.found};
}

tavo_verify_result resultOf(const VerifyResult& done) {
    const auto& differences = done.comparison.differences;
    tavo_verify_result told{};
    told.equal = done.comparison.equal();
    told.chip = chipOf(done.chip);
    told.state = stateOf(done.state);
    told.bytes = done.comparison.bytes;
    told.pages = done.comparison.pages;
    told.is_complete = done.isComplete;
    told.difference_count = static_cast<std::uint32_t>(differences.size());
    const std::size_t listed = std::min(differences.size(), std::size(told.differences));
    std::transform(differences.begin(), differences.begin() + listed, told.differences, differenceOf);
    return told;
}

tavo_blank_check_result resultOf(const BlankCheckResult& done) {
    tavo_blank_check_result told{};
    told.blank = done.blank;
    told.chip = chipOf(done.chip);
    told.state = stateOf(done.state);
    told.first = done.first ? std::int64_t{*done.first} : -1;
    told.pages = done.pages;
    told.is_complete = done.isComplete;
    return told;
}

tavo_flash_result resultOf(const FlashChip& chip, const DeviceState& state, double seconds) {
    tavo_flash_result told{};
    told.chip = chipOf(chip);
    told.state = stateOf(state);
    told.seconds = seconds;
    return told;
}

}  // namespace
}  // namespace tavo::c

using namespace tavo::c;
using tavo::Control;
using tavo::Device;

tavo_result tavo_inspect_flash(tavo_device* device, const tavo_control* control, tavo_flash_description* description,
                               tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        const Out out(description, "description");
        out.fill(describe(tavo::inspectFlash(own, watch)));
    });
}

tavo_result tavo_forecast_program(const tavo_image* image, const tavo_program_options* options,
                                  tavo_program_forecast* forecast, tavo_error* error) {
    return guarded(error, [&] {
        const Out out(forecast, "forecast");
        const tavo::ProgramForecast found = tavo::forecastProgram(imageOf(image), optionsOf(options, image));
        tavo_program_forecast told{};
        told.pages_written = found.pagesWritten;
        told.pages_blank = found.pagesBlank;
        told.chip_size = found.chipSize;
        told.full_seconds = found.seconds;
        told.least_seconds = found.leastSeconds;
        told.sector_seconds = found.sectorSeconds;
        std::string steps;
        for (const auto& step : found.steps) steps += (steps.empty() ? "" : " ") + step;
        put(told.steps, steps);
        out.fill(told);
    });
}

tavo_result tavo_program_flash(tavo_device* device, const tavo_image* image, const tavo_program_options* options,
                               const tavo_control* control, tavo_program_result* result, tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        const Out out(result, "result");
        out.fill(resultOf(tavo::programFlash(own, imageOf(image), optionsOf(options, image), watch)));
    });
}

tavo_result tavo_verify_flash(tavo_device* device, const tavo_image* image, const tavo_verify_options* options,
                              const tavo_control* control, tavo_verify_result* result, tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        const Out out(result, "result");
        const tavo_verify_options known = taken(options, "options");
        tavo::VerifyOptions how;
        how.restBlank = known.rest_blank != 0;
        how.every = known.every != 0;
        takeRangeAndClock(how, known);
        how.file = given(image, "image").origin();
        how.imageName = image->name;
        out.fill(resultOf(tavo::verifyFlash(own, image->file.image, how, watch)));
    });
}

tavo_result tavo_read_flash(tavo_device* device, const tavo_flash_options* options, const tavo_control* control,
                            tavo_image** contents, tavo_flash_result* result, tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        tavo_image*& place = emptied(contents, "contents");
        const Out out(result, "result");
        const tavo::ReadFlashOptions how = optionsOf(options);
        auto image = std::make_unique<tavo_image>();
        tavo::ReadFlashResult read = tavo::readFlash(own, how, watch);
        image->file.image = std::move(read.contents);
        out.fill(resultOf(read.chip, read.state, 0));
        place = image.release();
    });
}

tavo_result tavo_dump_flash(tavo_device* device, const tavo_flash_options* options, const char* path,
                            const tavo_write_options* form, const tavo_control* control, tavo_flash_result* result,
                            tavo_written_file* written, tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        const Out out(result, "result");
        const Out outOfFile(written, "written");
        const tavo::ReadFlashOptions how = optionsOf(options);
        ImageWriter file(path, form, how.range ? how.range->first : 0);
        const tavo::ReadFlashResult read = tavo::readFlash(own, how, watch);
        outOfFile.fill(file.write(read.contents));
        out.fill(resultOf(read.chip, read.state, 0));
    });
}

tavo_result tavo_erase_flash(tavo_device* device, const tavo_erase_options* options, const tavo_control* control,
                             tavo_flash_result* result, tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        const Out out(result, "result");
        const tavo::EraseOptions how = optionsOf(options);
        const tavo::EraseResult done = tavo::eraseFlash(own, how, watch);
        tavo_flash_result told = resultOf(done.chip, done.state, done.seconds);
        told.sectors_erased = done.sectorsErased;
        put(told.backup, done.backup);
        out.fill(told);
    });
}

tavo_result tavo_blank_check_flash(tavo_device* device, const tavo_blank_check_options* options,
                                   const tavo_control* control, tavo_blank_check_result* result, tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        const Out out(result, "result");
        tavo::BlankCheckOptions how;
        const tavo_blank_check_options known = taken(options, "options");
        how.every = known.every != 0;
        takeRangeAndClock(how, known);
        out.fill(resultOf(tavo::blankCheckFlash(own, how, watch)));
    });
}
