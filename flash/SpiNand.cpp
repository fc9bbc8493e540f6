#include "tavo/SpiNand.h"

#include <Poco/Thread.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "platform/cyusbserial.h"

namespace {

// JEDEC standard SPI NOR commands.
namespace opcode {
constexpr unsigned char kWriteStatus = 0x01;
constexpr unsigned char kPageProgram = 0x02;
constexpr unsigned char kReadData = 0x03;
constexpr unsigned char kReadStatus = 0x05;
constexpr unsigned char kWriteEnable = 0x06;
constexpr unsigned char kReadJedecId = 0x9F;
constexpr unsigned char kChipErase = 0xC7;
}  // namespace opcode

constexpr unsigned char kWriteInProgress = 0x01;
// Block protection (bits 2 to 4) and status register write disable (bit 7).
constexpr unsigned char kProtection = 0x9C;

constexpr unsigned kHeaderSize = 4;  // command, then a 24-bit address, most significant byte first
constexpr UINT32 kTransferTimeoutMs = 10000;
constexpr long kPollIntervalMs = 1;
constexpr unsigned kMaxPolls = 1200000;  // over 20 minutes; the longest chip erase in data sheets is under 10
constexpr int kWriteAttempts = 3;

void putHeader(unsigned char* buffer, unsigned char command, unsigned int address) {
    buffer[0] = command;
    buffer[1] = static_cast<unsigned char>(address >> 16);
    buffer[2] = static_cast<unsigned char>(address >> 8);
    buffer[3] = static_cast<unsigned char>(address);
}

CY_RETURN_STATUS send(const CyHandle& handle, unsigned char* out, UINT32 length) {
    CY_DATA_BUFFER write{out, length, 0};
    return CySpiReadWrite(handle.handle, nullptr, &write, kTransferTimeoutMs);
}

// Full duplex: as many bytes come in as go out, the first of them during command and address.
CY_RETURN_STATUS exchange(const CyHandle& handle, unsigned char* out, unsigned char* in, UINT32 length) {
    CY_DATA_BUFFER read{in, length, 0};
    CY_DATA_BUFFER write{out, length, 0};
    return CySpiReadWrite(handle.handle, &read, &write, kTransferTimeoutMs);
}

// One attempt of writePage: program, read back, compare.
CY_RETURN_STATUS programAndVerify(const SpiNand& flash, const CyHandle& handle, unsigned int address,
                                  unsigned char* page, unsigned char* readBack, unsigned int length) {
    if (const auto result = flash.waitForOpInProgress(); result != CY_SUCCESS) return result;
    if (const auto result = flash.enableWrite(); result != CY_SUCCESS) return result;
    putHeader(page, opcode::kPageProgram, address);
    if (const auto result = send(handle, page, length + kHeaderSize); result != CY_SUCCESS) return result;
    if (const auto result = flash.waitForOpInProgress(); result != CY_SUCCESS) return result;

    page[0] = opcode::kReadData;  // the address stays, the page's data go out again as filler
    std::memset(readBack, 0, length + kHeaderSize);
    if (const auto result = exchange(handle, page, readBack, length + kHeaderSize); result != CY_SUCCESS) return result;
    const bool equal = std::memcmp(page + kHeaderSize, readBack + kHeaderSize, length) == 0;
    return equal ? CY_SUCCESS : CY_ERROR_DOWNLOAD_FAILED;
}

}  // namespace

SpiNand::SpiNand(const CyHandle& handle) : handle_(handle) {}

CY_RETURN_STATUS SpiNand::enableWrite() const {
    if (handle_.openStatus != CY_SUCCESS) return handle_.openStatus;
    unsigned char out[] = {opcode::kWriteEnable};
    return send(handle_, out, sizeof out);
}

CY_RETURN_STATUS SpiNand::readStatus(unsigned char& status) const {
    if (handle_.openStatus != CY_SUCCESS) return handle_.openStatus;
    unsigned char out[] = {opcode::kReadStatus, 0x00};
    unsigned char in[sizeof out] = {};
    if (const auto result = exchange(handle_, out, in, sizeof out); result != CY_SUCCESS) return result;
    status = in[1];
    return CY_SUCCESS;
}

CY_RETURN_STATUS SpiNand::writeStatus(unsigned char value) const {
    if (const auto result = enableWrite(); result != CY_SUCCESS) return result;
    unsigned char out[] = {opcode::kWriteStatus, value};
    return send(handle_, out, sizeof out);
}

CY_RETURN_STATUS SpiNand::getFlashSize(unsigned int& size) const {
    if (handle_.openStatus != CY_SUCCESS) return handle_.openStatus;
    unsigned char out[] = {opcode::kReadJedecId, 0x00, 0x00, 0x00};
    unsigned char in[sizeof out] = {};  // -, manufacturer, memory type, capacity code
    if (const auto result = exchange(handle_, out, in, sizeof out); result != CY_SUCCESS) return result;
    const unsigned capacityCode = in[3];
    if (capacityCode >= 32) return CY_ERROR_REQUEST_FAILED;  // does not fit; an absent chip reads FF
    size = 1u << capacityCode;
    return CY_SUCCESS;
}

CY_RETURN_STATUS SpiNand::isOpInProgress(bool& busy) const {
    unsigned char status = 0;
    if (const auto result = readStatus(status); result != CY_SUCCESS) return result;
    busy = (status & kWriteInProgress) != 0;
    return CY_SUCCESS;
}

CY_RETURN_STATUS SpiNand::waitForOpInProgress() const {
    for (unsigned polls = 0; polls < kMaxPolls; ++polls) {
        bool busy = true;
        if (const auto result = isOpInProgress(busy); result != CY_SUCCESS) return result;
        if (!busy) return CY_SUCCESS;
        Poco::Thread::sleep(kPollIntervalMs);
    }
    return CY_ERROR_IO_TIMEOUT;
}

CY_RETURN_STATUS SpiNand::disableWriteProtection() const {
    unsigned char status = 0;
    if (const auto result = readStatus(status); result != CY_SUCCESS) return result;
    if ((status & kProtection) == 0) return CY_SUCCESS;
    return writeStatus(0x00);  // every later operation waits for the write cycle
}

CY_RETURN_STATUS SpiNand::erase() const {
    if (const auto result = waitForOpInProgress(); result != CY_SUCCESS) return result;
    if (const auto result = enableWrite(); result != CY_SUCCESS) return result;
    unsigned char out[] = {opcode::kChipErase};
    if (const auto result = send(handle_, out, sizeof out); result != CY_SUCCESS) return result;
    return waitForOpInProgress();
}

CY_RETURN_STATUS SpiNand::readPage(unsigned int address, unsigned char* buffer, unsigned int size) const {
    if (handle_.openStatus != CY_SUCCESS) return handle_.openStatus;
    if (waitForOpInProgress() != CY_SUCCESS) return CY_ERROR_REQUEST_FAILED;
    const std::unique_ptr<unsigned char[]> out(new (std::nothrow) unsigned char[size]());
    if (!out) return CY_ERROR_ALLOCATION_FAILED;
    putHeader(out.get(), opcode::kReadData, address);
    std::memset(buffer, 0, size);
    return exchange(handle_, out.get(), buffer, size);
}

bool SpiNand::checkIfPageNeedsToBeProgrammed(unsigned char* page, unsigned int length) const {
    const unsigned char* data = page + kHeaderSize;
    return std::any_of(data, data + length, [](unsigned char byte) { return byte != 0xFF; });
}

CY_RETURN_STATUS SpiNand::writePage(unsigned int address, unsigned char* page, unsigned char* readBack,
                                    unsigned int length) const {
    if (handle_.openStatus != CY_SUCCESS) return handle_.openStatus;
    // The chip has been erased: a blank page is programmed already.
    if (!checkIfPageNeedsToBeProgrammed(page, length)) return CY_SUCCESS;
    for (int attempt = 0; attempt < kWriteAttempts; ++attempt) {
        if (programAndVerify(*this, handle_, address, page, readBack, length) == CY_SUCCESS) return CY_SUCCESS;
    }
    return CY_ERROR_DOWNLOAD_FAILED;
}
