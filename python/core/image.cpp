#include "python/core/image.h"

#include <pybind11/stl.h>

#include <algorithm>

#include "python/core/convert.h"
#include "tavo/service/files.h"
#include "tavo/service/range.h"
#include "tavo/service/text.h"

namespace binding {

using namespace py::literals;
using tavo::AddressRange;

const std::vector<unsigned char>& PyImage::flat() {
    if (!flat_.empty() || image_.isEmpty()) return flat_;
    const auto ranges = image_.ranges();
    const std::uint32_t first = ranges.front().first;
    const std::uint32_t last = ranges.back().last;
    flat_.assign(std::size_t{last} - first + 1, 0xFF);
    for (std::uint32_t index = first / tavo::kPageSize; index <= last / tavo::kPageSize; ++index) {
        const std::uint8_t* const page = image_.page(index);
        if (page == nullptr) continue;
        const std::uint32_t start = index * tavo::kPageSize;
        const std::uint32_t from = std::max(start, first);
        const std::uint32_t to = std::min(start + tavo::kPageSize - 1, last);
        std::copy_n(page + (from - start), to - from + 1, flat_.begin() + (from - first));
    }
    return flat_;
}

namespace {

void add(tavo::Image& image, std::uint64_t address, const py::buffer& data) {
    Py_buffer bytes{};
    if (PyObject_GetBuffer(data.ptr(), &bytes, PyBUF_C_CONTIGUOUS) != 0) throw py::error_already_set();
    const auto size = static_cast<std::uint64_t>(bytes.len);
    const bool fits = address <= tavo::kAddressable && size <= tavo::kAddressable - address;
    const auto overlap =
        fits ? image.add(static_cast<std::uint32_t>(address), static_cast<const std::uint8_t*>(bytes.buf), size)
             : std::nullopt;
    PyBuffer_Release(&bytes);
    if (!fits) throw py::value_error("an image ends at 0xFFFFFF: the flash commands carry 24 address bits");
    if (overlap) throw py::value_error("two different bytes for " + tavo::hexAddress(overlap->address));
}

PyImage fromPieces(const std::map<std::uint64_t, py::buffer>& pieces) {
    tavo::Image image;
    for (const auto& [address, data] : pieces) add(image, address, data);
    return PyImage(std::move(image));
}

PyImage fromBytes(const py::buffer& data, std::uint64_t address) {
    return fromPieces({{address, data}});
}

tavo::Format formatNamed(const std::string& word) {
    if (const auto format = tavo::formatOf(word)) return *format;
    throw py::value_error("no format \"" + word + "\": hex, srec, bin, elf, auto");
}

std::string path(const py::object& name) {
    return py::module_::import("os")
        .attr("fsdecode")(name)
        .attr("encode")("utf-8", "surrogateescape")
        .cast<py::bytes>();
}

/// The file, good or bad, and its image.
std::pair<std::shared_ptr<const tavo::ImageFile>, PyImage> look(const py::object& name, const std::string& format,
                                                                std::optional<std::uint32_t> address, bool strict,
                                                                std::uint32_t chipSize) {
    tavo::ReadOptions options;
    options.format = formatNamed(format);
    options.address = address;
    options.strict = strict;
    options.chipSize = chipSize;
    std::string words = options.format == tavo::Format::Automatic ? "" : "--format " + format;
    if (address) words += (words.empty() ? "--address " : " --address ") + tavo::hexAddress(*address);
    const std::string file = path(name);
    const py::gil_scoped_release released;
    auto found = std::make_shared<const tavo::ImageFile>(tavo::checkImage(file, options));
    return {found, PyImage(found, file, words)};
}

PyImage read(const py::object& name, const std::string& format, std::optional<std::uint32_t> address, bool strict,
             std::uint32_t chipSize) {
    auto [file, image] = look(name, format, address, strict, chipSize);
    if (!file->isGood()) throw tavo::refusal(image.name(), *file);
    return std::move(image);
}

py::object check(const py::object& name, const std::string& format, std::optional<std::uint32_t> address, bool strict,
                 std::uint32_t chipSize) {
    static constexpr const char* kWords[] = {"auto", "hex", "srec", "bin", "elf"};  // in the order of Format
    auto [file, image] = look(name, format, address, strict, chipSize);
    return py::module_::import("tavo_util.results")
        .attr("ImageFile")(py::cast(std::move(image)), kWords[static_cast<std::size_t>(file->format)],
                           tupleOf(file->faults), file->faultCount, file->fileBytes, file->sha256,
                           tupleOf(file->changes));
}

std::uint32_t chipOf(std::uint32_t size) {
    if (size > tavo::kAddressable) throw py::value_error("a chip has 16 MiB at most: 24 address bits");
    return size;
}

py::object mapOf(const PyImage& self, std::uint32_t chipSize) {
    return toPython(tavo::mapImage(self.image(), chipOf(chipSize)));
}

py::object mapOnChip(const PyImage& self, const PyImage& chip, std::uint32_t chipSize) {
    return toPython(tavo::mapComparison(self.image(), chip.image(), chipOf(chipSize)));
}

py::object mapContents(const PyImage& self, std::uint32_t chipSize) {
    return toPython(tavo::mapContents(self.image(), chipOf(chipSize)));
}

std::string write(const PyImage& self, const py::object& name, const std::optional<std::string>& format, bool replace,
                  std::uint32_t recordBytes) {
    const std::string file = path(name);
    tavo::WriteOptions options;
    options.format = format ? formatNamed(*format) : tavo::formatToWrite(file);
    options.recordBytes = recordBytes;
    if (options.format == tavo::Format::Binary && !self.image().isEmpty()) {
        options.address = self.image().ranges().front().first;
    }
    const py::gil_scoped_release released;
    tavo::NewFile output(file, replace, "choose another name, or write with replace=True");
    const tavo::WrittenImage written = tavo::writeImage(self.image(), output.descriptor(), file, options);
    output.commit();
    return written.sha256;
}

std::optional<std::uint8_t> byteAt(const PyImage& self, std::int64_t address) {
    if (address < 0 || address >= tavo::kAddressable) return {};
    return self.image().at(static_cast<std::uint32_t>(address));
}

std::uint8_t at(const PyImage& self, std::int64_t address) {
    if (const auto byte = byteAt(self, address)) return *byte;
    throw py::index_error("the image has no byte at " + py::str("0x{:06X}").format(address).cast<std::string>());
}

/// An end of a slice as an address: negative ones would count from an end that no image has.
std::uint64_t end(const py::object& value, std::uint64_t absent) {
    if (value.is_none()) return absent;
    const Py_ssize_t address = PyNumber_AsSsize_t(value.ptr(), nullptr);  // one that is too large is the largest
    if (address == -1 && PyErr_Occurred() != nullptr) throw py::error_already_set();
    if (address < 0) throw py::index_error("addresses are not negative");
    return std::min<std::uint64_t>(static_cast<std::uint64_t>(address), tavo::kAddressable);
}

PyImage slice(const PyImage& self, const py::slice& asked) {
    if (!asked.attr("step").is_none() && asked.attr("step").cast<int>() != 1) {
        throw py::index_error("a part of an image has a step of 1");
    }
    const std::uint64_t start = end(asked.attr("start"), 0);
    const std::uint64_t stop = end(asked.attr("stop"), tavo::kAddressable);
    if (start >= stop) return PyImage(tavo::Image());
    return PyImage(self.image().part({static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(stop - 1)}));
}

PyImage united(const PyImage& self, const PyImage& other) {
    tavo::Image image = self.image();
    for (const AddressRange& range : other.image().ranges()) {
        for (std::uint64_t address = range.first; address <= range.last; ++address) {
            const std::uint8_t byte = *other.image().at(static_cast<std::uint32_t>(address));
            if (!image.add(static_cast<std::uint32_t>(address), &byte, 1)) continue;
            throw py::value_error("two different bytes for " + tavo::hexAddress(static_cast<std::uint32_t>(address)));
        }
    }
    return PyImage(std::move(image));
}

std::string repr(const PyImage& self) {
    const auto ranges = self.image().ranges();
    std::string shown = "<tavo_util.Image: " + tavo::countText(self.image().byteCount(), "byte");
    if (ranges.size() == 1) shown += " at " + tavo::rangeText(ranges.front());
    if (ranges.size() > 1) {
        shown += " in " + tavo::countText(ranges.size(), "range") + " of " +
                 tavo::rangeText({ranges.front().first, ranges.back().last});
    }
    return shown + (self.name().empty() ? "" : " from " + tavo::printable(self.name())) + ">";
}

py::object compared(const PyImage& self, const PyImage& other, bool restBlank, const py::object& range) {
    const tavo::AddressRange all{0, tavo::kAddressable - 1};
    const tavo::AddressRange part = range.is_none() ? all
                                                    : tavo::AddressRange{range.attr("first").cast<std::uint32_t>(),
                                                                         range.attr("last").cast<std::uint32_t>()};
    if (part.last > all.last)
        throw py::value_error("an image ends at 0xFFFFFF: the flash commands carry 24 address bits");
    return toPython(tavo::compare(self.image(), other.image(), part, restBlank));
}

}  // namespace

void defineImage(py::module_& module) {
    py::class_<PyImage>(module, "Image", py::buffer_protocol(),
                        R"(The bytes of a flash by address, with gaps. Does not change.

image[0x100] is a byte, image[0x100:0x200] the part at those addresses, another image. bytes(image) has all bytes from
the first to the last one, FF in the gaps; memoryview(image) shows the same without a copy: they are laid out once, and
all views share them.)")
        .def(py::init(&fromPieces), "pieces"_a = std::map<std::uint64_t, py::buffer>(),
             "Image({0: b'...', 0x1000: b'...'}). Raises ValueError where two pieces differ, and beyond 16 MiB.")
        .def_static("read", &read, "path"_a, py::kw_only(), "format"_a = "auto", "address"_a = py::none(),
                    "strict"_a = false, "chip_size"_a = tavo::kAddressable,
                    R"(Reads a file: Intel HEX, Motorola S-record, raw binary (by its ending), ELF, gzip of them.

format: "hex", "srec", "bin", "elf" or "auto". address: of the first byte of a raw binary. chip_size: data above so many
bytes are a fault. Raises ImageRefused, whose details are the faults with their lines, and FileFailed.)")
        .def_static("check", &check, "path"_a, py::kw_only(), "format"_a = "auto", "address"_a = py::none(),
                    "strict"_a = false, "chip_size"_a = tavo::kAddressable,
                    R"(Reads as read() does, and gives an ImageFile that tells what it is and all its faults.

Raises FileFailed for a file that cannot be read, nothing for one that is bad.)")
        .def_static("from_bytes", &fromBytes, "data"_a, "address"_a = 0,
                    "An image of bytes, a bytearray, a memoryview or anything else with a buffer.")
        .def("write", &write, "path"_a, py::kw_only(), "format"_a = py::none(), "replace"_a = false,
             "record_bytes"_a = 32,
             R"(Writes a file, whole or not at all, and gives its SHA-256.

format: "hex", "srec" or "bin"; None: by the name's ending. Raises FileFailed, also for a file that is there, unless
replace is true.)")
        .def("compare", &compared, "other"_a, py::kw_only(), "rest_blank"_a = false, "range"_a = py::none(),
             R"(Where other, what a chip holds, is not what this image wants.

rest_blank: it must be FF elsewhere. range: an AddressRange, to which the comparison is limited.)")
        .def("map", &mapOf, "chip_size"_a = 0,
             "An ImageMap of a chip with so many bytes; 0: of the smallest power of two that holds the image.")
        .def("map_on_chip", &mapOnChip, "chip"_a, "chip_size"_a,
             "An ImageMap of what the chip holds against this image; chip: what was read of it.")
        .def("map_contents", &mapContents, "chip_size"_a, "An ImageMap of this as what was read of a chip.")
        .def("__getitem__", &at, "address"_a)
        .def("__getitem__", &slice, "part"_a)
        .def("__contains__",
             [](const PyImage& self, std::int64_t address) { return byteAt(self, address).has_value(); })
        .def("__or__", &united, "other"_a)
        .def(
            "__eq__", [](const PyImage& self, const PyImage& other) { return self.image() == other.image(); },
            py::is_operator())
        .def("__hash__", [](const PyImage& self) { return py::hash(py::str(self.image().identity())); })
        .def("__bool__", [](const PyImage& self) { return !self.image().isEmpty(); })
        .def("__repr__", [](const PyImage& self) { return text(repr(self)); })
        .def_buffer([](PyImage& self) {
            const auto& flat = self.flat();
            return py::buffer_info(flat.data(), static_cast<py::ssize_t>(flat.size()), true);
        })
        .def_property_readonly("byte_count", [](const PyImage& self) { return self.image().byteCount(); })
        .def_property_readonly(
            "ranges", [](const PyImage& self) { return tupleOf(self.image().ranges()); },
            "Its AddressRanges, ascending.")
        .def_property_readonly(
            "pages", [](const PyImage& self) { return self.image().touchedPages(); },
            "Flash pages (256 bytes) that have a byte of it.")
        .def_property_readonly(
            "blank_pages", [](const PyImage& self) { return self.image().blankPages(); },
            "Pages that have bytes of it, all FF.")
        .def_property_readonly(
            "identity", [](const PyImage& self) { return self.image().identity(); },
            "SHA-256 of bytes and addresses: the same whatever file it was read from.")
        .def_property_readonly(
            "name", [](const PyImage& self) { return text(self.name()); }, "The file it was read from; empty: none.")
        .attr("__iter__") = py::none();  // it would end at the first gap
}

}  // namespace binding
