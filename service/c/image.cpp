// Images: read, made, looked into, written.
#include "service/c/image.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>
#include <memory>

#include "tavo/service/flash.h"
#include "tavo/service/text.h"

namespace tavo::c {
namespace {

static_assert(static_cast<int>(Format::Elf) == TAVO_FORMAT_ELF);

ReadOptions optionsOf(const tavo_read_options* options) {
    const tavo_read_options known = taken(options, "options");
    ReadOptions reading;
    reading.format = valueOf(known.format, Format::Elf, "format");
    reading.strict = known.strict != 0;
    if (known.chip_size != 0) reading.chipSize = known.chip_size;
    if (known.address != 0) reading.address = known.address;
    return reading;
}

/// source: what checkImage reads from.
template <typename... Source>
tavo_image* readFrom(const std::string& name, const tavo_read_options* options, const Source&... source) {
    auto image = std::make_unique<tavo_image>();
    image->file = checkImage(source..., optionsOf(options));
    if (!image->file.isGood()) throw refusal(name, image->file);
    image->name = name;
    image->isAsRead = true;
    return image.release();
}

/// Memory as something that can be read like a file.
Descriptor fileOf(const char* bytes, std::size_t count, const std::string& name) {
    Descriptor file(memfd_create("tavo-image", MFD_CLOEXEC));
    if (file.get() < 0) throw fileError("read " + name, errno);
    writeAll(file.get(), bytes, count, name);
    lseek(file.get(), 0, SEEK_SET);
    return file;
}

void requireAddressable(std::uint32_t address, std::uint32_t count) {
    if (std::uint64_t{address} + count <= kAddressable) return;
    throw Error(Problem::BadArgument, countText(count, "byte") + " at " + hexAddress(address) + " are above 16 MiB",
                "the flash commands carry 24 address bits");
}

WriteOptions optionsOf(const tavo_write_options& options, const std::string& path, std::uint32_t first) {
    WriteOptions how;
    how.format = valueOf(options.format, Format::Elf, "format");
    if (how.format == Format::Automatic) how.format = dumpFormat(path);
    if (options.record_bytes != 0) how.recordBytes = options.record_bytes;
    how.address = options.address != 0 ? options.address : first;
    return how;
}

}  // namespace

ImageWriter::ImageWriter(const char* path, const tavo_write_options* options, std::uint32_t first)
    : path_(&given(path, "path")),
      how_(optionsOf(taken(options, "options"), path_, first)),
      file_(path_, taken(options, "options").replace != 0, "choose another name, or let it be replaced") {}

tavo_written_file ImageWriter::write(const Image& image) {
    const WrittenImage written = writeImage(image, file_.descriptor(), path_, how_);
    file_.commit();
    tavo_written_file told{};
    told.bytes = written.bytes;
    put(told.sha256, written.sha256);
    return told;
}

}  // namespace tavo::c

using namespace tavo::c;

tavo_result tavo_read_image(const char* path, const tavo_read_options* options, tavo_image** image, tavo_error* error) {
    return guarded(error, [&] {
        tavo_image*& place = emptied(image, "image");
        const std::string name = &given(path, "path");
        place = readFrom(name, options, name);
    });
}

tavo_result tavo_read_image_from_descriptor(int descriptor, const char* name, const tavo_read_options* options,
                                            tavo_image** image, tavo_error* error) {
    return guarded(error, [&] {
        tavo_image*& place = emptied(image, "image");
        const std::string known = &given(name, "name");
        place = readFrom(known, options, descriptor, known);
    });
}

tavo_result tavo_read_image_from_memory(const void* bytes, size_t count, const char* name,
                                        const tavo_read_options* options, tavo_image** image, tavo_error* error) {
    return guarded(error, [&] {
        tavo_image*& place = emptied(image, "image");
        const std::string known = &given(name, "name");
        requireGiven(bytes, "bytes");
        const tavo::Descriptor file = fileOf(static_cast<const char*>(bytes), count, known);
        place = readFrom(known, options, file.get(), known);
    });
}

tavo_result tavo_new_image(tavo_image** image, tavo_error* error) {
    return guarded(error, [&] {
        tavo_image*& place = emptied(image, "image");
        place = new tavo_image;
    });
}

void tavo_free_image(tavo_image* image) {
    delete image;
}

tavo_result tavo_add_bytes(tavo_image* image, uint32_t address, const uint8_t* bytes, uint32_t count,
                           int64_t* replaced_at, tavo_error* error) {
    return guarded(error, [&] {
        tavo_image& known = given(image, "image");
        if (count != 0) requireGiven(bytes, "bytes");
        requireAddressable(address, count);
        known.isAsRead = false;
        const auto overlap = known.file.image.add(address, bytes, count);
        if (replaced_at != nullptr) *replaced_at = overlap ? int64_t{overlap->address} : -1;
    });
}

tavo_result tavo_get_bytes(const tavo_image* image, uint32_t address, uint8_t* bytes, uint32_t count,
                           tavo_error* error) {
    return guarded(error, [&] {
        const tavo::Image& known = imageOf(image);
        if (count != 0) requireGiven(bytes, "bytes");
        requireAddressable(address, count);
        constexpr uint8_t kErased = 0xFF;
        for (uint32_t i = 0; i < count; ++i) bytes[i] = known.at(address + i).value_or(kErased);
    });
}

tavo_result tavo_image_ranges(const tavo_image* image, tavo_range* ranges, uint32_t capacity, uint32_t* count,
                              tavo_error* error) {
    return guarded(error, [&] {
        const auto found = imageOf(image).ranges();
        if (capacity != 0) requireGiven(ranges, "ranges");
        given(count, "count") = static_cast<uint32_t>(found.size());
        std::transform(found.begin(), found.begin() + std::min<std::size_t>(capacity, found.size()), ranges,
                       [](const tavo::AddressRange& range) {
                           return tavo_range{range.first, range.last};
                       });
    });
}

tavo_result tavo_describe_image(const tavo_image* image, tavo_image_description* description, tavo_error* error) {
    return guarded(error, [&] {
        const tavo::Image& known = imageOf(image);
        const Out out(description, "description");
        const auto ranges = known.ranges();
        tavo_image_description told{};
        told.byte_count = known.byteCount();
        told.first = ranges.empty() ? 0 : ranges.front().first;
        told.last = ranges.empty() ? 0 : ranges.back().last;
        told.range_count = static_cast<uint32_t>(ranges.size());
        told.touched_pages = known.touchedPages();
        told.pages_with_data = known.pagesWithData();
        put(told.identity, known.identity());
        if (const tavo::ImageFile* file = image->origin()) {
            told.format = static_cast<uint32_t>(file->format);
            told.file_bytes = file->fileBytes;
            told.change_count = static_cast<uint32_t>(file->changes.size());
            put(told.file_sha256, file->sha256);
            put(told.changes, linesOf(file->changes));
        }
        out.fill(told);
    });
}

tavo_result tavo_write_image(const tavo_image* image, const char* path, const tavo_write_options* options,
                             tavo_written_file* written, tavo_error* error) {
    return guarded(error, [&] {
        const tavo::Image& known = imageOf(image);
        const Out out(written, "written");
        out.fill(ImageWriter(path, options).write(known));
    });
}
