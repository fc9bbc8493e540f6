// Devices: found, opened, described; and simulated ones.
#include <memory>

#include "service/c/boundary.h"
#include "tavo/service/simulated.h"

struct tavo_device_list {
    std::vector<tavo::DeviceDescription> found;
};

namespace tavo::c {
namespace {

static_assert(static_cast<int>(Scb0Role::I2c) == TAVO_SCB0_ROLE_I2C);

tavo_device_description describe(const DeviceDescription& device) {
    tavo_device_description told{};
    told.vendor_id = device.vendorId;
    told.product_id = device.productId;
    told.scb0_role = static_cast<std::uint32_t>(device.scb0);
    told.access = device.access;
    told.is_held = device.holder.has_value();
    told.holder = device.holder.value_or(0);
    put(told.name, device.name());
    put(told.serial, device.serial);
    put(told.path, device.path);
    put(told.manufacturer, device.manufacturer);
    put(told.product, device.product);
    put(told.neuron_id, device.neuronId);
    return told;
}

tavo_device* opened(const DeviceDescription& description) {
    if (description.access != TAVO_SUCCESS) {
        throw statusError(description.access, Side::Bridge, "open " + description.name());
    }
    return new tavo_device{Device(description), {}};
}

}  // namespace
}  // namespace tavo::c

using namespace tavo::c;

tavo_result tavo_find_devices(const char* spec, tavo_device_list** list, tavo_error* error) {
    return guarded(error, [&] {
        tavo_device_list*& place = emptied(list, "list");
        place = new tavo_device_list{tavo::devices(specsOf(spec))};
    });
}

void tavo_free_device_list(tavo_device_list* list) {
    delete list;
}

uint32_t tavo_device_count(const tavo_device_list* list) {
    return list == nullptr ? 0 : static_cast<uint32_t>(list->found.size());
}

tavo_result tavo_listed_device(const tavo_device_list* list, uint32_t index, tavo_device_description* description,
                               tavo_error* error) {
    return guarded(
        error, [&] { Out(description, "description").fill(describe(at(given(list, "list").found, index, "device"))); });
}

tavo_result tavo_open_device(const char* spec, uint32_t wait_seconds, const tavo_control* control, tavo_device** device,
                             tavo_error* error) {
    return guarded(error, [&] {
        tavo_device*& place = emptied(device, "device");
        const std::optional<unsigned> wait = wait_seconds == 0 ? std::nullopt : std::optional(wait_seconds);
        place = opened(tavo::chooseDevice(specsOf(spec), wait, controlOf(control)));
    });
}

tavo_result tavo_open_listed_device(const tavo_device_list* list, uint32_t index, tavo_device** device,
                                    tavo_error* error) {
    return guarded(error, [&] {
        tavo_device*& place = emptied(device, "device");
        place = opened(at(given(list, "list").found, index, "device"));
    });
}

void tavo_close_device(tavo_device* device) {
    delete device;
}

tavo_result tavo_describe_device(const tavo_device* device, tavo_device_description* description, tavo_error* error) {
    return guarded(
        error, [&] { Out(description, "description").fill(describe(given(device, "device").device.description())); });
}

tavo_result tavo_is_attached(const char* path, uint32_t* is_attached, tavo_error* error) {
    return guarded(error, [&] {
        uint32_t& out = given(is_attached, "is_attached");
        out = tavo::isStillAttached(&given(path, "path"));
    });
}

tavo_result tavo_allow_usb_id(uint16_t vendor_id, uint16_t product_id, tavo_error* error) {
    return guarded(error, [&] { tavo::allowUsbId(vendor_id, product_id); });
}

tavo_result tavo_simulated_environment(const char* spec, char* buffer, uint32_t capacity, uint32_t* needed,
                                       tavo_error* error) {
    return guarded(error, [&] {
        std::string text;
        for (const auto& [name, value] : tavo::simulatedEnvironment({&given(spec, "spec")})) {
            text += name + "=" + value + '\0';
        }
        text += '\0';
        hand(text, buffer, capacity, needed);
    });
}

uint32_t tavo_is_on_simulated_interfaces() {
    try {
        return tavo::isOnSimulatedInterfaces();
    } catch (...) {
        return 0;
    }
}
