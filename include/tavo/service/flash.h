// The SPI flash that holds the Neuron's firmware: looked at, programmed, compared, read, erased.
//
// Each operation makes SCB0 an SPI master, holds the Neuron in reset, does its work, gives both back and
// looks whether they are: success is only told of an interface that was seen to be let go. The Neuron
// starts anew. Cancelled, they end at the next page or chunk; a chip erase is waited for.
//
// All of them throw Error; its state tells what the flash holds then.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tavo/export.h"
#include "tavo/service/device.h"
#include "tavo/service/image.h"
#include "tavo/service/imageFile.h"

namespace tavo {

/// One way to erase a part of a chip.
struct EraseType {
    std::uint8_t opcode = 0;  ///< the command byte
    std::uint32_t size = 0;   ///< bytes
    double typical = 0;       ///< seconds; 0: not told
    double longest = 0;       ///< seconds
};

/// What a flash chip tells of itself.
struct TAVO_API FlashChip {
    std::uint8_t maker = 0;         ///< JEDEC manufacturer ID
    std::uint8_t memoryType = 0;    ///< second byte of the JEDEC ID
    std::uint8_t capacityCode = 0;  ///< third byte of the JEDEC ID
    std::uint32_t size = 0;         ///< bytes

    // Of its own description (SFDP, JEDEC JESD216), if it has one that makes sense. Times in seconds; 0: not told.
    bool hasSfdp = false;               ///< it has a description that makes sense
    std::string sfdpFault;              ///< why the one that it has is not used
    std::vector<EraseType> eraseTypes;  ///< smallest first
    double programTypical = 0;          ///< of a page
    double programLongest = 0;          ///< of a page
    double eraseTypical = 0;            ///< of the whole chip
    double eraseLongest = 0;            ///< of the whole chip

    std::string makerName() const;  ///< "Winbond"; empty when unknown
    std::string idText() const;     ///< "EF 40 14"
    std::string text() const;       ///< "Winbond, ID EF 40 14, 1 MiB"
};

/// How long a whole-chip erase takes, as the chip tells it, else from data sheets: "usually 2 to 12 s".
TAVO_API std::string usualEraseTime(const FlashChip& chip);

/// Reads the chip's ID and description. Blocks for some 0.1 s.
TAVO_API FlashChip inspectFlash(Device& device, const Control& control = {});

/// How an image is programmed.
struct ProgramOptions {
    /// Erases the whole chip and programs every page, whatever it holds. Not with ifDifferent.
    bool full = false;
    /// Nothing is written when the chip holds just this image: as it always is without full.
    bool ifDifferent = false;
    /// What the image does not cover stays as it is in the chip, not FF. All of the chip is first put into a private
    /// file in the folder of the history, from which the next run takes it, should this one be cut off; a success
    /// removes it. Not with full.
    bool keep = false;
    /// Programs only what the image has in this range; implies keep.
    std::optional<AddressRange> range = {};
    /// Hz, 900,000 (as without) to 3,000,000. ID and first page are read at both clocks before anything else; a
    /// difference is a failure.
    std::optional<int> clockHz = {};
    /// Saves the whole flash under this name before the erase; the ending tells the format (.hex, .srec,
    /// .bin). Must not exist yet. Empty: no backup.
    std::string backup = {};
    /// Keeps nothing among the backups of the interface (backups.h). Otherwise what was in the chip is kept there,
    /// unless it looks blank or full is given without a backup: then it is not read to its end.
    bool noBackup = false;
    /// For messages, and for what this host remembers of a run that is cut off.
    std::string imageName = {};
    /// What the command line that programs it again has beside the name: "--format bin --range 0x010000-0x01FFFF".
    std::string imageOptions = {};
    /// Where the image was read from, if anywhere; borrowed. Names the line of data above the chip.
    const ImageFile* file = nullptr;
};

/// How the image gets into the chip.
enum class ProgramWay : std::uint8_t {
    Nothing,  ///< it is there already
    Sectors,  ///< only sectors that must lose a bit are erased, only pages that differ are programmed
    Full,     ///< the whole chip is erased
};
TAVO_API const char* programWayName(ProgramWay way);  ///< "nothing", "sectors", "full"

/// What programFlash is going to do, as far as it is known without the device.
struct ProgramForecast {
    std::vector<std::string> steps;  ///< "read", "backup", "erase", "program", "verify"
    std::uint32_t pagesWritten = 0;  ///< at most: fewer when some are there already
    std::uint32_t pagesBlank = 0;    ///< pages of FF: the erase leaves them so
    // Of the run on a full-speed bus, by typical times, waits and reading before included.
    std::uint32_t chipSize = 0;  ///< that the times are for, in bytes: the smallest usual chip that holds the image
    double seconds = 0;          ///< erasing the whole chip, with keep all sectors of the image, and programming all
    double leastSeconds = 0;     ///< when the image is there already
    double sectorSeconds = 0;    ///< more than that, for each 4 KiB that must be erased and programmed
};

/// Throws what programFlash would throw before it touches the device; leaves no file behind.
TAVO_API ProgramForecast forecastProgram(const Image& image, const ProgramOptions& options = {});

/// What a programming did.
struct ProgramResult {
    FlashChip chip;                        ///< that was found
    bool upToDate = false;                 ///< the image was there already: nothing was erased or written
    ProgramWay way = ProgramWay::Nothing;  ///< that was taken
    std::uint32_t sectorsErased = 0;       ///< blocks of whatever size; the whole chip is none
    std::uint32_t pagesWritten = 0;        ///< by this run
    std::uint32_t pagesKept = 0;           ///< held their data already
    std::uint32_t pagesBlank = 0;          ///< of FF: the erase left them so
    std::vector<std::uint32_t> retries;    ///< addresses of pages that needed another attempt: a chip that wears out
    std::string backup;                    ///< file of what was there before: as in the options, else among the backups
    std::string backupSha256;              ///< of the bytes of the chip
    double seconds = 0;                    ///< that it took
    DeviceState state;                     ///< of the device, afterwards
};

/// Brings the image into the chip, FF elsewhere (but see ProgramOptions::keep), by the shorter way: reads what is
/// there, then erases the whole chip or the sectors that must lose a bit, and programs what differs. Every page of the
/// image is compared with the chip: one that was written after its last write, the others after the last of all. Cut
/// off at any point, the next run finishes it. Blocks for reading the chip (9 ms a KiB; a sixteenth of it when all of
/// that differs), the erase, about 7.3 ms a page, and 1.6 s of waits. Throws Error also when the chip is too small, or
/// the backup cannot be written: nothing is erased then.
TAVO_API ProgramResult programFlash(Device& device, const Image& image, const ProgramOptions& options = {},
                                    const Control& control = {});

/// How flash and image are compared.
struct VerifyOptions {
    bool restBlank = false;                  ///< what the image does not cover must be FF; the whole chip is read then
    bool every = false;                      ///< finds every difference, instead of stopping after the first
    bool whole = false;                      ///< reads the whole chip, also what the image does not cover
    const ImageFile* file = nullptr;         ///< borrowed; see ProgramOptions
    std::string imageName = {};              ///< for messages
    std::optional<AddressRange> range = {};  ///< of image and chip only this part is compared
    std::optional<int> clockHz = {};         ///< see ProgramOptions
};

/// How flash and image compare.
struct VerifyResult {
    FlashChip chip;           ///< that was found
    Comparison comparison;    ///< of what was read
    Image contents;           ///< what was read
    bool isComplete = false;  ///< everything was; else a difference ended it, and more may follow
    DeviceState state;        ///< of the device, afterwards
};

/// Reads what the image covers (37 ms for each 4096 bytes, and 1.6 s of waits) and compares it.
TAVO_API VerifyResult verifyFlash(Device& device, const Image& image, const VerifyOptions& options = {},
                                  const Control& control = {});

/// What is read.
struct ReadFlashOptions {
    std::optional<AddressRange> range = {};  ///< none: the whole chip
    std::optional<int> clockHz = {};         ///< see ProgramOptions
};

/// What was read.
struct ReadFlashResult {
    FlashChip chip;     ///< that was found
    Image contents;     ///< every byte of the range
    DeviceState state;  ///< of the device, afterwards
};

/// How a dump under that name is written: by its ending, else Intel HEX. Throws Error (BadArgument) for an
/// ending of something that a dump is not.
TAVO_API Format dumpFormat(const std::string& path);

/// Reads the chip or a part of it. Times as verifyFlash.
TAVO_API ReadFlashResult readFlash(Device& device, const ReadFlashOptions& options, const Control& control = {});
/// Reads the whole chip.
inline ReadFlashResult readFlash(Device& device, const Control& control = {}) {
    return readFlash(device, ReadFlashOptions{}, control);
}

/// What is erased.
struct EraseOptions {
    /// None: the whole chip. Its borders are multiples of the chip's smallest sector, 4 KiB for one that tells nothing.
    std::optional<AddressRange> range = {};
    std::optional<int> clockHz = {};  ///< see ProgramOptions
    std::string backup = {};          ///< reads all of the chip first and saves it; see ProgramOptions
    bool noBackup = false;            ///< the same
};

/// What was erased.
struct EraseResult {
    FlashChip chip;                   ///< that was found
    std::uint32_t sectorsErased = 0;  ///< blocks of whatever size; the whole chip is none
    std::string backup;               ///< file of what was there before; empty: it was not read
    double seconds = 0;               ///< that it took
    DeviceState state;                ///< of the device, afterwards
};

/// Erases the whole chip (seconds to minutes), or a part of it by sectors; the part is read afterwards, and so is what
/// lies around it, before and after. Throws Error (BadArgument) for a range off the borders, naming the nearest ones
/// that are on them: nothing is erased then.
TAVO_API EraseResult eraseFlash(Device& device, const EraseOptions& options, const Control& control = {});
/// Erases the whole chip.
inline EraseResult eraseFlash(Device& device, const Control& control = {}) {
    return eraseFlash(device, EraseOptions{}, control);
}

/// How far a blank check goes.
struct BlankCheckOptions {
    bool every = false;                      ///< counts every page with data, instead of stopping after the first
    std::optional<AddressRange> range = {};  ///< none: the whole chip
    std::optional<int> clockHz = {};         ///< see ProgramOptions
};

/// What a blank check found.
struct BlankCheckResult {
    FlashChip chip;                      ///< that was found
    bool blank = false;                  ///< nothing but FF was found
    std::optional<std::uint32_t> first;  ///< address of the first byte that is not FF
    std::uint32_t pages = 0;             ///< with such a byte, in what was read
    Image contents;                      ///< what was read
    bool isComplete = false;             ///< the whole chip or range was read
    DeviceState state;                   ///< of the device, afterwards
};

/// Reads the chip up to the first byte that is not FF. Times as verifyFlash.
TAVO_API BlankCheckResult blankCheckFlash(Device& device, const BlankCheckOptions& options = {},
                                          const Control& control = {});

}  // namespace tavo
