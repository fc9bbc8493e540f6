#include "flash/writeImage.h"

#include <cstdint>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <new>
#include <string>

#include "tavo/hexFileReader.h"

namespace {

constexpr int kPageSize = 256;
constexpr std::size_t kHeaderSize = 4;  // filled by the driver
constexpr std::size_t kBufferSize = kHeaderSize + kPageSize;

using Buffer = std::unique_ptr<unsigned char[]>;

std::int64_t sizeOf(std::ifstream& file) {
    file.seekg(0, std::ios::end);
    const std::int64_t size = file.tellg();
    file.seekg(0, std::ios::beg);
    return size;
}

/// Share of the file's text that has been read. Reports a change once; never a first 0.
class Progress {
public:
    Progress(std::ifstream& file, void (*report)(char))
        : report_(report), size_(report != nullptr ? sizeOf(file) : 0) {}

    void lineRead(std::int64_t bytes) { read_ += bytes; }

    void pageWritten() {
        if (report_ == nullptr || size_ <= 0) return;  // no size: a file that is still growing from nothing
        const auto percent = static_cast<unsigned char>(read_ * 100 / size_);
        if (percent == reported_) return;
        report_(static_cast<char>(percent));
        reported_ = percent;
    }

private:
    void (*report_)(char);
    std::int64_t size_;
    std::int64_t read_ = 0;
    unsigned char reported_ = 0;
};

CY_RETURN_STATUS writeReadyPages(const SpiNand& flash, IntelHexParser& parser, unsigned char* page,
                                 unsigned char* readBack, Progress& progress) {
    while (parser.isPageReady()) {
        const unsigned int address = parser.FetchAddress();
        const std::vector<unsigned char> data = parser.FetchPage();
        if (!data.empty()) std::memcpy(page + kHeaderSize, data.data(), data.size());
        const auto result = flash.writePage(address, page, readBack, static_cast<unsigned int>(data.size()));
        if (result != CY_SUCCESS) return result;
        progress.pageWritten();
    }
    return CY_SUCCESS;
}

TAVO_STATUS writePages(const SpiNand& flash, std::ifstream& file, unsigned char* page, unsigned char* readBack,
                       Progress& progress) {
    IntelHexParser parser(kPageSize);
    std::string line;
    while (std::getline(file, line)) {
        const int lineFeed = file.eof() ? 0 : 1;  // the last line may end without one
        progress.lineRead(static_cast<std::int64_t>(line.size()) + lineFeed);
        parser.ParseRecord(line.c_str());
        if (writeReadyPages(flash, parser, page, readBack, progress) != CY_SUCCESS) {
            return TAVO_FLASH_PROGRAMMING_FAILED;
        }
    }
    return TAVO_SUCCESS;
}

}  // namespace

TAVO_STATUS writeImage(SpiNand& flash, const char* path, void (*progress)(char)) {
    std::ifstream file(path);
    if (!file.is_open()) return TAVO_FILE_NOT_FOUND;
    Progress share(file, progress);

    const Buffer page(new (std::nothrow) unsigned char[kBufferSize]);
    const Buffer readBack(new (std::nothrow) unsigned char[kBufferSize]);
    if (!page || !readBack) return TAVO_MEMORY_ALLOC_FAILED;

    try {
        return writePages(flash, file, page.get(), readBack.get(), share);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return TAVO_FLASH_PROGRAMMING_FAILED;
    }
}
