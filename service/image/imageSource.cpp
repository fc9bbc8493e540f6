#include "service/image/imageSource.h"

#include <strings.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "tavo/service/files.h"

namespace tavo {
namespace {

constexpr std::size_t kHead = 4096;
constexpr std::size_t kPiece = 64 * 1024;
/// Far above any text of 16 MiB, even with one byte a record; below what packed nonsense can grow to.
constexpr std::uint64_t kMost = 1U << 30;
constexpr int kGzipWindow = 15 + 16;  // zlib: the largest window, and a gzip header

}  // namespace

/// What is called a raw binary may begin with any bytes, a chip's contents with those of gzip as well; only a name says
/// that it is packed.
bool isBinaryAsItIs(const std::string& name, const ReadOptions& options) {
    constexpr std::size_t kEnding = 3;
    const bool isPackedName = name.size() >= kEnding && strcasecmp(&name[name.size() - kEnding], ".gz") == 0;
    return options.format == Format::Binary && !options.strict && !isPackedName;
}

/// One gzip file: members side by side.
struct ImageSource::Unpacker {
    explicit Unpacker(std::vector<char> first) : packed(std::move(first)) {
        if (inflateInit2(&stream, kGzipWindow) != Z_OK) throw std::bad_alloc();
        offer(packed.size());
    }
    ~Unpacker() { inflateEnd(&stream); }
    Unpacker(const Unpacker&) = delete;
    Unpacker& operator=(const Unpacker&) = delete;

    void offer(std::size_t size) {
        stream.next_in = reinterpret_cast<Bytef*>(packed.data());
        stream.avail_in = static_cast<uInt>(size);
    }

    z_stream stream{};
    std::vector<char> packed;
    bool betweenMembers = false;
};

ImageSource::ImageSource(int descriptor, const std::string& name, const ReadOptions& options)
    : descriptor_(descriptor), name_(name), withDigest_(options.digest), cancel_(options.cancel) {
    fillHead();
    const auto packed = head();
    if (isBinaryAsItIs(name, options)) return;
    if (packed.substr(0, 3) != "\x1F\x8B\x08") return;  // gzip, deflated
    unpacker_ = std::make_unique<Unpacker>(std::exchange(head_, {}));
    unpacked_ = 0;
    fillHead();
}

ImageSource::~ImageSource() = default;

void ImageSource::fillHead() {
    std::vector<char> bytes(kHead);
    std::size_t filled = 0;
    for (std::size_t count = 1; count > 0 && filled < kHead; filled += count)
        count = readLimited(bytes.data() + filled, kHead - filled);
    bytes.resize(filled);
    head_ = std::move(bytes);
}

std::size_t ImageSource::read(char* data, std::size_t size) {
    if (headTaken_ == head_.size()) return readLimited(data, size);
    const std::size_t count = std::min(size, head_.size() - headTaken_);
    std::memcpy(data, head_.data() + headTaken_, count);
    headTaken_ += count;
    return count;
}

std::vector<char> ImageSource::readAll() {
    std::vector<char> all;
    for (std::size_t count = 1; count > 0;) {
        const std::size_t filled = all.size();
        all.resize(filled + kPiece);
        count = read(all.data() + filled, kPiece);
        all.resize(filled + count);
    }
    return all;
}

std::size_t ImageSource::readLimited(char* data, std::size_t size) {
    if (!fault_.empty()) return 0;
    const std::size_t count = unpacker_ ? unpack(data, size) : readStored(data, size);
    unpacked_ += count;
    if (unpacked_ <= kMost) return count;
    fault_ = "more than 1 GiB: no flash image";
    return 0;
}

std::size_t ImageSource::readStored(char* data, std::size_t size) {
    const std::size_t count = readSome(descriptor_, data, size, name_, cancel_);
    if (withDigest_) digest_.add(data, count);
    stored_ += count;
    return count;
}

std::size_t ImageSource::unpack(char* data, std::size_t size) {
    auto& stream = unpacker_->stream;
    stream.next_out = reinterpret_cast<Bytef*>(data);
    stream.avail_out = static_cast<uInt>(size);
    while (stream.avail_out == size) {
        if (stream.avail_in == 0) {
            unpacker_->packed.resize(kPiece);
            unpacker_->offer(readStored(unpacker_->packed.data(), kPiece));
        }
        if (stream.avail_in == 0) {
            if (!unpacker_->betweenMembers) fault_ = "the gzip data end early: the file is cut short";
            return 0;
        }
        if (std::exchange(unpacker_->betweenMembers, false)) inflateReset(&stream);
        const int result = inflate(&stream, Z_NO_FLUSH);
        unpacker_->betweenMembers = result == Z_STREAM_END;
        if (result != Z_OK && result != Z_STREAM_END) {
            fault_ = "the gzip data are broken before offset " + std::to_string(stored_ - stream.avail_in) +
                     (stream.msg == nullptr ? "" : std::string(": ") + stream.msg);
            return size - stream.avail_out;
        }
    }
    return size - stream.avail_out;
}

}  // namespace tavo
