// What the service layer hands out, as the objects of tavo_util.results and tavo_util.errors.
#pragma once

#include <pybind11/pybind11.h>

#include <optional>
#include <string>
#include <vector>

#include "tavo/service/backups.h"
#include "tavo/service/configuration.h"
#include "tavo/service/doctor.h"
#include "tavo/service/error.h"
#include "tavo/service/flash.h"
#include "tavo/service/history.h"
#include "tavo/service/image.h"
#include "tavo/service/imageFile.h"
#include "tavo/service/neuron.h"
#include "tavo/service/operation.h"
#include "tavo/service/overview.h"
#include "tavo/service/range.h"
#include "tavo/service/recover.h"
#include "tavo/service/watch.h"

namespace binding {

namespace py = pybind11;

/// A text of a device or of the file system, which need not be UTF-8.
py::str text(const std::string& bytes);

py::object toPython(std::uint32_t value);
py::object toPython(const std::string& value);  ///< as text()
py::object toPython(const NeuronId& id);
py::object toPython(const tavo::ProgramId& id);
py::object toPython(const tavo::EraseType& type);
py::object toPython(const tavo::Difference& difference);
py::object toPython(const tavo::Check& check);
py::object toPython(const tavo::Part& part);
py::object toPython(const tavo::RecoverStep& step);
py::object toPython(const tavo::StatusLook& look);
py::object toPython(const tavo::StatusCounter& counter);
py::object toPython(const tavo::ImageFault& fault);
py::object toPython(const tavo::NamedRange& range);
py::object toPython(const tavo::ByteChange& change);
py::object toPython(const tavo::HistoryEntry& entry);
py::object toPython(const tavo::Backup& backup);
py::object toPython(tavo::Image&& image);
py::object toPython(const tavo::Error& error);
py::object toPython(const tavo::Event& event);
py::object toPython(const tavo::DeviceState& state);
py::object toPython(const tavo::DeviceDescription& device);
py::object toPython(const tavo::FlashChip& chip);
py::object toPython(const tavo::AddressRange& range);
py::object toPython(const tavo::Comparison& comparison);
py::object toPython(const tavo::ProgramForecast& forecast);
py::object toPython(const tavo::ProgramResult& done);
py::object toPython(tavo::VerifyResult&& found);
py::object toPython(tavo::ReadFlashResult&& found);
py::object toPython(const tavo::EraseResult& done);
py::object toPython(tavo::BlankCheckResult&& found);
py::object toPython(const NeuronState& state);
py::object toPython(const tavo::ModeChange& change);
py::object toPython(const tavo::StatusHistory& history);
py::object toPython(const tavo::Diagnosis& found);
py::object toPython(const tavo::Overview& found);
py::object toPython(const tavo::Recovery& done);
py::object toPython(const tavo::InterruptedRun& run);
py::object toPython(const tavo::ConfigurationFields& fields);
py::object toPython(const tavo::StoredNeuronId& stored);
py::bytes toPython(const tavo::ConfigurationBlock& block);
py::object toPython(const tavo::ImageMap& map);
py::object toPython(const tavo::History& history);
py::object toPython(const tavo::RestoreResult& done);

template <typename T>
py::object toPython(const std::optional<T>& value) {
    return value ? py::object(toPython(*value)) : py::none();
}

/// A tuple of what those give.
template <typename List>
py::tuple tupleOf(const List& list) {
    py::list items;
    for (const auto& item : list) items.append(toPython(item));
    return items;
}

}  // namespace binding
