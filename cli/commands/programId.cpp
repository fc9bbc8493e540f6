#include "cli/commands/commands.h"
#include "cli/running/session.h"
#include "tavo/service/neuron.h"

namespace cli {
namespace {

/// As characters; a dot for what cannot be printed.
std::string readable(const tavo::ProgramId& id) {
    std::string text;
    for (const unsigned char byte : id) text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    return text;
}

void programId(Session& session) {
    const tavo::ProgramId id = tavo::readProgramId(session.device(), session.control());
    session.report.result["program_id"] = tavo::hexText(id.data(), id.size(), "");
    session.report.result["text"] = readable(id);
    session.report.line(tavo::hexText(id.data(), id.size()) + "  " + readable(id));
}

}  // namespace

Run declareProgramId(Arguments&) {
    return programId;
}

}  // namespace cli
