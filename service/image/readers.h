// The readers of the formats. Each takes the whole source; false: this is no such file, the rest was not read.
#pragma once

#include "service/image/imageCollector.h"
#include "service/image/imageSource.h"

namespace tavo {

bool readHex(ImageSource& source, ImageCollector& collector);
bool readSRecord(ImageSource& source, ImageCollector& collector);
bool readElf(ImageSource& source, ImageCollector& collector);
bool readBinary(ImageSource& source, ImageCollector& collector);

/// What the first bytes of a file tell; nothing for what may be anything.
std::optional<Format> formatByContent(std::string_view head);

}  // namespace tavo
