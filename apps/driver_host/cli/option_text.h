#pragma once

#include <QString>

/// The name of a parameter as that of an option in the help: "dataSize" is "data-size".
QString kebabCase(const QString& name);
/// With the two hyphens.
QString optionName(const QString& parameter);
/// What is wrong with the value of an option, such as "--port: 'x' is not a number 0 to 65535".
QString unfit(const QString& option, const QString& given, const QString& wanted);
