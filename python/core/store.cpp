// What this computer keeps: backups, the history; and domain tables in files.
#include <pybind11/stl.h>

#include <cstring>

#include "python/core/convert.h"
#include "python/core/device.h"
#include "python/core/running.h"
#include "tavo/service/domainFile.h"

namespace binding {
namespace {

tavo::BackupKind kindOf(unsigned kind) {
    if (kind > static_cast<unsigned>(tavo::BackupKind::Domains)) throw py::value_error("no kind of backup");
    return static_cast<tavo::BackupKind>(kind);
}

/// Without the GIL: files are read.
template <typename Task>
auto aside(Task task) {
    const py::gil_scoped_release released;
    return task();
}

py::tuple backups(const Held& held) {
    const auto device = held.description();
    return tupleOf(aside([&] { return tavo::backups(device); }));
}

py::object findBackup(const Held& held, unsigned kind, const std::string& which) {
    const auto device = held.description();
    return toPython(aside([&] { return tavo::findBackup(device, kindOf(kind), which); }));
}

py::object restore(Held& held, unsigned kind, const std::string& which, bool noBackup, const py::object& progress,
                   const py::object& cancel) {
    const Held::Use device(held);
    Run run(progress, cancel);
    return toPython(run([&](const tavo::Control& control) {
        const tavo::Backup backup = tavo::findBackup((*device).description(), kindOf(kind), which);
        return tavo::restore(*device, backup, {noBackup}, control);
    }));
}

py::object history(const std::vector<std::string>& specs) {
    return toPython(aside([&] { return tavo::history(specs); }));
}

using FileEntry = std::tuple<unsigned, std::string, bool, bool>;

py::list readDomainFile(const std::string& path, std::optional<int> only) {
    py::list entries;
    for (const tavo::DomainEntry& entry : aside([&] { return tavo::readDomainFile(path, only); })) {
        entries.append(py::make_tuple(entry.index, bytesOf(entry.address), entry.hasKey, entry.isKeyReplaced));
    }
    return entries;
}

py::tuple tableWith(const std::array<std::string, 2>& before, const std::vector<FileEntry>& wanted) {
    std::vector<tavo::DomainEntry> entries;
    for (const auto& [index, bytes, hasKey, isKeyReplaced] : wanted) {
        if (index > 1) throw py::index_error("a domain table has the entries 0 and 1");
        entries.push_back({index, entryOf(bytes), hasKey, isKeyReplaced});
    }
    return bytesOf(tavo::tableWith(tableOf(before), entries));
}

std::string tableText(const std::array<std::string, 2>& table, const std::array<std::string, 2>& next, bool keepKeys) {
    return tavo::domainTableText(tableOf(table), tableOf(next), keepKeys);
}

}  // namespace

py::bytes bytesOf(const LonAddress& entry) {
    return {reinterpret_cast<const char*>(&entry), sizeof entry};
}

py::tuple bytesOf(const tavo::DomainTable& table) {
    return py::make_tuple(bytesOf(table[0]), bytesOf(table[1]));
}

LonAddress entryOf(const std::string& bytes) {
    LonAddress entry;
    if (bytes.size() != sizeof entry) throw py::value_error("an entry of the domain table has 15 bytes");
    std::memcpy(static_cast<void*>(&entry), bytes.data(), sizeof entry);
    return entry;
}

tavo::DomainTable tableOf(const std::array<std::string, 2>& entries) {
    return {entryOf(entries[0]), entryOf(entries[1])};
}

void defineStore(py::module_& module, py::class_<Held>& device) {
    device.def("backups", &backups).def("find_backup", &findBackup).def("restore", &restore);
    module.def("history", &history);
    module.def("read_domain_file", &readDomainFile);
    module.def("table_with", &tableWith);
    module.def("domain_table_text", &tableText);
}

}  // namespace binding
