// One declaring function a command; see command.h.
#pragma once

#include "cli/arguments/command.h"

namespace cli {

/// --clock of the commands that read or write the flash.
inline void declareClock(Arguments& arguments, std::optional<int>& hertz) {
    arguments.number("--clock", "HZ", hertz, 900000, 3000000,
                     "SPI clock, up to 3000000, if the flash reads the same with it (default: 900000)");
}

Run declareList(Arguments& arguments);
Run declareCheck(Arguments& arguments);
Run declareProgram(Arguments& arguments);
Run declareErase(Arguments& arguments);
Run declareRestore(Arguments& arguments);
Run declareHistory(Arguments& arguments);
Run declareConvert(Arguments& arguments);
Run declareVerify(Arguments& arguments);
Run declareDump(Arguments& arguments);
Run declareBlankCheck(Arguments& arguments);
Run declareInfo(Arguments& arguments);
Run declareCompletion(Arguments& arguments);
Run declareDoctor(Arguments& arguments);
Run declareRecover(Arguments& arguments);
Run declareConfigRead(Arguments& arguments);
Run declareConfigWrite(Arguments& arguments);
Run declareConfigSetSerial(Arguments& arguments);
Run declareConfigDiff(Arguments& arguments);
Run declareScb0(Arguments& arguments);
Run declareNeuronIdStore(Arguments& arguments);
Run declareStatus(Arguments& arguments);
Run declareMode(Arguments& arguments);
Run declareReset(Arguments& arguments);
Run declareServicePin(Arguments& arguments);
Run declareNeuronIdRead(Arguments& arguments);
Run declareProgramId(Arguments& arguments);
Run declareDomainRead(Arguments& arguments);
Run declareDomainWrite(Arguments& arguments);
Run declareHelp(Arguments& arguments);
Run declareVersion(Arguments& arguments);

}  // namespace cli
