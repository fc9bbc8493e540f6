#include "service/store/log.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>

#include "service/store/place.h"
#include "sim/preload.h"
#include "tavo/service/files.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr const char* kName = "history.jsonl";
constexpr mode_t kPrivate = 0600;
constexpr const char* kUtcForm = "%Y-%m-%dT%H:%M:%SZ";

struct Field {
    const char* key;
    std::string HistoryEntry::*of;
};
// In the order of a line; empty ones are left out.
constexpr Field kFields[] = {{"time", &HistoryEntry::time},
                             {"action", &HistoryEntry::action},
                             {"part", &HistoryEntry::part},
                             {"result", &HistoryEntry::result},
                             {"serial", &HistoryEntry::serial},
                             {"path", &HistoryEntry::path},
                             {"neuron_id", &HistoryEntry::neuronId},
                             {"image", &HistoryEntry::image},
                             {"sha256", &HistoryEntry::sha256},
                             {"serial_after", &HistoryEntry::serialAfter},
                             {"backup", &HistoryEntry::backup},
                             {"state", &HistoryEntry::state},
                             {"error", &HistoryEntry::error},
                             {"tool", &HistoryEntry::tool},
                             {"run", &HistoryEntry::run}};

std::string lineOf(const HistoryEntry& entry) {
    Json json = Json::object();
    for (const Field& field : kFields) {
        if (!(entry.*field.of).empty()) json[field.key] = entry.*field.of;
    }
    if (entry.seconds > 0) json["seconds"] = entry.seconds;
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::optional<HistoryEntry> entryOf(const std::string& line) {
    const Json json = Json::parse(line, nullptr, false);
    if (!json.is_object()) return std::nullopt;
    HistoryEntry entry;
    for (const Field& field : kFields) {
        const auto found = json.find(field.key);
        if (found != json.end() && found->is_string()) entry.*field.of = found->get<std::string>();
    }
    const auto seconds = json.find("seconds");
    if (seconds != json.end() && seconds->is_number()) entry.seconds = seconds->get<double>();
    return entry;
}

/// One write, so that lines of two processes do not mix. A line that was cut off is ended first: it must not
/// take this one with it.
void appendLine(const fs::path& path, const std::string& line) {
    const Descriptor file(open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kPrivate));
    if (file.get() < 0) throw storeError("write " + path.string(), errno);
    // While another process writes, the end of its line may not be there yet. Where there are no locks, an empty line
    // is the worst that comes of it.
    flock(file.get(), LOCK_EX);
    char last = '\n';
    const auto size = sizeOf(file);
    const bool isTorn = size > 0 && pread(file.get(), &last, 1, static_cast<off_t>(size - 1)) == 1 && last != '\n';
    const std::string text = isTorn ? "\n" + line : line;
    const ssize_t written = write(file.get(), text.data(), text.size());
    if (written < 0) throw storeError("write " + path.string(), errno);
    if (static_cast<std::size_t>(written) != text.size()) throw storeError("write " + path.string(), ENOSPC);
    if (fdatasync(file.get()) != 0) throw storeError("write " + path.string(), errno);
}

std::string contentOf(const fs::path& path) {
    const Descriptor file = openForReading(path);
    flock(file.get(), LOCK_SH);
    std::string text(sizeOf(file), '\0');
    text.resize(readSome(file.get(), text.data(), text.size(), path));
    return text;
}

/// The lines of one run become one entry, where its first one stands.
class Merged {
public:
    void add(HistoryEntry entry, History& into) {
        const auto [at, isNew] = byRun_.try_emplace(entry.run, into.entries.size());
        if (isNew || entry.run.empty()) return into.entries.push_back(std::move(entry));
        entry.time = into.entries[at->second].time;
        into.entries[at->second] = std::move(entry);
    }

private:
    std::map<std::string, std::size_t> byRun_;
};

void read(const fs::path& path, History& into) {
    std::error_code error;
    if (!fs::exists(path, error)) return;
    std::string text;
    try {
        text = contentOf(path);
    } catch (const Error& failure) {
        into.faults.emplace_back(failure.what());
        return;
    }
    Merged runs;
    unsigned number = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        ++number;
        if (end == at) {  // between two processes that wrote at once, without locks
            ++at;
            continue;
        }
        auto entry = end < text.size() ? entryOf(text.substr(at, end - at)) : std::nullopt;
        at = end + 1;
        if (entry) {
            runs.add(std::move(*entry), into);
        } else {
            into.faults.push_back(path.string() + ": line " + std::to_string(number) + " is not whole, left out");
        }
    }
}

void sortByTime(History& log) {
    std::stable_sort(log.entries.begin(), log.entries.end(),
                     [](const HistoryEntry& a, const HistoryEntry& b) { return a.time < b.time; });
}

History readFrom(const std::vector<fs::path>& folders) {
    History log;
    for (const fs::path& folder : folders) read(folder / kName, log);
    sortByTime(log);
    return log;
}

std::string runName() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return std::to_string(now.tv_sec) + "." + std::to_string(now.tv_nsec) + "-" + std::to_string(getpid());
}

bool isOneOf(const HistoryEntry& entry, const std::vector<SerialAge>& ages) {
    return std::any_of(ages.begin(), ages.end(), [&](const SerialAge& age) {
        return entry.serial == age.serial && entry.time >= age.from && (age.until.empty() || entry.time <= age.until);
    });
}

bool matches(const HistoryEntry& entry, const DeviceSpec& spec, const History& log) {
    if (spec.kind == DeviceSpec::Kind::Serial) return isOneOf(entry, earlierSerials(log, spec.text));
    DeviceDescription device;
    device.serial = entry.serial;
    device.path = entry.path;
    device.neuronId = entry.neuronId;
    return spec.matches(device);
}

fs::path simulatedFolder(const std::string& description) {
    try {
        DeviceDescription device;
        device.path = sim::portPathOf(description);
        return stateFolder(device);
    } catch (const std::invalid_argument& error) {
        throw Error(Problem::BadArgument, error.what(), "-d sim:DIR[,size=1M][,pace=fast]");
    }
}

}  // namespace

LoggedRun::LoggedRun(Operation& op, const char* action, BackupKind part) : op_(op) {
    const DeviceDescription& device = op.device.description();
    entry.time = utcText(std::time(nullptr));
    entry.action = action;
    entry.part = backupKindName(part);
    entry.serial = device.serial;
    entry.path = device.path;
    entry.neuronId = device.neuronId;
    entry.tool = TAVO_VERSION;
    entry.run = runName();
}

void LoggedRun::setImage(const std::string& path) {
    std::error_code error;
    if (!path.empty() && path != "-") entry.image = fs::absolute(path, error).lexically_normal().string();
}

void LoggedRun::setBackup(const std::string& path) {
    entry.backup = fs::path(path).filename().string();
}

void LoggedRun::begin() {
    entry.result = "started";
    append();
}

void LoggedRun::end(const char* result) {
    entry.result = result;
    entry.state = op_.state.text();
    entry.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    append();
}

void LoggedRun::fail(const Error& error) noexcept {
    try {
        entry.result = error.problem == Problem::Interrupted ? "interrupted" : "failed";
        entry.error = error.what();
        entry.state = error.state.text();
        entry.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
        append();
    } catch (...) {
        op_.note("the end of the run could not be written into the history");  // the failure itself is what counts
    }
}

void LoggedRun::append() {
    const DeviceDescription& device = op_.device.description();
    if (isLost_ || isInMemory(device)) return;
    try {
        appendLine(madeStateFolder(device) / kName, lineOf(entry));
    } catch (const Error& error) {
        isLost_ = true;
        op_.warn(std::string(error.what()) + ": this run will be missing in the history", error.hint);
    }
}

History readLog(const DeviceDescription& device) {
    History log = readFrom(stateFolders(device));
    if (isSimulated(device)) return log;
    const auto ages = earlierSerials(log, device.serial);
    std::erase_if(log.entries, [&](const HistoryEntry& entry) {
        return device.serial.empty() ? entry.path != device.path : !isOneOf(entry, ages);
    });
    return log;
}

std::vector<SerialAge> earlierSerials(const History& log, const std::string& serial) {
    std::vector<SerialAge> ages{{serial, "", ""}};
    for (auto entry = log.entries.rbegin(); entry != log.entries.rend(); ++entry) {
        SerialAge& now = ages.back();
        const bool isRenaming = !entry->serialAfter.empty() && entry->serialAfter != entry->serial;
        const bool isOurs = entry->serialAfter == now.serial && (now.until.empty() || entry->time <= now.until);
        if (!isRenaming || !isOurs || entry->result == "failed") continue;
        now.from = entry->time;
        ages.push_back({entry->serial, "", entry->time});
    }
    return ages;
}

std::vector<std::string> unresolvedBackups(const History& log, BackupKind part) {
    std::vector<std::string> names;
    for (const HistoryEntry& entry : log.entries) {
        if (entry.part != backupKindName(part)) continue;
        const bool isGood = entry.result == "done" || entry.result == "unchanged";
        if (isGood) names.clear();
        if (!isGood && !entry.backup.empty()) names.push_back(entry.backup);
    }
    return names;
}

History history(const std::vector<std::string>& specs) {
    History all;
    std::vector<DeviceSpec> ofHost;
    for (const std::string& text : specs) {
        const DeviceSpec spec = DeviceSpec::parse(text);
        if (spec.kind != DeviceSpec::Kind::Simulated) {
            ofHost.push_back(spec);
            continue;
        }
        const History own = readFrom({simulatedFolder(spec.text)});
        all.entries.insert(all.entries.end(), own.entries.begin(), own.entries.end());
        all.faults.insert(all.faults.end(), own.faults.begin(), own.faults.end());
    }
    const History host = specs.empty() || !ofHost.empty() ? readFrom(stateFolders({})) : History();
    all.faults.insert(all.faults.end(), host.faults.begin(), host.faults.end());
    for (const HistoryEntry& entry : host.entries) {
        const bool isMeant = std::any_of(ofHost.begin(), ofHost.end(),
                                         [&](const DeviceSpec& spec) { return matches(entry, spec, host); });
        if (specs.empty() || isMeant) all.entries.push_back(entry);
    }
    sortByTime(all);
    return all;
}

std::string localTimeText(const std::string& utc) {
    std::tm time{};
    if (strptime(utc.c_str(), kUtcForm, &time) == nullptr) return utc;
    const std::time_t seconds = timegm(&time);
    std::tm local{};
    localtime_r(&seconds, &local);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return text.data();
}

}  // namespace tavo
