// The part of the flash that a command works on.
#pragma once

#include <optional>
#include <string>

#include "cli/arguments/command.h"
#include "cli/running/session.h"
#include "tavo/service/range.h"

namespace cli {

struct RangeArguments {
    std::string range;
    std::string layout;

    /// Throws tavo::Error for what is no range; empty when none was given.
    std::optional<tavo::AddressRange> parsed() const;
};

/// what: "read only a part"
void declareRange(Arguments& arguments, const std::string& what, RangeArguments& range);

/// The same, and told in the result.
std::optional<tavo::AddressRange> takeRange(Session& session, const RangeArguments& range);

/// "the whole flash", "0x010000-0x01FFFF of the flash"
std::string partText(const std::optional<tavo::AddressRange>& range);

}  // namespace cli
