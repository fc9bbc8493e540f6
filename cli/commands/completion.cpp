// The completion scripts. Each shell gets a fixed part, which finds out where on the command line the
// cursor stands, and tables made from the command table.
#include <memory>
#include <set>

#include "cli/arguments/usage.h"
#include "cli/commands/commands.h"
#include "cli/running/session.h"

namespace cli {
namespace {

using All = std::vector<CommandWords>;
using Words = std::vector<std::string>;

/// What is to be offered for the value of an option or for an argument.
enum class Kind { Nothing, Choices, Files, Device };

Kind kindOf(const std::string& name, const Words& choices) {
    if (!choices.empty()) return Kind::Choices;
    if (name == "SPEC") return Kind::Device;
    return name.rfind("FILE", 0) == 0 || name == "IN" || name == "OUT" ? Kind::Files : Kind::Nothing;
}

bool needsValue(const OptionWords& option) {
    return !option.value.empty();
}

std::string joined(const Words& words, const char* between = " ") {
    std::string text;
    for (const auto& word : words) text += (text.empty() ? "" : between) + word;
    return text;
}

/// The text with a backslash before each of those characters.
std::string escaped(const std::string& text, const char* characters) {
    std::string result;
    for (const char c : text) {
        if (std::string(characters).find(c) != std::string::npos) result += '\\';
        result += c;
    }
    return result;
}

/// Between single quotes of bash and zsh, where a quote has to stand outside of them.
std::string quoted(const std::string& text) {
    std::string result = "'";
    for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

std::string firstWord(const std::string& name) {
    return name.substr(0, name.find(' '));
}

std::string secondWord(const std::string& name) {
    const auto space = name.find(' ');
    return space == std::string::npos ? "" : name.substr(space + 1);
}

/// A word that may come next, and what it does.
struct Next {
    std::string word;
    std::string summary;
};

/// The first words of all commands, or the second words of a group.
std::vector<Next> nextWords(const All& all, const std::string& group) {
    std::vector<Next> next;
    std::set<std::string> seen;
    for (const auto& command : all) {
        const std::string word = group.empty() ? firstWord(command.name) : secondWord(command.name);
        if (word.empty() || (!group.empty() && firstWord(command.name) != group) || !seen.insert(word).second) continue;
        next.push_back({word, command.summary});
        for (const auto& row : groups()) {
            if (group.empty() && word == row.name) next.back().summary = row.summary;
        }
    }
    return next;
}

Words wordsOf(const std::vector<Next>& next) {
    Words words;
    for (const auto& each : next) words.push_back(each.word);
    return words;
}

Words groupNames() {
    Words names;
    for (const auto& group : groups()) names.emplace_back(group.name);
    return names;
}

/// The help command's argument may be any first word.
Words choicesOf(const All& all, const ArgumentWords& argument) {
    return argument.name == "COMMAND" ? wordsOf(nextWords(all, "")) : argument.choices;
}

/// All options of all commands that take a value, global ones first, each once.
std::vector<OptionWords> valueOptions(const All& all) {
    std::vector<OptionWords> options;
    std::set<std::string> seen;
    for (const auto& command : all) {
        for (const auto& option : command.options) {
            if (needsValue(option) && seen.insert(option.names.front()).second) options.push_back(option);
        }
    }
    return options;
}

// ---- bash

constexpr const char* kBashHead = R"(# bash completion of tavo-util, made by: tavo-util completion bash

# Offers those of the words that go on from $2. Readline takes what follows a ':' or '=' for a word of its own.
_tavo_util_offer() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
    local known=
    [[ $2 == *[:=]* ]] && known=${2%"${2##*[:=]}"}
    COMPREPLY=("${COMPREPLY[@]#"$known"}")
}

_tavo_util_device() {
    if [[ $1 == sim:* ]]; then
        mapfile -t COMPREPLY < <(compgen -d -- "${1#sim:}")
        compopt -o filenames 2>/dev/null
    else
        _tavo_util_offer 'serial: usb: neuron: sim:' "$1"
        compopt -o nospace 2>/dev/null
    fi
}

# File names are readline's own business.
_tavo_util_files() {
    COMPREPLY=()
    compopt -o default 2>/dev/null
}

_tavo_util() {
    local -a words=()
    local word glue='' i option='' value command='' count=0
    COMPREPLY=()
    for ((i = 1; i <= COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ ${#words[@]} -gt 0 && ( $word == [:=] || -n $glue ) ]]; then
            words[${#words[@]}-1]+=$word
        else
            words+=("$word")
        fi
        glue=
        [[ $word == [:=] ]] && glue=yes
    done
    local current=${words[${#words[@]}-1]}
    unset 'words[${#words[@]}-1]'
    for word in "${words[@]}"; do
        if [[ -n $option ]]; then
            option=
            continue
        fi
        case $word in
)";

constexpr const char* kBashMiddle = R"(            -*) ;;
            *)
                case $command in
                    '') command=$word ;;
                    @GROUPS@) command+=" $word" ;;
                    *) count=$((count + 1)) ;;
                esac ;;
        esac
    done
    value=$current
    if [[ -z $option && $current == --*=* ]]; then
        option=${current%%=*}
        value=${current#*=}
    fi
    case $option in
        '') ;;
)";

std::string replaced(std::string text, const std::string& mark, const std::string& by) {
    return text.replace(text.find(mark), mark.size(), by);
}

std::string bashOffer(Kind kind, const Words& choices, const char* current) {
    if (kind == Kind::Device) return std::string("_tavo_util_device \"$") + current + "\"";
    if (kind == Kind::Files) return "_tavo_util_files";
    return kind == Kind::Nothing ? "" : "_tavo_util_offer '" + joined(choices) + "' \"$" + current + "\"";
}

Words namesOf(const std::vector<OptionWords>& options) {
    Words names;
    for (const auto& option : options) names.insert(names.end(), option.names.begin(), option.names.end());
    return names;
}

std::string bashOptions(const All& all) {
    const std::string global = joined(namesOf(all.front().options));
    std::string text = "    if [[ $current == -* ]]; then\n        case $command in\n";
    for (const auto& command : all) {
        if (command.name.empty()) continue;
        text += "            '" + command.name + "') _tavo_util_offer '" + joined(namesOf(command.options)) + " " +
                global + "' \"$current\" ;;\n";
    }
    return text + "            *) _tavo_util_offer '" + global +
           "' \"$current\" ;;\n        esac\n        return\n    fi\n";
}

std::string bashArguments(const All& all) {
    std::string text = "    case $command/$count in\n";
    const auto row = [&](const std::string& where, const std::string& offer) {
        if (!offer.empty()) text += "        '" + where + "') " + offer + " ;;\n";
    };
    row("/0", bashOffer(Kind::Choices, wordsOf(nextWords(all, "")), "current"));
    for (const auto& group : groupNames())
        row(group + "/0", bashOffer(Kind::Choices, wordsOf(nextWords(all, group)), "current"));
    for (const auto& command : all) {
        for (std::size_t i = 0; i < command.arguments.size(); ++i) {
            const Words choices = choicesOf(all, command.arguments[i]);
            row(command.name + "/" + std::to_string(i),
                bashOffer(kindOf(command.arguments[i].name, choices), choices, "current"));
        }
    }
    return text + "    esac\n";
}

std::string bash(const All& all) {
    const auto options = valueOptions(all);
    std::string text = std::string(kBashHead) + "            --*=*) ;;\n            " + joined(namesOf(options), "|") +
                       ") option=$word ;;\n" + replaced(kBashMiddle, "@GROUPS@", joined(groupNames(), "|"));
    for (const auto& option : options) {
        const std::string offer = bashOffer(kindOf(option.value, option.choices), option.choices, "value");
        text += "        " + joined(option.names, "|") + ") " + (offer.empty() ? "" : offer + "; ") + "return ;;\n";
    }
    return text + "        *) return ;;\n    esac\n" + bashOptions(all) + bashArguments(all) +
           "}\ncomplete -F _tavo_util tavo-util\n";
}

// ---- zsh

constexpr const char* kZshHead = R"(#compdef tavo-util
# zsh completion of tavo-util, made by: tavo-util completion zsh

_tavo-util_device() {
  if compset -P 'sim:'; then
    _files -/
  else
    compadd -S '' -- serial: usb: neuron: sim:
  fi
}

# Completes behind the command words in $1.
_tavo-util_level() {
  local curcontext=$curcontext state state_descr line
  typeset -A opt_args
  local -a next specs
  case $1 in
)";

constexpr const char* kZshTail = R"(  esac
  if (( ! $#next )); then
    _arguments -s "$globals[@]" "$specs[@]"
    return
  fi
  _arguments -C -s "$globals[@]" '1:command:->next' '*::argument:->rest' && return
  case $state in
    next) _describe -t commands command next ;;
    rest) _tavo-util_level "${1:+$1 }$line[1]" ;;
  esac
}

# Read from a folder of $fpath this file is the body of the function; sourced, it only registers it.
if [[ $funcstack[1] == _tavo-util ]]; then
  _tavo-util "$@"
else
  compdef _tavo-util tavo-util
fi
)";

std::string zshValue(const std::string& name, const Words& choices) {
    const Kind kind = kindOf(name, choices);
    const std::string text = ":" + escaped(name, ":\\");
    if (kind == Kind::Choices) return text + ":(" + joined(choices) + ")";
    if (kind == Kind::Files) return text + ":_files";
    return text + (kind == Kind::Device ? ":_tavo-util_device" : ": ");
}

/// For _arguments; '*' because it is the tool that minds a repeated option.
Words zshOptions(const std::vector<OptionWords>& options) {
    Words specs;
    for (const auto& option : options) {
        const std::string help = "[" + escaped(option.help, "[]\\:") + "]";
        for (const auto& name : option.names) {
            const std::string joint = !needsValue(option) ? "" : name.rfind("--", 0) == 0 ? "=" : "+";
            specs.push_back("*" + name + joint + help + (joint.empty() ? "" : zshValue(option.value, option.choices)));
        }
    }
    return specs;
}

std::string zshArray(const std::string& name, const Words& values) {
    std::string text = name + "=(\n";
    for (const auto& value : values) text += "      " + quoted(value) + "\n";
    return text + "    )";
}

std::string zshNext(const All& all, const std::string& group) {
    Words rows;
    for (const auto& [word, summary] : nextWords(all, group)) rows.push_back(word + ":" + summary);
    return "    " + quoted(group) + ") " + zshArray("next", rows) + " ;;\n";
}

std::string zsh(const All& all) {
    std::string text = kZshHead + zshNext(all, "");
    for (const auto& group : groupNames()) text += zshNext(all, group);
    for (const auto& command : all) {
        if (command.name.empty()) continue;
        Words specs = zshOptions(command.options);
        for (const auto& argument : command.arguments)
            specs.push_back(zshValue(argument.name, choicesOf(all, argument)));
        text += "    " + quoted(command.name) + ") " + zshArray("specs", specs) + " ;;\n";
    }
    const std::string main = "_tavo-util() {\n    local -a globals\n    " +
                             zshArray("globals", zshOptions(all.front().options)) + "\n  _tavo-util_level ''\n}\n\n";
    return text + replaced(kZshTail, "# Read from", main + "# Read from");
}

// ---- fish

constexpr const char* kFishHead = R"(# fish completion of tavo-util, made by: tavo-util completion fish

# The words before the cursor that are neither options nor their values.
function __tavo_util_words
    set -l isValue no
    for word in (commandline -opc)[2..-1]
        if test $isValue = yes
            set isValue no
            continue
        end
        switch $word
            case @OPTIONS@
                set isValue yes
            case '-*'
            case '*'
                echo $word
        end
    end
end

# at COUNT WORDS...: those words came first, and COUNT (or any number of) others.
function __tavo_util_at
    set -l words (__tavo_util_words)
    for word in $argv[2..-1]
        test "$words[1]" = $word; or return 1
        set -e words[1]
    end
    test $argv[1] = any; or test (count $words) -eq $argv[1]
end

function __tavo_util_devices
    set -l token (commandline -ct | string replace -r '^(-d|--device=)' '')
    if string match -q 'sim:*' -- $token
        for folder in (__fish_complete_directories (string sub -s 5 -- $token))
            echo sim:$folder
        end
    else
        printf '%s\n' serial: usb: neuron: sim:
    end
end

complete -c tavo-util -f
)";

std::string fishQuoted(const std::string& text) {
    return "'" + escaped(text, "'\\") + "'";
}

std::string fishValue(const std::string& name, const Words& choices) {
    const Kind kind = kindOf(name, choices);
    if (kind == Kind::Files) return " -r -F";
    if (kind == Kind::Device) return " -x -a '(__tavo_util_devices)'";
    return kind == Kind::Nothing ? " -x" : " -x -a " + fishQuoted(joined(choices));
}

/// @param where  the condition, or nothing
std::string fishOptions(const std::vector<OptionWords>& options, const std::string& where) {
    std::string text;
    for (const auto& option : options) {
        text += "complete -c tavo-util" + where;
        for (const auto& name : option.names)
            text += name.rfind("--", 0) == 0 ? " -l " + name.substr(2) : " -s " + name.substr(1);
        text += (needsValue(option) ? fishValue(option.value, option.choices) : "") + " -d " + fishQuoted(option.help) +
                "\n";
    }
    return text;
}

std::string fishAt(const std::string& count, const std::string& words) {
    return " -n " + fishQuoted("__tavo_util_at " + count + (words.empty() ? "" : " " + words));
}

std::string fishNext(const All& all, const std::string& group) {
    std::string text;
    for (const auto& [word, summary] : nextWords(all, group))
        text += "complete -c tavo-util" + fishAt("0", group) + " -a " + word + " -d " + fishQuoted(summary) + "\n";
    return text;
}

std::string fishArgument(const All& all, const CommandWords& command, std::size_t index) {
    const Words choices = choicesOf(all, command.arguments[index]);
    const std::string head = "complete -c tavo-util" + fishAt(std::to_string(index), command.name);
    const Kind kind = kindOf(command.arguments[index].name, choices);
    if (kind == Kind::Choices) return head + " -a " + fishQuoted(joined(choices)) + "\n";
    return kind == Kind::Files ? head + " -F\n" : "";
}

std::string fish(const All& all) {
    std::string text = replaced(kFishHead, "@OPTIONS@", joined(namesOf(valueOptions(all)))) +
                       fishOptions(all.front().options, "") + fishNext(all, "");
    for (const auto& group : groupNames()) text += fishNext(all, group);
    for (const auto& command : all) {
        if (command.name.empty()) continue;
        text += fishOptions(command.options, fishAt("any", command.name));
        for (std::size_t i = 0; i < command.arguments.size(); ++i) text += fishArgument(all, command, i);
    }
    return text;
}

struct Shell {
    const char* name;
    std::string (*script)(const All&);
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
    Words names;
    for (const auto& each : kShells) names.emplace_back(each.name);
    arguments.word("SHELL", *shell, names, "the shell");
    return [shell](Session& session) { completion(session, *shell); };
}

}  // namespace cli
