// The configuration interface of the bridge, in configuration mode for as long as an object lives.
#pragma once

#include "service/operation.h"
#include "tavo/deviceAccess.h"
#include "tavo/service/configuration.h"

namespace tavo {

/// Enters the mode with the access values that the library sends; a bridge that refuses those is asked with
/// the other known pair. Leaves the mode on every path, with the pair that was taken.
class ConfigurationMode {
public:
    explicit ConfigurationMode(Operation& op)
        : op_(op), interface_(op.device.info().configDeviceNumber, op.device.info().configInterfaceNumber) {}
    ~ConfigurationMode();
    ConfigurationMode(const ConfigurationMode&) = delete;
    ConfigurationMode& operator=(const ConfigurationMode&) = delete;

    CY_RETURN_STATUS openStatus() const { return interface_.openStatus; }
    CY_HANDLE handle() const { return interface_.handle; }

    [[nodiscard]] CY_RETURN_STATUS enter();
    [[nodiscard]] CY_RETURN_STATUS leave();
    /// Both pairs were refused.
    bool isRefused() const { return refused_; }

private:
    enum class Pair { Library, Letters };

    CY_RETURN_STATUS ask(Pair pair, bool enable) const;

    Operation& op_;
    CyHandle interface_;
    Pair pair_ = Pair::Library;
    bool entered_ = false;
    bool refused_ = false;
};

/// Reads the block into it; refused: the bridge takes neither pair of access values.
TAVO_STATUS readBlock(Operation& op, ConfigurationBlock& block, bool& refused);

/// The Error of a failed configuration request: says more where the bridge refused the mode or has gone.
Error configurationError(const Operation& op, TAVO_STATUS status, const std::string& doing, bool refused);

}  // namespace tavo
