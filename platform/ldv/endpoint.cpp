#include "platform/ldv/endpoint.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "platform/ldv.h"

namespace ldv {
namespace {

constexpr std::size_t kMaxName = 63;  // what the library's channel makes at most
constexpr char kDefaultFolder[] = "/run/tavo/ldv";

class File {
public:
    explicit File(int file) : file_(file) {}
    ~File() {
        if (file_ >= 0) close(file_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    int get() const { return file_; }
    int release() { return std::exchange(file_, -1); }

private:
    int file_;
};

struct Explanation {
    int error;
    LDV_STATUS status;
};
constexpr Explanation kExplanations[] = {
    {ENOENT, LDV_NOT_FOUND},     {ENOTDIR, LDV_NOT_FOUND},
    {EACCES, LDV_ACCESS_DENIED}, {EPERM, LDV_ACCESS_DENIED},
    {EBUSY, LDV_ALREADY_OPEN},   {EAGAIN, LDV_ALREADY_OPEN},  // a socket whose queue of callers is full
    {EMFILE, LDV_NO_RESOURCES},  {ENFILE, LDV_NO_RESOURCES},
    {ENOMEM, LDV_NO_RESOURCES},  {ENAMETOOLONG, LDV_INVALID_DEVICE_ID},
    {EPROTOTYPE, LDV_NOT_FOUND},  // a socket of another kind is no endpoint
};

unsigned short explain(int error) {
    for (const Explanation& known : kExplanations) {
        if (known.error == error) return known.status;
    }
    return LDV_DEVICE_ERR;  // ECONNREFUSED, ENXIO and the like: the endpoint is there, nobody behind it
}

bool isUsable(const std::string& name) {
    if (name.empty() || name.size() > kMaxName || name == "." || name == "..") return false;
    return name.find('/') == std::string::npos;  // the name must not lead out of the folder
}

std::string folder() {
    const char* chosen = std::getenv("TAVO_LDV_DIR");
    return chosen != nullptr && *chosen != '\0' ? chosen : kDefaultFolder;
}

unsigned short connectSocket(const File& folderFile, const std::string& name, Endpoint& endpoint) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // By way of the open folder: a socket address has room for 107 characters, whatever the folder's path.
    const std::string path = "/proc/self/fd/" + std::to_string(folderFile.get()) + "/" + name;
    static_assert(sizeof address.sun_path > sizeof "/proc/self/fd/2147483647/" + kMaxName);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    File file(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (file.get() < 0) return explain(errno);
    if (connect(file.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return explain(errno);
    endpoint = {file.release(), true};
    return LDV_OK;
}

unsigned short openDevice(const File& folderFile, const std::string& name, Endpoint& endpoint) {
    File file(openat(folderFile.get(), name.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (file.get() < 0) return explain(errno);
    endpoint = {file.release(), false};
    return LDV_OK;
}

}  // namespace

unsigned short openEndpoint(const char* name, Endpoint& endpoint) {
    if (!isUsable(name)) return LDV_INVALID_DEVICE_ID;
    const File folderFile(open(folder().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (folderFile.get() < 0) return explain(errno);
    struct stat status {};
    if (fstatat(folderFile.get(), name, &status, 0) != 0) return explain(errno);
    if (S_ISSOCK(status.st_mode)) return connectSocket(folderFile, name, endpoint);
    if (S_ISCHR(status.st_mode)) return openDevice(folderFile, name, endpoint);
    return LDV_NOT_FOUND;
}

}  // namespace ldv
