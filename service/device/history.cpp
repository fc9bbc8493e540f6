#include "tavo/service/history.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

#include "service/device/stateFolder.h"
#include "tavo/service/files.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

namespace fs = std::filesystem;

constexpr const char* kRootFolder = "/var/lib/tavo-util";
constexpr const char* kEnding = ".run";
constexpr const char* kSimulated = "sim:";
constexpr const char* kInMemory = "sim:memory";  // gone with its process, as its flash is

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

Error failure(const std::string& doing, int error) {
    return {Problem::FileSystem, "cannot " + doing + ": " + std::strerror(error),
            "check the folder's permissions and the space on the disk; XDG_STATE_HOME names another one"};
}

bool isSimulated(const DeviceDescription& device) {
    return device.path.rfind(kSimulated, 0) == 0;
}

/// Empty when there is none: an interface in memory, or no home.
fs::path ownFolder(const DeviceDescription& device) {
    if (device.path == kInMemory) return {};
    if (isSimulated(device)) return device.path.substr(std::strlen(kSimulated));
    const char* state = std::getenv("XDG_STATE_HOME");
    // A relative folder is to be ignored (XDG Base Directory Specification).
    if (state != nullptr && *state == '/') return fs::path(state) / "tavo-util";
    if (geteuid() == 0) return kRootFolder;
    const char* home = std::getenv("HOME");
    return home != nullptr && *home == '/' ? fs::path(home) / ".local/state/tavo-util" : fs::path();
}

std::vector<fs::path> folders(const DeviceDescription& device) {
    std::vector<fs::path> all;
    if (const fs::path own = ownFolder(device); !own.empty()) all.push_back(own);
    if (!isSimulated(device) && (all.empty() || all.front() != kRootFolder)) all.emplace_back(kRootFolder);
    return all;
}

std::string fileName(const DeviceDescription& device, const std::string& begin, const std::string& ending) {
    if (isSimulated(device)) return begin + ending;
    return begin + "-" + safeName(device.path) + "-" + safeName(device.serial) + ending;
}
std::string fileName(const DeviceDescription& device) {
    return fileName(device, "interrupted", kEnding);
}

/// Makes it, if it is not there yet.
fs::path existingFolder(const DeviceDescription& device) {
    const fs::path folder = ownFolder(device);
    if (folder.empty())
        throw failure("find the folder for the history (neither XDG_STATE_HOME nor HOME is set)", ENOENT);
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw failure("make the folder " + folder.string(), error.value());
    return folder;
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
    for (const fs::path& folder : folders(device)) {
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
    const auto records = recordsOf(device);
    if (records.empty()) return std::nullopt;
    // The newest: local times of one zone sort as texts, and one that cannot be read comes first.
    return std::max_element(records.begin(), records.end(),
                            [](const auto& a, const auto& b) { return a.second.started < b.second.started; })
        ->second;
}

void rememberRun(const DeviceDescription& device, const InterruptedRun& run) {
    if (device.path == kInMemory) return;
    const fs::path folder = existingFolder(device);
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
    if (device.path == kInMemory) return {};
    const fs::path folder = existingFolder(device);
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
        if (error) throw failure("remove " + path.string(), error.value());
    }
}

FlashState interruptedState(const InterruptedRun& run) {
    return run.started.empty() || run.image.empty() ? FlashState::Uncertain : FlashState::Incomplete;
}

std::string interruptedText(const InterruptedRun& run) {
    if (run.started.empty())
        return "a run was interrupted (its record cannot be read): the image in the flash may be incomplete";
    const std::string since = " of " + run.started + " was interrupted: ";
    if (run.image.empty()) return "the erase" + since + "the flash is erased or partly erased";
    const std::string sum = run.sha256.empty() ? "" : " (sha256 " + run.sha256 + ")";
    return "the run" + since + "the image is incomplete, " + run.image + sum + " was being programmed";
}

std::string interruptedHint(const InterruptedRun& run) {
    const std::string command = std::string("tavo-util program ") + (run.kept.empty() ? "" : "--keep ");
    std::string again = run.image.empty() ? "program an image" : "program it again: " + command + shellWord(run.image);
    if (!run.image.empty() && !run.options.empty()) again += " " + run.options;
    if (!run.kept.empty()) again += "; what is to stay around it is taken from " + run.kept;
    return run.backup.empty() ? again : again + "; what was there before is in " + run.backup;
}

}  // namespace tavo
