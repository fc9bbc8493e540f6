#include "service/flash/journal.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "service/store/place.h"
#include "tavo/service/files.h"
#include "tavo/service/history.h"
#include "tavo/service/imageFile.h"

namespace tavo {
namespace {

constexpr const char* kNotRemembered = "cut off, this run would not be remembered on this computer";
constexpr mode_t kPrivate = 0600;

Image readCopy(const std::string& path, std::uint32_t size) {
    const Descriptor file = openForReading(path);
    std::vector<char> bytes(size);
    if (sizeOf(file) != size || readSome(file.get(), bytes.data(), size, path) != size)
        throw Error(Problem::FileSystem, path + " does not hold the " + std::to_string(size) + " bytes of the chip");
    Image image;
    image.add(0, reinterpret_cast<const std::uint8_t*>(bytes.data()), size);
    return image;
}

void writeCopy(const std::string& path, const Image& contents) {
    NewFile file(path, false);
    if (fchmod(file.descriptor(), kPrivate) != 0) throw fileError("write " + path, errno);
    WriteOptions how;
    how.format = Format::Binary;
    writeImage(contents, file.descriptor(), path, how);
    file.commit();
}

/// What an earlier run that was cut off has saved stays known: it is what was there before.
InterruptedRun runOf(const DeviceDescription& device, const std::string& image, const std::string& sha256,
                     const std::string& backup, const std::string& options) {
    InterruptedRun run{image, sha256, backup};
    run.options = options;
    if (const auto before = interruptedRun(device)) {
        if (!before->backup.empty()) run.backup = before->backup;
        run.kept = before->kept;
    }
    return run;
}

/// Returns the name of the bytes that were to be kept; empty also while they are still remembered.
std::string forget(Operation& op) {
    const auto run = interruptedRun(op.device.description());
    try {
        forgetRun(op.device.description());
        return run ? run->kept : "";
    } catch (const Error& error) {
        op.warn(std::string(error.what()) + ": this run will still be taken for one that was cut off", error.hint);
        return "";
    }
}

}  // namespace

void rememberChange(Operation& op, const std::string& image, const std::string& sha256, const std::string& backup,
                    const std::string& options) {
    const DeviceDescription& device = op.device.description();
    try {
        rememberRun(device, runOf(device, image, sha256, backup, options));
    } catch (const Error& error) {
        op.warn(std::string(error.what()) + ": " + kNotRemembered, error.hint);
    }
}

void forgetChange(Operation& op) {
    const std::string kept = forget(op);
    if (kept.empty()) return;
    op.warn("what an earlier run was to keep is no longer in the flash: it is in " + kept,
            "that is a raw binary of the whole chip; delete it if it is not needed");
}

void forgetKept(Operation& op) {
    const std::string kept = forget(op);
    if (!kept.empty()) unlink(kept.c_str());
}

void saveKept(Operation& op, const Image& contents, const std::string& image, const std::string& sha256,
              const std::string& backup, const std::string& options) {
    const DeviceDescription& device = op.device.description();
    InterruptedRun run = runOf(device, image, sha256, backup, options);
    run.kept = newStateFile(device, "kept", ".bin");
    if (run.kept.empty()) return;
    try {
        writeCopy(run.kept, contents);
        if (readCopy(run.kept, static_cast<std::uint32_t>(contents.byteCount())) != contents)
            throw Error(Problem::FileSystem, run.kept + " cannot be read back as it was written", "is the disk sound?");
        rememberRun(device, run);
    } catch (const Error& error) {
        unlink(run.kept.c_str());
        op.fail(error);
    }
}

std::optional<Image> savedKept(Operation& op, std::uint32_t size) {
    const auto run = interruptedRun(op.device.description());
    if (!run || run->kept.empty()) return std::nullopt;
    op.step("what is to be kept is taken from " + run->kept);
    try {
        return readCopy(run->kept, size);
    } catch (Error& error) {
        error.hint = "it holds what was around the image when a run was cut off; without --keep it is not needed";
        op.fail(error);
    }
}

}  // namespace tavo
