// The LDV functions over endpoints in a folder of the test's own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "platform/ldv.h"

namespace {

class LdvTest : public testing::Test {
protected:
    LdvTest() {
        char name[] = "/tmp/tavo-ldv-XXXXXX";
        folder = mkdtemp(name);
        setenv("TAVO_LDV_DIR", folder.c_str(), 1);
    }
    ~LdvTest() override {
        for (const int file : {listener, peer}) {
            if (file >= 0) close(file);
        }
        unsetenv("TAVO_LDV_DIR");
        std::filesystem::remove_all(folder);
    }

    void listenOn(const std::string& name, int type = SOCK_SEQPACKET) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, (folder + "/" + name).c_str(), sizeof address.sun_path - 1);
        listener = socket(AF_UNIX, type, 0);
        ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(listen(listener, 1), 0);
    }
    short open(const char* name) {
        short handle = -1;
        EXPECT_EQ(ldv_open(name, &handle), LDV_OK);
        peer = accept(listener, nullptr, nullptr);
        EXPECT_GE(peer, 0);
        return handle;
    }

    std::string folder;
    int listener = -1;
    int peer = -1;
};

TEST_F(LdvTest, EveryReadAndWriteIsOneMessage) {
    listenOn("SN    1234");  // a short serial number is padded with spaces
    const short handle = open("SN    1234");
    EXPECT_EQ(ldv_write(handle, "\x22\x11", 2), LDV_OK);
    EXPECT_EQ(ldv_write(handle, "\x33", 1), LDV_OK);
    char message[8] = {};
    EXPECT_EQ(recv(peer, message, sizeof message, 0), 2);
    EXPECT_EQ(recv(peer, message, sizeof message, 0), 1);
    EXPECT_EQ(ldv_read(handle, message, sizeof message), LDV_NO_MSG_AVAIL);
    ASSERT_EQ(send(peer, "abc", 3, 0), 3);
    ASSERT_EQ(send(peer, "too long", 8, 0), 8);
    ASSERT_EQ(send(peer, "de", 2, 0), 2);
    EXPECT_EQ(ldv_read(handle, message, 4), LDV_OK);
    EXPECT_EQ(std::string(message, 3), "abc");
    EXPECT_EQ(ldv_read(handle, message, 4), LDV_INVALID_BUF_LEN);
    EXPECT_EQ(ldv_read(handle, message, 4), LDV_OK);
    EXPECT_EQ(std::string(message, 2), "de");
    EXPECT_EQ(ldv_write(handle, "", 0), LDV_INVALID_BUF_LEN);
    EXPECT_EQ(ldv_close(handle), LDV_OK);
    EXPECT_EQ(ldv_close(handle), LDV_NOT_OPEN);
    EXPECT_EQ(ldv_read(handle, message, 4), LDV_NOT_OPEN);
    EXPECT_EQ(ldv_write(-1, "a", 1), LDV_NOT_OPEN);
    EXPECT_EQ(ldv_close(-1), LDV_NOT_OPEN);
}

TEST_F(LdvTest, APeerThatWentAwayIsADeviceError) {
    listenOn("CSN00001234");
    const short handle = open("CSN00001234");
    ASSERT_EQ(send(peer, "last", 4, 0), 4);
    close(std::exchange(peer, -1));
    char message[8] = {};
    EXPECT_EQ(ldv_read(handle, message, sizeof message), LDV_OK);
    EXPECT_EQ(ldv_read(handle, message, sizeof message), LDV_DEVICE_ERR);
    EXPECT_EQ(ldv_write(handle, "a", 1), LDV_DEVICE_ERR);
    EXPECT_EQ(ldv_close(handle), LDV_OK);
    close(std::exchange(listener, -1));
    short none = 7;
    EXPECT_EQ(ldv_open("CSN00001234", &none), LDV_DEVICE_ERR) << "the name is left, nobody listens";
    EXPECT_EQ(none, 7);
}

TEST_F(LdvTest, ANameThatLeadsNowhereHasItsOwnStatus) {
    short handle = 7;
    EXPECT_EQ(ldv_open("CSN00001234", &handle), LDV_NOT_FOUND);
    for (const char* name : {"", ".", "..", "../x", "a/b"}) EXPECT_EQ(ldv_open(name, &handle), LDV_INVALID_DEVICE_ID);
    EXPECT_EQ(ldv_open(std::string(63, 'x').c_str(), &handle), LDV_NOT_FOUND);
    EXPECT_EQ(ldv_open(std::string(64, 'x').c_str(), &handle), LDV_INVALID_DEVICE_ID);
    EXPECT_EQ(ldv_open(nullptr, &handle), LDV_INVALID_DEVICE_ID);
    std::ofstream(folder + "/file") << "no endpoint";
    EXPECT_EQ(ldv_open("file", &handle), LDV_NOT_FOUND);
    listenOn("stream", SOCK_STREAM);
    EXPECT_EQ(ldv_open("stream", &handle), LDV_NOT_FOUND);
    setenv("TAVO_LDV_DIR", (folder + "/missing").c_str(), 1);
    EXPECT_EQ(ldv_open("CSN00001234", &handle), LDV_NOT_FOUND);
    EXPECT_EQ(handle, 7);
}

TEST_F(LdvTest, AFolderWithALongPathServesAsWell) {
    const std::string inner = folder + "/" + std::string(120, 'f');
    std::filesystem::create_directory(inner);
    listenOn("CSN00001234");
    std::filesystem::rename(folder + "/CSN00001234", inner + "/CSN00001234");
    setenv("TAVO_LDV_DIR", inner.c_str(), 1);
    EXPECT_EQ(ldv_close(open("CSN00001234")), LDV_OK);
}

TEST_F(LdvTest, ACharacterDeviceServesAsWell) {
    ASSERT_EQ(symlink("/dev/null", (folder + "/device").c_str()), 0);
    short handle = -1;
    ASSERT_EQ(ldv_open("device", &handle), LDV_OK);
    char message[4];
    EXPECT_EQ(ldv_write(handle, "abc", 3), LDV_OK);
    EXPECT_EQ(ldv_read(handle, message, sizeof message), LDV_NO_MSG_AVAIL);
    EXPECT_EQ(ldv_close(handle), LDV_OK);
}

TEST_F(LdvTest, AnEndpointOfAnotherUserIsDenied) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become another user";
    listenOn("CSN00001234");
    chmod((folder + "/CSN00001234").c_str(), 0600);
    chmod(folder.c_str(), 0755);
    ASSERT_EQ(seteuid(65534), 0);
    short handle = -1;
    EXPECT_EQ(ldv_open("CSN00001234", &handle), LDV_ACCESS_DENIED);
    ASSERT_EQ(seteuid(0), 0);
}

TEST_F(LdvTest, HandlesThatRunOutAreNoResources) {
    symlink("/dev/null", (folder + "/device").c_str());
    const auto openFiles = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto before = openFiles();
    std::vector<short> handles;
    short handle = -1;
    unsigned short status = LDV_OK;
    while ((status = ldv_open("device", &handle)) == LDV_OK && handles.size() < 1000) handles.push_back(handle);
    EXPECT_EQ(status, LDV_NO_RESOURCES);
    for (const short open : handles) EXPECT_EQ(ldv_close(open), LDV_OK);
    EXPECT_EQ(openFiles(), before);

    listenOn("CSN00001234");
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit few{static_cast<rlim_t>(listener + 2), limit.rlim_max};  // for the folder, not for the socket
    setrlimit(RLIMIT_NOFILE, &few);
    EXPECT_EQ(ldv_open("CSN00001234", &handle), LDV_NO_RESOURCES);
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace
