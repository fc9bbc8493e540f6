// tavo_util._core.Device: what tavo_util.Device stands on.
#pragma once

#include <pybind11/pybind11.h>

#include <array>
#include <optional>
#include <stdexcept>

#include "tavo/service/device.h"
#include "tavo/service/neuron.h"

namespace binding {

namespace py = pybind11;

/// A device that one operation uses at a time. Everything here with the GIL held.
class Held {
public:
    explicit Held(tavo::Device device) : device_(std::move(device)) {}

    /// The device for one operation; a second one meanwhile, from another thread or from a callback, is refused.
    class Use {
    public:
        explicit Use(Held& held) : held_(held) {
            if (!held.device_) throw py::value_error("this device has been closed");
            if (held.inUse_) {
                throw tavo::Error(tavo::Problem::Busy,
                                  held.device_->name() + " is in use by another thread of this process",
                                  "one operation at a time on a device");
            }
            held.inUse_ = true;
        }
        ~Use() { held_.inUse_ = false; }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

        tavo::Device& operator*() const { return *held_.device_; }

    private:
        Held& held_;
    };

    void close() {
        if (!device_) return;
        { const Use last(*this); }
        device_.reset();
    }
    bool isOpen() const { return device_.has_value(); }
    const tavo::DeviceDescription& description() const {
        if (!device_) throw py::value_error("this device has been closed");
        return device_->description();
    }

private:
    std::optional<tavo::Device> device_;
    bool inUse_ = false;
};

void defineDevice(py::module_& module);
void defineBridge(py::module_& module, py::class_<Held>& device);
void defineStore(py::module_& module, py::class_<Held>& device);

/// Entries of the domain table as they travel.
py::bytes bytesOf(const LonAddress& entry);
py::tuple bytesOf(const tavo::DomainTable& table);
/// Throws py::value_error.
LonAddress entryOf(const std::string& bytes);
tavo::DomainTable tableOf(const std::array<std::string, 2>& entries);

}  // namespace binding
