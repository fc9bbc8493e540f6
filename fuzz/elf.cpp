// ELF: what is taken is what a plain look at the program headers finds.
#include <elf.h>

#include <cstring>

#include "fuzz/fuzz.h"
#include "fuzz/images.h"

namespace {

template <typename Header, typename Segment>
void compareSegments(const tavo::Image& image, const std::string& content) {
    Header header;
    HOLDS(content.size() >= sizeof header);
    std::memcpy(&header, content.data(), sizeof header);
    std::uint64_t loaded = 0;
    for (std::size_t i = 0; i < header.e_phnum; ++i) {
        Segment segment;
        HOLDS(header.e_phoff + (i + 1) * sizeof segment <= content.size());
        std::memcpy(&segment, content.data() + header.e_phoff + i * sizeof segment, sizeof segment);
        if (segment.p_type != PT_LOAD || segment.p_filesz == 0) continue;  // an empty one may lie anywhere
        loaded += segment.p_filesz;
        HOLDS(segment.p_offset + segment.p_filesz <= content.size());
        for (std::uint64_t at = 0; at < segment.p_filesz; ++at) {
            const auto byte = image.at(static_cast<std::uint32_t>(segment.p_paddr + at));
            HOLDS(byte && *byte == static_cast<std::uint8_t>(content[segment.p_offset + at]));
        }
    }
    HOLDS(loaded >= image.byteCount());  // more where segments overlap with the same bytes
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string content(reinterpret_cast<const char*>(data), size);
    const tavo::ImageFile file = fuzz::checkedImage(content, tavo::Format::Elf);
    if (!file.isGood() || content[EI_DATA] != ELFDATA2LSB || content.substr(0, SELFMAG) != ELFMAG) return 0;
    if (content[EI_CLASS] == ELFCLASS32) compareSegments<Elf32_Ehdr, Elf32_Phdr>(file.image, content);
    if (content[EI_CLASS] == ELFCLASS64) compareSegments<Elf64_Ehdr, Elf64_Phdr>(file.image, content);
    return 0;
}
