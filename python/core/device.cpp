#include "python/core/device.h"

#include <pybind11/stl.h>

#include "python/core/convert.h"
#include "python/core/image.h"
#include "python/core/running.h"

namespace binding {
namespace {

using Range = std::optional<std::pair<std::uint32_t, std::uint32_t>>;

std::optional<tavo::AddressRange> rangeOf(const Range& range) {
    if (!range) return {};
    return tavo::AddressRange{range->first, range->second};
}

/// One operation: operation(device, control), and what it gives as a Python object.
template <typename Operation>
py::object on(Held& held, const py::object& progress, const py::object& cancel, Operation operation) {
    const Held::Use device(held);
    Run run(progress, cancel);
    return toPython(run([&](const tavo::Control& control) { return operation(*device, control); }));
}

/// The same of an operation without anything to tell it but the device.
template <auto operation>
py::object simply(Held& held, const py::object& progress, const py::object& cancel) {
    return on(held, progress, cancel,
              [](tavo::Device& device, const tavo::Control& control) { return operation(device, control); });
}

tavo::FlashChip inspectFlash(tavo::Device& device, const tavo::Control& control) {
    return tavo::inspectFlash(device, control);
}

tavo::ProgramOptions programOptions(const PyImage& image, bool full, bool ifDifferent, bool keep, const Range& range,
                                    std::optional<int> clockHz, const std::string& backup, bool noBackup) {
    tavo::ProgramOptions options;
    options.full = full;
    options.ifDifferent = ifDifferent;
    options.keep = keep;
    options.range = rangeOf(range);
    options.clockHz = clockHz;
    options.backup = backup;
    options.noBackup = noBackup;
    options.imageName = image.name();
    options.imageOptions = image.options();
    if (range) {
        options.imageOptions +=
            (options.imageOptions.empty() ? "--range " : " --range ") + tavo::rangeText(*options.range);
    }
    options.file = image.file();
    return options;
}

py::object program(Held& held, const PyImage& image, bool full, bool ifDifferent, bool keep, const Range& range,
                   std::optional<int> clockHz, const std::string& backup, bool noBackup, const py::object& progress,
                   const py::object& cancel) {
    const auto options = programOptions(image, full, ifDifferent, keep, range, clockHz, backup, noBackup);
    return on(held, progress, cancel, [&](tavo::Device& device, const tavo::Control& control) {
        return tavo::programFlash(device, image.image(), options, control);
    });
}

py::object forecast(const PyImage& image, bool full, bool keep, const Range& range, const std::string& backup) {
    return toPython(
        tavo::forecastProgram(image.image(), programOptions(image, full, false, keep, range, {}, backup, false)));
}

py::object verify(Held& held, const PyImage& image, bool restBlank, bool every, bool whole, const Range& range,
                  std::optional<int> clockHz, const py::object& progress, const py::object& cancel) {
    tavo::VerifyOptions options;
    options.restBlank = restBlank;
    options.every = every;
    options.whole = whole;
    options.file = image.file();
    options.imageName = image.name();
    options.range = rangeOf(range);
    options.clockHz = clockHz;
    return on(held, progress, cancel, [&](tavo::Device& device, const tavo::Control& control) {
        return tavo::verifyFlash(device, image.image(), options, control);
    });
}

py::object read(Held& held, const Range& range, std::optional<int> clockHz, const py::object& progress,
                const py::object& cancel) {
    const tavo::ReadFlashOptions options{rangeOf(range), clockHz};
    return on(held, progress, cancel, [&](tavo::Device& device, const tavo::Control& control) {
        return tavo::readFlash(device, options, control);
    });
}

py::object erase(Held& held, const Range& range, std::optional<int> clockHz, const std::string& backup, bool noBackup,
                 const py::object& progress, const py::object& cancel) {
    const tavo::EraseOptions options{rangeOf(range), clockHz, backup, noBackup};
    return on(held, progress, cancel, [&](tavo::Device& device, const tavo::Control& control) {
        return tavo::eraseFlash(device, options, control);
    });
}

py::object blankCheck(Held& held, bool every, const Range& range, std::optional<int> clockHz,
                      const py::object& progress, const py::object& cancel) {
    const tavo::BlankCheckOptions options{every, rangeOf(range), clockHz};
    return on(held, progress, cancel, [&](tavo::Device& device, const tavo::Control& control) {
        return tavo::blankCheckFlash(device, options, control);
    });
}

py::object setMode(Held& held, unsigned mode, const py::object& progress, const py::object& cancel) {
    return on(held, progress, cancel, [&](tavo::Device& device, const tavo::Control& control) {
        return tavo::setMode(device, static_cast<tavo::Mode>(mode), control);
    });
}

double reset(Held& held, bool byMessage, const py::object& progress, const py::object& cancel) {
    const Held::Use device(held);
    Run run(progress, cancel);
    return run([&](const tavo::Control& control) {
        return tavo::reset(*device, byMessage ? tavo::ResetBy::Message : tavo::ResetBy::Line, control);
    });
}

double pressServicePin(Held& held, const py::object& progress, const py::object& cancel) {
    const Held::Use device(held);
    Run run(progress, cancel);
    return run([&](const tavo::Control& control) { return tavo::pressServicePin(*device, control); });
}

py::tuple readDomainTable(Held& held, const py::object& progress, const py::object& cancel) {
    const Held::Use device(held);
    Run run(progress, cancel);
    const auto table = run([&](const tavo::Control& control) { return tavo::readDomainTable(*device, control); });
    return bytesOf(table);
}

/// The indexes of the entries that differ from before, and the file that keeps what was there.
std::pair<std::vector<unsigned>, std::string> writeDomainTable(Held& held, const std::array<std::string, 2>& before,
                                                               const std::array<std::string, 2>& wanted,
                                                               const std::string& source, bool noBackup, bool keepKeys,
                                                               const py::object& progress, const py::object& cancel) {
    const auto known = tableOf(before);
    const auto table = tableOf(wanted);
    const Held::Use device(held);
    Run run(progress, cancel);
    return run([&](const tavo::Control& control) {
        std::vector<unsigned> changed;
        const tavo::DomainWriteOptions options{&changed, source, noBackup, keepKeys};
        std::string backup = tavo::writeDomainTable(*device, known, table, options, control);
        return std::pair(std::move(changed), std::move(backup));
    });
}

py::object watch(Held& held, unsigned intervalMs, std::size_t looks, const py::object& each, const py::object& progress,
                 const py::object& cancel) {
    const Held::Use device(held);
    Run run(progress, cancel);
    tavo::WatchOptions options{intervalMs, looks, {}};
    if (!each.is_none()) {
        options.each = [&](const tavo::StatusHistory& seen) {
            run.onCaller([&] { each(toPython(seen.looks.back())); });
        };
    }
    return toPython(run([&](const tavo::Control& control) {
        tavo::StatusHistory history;
        tavo::watchStatus(*device, history, options, control);
        return history;
    }));
}

py::object overview(Held& held, unsigned flash, const py::object& progress, const py::object& cancel) {
    return on(held, progress, cancel, [&](tavo::Device& device, const tavo::Control& control) {
        return tavo::overview(device, {static_cast<tavo::FlashLook>(flash)}, control);
    });
}

/// What is told of each step goes to a function of Python's, on its thread.
template <typename Step>
std::function<void(const Step&)> teller(Run& run, const py::object& each) {
    if (each.is_none()) return {};
    return [&](const Step& step) { run.onCaller([&] { each(toPython(step)); }); };
}

py::object doctor(Held& held, bool restartNeuron, const py::object& each, const py::object& progress,
                  const py::object& cancel) {
    const Held::Use device(held);
    Run run(progress, cancel);
    const tavo::DoctorOptions options{restartNeuron, teller<tavo::Check>(run, each)};
    return toPython(run([&](const tavo::Control& control) { return tavo::doctor(*device, options, control); }));
}

py::object recover(Held& held, const py::object& each, const py::object& progress, const py::object& cancel) {
    const Held::Use device(held);
    Run run(progress, cancel);
    const tavo::RecoverOptions options{teller<tavo::RecoverStep>(run, each)};
    return toPython(run([&](const tavo::Control& control) { return tavo::recover(*device, options, control); }));
}

std::unique_ptr<Held> open(const std::vector<std::string>& specs, std::optional<unsigned> waitSeconds, bool asItIs,
                           const py::object& progress, const py::object& cancel) {
    Run run(progress, cancel);
    return std::make_unique<Held>(run([&](const tavo::Control& control) {
        const auto found = tavo::chooseDevice(specs, waitSeconds, control);
        if (asItIs || found.access == TAVO_SUCCESS) return tavo::Device(found);
        throw tavo::statusError(found.access, tavo::Side::Bridge, "open " + found.name());
    }));
}

py::tuple devices(const std::vector<std::string>& specs) {
    Run run{py::none(), py::none()};
    return tupleOf(run([&](const tavo::Control&) { return tavo::devices(specs); }));
}

}  // namespace

void defineDevice(py::module_& module) {
    py::class_<Held> device(module, "Device");
    device.def("close", &Held::close)
        .def_property_readonly("is_open", &Held::isOpen)
        .def_property_readonly("description", [](const Held& held) { return toPython(held.description()); })
        .def_property_readonly("is_attached",
                               [](const Held& held) { return tavo::isStillAttached(held.description().path); })
        .def("interrupted_run", [](const Held& held) { return toPython(tavo::interruptedRun(held.description())); })
        .def("inspect_flash", &simply<inspectFlash>)
        .def("program", &program)
        .def("verify", &verify)
        .def("read", &read)
        .def("erase", &erase)
        .def("blank_check", &blankCheck)
        .def("status", &simply<tavo::readStatus>)
        .def("neuron_id", &simply<tavo::readNeuronId>)
        .def("program_id", &simply<tavo::readProgramId>)
        .def("set_mode", &setMode)
        .def("reset", &reset)
        .def("press_service_pin", &pressServicePin)
        .def("domain_table", &readDomainTable)
        .def("write_domain_table", &writeDomainTable)
        .def("watch", &watch)
        .def("overview", &overview)
        .def("doctor", &doctor)
        .def("recover", &recover);
    defineBridge(module, device);
    defineStore(module, device);
    module.def("open", &open);
    module.def("devices", &devices);
    module.def("forecast", &forecast);
    module.def("allow_usb_id", &tavo::allowUsbId);
}

}  // namespace binding
