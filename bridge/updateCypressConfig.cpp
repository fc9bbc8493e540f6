#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>

#include "bridge/configBlock.h"
#include "tavo/Configurator.h"
#include "tavo/bridge.h"

namespace {

class File {
public:
    explicit File(const char* path) : descriptor(open(path, O_RDONLY | O_CLOEXEC)) {}
    ~File() {
        if (descriptor >= 0) close(descriptor);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    const int descriptor;  // negative: not open
};

TAVO_STATUS readImage(const char* path, configBlock::Block& image) {
    const File file(path);
    if (file.descriptor < 0) return TAVO_FILE_NOT_FOUND;
    struct stat status;
    if (fstat(file.descriptor, &status) != 0) return TAVO_FILE_NOT_FOUND;
    if (status.st_size != static_cast<off_t>(image.size())) return TAVO_WRONG_CONFIG_SIZE;
    const ssize_t count = read(file.descriptor, image.data(), image.size());
    return count == static_cast<ssize_t>(image.size()) ? TAVO_SUCCESS : TAVO_WRONG_CONFIG_SIZE;
}

}  // namespace

bool checkFileExtension(std::string path, std::string extension) {
    path.erase(0, path.rfind('.') + 1);  // npos + 1 is 0: without a dot the whole path counts
    std::transform(path.begin(), path.end(), path.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return path == extension;
}

TAVO_STATUS updateCypressConfig(DeviceInfo& deviceInfo, const char* path, const char* serial) {
    configBlock::Block image;
    if (path != nullptr) {
        if (!checkFileExtension(path, "bin")) return TAVO_WRONG_FILE_EXTENSION;
        if (const auto status = readImage(path, image); status != TAVO_SUCCESS) return status;
    }
    Configurator configurator(deviceInfo);
    return cypressToTavo(configurator.writeConfigData(path != nullptr ? image.data() : nullptr, serial));
}
