#include <algorithm>
#include <cstdio>
#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/interruptedRun.h"
#include "cli/commands/neuronNames.h"
#include "cli/output/picture.h"
#include "cli/running/session.h"
#include "tavo/service/overview.h"

namespace cli {
namespace {

/// One row for people and one entry for programs; an absent item is null and tells why.
class Items {
public:
    explicit Items(Report& report) : report_(report) {}

    void add(const char* name, const std::string& label, const Json& value, const std::string& text) {
        report_.result[name] = value;
        report_.line(label + std::string(std::max<std::size_t>(label.size(), 13) - label.size() + 1, ' ') + text);
    }
    void add(const char* name, const std::string& label, const std::string& text) { add(name, label, text, text); }
    void absent(const char* name, const std::string& label, const std::string& why) {
        add(name, label, nullptr, "- (" + report_.pasteable(why) + ")");
    }
    /// text: of the value
    template <typename T, typename Text>
    void add(const char* name, const std::string& label, const tavo::Told<T>& told, const Text& text) {
        told.value ? add(name, label, text(*told.value)) : absent(name, label, told.why);
    }

private:
    Report& report_;
};

void addDevice(const tavo::DeviceDescription& device, Items& items) {
    device.serial.empty() ? items.absent("serial", "serial", "none") : items.add("serial", "serial", device.serial);
    items.add("path", "path", device.path);
    const bool known = device.scb0 != tavo::Scb0Role::Other;
    known ? items.add("scb0", "SCB0", device.scb0 == tavo::Scb0Role::Spi ? "spi" : "i2c")
          : items.absent("scb0", "SCB0", "no SPI or I2C interface");
}

std::string siliconIdText(std::uint32_t id) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", id);
    return text;
}

void addNeuron(const tavo::Overview& all, Items& items) {
    items.add("neuron_id", "Neuron ID", all.neuronId, neuronIdText);
    items.add("program_id", "program ID", all.programId,
              [](const tavo::ProgramId& id) { return hexText(id.data(), id.size(), ""); });
    if (!all.status.value) return items.absent("node_state", "node state", all.status.why);
    const std::uint8_t raw = all.status.value->nodeState;
    const char* name = tavo::nodeStateName(raw);
    items.add("node_state", "node state", namedJson(name, raw), tavo::named(name, raw));
}

void addSfdp(const tavo::FlashChip& chip, Report& report, Items& items) {
    report.result["flash_sfdp"] = nullptr;
    if (!chip.sfdpFault.empty()) return items.absent("flash_sfdp", "flash SFDP", "not used: " + chip.sfdpFault);
    if (!chip.hasSfdp) return items.absent("flash_sfdp", "flash SFDP", "the chip has none");
    Json types = Json::array();
    std::string text;
    for (const tavo::EraseType& type : chip.eraseTypes) {
        types.push_back({{"opcode", type.opcode},
                         {"size", type.size},
                         {"typical_seconds", type.typical},
                         {"longest_seconds", type.longest}});
        text += (text.empty() ? "erases " : ", ") + sizeText(type.size) + " in " + secondsText(type.typical);
    }
    const Json value = {{"erase_types", types},
                        {"page_program_seconds", chip.programTypical},
                        {"chip_erase_seconds", chip.eraseTypical}};
    if (chip.eraseTypical > 0) text += (text.empty() ? "" : ", ") + ("all in " + secondsText(chip.eraseTypical));
    items.add("flash_sfdp", "flash SFDP", value, text);
}

void addFlash(const tavo::Told<tavo::FlashChip>& flash, Report& report, Items& items) {
    const auto orNull = [](const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); };
    report.result["flash_maker"] = flash.value ? orNull(flash.value->makerName()) : nullptr;
    std::string id = flash.value ? flash.value->idText() : "";
    std::erase(id, ' ');
    report.result["flash_id"] = orNull(id);
    if (!flash.value) return items.absent("flash_size", "flash", flash.why);
    items.add("flash_size", "flash", flash.value->size, flash.value->text());
    addSfdp(*flash.value, report, items);
}

void addPicture(std::vector<tavo::Part> parts, Report& report) {
    for (tavo::Part& part : parts) {
        for (std::string* text : {&part.state, &part.hint}) *text = report.pasteable(*text);
        const bool skipped = part.verdict == tavo::Verdict::Skipped;
        report.result["parts"].push_back({{"part", part.name},
                                          {"ok", skipped ? Json(nullptr) : Json(part.verdict == tavo::Verdict::Ok)},
                                          {"state", part.state},
                                          {"hint", part.hint.empty() ? Json(nullptr) : Json(part.hint)}});
    }
    for (const Line& row : picture(parts, console().showsUtf8())) report.line(row);
    report.line("");
}

struct Options {
    bool flash = false;
    bool noFlash = false;

    tavo::FlashLook look() const {
        if (noFlash) return tavo::FlashLook::Never;
        return flash ? tavo::FlashLook::Always : tavo::FlashLook::IfSilent;
    }
};

void info(Session& session, const Options& options) {
    Report& report = session.report;
    if (options.flash && options.noFlash) throw Failure{Exit::Usage, "--flash and --no-flash", "give one of them", {}};
    const tavo::Overview all = tavo::overview(session.device(), {options.look()}, session.control());
    addPicture(all.parts, report);
    Items items(report);
    addDevice(session.device().description(), items);
    items.add("silicon_id", "silicon ID", all.siliconId, siliconIdText);
    addNeuron(all, items);
    addFlash(all.flash, report, items);
    report.result["neuron_restarted"] = all.neuronRestarted;
    if (all.neuronRestarted) report.note("the Neuron was restarted for the look at the flash");
    report.state = all.state;
    tellInterrupted(report, session.deviceName(), all.interrupted);
}

}  // namespace

Run declareInfo(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.flag("--flash", options->flash, "look at the flash too; restarts the Neuron");
    arguments.flag("--no-flash", options->noFlash, "not even if the Neuron is silent");
    return [options](Session& session) { info(session, *options); };
}

}  // namespace cli
