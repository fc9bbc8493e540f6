#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "tavo/service/files.h"

namespace tavo {
namespace {

constexpr mode_t kMode = 0666;  // less what the user's mask takes away, by the system
constexpr int kAttempts = 100;
constexpr std::size_t kRandom = 6;

struct FreeText {
    void operator()(char* text) const { free(text); }
};
struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

std::string folderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string partPrefix(const std::string& path) {
    return path + ".part-";
}

std::string randomText() {
    constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz012345";
    unsigned char bytes[kRandom] = {};
    if (getrandom(bytes, sizeof bytes, 0) != sizeof bytes) throw fileError("get random numbers", errno);
    std::string text;
    for (const unsigned char byte : bytes) text += kLetters[byte % 32];
    return text;
}

/// The file that a symbolic link names: the link stays when its file is replaced.
std::string followed(const std::string& path) {
    const std::unique_ptr<char, FreeText> whole(realpath(path.c_str(), nullptr));
    return whole == nullptr ? path : whole.get();
}

/// True when the open file has no name any more: somebody took it for a leftover.
bool isGone(const Descriptor& file) {
    struct stat facts {};
    return fstat(file.get(), &facts) != 0 || facts.st_nlink == 0;
}

/// A regular file of this user that nobody has locked: its writer is dead.
void removeLeftover(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat facts {};
    if (file.get() < 0 || fstat(file.get(), &facts) != 0) return;
    if (!S_ISREG(facts.st_mode) || facts.st_uid != geteuid()) return;
    if (flock(file.get(), LOCK_EX | LOCK_NB) == 0) unlink(path.c_str());
}

void removeLeftovers(const std::string& path) {
    const std::string folder = folderOf(path);
    const std::string prefix = partPrefix(path.substr(path.rfind('/') + 1));
    const std::unique_ptr<DIR, CloseFolder> open(opendir(folder.c_str()));
    if (open == nullptr) return;
    while (const dirent* entry = readdir(open.get())) {
        const std::string name = entry->d_name;
        if (name.size() == prefix.size() + kRandom && name.compare(0, prefix.size(), prefix) == 0)
            removeLeftover(folder + "/" + name);
    }
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

NewFile::NewFile(const std::string& path, bool replace, const std::string& hintIfThere)
    : path_(path), replace_(replace), hintIfThere_(hintIfThere) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) == 0) {
        if (S_ISDIR(facts.st_mode)) throw fileError("write " + path, EISDIR, "name a file inside the folder");
        // /dev/null, /dev/stdout: as root they would be replaced.
        if (!S_ISREG(facts.st_mode))
            throw Error(Problem::FileSystem, "cannot write " + path + ": not a regular file", "choose another name");
        if (replace) path_ = followed(path);
    }
    if (!replace && lstat(path.c_str(), &facts) == 0) throw fileError("write " + path, EEXIST, hintIfThere);
    removeLeftovers(path_);
    openNameless(folderOf(path_));
    if (file_.get() < 0) openBeside();
}

NewFile::~NewFile() {
    if (hasName_) unlink(temporary_.c_str());
}

void NewFile::openNameless(const std::string& folder) {
    Descriptor file(open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kMode));
    if (file.get() < 0) return;
    temporary_ = "/proc/self/fd/" + std::to_string(file.get());
    // Without /proc it could never get a name.
    if (access(temporary_.c_str(), R_OK | W_OK) == 0) file_ = std::move(file);
}

void NewFile::openBeside() {
    for (int i = 0; i < kAttempts; ++i) {
        const std::string name = partPrefix(path_) + randomText();
        Descriptor file(open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, kMode));
        if (file.get() < 0 && errno == EEXIST) continue;
        if (file.get() < 0) throw fileError("write " + path_, errno);
        // A file system without locks has to do without; another writer may have been quicker than the lock.
        flock(file.get(), LOCK_EX);
        if (isGone(file)) continue;
        temporary_ = name;
        hasName_ = true;
        file_ = std::move(file);
        return;
    }
    throw fileError("write " + path_, EEXIST);
}

/// A nameless file gets its last name at once, or the way to it: a link never takes the place of a file.
void NewFile::giveName() {
    const auto linkTo = [&](const std::string& name) {
        return linkat(AT_FDCWD, temporary_.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW);
    };
    if (!replace_ && linkTo(path_) == 0) return;
    if (!replace_) throw fileError("write " + path_, errno, errno == EEXIST ? hintIfThere_ : "");
    flock(file_.get(), LOCK_EX);
    const std::string name = partPrefix(path_) + randomText();
    if (linkTo(name) != 0) throw fileError("write " + path_, errno);
    temporary_ = name;
    hasName_ = true;
}

void NewFile::commit() {
    if (fsync(file_.get()) != 0) throw fileError("write " + path_, errno);
    if (!hasName_) giveName();
    if (hasName_ && moveInPlace(temporary_, path_, replace_) != 0)
        throw fileError("write " + path_, errno, errno == EEXIST ? hintIfThere_ : "");
    hasName_ = false;
    const Descriptor folder(open(folderOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.get() >= 0) fsync(folder.get());
    file_ = Descriptor();
}

}  // namespace tavo
