#include <memory>
#include <set>

#include "cli/commands/commands.h"
#include "cli/session.h"
#include "cli/usage.h"

namespace cli {
namespace {

std::string joined(const std::vector<std::string>& words, const char* between = " ") {
    std::string text;
    for (const auto& word : words) text += (text.empty() ? "" : between) + word;
    return text;
}

std::string firstWord(const std::string& name) {
    return name.substr(0, name.find(' '));
}

std::string secondWord(const std::string& name) {
    const auto space = name.find(' ');
    return space == std::string::npos ? "" : name.substr(space + 1);
}

/// The words of the first level, each once, in the order of the table.
std::vector<std::string> firstWords(const std::vector<CommandWords>& all) {
    std::vector<std::string> words;
    for (const auto& command : all) {
        const std::string word = firstWord(command.name);
        if (!word.empty() && (words.empty() || words.back() != word)) words.push_back(word);
    }
    return words;
}

/// What may follow that first word: second words, or the choices of a first argument.
std::string followers(const std::vector<CommandWords>& all, const std::string& first) {
    std::vector<std::string> words;
    for (const auto& command : all) {
        if (firstWord(command.name) != first) continue;
        const std::string second = secondWord(command.name);
        if (!second.empty()) words.push_back(second);
        if (second.empty()) words = command.choices;
    }
    return joined(words);
}

std::string optionsOf(const std::vector<CommandWords>& all, const std::string& first) {
    std::set<std::string> names(all.front().options.begin(), all.front().options.end());
    for (const auto& command : all) {
        if (firstWord(command.name) == first) names.insert(command.options.begin(), command.options.end());
    }
    return joined({names.begin(), names.end()});
}

std::string bash(const std::vector<CommandWords>& all) {
    std::string text =
        "_tavo_util() {\n"
        "    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} command= words= word\n"
        "    case $before in\n"
        "        --progress) COMPREPLY=($(compgen -W 'auto bar plain json none' -- \"$current\")); return;;\n"
        "        --color) COMPREPLY=($(compgen -W 'auto always never' -- \"$current\")); return;;\n"
        "    esac\n"
        "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
        "        case $word in " +
        joined(firstWords(all), "|") +
        ") command=$word; break;; esac\n"
        "    done\n"
        "    case $command in\n";
    const auto row = [&](const std::string& pattern, const std::string& words, const std::string& options) {
        text += "        " + pattern + ") words='" + words + "'; [[ $current == -* ]] && words='" + options + "';;\n";
    };
    row("''", joined(firstWords(all)), optionsOf(all, "-"));
    for (const auto& word : firstWords(all)) row(word, followers(all, word), optionsOf(all, word));
    return text +
           "    esac\n"
           "    COMPREPLY=($(compgen -W \"$words\" -- \"$current\"))\n"
           "}\n"
           "complete -o default -F _tavo_util tavo-util\n";
}

std::string zsh(const std::vector<CommandWords>& all) {
    // zsh runs bash completions, file names included.
    return "#compdef tavo-util\nautoload -U +X bashcompinit && bashcompinit\n" + bash(all);
}

std::string fish(const std::vector<CommandWords>& all) {
    std::string text;
    const auto option = [&](const std::string& condition, const std::string& name) {
        const bool isLong = name.rfind("--", 0) == 0;
        text +=
            "complete -c tavo-util" + condition + (isLong ? " -l " + name.substr(2) : " -s " + name.substr(1)) + "\n";
    };
    for (const auto& name : all.front().options) option("", name);
    for (const auto& command : all) {
        const std::string first = firstWord(command.name);
        if (first.empty()) continue;
        const std::string second = secondWord(command.name);
        const std::string seen = " -n '__fish_seen_subcommand_from " + first + "'";
        text += "complete -c tavo-util" +
                (second.empty() ? std::string(" -n __fish_use_subcommand -a ") + first : seen + " -a " + second) +
                " -d '" + command.summary + "'\n";
        if (!second.empty()) text += "complete -c tavo-util -n __fish_use_subcommand -a " + first + "\n";
        if (!command.choices.empty())
            text += "complete -c tavo-util" + seen + " -a '" + joined(command.choices) + "'\n";
        for (const auto& name : command.options) option(seen, name);
    }
    return text;
}

struct Shell {
    const char* name;
    std::string (*script)(const std::vector<CommandWords>&);
};
constexpr Shell kShells[] = {{"bash", bash}, {"zsh", zsh}, {"fish", fish}};

void completion(Session& session, const std::string& wanted) {
    for (const auto& shell : kShells) {
        if (wanted != shell.name) continue;
        const std::string script = shell.script(commandWords());
        session.report.result["script"] = script;
        session.report.script(script);
    }
}

}  // namespace

Run declareCompletion(Arguments& arguments) {
    auto shell = std::make_shared<std::string>();
    arguments.word("SHELL", *shell, {"bash", "zsh", "fish"}, "bash, zsh or fish");
    return [shell](Session& session) { completion(session, *shell); };
}

}  // namespace cli
