// The LDV driver's functions over a message endpoint: `<folder>/<name>` is a UNIX socket of the
// SOCK_SEQPACKET kind or a character device, and every read or write carries one message.
#include "platform/ldv.h"

#include <Poco/Thread.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <mutex>
#include <utility>

#include "platform/ldv/endpoint.h"
#include "tavo/export.h"

namespace ldv {
namespace {

constexpr std::size_t kMaxOpen = 32;
constexpr long kWriteInterval = 10;  // ms between two tries to hand over a message
constexpr int kWriteTries = 100;     // a peer that takes nothing for a second is as good as gone

class Table {
public:
    static Table& instance() {
        static Table table;
        return table;
    }

    unsigned short add(Endpoint endpoint, short& handle) {
        const std::lock_guard lock(mutex_);
        const auto free = std::find_if(endpoints_.begin(), endpoints_.end(), [](const Endpoint& e) { return !e; });
        if (free == endpoints_.end()) {
            close(endpoint.file);
            return LDV_NO_RESOURCES;
        }
        *free = endpoint;
        handle = static_cast<short>(free - endpoints_.begin());
        return LDV_OK;
    }

    Endpoint find(short handle) {
        const std::lock_guard lock(mutex_);
        return isIndex(handle) ? endpoints_[static_cast<std::size_t>(handle)] : Endpoint{};
    }

    Endpoint remove(short handle) {
        const std::lock_guard lock(mutex_);
        if (!isIndex(handle)) return {};
        return std::exchange(endpoints_[static_cast<std::size_t>(handle)], Endpoint{});
    }

private:
    static bool isIndex(short handle) { return handle >= 0 && static_cast<std::size_t>(handle) < kMaxOpen; }

    std::mutex mutex_;
    std::array<Endpoint, kMaxOpen> endpoints_;
};

unsigned short failure(int error) {
    return error == EMSGSIZE ? LDV_INVALID_BUF_LEN : LDV_DEVICE_ERR;
}

ssize_t tryWrite(const Endpoint& endpoint, const void* message, std::size_t length) {
    // MSG_NOSIGNAL: a peer that is gone is a status, not the end of the program.
    return endpoint.isSocket ? send(endpoint.file, message, length, MSG_NOSIGNAL)
                             : write(endpoint.file, message, length);
}

ssize_t tryRead(const Endpoint& endpoint, void* message, std::size_t length) {
    // MSG_TRUNC: the result tells the whole length of a message that was cut.
    return endpoint.isSocket ? recv(endpoint.file, message, length, MSG_TRUNC) : read(endpoint.file, message, length);
}

}  // namespace
}  // namespace ldv

extern "C" {

TAVO_API unsigned short ldv_open(const char* deviceName, short* handle) {
    if (deviceName == nullptr || handle == nullptr) return LDV_INVALID_DEVICE_ID;
    ldv::Endpoint endpoint;
    if (const unsigned short status = ldv::openEndpoint(deviceName, endpoint); status != LDV_OK) return status;
    return ldv::Table::instance().add(endpoint, *handle);
}

TAVO_API unsigned short ldv_write(short handle, const void* message, unsigned short length) {
    const ldv::Endpoint endpoint = ldv::Table::instance().find(handle);
    if (!endpoint) return LDV_NOT_OPEN;
    if (message == nullptr || length == 0) return LDV_INVALID_BUF_LEN;  // an empty message reads as an end
    for (int tries = 0; tries < ldv::kWriteTries; ++tries) {
        const ssize_t count = ldv::tryWrite(endpoint, message, length);
        if (count >= 0) return count == length ? LDV_OK : LDV_DEVICE_ERR;
        if (errno == EINTR) continue;
        if (errno != EAGAIN) return ldv::failure(errno);
        Poco::Thread::sleep(ldv::kWriteInterval);
    }
    return LDV_DEVICE_ERR;
}

TAVO_API unsigned short ldv_read(short handle, void* message, unsigned short length) {
    const ldv::Endpoint endpoint = ldv::Table::instance().find(handle);
    if (!endpoint) return LDV_NOT_OPEN;
    if (message == nullptr || length == 0) return LDV_INVALID_BUF_LEN;
    ssize_t count = 0;
    do {
        count = ldv::tryRead(endpoint, message, length);
    } while (count < 0 && errno == EINTR);
    if (count > length) return LDV_INVALID_BUF_LEN;
    if (count > 0) return LDV_OK;
    if (count == 0) return endpoint.isSocket ? LDV_DEVICE_ERR : LDV_NO_MSG_AVAIL;
    return errno == EAGAIN ? LDV_NO_MSG_AVAIL : LDV_DEVICE_ERR;
}

TAVO_API unsigned short ldv_close(short handle) {
    const ldv::Endpoint endpoint = ldv::Table::instance().remove(handle);
    if (!endpoint) return LDV_NOT_OPEN;
    close(endpoint.file);
    return LDV_OK;
}

}  // extern "C"
