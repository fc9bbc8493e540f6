// Files of this computer: whole or absent, and named safely.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tavo/service/files.h"

namespace {
bool namelessFiles = true;

bool isRefused(int flags) {
    errno = EOPNOTSUPP;
    return !namelessFiles && (flags & O_TMPFILE) == O_TMPFILE;
}
}  // namespace

/// In the place of the system's, so that a folder can be on a file system without nameless files.
extern "C" __attribute__((visibility("default"))) int open64(const char* path, int flags, ...) {
    if (isRefused(flags)) return -1;
    va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    return openat64(AT_FDCWD, path, flags, mode);
}

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class FilesTest : public ::testing::TestWithParam<bool> {
protected:
    FilesTest() {
        namelessFiles = GetParam();
        char name[] = "/tmp/filesTest-XXXXXX";
        folder = mkdtemp(name);
    }
    ~FilesTest() override {
        namelessFiles = true;
        std::filesystem::remove_all(folder);
    }

    std::string path(const std::string& name) const { return folder + "/" + name; }
    std::string save(const std::string& text, const std::string& name) const {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    std::string content(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) found.push_back(entry.path().filename());
        std::sort(found.begin(), found.end());
        return found;
    }

    std::string folder;
};
INSTANTIATE_TEST_SUITE_P(, FilesTest, ::testing::Bool(),
                         [](const auto& each) { return each.param ? "Nameless" : "Named"; });

TEST_P(FilesTest, AFileIsWholeOrAbsent) {
    {
        tavo::NewFile file(path("new.hex"), false);
        tavo::writeAll(file.descriptor(), "half", 4, "new.hex");
        std::ofstream(file.temporaryPath(), std::ios::app) << " done";
        EXPECT_TRUE(GetParam() || names().size() == 1) << "it has a name";
    }
    EXPECT_THAT(names(), IsEmpty());
    tavo::NewFile file(path("new.hex"), false);
    tavo::writeAll(file.descriptor(), "whole", 5, "new.hex");
    EXPECT_EQ(content("new.hex"), "");
    const tavo::Descriptor nameless(open(folder.c_str(), O_TMPFILE | O_RDWR, 0600));
    const std::size_t named = GetParam() && nameless.get() >= 0 ? 0 : 1;  // which a killed run would leave
    EXPECT_EQ(names().size(), named);
    file.commit();
    EXPECT_EQ(content("new.hex"), "whole");
    EXPECT_THAT(names(), ElementsAre("new.hex"));
}

TEST_P(FilesTest, TheUsersMaskAloneDecidesWhoMayRead) {
    const mode_t before = umask(0);
    for (const mode_t mask : {0077, 0022, 0002}) {
        for (const bool replace : {true, false}) {
            umask(mask);
            const std::string name = std::to_string(mask) + (replace ? "r" : "n");
            if (replace) chmod(save("old", name).c_str(), 0640);
            tavo::NewFile file(path(name), replace);
            file.commit();
            EXPECT_EQ(umask(before), mask) << "changed for the whole process";
            EXPECT_EQ(static_cast<mode_t>(std::filesystem::status(path(name)).permissions()), 0666 & ~mask);
        }
    }
    umask(before);
}

TEST_P(FilesTest, AFileThatIsThereIsReplacedOnlyWithPermission) {
    save("mine", "there.hex");
    try {
        tavo::NewFile file(path("there.hex"), false);
        FAIL();
    } catch (const tavo::Error& error) {
        EXPECT_EQ(error.problem, tavo::Problem::FileSystem);
        EXPECT_THAT(error.hint, HasSubstr("--force"));
    }
    {
        tavo::NewFile late(path("late.hex"), false);
        save("mine", "late.hex");  // appears meanwhile
        EXPECT_THROW(late.commit(), tavo::Error);
    }
    EXPECT_EQ(content("late.hex"), "mine");
    std::filesystem::create_symlink("there.hex", path("link.hex"));
    tavo::NewFile file(path("link.hex"), true);
    tavo::writeAll(file.descriptor(), "new", 3, "link.hex");
    file.commit();
    EXPECT_EQ(content("there.hex"), "new");
    EXPECT_THAT(names(), ElementsAre("late.hex", "link.hex", "there.hex"));
    for (const char* bad : {".", "missing/x.hex"}) EXPECT_THROW(tavo::NewFile(path(bad), true), tavo::Error) << bad;
    mkfifo(path("pipe").c_str(), 0600);
    EXPECT_THROW(tavo::NewFile(path("pipe"), true), tavo::Error);
    EXPECT_THROW(tavo::openForReading(path("pipe")), tavo::Error);
}

TEST_P(FilesTest, WhatAKilledRunLeftIsRemovedAndNothingElse) {
    const tavo::Descriptor living(open(save("x", "a.hex.part-living").c_str(), O_RDONLY));
    flock(living.get(), LOCK_EX);
    save("x", "a.hex.part-abc123");
    save("x", "a.hex.part-abc1234");
    save("x", "b.hex.part-abc123");
    std::filesystem::create_symlink("b.hex.part-abc123", path("a.hex.part-linked"));
    std::filesystem::create_directory(path("a.hex.part-folder"));
    tavo::NewFile(path("a.hex"), false);
    EXPECT_THAT(names(), ElementsAre("a.hex.part-abc1234", "a.hex.part-folder", "a.hex.part-linked",
                                     "a.hex.part-living", "b.hex.part-abc123"));
}

TEST(Reading, GoesOnAfterASignalAndTellsAFault) {
    struct sigaction act {};
    struct sigaction before {};
    act.sa_handler = [](int) {};  // without SA_RESTART: the read ends with EINTR
    sigaction(SIGUSR1, &act, &before);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const tavo::Descriptor reading(ends[0]);
    const pthread_t reader = pthread_self();
    std::thread writer([&] {
        const tavo::Descriptor writing(ends[1]);
        for (int i = 0; i < 20; ++i) {
            pthread_kill(reader, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        tavo::writeAll(writing.get(), "text", 4, "pipe");
    });
    char text[8];
    EXPECT_EQ(tavo::readSome(reading.get(), text, sizeof text, "pipe"), 4u);
    writer.join();
    sigaction(SIGUSR1, &before, nullptr);
    const tavo::Descriptor memory(open("/proc/self/mem", O_RDONLY));  // nothing is there at 0: EIO
    EXPECT_THROW(tavo::readSome(memory.get(), text, sizeof text, "mem"), tavo::Error);
}

TEST(SafeName, HoldsNothingThatAFileNameCouldBeMisusedWith) {
    const std::vector<std::pair<std::string, std::string>> names{{"00001234", "00001234"},
                                                                 {"../x", ".._x"},
                                                                 {".", "_"},
                                                                 {"..", "__"},
                                                                 {"", "_"},
                                                                 {"a/b c\x1B\xC3\xA4", "a_b_c___"},
                                                                 {std::string("a\0b", 3), "a_b"},
                                                                 {"A.b_c-9", "A.b_c-9"}};
    for (const auto& [text, name] : names) EXPECT_EQ(tavo::safeName(text), name);
}

}  // namespace
