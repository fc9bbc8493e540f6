#include "tavo/hexFileWriter.h"

#include <array>
#include <memory>
#include <new>
#include <string_view>

unsigned short g_extAddress = 0;

namespace {

constexpr unsigned int kFlashHeader = 4;  // command and address, in front of the data of a page buffer

constexpr char kDigits[] = "0123456789ABCDEF";

// One line of text while it is built, with the sum of the bytes it holds.
class Line {
public:
    void add(unsigned char value) {
        text[size++] = kDigits[value >> 4];
        text[size++] = kDigits[value & 0xF];
        sum += value;
    }
    void add(unsigned short value) {
        add(getHighByte(value));
        add(getLowByte(value));
    }
    void addChecksum() { add(static_cast<unsigned char>(0U - sum)); }
    void addLineFeed() { text[size++] = '\n'; }
    std::string_view view() const { return {text.data(), size}; }

private:
    static constexpr std::size_t kLongest = 11 + 2 * 255 + 1;  // start code to checksum, line feed
    std::array<char, kLongest> text{':'};
    std::size_t size = 1;
    unsigned int sum = 0;
};

}  // namespace

std::string convertHexToString(unsigned char value) {
    return {kDigits[value >> 4], kDigits[value & 0xF]};
}

std::string convertHexToString(unsigned short value) {
    return convertHexToString(getHighByte(value)) + convertHexToString(getLowByte(value));
}

unsigned short getLowBytes(unsigned int value) {
    return static_cast<unsigned short>(value);
}

unsigned short getHighBytes(unsigned int value) {
    return static_cast<unsigned short>(value >> 16);
}

unsigned char getLowByte(unsigned short value) {
    return static_cast<unsigned char>(value);
}

unsigned char getHighByte(unsigned short value) {
    return static_cast<unsigned char>(value >> 8);
}

// The line is handed over in one piece: a flushed line costs one write of the file.
void writeToHexFile(std::ofstream* file, unsigned char* data, unsigned char length, unsigned short address,
                    HexFileDataType type) {
    Line line;
    line.add(length);
    line.add(address);
    line.add(static_cast<unsigned char>(type));
    for (unsigned int i = 0; data != nullptr && i < length; ++i) line.add(data[i]);
    line.addChecksum();
    line.addLineFeed();
    const auto text = line.view();
    file->write(text.data(), static_cast<std::streamsize>(text.size())).flush();
}

bool checkFor16BitOverflow(unsigned int address) {
    const unsigned short upper = getHighBytes(address);
    return upper != 0 && g_extAddress < upper;
}

void HandleAddressOverflow(std::ofstream* file, unsigned int address) {
    if (!checkFor16BitOverflow(address)) return;
    g_extAddress = getHighBytes(address);
    unsigned char data[] = {getHighByte(g_extAddress), getLowByte(g_extAddress)};
    writeToHexFile(file, data, sizeof data, 0, HEX_EXTENDED_LINEAR_ADDRESS);
}

CY_RETURN_STATUS WriteSPIFlashDataToHexFile(std::ofstream* file, SpiNand& flash, unsigned char recordLength,
                                            unsigned int address, unsigned int lastAddress) {
    unsigned int count = recordLength;
    if (address + count - 1 > lastAddress) count = lastAddress + 1 - address;
    const std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[count + kFlashHeader]);
    if (!buffer) return CY_ERROR_ALLOCATION_FAILED;
    if (const auto result = flash.readPage(address, buffer.get(), count + kFlashHeader); result != CY_SUCCESS)
        return result;
    writeToHexFile(file, buffer.get() + kFlashHeader, static_cast<unsigned char>(count), getLowBytes(address),
                   HEX_DATA);
    return CY_SUCCESS;
}

void setEofHexFile(std::ofstream* file) {
    writeToHexFile(file, nullptr, 0, 0, HEX_END_OF_FILE);
}
