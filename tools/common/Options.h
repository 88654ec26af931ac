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

/// Sets the number if the text is one from `lowest` to `highest`. @return an empty text, or what is wrong.
/// @param expected what is expected; empty: "a number from … to …".
template <typename Number> std::string take(const std::string& text, Number& number, Number lowest,
                                            Number highest, const std::string& expected = "")
{
    Number value{};
    if (parse(text, value) && value >= lowest && value <= highest) {
        number = value;
        return "";
    }
    const std::string range =
        "a number from " + std::to_string(lowest) + " to " + std::to_string(highest);
    return complaint(text, expected.empty() ? range : expected);
}

/// Adds an option that takes such a number. @param nameAndType such as "--timeout MS".
template <typename Number> void addNumber(CLI::App& app, const std::string& nameAndType,
                                          Number& target, Number lowest, Number highest,
                                          const std::string& help, const std::string& expected = "")
{
    const std::size_t blank = nameAndType.find(' ');
    const std::string name = nameAndType.substr(0, blank);
    const auto store = [=, &target](const std::string& text) {
        if (const auto wrong = take(text, target, lowest, highest, expected); !wrong.empty()) {
            throw CLI::ValidationError(name, wrong);
        }
    };
    app.add_option_function<std::string>(name, store, help)
        ->type_name(nameAndType.substr(blank + 1));
}

} // namespace Tool
