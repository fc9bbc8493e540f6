#include <algorithm>
#include <cstdio>

#include "cli/commands/commands.h"
#include "cli/commands/interruptedRun.h"
#include "cli/running/session.h"
#include "tavo/service/device.h"

namespace cli {
namespace {

std::string idsText(const tavo::DeviceDescription& device) {
    char text[16];
    std::snprintf(text, sizeof text, "%04X:%04X", device.vendorId, device.productId);
    return text;
}

std::string accessText(const tavo::DeviceDescription& device) {
    if (device.holder) return *device.holder > 0 ? "busy (process " + std::to_string(*device.holder) + ")" : "busy";
    if (device.access == TAVO_SUCCESS) return "ok";
    if (device.access == TAVO_ACCESS_DENIED) return "denied";
    return tavoStatusString(device.access);
}

using Row = std::vector<std::string>;

Row row(const tavo::DeviceDescription& device) {
    const auto orDash = [](const std::string& text) { return text.empty() ? "-" : text; };
    return {orDash(device.serial), orDash(device.path), idsText(device), orDash(device.neuronId), accessText(device)};
}

Json json(const tavo::DeviceDescription& device) {
    const auto orNull = [](const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); };
    static constexpr const char* kRoles[] = {nullptr, "spi", "i2c"};  // in the order of Scb0Role
    const char* role = kRoles[static_cast<std::size_t>(device.scb0)];
    return {{"serial", orNull(device.serial)},   {"path", orNull(device.path)},
            {"vid_pid", idsText(device)},        {"neuron_id", orNull(device.neuronId)},
            {"access", accessText(device)},      {"manufacturer", orNull(device.manufacturer)},
            {"product", orNull(device.product)}, {"scb0", role == nullptr ? Json(nullptr) : Json(role)}};
}

void printTable(Report& report, const std::vector<Row>& rows) {
    std::vector<std::size_t> widths(rows.front().size());
    for (const auto& cells : rows) {
        for (std::size_t i = 0; i < cells.size(); ++i) widths[i] = std::max(widths[i], cells[i].size());
    }
    for (const auto& cells : rows) {
        std::string text;
        for (std::size_t i = 0; i + 1 < cells.size(); ++i) {
            text += cells[i] + std::string(widths[i] - cells[i].size() + 2, ' ');
        }
        report.line(text + cells.back());
    }
}

void warn(Session& session, const tavo::DeviceDescription& device) {
    Report& report = session.report;
    if (device.access == TAVO_ACCESS_DENIED) {
        report.warning("no permission to open " + device.name(),
                       tavo::statusError(TAVO_ACCESS_DENIED, tavo::Side::Bridge, "").hint);
    }
    if (const auto run = tavo::interruptedRun(device)) {
        const std::string options = session.attached().size() > 1 ? deviceOptions(session.options, device) : "";
        report.warning(device.name() + ": " + interruptedText(*run), withDevice(interruptedHint(*run), options));
    }
}

void list(Session& session) {
    session.report.result["devices"] = Json::array();
    if (session.attached().empty()) throw tavo::noDevice(session.options.devices);
    std::vector<Row> rows{{"SERIAL", "PATH", "VID:PID", "NEURON", "ACCESS"}};
    for (const auto& device : session.attached()) {
        rows.push_back(row(device));
        Json entry = json(device);
        entry["interrupted"] = interruptedJson(tavo::interruptedRun(device));
        session.report.result["devices"].push_back(entry);
    }
    printTable(session.report, rows);
    for (const auto& device : session.attached()) warn(session, device);
}

}  // namespace

Run declareList(Arguments&) {
    return list;
}

}  // namespace cli
