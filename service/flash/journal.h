// What this host remembers while a flash is being changed; a host that cannot is warned of, not refused.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "service/operation.h"
#include "tavo/service/image.h"

namespace tavo {

/// Before the first step that changes the flash. image and backup are file names, options those of
/// the command line that programs the image; empty: none. The backup of
/// an earlier run that was cut off is kept in mind, and so are the bytes that it was to keep: those hold what was
/// there before.
void rememberChange(Operation& op, const std::string& image, const std::string& sha256, const std::string& backup,
                    const std::string& options = {});

/// The flash holds what was wanted. Bytes that an earlier run was to keep are no longer in it: told, where they are.
void forgetChange(Operation& op);

/// Puts the bytes of the chip into a private file and remembers where: both are on the disk when this returns. Throws
/// Error: nothing may be erased then that is to be kept.
void saveKept(Operation& op, const Image& contents, const std::string& image, const std::string& sha256,
              const std::string& backup, const std::string& options);
/// What a run that was cut off was to keep of a chip of that size; nothing when there was no such run. Throws Error
/// when it cannot be read.
std::optional<Image> savedKept(Operation& op, std::uint32_t size);
/// The flash holds what was wanted, what was to be kept included.
void forgetKept(Operation& op);

}  // namespace tavo
