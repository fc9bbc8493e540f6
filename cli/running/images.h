// The image files of a command line.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "tavo/service/imageFile.h"

namespace cli {

/// True for the name "-", standard input or output.
bool isStandardStream(const std::string& path);
/// What messages call a file that is read, or one that is written.
std::string inputName(const std::string& path);
std::string outputName(const std::string& path);

/// Reads an image file, or standard input for "-"; a Ctrl-C ends the wait for it.
tavo::ImageFile readImageFile(const std::string& path, tavo::ReadOptions options);

/// Each file is read once for all devices that work on it: standard input could not be read again.
class Images {
public:
    std::shared_ptr<const tavo::ImageFile> read(const std::string& path, const tavo::ReadOptions& options);

private:
    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<const tavo::ImageFile>> files_;
};

}  // namespace cli
