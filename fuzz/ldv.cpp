// What the Neuron's channel gives while an operation waits for its answer. The input is the operation, then steps: what
// comes (a message, or a status of the driver), and after how long.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "fuzz/fuzz.h"
#include "fuzz/simulated.h"
#include "platform/ldv.h"
#include "tavo/neuron.h"

namespace {

constexpr std::uint32_t kPollMs = 10;
constexpr std::size_t kBuffer = 64;
constexpr std::size_t kData = 17;  // of an answer, where its data begin

using Bytes = std::vector<std::uint8_t>;

/// What the operation lets through, and how long it is silent before it gives up.
struct Expectation {
    std::uint32_t timeoutMs;
    std::uint8_t length;  // 0: the notice of a reset, told by its first byte
    std::uint8_t dataLength;
    std::uint8_t code;
    std::uint32_t afterMs;  // that it goes on when it has the answer
};

std::vector<sim::LdvStep> stepsOf(fuzz::Supply& supply) {
    std::vector<sim::LdvStep> steps;
    std::uint32_t at = 0;
    while (!supply.isEmpty() && steps.size() < 200) {
        sim::LdvStep step;
        const std::uint8_t kind = supply.byte();
        at += kind & 0x40 ? supply.word() : 0;
        step.atMs = at;
        if (kind & 0x80)
            step.status = supply.byte() % 12;
        else
            step.message = supply.bytes(kind & 0x3F);
        if (kind == 0x3F) step.message.resize(kBuffer + 1);
        steps.push_back(step);
    }
    return steps;
}

bool isAnswer(const Bytes& message, const Expectation& wanted) {
    Bytes answer = message;
    answer.resize(kBuffer);
    if (wanted.length == 0) return answer[0] == 0x50;
    return answer[1] == wanted.length && (answer[3] & 1) != 0 && answer[4] == wanted.dataLength &&
           answer[16] == wanted.code;
}

/// The contract again, over the script: a poll each 10 ms, and only silence uses up the time.
class Model {
public:
    explicit Model(std::vector<sim::LdvStep> steps) : steps_(std::move(steps)) {}

    std::uint64_t now = 0;  // ms

    std::optional<Bytes> answerTo(const Expectation& wanted) {
        for (std::uint32_t silent = 0; silent < wanted.timeoutMs / kPollMs;) {
            now += kPollMs;
            if (next_ == steps_.size() || now < steps_[next_].atMs) {
                ++silent;
                continue;
            }
            const sim::LdvStep& step = steps_[next_++];
            if (step.message.size() > kBuffer) return {};
            if (step.status == LDV_NO_MSG_AVAIL)
                ++silent;
            else if (step.status != LDV_OK)
                return {};
            else if (isAnswer(step.message, wanted))
                return foundAnswer(step.message, wanted);
        }
        return {};
    }

private:
    Bytes foundAnswer(Bytes message, const Expectation& wanted) {
        now += wanted.afterMs;
        message.resize(kBuffer);
        return message;
    }

    std::vector<sim::LdvStep> steps_;
    std::size_t next_ = 0;
};

template <typename Record>
bool holds(const Record& record, const Bytes& answer) {
    return std::memcmp(&record, answer.data() + kData, sizeof record) == 0;
}

/// What an operation gave, against what it should have given.
template <typename Record, typename Operation>
void check(Model& model, const Expectation& wanted, Operation operation) {
    Record record;
    std::memset(&record, 0xA5, sizeof record);
    const Record before = record;
    const TAVO_STATUS status = operation(record);
    const auto answer = model.answerTo(wanted);
    HOLDS(status == (answer ? TAVO_SUCCESS : TAVO_TRANSACTION_FAILED));
    HOLDS(answer ? holds(record, *answer) : std::memcmp(&record, &before, sizeof record) == 0);
}

struct Domains {
    LonAddress entries[2];
};

void checkDomains(Model& model, const DeviceInfo& info) {
    Domains domains{};
    const TAVO_STATUS status = readDomainTable(info, domains.entries);
    for (const LonAddress& entry : domains.entries) {
        const auto answer = model.answerTo({1000, 0x1E, 0x10, 0x2A, 0});
        if (!answer) {
            HOLDS(status == TAVO_TRANSACTION_FAILED);
            return;
        }
        HOLDS(holds(entry, *answer));
    }
    HOLDS(status == TAVO_SUCCESS);
}

struct ProgramId {
    unsigned char bytes[8];
};

using Check = void (*)(Model&, const DeviceInfo&);
constexpr Check kChecks[] = {
    [](Model& model, const DeviceInfo& info) {
        check<ProgramId>(model, {1000, 0x17, 9, 0x2D, 0}, [&](auto& id) { return readProgramId(info, id.bytes); });
    },
    [](Model& model, const DeviceInfo& info) {
        check<NeuronId>(model, {1000, 0x15, 7, 0x2D, 0}, [&](auto& id) { return readNeuronId(info, id); });
    },
    [](Model& model, const DeviceInfo& info) {
        check<NeuronState>(model, {1000, 0x1E, 16, 0x31, 0}, [&](auto& state) { return readState(info, state); });
    },
    checkDomains,
    [](Model& model, const DeviceInfo& info) {
        const TAVO_STATUS status = writeMode(info, MODE_OFFLINE);
        HOLDS(status == (model.answerTo({1000, 0x0F, 1, 0x2C, 0}) ? TAVO_SUCCESS : TAVO_TRANSACTION_FAILED));
    },
    [](Model& model, const DeviceInfo& info) {
        const TAVO_STATUS status = softReset(info);
        HOLDS((status == TAVO_SUCCESS) == model.answerTo({65000, 0, 0, 0, 1000}).has_value());
    },
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply supply(data, size);
    const std::size_t operation = supply.byte() % std::size(kChecks);
    const auto steps = stepsOf(supply);
    sim::Rig& rig = fuzz::freshRig();
    rig.scriptLdv(steps);
    Model model(steps);
    kChecks[operation](model, fuzz::deviceInfo());
    HOLDS(rig.now() / 1000 == model.now);
    HOLDS(rig.leftovers().empty() && rig.violations().empty());
    return 0;
}
