#include "cli/several.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>

#include "cli/childProcess.h"
#include "cli/printable.h"
#include "cli/session.h"
#include "tavo/service/device.h"

namespace cli {
namespace {

using ChildJson = nlohmann::ordered_json;

constexpr const char* kMark = "{serial}";

struct Device {
    std::string spec;
    std::string serial;
    std::string path;
    std::string name;
};

/// One row of the display and, in the end, one object.
struct Row {
    Device device;
    std::unique_ptr<ChildProcess> child;
    std::string shown;
    std::string output;
    ChildJson object;
    int exit = 0;
};

// From harmless to worst.
constexpr Exit kSeverity[] = {Exit::Done,           Exit::Differs,     Exit::NeedsConfirmation, Exit::Usage,
                              Exit::SeveralDevices, Exit::NoDevice,    Exit::NoPermission,      Exit::Busy,
                              Exit::FileSystem,     Exit::FileRefused, Exit::NoAnswer,          Exit::FailedUnchanged,
                              Exit::Internal,       Exit::Interrupted, Exit::FailedFlashLost};

int worse(int a, int b) {
    const auto rank = [](int exit) {
        return std::find(std::begin(kSeverity), std::end(kSeverity), static_cast<Exit>(exit)) - std::begin(kSeverity);
    };
    return rank(a) >= rank(b) ? a : b;
}

std::string textOf(const ChildJson& json) {
    return json.is_string() ? json.get<std::string>() : "";
}

Device known(const tavo::DeviceDescription& device) {
    return {device.path.empty() ? "serial:" + device.serial : "usb:" + device.path, device.serial, device.path, ""};
}

/// Each simulated interface lives in a process of its own: ask one.
Device askSimulated(const std::string& spec) {
    ChildProcess child({"tavo-util", "-d", spec, "--json", "list"});
    std::string said;
    readAll({&child}, [&](std::size_t, bool isError, const std::string& line) { said += isError ? "" : line; });
    const ChildJson told = ChildJson::parse(said, nullptr, false);
    if (told.is_discarded() || child.wait() != 0 || told["result"]["devices"].empty()) {
        const std::string why = told.is_discarded() ? "no answer" : textOf(told["messages"][0]["text"]);
        throw Failure{Exit::NoDevice, spec + ": " + why, "tavo-util -d " + spec + " list tells more", {}};
    }
    const ChildJson& device = told["result"]["devices"][0];
    return {spec, textOf(device["serial"]), textOf(device["path"]), ""};
}

Device identify(const std::string& spec, const Session& session) {
    if (tavo::DeviceSpec::parse(spec).kind == tavo::DeviceSpec::Kind::Simulated) return askSimulated(spec);
    return known(tavo::chooseDevice({spec}, session.options.waitSeconds, session.control()));
}

/// By serial number where that tells them apart.
void nameThem(std::vector<Device>& devices) {
    for (auto& device : devices) {
        const auto sharing = std::count_if(devices.begin(), devices.end(),
                                           [&](const Device& other) { return other.serial == device.serial; });
        device.name = device.serial.empty() || sharing > 1 ? device.spec : device.serial;
    }
}

std::vector<Device> identifyAll(const Session& session) {
    const GlobalOptions& options = session.options;
    std::vector<Device> devices;
    if (options.all) {
        for (const auto& device : tavo::devices()) devices.push_back(known(device));
        if (devices.empty()) throw Failure{Exit::NoDevice, "no interface attached", "is it plugged in?", {}};
        nameThem(devices);
        return devices;
    }
    for (const auto& spec : options.devices) devices.push_back(identify(spec, session));
    nameThem(devices);
    std::set<std::string> paths;
    for (const auto& device : devices) {
        if (device.path.empty() || paths.insert(device.path).second) continue;
        throw Failure{Exit::Usage, device.name + " at " + device.path + " is named twice", "name each device once", {}};
    }
    return devices;
}

/// Two devices must never write to one path.
void checkOutputs(const Invocation& invocation, const std::vector<Device>& devices) {
    std::vector<std::string> written{invocation.options.logFile};
    for (const std::string* path : invocation.outputs) written.push_back(*path);
    std::erase(written, "");
    if (written.empty() || devices.size() < 2) return;
    for (const auto& path : written) {
        if (hasSerialMark(path)) continue;
        throw Failure{Exit::Usage, "several devices would write " + path, "put {serial} into the name", {}};
    }
    std::set<std::string> serials;
    for (const auto& device : devices) {
        if (!device.serial.empty() && serials.insert(device.serial).second) continue;
        throw Failure{
            Exit::Usage, "{serial} does not tell the devices apart: " + device.name, "work on them one by one", {}};
    }
}

std::vector<std::string> childArguments(const Device& device, int argc, char** argv) {
    std::vector<std::string> arguments{argv[0], "--as-child", device.spec};
    for (int i = 1; i < argc; ++i) arguments.push_back(withSerial(argv[i], device.serial));
    return arguments;
}

std::string eventText(const ChildJson& event) {
    const std::string phase = event.value("phase", "");
    if (event["event"] == "phase") return phase + ": begins";
    if (event["event"] == "phase-end") return phase + ": " + event.value("outcome", "");
    if (event["event"] == "stopping") return event.value("text", "");
    if (event["event"] != "progress") return "";
    const auto kibibytes = [&](const char* name) {
        return std::to_string((event.value(name, std::uint64_t{0}) + 1023) / 1024);
    };
    return phase + ": " + std::to_string(event.value("percent", 0)) + " %  " + kibibytes("bytes") + "/" +
           kibibytes("total") + " KiB";
}

/// What the children say on standard error while they work.
class ChildDisplay {
public:
    ChildDisplay(std::vector<Row>& rows, const GlobalOptions& options) : rows_(rows), options_(options) {}

    void take(std::size_t index, const std::string& line);

private:
    void show(Row& row, const ChildJson& event, const std::string& text);

    std::vector<Row>& rows_;
    const GlobalOptions& options_;
};

void ChildDisplay::take(std::size_t index, const std::string& line) {
    Row& row = rows_[index];
    ChildJson event = ChildJson::parse(line, nullptr, false);
    if (!event.is_object() || !event.contains("event")) return console().line(row.device.name + ": " + line);
    if (display().emitsEvents()) {
        event["device"] = row.device.spec;
        return console().exactLine(event.dump());
    }
    if (const std::string text = eventText(event); !text.empty()) show(row, event, text);
}

void ChildDisplay::show(Row& row, const ChildJson& event, const std::string& text) {
    row.shown = text;
    if (options_.progress == "none" || (options_.progress == "auto" && options_.quiet)) return;
    if (console().isTerminal() && options_.progress != "plain") {
        std::vector<std::string> rows;
        for (const auto& each : rows_) rows.push_back(each.device.name + "  " + each.shown);
        return console().live(rows);
    }
    const bool between = event["event"] == "progress" && event.value("percent", 0) % 10 != 0;
    if (!between) console().line(row.device.name + ": " + text);
}

void takeResult(Row& row) {
    row.exit = row.child->wait();
    row.object = ChildJson::parse(row.output, nullptr, false);
    if (row.exit >= 0 && row.object.is_object()) return;
    // A child that died: nothing is known of its device but what it said last.
    row.exit = static_cast<int>(Exit::Internal);
    row.object = {{"device", {{"serial", row.device.serial}, {"path", row.device.path}}},
                  {"messages",
                   {{{"severity", "error"},
                     {"text", "its process ended without a result (" + row.shown + ")"},
                     {"hint", "look at the interface before it is used: tavo-util verify"}}}},
                  {"exit_status", row.exit}};
}

std::string statusText(const ChildJson& object) {
    const ChildJson status = object.value("status", ChildJson());
    if (!status.is_object() || status.value("code", 0U) == 0) return "";
    return " [" + textOf(status["name"]) + " " + std::to_string(status.value("code", 0U)) + "]";
}

void tell(const Row& row, bool json) {
    for (const auto& line : row.object.value("lines", ChildJson::array())) {
        if (!json) std::cout << printable(row.device.name + ": " + line.get<std::string>()) << std::endl;
    }
    for (const auto& message : row.object.value("messages", ChildJson::array())) {
        const std::string text = row.device.name + ": " + textOf(message["text"]) + statusText(row.object);
        if (message["severity"] == "error") {
            const std::string state = row.object.value("state_text", "device state unknown");
            printError(text, state, textOf(message["hint"]));
        } else {
            console().line(Style::Warning, "warning:", text);
        }
    }
}

int finish(std::vector<Row>& rows, const Invocation& invocation) {
    int exit = 0;
    console().clearLive();
    ChildJson objects = ChildJson::array();
    for (auto& row : rows) {
        exit = worse(exit, row.exit);
        tell(row, invocation.options.json);
        row.object.erase("lines");
        row.object.erase("state_text");
        objects.push_back(row.object);
    }
    if (invocation.options.json) {
        const ChildJson whole = {{"json_format_version", {1, 0}},
                                 {"command", invocation.command->name},
                                 {"devices", objects},
                                 {"exit_status", exit}};
        std::cout << whole.dump() << std::endl;
    }
    return exit;
}

}  // namespace

bool wantsSeveral(const Invocation& invocation) {
    const GlobalOptions& options = invocation.options;
    return invocation.command->needs != Needs::Nothing && !options.asChild &&
           (options.devices.size() > 1 || (options.all && needsDevice(invocation.command->needs)));
}

int runSeveral(const Invocation& invocation, int argc, char** argv) {
    Session session(invocation.options, *invocation.command);
    const auto devices = identifyAll(session);
    checkOutputs(invocation, devices);
    if (invocation.command->asks != nullptr && !invocation.options.dryRun) {
        session.confirm(std::string(invocation.command->asks) + " of " + countText(devices.size(), "interface") + "?");
    }
    std::vector<Row> rows;
    for (const auto& device : devices) {
        rows.push_back(
            {device, std::make_unique<ChildProcess>(childArguments(device, argc, argv)), "waits", "", {}, 0});
    }
    std::vector<ChildProcess*> children;
    for (const auto& row : rows) children.push_back(row.child.get());
    ChildDisplay childDisplay(rows, invocation.options);
    readAll(children, [&](std::size_t index, bool isError, const std::string& line) {
        isError ? childDisplay.take(index, line) : static_cast<void>(rows[index].output += line);
    });
    for (auto& row : rows) takeResult(row);
    return finish(rows, invocation);
}

bool hasSerialMark(const std::string& text) {
    return text.find(kMark) != std::string::npos;
}

std::string withSerial(std::string text, const std::string& serial) {
    const std::string mark = kMark;
    for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark, at + serial.size())) {
        text.replace(at, mark.size(), serial);
    }
    return text;
}

}  // namespace cli
