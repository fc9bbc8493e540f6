#include "cli/running/several.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <memory>
#include <set>
#include <thread>

#include "cli/output/console.h"
#include "cli/running/images.h"
#include "cli/running/run.h"

namespace cli {
namespace {

/// One of the devices, with a command line of its own: {serial} has another value in each.
struct Member {
    std::string spec;
    std::string serial;
    std::string path;
    std::string name;
    Invocation invocation = {};
    std::unique_ptr<Session> session = {};
    Exit exit = Exit::Internal;
};

// From harmless to worst.
constexpr Exit kSeverity[] = {Exit::Done,           Exit::Differs,     Exit::NeedsConfirmation, Exit::Usage,
                              Exit::SeveralDevices, Exit::NoDevice,    Exit::NoPermission,      Exit::Busy,
                              Exit::FileSystem,     Exit::FileRefused, Exit::NoAnswer,          Exit::FailedUnchanged,
                              Exit::Internal,       Exit::Interrupted, Exit::FailedFlashLost};

Exit worse(Exit a, Exit b) {
    const auto rank = [](Exit exit) { return std::find(std::begin(kSeverity), std::end(kSeverity), exit); };
    return rank(a) >= rank(b) ? a : b;
}

Member memberFor(const tavo::DeviceDescription& device, const std::string& spec) {
    return {spec.empty() ? device.spec() : spec, device.serial, device.path, ""};
}

/// By serial number where that tells them apart.
void nameThem(std::vector<Member>& members) {
    for (auto& member : members) {
        const auto sharing = std::count_if(members.begin(), members.end(),
                                           [&](const Member& other) { return other.serial == member.serial; });
        member.name = member.serial.empty() || sharing > 1 ? member.spec : member.serial;
    }
}

void requireDifferent(const std::vector<Member>& members) {
    std::set<std::string> paths;
    for (const auto& member : members) {
        if (member.path.empty() || paths.insert(member.path).second) continue;
        throw Failure{Exit::Usage, member.name + " at " + member.path + " is named twice", "name each device once", {}};
    }
}

std::vector<Member> findMembers(const Session& session) {
    const GlobalOptions& options = session.options;
    std::vector<Member> members;
    if (options.all) {
        for (const auto& device : tavo::devices()) members.push_back(memberFor(device, ""));
        if (members.empty()) throw tavo::noDevice({});
    }
    for (const auto& spec : options.devices) {
        members.push_back(memberFor(tavo::chooseDevice({spec}, options.waitSeconds, session.control()), spec));
    }
    nameThem(members);
    requireDifferent(members);
    return members;
}

/// Two devices must never write to one path.
void checkOutputs(const Invocation& invocation, const std::vector<Member>& members) {
    std::vector<std::string> written{invocation.options.logFile};
    for (const std::string* path : invocation.outputs) written.push_back(*path);
    std::erase(written, "");
    if (written.empty() || members.size() < 2) return;
    for (const auto& path : written) {
        if (hasSerialMark(path)) continue;
        const char* remedy =
            isStandardStream(path) ? "name a file, with {serial} in its name" : "put {serial} into the name";
        throw Failure{Exit::Usage, "several devices would write " + path, remedy, {}};
    }
    std::set<std::string> names;
    for (const auto& member : members) {
        if (!member.serial.empty() && names.insert(withSerial("{serial}", member.serial)).second) continue;
        throw Failure{
            Exit::Usage, "{serial} does not tell the devices apart: " + member.name, "work on them one by one", {}};
    }
}

/// Of all devices, by name: what is asked once is said once.
std::string questionOf(const Invocation& invocation, const std::vector<Member>& members) {
    const std::string what = invocation.asksTogether ? invocation.asksTogether() : cli::questionOf(invocation);
    if (what.empty()) return "";
    std::string names;
    for (const auto& member : members) names += (names.empty() ? "" : ", ") + member.name;
    return what + " of " + countText(members.size(), "interface") + " (" + names + ")?";
}

void prepare(Member& member, const Session& whole, bool isConfirmed, int argc, char** argv) {
    member.invocation = readCommandLine(argc, argv);
    if (isConfirmed) member.invocation.options.yes = true;
    member.invocation.options.devices = {member.spec};
    member.invocation.options.all = false;
    member.session = std::make_unique<Session>(member.invocation.options, *member.invocation.command);
    member.session->images = whole.images;
    member.session->setName(member.name, member.spec);
}

void work(Member& member) {
    Session& session = *member.session;
    try {
        member.exit = guarded(session, [&] { return runCommand(session, member.invocation); });
    } catch (...) {  // not even the failure could be told, as without memory: the others go on
        member.exit = Exit::Internal;
    }
}

/// Where no thread is to be had, the rest is done one after the other.
void workOnAll(std::vector<Member>& members) {
    std::vector<std::thread> threads;
    threads.reserve(members.size());
    for (auto& member : members) {
        try {
            threads.emplace_back([&member] { work(member); });
        } catch (const std::exception&) {
            work(member);
        }
    }
    for (auto& thread : threads) thread.join();
}

constexpr const char* kAllDone = "done on every device; only the results could not be told";

Exit tellResults(std::vector<Member>& members, const Invocation& invocation) {
    console().clearLive();
    Exit exit = Exit::Done;
    Json objects = Json::array();
    for (auto& member : members) {
        exit = worse(exit, member.exit);
        member.session->report.tellKept();
        objects.push_back(member.session->report.object(member.exit));
    }
    if (!invocation.options.json) return outputChecked(exit, kAllDone);
    const Json whole = {{"json_format_version", {1, 0}},
                        {"command", invocation.command->name},
                        {"devices", objects},
                        {"exit_status", static_cast<int>(exit)}};
    std::cout << whole.dump() << std::endl;
    return outputChecked(exit, kAllDone);
}

}  // namespace

bool wantsSeveral(const Invocation& invocation) {
    const GlobalOptions& options = invocation.options;
    const Needs needs = invocation.command->needs;
    return needsDevice(needs) && (options.devices.size() > 1 || options.all);
}

Exit runSeveral(Session& session, const Invocation& invocation, int argc, char** argv) {
    std::vector<Member> members;
    {
        const auto trace = session.trace();
        members = findMembers(session);
    }
    checkOutputs(invocation, members);
    const std::string question = session.options.dryRun ? "" : questionOf(invocation, members);
    if (!question.empty()) session.confirm(question);
    for (auto& member : members) prepare(member, session, !question.empty(), argc, argv);
    workOnAll(members);
    return tellResults(members, invocation);
}

}  // namespace cli
