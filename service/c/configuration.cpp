// The bridge's configuration block, and the Neuron ID kept in its user flash.
#include "tavo/service/configuration.h"

#include "service/c/boundary.h"

namespace tavo::c {
namespace {

static_assert(std::tuple_size_v<ConfigurationBlock> == TAVO_CONFIGURATION_SIZE &&
              NeuronId::kSize == TAVO_NEURON_ID_SIZE);

ConfigurationBlock blockOf(const std::uint8_t* bytes) {
    requireGiven(bytes, "block");
    ConfigurationBlock block{};
    std::copy_n(bytes, block.size(), block.begin());
    return block;
}

void copy(const ConfigurationBlock& block, std::uint8_t* bytes) {
    std::copy(block.begin(), block.end(), bytes);
}

tavo_configuration_result resultOf(const ConfigurationPlan& plan) {
    tavo_configuration_result told{};
    told.changed_bytes = static_cast<std::uint32_t>(compareConfiguration(plan.before, plan.after).size());
    copy(plan.before, told.before);
    copy(plan.after, told.after);
    put(told.serial, plan.serial);
    put(told.pending_serial, plan.pendingSerial);
    return told;
}

/// What of a rewrite is the caller's wish, whatever is rewritten.
struct Wish {
    const tavo_configuration_options* options;
    const tavo_control* control;
    tavo_configuration_result* result;
};

/// planOf(Device&, Control, force) makes the plan.
template <typename PlanOf>
tavo_result rewrite(tavo_device* device, const Wish& wish, tavo_error* error, const PlanOf& planOf) {
    return onDevice(device, wish.control, error, [&](Device& own, const Control& watch) {
        const Out out(wish.result, "result");
        const tavo_configuration_options how = taken(wish.options, "options");
        const ConfigurationPlan plan = planOf(own, watch, how.force != 0);
        tavo_configuration_result told = resultOf(plan);
        out.fill(told);
        if (how.dry_run != 0 || !plan.changesAnything()) return;
        put(told.backup, writeConfiguration(own, plan, {textOf(how.backup), how.no_backup != 0}, watch));
        told.written = 1;
        out.fill(told);
    });
}

}  // namespace
}  // namespace tavo::c

using namespace tavo::c;
using tavo::Control;
using tavo::Device;

tavo_result tavo_describe_configuration(const uint8_t* block, tavo_configuration_description* description,
                                        tavo_error* error) {
    return guarded(error, [&] {
        const tavo::ConfigurationFields fields = tavo::fieldsOf(blockOf(block));
        tavo_configuration_description told{};
        told.vendor_id = fields.vendorId;
        told.product_id = fields.productId;
        told.max_power = fields.maxPowerMilliamperes;
        told.checksum_right = fields.checksumRight;
        put(told.serial, fields.serial);
        put(told.manufacturer, fields.manufacturer);
        put(told.product, fields.product);
        put(told.scb0, fields.scb0);
        put(told.format, fields.format);
        put(told.why_bad, fields.whyBad);
        Out(description, "description").fill(told);
    });
}

tavo_result tavo_load_configuration(const char* path, uint8_t* block, tavo_error* error) {
    return guarded(error, [&] {
        requireGiven(block, "block");
        copy(tavo::loadConfiguration(&given(path, "path")), block);
    });
}

tavo_result tavo_save_configuration(const char* path, const uint8_t* block, uint32_t replace, tavo_error* error) {
    return guarded(error, [&] { tavo::saveConfiguration(&given(path, "path"), blockOf(block), replace != 0); });
}

tavo_result tavo_read_configuration(tavo_device* device, const tavo_control* control, uint8_t* block,
                                    tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        requireGiven(block, "block");
        copy(tavo::readConfiguration(own, watch), block);
    });
}

tavo_result tavo_write_configuration(tavo_device* device, const uint8_t* block, const char* serial,
                                     const tavo_configuration_options* options, const tavo_control* control,
                                     tavo_configuration_result* result, tavo_error* error) {
    return rewrite(device, {options, control, result}, error, [&](Device& own, const Control& watch, bool force) {
        const tavo::ConfigurationBlock image = blockOf(block);
        tavo::ConfigurationPlanOptions how;
        if (serial != nullptr) how.serial = serial;
        how.force = force;
        return tavo::planConfiguration(own, image, how, watch);
    });
}

tavo_result tavo_set_serial_number(tavo_device* device, const char* serial, const tavo_configuration_options* options,
                                   const tavo_control* control, tavo_configuration_result* result, tavo_error* error) {
    return rewrite(device, {options, control, result}, error, [&](Device& own, const Control& watch, bool) {
        return tavo::planSerialNumber(own, &given(serial, "serial"), watch);
    });
}

tavo_result tavo_set_scb0_role(tavo_device* device, uint32_t role, const tavo_configuration_options* options,
                               const tavo_control* control, tavo_configuration_result* result, tavo_error* error) {
    return rewrite(device, {options, control, result}, error, [&](Device& own, const Control& watch, bool) {
        if (role == TAVO_SCB0_ROLE_SPI || role == TAVO_SCB0_ROLE_I2C) {
            return tavo::planScb0(own, static_cast<tavo::Scb0Role>(role), watch);
        }
        throw tavo::Error(tavo::Problem::BadArgument, "SCB0 cannot be given the role " + std::to_string(role),
                          "TAVO_SCB0_ROLE_SPI or TAVO_SCB0_ROLE_I2C");
    });
}

tavo_result tavo_store_neuron_id(tavo_device* device, const uint8_t* id, const tavo_control* control, uint8_t* stored,
                                 uint32_t* written, tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        std::optional<NeuronId> wanted;
        if (id != nullptr) wanted.emplace() = id;
        const tavo::StoredNeuronId kept = tavo::storeNeuronId(own, wanted, watch);
        if (stored != nullptr) std::copy_n(kept.id.bytes, NeuronId::kSize, stored);
        if (written != nullptr) *written = kept.written;
    });
}
