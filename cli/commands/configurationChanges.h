// A rewrite of the configuration block as commands show it and carry it out.
#pragma once

#include <string>

#include "cli/running/session.h"
#include "tavo/service/configuration.h"

namespace cli {

std::string offsetText(std::size_t offset);  ///< "0x01C"

/// Rows for people, "changed" for programs: [{offset, old, new}], one a byte. @return how many bytes differ
std::size_t showChanges(Report& report, const tavo::ConfigurationBlock& before, const tavo::ConfigurationBlock& after);

/// Says so when the block holds another serial number than the one in effect.
void warnOfPendingSerial(Session& session, const tavo::ConfigurationPlan& plan);

/// Shows the plan, asks, saves the block that was there and writes. Does less with --dry-run, and nothing when no
/// byte changes.
/// @param backup    where the old block goes; empty: a new name in the current folder
/// @param question  "set the serial number of 00001234 at 1-4.2 to 00001299"
/// @return whether it wrote
bool rewriteBlock(Session& session, const tavo::ConfigurationPlan& plan, const std::string& backup,
                  const std::string& question);

}  // namespace cli
