// A rewrite of the configuration block as commands show it and carry it out.
#pragma once

#include <string>
#include <vector>

#include "cli/running/session.h"
#include "tavo/service/configuration.h"

namespace cli {

std::string offsetText(std::size_t offset);  ///< "0x01C"

/// Rows for people, "changed" for programs: [{offset, old, new}], one a byte.
void showChanges(Report& report, const std::vector<tavo::ByteChange>& changes);
/// @return how many bytes differ
std::size_t showChanges(Report& report, const tavo::ConfigurationPlan& plan);

/// --backup and --no-backup
void addBackup(Arguments& arguments, tavo::ConfigurationWriteOptions& how);

/// Says so when the block holds another serial number than the one in effect.
void warnOfPendingSerial(Session& session, const tavo::ConfigurationPlan& plan);

/// Shows the plan, asks and writes, which keeps the block that was there. Does less with --dry-run, and nothing when
/// no byte changes.
/// @param question  "set the serial number of 00001234 at 1-4.2 to 00001299"
/// @return whether it wrote
bool rewriteBlock(Session& session, const tavo::ConfigurationPlan& plan, const tavo::ConfigurationWriteOptions& how,
                  const std::string& question);

}  // namespace cli
