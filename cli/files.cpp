#include "cli/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace cli {
namespace {

std::string folderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string temporaryFolder() {
    const char* folder = std::getenv("TMPDIR");
    return folder != nullptr && *folder != '\0' ? folder : "/tmp";
}

/// For file systems without nameless files.
int openUnlinked(const std::string& folder) {
    std::string name = folder + "/tavo-util-XXXXXX";
    const int file = mkostemp(name.data(), O_CLOEXEC);
    if (file >= 0) unlink(name.c_str());
    return file;
}

constexpr mode_t kUsualMode = 0666;

mode_t modeAfterMask() {
    const mode_t mask = umask(0);
    umask(mask);
    return kUsualMode & ~mask;
}

/// The file that a symbolic link names: the link stays when its file is replaced.
std::string followed(const std::string& path) {
    char* whole = realpath(path.c_str(), nullptr);
    const std::string found = whole == nullptr ? path : whole;
    free(whole);
    return found;
}

/// Without permission to replace, a file that appeared meanwhile stays.
int moveInPlace(const std::string& from, const std::string& to, bool replace) {
    if (replace) return rename(from.c_str(), to.c_str());
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return -1;
    // Some network file systems cannot; they have hard links, which memory sticks (FAT) have not.
    if (link(from.c_str(), to.c_str()) != 0) return -1;
    unlink(from.c_str());
    return 0;
}

}  // namespace

Descriptor::~Descriptor() {
    if (descriptor_ >= 0) close(descriptor_);
}

Descriptor::Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

Failure fileFailure(const std::string& doing, int error, const std::string& hint) {
    return {Exit::FileSystem,
            "cannot " + doing + ": " + std::strerror(error),
            hint.empty() ? "check the path, its permissions and the free space" : hint,
            {}};
}

Descriptor openForReading(const std::string& path) {
    // Not blocking: a FIFO must not hang the program before it is seen to be one.
    Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.get() < 0) throw fileFailure("read " + path, errno);
    struct stat facts {};
    if (fstat(file.get(), &facts) != 0) throw fileFailure("read " + path, errno);
    if (S_ISDIR(facts.st_mode)) throw fileFailure("read " + path, EISDIR, "name the file inside the folder");
    if (!S_ISREG(facts.st_mode)) {
        throw Failure{
            Exit::FileSystem, "cannot read " + path + ": not a regular file", "save the data in a file first", {}};
    }
    return file;
}

std::uint64_t sizeOf(const Descriptor& file) {
    struct stat facts {};
    return fstat(file.get(), &facts) == 0 ? static_cast<std::uint64_t>(facts.st_size) : 0;
}

void writeAll(const Descriptor& file, const char* data, std::size_t size, const std::string& what) {
    while (size > 0) {
        const ssize_t written = write(file.get(), data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) throw fileFailure("write " + what, errno);
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

PrivateFile::PrivateFile() {
    const std::string folder = temporaryFolder();
    int file = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file < 0) file = openUnlinked(folder);
    if (file < 0) throw fileFailure("make a temporary file in " + folder, errno, "set TMPDIR to a folder with room");
    file_ = Descriptor(file);
}

std::string PrivateFile::path() const {
    return "/proc/self/fd/" + std::to_string(file_.get());
}

NewFile::NewFile(const std::string& path, bool replace, const std::string& hintIfThere)
    : path_(path), replace_(replace) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) == 0) {
        if (S_ISDIR(facts.st_mode)) throw fileFailure("write " + path, EISDIR, "name a file inside the folder");
        // /dev/null, /dev/stdout: as root they would be replaced.
        if (!S_ISREG(facts.st_mode)) {
            throw Failure{Exit::FileSystem, "cannot write " + path + ": not a regular file", "choose another name", {}};
        }
        if (replace) path_ = followed(path);
    }
    if (!replace && lstat(path.c_str(), &facts) == 0) throw fileFailure("write " + path, EEXIST, hintIfThere);
    temporary_ = path_ + ".part-XXXXXX";
    file_ = Descriptor(mkostemp(temporary_.data(), O_CLOEXEC));
    if (file_.get() < 0) throw fileFailure("write " + path, errno);
    fchmod(file_.get(), modeAfterMask());
}

NewFile::~NewFile() {
    if (file_.get() >= 0) unlink(temporary_.c_str());
}

void NewFile::commit() {
    if (fsync(file_.get()) != 0) throw fileFailure("write " + path_, errno);
    if (moveInPlace(temporary_, path_, replace_) != 0) throw fileFailure("write " + path_, errno);
    const Descriptor folder(open(folderOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.get() >= 0) fsync(folder.get());
    file_ = Descriptor();
}

}  // namespace cli
