// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include <charconv>
#include <string>

namespace Tool {

/// @return "got 'x', expected y".
std::string complaint(const std::string& given, const std::string& expected);

/// @return whether the whole text is a number; only then `number` is set.
template <typename Number> bool parse(const std::string& text, Number& number)
{
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

/// Adds an option that takes a number from `lowest` to `highest`. @param nameAndType such as "--timeout MS".
/// @param expected what an error message expects; empty: "a number from … to …".
template <typename Number> void addNumber(CLI::App& app, const std::string& nameAndType,
                                          Number& target, Number lowest, Number highest,
                                          const std::string& help, const std::string& expected = "")
{
    const std::size_t blank = nameAndType.find(' ');
    const std::string name = nameAndType.substr(0, blank);
    const std::string range =
        "a number from " + std::to_string(lowest) + " to " + std::to_string(highest);
    const auto store = [=, &target](const std::string& text) {
        Number value{};
        if (!parse(text, value) || !(value >= lowest && value <= highest)) {
            throw CLI::ValidationError(name, complaint(text, expected.empty() ? range : expected));
        }
        target = value;
    };
    app.add_option_function<std::string>(name, store, help)
        ->type_name(nameAndType.substr(blank + 1));
}

} // namespace Tool
