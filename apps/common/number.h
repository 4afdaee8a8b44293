#pragma once

#include <QString>

#include <optional>

namespace CLI {
class Validator;
}

/// Whole numbers as the options of all programs take them, within a range.
struct NumberRange
{
    int least;
    int most;
};

/// Reads \a text as parameters of modules are read, decimal or with 0x. Nothing when it is no
/// whole number, or lies outside \a range.
std::optional<int> parseNumber(const QString& text, NumberRange range);

/// What to tell when it is nothing, such as "'x' is not a number 0 to 65535".
QString notInRange(const QString& text, NumberRange range);

/// The same for an option of type int: `option->transform(numberIn({0, 65535}))`.
CLI::Validator numberIn(NumberRange range);
