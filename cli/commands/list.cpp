#include <algorithm>
#include <cstdio>

#include "cli/commands/commands.h"
#include "cli/deviceChoice.h"
#include "cli/session.h"

namespace cli {
namespace {

std::string idsText(const DeviceInfo& info) {
    char text[16];
    std::snprintf(text, sizeof text, "%04X:%04X", info.vendorId, info.productId);
    return text;
}

std::string accessText(const platform::AttachedDevice& device) {
    if (device.status == CY_SUCCESS) return "ok";
    if (device.status == CY_ERROR_ACCESS_DENIED) return "denied";
    return tavoStatusString(cypressToTavo(device.status));
}

using Row = std::vector<std::string>;

Row row(const platform::AttachedDevice& device) {
    const auto orDash = [](const std::string& text) { return text.empty() ? "-" : text; };
    return {orDash(serialText(device)), orDash(device.info.portPath), idsText(device.info),
            device.info.neuronIdValid != 0 ? neuronIdText(device.info.neuronId) : "-", accessText(device)};
}

Json json(const platform::AttachedDevice& device) {
    const auto orNull = [](const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); };
    const Row cells = row(device);
    return {{"serial", orNull(serialText(device))},
            {"path", orNull(device.info.portPath)},
            {"vid_pid", cells[2]},
            {"neuron_id", device.info.neuronIdValid != 0 ? Json(cells[3]) : Json(nullptr)},
            {"access", cells[4]},
            {"manufacturer", orNull(device.manufacturer)},
            {"product", orNull(device.product)},
            {"scb0", !device.scb0Found ? Json(nullptr) : Json(device.scb0IsSpi ? "spi" : "i2c")}};
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

void list(Session& session) {
    session.report.result["devices"] = Json::array();
    if (session.attached().empty()) throw noDevice(session.options);
    std::vector<Row> rows{{"SERIAL", "PATH", "VID:PID", "NEURON", "ACCESS"}};
    for (const auto& device : session.attached()) {
        rows.push_back(row(device));
        session.report.result["devices"].push_back(json(device));
    }
    printTable(session.report, rows);
    for (const auto& device : session.attached()) {
        if (device.status != CY_ERROR_ACCESS_DENIED) continue;
        session.report.warning("no permission to open " + describe(device),
                               libraryFailure(TAVO_ACCESS_DENIED, Side::Bridge, "").hint);
    }
}

}  // namespace

Run declareList(Arguments&) {
    return list;
}

}  // namespace cli
