// Texts of a device, a file or a file name, as they may go to a terminal or into a log.
#pragma once

#include <string>
#include <string_view>

namespace cli {

/// The text with everything escaped that would not show as it is: control characters and bytes that
/// are no UTF-8 as "\x1B", C1 controls and what turns the direction of writing as "\u202E". The rest
/// stays, so that one line stays one line and nothing steers the terminal.
std::string printable(std::string_view text);

}  // namespace cli
