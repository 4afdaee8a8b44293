#include <common/manual.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

namespace {

using Options = std::vector<const CLI::Option*>;

constexpr const char* ownGroup = "Options"; // the parser's own name for those without a group
constexpr std::size_t longestLine = 78;

// A word as it is to be seen: nothing of it is a request, a hyphen can be copied as one, and a list
// may be broken at its bars.
std::string escapedWord(const std::string& word)
{
    static const std::map<char, std::string> codes{
        {'\\', "\\(rs"}, {'-', "\\-"},   {'\'', "\\(aq"}, {'`', "\\(ga"},
        {'^', "\\(ha"},  {'~', "\\(ti"}, {'"', "\\(dq"},  {'|', "|\\:"},
    };
    std::string result = word.substr(0, 1) == "." ? "\\&" : "";
    for (const char c : word) {
        const auto code = codes.find(c);
        result += code != codes.end() ? code->second : std::string(1, c);
    }
    return result;
}

// Its source lines are short, as long as its words are.
std::string escaped(const std::string& text)
{
    std::istringstream words(text);
    std::string result;
    std::size_t lineStart = 0;
    for (std::string word; words >> word;) {
        word = escapedWord(word);
        const bool fits = result.size() - lineStart + word.size() < longestLine;
        if (!result.empty()) {
            result += fits ? ' ' : '\n';
            lineStart = fits ? lineStart : result.size();
        }
        result += word;
    }
    return result;
}

std::string bold(const std::string& text) { return "\\fB" + escaped(text) + "\\fR"; }

std::string names(const CLI::Option& option)
{
    std::string result;
    const auto add = [&](const std::string& name) {
        result += (result.empty() ? "" : ", ") + bold(name);
    };
    for (const std::string& name : option.get_snames()) {
        add("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        add("--" + name);
    }
    return result.empty() ? bold(option.get_name()) : result;
}

// A label such as "0..65535, default 1".
std::string labelText(const CLI::Option& option)
{
    const std::string& label = option.get_option_text();
    const std::size_t end = std::min(label.find(", "), label.size());
    return label.empty()
        ? std::string()
        : " \\fI" + escaped(label.substr(0, end)) + "\\fR" + escaped(label.substr(end));
}

std::string entry(const CLI::Option& option)
{
    return ".TP\n" + names(option) + labelText(option) + "\n" + escaped(option.get_description())
        + "\n";
}

std::string entries(const Options& options)
{
    std::string text;
    for (const CLI::Option* option : options) {
        text += entry(*option);
    }
    return text;
}

std::string upperCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::string lowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

class Manual
{
public:
    explicit Manual(const CLI::App& app) : m_app(app)
    {
        collectSections();
        collectCommands();
    }

    std::string text() const;

private:
    struct Command
    {
        const CLI::App* app;
        Options own; // those that are not in a section
        std::set<std::string> groups; // whose sections it refers to
    };

    using Section = std::pair<std::string, Options>; // a group of options that is shown once

    void collectSections();
    void collectCommands();
    Section& section(const std::string& group);
    const CLI::Option* find(const CLI::Option& alike, std::string& group) const;
    std::string commandText(const Command& command) const;

    const CLI::App& m_app;
    std::vector<Command> m_commands;
    std::vector<Section> m_sections;
};

void Manual::collectSections()
{
    for (const CLI::Option* option : m_app.get_options()) {
        section(option->get_group()).second.push_back(option);
    }
    for (const CLI::App* command : m_app.get_subcommands({})) {
        for (const CLI::Option* option : command->get_options()) {
            std::string group = option->get_group();
            if (group != ownGroup && find(*option, group) == nullptr) {
                section(group).second.push_back(option);
            }
        }
    }
}

Manual::Section& Manual::section(const std::string& group)
{
    const auto known = std::find_if(m_sections.begin(), m_sections.end(),
                                    [&](const auto& section) { return section.first == group; });
    return known != m_sections.end() ? *known : m_sections.emplace_back(group, Options());
}

// The option of these names in a section, with its group.
const CLI::Option* Manual::find(const CLI::Option& alike, std::string& group) const
{
    for (const Section& section : m_sections) {
        for (const CLI::Option* option : section.second) {
            if (names(*option) == names(alike)) {
                group = section.first;
                return option;
            }
        }
    }
    return nullptr;
}

// One that differs from that in the section, such as in its default, is shown with its command.
void Manual::collectCommands()
{
    for (const CLI::App* command : m_app.get_subcommands({})) {
        Command& added = m_commands.emplace_back(Command{command, {}, {}});
        for (const CLI::Option* option : command->get_options()) {
            std::string group;
            const CLI::Option* known = find(*option, group);
            if (known == nullptr || entry(*known) != entry(*option)) {
                added.own.push_back(option);
            } else if (group != ownGroup) {
                added.groups.insert(group);
            }
        }
    }
}

std::string Manual::commandText(const Command& command) const
{
    std::string text = ".SS " + escaped(command.app->get_name()) + "\n"
        + escaped(command.app->get_description()) + ".\n" + entries(command.own);
    std::string groups;
    for (const std::string& group : command.groups) {
        groups += (groups.empty() ? "" : " and the ") + lowerCase(escaped(group));
    }
    return groups.empty() ? text : text + ".PP\nAlso takes the " + groups + ".\n";
}

std::string Manual::text() const
{
    std::string text;
    for (const auto& [group, options] : m_sections) {
        text += ".SH " + upperCase(escaped(group)) + "\n" + entries(options);
    }
    if (!m_commands.empty()) {
        text += ".SH COMMANDS\n";
    }
    for (const Command& command : m_commands) {
        text += commandText(command);
    }
    return text;
}

} // namespace

std::string manualSections(const CLI::App& app) { return Manual(app).text(); }
