#include <memory>
#include <vector>

#include "cli/arguments/usage.h"
#include "cli/commands/commands.h"
#include "cli/running/session.h"

namespace cli {
namespace {

struct Topic {
    std::string command;
    std::string second;
};

void help(Session& session, const Topic& topic) {
    std::vector<std::string> words{topic.command, topic.second};
    std::erase(words, "");
    const std::string text = helpText(words);
    session.report.result["text"] = text;
    session.report.script(text);
}

void version(Session& session) {
    session.report.result["version"] = TAVO_VERSION;
    session.report.line("tavo-util " TAVO_VERSION);
}

}  // namespace

Run declareHelp(Arguments& arguments) {
    auto topic = std::make_shared<Topic>();
    arguments.optional("COMMAND", topic->command, "the command; without one, the whole program");
    arguments.optional("SECOND", topic->second, "its second word");
    return [topic](Session& session) { help(session, *topic); };
}

Run declareVersion(Arguments&) {
    return version;
}

}  // namespace cli
