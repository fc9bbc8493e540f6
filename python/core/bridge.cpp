// The bridge's configuration block and user flash.
#include <pybind11/stl.h>

#include <algorithm>

#include "python/core/convert.h"
#include "python/core/device.h"
#include "python/core/running.h"

namespace binding {
namespace {

tavo::ConfigurationBlock blockOf(const std::string& bytes) {
    tavo::ConfigurationBlock block{};
    if (bytes.size() != block.size()) throw py::value_error("a configuration block has 512 bytes");
    std::copy(bytes.begin(), bytes.end(), block.begin());
    return block;
}

py::object readBlock(Held& held, const py::object& progress, const py::object& cancel) {
    const Held::Use device(held);
    Run run(progress, cancel);
    return toPython(run([&](const tavo::Control& control) { return tavo::readConfiguration(*device, control); }));
}

/// What becomes of a plan, and what is kept of the block that was there.
struct Rewriting {
    std::string backup;
    bool noBackup;
    bool dryRun;
};

/// Plans, and carries it out unless it is a dry run. plan(device, control) gives the plan.
template <typename Plan>
py::tuple rewrite(Held& held, Plan plan, const Rewriting& how, const py::object& progress, const py::object& cancel) {
    const Held::Use device(held);
    Run run(progress, cancel);
    std::string kept;
    const tavo::ConfigurationPlan done = run([&](const tavo::Control& control) {
        tavo::ConfigurationPlan made = plan(*device, control);
        if (!how.dryRun) kept = tavo::writeConfiguration(*device, made, {how.backup, how.noBackup}, control);
        return made;
    });
    return py::make_tuple(toPython(done.before), toPython(done.after), text(done.serial), text(done.pendingSerial),
                          text(kept), !how.dryRun && done.changesAnything());
}

py::tuple writeBlock(Held& held, const std::string& bytes, const std::optional<std::string>& serial,
                     const std::string& source, const std::string& backup, bool noBackup, bool dryRun, bool force,
                     const py::object& progress, const py::object& cancel) {
    const auto block = blockOf(bytes);
    const auto plan = [&](tavo::Device& device, const tavo::Control& control) {
        return tavo::planConfiguration(device, block, {serial, source, force}, control);
    };
    return rewrite(held, plan, {backup, noBackup, dryRun}, progress, cancel);
}

py::tuple setSerial(Held& held, const std::string& serial, const std::string& backup, bool noBackup, bool dryRun,
                    const py::object& progress, const py::object& cancel) {
    const auto plan = [&](tavo::Device& device, const tavo::Control& control) {
        return tavo::planSerialNumber(device, serial, control);
    };
    return rewrite(held, plan, {backup, noBackup, dryRun}, progress, cancel);
}

py::tuple setScb0(Held& held, bool spi, const std::string& backup, bool noBackup, bool dryRun,
                  const py::object& progress, const py::object& cancel) {
    const auto plan = [&](tavo::Device& device, const tavo::Control& control) {
        return tavo::planScb0(device, spi ? tavo::Scb0Role::Spi : tavo::Scb0Role::I2c, control);
    };
    return rewrite(held, plan, {backup, noBackup, dryRun}, progress, cancel);
}

NeuronId idOf(const std::string& digits) {
    NeuronId id;
    if (!id.fromString(("ID" + digits).c_str(), nullptr) || !id.isValid()) {
        throw py::value_error("a Neuron ID has 12 hexadecimal digits, not all 0 and not all F");
    }
    return id;
}

py::object storeNeuronId(Held& held, const std::optional<std::string>& digits, bool dryRun, const py::object& progress,
                         const py::object& cancel) {
    const auto id = digits ? std::optional(idOf(*digits)) : std::nullopt;
    const Held::Use device(held);
    Run run(progress, cancel);
    return toPython(run([&](const tavo::Control& control) {
        return dryRun ? tavo::planNeuronId(*device, id, control) : tavo::storeNeuronId(*device, id, control);
    }));
}

void save(const std::string& path, const std::string& block, bool replace) {
    tavo::saveConfiguration(path, blockOf(block), replace);
}

}  // namespace

void defineBridge(py::module_& module, py::class_<Held>& device) {
    device.def("configuration", &readBlock)
        .def("write_configuration", &writeBlock)
        .def("set_serial_number", &setSerial)
        .def("set_scb0", &setScb0)
        .def("store_neuron_id", &storeNeuronId);
    module.def("configuration_fields",
               [](const std::string& block) { return toPython(tavo::fieldsOf(blockOf(block))); });
    module.def("compare_configuration", [](const std::string& before, const std::string& after) {
        return tupleOf(tavo::compareConfiguration(blockOf(before), blockOf(after)));
    });
    module.def("load_configuration", [](const std::string& path) { return toPython(tavo::loadConfiguration(path)); });
    module.def("save_configuration", &save);
}

}  // namespace binding
