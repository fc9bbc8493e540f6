#include "cli/running/images.h"

#include <unistd.h>

#include "cli/running/interrupt.h"

namespace cli {

bool isStandardStream(const std::string& path) {
    return path == "-";
}

std::string inputName(const std::string& path) {
    return isStandardStream(path) ? "standard input" : path;
}

std::string outputName(const std::string& path) {
    return isStandardStream(path) ? "standard output" : path;
}

tavo::ImageFile readImageFile(const std::string& path, tavo::ReadOptions options) {
    options.cancel = &interruptToken();
    if (isStandardStream(path)) return tavo::checkImage(STDIN_FILENO, inputName(path), options);
    return tavo::checkImage(path, options);
}

std::shared_ptr<const tavo::ImageFile> Images::read(const std::string& path, const tavo::ReadOptions& options) {
    const std::lock_guard lock(mutex_);
    auto& file = files_[path];
    if (file == nullptr) file = std::make_shared<const tavo::ImageFile>(readImageFile(path, options));
    return file;
}

}  // namespace cli
