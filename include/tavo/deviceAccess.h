// The companion device-access types: one attached interface, its bridge handles, its pins, and the
// two values that name it. Implemented in libtavo-platform; another layer with the same operations
// may be linked in its place.
#pragma once

#include <cstddef>

#include "tavo/bridgeTypes.h"
#include "tavo/export.h"

/// A 48-bit Neuron ID (ISO/IEC 14908-1), first byte printed first.
class TAVO_API NeuronId {
public:
    static constexpr std::size_t kSize = 6;  ///< bytes

    NeuronId();  ///< All zero: not a valid ID.

    /// Parses "ID" (either case) and exactly 12 hexadecimal digits (either case), nothing after.
    /// @param wellFormed  may be null; otherwise told whether the text had that form.
    /// @return true on success; otherwise the ID keeps its value.
    bool fromString(const char* text, bool* wellFormed);

    /// False for all-zero and all-FF bytes: an erased or never written record, never a chip's ID.
    bool isValid() const;

    /// Byte for byte.
    bool operator==(const NeuronId& other) const;
    /// Byte for byte.
    bool operator!=(const NeuronId& other) const { return !(*this == other); }

    /// Copies 6 bytes.
    NeuronId& operator=(const unsigned char* idBytes);

    unsigned char bytes[kSize];  ///< the first one is sent first
};
static_assert(sizeof(NeuronId) == NeuronId::kSize, "the bytes are copied straight into records and frames");

/// The serial number of an interface: NUL-terminated text at the start of the object.
class TAVO_API SerialNumber {
public:
    static constexpr std::size_t kSize = 256;  ///< bytes
    /// A USB string descriptor of the bridge holds 32 UTF-16 units.
    static constexpr std::size_t kMaxLength = 32;

    SerialNumber();  ///< Empty text.

    /// Takes 1 to 32 printable ASCII characters as they are.
    /// @return false, and the text unchanged, for anything else.
    bool fromStringWithoutPrefix(const char* serial);

    /// Copies a text, cut to 255 characters; null gives the empty text.
    SerialNumber& operator=(const char* serial);

    char text[kSize];  ///< ends with a zero byte when it is shorter
};
static_assert(sizeof(SerialNumber) == SerialNumber::kSize, "the text starts the object");

/// One attached interface, filled by discovery (platform/discovery.h) or by a host program.
/// A zeroed record is a valid start.
struct TAVO_API DeviceInfo {
    /// True when the vendor and product ID are a combination that this product uses.
    bool areVidPidCorrect() const;

    unsigned char scb0DeviceNumber = 0;       ///< bridge-library device number of serial block 0 (SCB0)
    unsigned char scb0InterfaceNumber = 0;    ///< its interface number
    unsigned char linkDeviceNumber = 0;       ///< 255: the LDV channel is opened under ldvDeviceName
    unsigned char configDeviceNumber = 0;     ///< bridge-library device number for configuration and user flash
    unsigned char configInterfaceNumber = 0;  ///< its interface number
    SerialNumber serialNumber;                ///< of the bridge
    unsigned char serialNumberValid = 0;      ///< non-zero: serialNumber may be used
    unsigned char neuronIdValid = 0;          ///< non-zero: neuronId holds the interface's Neuron ID
    NeuronId neuronId;                        ///< counts when neuronIdValid is not 0
    unsigned short vendorId = 0;              ///< 0x04B4 selects the bridge maker's family of LDV names
    unsigned short productId = 0;             ///< USB product ID
    const char* ldvDeviceName = nullptr;      ///< borrowed; used when linkDeviceNumber is 255
    char portPath[128] = {};                  ///< where it is plugged in, "1-4.2"; empty when unknown
};

/// One opened bridge interface. Construction never throws: test openStatus before handle.
/// Several handles on one interface may be open at once in one process.
class TAVO_API CyHandle {
public:
    /// Opens that interface; see openStatus.
    CyHandle(unsigned char deviceNumber, unsigned char interfaceNumber);
    ~CyHandle();                         ///< Closes the interface if it was opened.
    CyHandle(const CyHandle&) = delete;  // exactly one owner closes the interface
    CyHandle& operator=(const CyHandle&) = delete;

    CY_HANDLE handle = nullptr;   ///< of the bridge library; null when it is not open
    CY_RETURN_STATUS openStatus;  ///< of the bridge library
};

/// Access to the interface's general-purpose pins, through a handle of its own on SCB0.
/// A failed open shows in cyHandle->openStatus and in the result of every pin operation.
class TAVO_API GPIO {
public:
    /// Opens SCB0; see cyHandle.
    explicit GPIO(const DeviceInfo& deviceInfo);
    ~GPIO();
    GPIO(const GPIO&) = delete;
    GPIO& operator=(const GPIO&) = delete;

    CyHandle* const cyHandle;  ///< open on SCB0 for the life of the GPIO; owned
};

/// One pin. Must be destroyed before its GPIO.
class TAVO_API IOPin {
public:
    /// A level of the line.
    enum VALUE : int {
        LOW = 0,       ///< drives low: asserts the Neuron's reset (pin 8) or service (pin 14) line
        HIGH = 1,      ///< drives high
        RELEASED = 2,  ///< the line's resting level, which is high
    };

    /// No I/O: the line is at rest until the first set or pulse.
    /// @param initial  the level that a pulse ends at.
    IOPin(GPIO& gpio, unsigned char pin, VALUE initial);
    /// Returns a line that set or pulse may have left driven to its resting level; a failure is not
    /// reported, and the line then keeps its level until the bridge is reset.
    ~IOPin();
    IOPin(const IOPin&) = delete;
    IOPin& operator=(const IOPin&) = delete;

    /// Drives the pin and keeps it there until this object is destroyed.
    CY_RETURN_STATUS set(VALUE value) const;
    /// Drives the pin to value for the given time and back to its initial level. Blocks meanwhile.
    CY_RETURN_STATUS pulse(VALUE value, unsigned int milliseconds) const;

private:
    CY_RETURN_STATUS drive(VALUE value) const;

    GPIO& gpio_;
    unsigned char pin_;
    VALUE initial_;
    mutable bool atRest_ = true;  // false from the first attempt to drive the line low
};
