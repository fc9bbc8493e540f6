// The configuration block in a file.
#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "tavo/bridge.h"
#include "tavo/service/configuration.h"
#include "tavo/service/files.h"
#include "tavo/service/text.h"

namespace tavo {

bool isConfigurationFileName(const std::string& path) {
    return checkFileExtension(path, "bin");
}

ConfigurationBlock loadConfiguration(const std::string& path) {
    const Descriptor file = openForReading(path);
    if (!isConfigurationFileName(path)) {
        throw Error(Problem::FileRefused, path + " refused: not a .bin file", "rename the file to end in .bin");
    }
    ConfigurationBlock block{};
    std::array<char, std::tuple_size_v<ConfigurationBlock> + 1> bytes{};  // one more, to see a file that is too long
    const std::size_t size = readSome(file.get(), bytes.data(), bytes.size(), path);
    if (size != block.size()) {
        throw Error(Problem::FileRefused, path + " refused: it has " + sizeText(sizeOf(file)),
                    "a configuration file has exactly 512 bytes");
    }
    std::copy_n(bytes.begin(), block.size(), block.begin());
    return block;
}

void saveConfiguration(const std::string& path, const ConfigurationBlock& block, bool replace) {
    NewFile file(path, replace);
    writeAll(file.descriptor(), reinterpret_cast<const char*>(block.data()), block.size(), path);
    file.commit();
}

std::string configurationBackupName(const DeviceDescription& device) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char time[32];
    std::strftime(time, sizeof time, "%Y%m%d-%H%M%S", &local);
    const std::string serial = device.serial.empty() ? "" : safeName(device.serial) + "-";
    const std::string name = "config-" + serial + time;
    std::string path = name + ".bin";
    std::error_code error;  // a folder that cannot be looked into is told when the file is written
    for (int i = 2; std::filesystem::exists(path, error); ++i) path = name + "-" + std::to_string(i) + ".bin";
    return path;
}

}  // namespace tavo
