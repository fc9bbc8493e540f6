// What was done to an interface, as one page for the file of a job: HTML that needs no network and no script,
// readable on a telephone and on paper, light or dark as its reader has it.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tavo/export.h"
#include "tavo/service/device.h"
#include "tavo/service/files.h"
#include "tavo/service/flash.h"
#include "tavo/service/image.h"
#include "tavo/service/imageFile.h"
#include "tavo/service/watch.h"

namespace tavo {

/// One row of a table: "serial number", "00001234".
struct JobFact {
    std::string name;   ///< what it is called
    std::string value;  ///< of it
};

/// A phase of the work that has ended.
struct JobPhase {
    std::string name;     ///< what it is called
    std::string outcome;  ///< "done", "stopped"
    double seconds = 0;   ///< that it took
    std::string remark;   ///< about it; may be empty
};

/// A warning, or what ended the work.
struct JobMessage {
    bool isError = false;                   ///< else a warning
    std::string text;                       ///< without a final period
    std::string hint;                       ///< what to do next; may be empty
    std::vector<std::string> details = {};  ///< more about text, one below the other
};

/// How the work of a page ended.
enum class JobResult : std::uint8_t { Done, Differs, Failed };

/// Everything that a page tells; what is empty is left out. Texts may come from anywhere: they are escaped.
struct JobReport {
    std::string title;                     ///< "verify image.hex"
    std::string tool;                      ///< "tavo-util 1.2.0"
    JobResult result = JobResult::Failed;  ///< how it ended
    std::string summary;                   ///< the result in a line
    std::string state;                     ///< what is known of the device afterwards: DeviceState::text()
    std::chrono::system_clock::time_point started =
        std::chrono::system_clock::now();  ///< by the clock of this computer
    double seconds = 0;                    ///< that it took
    std::vector<JobMessage> messages;      ///< in their order
    std::vector<JobFact> device;           ///< facts of the interface
    std::vector<JobFact> image;            ///< facts of the file
    std::vector<JobFact> work;             ///< figures of the result: "pages written", "205"
    std::optional<ImageMap> map;           ///< of the chip
    std::optional<Comparison> comparison;  ///< of image and chip
    bool isComplete = true;                ///< of the comparison: everything was read
    std::vector<ImageFault> faults;        ///< of the file
    std::optional<StatusHistory> watch;    ///< what the counters did
    std::vector<JobPhase> phases;          ///< in their order
};

/// Serial number, port, product, Neuron ID; the chip when it is known.
TAVO_API std::vector<JobFact> deviceFacts(const DeviceDescription& device, const FlashChip* chip = nullptr);
/// Name, size, digests, extent. Takes a few milliseconds a MiB.
TAVO_API std::vector<JobFact> imageFacts(const std::string& name, const ImageFile& file);
/// What a programming did.
TAVO_API std::vector<JobFact> programFacts(const ProgramResult& done);

/// The result of a comparison in a line: "equal", "differs at 0x01A400: file 3C, flash FF (3 pages)".
TAVO_API std::string comparisonText(const Comparison& comparison, bool isComplete);
/// "0x01A400: file 3C, flash FF"
TAVO_API std::string differenceText(const Difference& difference);

/// The page: UTF-8, some 100 KB with a map.
TAVO_API std::string jobPage(const JobReport& report);

/// A page as a file, opened before the work begins: one that cannot be written is found out before anything is
/// touched. It appears when it is whole, and takes the place of an earlier page, but of no other file.
class TAVO_API JobPageFile {
public:
    /// Throws Error (FileSystem).
    explicit JobPageFile(const std::string& path);
    /// Throws Error (FileSystem). Once.
    void write(const JobReport& report);

private:
    std::string path_;
    NewFile file_;
};

}  // namespace tavo
