// What this computer keeps: backups, the log, and the way back.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "service/store/keep.h"
#include "service/store/log.h"
#include "service/store/place.h"
#include "tavo/service/domainFile.h"
#include "tests/serviceTest.h"

using tavo::BackupKind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
namespace fs = std::filesystem;

namespace {

class Store : public ServiceTest {
protected:
    Store() { setenv("XDG_STATE_HOME", folder.c_str(), 1); }
    ~Store() override { unsetenv("XDG_STATE_HOME"); }

    static tavo::DeviceDescription at(const std::string& path, const std::string& serial) {
        tavo::DeviceDescription device;
        device.path = path;
        device.serial = serial;
        return device;
    }
    static std::string keep(const tavo::DeviceDescription& device, unsigned char content) {
        const std::vector<std::uint8_t> bytes(100, content);
        return tavo::keepBackup(device, BackupKind::Flash, bytes);
    }
    static std::vector<std::string> paths(const tavo::DeviceDescription& device) {
        std::vector<std::string> all;
        for (const auto& backup : tavo::backups(device)) all.push_back(backup.path);
        return all;
    }
    static mode_t modeOf(const fs::path& path) {
        struct stat facts {};
        return stat(path.c_str(), &facts) == 0 ? facts.st_mode & 0777U : 0;
    }
    std::string log(const std::string& text) const {
        fs::create_directories(folder + "/tavo-util");
        std::ofstream(folder + "/tavo-util/history.jsonl", std::ios::app) << text;
        return text;
    }

    const tavo::DeviceDescription one = at("1-4.2", "A");
};

}  // namespace

TEST_F(Store, ABackupOfAnotherInterfaceWithTheSameSerialNumberIsDoubted) {
    keep(one, 1);
    const auto backup = tavo::backups(one).at(0);
    auto mine = one;
    mine.neuronId = "050102030405";
    EXPECT_EQ(doubtAbout(backup, mine), "");
    const auto ran = [&](const std::string& neuron) {
        log(R"({"time":"2024-05-01T12:00:00Z","run":"1","action":"program","part":"flash","result":"done","serial":"A","backup":")" +
            fs::path(backup.path).filename().string() + R"(","neuron_id":")" + neuron + "\"}\n");
    };
    ran("05FFFFFFFFFF");
    EXPECT_THAT(doubtAbout(backup, mine), HasSubstr("with the Neuron ID 05FFFFFFFFFF"));
    EXPECT_EQ(doubtAbout(backup, one), "") << "nothing speaks for it";
    ran(mine.neuronId);
    EXPECT_EQ(doubtAbout(backup, mine), "") << "both held the same";
}

TEST_F(Store, TheSameContentIsKeptOnceAndBecomesTheLatest) {
    // As if kept long ago: the name tells when it was first seen.
    const fs::path now = keep(one, 1);
    std::string name = now.filename();
    const std::string first = now.parent_path() / name.replace(6, 15, "20200101-000000");
    fs::rename(now, first);
    const std::string second = keep(one, 2);
    EXPECT_THAT(paths(one), ElementsAre(second, first));
    EXPECT_EQ(keep(one, 1), first);
    EXPECT_THAT(paths(one), ElementsAre(first, second));
    EXPECT_THAT(paths(at("1-4.2", "B")), IsEmpty());
    EXPECT_EQ(modeOf(folder + "/tavo-util/backups"), 0700U);
    EXPECT_EQ(modeOf(fs::path(first).parent_path()), 0700U);
    EXPECT_EQ(modeOf(first), 0600U);
    EXPECT_NE(tavo::backupFolder(at("", "A/B")), tavo::backupFolder(at("", "A_B")));
    EXPECT_NE(tavo::backupFolder(at("1-4.2", "")), tavo::backupFolder(at("", "at-1-4.2")));
}

TEST_F(Store, ADamagedCopyIsToldAndDoesNotStandForTheContent) {
    const std::string first = keep(one, 1);
    std::ofstream(first) << "spoiled";
    EXPECT_TRUE(tavo::backups(one).at(0).isDamaged);
    keep(one, 1);
    EXPECT_FALSE(tavo::backups(one).at(0).isDamaged);
    tavo::Backup damaged = tavo::backups(one).at(0);
    damaged.isDamaged = true;
    EXPECT_EQ(failureOf([&] { tavo::restore(device(), damaged); }).problem, tavo::Problem::FileRefused);
}

TEST_F(Store, TenStayAndTheCopyOfARunThatFailedStaysUntilItIsMended) {
    const std::string needed = keep(one, 100);
    const std::string ofRecord = keep(one, 101);
    const std::string line = R"({"time":"2024-05-01T12:00:00Z","part":"flash","serial":"A","run":")";
    log(line + R"(1","result":"failed","backup":")" + fs::path(needed).filename().string() + "\"}\n");
    rememberRun(one, {"/a.hex", "", ofRecord, ""});
    for (unsigned char i = 0; i < 12; ++i) keep(one, i);
    EXPECT_THAT(paths(one), SizeIs(12));
    EXPECT_EQ(findBackup(one, BackupKind::Flash).path, ofRecord) << "what was there before the run that was cut off";
    forgetRun(one);
    log(line + "2\",\"result\":\"done\"}\n");
    keep(one, 50);
    EXPECT_THAT(paths(one), SizeIs(10));
    EXPECT_FALSE(fs::exists(needed));
    EXPECT_FALSE(fs::exists(ofRecord));
}

TEST_F(Store, ABackupIsNamedByTheBeginningOfItsIdOrSum) {
    const std::string first = keep(one, 1);
    keep(one, 2);
    const auto kept = findBackup(one, BackupKind::Flash, fs::path(first).filename().string());
    EXPECT_EQ(findBackup(one, BackupKind::Flash, kept.sha256.substr(0, 6)).path, first);
    EXPECT_EQ(findBackup(one, BackupKind::Flash, kept.id).path, first);
    const auto several = failureOf([&] { findBackup(one, BackupKind::Flash, kept.id.substr(0, 8)); });
    EXPECT_EQ(several.problem, tavo::Problem::BadArgument);
    EXPECT_THAT(several.details, SizeIs(2));
    EXPECT_THAT(failureOf([&] { findBackup(one, BackupKind::Domains); }).hint, HasSubstr("--list"));
}

TEST_F(Store, AFolderThatCannotBeUsedIsToldWithTheWayOn) {
    std::ofstream(folder + "/tavo-util") << "in the way";
    const auto blocked = failureOf([&] { tavo::requireRoom(one, BackupKind::Flash, 1); });
    EXPECT_EQ(blocked.problem, tavo::Problem::FileSystem);
    EXPECT_THAT(blocked.hint, HasSubstr("--no-backup"));
    fs::remove(folder + "/tavo-util");
    EXPECT_THAT(failureOf([&] { tavo::requireRoom(one, BackupKind::Flash, 1ULL << 60); }).hint,
                HasSubstr("--no-backup"));
    tavo::requireRoom(one, BackupKind::Flash, 1U << 20);
    EXPECT_THAT(paths(one), IsEmpty());
    if (geteuid() != 0) return;
    ASSERT_EQ(chown((folder + "/tavo-util/backups").c_str(), 65534, 65534), 0);
    EXPECT_THAT(failureOf([&] { keep(one, 1); }).what(), HasSubstr("belongs to user 65534"));
}

TEST_F(Store, TwoProcessesAppendAndATornLineTakesNoOtherWithIt) {
    log("{\"time\":\"2024-05-01T12:00:00Z\",\"action\":\"era");
    constexpr unsigned kRuns = 50;
    pid_t children[2] = {};
    for (pid_t& child : children) {
        child = fork();
        if (child != 0) continue;
        tavo::Device real(at("1-" + std::to_string(getpid()), "A"));
        tavo::Operation op(real, none);
        for (unsigned i = 0; i < kRuns; ++i) {
            tavo::LoggedRun run(op, "program", BackupKind::Flash);
            run.begin();
            run.end();
        }
        _exit(0);
    }
    for (const pid_t child : children) waitpid(child, nullptr, 0);
    const auto all = tavo::history();
    EXPECT_EQ(std::count_if(all.entries.begin(), all.entries.end(), [](const auto& e) { return e.result == "done"; }),
              2 * kRuns);
    ASSERT_THAT(all.faults, SizeIs(1));
    EXPECT_THAT(all.faults[0], HasSubstr("line 1 is not whole"));
    std::ifstream in(folder + "/tavo-util/history.jsonl");
    EXPECT_EQ(std::count(std::istreambuf_iterator<char>(in), {}, '\n'), 1 + 4 * kRuns);
}

TEST_F(Store, TheLogFollowsASerialNumberThroughItsChanges) {
    const auto line = [&](const std::string& time, const std::string& more) {
        log("{\"time\":\"" + time + "\",\"result\":\"done\"," + more + "}\n");
    };
    line("2024-01-01T00:00:00Z", R"("action":"program","serial":"OLD","run":"1")");
    line("2024-01-02T00:00:00Z",
         R"("action":"program","serial":"NEW","run":"0")");  // of one that is called otherwise now
    line("2024-02-01T00:00:00Z", R"("action":"set-serial","serial":"OLD","serial_after":"NEW","run":"2")");
    line("2024-03-01T00:00:00Z", R"("action":"erase","serial":"OLD","path":"1-7","run":"3")");  // another one, by now
    line("2024-04-01T00:00:00Z", R"("action":"program","serial":"NEW","neuron_id":"050102030405","run":"4")");
    const auto runs = [](const std::vector<std::string>& specs) {
        std::vector<std::string> found;
        for (const auto& entry : tavo::history(specs).entries) found.push_back(entry.run);
        return found;
    };
    EXPECT_THAT(runs({}), SizeIs(5));
    EXPECT_THAT(runs({"NEW"}), ElementsAre("1", "2", "4"));
    EXPECT_THAT(runs({"usb:1-7"}), ElementsAre("3"));
    EXPECT_THAT(runs({"neuron:050102030405"}), ElementsAre("4"));
    EXPECT_THAT(runs({"sim:" + folder + "/none"}), IsEmpty());

    const std::string before = keep(at("1-4.2", "OLD"), 1);
    const timespec january[2] = {{1704067200, 0}, {1704067200, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, before.c_str(), january, 0), 0);
    keep(at("1-7", "OLD"), 2);
    EXPECT_THAT(paths(at("1-4.2", "NEW")), ElementsAre(before));
}

TEST_F(Store, ARunThatNeverEndedIsToldAsStarted) {
    {
        tavo::Operation op(device(), none);
        tavo::LoggedRun run(op, "erase", BackupKind::Flash);
        run.begin();
        tavo::LoggedRun failed(op, "program", BackupKind::Flash);
        failed.fail(tavo::Error(tavo::Problem::Interrupted, "stopped"));
    }
    const auto all = tavo::history({"sim:" + folder}).entries;
    ASSERT_THAT(all, SizeIs(2));
    EXPECT_EQ(modeOf(folder + "/history.jsonl"), 0600U);
    EXPECT_EQ(all[0].result, "started");
    EXPECT_EQ(all[1].result + ": " + all[1].error, "interrupted: stopped");
}

TEST_F(Store, KeysAreMaskedAndNeverRestoredWrong) {
    const auto put = [](LonAddress& entry, unsigned char id, unsigned char key) {
        entry = {};
        entry.domainIdLength = 1;
        entry.domainId[0] = id;
        entry.node = 0x81;
        std::fill(std::begin(entry.authenticationKey), std::end(entry.authenticationKey), key);
    };
    tavo::DomainTable secret = tavo::readDomainTable(device());
    put(secret[0], 0x4A, 0x5E);
    tavo::writeDomainTable(device(), tavo::readDomainTable(device()), secret);
    const auto now = [&] { return tavo::readDomainTable(device()); };
    const auto restoreLatest = [&] {
        return tavo::restore(device(), findBackup(device().description(), BackupKind::Domains));
    };

    // The same domain and key: the Neuron's own key is the right one.
    tavo::DomainTable moved = secret;
    moved[0].subnet = 9;
    const std::string file = tavo::writeDomainTable(device(), secret, moved);
    std::ifstream in(file);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    EXPECT_THAT(text, testing::Not(HasSubstr("5E5E")));
    EXPECT_THAT(restoreLatest().keptKeys, ElementsAre(0U));
    EXPECT_EQ(std::memcmp(&now()[0], &secret[0], sizeof secret[0]), 0);

    // Another key, or another domain: the one that was there is gone.
    for (const bool isSameDomain : {true, false}) {
        tavo::DomainTable other = secret;
        put(other[0], isSameDomain ? 0x4A : 0x4B, 0x11);
        tavo::writeDomainTable(device(), secret, other);
        EXPECT_THAT(failureOf(restoreLatest).what(), HasSubstr("the key of entry 0 was not kept"));
        EXPECT_EQ(std::memcmp(&now()[0], &other[0], sizeof other[0]), 0);
        tavo::DomainWriteOptions withKeys;
        withKeys.keepKeys = true;
        tavo::writeDomainTable(device(), other, secret, withKeys);
        EXPECT_THAT(restoreLatest().keptKeys, IsEmpty());
        EXPECT_EQ(std::memcmp(&now()[0], &other[0], sizeof other[0]), 0);
        tavo::writeDomainTable(device(), other, secret);
    }
}
