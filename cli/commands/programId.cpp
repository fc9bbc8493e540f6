#include "cli/commands/commands.h"
#include "cli/neuronNames.h"

namespace cli {
namespace {

/// As characters; a dot for what cannot be printed.
std::string readable(const unsigned char (&id)[8]) {
    std::string text;
    for (const unsigned char byte : id) text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    return text;
}

void programId(Session& session) {
    unsigned char id[8] = {};
    session.call(Side::Neuron, "read the program ID", [&] { return readProgramId(session.info(), id); });
    session.report.result["program_id"] = hexText(id, sizeof id, "");
    session.report.result["text"] = readable(id);
    session.report.line(hexText(id, sizeof id) + "  " + readable(id));
}

}  // namespace

Run declareProgramId(Arguments&) {
    return programId;
}

}  // namespace cli
