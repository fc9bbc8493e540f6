// The bridge's configuration block as commands show, compare and rewrite it.
#pragma once

#include <functional>
#include <string>

#include "bridge/configBlock.h"
#include "cli/session.h"

namespace cli {

using configBlock::Block;

Block readBlock(Session& session);

/// A configuration file: 512 bytes, named .bin. Throws Failure: exit 7 for another name or size, 8 for one
/// that cannot be read.
Block loadBlock(const std::string& path);
/// Writes a new file. Throws Failure (8), also when path exists and may not be replaced.
void storeBlock(const std::string& path, const Block& block, bool replace);

/// Why a bridge may not come up on USB with this block; empty when it should.
std::string whyBad(const Block& block);

const char* scb0Name(const Block& block);                                        ///< "SPI", "I2C", "UART"
std::string stringIn(const Block& block, const configBlock::Field& descriptor);  ///< UTF-8
unsigned shortIn(const Block& block, const configBlock::Field& field);

std::string offsetText(std::size_t offset);  ///< "0x01C"

Json changesJson(const Block& before, const Block& after);  ///< [{offset, old, new}], one a byte
std::size_t showChanges(Report& report, const Block& before, const Block& after);

/// A write that keeps the serial number keeps the one in effect: says so when the block holds another,
/// set since the device was plugged in.
void warnOfPendingSerial(Session& session, const Block& block);

/// One rewrite of the block, from showing what changes to reading it back.
struct Rewrite {
    Block before;
    Block after;           ///< what the bridge will hold
    std::string backup;    ///< where the block that was there goes; empty: a new name in the current folder
    std::string question;  ///< "set the serial number of 00001234 at 1-4.2 to 00001299"
    std::string doing;     ///< completes "cannot ..."
    std::function<TAVO_STATUS()> write;
};

/// Asks, saves the block that was there and writes. Does less with --dry-run, and nothing when no byte
/// changes. @return whether it wrote. Throws Failure.
bool rewriteBlock(Session& session, const Rewrite& rewrite);

}  // namespace cli
