// How every flash operation takes hold of the chip, and lets go of it.
#pragma once

#include <optional>

#include "tavo/Configurator.h"

/// SCB0 as SPI master and the Neuron held in reset, for as long as the object lives. Releases, in
/// this order: the reset line, the GPIO, SCB0 (a slave again if take made it master).
class FlashAccess {
public:
    explicit FlashAccess(DeviceInfo& deviceInfo) : configurator_(deviceInfo) {}

    /// Takes both and waits until the Neuron has let go of the bus.
    /// @return the status of the first step that failed; nothing after it is touched.
    [[nodiscard]] CY_RETURN_STATUS take(long settleMs);

    /// The handle on SCB0 that drives the pins. Only after take has succeeded.
    const CyHandle& pinHandle() const { return *gpio_->cyHandle; }

private:
    Configurator configurator_;
    std::optional<GPIO> gpio_;
    std::optional<IOPin> reset_;
};
