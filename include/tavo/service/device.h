// The interfaces that are attached, and the one that a program works on: found, chosen, locked.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tavo/deviceAccess.h"
#include "tavo/service/error.h"
#include "tavo/service/operation.h"

namespace tavo {

/// What the bridge's serial block 0 is on USB.
enum class Scb0Role : std::uint8_t { Other, Spi, I2c };

/// One attached interface as it was found.
struct DeviceDescription {
    std::string serial;           ///< empty when it has none, or when it cannot be read
    std::string path;             ///< port path, "1-4.2"; of a simulated interface "sim:" and its folder
    std::string manufacturer;     ///< as the device tells it: not safe for a terminal, nor for a file name
    std::string product;          ///< as the device tells it
    std::string neuronId;         ///< 12 upper-case digits; empty when the bridge keeps none, or the device is in use
    std::uint16_t vendorId = 0;   ///< USB vendor ID
    std::uint16_t productId = 0;  ///< USB product ID
    Scb0Role scb0 = Scb0Role::Other;    ///< role of serial block 0
    TAVO_STATUS access = TAVO_SUCCESS;  ///< TAVO_ACCESS_DENIED: this user may not open it
    std::optional<int> holder;          ///< process that has it locked; 0 when its number is unknown
    DeviceInfo info;                    ///< what the library's own operations take

    TAVO_API std::string name() const;  ///< "00001234 at 1-4.2", for messages
    TAVO_API std::string spec() const;  ///< what chooses this one and no other (DeviceSpec): "usb:1-4.2"
};

/// How a device is named on a command line and in a program.
struct TAVO_API DeviceSpec {
    /// What it is.
    enum class Kind : std::uint8_t { Serial, UsbPath, NeuronId, Simulated };
    Kind kind = Kind::Serial;  ///< what it is
    std::string text;          ///< without its prefix

    /// "serial:TEXT", "usb:BUS-PORT", "neuron:HEX12", "sim:DIR[,OPTIONS]", or a bare serial number.
    /// Throws Error (BadArgument).
    static DeviceSpec parse(const std::string& text);
    /// True when it may mean that device.
    bool matches(const DeviceDescription& device) const;
};

/// The attached interfaces in the order of their ports; those that match one of specs, when there are
/// any. Disturbs no run of another process. Blocks for a few control transfers a device.
/// Throws Error: BadArgument for a spec, otherwise when USB itself cannot be used.
TAVO_API std::vector<DeviceDescription> devices(const std::vector<std::string>& specs = {});

/// What to throw when devices() gave none for these specs: NoDevice, or NoPermission when one that may be
/// meant cannot be opened.
TAVO_API Error noDevice(const std::vector<std::string>& specs);

/// The one device that the specs name; waits for it to appear, at most waitSeconds (Phase::Wait).
/// Throws Error: NoDevice, SeveralDevices (details: one line each), NoPermission, Interrupted.
TAVO_API DeviceDescription chooseDevice(const std::vector<std::string>& specs,
                                        std::optional<unsigned> waitSeconds = std::nullopt,
                                        const Control& control = {});

/// False when nothing is plugged in at that port any more. Opens nothing: disturbs no run beside it.
TAVO_API bool isStillAttached(const std::string& path);

/// Accepts one more pair of USB IDs for the rest of the process.
TAVO_API void allowUsbId(std::uint16_t vendorId, std::uint16_t productId);

struct FlashChip;

/// One interface, locked against other processes and other objects as long as this object lives.
/// Opens nothing by itself. One thread at a time; two devices in two threads work side by side.
class TAVO_API Device {
public:
    /// Throws Error: Busy, with the holder's process ID; FileSystem when no lock file can be made.
    explicit Device(DeviceDescription description);
    /// chooseDevice and lock. Throws Error also when the device cannot be opened.
    static Device open(const std::string& spec, std::optional<unsigned> waitSeconds = std::nullopt,
                       const Control& control = {});
    ~Device();
    Device(Device&& other) noexcept;  ///< other may then only be destroyed or assigned to
    /// The other one may then only be destroyed or assigned to.
    Device& operator=(Device&& other) noexcept;

    /// As it was when the device was opened.
    const DeviceDescription& description() const;
    /// "00001234 at 1-4.2", for messages.
    std::string name() const { return description().name(); }
    /// The record that the library's own operations take and may change (serial number).
    DeviceInfo& info();
    /// The same, not to be changed.
    const DeviceInfo& info() const;
    /// The flash chip, as an operation on this object has seen it last, good or bad; null: none has.
    const FlashChip* flashChip() const;

private:
    friend class FlashAccess;
    void noteFlashChip(const FlashChip& chip);

    struct Held;
    std::unique_ptr<Held> held_;
};

}  // namespace tavo
