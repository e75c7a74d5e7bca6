#include "program/command_lines.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <set>
#include <stdexcept>
#include <utility>

#include "program.h"

namespace fuzzing {

bool Has(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

namespace {

using Values = std::vector<std::string>;

const Values kTimes = {"@1700000000", "@1700000005", "2023-11-14", "@0",
                       "@4294967295", "@1700090004", "1970-01-01", "2106-02-07"};
const Values kMasks = {"0x1", "all", "0xFFFFFFFFFFFFFFFF"};

/// What options are given: "COMMAND OPTION" where commands differ, else "OPTION". Most of it makes sense, or a run would end
/// before the disk is read.
const std::map<std::string, Values>& AllValues() {
    static const std::map<std::string, Values> values = {
        {"PARTITION", {"{disk}"}},
        {"DISK", {"{disk}"}},
        {"MANIFEST", {"{manifest}", "{manifest}", "{master manifest}", "{damaged manifest}"}},
        {"ACTION", {"add", "list", "find", "remove"}},
        {"WHAT", {}}, // as the action wants it
        {"--verbose", {}},
        {"--json", {}},
        {"--utc", {}},
        {"--tz", {"Europe/Berlin", "America/St_Johns"}},
        {"--format", {"json", "ndjson", "csv", "text"}},
        {"timeline --format", {"text"}},
        {"dump --format", {"text"}},
        {"report --format", {"text"}},
        {"--partition", {"1", "2", "4294967295"}},
        {"--skew", {"3600", "-3600", "4294967295", "-4294967295"}},
        {"--clock-check", {"2023-11-14 22:13:20=2023-11-14 22:13:10"}},
        {"--names", {"{names}"}},
        {"--disk-type", {"1", "0", "52", "19", "2147483647"}},
        {"--password-file", {"{password}", "{wrong password}"}},
        {"--ask-password", {}},
        {"--from", kTimes},
        {"--to", {"@4294967295", "@1700000012", "@1700200000", "2106-02-07", "2023-11-15"}},
        {"--channel", {"all", "0", "31", "0-31", "1,31"}},
        {"--alarm", kMasks},
        {"--silence", {"1s", "5m", "1h", "100d"}},
        {"--mix", {}},
        {"--full", {}},
        {"--decode", {}},
        {"--svg", {"{out}/timeline.svg"}},
        {"--html", {"{out}/timeline.html"}},
        {"--force", {}},
        {"--record", {"0/0/0", "0/31", "1/1/0", "3/0/1", "4294967295/0/0", "1/31/4294967295"}},
        {"--unit", {"0", "1", "2", "3", "4294967295"}},
        {"--seek", kTimes},
        {"--iframes", {}},
        {"--backward", {}},
        {"--at", {"@1700000004.5", "@1700090010", "@4294967295", "@0", "2023-11-15 23:13:30"}},
        {"still --output", {"{out}/picture.jpg", "{out}/picture.png", "{out}/"}},
        {"export --output", {"{out}/film.mkv", "{out}/film.mp4", "{out}/film", "-"}},
        {"extract --output", {"{out}/part.img"}},
        {"report --output", {"{out}/report.html"}},
        {"--pictures", {"12", "0", "1"}},
        {"--sheet", {}},
        {"--every", {"1s", "10s", "100d"}},
        {"--columns", {"1", "8"}},
        {"--manifest", {"{out}/film.json"}},
        {"--split", {"journey", "channel"}},
        {"--no-audio", {}},
        {"--aac", {}},
        {"--list", {"{list}"}},
        {"--no-clock", {}},
        {"--journey", {"1", "2", "4294967295"}},
        {"--event", {"0/0", "1/0", "0/1", "3/0", "4294967295/4294967295"}},
        {"catalog --event", kMasks},
        {"--around", {"30s", "1s", "100d"}},
        {"--raw", {}},
        {"--container", {"matroska", "mp4"}},
        {"--audio", {"alaw:8000", "pcm16:16000", "1=mulaw:8000", "31=adpcm_ima_wav:8000"}},
        {"--case", {"A 7"}},
        {"--operator", {"\xff"}},
        {"--note", {"none"}},
        {"--hash-source", {}},
        {"--sign", {"{key}"}},
        {"--port", {"0"}},
        {"--no-browser", {}},
        {"--export-dir", {"{out}"}},
        {"--source", {"{disk}", "{disk}", "{whole}"}},
        {"--public-key", {"{public key}"}},
        {"--database", {"{database}"}},
        {"--jobs", {"1", "2", "256"}},
        {"--vehicle", {"4711", "x"}},
        {"--level", {"3", "2", "1", "0", "-1", "2147483647", "-2147483648"}},
    };
    return values;
}

/// What hardly any option can take.
const Values& WrongValues() {
    constexpr size_t kLong = 5000;
    static const Values values = {"",
                                  " ",
                                  "-",
                                  "x",
                                  "-1",
                                  "99999999999999999999",
                                  "@",
                                  "@1e999",
                                  "nan",
                                  "0x",
                                  "1-0",
                                  "2023-02-30",
                                  "%s%n",
                                  "\xff\xfe",
                                  "a\nb\x1b[2J",
                                  "\xe2\x80" + std::string("\xae"), // the mark that turns what follows round
                                  "{disk}",
                                  "{manifest}",
                                  "{out}",
                                  std::string(kLong, '7')};
    return values;
}

/// The same for options that name what is written: what they take by mistake must lie in a folder that is looked at.
const Values& WrongPlaces() {
    constexpr size_t kLong = 300;
    static const Values values = {"{disk}",     "{out}",      "{out}/none/here",
                                  "{out}/\xff", "{out}/a\nb", "{out}/" + std::string(kLong, 'n')};
    return values;
}

/// A catalogue stays, also where the disk that was to be added cannot be read. An empty file becomes one: that is no harm, but the
/// disk of a run may be empty.
const Values& WrongDatabases() {
    static const Values values = {"{whole}", "{out}", "{out}/none/here", "{names}",
                                  "postgresql://127.0.0.1:1/none"};
    return values;
}

const Values& WrongValuesOf(const std::string& option) {
    static const std::set<std::string> places = {"--output", "--manifest", "--svg", "--html", "--export-dir"};
    if (option == "--database") {
        return WrongDatabases();
    }
    return places.count(option) != 0 ? WrongPlaces() : WrongValues();
}

const Values& ValuesOf(const std::string& command, const std::string& option) {
    const auto own = AllValues().find(command + " " + option);
    const auto any = own != AllValues().end() ? own : AllValues().find(option);
    if (any == AllValues().end()) {
        throw std::runtime_error("fuzz/program/command_lines.cpp: say what values " + option + " of " +
                                 command + " is to be run with");
    }
    return any->second;
}

/// Without it, this machine's disks would be read, a browser started, the user's own catalogue written, or files would go to
/// the current folder.
bool IsAlwaysGiven(const std::string& option) {
    static const std::set<std::string> always = {"DISK", "--no-browser", "--database", "--source",
                                                 "--export-dir"};
    return always.count(option) != 0;
}

std::string NameOf(const CLI::Option& option) {
    return option.get_lnames().empty() ? option.get_name(true) : "--" + option.get_lnames().front();
}

std::vector<std::string> NamesOf(const std::set<CLI::Option*>& options) {
    std::vector<std::string> names;
    names.reserve(options.size());
    for (const CLI::Option* const option : options) {
        names.push_back(NameOf(*option));
    }
    return names;
}

/// What one option or another is to say, though none of them is needed by itself.
/// @param folder in which outputs lie
void Complete(CommandLine& line, const std::string& folder) {
    if (line.front() == "still" && !Has(line, "--at") && !Has(line, "--sheet")) {
        line.insert(line.end(), {"--at", "@1700000004.5"});
    }
    const auto option = std::find(line.begin(), line.end(), "--output");
    if (option == line.end() || option + 1 == line.end()) {
        return;
    }
    std::string& output = *(option + 1);
    if (Has(line, "--list")) {
        output = folder + "/"; // its files are named by their times
    } else if (Has(line, "--manifest")) {
        output = "-"; // it stands beside any other output
    } else if ((Has(line, "--raw") || Has(line, "--split")) && output.rfind(folder + "/", 0) != 0) {
        output = folder + "/film"; // names begin so: of one elsewhere, the files would not be looked at
    }
}

} // namespace

std::vector<CommandLines::Command> CommandLines::ReadTable() {
    CLI::App app;
    diskaccess::Options options;
    const std::vector<diskaccess::Command> table = diskaccess::AllCommands();
    for (const diskaccess::Command& command : table) {
        command.AddTo(app, options, [](const CLI::App& /*typed*/) {});
    }
    std::vector<Command> commands;
    for (const CLI::App* const command : app.get_subcommands({})) {
        Command made = {command->get_name(), {}};
        for (const CLI::Option* const option : command->get_options()) {
            const std::string name = NameOf(*option);
            if (name != "--help") {
                made.options.push_back({option->get_positional() ? "" : name, ValuesOf(made.name, name),
                                        WrongValuesOf(name), option->get_required() || IsAlwaysGiven(name),
                                        NamesOf(option->get_excludes()), NamesOf(option->get_needs())});
            }
        }
        commands.push_back(std::move(made));
    }
    return commands;
}

CommandLines::CommandLines(std::map<std::string, std::string> places)
    : m_places(std::move(places)), m_commands(ReadTable()) {}

std::string CommandLines::Filled(std::string text) const {
    if (const size_t open = text.find('{'); open != std::string::npos) {
        const size_t close = text.find('}', open);
        text.replace(open, close - open + 1, m_places.at(text.substr(open + 1, close - open - 1)));
    }
    return text;
}

/// @param turn of the command: which of its options is given in any case
CommandLine CommandLines::Line(const Command& command, size_t turn, std::mt19937_64& random) const {
    constexpr uint64_t kLinesPerMistaken = 12;
    constexpr uint64_t kValuesPerWrong = 3; // on such a line
    const bool mistaken = random() % kLinesPerMistaken == 0;
    CommandLine line = {command.name};
    std::vector<std::string> given;
    std::vector<std::string> excluded;
    const auto give = [&](const Option& option) {
        if (!option.name.empty()) {
            if (Has(given, option.name) || Has(excluded, option.name)) {
                return;
            }
            line.push_back(option.name);
            given.push_back(option.name);
            excluded.insert(excluded.end(), option.excludes.begin(), option.excludes.end());
        }
        if (!option.values.empty()) {
            const bool wrong = mistaken && random() % kValuesPerWrong == 0;
            const std::vector<std::string>& values = wrong ? option.wrong : option.values;
            line.push_back(Filled(values.at(random() % values.size())));
        }
    };
    for (const Option& option : command.options) {
        if (option.needed) {
            give(option);
        }
    }
    for (size_t i = 0; i < command.options.size(); ++i) {
        const Option& option = command.options[i];
        if (!option.name.empty() && (i == turn % command.options.size() || random() % 12 == 0)) {
            for (const Option& other : command.options) {
                if (Has(option.needs, other.name)) {
                    give(other);
                }
            }
            give(option);
        }
    }
    return line;
}

std::vector<CommandLine> CommandLines::Of(uint64_t number) const {
    std::mt19937_64 random(~number);
    const Command& command = m_commands.at(CommandOf(number));
    CommandLine line = Line(command, static_cast<size_t>(number / m_commands.size()), random);
    if (command.name == "journeys" && random() % 4 == 0) {
        line.erase(line.begin()); // it is also meant without its name
    }
    Complete(line, m_places.at("out"));
    constexpr uint64_t kRunsPerHelp = 1000;
    if (number % kRunsPerHelp < m_commands.size()) {
        return {{command.name, "--help"}};
    }
    if (command.name != "catalog") {
        return {line};
    }
    const CommandLine add = {"catalog", "add", m_places.at("disk"), "--database", m_places.at("database")};
    if (line.at(1) == "add") {
        line.insert(line.begin() + 2, m_places.at("disk"));
        return {line};
    }
    if (line.at(1) == "remove") {
        line.insert(line.begin() + 2, "1");
    }
    return {add, line};
}

} // namespace fuzzing
