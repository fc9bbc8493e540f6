#include "tavo/service/backups.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <set>
#include <system_error>
#include <utility>

#include "service/image/sha256.h"
#include "service/store/keep.h"
#include "service/store/log.h"
#include "service/store/place.h"
#include "tavo/service/files.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

namespace fs = std::filesystem;

struct KindRow {
    const char* name;
    const char* text;
    const char* ending;
};
// In the order of BackupKind.
constexpr KindRow kKinds[] = {
    {"flash", "image", ".bin"}, {"config", "configuration block", ".bin"}, {"domain", "domain table", ".json"}};

constexpr std::size_t kKeptOfAKind = 10;
constexpr std::size_t kIdDigits = 12;                       // of the sha256, in a name
constexpr std::size_t kFewestDigits = 4;                    // that somebody may type
constexpr std::size_t kIdSize = 8 + 1 + 6 + 1 + kIdDigits;  // "20240501-140359-3fa4b2c1d0e5"
constexpr mode_t kPrivate = 0600;
constexpr std::uint64_t kUsualChip = 1U << 20;

const KindRow& rowOf(BackupKind kind) {
    return kKinds[static_cast<std::size_t>(kind)];
}

/// The kind and the ID that a file name tells.
std::optional<std::pair<BackupKind, std::string>> parseName(const std::string& name) {
    for (const BackupKind kind : {BackupKind::Flash, BackupKind::Configuration, BackupKind::Domains}) {
        const std::string start = rowOf(kind).name + std::string("-");
        const std::string ending = rowOf(kind).ending;
        if (name.size() != start.size() + kIdSize + ending.size()) continue;
        if (name.rfind(start, 0) != 0 || !name.ends_with(ending)) continue;
        return std::pair(kind, name.substr(start.size(), kIdSize));
    }
    return std::nullopt;
}

/// A backup, and when it was last kept, to the nanosecond.
struct Found {
    Backup backup;
    timespec kept{};

    bool isLaterThan(const Found& other) const {
        return std::pair(kept.tv_sec, kept.tv_nsec) > std::pair(other.kept.tv_sec, other.kept.tv_nsec);
    }
};

std::optional<Found> look(const fs::path& path) {
    const auto name = parseName(path.filename().string());
    struct stat facts {};
    if (!name || lstat(path.c_str(), &facts) != 0 || !S_ISREG(facts.st_mode)) return std::nullopt;
    Found found;
    found.backup.kind = name->first;
    found.backup.id = name->second;
    found.backup.path = path.string();
    found.backup.bytes = static_cast<std::uint64_t>(facts.st_size);
    found.backup.time = utcText(facts.st_mtim.tv_sec);
    found.kept = facts.st_mtim;
    return found;
}

std::string digestOf(const std::string& path) {
    const Descriptor file = openForReading(path);
    Sha256 digest;
    std::array<char, 65536> piece{};
    for (std::size_t size = piece.size(); size == piece.size();) {
        size = readSome(file.get(), piece.data(), piece.size(), path);
        digest.add(piece.data(), size);
    }
    return digest.text();
}

/// Of the content that the name promises.
void readDigest(Backup& backup) {
    backup.sha256 = digestOf(backup.path);
    backup.isDamaged = backup.sha256.substr(0, kIdDigits) != backup.id.substr(kIdSize - kIdDigits);
}

/// The latest first.
std::vector<Found> filesIn(const fs::path& folder) {
    std::vector<Found> all;
    std::error_code error;  // a folder that cannot be read tells nothing
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        if (auto found = look(at->path())) all.push_back(std::move(*found));
    }
    std::sort(all.begin(), all.end(), [](const Found& a, const Found& b) { return a.isLaterThan(b); });
    return all;
}

/// Also of the serial numbers that it had before, as long as it had them.
std::vector<Found> filesOf(const DeviceDescription& device, const History& log) {
    if (device.serial.empty() || isSimulated(device)) return filesIn(backupFolder(device));
    std::vector<Found> all;
    for (const SerialAge& age : earlierSerials(log, device.serial)) {
        DeviceDescription then = device;
        then.serial = age.serial;
        for (Found& found : filesIn(backupFolder(then))) {
            const std::string& time = found.backup.time;
            if (time >= age.from && (age.until.empty() || time <= age.until)) all.push_back(std::move(found));
        }
    }
    return all;
}

std::string whatRan(const History& log, const std::string& name) {
    std::string told;
    for (const HistoryEntry& entry : log.entries) {
        if (entry.backup != name) continue;
        told = entry.action + (entry.image.empty() ? "" : " " + entry.image);
        if (!entry.serialAfter.empty()) told += " " + entry.serialAfter;
    }
    return told;
}

struct ModifiedNow {
    ModifiedNow() {
        clock_gettime(CLOCK_REALTIME, &times[0]);
        times[1] = times[0];
    }
    timespec times[2]{};
};

std::string nameFor(BackupKind kind, const std::string& digest) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char time[32];
    std::strftime(time, sizeof time, "-%Y%m%d-%H%M%S-", &local);
    return rowOf(kind).name + (time + digest.substr(0, kIdDigits)) + rowOf(kind).ending;
}

void removeOldest(const DeviceDescription& device, const fs::path& folder, BackupKind kind) {
    const auto unresolved = unresolvedBackups(readLog(device), kind);
    std::set<std::string> needed(unresolved.begin(), unresolved.end());
    if (const auto run = interruptedRun(device)) needed.insert(fs::path(run->backup).filename().string());
    std::size_t kept = 0;
    for (const Found& found : filesIn(folder)) {
        if (found.backup.kind != kind || ++kept <= kKeptOfAKind) continue;
        const fs::path path = found.backup.path;
        if (needed.count(path.filename().string()) == 0) unlink(path.c_str());
    }
}

/// The file of that content, if it is there and whole.
std::optional<std::string> sameIn(const fs::path& folder, BackupKind kind, const std::string& digest) {
    for (const Found& found : filesIn(folder)) {
        const Backup& backup = found.backup;
        if (backup.kind != kind || !backup.id.ends_with(digest.substr(0, kIdDigits))) continue;
        if (digestOf(backup.path) == digest) return backup.path;
    }
    return std::nullopt;
}

void write(const std::string& path, std::span<const std::uint8_t> bytes) {
    try {
        NewFile file(path, true);
        if (fchmod(file.descriptor(), kPrivate) != 0) throw storeError("write " + path, errno);
        writeAll(file.descriptor(), reinterpret_cast<const char*>(bytes.data()), bytes.size(), path);
        // The system's own times are those of its last tick: two files that were kept in one would have no order.
        if (futimens(file.descriptor(), ModifiedNow().times) != 0) throw storeError("write " + path, errno);
        file.commit();
    } catch (const Error& error) {
        throw Error(Problem::FileSystem, std::string("cannot keep a backup: ") + error.what(), storeError("", 0).hint);
    }
}

bool names(const Backup& backup, const std::string& which) {
    const std::string file = fs::path(backup.path).filename().string();
    if (which == file || which == backup.path) return true;
    if (which.size() < kFewestDigits) return false;
    return backup.id.rfind(which, 0) == 0 || backup.sha256.rfind(which, 0) == 0;
}

Error noBackup(const DeviceDescription& device, BackupKind kind, const std::string& which) {
    const std::string what =
        which.empty() ? std::string("no ") + rowOf(kind).text + " of " + device.name() + " is kept here"
                      : "no " + std::string(rowOf(kind).text) + " of " + device.name() + " is kept here as " + which;
    const std::string why = kind == BackupKind::Flash && which.empty()
                                ? "program --full and erase keep nothing without --backup OUT; "
                                : "";
    return {Problem::FileSystem, what, why + "tavo-util restore --list shows what there is"};
}

}  // namespace

const char* backupKindName(BackupKind kind) {
    return rowOf(kind).name;
}

const char* backupKindText(BackupKind kind) {
    return rowOf(kind).text;
}

std::vector<Backup> backups(const DeviceDescription& device) {
    const History log = readLog(device);
    std::vector<Backup> all;
    for (Found& found : filesOf(device, log)) {
        try {
            readDigest(found.backup);
        } catch (const Error&) {
            continue;
        }
        found.backup.takenBefore = whatRan(log, fs::path(found.backup.path).filename().string());
        all.push_back(std::move(found.backup));
    }
    return all;
}

Backup findBackup(const DeviceDescription& device, BackupKind kind, const std::string& which) {
    auto all = backups(device);
    std::erase_if(all, [&](const Backup& each) { return each.kind != kind || !(which.empty() || names(each, which)); });
    if (all.empty()) throw noBackup(device, kind, which);
    if (which.empty()) {
        const auto run = kind == BackupKind::Flash ? interruptedRun(device) : std::nullopt;
        const auto before =
            std::find_if(all.begin(), all.end(), [&](const Backup& each) { return run && each.path == run->backup; });
        return before != all.end() ? *before : all.front();
    }
    if (all.size() == 1) return all.front();
    Error several(Problem::BadArgument, which + " names " + countText(all.size(), "backup"), "give more of the ID");
    for (const Backup& each : all) several.details.push_back(each.id);
    throw several;
}

std::string doubtAbout(const Backup& backup, const DeviceDescription& device) {
    if (device.serial.empty() || isSimulated(device)) return "";
    const std::string name = fs::path(backup.path).filename().string();
    std::string other;
    for (const HistoryEntry& entry : readLog(device).entries) {
        if (entry.backup != name || entry.neuronId.empty() || device.neuronId.empty()) continue;
        if (entry.neuronId == device.neuronId) return "";
        other = entry.neuronId;
    }
    if (!other.empty())
        return "it was kept of the interface with the Neuron ID " + other + ", and this one's is " + device.neuronId;
    const auto sharing = devices({"serial:" + device.serial}).size();
    if (sharing < 2) return "";
    return countText(sharing, "attached interface") + " have the serial number " + device.serial +
           ": what is kept may be of any of them";
}

void requireRoom(const DeviceDescription& device, BackupKind kind, std::uint64_t bytes) {
    if (isInMemory(device)) return;
    const fs::path folder = madeBackupFolder(device);
    try {
        const NewFile file((folder / nameFor(kind, std::string(kIdDigits, '0'))).string(), true);
        const int error = posix_fallocate(file.descriptor(), 0, static_cast<off_t>(bytes));
        if (error != 0) throw fileError("keep " + sizeText(bytes) + " in " + folder.string(), error);
    } catch (const Error& error) {
        throw Error(Problem::FileSystem, std::string("cannot keep a backup: ") + error.what(), storeError("", 0).hint);
    }
}

void requireRoomFor(const DeviceDescription& device, const Image& image) {
    if (isInMemory(device)) return;
    const auto ranges = image.ranges();
    std::uint64_t bytes =
        std::max(kUsualChip, std::bit_ceil(ranges.empty() ? 1 : std::uint64_t{ranges.back().last} + 1));
    for (const Found& found : filesIn(backupFolder(device))) {
        if (found.backup.kind == BackupKind::Flash) bytes = std::max(bytes, found.backup.bytes);
    }
    requireRoom(device, BackupKind::Flash, bytes);
}

std::string keepBackup(const DeviceDescription& device, BackupKind kind, std::span<const std::uint8_t> bytes) {
    if (isInMemory(device)) return "";
    const fs::path folder = madeBackupFolder(device);
    Sha256 sha;
    sha.add(bytes.data(), bytes.size());
    const std::string digest = sha.text();
    if (const auto same = sameIn(folder, kind, digest); same && makeLatest(*same)) return *same;
    const std::string path = (folder / nameFor(kind, digest)).string();
    write(path, bytes);
    removeOldest(device, folder, kind);
    return path;
}

std::string keepBackup(const DeviceDescription& device, const Image& chip, std::uint32_t size) {
    std::vector<std::uint8_t> bytes(size, 0xFF);
    for (std::uint32_t at = 0; at < size; at += kPageSize) {
        const std::uint8_t* const from = chip.page(at / kPageSize);
        if (from != nullptr) std::copy_n(from, std::min(kPageSize, size - at), &bytes[at]);
    }
    if (std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0xFF; })) return "";
    return keepBackup(device, BackupKind::Flash, bytes);
}

bool makeLatest(const std::string& path) {
    return utimensat(AT_FDCWD, path.c_str(), ModifiedNow().times, 0) == 0;
}

bool isBackupName(const std::string& path) {
    return parseName(fs::path(path).filename().string()).has_value();
}

bool isKept(const std::string& path) {
    return isBackupName(path) && access(path.c_str(), R_OK) == 0;
}

}  // namespace tavo
