#include <common/completion.h>

#include <algorithm>
#include <sstream>

namespace {

using Words = std::vector<std::string>;

bool beginsWith(const std::string& text, const std::string& beginning)
{
    return text.compare(0, beginning.size(), beginning) == 0;
}

// Placeholders in a label have capitals only, ranges begin with a digit.
Words listedValues(const std::string& label)
{
    const std::string list = label.substr(0, label.find(','));
    const std::string lower = "abcdefghijklmnopqrstuvwxyz";
    const bool isList = list.find('|') != std::string::npos
        || list.find_first_not_of(lower + "-") == std::string::npos;
    if (!isList || list.find_first_of(" .:[]=") != std::string::npos) {
        return {};
    }
    std::istringstream stream(list);
    Words values;
    for (std::string value; std::getline(stream, value, '|');) {
        values.push_back(value);
    }
    return values;
}

bool takesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

bool isRepeatable(const CLI::Option& option)
{
    return option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll
        || option.get_items_expected_max() > 1;
}

// Where the words before the last one have led to.
class Place
{
public:
    explicit Place(const CLI::App& app) : m_app(&app) { }

    void follow(const std::string& word);
    Words candidates(const std::string& beginning) const;

private:
    void followOption(const std::string& word);
    void followCommand(const std::string& word);
    Words options(const std::string& beginning) const;
    Words commands(const std::string& beginning) const;
    bool wantsPositional() const;

    const CLI::App* m_app;
    const CLI::Option* m_pending = nullptr; // its value comes next
    std::vector<const CLI::Option*> m_given;
};

void Place::follow(const std::string& word)
{
    if (m_pending != nullptr) {
        m_pending = nullptr;
    } else if (beginsWith(word, "-")) {
        followOption(word);
    } else {
        followCommand(word);
    }
}

void Place::followCommand(const std::string& word)
{
    const auto named = [&](const CLI::App* command) { return command->get_name() == word; };
    const auto found = m_app->get_subcommands(named);
    if (!found.empty()) {
        m_app = found.front();
        m_given.clear();
    }
}

void Place::followOption(const std::string& word)
{
    const std::string name = word.substr(0, word.find('='));
    const CLI::Option* option = m_app->get_option_no_throw(name);
    if (option != nullptr) {
        m_given.push_back(option);
        m_pending = takesValue(*option) && name == word ? option : nullptr;
    }
}

Words valuesOf(const CLI::Option& option, const std::string& beginning)
{
    if (beginsWith(option.get_option_text(), "FILE")) {
        return {filesWanted};
    }
    Words values = listedValues(option.get_option_text());
    values.erase(std::remove_if(values.begin(), values.end(),
                                [&](const auto& value) { return !beginsWith(value, beginning); }),
                 values.end());
    return values;
}

// Of an option's names one is enough, the last that fits.
Words Place::options(const std::string& beginning) const
{
    Words found;
    for (const CLI::Option* option : m_app->get_options()) {
        const bool given = std::find(m_given.begin(), m_given.end(), option) != m_given.end();
        const Words& names = option->get_lnames();
        const auto fits = [&](const auto& name) { return beginsWith("--" + name, beginning); };
        const auto name = std::find_if(names.rbegin(), names.rend(), fits);
        if (name != names.rend() && (!given || isRepeatable(*option))) {
            found.push_back("--" + *name);
        }
    }
    return found;
}

Words Place::commands(const std::string& beginning) const
{
    Words found;
    for (const CLI::App* command : m_app->get_subcommands({})) {
        if (beginsWith(command->get_name(), beginning)) {
            found.push_back(command->get_name());
        }
    }
    return found;
}

bool Place::wantsPositional() const
{
    return !m_app->get_options([](const auto* option) { return option->get_positional(); }).empty();
}

Words Place::candidates(const std::string& beginning) const
{
    if (m_pending != nullptr) {
        return valuesOf(*m_pending, beginning);
    }
    const std::size_t separator = beginning.find('=');
    if (beginsWith(beginning, "-") && separator != std::string::npos) {
        const CLI::Option* option = m_app->get_option_no_throw(beginning.substr(0, separator));
        return option != nullptr ? valuesOf(*option, beginning.substr(separator + 1)) : Words();
    }
    if (beginsWith(beginning, "-")) {
        return options(beginning);
    }
    if (wantsPositional()) {
        return {filesWanted};
    }
    return m_app->get_subcommands({}).empty() ? options(beginning) : commands(beginning);
}

} // namespace

std::vector<std::string> completions(const CLI::App& app, const std::vector<std::string>& words)
{
    if (words.empty()) {
        return {};
    }
    Place place(app);
    std::for_each(words.begin(), words.end() - 1, [&](const auto& word) { place.follow(word); });
    return place.candidates(words.back());
}
