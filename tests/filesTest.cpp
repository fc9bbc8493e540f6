// Files of this computer: whole or absent, and named safely.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tavo/service/files.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class FilesTest : public ::testing::Test {
protected:
    FilesTest() {
        char name[] = "/tmp/filesTest-XXXXXX";
        folder = mkdtemp(name);
    }
    ~FilesTest() override { std::filesystem::remove_all(folder); }

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

TEST_F(FilesTest, AFileIsWholeOrAbsent) {
    {
        tavo::NewFile file(path("new.hex"), false);
        tavo::writeAll(file.descriptor(), "half", 4, "new.hex");
        std::ofstream(file.temporaryPath(), std::ios::app) << " done";
    }
    EXPECT_THAT(names(), IsEmpty());
    tavo::NewFile file(path("new.hex"), false);
    tavo::writeAll(file.descriptor(), "whole", 5, "new.hex");
    EXPECT_EQ(content("new.hex"), "");
    file.commit();
    EXPECT_EQ(content("new.hex"), "whole");
    EXPECT_THAT(names(), ElementsAre("new.hex"));
    struct stat facts {};
    stat(path("new.hex").c_str(), &facts);
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(facts.st_mode & 0777, 0666 & ~mask);
}

TEST_F(FilesTest, AFileThatIsThereIsReplacedOnlyWithPermission) {
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

TEST_F(FilesTest, WhatAKilledRunLeftIsRemovedAndNothingElse) {
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
