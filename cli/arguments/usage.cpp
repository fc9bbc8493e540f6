#include "cli/arguments/usage.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <sstream>
#include <utility>

#include "cli/output/console.h"
#include "cli/output/log.h"
#include "cli/output/progress.h"
#include "cli/output/report.h"
#include "tavo/service/range.h"

namespace cli {
namespace {

/// An empty value comes from a variable that is not set. Taken for no option at all, `erase --range "$part"` would
/// erase everything.
const CLI::Validator kNotEmpty(
    [](std::string& value) { return value.empty() ? std::string("an empty value") : std::string(); }, "");

}  // namespace

void Arguments::required(const char* name, std::string& value, const char* help) {
    texts_.push_back(&value);
    app_.add_option(name, value, help)->required()->check(kNotEmpty)->type_name("");
}

void Arguments::optional(const char* name, std::string& value, const char* help) {
    texts_.push_back(&value);
    app_.add_option(name, value, help)->check(kNotEmpty)->type_name("");
}

void Arguments::flag(const char* names, bool& value, const char* help) {
    app_.add_flag(names, value, help);
}

void Arguments::text(const char* names, const char* metavar, std::string& value, const char* help) {
    texts_.push_back(&value);
    app_.add_option(names, value, help)->check(kNotEmpty)->type_name(metavar);
}

void Arguments::page(std::string& path) {
    text("--html", "FILE", path,
         "write what was done and found as a page for the file of the job; {serial} is replaced");
    isOutput(path);
}

void Arguments::number(const char* names, const char* metavar, std::optional<int>& value, int low, int high,
                       const char* help) {
    app_.add_option_function<int>(
            names, [&value](const int& number) { value = number; }, help)
        ->check(CLI::Range(low, high))
        ->type_name(metavar);
}

void Arguments::seconds(const char* nameWithUsual, std::string& value, double low, double high, const char* help) {
    // A flag that may have a value: a word behind it is none.
    app_.add_flag(nameWithUsual, value, help)->check(CLI::Range(low, high));
}

void Arguments::word(const char* name, std::string& value, const std::vector<std::string>& allowed, const char* help) {
    choices_[name] = allowed;
    app_.add_option(name, value, help)->required()->check(CLI::IsMember(allowed))->type_name("");
}

void Arguments::choice(const char* names, const char* metavar, std::string& value,
                       const std::vector<std::string>& allowed, const char* help) {
    choices_[names] = allowed;
    app_.add_option(names, value, help)->check(CLI::IsMember(allowed))->type_name(metavar);
}

namespace {

std::uint32_t parsed(const std::string& text, std::uint64_t least, std::uint64_t most, const char* what) {
    const auto value = tavo::parseNumber(text);
    if (value && *value >= least && *value <= most) return static_cast<std::uint32_t>(*value);
    throw CLI::ValidationError("'" + text + "' is no " + what);
}

}  // namespace

void Arguments::size(const char* names, std::optional<unsigned>& value, const char* help) {
    app_.add_option_function<std::string>(
            names, [&value](const std::string& text) { value = parsed(text, 1, 0x80000000U, "size: 65536, 512K, 1M"); },
            help)
        ->type_name("SIZE");
}

void Arguments::address(const char* names, std::optional<std::uint32_t>& value, const char* help) {
    app_.add_option_function<std::string>(
            names,
            [&value](const std::string& text) {
                value = parsed(text, 0, tavo::kAddressable - 1, "address of the flash: 0x10000, 65536, 64K");
            },
            help)
        ->type_name("ADDRESS");
}

namespace {

const std::vector<std::string> kProgressModes{"auto", "bar", "plain", "json", "none"};
const std::vector<std::string> kColorModes{"auto", "always", "never"};

constexpr const char* kExitCodes =
    "Exit codes: 0 done, 2 wrong usage, 3 no device, 4 several devices, 5 no permission, 6 busy,\n"
    "7 file refused, 8 file system, 9 contents differ, 10 failed with the flash unchanged,\n"
    "11 failed with the flash erased or incomplete, 12 no answer, 13 needs confirmation,\n"
    "130 interrupted, 1 internal error.";

/// Commands first, in one column with both their words; options wrapped to a terminal's width.
class HelpText : public CLI::Formatter {
public:
    static constexpr std::size_t kColumn = 30;
    static constexpr std::size_t kWidth = 80;

    HelpText() {
        column_width(kColumn);
        label("Positionals", "Arguments");
    }
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
    std::string make_subcommands(const CLI::App* app, CLI::AppFormatMode mode) const override;
    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_option_name(const CLI::Option* option, bool positional) const override;
    std::string make_option_opts(const CLI::Option* option) const override;
    std::string make_option_desc(const CLI::Option* option) const override;
};

std::string HelpText::make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const {
    std::string description = app->get_description();
    if (!description.empty()) description[0] = static_cast<char>(std::toupper(description[0]));
    return make_usage(app, name) + "\n" + description + "\n" + make_subcommands(app, mode) + make_positionals(app) +
           make_groups(app, mode) + make_footer(app);
}

std::string HelpText::make_option_name(const CLI::Option* option, bool positional) const {
    std::string name = option->get_name(positional, true);
    if (const auto value = name.find('{'); value != std::string::npos)
        name.replace(value, std::string::npos, "[=SECONDS]");
    if (const auto comma = name.find(','); comma != std::string::npos) name.insert(comma + 1, " ");
    return name;
}

std::string HelpText::make_option_opts(const CLI::Option* option) const {
    if (!option->get_option_text().empty()) return " " + option->get_option_text();
    if (option->get_positional() || option->get_type_size() == 0) return "";
    const std::string type = option->get_type_name();
    const std::string name = type.substr(0, type.find(':'));  // what follows are the checks
    return name.empty() || option->get_name().find('{') != std::string::npos ? "" : " " + name;
}

std::string HelpText::make_option_desc(const CLI::Option* option) const {
    std::istringstream words(option->get_description());
    std::string text;
    std::size_t length = 0;
    for (std::string word; words >> word; length += word.size()) {
        const bool fits = length + 1 + word.size() <= kWidth - kColumn;
        if (!text.empty()) text += fits ? " " : "\n";
        length = fits && !text.empty() ? length + 1 : 0;
        text += word;
    }
    return text;
}

std::string HelpText::make_subcommands(const CLI::App* app, CLI::AppFormatMode) const {
    const std::string group = app->get_parent() == nullptr ? "" : app->get_name() + " ";
    std::string text = "\nCommands:\n";
    for (const auto& command : commands()) {
        const std::string name = command.name;
        if (name.rfind(group, 0) != 0) continue;
        text += "  " + name + std::string(std::max<std::size_t>(name.size() + 1, 22) - name.size(), ' ') +
                command.summary + "\n";
    }
    return app->get_subcommands({}).empty() ? "" : text;
}

std::string HelpText::make_usage(const CLI::App* app, std::string name) const {
    std::string text = "Usage: " + (name.empty() ? app->get_name() : name);
    text += app->get_parent() == nullptr ? " [global options] command [options]" : " [options]";
    if (app->get_parent() != nullptr && !app->get_subcommands({}).empty()) text += " command";
    for (const CLI::Option* option : app->get_options()) {
        if (!option->get_positional()) continue;
        text += option->get_required() ? " " + option->get_name() : " [" + option->get_name() + "]";
    }
    return text + "\n";
}

void addDeviceOptions(CLI::App& app, GlobalOptions& options) {
    app.add_option("-d,--device", options.devices,
                   "serial:TEXT, usb:BUS-PORT, neuron:HEX12, sim:DIR[,OPTIONS] or a serial number; may be repeated "
                   "(or TAVO_DEVICE)")
        ->type_name("SPEC")
        ->allow_extra_args(false);
    app.add_flag("--all", options.all, "work on every attached interface")->excludes("-d");
    // A flag with an optional value: "--wait program" must not take the command for its value.
    app.add_flag_function(
           "--wait{60}", [&options](std::int64_t seconds) { options.waitSeconds = static_cast<unsigned>(seconds); },
           "wait for the device to appear, --wait=SECONDS at most (60)")
        ->check(CLI::Range(0, 86400));
    app.add_option("--usb-id", options.usbIds, "accept interfaces with other USB IDs")
        ->option_text("VVVV:PPPP")
        ->allow_extra_args(false);
}

void addOutputOptions(CLI::App& app, GlobalOptions& options) {
    app.add_flag("--json", options.json, "one JSON object on standard output");
    app.add_option("--progress", options.progress, "auto, bar, plain, json or none")
        ->check(CLI::IsMember(kProgressModes))
        ->type_name("MODE");
    app.add_option("--color", options.color, "auto, always or never")
        ->check(CLI::IsMember(kColorModes))
        ->type_name("WHEN");
    app.add_flag("-q,--quiet", options.quiet, "only the data asked for and errors");
    app.add_flag("-v,--verbose", options.verbosity, "tell each step; -vv each transfer too");
    app.add_option("--log", options.logFile, "write every detail to FILE")->check(kNotEmpty)->type_name("FILE");
    app.add_flag("-y,--yes", options.yes, "do not ask");
    app.add_flag("-n,--dry-run", options.dryRun, "tell what would be done, do nothing");
}

/// The whole command line; the functions that run a command keep its arguments alive.
struct CommandLine {
    CLI::App app{"Service operations for USB network interfaces built around a Neuron chip.", "tavo-util"};
    Invocation invocation;
    struct Entry {
        const Command* command;
        CLI::App* app;
        Run run;
        std::map<std::string, std::vector<std::string>> choices;
        std::vector<std::string*> texts;
        std::vector<std::string*> outputs;
        std::function<std::string()> asks;
        std::function<std::string()> asksTogether;
    };
    std::vector<Entry> entries;

    CommandLine();
    CLI::App& groupOf(const std::string& name);
    void add(const Command& command);
};

CommandLine::CommandLine() {
    app.formatter(std::make_shared<HelpText>());
    app.set_help_flag("-h,--help", "this text; 'tavo-util COMMAND --help' tells about one command");
    app.set_version_flag("-V,--version", "tavo-util " TAVO_VERSION, "the version");
    app.require_subcommand(1);
    addDeviceOptions(app, invocation.options);
    addOutputOptions(app, invocation.options);
    app.footer("\nTry it without hardware: tavo-util -d sim:demo info\n\n" + std::string(kExitCodes));
    for (const auto& command : commands()) add(command);
}

CLI::App& CommandLine::groupOf(const std::string& name) {
    const auto space = name.find(' ');
    if (space == std::string::npos) return app;
    const std::string group = name.substr(0, space);
    for (CLI::App* found : app.get_subcommands([&](CLI::App* sub) { return sub->get_name() == group; })) return *found;
    const auto all = groups();
    const auto row = std::find_if(all.begin(), all.end(), [&](const Group& each) { return group == each.name; });
    CLI::App* made = app.add_subcommand(group, row == all.end() ? "" : row->summary);
    made->require_subcommand(1)->fallthrough()->footer("");
    made->set_help_flag("-h,--help", "this text");
    return *made;
}

void CommandLine::add(const Command& command) {
    const std::string name = command.name;
    const auto space = name.find(' ');
    CLI::App* sub =
        groupOf(name).add_subcommand(space == std::string::npos ? name : name.substr(space + 1), command.summary);
    sub->fallthrough();
    sub->set_help_flag("-h,--help", "this text");
    sub->footer("\nExamples:\n  " + std::string(command.examples[0]) + "\n  " + command.examples[1] +
                "\n\nGlobal options and exit codes: tavo-util --help");
    Arguments arguments(*sub);
    Run run = command.declare(arguments);
    entries.push_back({&command, sub, std::move(run), arguments.choices(), arguments.texts(), arguments.outputs(),
                       arguments.question(), arguments.togetherQuestion()});
}

void checkUsbIds(const std::vector<std::string>& ids) {
    for (const auto& id : ids) {
        const bool shaped = id.size() == 9 && id[4] == ':' &&
                            id.find_first_not_of("0123456789abcdefABCDEF:") == std::string::npos &&
                            std::count(id.begin(), id.end(), ':') == 1;
        if (!shaped)
            throw CLI::ValidationError("--usb-id", "'" + id + "' is not of the form VVVV:PPPP, like 04B4:0004");
    }
}

/// Letters to change, add or take away to make one word of the other.
std::size_t distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j < row.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t change = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, change});
        }
    }
    return row.back();
}

/// How far a typed word is from a known one: the beginning of it counts as near.
std::size_t farness(const std::string& typed, const std::string& name, std::size_t abbreviation) {
    const bool begun = typed.size() >= abbreviation && name.rfind(typed, 0) == 0;
    return begun ? 1 : distance(typed, name);
}

/// The known word that was probably meant; empty when none is near.
std::string closestTo(const std::string& typed, const std::vector<std::string>& known, std::size_t abbreviation) {
    std::size_t closest = 3;  // two wrong letters may be a slip
    std::string found;
    for (const auto& name : known) {
        const std::size_t far = farness(typed, name, abbreviation);
        if (far < closest) found = name;
        closest = std::min(far, closest);
    }
    return found;
}

/// What is wrong with a command line, and what to do.
struct Advice {
    std::string text;
    std::string hint;
};

/// CLI11 calls a misspelt command a missing one.
/// @param group  the first word and a blank, for the commands of a group; else empty
Advice unknownCommand(const std::string& group, const std::vector<std::string>& rest) {
    constexpr std::size_t kAbbreviation = 2;
    const std::string list = "tavo-util " + group + "--help lists the commands";
    if (rest.empty() && group.empty()) return {"no command given", list};
    if (rest.empty()) return {"which command of " + group.substr(0, group.size() - 1) + "?", list};
    std::vector<std::string> words;
    for (const auto& command : commands()) {
        const std::string name = command.name;
        if (name.rfind(group, 0) != 0) continue;
        words.push_back(name.substr(group.size(), name.find(' ', group.size()) - group.size()));
    }
    const std::string meant = closestTo(rest.front(), words, kAbbreviation);
    return {"unknown command " + group + rest.front(),
            meant.empty() ? list : "did you mean tavo-util " + group + meant + "? " + list};
}

std::vector<std::string> namesOf(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const auto& name : option.get_lnames()) names.push_back("--" + name);
    for (const auto& name : option.get_snames()) names.push_back("-" + name);
    return names;
}

/// Those that help shows.
std::vector<std::string> optionNames(const CLI::App& app) {
    std::vector<std::string> all;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_group().empty()) continue;
        for (const auto& name : namesOf(*option)) all.push_back(name);
    }
    return all;
}

/// @param words  of the command that was found, with a blank behind each
Advice unknownOption(const std::string& typed, const std::string& words, const CLI::App& command,
                     const CommandLine& line) {
    constexpr std::size_t kAbbreviation = 4;  // "--pr"
    const std::string name = typed.substr(0, typed.find('='));
    const std::string text = "unknown option " + name;
    const std::string list = "tavo-util " + words + "--help lists the options";
    std::vector<std::string> known = optionNames(command);
    for (const auto& global : optionNames(line.app)) known.push_back(global);
    const bool isLong = name.rfind("--", 0) == 0;
    if (const std::string meant = closestTo(name, known, kAbbreviation); isLong && !meant.empty()) {
        return {text, "did you mean " + meant + "? " + list};
    }
    for (const auto& entry : line.entries) {
        const auto others = optionNames(*entry.app);
        if (std::find(others.begin(), others.end(), name) == others.end()) continue;
        return {text, name + " is an option of tavo-util " + entry.command->name + "; " + list};
    }
    return {text, list};
}

/// What CLI11 says, and for a missing word the words that it may be.
std::string missingText(const CLI::ParseError& error, const CLI::App* chosen, const CommandLine& line) {
    std::string text = error.what();
    for (const auto& entry : line.entries) {
        if (entry.app != chosen) continue;
        for (const auto& [name, words] : entry.choices) {
            if (text.rfind(name + " is required", 0) == 0) text += ": " + CLI::detail::join(words, ", ");
        }
    }
    return text;
}

/// The flag whose value stands apart from it, as in "--watch 5"; empty for none.
std::string flagWithValueApart(const std::vector<std::string>& rest, const CLI::App& chosen, const CommandLine& line) {
    if (rest.size() != 1 || !tavo::parseNumber(rest.front())) return "";
    for (const CLI::App* app : {&chosen, static_cast<const CLI::App*>(&line.app)}) {
        for (const CLI::Option* option : app->get_options()) {
            if (option->count() > 0 && option->get_name(false, true).find('{') != std::string::npos)
                return option->get_name();
        }
    }
    return "";
}

Advice explained(const CLI::ParseError& error, const CommandLine& line) {
    const CLI::App* chosen = &line.app;
    std::string words;
    while (!chosen->get_subcommands().empty()) {
        chosen = chosen->get_subcommands().front();
        words += chosen->get_name() + " ";
    }
    const auto rest = line.app.remaining(true);
    const auto option =
        std::find_if(rest.begin(), rest.end(), [](const auto& word) { return word.rfind('-', 0) == 0; });
    const bool isGroup = !chosen->get_subcommands([](const CLI::App*) { return true; }).empty();
    const bool isMissing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    const bool isUnexpected = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    if ((isMissing || isUnexpected) && option != rest.end()) return unknownOption(*option, words, *chosen, line);
    if (isGroup && isMissing) return unknownCommand(words, rest);
    if (const std::string flag = flagWithValueApart(rest, *chosen, line); isUnexpected && !flag.empty())
        return {missingText(error, chosen, line), "the value is joined to it: " + flag + "=" + rest.front()};
    return {missingText(error, chosen, line), "tavo-util " + words + "--help"};
}

int usageError(const CLI::ParseError& error, const CommandLine& line, int argc, char** argv) {
    const bool json = std::any_of(argv, argv + argc, [](const char* arg) { return std::strcmp(arg, "--json") == 0; });
    Log log;
    Progress progress(log);
    Report report(log, progress);
    report.configure(json, false);
    report.stateText = "nothing done";
    const auto [text, hint] = explained(error, line);
    report.failure({Exit::Usage, text, hint, {}});
    return report.finish(Exit::Usage);
}

void takeEnvironment(GlobalOptions& options) {
    const char* device = std::getenv("TAVO_DEVICE");
    if (options.devices.empty() && !options.all && device != nullptr && *device != '\0') options.devices = {device};
}

/// What stands for an option's value in help; empty for a flag.
std::string valueName(const CLI::Option& option) {
    if (option.get_type_size() == 0) return "";
    if (!option.get_option_text().empty()) return option.get_option_text();
    const std::string type = option.get_type_name();
    return type.substr(0, type.find(':'));  // what follows are the checks
}

using Choices = std::map<std::string, std::vector<std::string>>;

std::vector<OptionWords> optionWords(const CLI::App& app, const Choices& choices) {
    std::vector<OptionWords> words;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional() || option->get_group().empty()) continue;
        OptionWords row{namesOf(*option), option->get_description(), valueName(*option), {}};
        if (const auto found = choices.find(option->get_name()); found != choices.end()) row.choices = found->second;
        words.push_back(row);
    }
    return words;
}

std::vector<ArgumentWords> argumentWords(const CommandLine::Entry& entry) {
    std::vector<ArgumentWords> words;
    for (const CLI::Option* option : entry.app->get_options()) {
        if (!option->get_positional()) continue;
        words.push_back({option->get_name(), {}});
        const auto choices = entry.choices.find(option->get_name());
        if (choices != entry.choices.end()) words.back().choices = choices->second;
    }
    return words;
}

}  // namespace

std::string helpText(const std::vector<std::string>& words) {
    CommandLine line;
    const CLI::App* app = &line.app;
    std::string parents;
    for (const auto& word : words) {
        const auto found = app->get_subcommands([&](const CLI::App* sub) { return sub->get_name() == word; });
        const std::string group = app == &line.app ? "" : app->get_name() + " ";
        if (found.empty()) {
            const auto [text, hint] = unknownCommand(group, {word});
            throw Failure{Exit::Usage, text, hint, {}};
        }
        parents += (parents.empty() ? "" : " ") + app->get_name();
        app = found.front();
    }
    return app->help(parents);
}

std::vector<CommandWords> commandWords() {
    CommandLine line;
    std::vector<CommandWords> words{
        {"", "", optionWords(line.app, {{"--progress", kProgressModes}, {"--color", kColorModes}}), {}}};
    for (const auto& entry : line.entries) {
        words.push_back({entry.command->name, entry.command->summary, optionWords(*entry.app, entry.choices),
                         argumentWords(entry)});
    }
    return words;
}

Invocation readCommandLine(int argc, char** argv) {
    // The commands' functions keep their arguments themselves.
    CommandLine line;
    Invocation& invocation = line.invocation;
    try {
        line.app.parse(argc, argv);
        checkUsbIds(invocation.options.usbIds);
    } catch (const CLI::Success& success) {
        line.app.exit(success);
        return invocation;
    } catch (const CLI::ParseError& error) {
        invocation.exitCode = usageError(error, line, argc, argv);
        return invocation;
    }
    for (const auto& entry : line.entries) {
        if (!entry.app->parsed()) continue;
        invocation.command = entry.command;
        invocation.run = entry.run;
        invocation.texts = entry.texts;
        invocation.outputs = entry.outputs;
        invocation.asks = entry.asks;
        invocation.asksTogether = entry.asksTogether;
    }
    // What works without a device touches one only when it is asked for on this very command line.
    if (invocation.command != nullptr && invocation.command->needs != Needs::NamedDevice)
        takeEnvironment(invocation.options);
    return invocation;
}

}  // namespace cli
