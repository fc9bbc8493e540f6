// What holds of every image file, whatever its format.
#pragma once

#include <string>

#include "tavo/service/imageFile.h"

namespace fuzz {

/// Reads it, and looks that faults have their place, their text and their remedy, and that a good image comes
/// back whole from everything that it can be written as.
tavo::ImageFile checkedImage(const std::string& content, tavo::Format format);

}  // namespace fuzz
