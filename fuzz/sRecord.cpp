// Motorola S-record.
#include "fuzz/images.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::checkedImage({reinterpret_cast<const char*>(data), size}, tavo::Format::SRecord);
    return 0;
}
