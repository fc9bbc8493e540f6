#include <algorithm>
#include <cstdio>

#include "service/image/readers.h"
#include "tavo/service/files.h"
#include "tavo/service/imageFile.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

struct Reader {
    Format format;
    bool (*read)(ImageSource&, ImageCollector&);
};
constexpr Reader kReaders[] = {
    {Format::Hex, readHex}, {Format::SRecord, readSRecord}, {Format::Binary, readBinary}, {Format::Elf, readElf}};

/// What the file is to be read as, and the fault if it is something else.
struct Choice {
    Format format;
    std::string fault;
    std::string remedy;
};

Choice chooseFormat(const ImageSource& source, const std::string& name, const ReadOptions& options) {
    const auto told = formatByContent(source.head());
    if (options.strict) {
        if (source.isGzip()) return {Format::Hex, "gzip data, not Intel HEX", hint::kConvert};
        if (told && *told != Format::Hex)
            return {Format::Hex, std::string(formatName(*told)) + ", not Intel HEX", hint::kConvert};
        return {Format::Hex, "", ""};
    }
    if (options.format == Format::Binary) return {Format::Binary, "", ""};
    if (options.format != Format::Automatic) {
        if (!told || *told == options.format) return {options.format, "", ""};
        return {options.format, std::string(formatName(*told)) + ", not " + formatName(options.format),
                "let the content tell the format"};
    }
    if (told) return {*told, "", ""};
    const Format named = formatByName(name);
    return {named == Format::Automatic ? Format::Hex : named, "", ""};
}

/// Looks at the rest of packed data too: their checksum comes last.
bool hasBrokenSource(ImageSource& source) {
    std::vector<char> rest(64 * 1024);
    while (source.isGzip() && source.read(rest.data(), rest.size()) > 0) {
    }
    return !source.fault().empty();
}

/// What only the end of the file can tell.
void judgeWhole(ImageCollector& collector, const ImageSource& source) {
    const ImageFile& file = collector.file();
    if (source.head().empty()) return collector.fault(0, "the file is empty", hint::kWrongFile);
    if (!file.endOfFileRecord)
        return collector.fault(0, "no end-of-file record: the file may be cut short", hint::kMakeAgain);
    if (file.image.isEmpty() && file.faultCount == 0) collector.fault(0, "no data at all", hint::kWrongFile);
}

}  // namespace

bool readBinary(ImageSource& source, ImageCollector& collector) {
    constexpr std::size_t kPiece = 64 * 1024;
    const ReadOptions& options = collector.options();
    std::vector<char> bytes(kPiece);
    const std::uint32_t first = options.address.value_or(0);
    std::uint64_t end = first;
    for (std::size_t count = 0; (count = source.read(bytes.data(), kPiece)) > 0; end += count) {
        if (end + count <= options.chipSize)
            collector.place(0, end, reinterpret_cast<const std::uint8_t*>(bytes.data()), count, end - first);
    }
    if (end > options.chipSize) collector.tooHigh(0, first, end - 1);
    collector.note("raw binary read, its first byte at " + hexAddress(first) +
                   (options.address ? "" : " as no other address is given"));
    collector.file().endOfFileRecord = true;
    return true;
}

ImageFile checkImage(int descriptor, const std::string& name, const ReadOptions& options) {
    ReadOptions limited = options;
    limited.chipSize = std::min(options.chipSize, kAddressable);
    ImageFile file;
    ImageCollector collector(file, limited);
    ImageSource source(descriptor, name, options);
    const Choice choice = chooseFormat(source, name, options);
    file.format = choice.format;
    if (!choice.fault.empty()) {
        collector.fault(0, choice.fault, choice.remedy);
        return file;
    }
    if (options.address && choice.format != Format::Binary) {
        collector.fault(0, std::string(formatName(choice.format)) + " has addresses of its own: none can be given",
                        "leave --address out; a raw binary is named by --format bin");
        return file;
    }
    if (source.isGzip()) collector.note("gzip unpacked");
    const auto* reader = std::find_if(std::begin(kReaders), std::end(kReaders),
                                      [&](const auto& row) { return row.format == choice.format; });
    const bool whole = reader->read(source, collector);
    collector.finish();
    if (hasBrokenSource(source)) {  // then every other fault may come from it
        file.faults = {{0, source.fault(), hint::kMakeAgain}};
        file.faultCount = 1;
        return file;
    }
    if (!whole) return file;
    judgeWhole(collector, source);
    file.fileBytes = source.storedBytes();
    file.sha256 = source.sha256();
    return file;
}

ImageFile checkImage(const std::string& path, const ReadOptions& options) {
    const Descriptor file = openForReading(path);
    return checkImage(file.get(), path, options);
}

Image readImage(const std::string& path, const ReadOptions& options) {
    ImageFile file = checkImage(path, options);
    if (!file.isGood()) throw refusal(path, file);
    return std::move(file.image);
}

std::string faultText(const ImageFault& fault) {
    if (fault.line > 0) return "line " + std::to_string(fault.line) + ": " + fault.text;
    if (!fault.offset) return fault.text;
    char place[32];
    std::snprintf(place, sizeof place, "offset 0x%llX: ", static_cast<unsigned long long>(*fault.offset));
    return place + fault.text;
}

Error refusal(const std::string& name, const ImageFault& fault) {
    return {Problem::FileRefused, name + " refused: " + faultText(fault), fault.hint};
}

Error refusal(const std::string& name, const ImageFile& file) {
    const ImageFault& first = file.faults.front();
    std::string text = name + " refused: " + faultText(first);
    if (file.faultCount > 1) text += " (and " + countText(file.faultCount - 1, "more fault") + ": tavo-util check)";
    Error error{Problem::FileRefused, text, first.hint};
    for (const auto& fault : file.faults) error.details.push_back(faultText(fault) + " - " + fault.hint);
    return error;
}

}  // namespace tavo
