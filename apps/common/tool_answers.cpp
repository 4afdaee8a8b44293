#include <common/tool_answers.h>

#include <common/completion.h>

std::optional<std::string> toolAnswer(const CLI::App& app,
                                      const std::vector<std::string>& arguments)
{
    if (arguments.empty() || arguments.front() != "--complete") {
        return std::nullopt;
    }
    std::string lines;
    for (const std::string& candidate :
         completions(app, {arguments.begin() + 1, arguments.end()})) {
        lines += candidate + "\n";
    }
    return lines;
}
