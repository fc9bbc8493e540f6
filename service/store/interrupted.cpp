// The run that was cut off: one small file per interface.

#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

#include "service/store/keep.h"
#include "service/store/place.h"
#include "tavo/service/files.h"
#include "tavo/service/history.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

namespace fs = std::filesystem;

constexpr const char* kEnding = ".run";

struct Record {
    std::string path;
    std::string serial;
    InterruptedRun run;
};

struct Field {
    const char* key;
    std::string& (*of)(Record&);
};
// In the order of the file. A record without its last line has not been written whole.
constexpr Field kFields[] = {
    {"path", [](Record& r) -> std::string& { return r.path; }},
    {"serial", [](Record& r) -> std::string& { return r.serial; }},
    {"started", [](Record& r) -> std::string& { return r.run.started; }},
    {"image", [](Record& r) -> std::string& { return r.run.image; }},
    {"sha256", [](Record& r) -> std::string& { return r.run.sha256; }},
    {"options", [](Record& r) -> std::string& { return r.run.options; }},
    {"kept", [](Record& r) -> std::string& { return r.run.kept; }},
    {"backup", [](Record& r) -> std::string& { return r.run.backup; }},
};

std::string fileName(const DeviceDescription& device, const std::string& begin, const std::string& ending) {
    if (isSimulated(device)) return begin + ending;
    return begin + "-" + safeName(device.path) + "-" + safeName(device.serial) + ending;
}
std::string fileName(const DeviceDescription& device) {
    return fileName(device, "interrupted", kEnding);
}

// A file name may hold a line feed.
std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\' || c == '\n') out += '\\';
        out += c == '\n' ? 'n' : c;
    }
    return out;
}

std::string unescaped(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool escape = text[i] == '\\' && i + 1 < text.size();
        if (escape) ++i;
        out += escape && text[i] == 'n' ? '\n' : text[i];
    }
    return out;
}

std::string textOf(Record record) {
    std::string text = "# A run that changed the flash of this interface and has not finished.\n";
    for (const Field& field : kFields) text += std::string(field.key) + "=" + escaped(field.of(record)) + "\n";
    return text;
}

/// Nothing for a text that is not whole.
std::optional<Record> parse(const std::string& text) {
    Record record;
    bool whole = false;
    for (std::size_t at = 0, end = 0; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
        const std::string line = text.substr(at, end - at);
        for (const Field& field : kFields) {
            const std::string start = std::string(field.key) + "=";
            if (line.rfind(start, 0) != 0) continue;
            field.of(record) = unescaped(line.substr(start.size()));
            whole = &field == std::prev(std::end(kFields));
        }
    }
    return whole ? std::optional(record) : std::nullopt;
}

std::optional<Record> load(const fs::path& file) {
    std::error_code error;
    if (!fs::is_regular_file(file, error)) return std::nullopt;
    std::ifstream in(file, std::ios::binary);
    return parse({std::istreambuf_iterator<char>(in), {}});
}

bool isSame(const DeviceDescription& device, const Record& record) {
    const bool bothKnown = !device.serial.empty() && !record.serial.empty();
    return bothKnown ? device.serial == record.serial : device.path == record.path;
}

/// The records of this interface; one that cannot be read is its own by its name only.
std::vector<std::pair<fs::path, InterruptedRun>> recordsOf(const DeviceDescription& device) {
    std::vector<std::pair<fs::path, InterruptedRun>> found;
    const bool simulated = isSimulated(device);
    for (const fs::path& folder : stateFolders(device)) {
        std::error_code error;  // a folder that cannot be read tells nothing
        for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
            const fs::path path = at->path();
            if (path.extension() != kEnding) continue;
            const auto record = load(path);
            // The folder of a simulated interface is its own, wherever it lay when the run began.
            const bool own = record && !simulated ? isSame(device, *record) : path.filename() == fileName(device);
            if (own) found.emplace_back(path, record ? record->run : InterruptedRun{});
        }
    }
    return found;
}

std::string now() {
    const std::time_t time = std::time(nullptr);
    std::tm local{};
    localtime_r(&time, &local);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S%z", &local);
    return text.data();
}

std::string absolute(const std::string& path) {
    std::error_code error;
    const fs::path full = path.empty() ? fs::path() : fs::absolute(path, error);
    return error ? path : full.lexically_normal().string();
}

}  // namespace

std::optional<InterruptedRun> interruptedRun(const DeviceDescription& device) {
    if (device.holder) return std::nullopt;  // a run that is still going on is remembered too
    const auto records = recordsOf(device);
    if (records.empty()) return std::nullopt;
    // The newest: local times of one zone sort as texts, and one that cannot be read comes first.
    return std::max_element(records.begin(), records.end(),
                            [](const auto& a, const auto& b) { return a.second.started < b.second.started; })
        ->second;
}

void rememberRun(const DeviceDescription& device, const InterruptedRun& run) {
    if (isInMemory(device)) return;
    const fs::path folder = madeStateFolder(device);
    Record record{device.path, device.serial, run};
    record.run.image = absolute(run.image);
    record.run.backup = absolute(run.backup);
    if (run.started.empty()) record.run.started = now();
    const std::string path = folder / fileName(device);
    const std::string text = textOf(record);
    NewFile file(path, true);
    writeAll(file.descriptor(), text.data(), text.size(), path);
    file.commit();
}

std::string newStateFile(const DeviceDescription& device, const std::string& begin, const std::string& ending) {
    if (isInMemory(device)) return {};
    const fs::path folder = madeStateFolder(device);
    const std::string stem = begin + "-" + safeName(now());
    std::error_code error;  // a name that cannot be looked at is found out when the file is written
    for (unsigned number = 0;; ++number) {
        const fs::path path =
            folder / fileName(device, stem + (number > 0 ? "-" + std::to_string(number) : ""), ending);
        if (!fs::exists(path, error)) return path.string();
    }
}

void forgetRun(const DeviceDescription& device) {
    for (const auto& [path, run] : recordsOf(device)) {
        std::error_code error;
        fs::remove(path, error);
        if (error) throw storeError("remove " + path.string(), error.value());
    }
}

namespace {

/// An image that was made in memory has no name, but a sum.
bool isOfErase(const InterruptedRun& run) {
    return run.image.empty() && run.sha256.empty();
}

}  // namespace

FlashState interruptedState(const InterruptedRun& run) {
    return run.started.empty() || isOfErase(run) ? FlashState::Uncertain : FlashState::Incomplete;
}

std::string interruptedText(const InterruptedRun& run) {
    if (run.started.empty())
        return "a run was interrupted (its record cannot be read): the image in the flash may be incomplete";
    const std::string since = " of " + run.started + " was interrupted: ";
    if (isOfErase(run)) return "the erase" + since + "the flash is erased or partly erased";
    const std::string sum = run.sha256.empty() ? "" : " (sha256 " + run.sha256 + ")";
    const std::string name = run.image.empty() ? "one from memory" : run.image;
    return "the run" + since + "the image is incomplete, " + name + sum + " was being programmed";
}

namespace {

/// For this user; what root keeps only root can read.
std::string restoreCommand(const std::string& backup) {
    return backup.rfind(kRootState, 0) == 0 && geteuid() != 0 ? "sudo tavo-util restore" : "tavo-util restore";
}

}  // namespace

std::string interruptedHint(const InterruptedRun& run) {
    const std::string again = "program it again: tavo-util program " + std::string(run.kept.empty() ? "" : "--keep ") +
                              shellWord(run.image) + (run.options.empty() ? "" : " " + run.options);
    if (!run.kept.empty() && !run.image.empty()) return again + "; what is to stay around it is taken from " + run.kept;
    if (isBackupName(run.backup)) return "put back what was there before: " + restoreCommand(run.backup);
    if (isBackupName(run.image))
        return "put it back again: tavo-util restore " + shellWord(fs::path(run.image).filename());
    if (!run.image.empty()) return run.backup.empty() ? again : again + "; what was there before is in " + run.backup;
    return run.backup.empty() ? "program an image"
                              : "program what was there before: tavo-util program " + shellWord(run.backup);
}

}  // namespace tavo
