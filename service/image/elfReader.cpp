// The loaded segments of an ELF file, at their physical addresses: where the flash holds them.
#include <gelf.h>
#include <libelf.h>

#include <cstdio>

#include "service/image/readers.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

struct ElfEnd {
    void operator()(Elf* elf) const { elf_end(elf); }
};
using OwnedElf = std::unique_ptr<Elf, ElfEnd>;

std::string segmentText(std::size_t index, const GElf_Phdr& segment) {
    char text[120];
    std::snprintf(text, sizeof text, "segment %zu (offset 0x%llX, %llu bytes)", index,
                  static_cast<unsigned long long>(segment.p_offset), static_cast<unsigned long long>(segment.p_filesz));
    return text;
}

/// @return false when the file does not hold the segment
bool placeSegment(ImageCollector& collector, const std::vector<char>& bytes, std::size_t index,
                  const GElf_Phdr& segment) {
    if (segment.p_offset > bytes.size() || segment.p_filesz > bytes.size() - segment.p_offset) {
        collector.fault(0, segmentText(index, segment) + " lies beyond the end of the file", hint::kMakeAgain);
        return false;
    }
    // Above 32 bits nothing is placed, so that the end of the addresses cannot be passed.
    const std::uint64_t address = std::min<std::uint64_t>(segment.p_paddr, std::uint64_t{1} << 32);
    collector.place(0, address, reinterpret_cast<const std::uint8_t*>(bytes.data()) + segment.p_offset,
                    segment.p_filesz, segment.p_offset);
    return true;
}

std::string refusedKind(Elf* elf, GElf_Ehdr& header) {
    if (elf == nullptr || elf_kind(elf) != ELF_K_ELF || gelf_getehdr(elf, &header) == nullptr)
        return std::string("not a sound ELF file: ") + elf_errmsg(-1);
    if (header.e_type == ET_REL) return "an ELF object file that is not linked yet: no addresses in it";
    if (header.e_type == ET_CORE) return "an ELF core dump, not a program";
    return "";
}

}  // namespace

bool readElf(ImageSource& source, ImageCollector& collector) {
    std::vector<char> bytes = source.readAll();
    if (!source.fault().empty()) return true;
    elf_version(EV_CURRENT);
    const OwnedElf elf(elf_memory(bytes.data(), bytes.size()));
    GElf_Ehdr header;
    if (const auto why = refusedKind(elf.get(), header); !why.empty()) {
        collector.fault(0, why, "name the program that the firmware's build linked");
        return false;
    }
    std::size_t loaded = 0;
    bool whole = true;
    for (std::size_t i = 0; whole && i < header.e_phnum; ++i) {
        GElf_Phdr segment;
        whole = gelf_getphdr(elf.get(), static_cast<int>(i), &segment) != nullptr;
        if (!whole || segment.p_type != PT_LOAD || segment.p_filesz == 0) continue;
        if (!placeSegment(collector, bytes, i, segment)) continue;
        ++loaded;
    }
    if (!whole)
        collector.fault(0, std::string("the program headers cannot be read: ") + elf_errmsg(-1), hint::kMakeAgain);
    collector.note("ELF read: " + countText(loaded, "segment") + " by their physical addresses");
    collector.file().endOfFileRecord = true;
    return true;
}

}  // namespace tavo
