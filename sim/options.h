// How a simulated interface is described: "DIR,size=4M,pace=fast".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/export.h"

namespace sim {

enum class Pace {
    Real,     // SPI clock, page-program and erase times as in a data sheet
    Fast,     // no delay
    Virtual,  // the times of Real on a clock that only tests advance
};

/// Which values of the request E2 switch the bridge's configuration mode; it stalls the others.
enum class Access {
    Both,
    Library,  // 5C3E 82D4 and 5C37 8BD1
    Letters,  // A6BC B1B0 and A6BC B9B0
};

/// What the flash tells of itself (opcode 5A).
enum class Sfdp {
    Told,
    None,   // it does not know the command
    Lying,  // twice its size, and the erase sizes of 20 and D8 changed round
};

inline constexpr const char* kFactorySerialNumber = "00001234";
inline constexpr std::uint32_t kSmallestFlash = 64u << 10;
inline constexpr std::uint32_t kLargestFlash = 128u << 20;

/// "FUNCTION@N:STATUS": the N-th call of a seam function returns STATUS; "N+" that and later calls.
struct PlannedFault {
    std::string function;
    unsigned nth = 1;
    bool andLater = false;
    int status = 0;
};

struct Options {
    std::string folder;           // empty: the board lives in memory
    std::uint32_t flashSize = 0;  // bytes, a power of two; 0: as the folder has it, else 1 MiB
    int capacityCode = -1;        // JEDEC capacity code to answer with; -1: that of flashSize
    Pace pace = Pace::Real;
    unsigned busyPolls = 0;  // status reads for which the chip stays busy after a write, beside its time
    std::string serialNumber = kFactorySerialNumber;  // of a new board
    unsigned pins = 0;  // GPIO pins of the bridge, 12 or 17; 0: as the folder has it, else 17
    Access access = Access::Both;
    Sfdp sfdp = Sfdp::Told;
    bool denied = false;                          // this user may not open it
    bool unfinished = false;                      // an SPI transfer was left unfinished; until an SPI reset (CB)
    std::optional<std::uint64_t> flashDiesAfter;  // transfers, after which the flash's output stays FF
    std::vector<PlannedFault> faults;
    std::vector<unsigned> lostErases;    // erases that are accepted and change nothing; 1 is the first
    std::vector<unsigned> lostPrograms;  // Page Programs that are accepted and change nothing; 1 is the first
};

/// Parses the text after "sim:": the folder, then keys as docs/simulated-interface.md lists them.
/// Throws std::invalid_argument with a message that names the key and what is accepted.
TAVO_SIM_API Options parseOptions(const std::string& text);

}  // namespace sim
