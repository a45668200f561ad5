// Messages about wrong options and arguments.
// SPDX-License-Identifier: MIT
#include "cli/usage_failure.h"

#include "cli/similar_name.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <map>
#include <system_error>
#include <vector>

namespace tarn
{

namespace
{

Failure failure(const std::string& problem, const std::string& help)
{
    return {EX_USAGE, problem + "; see " + help};
}

/// The app, or the command that was chosen in it.
const CLI::App& chosenIn(const CLI::App& app)
{
    const std::vector<CLI::App*> commands = app.get_subcommands();
    return commands.empty() ? app : *commands.front();
}

bool takesNoValue(const CLI::Option& option)
{
    return option.get_items_expected_max() == 0;
}

/// The letters of an option, in lower case, without dashes and value.
std::string wordOf(const std::string& typed)
{
    std::string word = typed.substr(0, typed.find('='));
    word.erase(0, std::min(word.find_first_not_of('-'), word.size()));
    return CLI::detail::to_lower(word);
}

Failure unknownOption(const CLI::App& command, const std::string& typed, const std::string& help)
{
    std::vector<std::string> names;
    for (const CLI::Option* const option : command.get_options())
        names.insert(names.end(), option->get_lnames().begin(), option->get_lnames().end());
    const std::string similar = similarName(wordOf(typed), names);
    if (similar.empty()) return failure(typed + ": no such option (a file of that name is ./" + typed + ")", help);
    return {EX_USAGE, typed + ": no such option; did you mean --" + similar + "? See " + help};
}

Failure unknownName(const CLI::App& app, const std::string& typed, const std::string& help)
{
    if (!app.get_subcommands().empty() || app.get_subcommands({}).empty())
        return failure(typed + ": one name too many", help);
    const std::string similar = similarName(typed, {"upmix", "film", "info", "meter", "demo"});
    if (similar.empty()) return failure(typed + ": no such command; use upmix, film, info, meter or demo", help);
    return {EX_USAGE, typed + ": no such command; did you mean " + similar + "? See " + help};
}

/// The message about an option that has too many values or too few.
///
/// text  of the option parser; it begins with the name of the option, without dashes for some errors
Failure wrongCount(const CLI::App& command, const std::string& text, const std::string& help)
{
    std::string name = text.substr(0, text.find_first_of(": "));
    if (!name.starts_with('-')) name = (name.size() == 1 ? "-" : "--") + name;
    const CLI::Option* const option = command.get_option_no_throw(name);
    if (option == nullptr) return failure(text, help);
    if (takesNoValue(*option)) return failure(name + ": takes no value; write " + name + " alone", help);
    if (option->count() > 1) return failure(name + ": is given more than once; leave one out", help);
    return failure(name + ": needs a value: " + name + " " + option->get_type_name(), help);
}

bool isNumber(const std::string& text)
{
    double number = 0.0;
    return CLI::detail::lexical_cast(text, number);
}

} // namespace

Failure usageFailure(const CLI::App& app, const CLI::ParseError& error, const std::string& help)
{
    const CLI::App& command = chosenIn(app);
    const std::vector<std::string> leftOver = app.remaining(true);
    const auto is = [&error](CLI::ExitCodes code) { return error.get_exit_code() == static_cast<int>(code); };
    if (is(CLI::ExitCodes::ExtrasError) && !leftOver.empty())
        return leftOver.front().starts_with('-') ? unknownOption(command, leftOver.front(), help)
                                                 : unknownName(app, leftOver.front(), help);
    if (is(CLI::ExitCodes::ArgumentMismatch)) return wrongCount(command, error.what(), help);
    return failure(error.what(), help);
}

void refuseStrayNumbers(const CLI::App& command, const std::string& help)
{
    std::map<const CLI::Option*, std::size_t> valuesBefore;
    const CLI::Option* previous = nullptr;
    std::error_code ignored;
    for (const CLI::Option* const option : command.parse_order()) {
        const std::size_t place = valuesBefore[option]++;
        if (previous != nullptr && takesNoValue(*previous) && option->get_positional()) {
            const std::string& value = option->results()[place];
            if (isNumber(value) && !std::filesystem::exists(value, ignored))
                throw failure(previous->get_name() + ": takes no value; leave " + value + " out", help);
        }
        previous = option;
    }
}

} // namespace tarn
