// The configuration block in a file.
#include <algorithm>
#include <array>

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

}  // namespace tavo
