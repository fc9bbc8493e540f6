// The USB-serial bridge of a simulated interface: configuration block, SPI setting, pins, user flash.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/cyusbserial.h"
#include "sim/export.h"
#include "sim/options.h"

namespace sim {

class TAVO_SIM_API Bridge {
public:
    static constexpr std::size_t kBlockSize = 512;
    static constexpr std::size_t kUserFlashSize = 512;
    static constexpr std::size_t kInternalFlashSize = 4096;
    static constexpr unsigned kPins = 17;  // GPIO_0 to GPIO_16

    using Block = std::array<std::uint8_t, kBlockSize>;

    /// The three memories keep their content without power; borrowed.
    Bridge(std::span<std::uint8_t, kBlockSize> block, std::span<std::uint8_t, kUserFlashSize> userFlash,
           std::span<std::uint8_t, kInternalFlashSize> internalFlash);

    /// The block as it leaves the factory: SCB0 an SPI slave at 1 MHz, pins 8 and 14 outputs.
    static Block factoryBlock(std::string_view serialNumber = kFactorySerialNumber);
    /// The sum that belongs at offset 8.
    static std::uint32_t checksum(std::span<const std::uint8_t, kBlockSize> block);
    /// Why a bridge with this block would not come up on USB; empty when it would.
    static std::string whyUnusable(std::span<const std::uint8_t, kBlockSize> block);

    /// Power comes on: the stored block takes effect, everything volatile is as it says.
    void powerUp();

    CY_DEVICE_INFO describe() const;
    unsigned interfaceCount() const;
    bool isManufacturing(unsigned interfaceNumber) const;
    /// SCB0 is a vendor-class SPI block and this is its interface.
    bool isSpi(unsigned interfaceNumber) const;

    CY_RETURN_STATUS getSpiConfig(unsigned interfaceNumber, CY_SPI_CONFIG& config) const;
    CY_RETURN_STATUS setSpiConfig(unsigned interfaceNumber, const CY_SPI_CONFIG& config);
    CY_RETURN_STATUS getPin(unsigned pin, UINT8& level) const;
    CY_RETURN_STATUS setPin(unsigned pin, bool high);
    CY_RETURN_STATUS programUserFlash(CY_DATA_BUFFER& data, UINT32 address);
    CY_RETURN_STATUS readUserFlash(CY_DATA_BUFFER& data, UINT32 address) const;

    /// One request on endpoint 0.
    /// @return the bytes transferred, or a libusb error: a refused request stalls (LIBUSB_ERROR_PIPE).
    int control(std::uint8_t type, std::uint8_t request, std::uint16_t value, std::uint16_t index, std::uint8_t* data,
                std::uint16_t length);

    const std::span<std::uint8_t, kBlockSize> block;  ///< as stored; takes effect at the next powerUp
    const std::span<std::uint8_t, kUserFlashSize> userFlash;
    const std::span<std::uint8_t, kInternalFlashSize> internalFlash;
    Block blockInEffect;
    CY_SPI_CONFIG spi{};
    std::array<bool, kPins> pinHigh{};
    bool inConfigurationMode = false;
    bool isSpiUnfinished = false;       ///< a transfer whose data never came: none other ends before an SPI reset
    bool isSettingLostByReset = false;  ///< an SPI reset takes its setting along; nobody knows what the parts do
    unsigned pinCount = kPins;          ///< smaller parts have fewer
    Access access = Access::Both;

private:
    bool isOutput(unsigned pin) const;
    bool isInput(unsigned pin) const;
    int answer(std::uint8_t* data, std::uint16_t length, const void* from, std::size_t size) const;
    int setConfigurationMode(std::uint16_t value, std::uint16_t index);
    int resetSpi(std::uint16_t value, std::uint16_t length);
    int spiStatus(bool in, std::uint16_t value, std::uint8_t* data, std::uint16_t length) const;
    int internalFlashRequest(bool in, std::uint32_t address, std::uint8_t* data, std::uint16_t length);
    int configurationRequest(std::uint8_t request, bool in, std::uint32_t address, std::uint8_t* data,
                             std::uint16_t length);
};

}  // namespace sim
