#include <algorithm>
#include <cstring>
#include <iterator>
#include <numeric>
#include <sstream>
#include <stdexcept>

#include "platform/ldv.h"
#include "tavo/LdvManager.h"
#include "tavo/neuron.h"
#include "tests/rigTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned char kUntouched = 0xA5;
const std::string kTenZeros = " 00 00 00 00 00 00 00 00 00 00";

/// What the operations fill in, marked so that a change shows.
struct Outputs {
    Outputs() { std::memset(static_cast<void*>(this), kUntouched, sizeof *this); }
    bool isUntouched() const { return std::memcmp(this, &fresh(), sizeof *this) == 0; }
    static const Outputs& fresh() {
        static const Outputs outputs;
        return outputs;
    }
    NeuronState state;
    NeuronId id;
    unsigned char programId[8];
    LonAddress domains[2];
};

struct Byte {
    operator std::uint8_t() const { return static_cast<std::uint8_t>(value); }
    friend std::istream& operator>>(std::istream& in, Byte& byte) { return in >> std::hex >> byte.value; }
    unsigned value = 0;
};

class NeuronTest : public RigTest {
protected:
    /// The journal lines that start with a word, without it.
    std::vector<std::string> lines(const std::string& word) const {
        std::vector<std::string> found;
        for (const std::string& line : rig.journal) {
            if (line.rfind(word + " ", 0) == 0) found.push_back(line.substr(word.size() + 1));
        }
        return found;
    }

    static sim::Bytes bytesOf(const std::string& hex) {
        std::istringstream words(hex);
        return {std::istream_iterator<Byte>(words), {}};
    }

    Outputs outputs;
};

struct Operation {
    std::string name;
    TAVO_STATUS (*run)(const DeviceInfo&, Outputs&);
};
void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

template <MODE mode>
TAVO_STATUS modeOf(const DeviceInfo& info, Outputs&) {
    return writeMode(info, mode);
}

const Operation kHardReset{"hardReset", [](const DeviceInfo& info, Outputs&) { return hardReset(info); }};
const Operation kSoftReset{"softReset", [](const DeviceInfo& info, Outputs&) { return softReset(info); }};
const Operation kServicePin{"sendServicePin", [](const DeviceInfo& info, Outputs&) { return sendServicePin(info); }};
const Operation kModeService{"modeService", modeOf<MODE_SERVICE>};
const Operation kModeUnconfigured{"modeUnconfigured", modeOf<MODE_UNCONFIGURED>};
const Operation kModeOffline{"modeOffline", modeOf<MODE_OFFLINE>};
const Operation kModeConfigured{"modeConfigured", modeOf<MODE_CONFIGURED>};
const Operation kModeUnknown{"modeUnknown", modeOf<static_cast<MODE>(7)>};
const Operation kReadState{"readState", [](const DeviceInfo& info, Outputs& o) { return readState(info, o.state); }};
const Operation kReadId{"readNeuronId", [](const DeviceInfo& info, Outputs& o) { return readNeuronId(info, o.id); }};
const Operation kReadProgram{"readProgramId",
                             [](const DeviceInfo& info, Outputs& o) { return readProgramId(info, o.programId); }};
const Operation kReadDomains{"readDomainTable",
                             [](const DeviceInfo& info, Outputs& o) { return readDomainTable(info, o.domains); }};
const Operation kWriteDomains{"writeDomainTable", [](const DeviceInfo& info, Outputs&) {
                                  const LonAddress entries[2];
                                  return writeDomainTable(info, entries);
                              }};

constexpr auto kOperationName = [](const auto& test) { return test.param.name; };

// The whole conversation of every operation.

struct Conversation {
    Operation operation;
    std::vector<std::string> journal;
    std::string name = operation.name;
};

/// Opened, and for each request: written, read once after 10 ms, answered.
std::vector<std::string> talk(const std::vector<std::pair<std::string, std::string>>& exchanges) {
    std::vector<std::string> journal{"ldv_open CSN00001234"};
    for (const auto& [request, answer] : exchanges) {
        journal.insert(journal.end(), {"ldv_write " + request, "sleep 10", "ldv_read " + answer});
    }
    journal.emplace_back("ldv_close");
    return journal;
}

std::string answerHead(const std::string& length, const std::string& dataLength, const std::string& code) {
    return "16 " + length + " 60 01 " + dataLength + " 7F" + kTenZeros + " " + code;
}

class NeuronConversation : public NeuronTest, public testing::WithParamInterface<Conversation> {};

TEST_P(NeuronConversation, GoesByteForByte) {
    EXPECT_EQ(GetParam().operation.run(info, outputs), TAVO_SUCCESS);
    EXPECT_EQ(rig.journal, GetParam().journal);
}

const std::string kDefaultEntry = " 00 00 00 00 00 00 FF FF 80 00 00 00 00 00 00";

INSTANTIATE_TEST_SUITE_P(
    All, NeuronConversation,
    testing::Values(
        Conversation{kHardReset, {"open 0.0", "pin 8=0", "sleep 25", "pin 8=1", "sleep 1500", "close 0.0"}},
        Conversation{kServicePin, {"open 0.0", "pin 14=0", "sleep 25", "pin 14=1", "close 0.0"}},
        Conversation{
            kModeService,
            {"open 0.0", "pin 8=0", "sleep 500", "pin 14=0", "sleep 11000", "pin 14=1", "pin 8=1", "close 0.0"}},
        Conversation{kModeUnconfigured,
                     talk({{"22 11 60 00 02 7F" + kTenZeros + " 6C 03 02", answerHead("0F", "01", "2C")}})},
        Conversation{kModeOffline,
                     talk({{"22 11 60 00 02 7F" + kTenZeros + " 6C 03 06", answerHead("0F", "01", "2C")}})},
        Conversation{kModeConfigured,
                     talk({{"22 11 60 00 02 7F" + kTenZeros + " 6C 03 04", answerHead("0F", "01", "2C")}})},
        Conversation{kReadState, talk({{"22 0F 60 00 02 7F" + kTenZeros + " 51",
                                        answerHead("1E", "10", "31") + kTenZeros + " 01 04 16 00 08"}})},
        Conversation{kReadId, talk({{"24 14 60 08 06 7F" + kTenZeros + " 6D 01 00 00 06 00",
                                     answerHead("15", "07", "2D") + " 05 01 02 03 04 05"}})},
        Conversation{kReadProgram, talk({{"24 16 60 08 06 7F" + kTenZeros + " 6D 01 00 0D 08 00",
                                          answerHead("17", "09", "2D") + " 9F FF FF 05 01 84 04 60"}})},
        Conversation{
            kReadDomains,
            talk({{"22 10 60 00 02 7F" + kTenZeros + " 6A 00",
                   answerHead("1E", "10", "2A") + " 4A 00 00 00 00 00 01 8A 01 FF FF FF FF FF FF"},
                  {"22 10 60 00 02 7F" + kTenZeros + " 6A 01", answerHead("1E", "10", "2A") + kDefaultEntry}})},
        Conversation{
            kWriteDomains,
            talk({{"22 21 60 00 02 7F" + kTenZeros + " 63 00" + kDefaultEntry, answerHead("0F", "01", "23")},
                  {"22 21 60 00 02 7F" + kTenZeros + " 63 01" + kDefaultEntry, answerHead("0F", "01", "23")}})}),
    kOperationName);

TEST_F(NeuronTest, SoftResetTakesANoticeThatComesAfterThirtySeconds) {
    rig.scriptLdv({{.message = {0x16, 0x50, 0x50}, .times = 3}, {.message = {0x50, 0x00}, .atMs = 30'000}});
    EXPECT_EQ(softReset(info), TAVO_SUCCESS);
    EXPECT_THAT(lines("ldv_write"), ElementsAre("50 00"));
    EXPECT_EQ(rig.now(), 31'000'000u);
    ASSERT_GE(rig.journal.size(), 2u);
    EXPECT_EQ(rig.journal.end()[-2], "sleep 1000") << "with the channel still open";
    EXPECT_EQ(rig.journal.back(), "ldv_close");
}

TEST_F(NeuronTest, SoftResetTakesNoOtherFirstByteForItsNotice) {
    std::vector<sim::LdvStep> script;
    for (unsigned bit = 1; bit <= 0x80; bit <<= 1)
        script.push_back({.message = {static_cast<unsigned char>(0x50 ^ bit), 0x00}});
    script.push_back({.message = {0x50, 0xFF, 0xFF}});  // only the first byte counts
    rig.scriptLdv(script);
    EXPECT_EQ(softReset(info), TAVO_SUCCESS);
    EXPECT_EQ(rig.calls("ldv_read"), 9u);
}

TEST_F(NeuronTest, SoftResetGivesUpAfter6500EmptyReads) {
    rig.board().neuron.behaviour.delayMs = 70'000;
    EXPECT_EQ(softReset(info), TAVO_TRANSACTION_FAILED);
    EXPECT_EQ(rig.calls("ldv_read"), 6500u);
    EXPECT_EQ(rig.now(), 65'000'000u);
}

// Results.

TEST_F(NeuronTest, StatusIsHandedOutByteForByte) {
    for (unsigned char i = 0; i < 15; ++i) rig.board().neuron.data.status[i] = static_cast<unsigned char>(0x10 + i);
    ASSERT_EQ(readState(info, outputs.state), TAVO_SUCCESS);
    const NeuronState& state = outputs.state;
    EXPECT_EQ(state.transmitErrors[0], 0x10);
    EXPECT_EQ(state.transactionTimeouts[1], 0x13);
    EXPECT_EQ(state.receiveTransactionsFull[0], 0x14);
    EXPECT_EQ(state.lostMessages[1], 0x17);
    EXPECT_EQ(state.missedMessages[0], 0x18);
    EXPECT_EQ(state.resetCause, 0x1A);
    EXPECT_EQ(state.nodeState, 0x1B);
    EXPECT_EQ(state.versionNumber, 0x1C);
    EXPECT_EQ(state.errorLog, 0x1D);
    EXPECT_EQ(state.modelNumber, 0x1E);
    EXPECT_EQ(state.reserved, 0) << "past the answer, where the buffer was cleared";
}

TEST_F(NeuronTest, IdentityIsHandedOutInTheOrderSent) {
    ASSERT_EQ(readNeuronId(info, outputs.id), TAVO_SUCCESS);
    EXPECT_THAT(outputs.id.bytes, ElementsAre(0x05, 0x01, 0x02, 0x03, 0x04, 0x05));
    ASSERT_EQ(readProgramId(info, outputs.programId), TAVO_SUCCESS);
    EXPECT_THAT(outputs.programId, ElementsAre(0x9F, 0xFF, 0xFF, 0x05, 0x01, 0x84, 0x04, 0x60));
}

TEST_F(NeuronTest, DomainEntriesOfAnyBytesComeBackAsWritten) {
    for (unsigned first = 0; first < 256; first += 15) {
        LonAddress entries[2];
        auto* bytes = reinterpret_cast<unsigned char*>(entries);
        std::iota(bytes, bytes + sizeof entries, static_cast<unsigned char>(first));
        ASSERT_EQ(writeDomainTable(info, entries), TAVO_SUCCESS);
        ASSERT_EQ(readDomainTable(info, outputs.domains), TAVO_SUCCESS);
        EXPECT_EQ(std::memcmp(entries, outputs.domains, sizeof entries), 0) << "from byte value " << first;
    }
}

TEST_F(NeuronTest, EachModeLeadsToItsNodeState) {
    const std::pair<MODE, unsigned> kStates[] = {
        {MODE_CONFIGURED, 0x04}, {MODE_UNCONFIGURED, 0x02}, {MODE_OFFLINE, 0x06}, {MODE_SERVICE, 0x02}};
    for (const auto& [mode, state] : kStates) {
        EXPECT_EQ(writeMode(info, mode), TAVO_SUCCESS);
        EXPECT_EQ(rig.board().neuron.data.status[sim::NeuronData::kNodeState], state);
    }
}

TEST_F(NeuronTest, EntryZeroIsFilledWhenEntryOneIsNotAnswered) {
    sim::Bytes answer{0x16, 0x1E, 0x60, 0x01, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x2A};
    answer.resize(32);  // an entry of zeros is as good as any other
    rig.scriptLdv({{.message = answer}});
    EXPECT_EQ(readDomainTable(info, outputs.domains), TAVO_TRANSACTION_FAILED);
    EXPECT_EQ(rig.calls("ldv_read"), 101u);
    const unsigned char zeros[sizeof(LonAddress)] = {};
    EXPECT_EQ(std::memcmp(&outputs.domains[0], zeros, sizeof zeros), 0);
    EXPECT_EQ(std::memcmp(&outputs.domains[1], &Outputs::fresh().domains[1], sizeof zeros), 0);
}

// IDs.

class NeuronIds : public NeuronTest, public testing::WithParamInterface<Operation> {};

TEST_P(NeuronIds, AreTestedBeforeAnythingIsTouched) {
    info.productId = 0x1234;
    EXPECT_EQ(GetParam().run(info, outputs), TAVO_WRONG_VID_PID);
    EXPECT_THAT(rig.journal, IsEmpty());
    EXPECT_TRUE(outputs.isUntouched());
}

INSTANTIATE_TEST_SUITE_P(All, NeuronIds,
                         testing::Values(kHardReset, kSoftReset, kModeService, kModeUnconfigured, kModeOffline,
                                         kModeConfigured, kModeUnknown, kReadState, kReadProgram, kReadDomains,
                                         kWriteDomains),
                         kOperationName);

TEST_F(NeuronTest, ServicePinAndNeuronIdDoNotTestTheIds) {
    info.productId = 0x1234;
    EXPECT_EQ(sendServicePin(info), TAVO_SUCCESS);
    EXPECT_EQ(readNeuronId(info, outputs.id), TAVO_SUCCESS);
}

TEST_F(NeuronTest, AnUnknownModeOpensNothing) {
    EXPECT_EQ(kModeUnknown.run(info, outputs), TAVO_UNKNOWN_ERROR);
    EXPECT_THAT(rig.journal, IsEmpty());
}

// Failures.

struct Failure {
    const char* function;
    int status;
    TAVO_STATUS result;
};
constexpr Failure kFailures[] = {{"CyOpen", CY_ERROR_DRIVER_OPEN_FAILED, TAVO_DEVICE_OPEN_FAILED},
                                 {"CySetGpioValue", CY_ERROR_IO_TIMEOUT, TAVO_TIMEOUT},
                                 {"ldv_open", LDV_NOT_FOUND, TAVO_DEVICE_OPEN_FAILED},
                                 {"ldv_write", LDV_DEVICE_ERR, TAVO_TRANSACTION_FAILED},
                                 {"ldv_read", LDV_DEVICE_ERR, TAVO_TRANSACTION_FAILED}};

class NeuronFailure : public NeuronTest, public testing::WithParamInterface<Operation> {
protected:
    void freshBoard() {
        sim::Options options;
        options.pace = sim::Pace::Virtual;
        rig.reset(options);
    }

    void expectOnlyReleasesAfterTheFailure() const {
        const std::vector<std::string> releases{"pin 8=1", "pin 14=1", "close 0.0", "ldv_close"};
        auto line = std::find_if(rig.journal.begin(), rig.journal.end(), [](const std::string& l) {
            return l.find(" !") != std::string::npos && l != "ldv_read !6";
        });
        ASSERT_NE(line, rig.journal.end());
        while (++line != rig.journal.end()) EXPECT_THAT(releases, testing::Contains(*line));
    }
};

TEST_P(NeuronFailure, OfAnyCallEndsTheOperationAndReleasesEverything) {
    ASSERT_EQ(GetParam().run(info, outputs), TAVO_SUCCESS);
    for (const Failure& failure : kFailures) {
        freshBoard();
        ASSERT_EQ(GetParam().run(info, outputs), TAVO_SUCCESS);
        // After the second change of a pin only releases follow, whose result nobody can use.
        const unsigned calls = std::min(rig.calls(failure.function), *failure.function == 'C' ? 2u : 100u);
        for (unsigned n = 1; n <= calls; ++n) {
            SCOPED_TRACE(failure.function + std::string(", call ") + std::to_string(n));
            freshBoard();
            rig.fail(failure.function, n, failure.status);
            Outputs marked;
            EXPECT_EQ(GetParam().run(info, marked), failure.result);
            EXPECT_EQ(rig.leftovers(), "");
            expectOnlyReleasesAfterTheFailure();
            EXPECT_TRUE(marked.isUntouched() || (GetParam().name == kReadDomains.name && n == 2));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, NeuronFailure,
                         testing::Values(kHardReset, kSoftReset, kServicePin, kModeService, kModeConfigured, kReadState,
                                         kReadId, kReadProgram, kReadDomains, kWriteDomains),
                         kOperationName);

class NeuronUnanswered : public NeuronTest, public testing::WithParamInterface<Operation> {};

TEST_P(NeuronUnanswered, WaitsForOneHundredEmptyReadsWhateverElseArrives) {
    using Answers = sim::NeuronBehaviour::Answers;
    for (const Answers answers : {Answers::Negative, Answers::Wrong, Answers::Stranger, Answers::Silent}) {
        SCOPED_TRACE(static_cast<int>(answers));
        const auto start = rig.now();
        const unsigned readsBefore = rig.calls("ldv_read");
        rig.board().neuron.behaviour = {.answers = answers, .unsolicited = 150};
        EXPECT_EQ(GetParam().run(info, outputs), TAVO_TRANSACTION_FAILED);
        const unsigned messages = 150 + (answers == Answers::Silent ? 0 : 1);
        EXPECT_EQ(rig.calls("ldv_read") - readsBefore, 100 + messages);
        EXPECT_EQ(rig.now() - start, (100 + messages) * 10'000);
        EXPECT_TRUE(outputs.isUntouched());
    }
}

TEST_P(NeuronUnanswered, ReadsMessagesOf64Bytes) {
    ASSERT_EQ(GetParam().run(info, outputs), TAVO_SUCCESS);
    std::vector<sim::LdvStep> script;
    for (const std::string& line : lines("ldv_read")) {
        script.push_back({.message = sim::Bytes(64, 0x11)});
        script.push_back({.message = bytesOf(line)});
    }
    rig.scriptLdv(script);
    EXPECT_EQ(GetParam().run(info, outputs), TAVO_SUCCESS);
}

TEST_P(NeuronUnanswered, TakesALateAnswerBehindOtherTrafficInTime) {
    rig.board().neuron.behaviour = {.delayMs = 900, .unsolicited = 150};
    EXPECT_EQ(GetParam().run(info, outputs), TAVO_SUCCESS);
    rig.board().neuron.behaviour = {.delayMs = 1100, .unsolicited = 0};
    EXPECT_EQ(GetParam().run(info, outputs), TAVO_TRANSACTION_FAILED);
}

TEST_P(NeuronUnanswered, TellsItsAnswerByEveryBitOfTheFourTestedBytesOnly) {
    ASSERT_EQ(GetParam().run(info, outputs), TAVO_SUCCESS);
    std::vector<sim::LdvStep> script;
    for (const std::string& line : lines("ldv_read")) {
        const sim::Bytes good = bytesOf(line);
        for (const auto& [tested, mask] : {std::pair{1, 0xFF}, {3, 0x01}, {4, 0xFF}, {16, 0xFF}}) {
            for (int bit = 1; bit <= mask; bit <<= 1) {
                sim::Bytes other = good;
                other[static_cast<std::size_t>(tested)] ^= static_cast<unsigned char>(bit);
                script.push_back({.message = other});
            }
        }
        sim::Bytes same = good;
        for (const std::size_t untested : {0, 2, 5, 10, 15}) same[untested] ^= 0xFF;
        same[3] ^= 0xFE;
        script.push_back({.message = same});
    }
    rig.scriptLdv(script);
    const unsigned before = rig.calls("ldv_read");
    EXPECT_EQ(GetParam().run(info, outputs), TAVO_SUCCESS);
    EXPECT_EQ(rig.calls("ldv_read") - before, script.size());
}

INSTANTIATE_TEST_SUITE_P(All, NeuronUnanswered,
                         testing::Values(kModeConfigured, kReadState, kReadId, kReadProgram, kReadDomains,
                                         kWriteDomains),
                         kOperationName);

// The channel.

struct Naming {
    std::string name;
    void (*describe)(DeviceInfo&);
    std::string ldvName;  // empty: none
};
void PrintTo(const Naming& naming, std::ostream* out) {
    *out << naming.name;
}

void noSerial(DeviceInfo& info) {
    static const unsigned char kId[] = {0x01, 0x02, 0x03, 0x0A, 0x0B, 0x0C};
    info.serialNumber = "";
    info.neuronId = kId;
    info.neuronIdValid = 1;
}

void explicitName(DeviceInfo& info) {
    info.linkDeviceNumber = 255;
    info.ldvDeviceName = "100%s of%8s";
}

const std::string kSeventy(70, 'x');

class LdvName : public NeuronTest, public testing::WithParamInterface<Naming> {};

TEST_P(LdvName, IsChosenFromTheRecord) {
    GetParam().describe(info);
    rig.fail("ldv_open", 1, LDV_NOT_FOUND);
    const LdvManager ldv(info);
    EXPECT_FALSE(ldv.isOpen);
    if (GetParam().ldvName.empty()) {
        EXPECT_EQ(ldv.ldvStatus, 12);
        EXPECT_THAT(rig.journal, IsEmpty());
    } else {
        EXPECT_EQ(ldv.ldvStatus, LDV_NOT_FOUND);
        EXPECT_THAT(rig.journal, ElementsAre("ldv_open " + GetParam().ldvName + " !1"));
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, LdvName,
    testing::Values(
        Naming{"shortSerialIsPadded", [](DeviceInfo& i) { i.serialNumber = "1234"; }, "CSN    1234"},
        Naming{"otherVendor", [](DeviceInfo& i) { i.serialNumber = "1234", i.vendorId = 0x1234; }, "SN    1234"},
        Naming{"longSerialIsKept", [](DeviceInfo& i) { i.serialNumber = "1234567890"; }, "CSN1234567890"},
        Naming{"cutTo63", [](DeviceInfo& i) { i.serialNumber = kSeventy.c_str(); }, "CSN" + kSeventy.substr(0, 60)},
        Naming{"neuronId", noSerial, "CID0102030a0b0c"},
        Naming{"neuronIdOtherVendor", [](DeviceInfo& i) { noSerial(i), i.vendorId = 0x1234; }, "ID0102030a0b0c"},
        Naming{"invalidSerial", [](DeviceInfo& i) { noSerial(i), i.serialNumber = "1234", i.serialNumberValid = 0; },
               "CID0102030a0b0c"},
        Naming{"neuronIdNotMarkedValid", [](DeviceInfo& i) { noSerial(i), i.neuronIdValid = 0; }, ""},
        Naming{"neuronIdOfZeros", [](DeviceInfo& i) { noSerial(i), i.neuronId = NeuronId(); }, ""},
        Naming{"explicitIsTakenAsItIs", explicitName, "100%s of%8s"},
        Naming{"explicitIsCut", [](DeviceInfo& i) { explicitName(i), i.ldvDeviceName = kSeventy.c_str(); },
               kSeventy.substr(0, 63)},
        Naming{"explicitNeedsAValidSerial",
               [](DeviceInfo& i) { noSerial(i), explicitName(i), i.serialNumberValid = 0; }, ""},
        Naming{"explicitOfNull", [](DeviceInfo& i) { i.linkDeviceNumber = 255; }, ""}),
    kOperationName);

class LdvTransaction : public NeuronTest {
protected:
    bool transact(unsigned timeoutMs, const std::vector<LdvManager::C>& tests = {{0, 0xFF, 0x99}}) {
        const unsigned char request[] = {0x12, 0x34};
        LdvManager ldv(info);
        const bool result = ldv.transaction(request, sizeof request, response, sizeof response, timeoutMs, tests.data(),
                                            static_cast<unsigned char>(tests.size()));
        status = ldv.ldvStatus;
        return result;
    }

    unsigned char response[8] = {};
    unsigned status = 0;
};

TEST_F(LdvTransaction, ReadsAsOftenAsTheSignedSixteenBitQuotientSays) {
    rig.scriptLdv({});
    const std::pair<unsigned, unsigned> kReads[] = {
        {0, 0},       {9, 0},       {10, 1},      {19, 1},     {1000, 100}, {327'679, 32'767},
        {327'680, 0}, {655'369, 0}, {655'370, 1}, {983'050, 0}};
    for (const auto& [timeoutMs, reads] : kReads) {
        SCOPED_TRACE(timeoutMs);
        const unsigned before = rig.calls("ldv_read");
        EXPECT_FALSE(transact(timeoutMs));
        EXPECT_EQ(rig.calls("ldv_read") - before, reads);
        EXPECT_EQ(status, reads == 0 ? LDV_OK : LDV_NO_MSG_AVAIL);
    }
}

TEST_F(LdvTransaction, AFloodOfOtherMessagesDoesNotShortenTheWait) {
    rig.scriptLdv(
        {{.status = LDV_NO_MSG_AVAIL, .times = 99}, {.message = {0x98}, .times = 5000}, {.message = {0x99, 0x01}}});
    EXPECT_TRUE(transact(1000));
    EXPECT_EQ(rig.calls("ldv_read"), 5100u);
    EXPECT_EQ(rig.calls("sleep"), 5100u);
    EXPECT_THAT(response, ElementsAre(0x99, 0x01, 0, 0, 0, 0, 0, 0));
}

TEST_F(LdvTransaction, ADroppedMessageLeavesNothingInTheBuffer) {
    rig.scriptLdv({{.message = {0x99, 1, 2, 3, 4, 5, 6, 7}}, {.message = {0x99, 1}}});
    EXPECT_TRUE(transact(1000, {{0, 0xFF, 0x99}, {7, 0xFF, 0}}));
    EXPECT_THAT(response, ElementsAre(0x99, 1, 0, 0, 0, 0, 0, 0));
}

TEST_F(LdvTransaction, EveryTestMustHoldUnderItsMask) {
    rig.scriptLdv({{.message = {0x9F, 0x00}}, {.message = {0x8F, 0x01}}, {.message = {0x9A, 0x03}}});
    EXPECT_TRUE(transact(1000, {{0, 0xF0, 0x90}, {1, 0x01, 0x01}}));
    EXPECT_EQ(response[0], 0x9A);
}

TEST_F(LdvTransaction, WithoutTestsTheFirstMessageIsTaken) {
    rig.scriptLdv({{.message = {0x01}}, {.message = {0x02}}});
    EXPECT_TRUE(transact(1000, {}));
    EXPECT_EQ(response[0], 0x01);
    LdvManager ldv(info);
    EXPECT_TRUE(ldv.transaction(response, 1, response, sizeof response, 1000, nullptr, 3));
    EXPECT_EQ(response[0], 0x02);
}

TEST_F(LdvTransaction, WithoutABufferNothingIsRead) {
    LdvManager ldv(info);
    const unsigned char request[] = {0x12};
    EXPECT_TRUE(ldv.transaction(request, 1, nullptr, 0, 1000, nullptr, 0));
    EXPECT_EQ(rig.calls("ldv_read"), 0u);
}

TEST_F(LdvTransaction, ADriverThatFailsEndsTheWaitAtOnce) {
    rig.scriptLdv({{.status = LDV_NO_MSG_AVAIL, .times = 3}, {.message = {0x98}}, {.status = LDV_DEVICE_ERR}});
    EXPECT_FALSE(transact(1000));
    EXPECT_EQ(rig.calls("ldv_read"), 5u);
    EXPECT_EQ(status, LDV_DEVICE_ERR);

    rig.fail("ldv_write", 1, LDV_NO_MSG_AVAIL);
    EXPECT_FALSE(transact(1000)) << "a status that only a read may have";
    EXPECT_EQ(rig.calls("ldv_read"), 5u);
    EXPECT_EQ(status, LDV_NO_MSG_AVAIL);
}

// The simulated Neuron itself.

class SimulatedNeuron : public NeuronTest {
protected:
    static sim::Bytes request(sim::Bytes codeAndData) {
        sim::Bytes message{0x22, 0x10, 0x60, 0x00, 0x02, 0x7F};
        message.resize(16);
        message.insert(message.end(), codeAndData.begin(), codeAndData.end());
        return message;
    }

    /// The answer's code and data; empty for none within a second.
    sim::Bytes ask(const sim::Bytes& codeAndData) {
        rig.board().neuron.write(request(codeAndData));
        rig.sleep(1000);
        const auto answer = rig.board().neuron.read();
        return answer ? sim::Bytes(answer->begin() + 16, answer->end()) : sim::Bytes{};
    }
};

TEST_F(SimulatedNeuron, RefusesWhatItDoesNotHave) {
    EXPECT_THAT(ask({0x6A, 2}), ElementsAre(0x0A));
    EXPECT_THAT(ask({0x6C, 3, 5}), ElementsAre(0x0C));
    EXPECT_THAT(ask({0x6D, 1, 0, 40, 2, 0}), ElementsAre(0x0D));
    EXPECT_THAT(ask({0x6D, 1, 0, 40, 1, 0}), ElementsAre(0x2D, 0x00));
    EXPECT_THAT(ask({0x63, 0, 1, 2}), ElementsAre(0x03));
    EXPECT_THAT(ask({0x62, 0}), ElementsAre(0x02));
    rig.board().neuron.behaviour.answers = sim::NeuronBehaviour::Answers::Negative;
    EXPECT_THAT(ask({0x6C, 3, 2}), ElementsAre(0x0C));
    EXPECT_EQ(rig.board().neuron.data.status[sim::NeuronData::kNodeState], 0x04) << "refused, so not done";
}

TEST_F(SimulatedNeuron, SaysNothingInResetAndAnnouncesItsBoot) {
    rig.board().neuron.write(request({0x51}));
    rig.board().neuron.setReset(true);
    EXPECT_THAT(ask({0x51}), IsEmpty()) << "the earlier one is lost too";
    rig.board().neuron.setReset(false);
    rig.board().neuron.write(request({0x51}));
    rig.sleep(199);
    EXPECT_EQ(rig.board().neuron.read(), std::nullopt);
    rig.sleep(1);
    EXPECT_EQ(rig.board().neuron.read(), (sim::Bytes{0x50, 0x00}));
    EXPECT_EQ(rig.board().neuron.read(), std::nullopt) << "the request came too early";
    EXPECT_EQ(ask({0x51}).at(1 + sim::NeuronData::kResetCause), 0x02);
}

TEST_F(SimulatedNeuron, SendsItsServicePinMessageWhenTheLineGoesLow) {
    ASSERT_EQ(sendServicePin(info), TAVO_SUCCESS) << "nobody listens to this one";
    LdvManager ldv(info);
    ASSERT_EQ(sendServicePin(info), TAVO_SUCCESS);
    unsigned char message[64] = {};
    ASSERT_EQ(ldv_read(ldv.ldvHandle, message, sizeof message), LDV_OK);
    const sim::Bytes identity(message + 16, message + 31);
    EXPECT_THAT(identity, ElementsAre(0x7F, 5, 1, 2, 3, 4, 5, 0x9F, 0xFF, 0xFF, 5, 1, 0x84, 4, 0x60));
    EXPECT_EQ(ldv_read(ldv.ldvHandle, message, sizeof message), LDV_NO_MSG_AVAIL);
}

TEST_F(SimulatedNeuron, KeepsItsStateAsText) {
    sim::Properties text;
    rig.board().neuron.behaviour = {
        .answers = sim::NeuronBehaviour::Answers::Stranger, .delayMs = 20, .unsolicited = 3};
    rig.board().neuron.data.domains[1] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xFF};
    rig.board().neuron.data.status[sim::NeuronData::kNodeState] = 0x06;
    rig.board().neuron.save(text);
    EXPECT_EQ(text["neuron.state"], "06");
    EXPECT_EQ(text["neuron.domain1"], "0102030405060708090A0B0C0D0EFF");
    EXPECT_EQ(text["neuron.answer"], "stranger");
    EXPECT_EQ(text["neuron.delay-ms"], "20");

    rig.reset();
    rig.board().neuron.load(text);
    sim::Properties again;
    rig.board().neuron.save(again);
    EXPECT_EQ(again, text);

    for (const auto& [key, value] : sim::Properties{{"neuron.id", "0501020304"},
                                                    {"neuron.state", "4G"},
                                                    {"neuron.answer", "sometimes"},
                                                    {"neuron.delay-ms", "5s"}}) {
        EXPECT_THROW(rig.board().neuron.load({{key, value}}), std::invalid_argument) << key;
    }
}

TEST_F(SimulatedNeuron, IsOpenedOnceAndByItsOwnNamesOnly) {
    short handle = 0;
    EXPECT_EQ(ldv_open("CSN00004321", &handle), LDV_NOT_FOUND);
    EXPECT_EQ(ldv_open("SN00001234", &handle), LDV_NOT_FOUND) << "the name of another vendor's interface";
    ASSERT_EQ(ldv_open("CID050102030405", &handle), LDV_OK);
    short second = 0;
    EXPECT_EQ(ldv_open("CSN00001234", &second), LDV_ALREADY_OPEN);
    EXPECT_EQ(ldv_close(handle), LDV_OK);
    EXPECT_EQ(ldv_close(handle), LDV_NOT_OPEN);
    unsigned char byte = 0;
    EXPECT_EQ(ldv_read(handle, &byte, 1), LDV_NOT_OPEN);
}

}  // namespace
