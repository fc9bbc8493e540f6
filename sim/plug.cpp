#include "sim/plug.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>

#include "sim/files.h"

namespace sim {

std::string plugFile(const std::string& folder) {
    return folder + "/plug";
}

unsigned plugChanges(const std::string& file) {
    const File open(file, O_RDONLY);
    if (!open.isOpen()) return 0;
    char text[16];
    const ssize_t count = ::read(open.get(), text, sizeof text);
    unsigned changes = 0;
    if (count > 0) std::from_chars(text, text + count, changes);
    return changes;
}

bool setPluggedIn(const std::string& folder, bool pluggedIn) {
    const std::string file = plugFile(madeFolder(folder));
    const unsigned changes = plugChanges(file);
    if (isPluggedIn(changes) == pluggedIn) return false;
    const std::string text = std::to_string(changes + 1) + (pluggedIn ? " plugged in\n" : " unplugged\n");
    writeWhole(file, std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), true);
    return true;
}

}  // namespace sim
