#include "python/core/convert.h"

#include <algorithm>
#include <chrono>

#include "python/core/image.h"
#include "tavo/service/text.h"

namespace binding {

using namespace py::literals;

namespace {

template <typename... Fields>
py::object make(const char* type, Fields&&... fields) {
    return py::module_::import("tavo_util.results").attr(type)(std::forward<Fields>(fields)...);
}

// The values of the enumerations in tavo_util.results, in the order of those here.
constexpr const char* kKnowledge[] = {"untouched", "unchanged", "written", "uncertain"};
constexpr const char* kLineStates[] = {"not looked", "released", "held", "unknown"};
constexpr const char* kScb0States[] = {"not looked", "given back", "SPI master", "unknown"};
constexpr const char* kScb0Roles[] = {"other", "SPI", "I2C"};
constexpr const char* kVerdicts[] = {"ok", "fail", "skipped"};
constexpr const char* kEventKinds[] = {"begins", "progress", "ends", "stop note", "retry", "warning", "step"};

template <typename Value, std::size_t size>
py::object member(const char* type, const char* const (&values)[size], Value value) {
    return make(type, values[static_cast<std::size_t>(value)]);
}

py::object toPython(const tavo::PartState& part) {
    return make("PartState", member("Knowledge", kKnowledge, part.knowledge), part.text);
}

unsigned count(const unsigned char (&bytes)[2]) {
    return static_cast<unsigned>(bytes[0] << 8 | bytes[1]);
}

double sinceEpoch(std::chrono::system_clock::time_point time) {
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

/// The class for a failure: by its kind, and a failed step that may have cost the image has its own.
const char* className(const tavo::Error& error) {
    static constexpr const char* kNames[] = {"Internal",     "BadArgument", "NoDevice",     "SeveralDevices",
                                             "NoPermission", "DeviceBusy",  "ImageRefused", "FileFailed",
                                             "DeviceFailed", "NoAnswer",    "Cancelled"};
    if (error.problem == tavo::Problem::DeviceFailed && error.state.isFlashLost()) return "FlashIncomplete";
    return kNames[static_cast<std::size_t>(error.problem)];
}

}  // namespace

py::str text(const std::string& bytes) {
    return py::reinterpret_steal<py::str>(
        PyUnicode_DecodeUTF8(bytes.data(), static_cast<py::ssize_t>(bytes.size()), "surrogateescape"));
}

py::object toPython(std::uint32_t value) {
    return py::int_(value);
}
py::object toPython(const std::string& value) {
    return text(value);
}
py::object toPython(const NeuronId& id) {
    return py::str(tavo::neuronIdText(id));
}
py::object toPython(const tavo::ProgramId& id) {
    return py::str(tavo::hexText(id.data(), id.size(), ""));
}
py::object toPython(const tavo::EraseType& type) {
    return make("EraseType", type.opcode, type.size, type.typical, type.longest);
}
py::object toPython(const tavo::Difference& difference) {
    const py::object wanted = difference.wanted ? py::object(py::int_(*difference.wanted)) : py::none();
    return make("Difference", toPython(difference.range), difference.bytes, wanted, difference.found);
}
py::object toPython(const tavo::Check& check) {
    return make("Check", check.item, member("Verdict", kVerdicts, check.verdict), text(check.text), text(check.hint));
}
py::object toPython(const tavo::Part& part) {
    return make("Part", part.name, member("Verdict", kVerdicts, part.verdict), text(part.state), text(part.hint));
}
py::object toPython(const tavo::RecoverStep& step) {
    return make("RecoverStep", text(step.text), member("Verdict", kVerdicts, step.verdict), text(step.why));
}
py::object toPython(const tavo::StatusCounter& counter) {
    return make("StatusCounter", counter.key, counter.label, counter.meaning);
}
py::object toPython(const tavo::ImageFault& fault) {
    const py::object offset = fault.offset ? py::object(py::int_(*fault.offset)) : py::none();
    return make("ImageFault", fault.line, offset, text(fault.text), text(fault.hint), text(tavo::faultText(fault)));
}
py::object toPython(const tavo::NamedRange& range) {
    return make("NamedRange", text(range.name), toPython(range.range));
}
py::object toPython(const tavo::ByteChange& change) {
    return make("ByteChange", change.offset, change.before, change.after, tavo::configurationFieldAt(change.offset));
}
py::object toPython(const tavo::HistoryEntry& entry) {
    return make("HistoryEntry", entry.time, text(entry.action), text(entry.part), text(entry.result),
                text(entry.serial), text(entry.path), text(entry.neuronId), text(entry.image), text(entry.sha256),
                text(entry.serialAfter), text(entry.backup), text(entry.state), text(entry.error), text(entry.tool),
                text(entry.run), entry.seconds);
}
py::object toPython(const tavo::Backup& backup) {
    return make("Backup", make("BackupKind", tavo::backupKindName(backup.kind)), backup.id, text(backup.path),
                backup.time, backup.sha256, backup.bytes, backup.isDamaged, text(backup.takenBefore));
}
py::object toPython(tavo::Image&& image) {
    return py::cast(PyImage(std::move(image)));
}
py::object toPython(const tavo::StatusLook& look) {
    return make("StatusLook", look.seconds, toPython(look.status), text(look.why), tupleOf(look.change), look.cleared);
}

py::object toPython(const tavo::Error& error) {
    const py::object type = py::module_::import("tavo_util.errors").attr(className(error));
    const py::object status = error.status ? py::object(py::int_(static_cast<unsigned>(*error.status))) : py::none();
    const py::object name = error.status ? py::object(py::str(tavo::statusName(*error.status))) : py::none();
    return type(text(error.what()), tavo::problemName(error.problem), toPython(error.state), text(error.hint), status,
                name, tupleOf(error.details));
}

py::object toPython(const tavo::Event& event) {
    return make("Event", member("EventKind", kEventKinds, event.kind), make("Phase", tavo::phaseName(event.phase)),
                event.done, event.total, event.address, event.seconds, text(event.text), text(event.hint));
}

py::object toPython(const tavo::DeviceState& state) {
    return make("DeviceState", make("FlashState", tavo::flashStateName(state.flash)), toPython(state.configuration),
                toPython(state.userFlash), toPython(state.node), member("LineState", kLineStates, state.resetLine),
                member("LineState", kLineStates, state.serviceLine), member("Scb0State", kScb0States, state.scb0),
                state.isSomethingHeld(), state.isFlashLost(), state.text());
}

py::object toPython(const tavo::DeviceDescription& device) {
    return make("DeviceDescription", text(device.serial), text(device.path), text(device.manufacturer),
                text(device.product), device.neuronId, device.vendorId, device.productId,
                member("Scb0Role", kScb0Roles, device.scb0), device.access == TAVO_SUCCESS,
                device.holder ? py::object(py::int_(*device.holder)) : py::none(), text(device.name()));
}

py::object toPython(const tavo::FlashChip& chip) {
    return make("FlashChip", chip.maker, chip.memoryType, chip.capacityCode, chip.size, chip.hasSfdp, chip.sfdpFault,
                tupleOf(chip.eraseTypes), chip.programTypical, chip.programLongest, chip.eraseTypical,
                chip.eraseLongest, chip.makerName(), chip.idText(), tavo::usualEraseTime(chip), chip.text());
}

py::object toPython(const tavo::AddressRange& range) {
    return make("AddressRange", range.first, range.last);
}

py::object toPython(const tavo::Comparison& comparison) {
    return make("Comparison", tupleOf(comparison.differences), comparison.bytes, comparison.pages);
}

py::object toPython(const tavo::ProgramForecast& forecast) {
    return make("Forecast", tupleOf(forecast.steps), forecast.pagesWritten, forecast.pagesBlank, forecast.chipSize,
                forecast.seconds, forecast.leastSeconds, forecast.sectorSeconds);
}

py::object toPython(const tavo::ProgramResult& done) {
    return make("ProgramResult", toPython(done.chip), done.upToDate, make("ProgramWay", tavo::programWayName(done.way)),
                done.sectorsErased, done.pagesWritten, done.pagesKept, done.pagesBlank, tupleOf(done.retries),
                text(done.backup), done.backupSha256, done.seconds, toPython(done.state));
}

py::object toPython(tavo::VerifyResult&& found) {
    return make("VerifyResult", toPython(found.chip), toPython(found.comparison), toPython(std::move(found.contents)),
                found.isComplete, toPython(found.state));
}

py::object toPython(tavo::ReadFlashResult&& found) {
    return make("ReadResult", toPython(found.chip), toPython(std::move(found.contents)), toPython(found.state));
}

py::object toPython(const tavo::EraseResult& done) {
    return make("EraseResult", toPython(done.chip), done.sectorsErased, text(done.backup), done.seconds,
                toPython(done.state));
}

py::object toPython(tavo::BlankCheckResult&& found) {
    return make("BlankCheckResult", toPython(found.chip), found.blank, toPython(found.first), found.pages,
                toPython(std::move(found.contents)), found.isComplete, toPython(found.state));
}

py::object toPython(const NeuronState& state) {
    return make("NeuronStatus", count(state.transmitErrors), count(state.transactionTimeouts),
                count(state.receiveTransactionsFull), count(state.lostMessages), count(state.missedMessages),
                state.resetCause, tavo::resetCauseName(state.resetCause), state.nodeState,
                tavo::nodeStateName(state.nodeState), state.versionNumber, state.errorLog,
                tavo::errorLogName(state.errorLog), state.modelNumber);
}

py::object toPython(const tavo::ModeChange& change) {
    return make("ModeChange", toPython(change.before), toPython(change.after));
}

py::object toPython(const tavo::StatusHistory& history) {
    return make("StatusHistory", sinceEpoch(history.started), tupleOf(history.looks), tupleOf(history.total),
                history.unanswered(), history.timesCleared());
}

py::object toPython(const tavo::Diagnosis& found) {
    return make("Diagnosis", tupleOf(found.checks), toPython(found.status), toPython(found.state));
}

py::object toPython(const tavo::Overview& found) {
    py::list why;
    const auto tell = [&](const char* name, const auto& told) {
        if (!told.value) why.append(py::make_tuple(name, text(told.why)));
    };
    tell("silicon_id", found.siliconId);
    tell("neuron_id", found.neuronId);
    tell("program_id", found.programId);
    tell("status", found.status);
    tell("flash", found.flash);
    return make("Overview", tupleOf(found.parts), toPython(found.siliconId.value), toPython(found.neuronId.value),
                toPython(found.programId.value), toPython(found.status.value), toPython(found.flash.value),
                py::tuple(why), found.neuronRestarted, toPython(found.interrupted), toPython(found.state));
}

py::object toPython(const tavo::Recovery& done) {
    return make("Recovery", tupleOf(done.steps), toPython(done.interrupted), toPython(done.state));
}

py::object toPython(const tavo::InterruptedRun& run) {
    return make("InterruptedRun", make("FlashState", tavo::flashStateName(tavo::interruptedState(run))),
                text(run.image), run.sha256, text(run.backup), text(run.kept), run.started, text(run.options),
                text(tavo::interruptedText(run)), text(tavo::interruptedHint(run)));
}

py::object toPython(const tavo::ConfigurationFields& fields) {
    return make("ConfigurationFields", text(fields.serial), text(fields.manufacturer), text(fields.product),
                fields.vendorId, fields.productId, fields.scb0, fields.maxPowerMilliamperes, fields.format,
                fields.checksumRight, fields.whyBad);
}

py::object toPython(const tavo::StoredNeuronId& stored) {
    return make("StoredNeuronId", tavo::neuronIdText(stored.id), stored.written);
}

py::object toPython(const tavo::ImageMap& map) {
    std::string letters;
    for (const tavo::MapCell cell : map.cells) letters += tavo::mapLetter(cell);
    py::list ranges;
    for (const auto& [range, cell] : map.ranges) {
        ranges.append(make("MapRange", toPython(range), make("MapCell", tavo::mapCellName(cell))));
    }
    py::list legend;
    for (const auto& [cell, count] : tavo::mapLegend(map)) {
        legend.append(make("MapCount", make("MapCell", tavo::mapCellName(cell)), std::string(1, tavo::mapLetter(cell)),
                           tavo::mapCellText(cell), count));
    }
    return make("ImageMap", map.size, map.cellSize, letters, py::tuple(ranges), py::tuple(legend));
}

py::object toPython(const tavo::History& history) {
    return make("History", tupleOf(history.entries), tupleOf(history.faults));
}

py::object toPython(const tavo::RestoreResult& done) {
    return make("RestoreResult", done.changed, toPython(done.flash), tupleOf(done.bytes), tupleOf(done.domains),
                tupleOf(done.keptKeys), text(done.backup), toPython(done.state));
}

py::bytes toPython(const tavo::ConfigurationBlock& block) {
    return {reinterpret_cast<const char*>(block.data()), block.size()};
}

}  // namespace binding
