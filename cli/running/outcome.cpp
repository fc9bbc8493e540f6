#include "cli/running/outcome.h"

#include <cstddef>
#include <iterator>

namespace cli {
namespace {

// Indexed by the problem.
constexpr Exit kExits[] = {Exit::Internal,        Exit::Usage,    Exit::NoDevice,    Exit::SeveralDevices,
                           Exit::NoPermission,    Exit::Busy,     Exit::FileRefused, Exit::FileSystem,
                           Exit::FailedUnchanged, Exit::NoAnswer, Exit::Interrupted};
static_assert(std::size(kExits) == static_cast<std::size_t>(tavo::Problem::Interrupted) + 1);

}  // namespace

Exit exitOf(const tavo::Error& error) {
    if (error.problem != tavo::Problem::Interrupted && error.state.isFlashLost()) return Exit::FailedFlashLost;
    return kExits[static_cast<std::size_t>(error.problem)];
}

}  // namespace cli
