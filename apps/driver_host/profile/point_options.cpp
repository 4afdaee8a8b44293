#include "profile/point_options.h"

#include "cli/command_line.h"
#include "cli/option_text.h"
#include "profile/data_list.h"

#include <common/number.h>

#include <CLI/CLI.hpp>

#include <cmath>

using Points::Role;

namespace {

constexpr const char* pointGroup = "Value options";
constexpr NumberRange itemNumbers{0, Points::Table::size - 1};

QString given(const std::string& option) { return QString::fromStdString(option); }

std::string alternatives(const QStringList& names)
{
    return names.join(QLatin1Char('|')).toStdString();
}

QString oneOf(const QStringList& words)
{
    return QLatin1String("one of ") + words.join(QLatin1String(", "));
}

QString readScale(const char* option, const std::string& text, bool mayBeZero, double& number)
{
    if (text.empty()) {
        return {};
    }
    bool isNumber = false;
    number = given(text).toDouble(&isNumber);
    const bool fits = isNumber && std::isfinite(number) && (mayBeZero || number != 0);
    return fits ? QString()
                : unfit(QLatin1String(option), given(text),
                        QLatin1String(mayBeZero ? "a number" : "a number other than 0"));
}

} // namespace

PointOptions::PointOptions(const ModuleDescription& module, const CommandDescription& command)
    : m_module(module), m_command(command), m_profile(*module.profile.command(command.name))
{
}

const QStringList& PointOptions::names()
{
    static const QStringList all{QStringLiteral("type"),   QStringLiteral("order"),
                                 QStringLiteral("scale"),  QStringLiteral("offset"),
                                 QStringLiteral("values"), QStringLiteral("engineering-unit"),
                                 QStringLiteral("raw")};
    return all;
}

void PointOptions::add(CLI::App& app)
{
    const auto option = [&](const char* name, auto& value, const char* about) {
        return app.add_option(name, value, about)->group(pointGroup);
    };
    option("--type", m_type, "What a value is; without it a word or a bit as it is")
        ->option_text(alternatives(Points::dataTypeNames()));
    option("--order", m_order, "In which order the bytes of a value come")
        ->option_text(alternatives(Points::orderNames()) + ", default ABCD");
    option("--scale", m_scale, "What the number of a value is multiplied by, such as 0.1")
        ->option_text("X, default 1");
    option("--offset", m_offset, "What is added to it then")->option_text("X, default 0");
    if (isRead()) {
        option("--engineering-unit", m_unit, "What values are shown with, such as bar")
            ->option_text("TEXT");
        option("--values", m_values, "How many values of this type to read")
            ->transform(numberIn({1, Points::Table::size}))
            ->option_text("N, default 1");
    }
    app.add_flag("--raw", m_raw, "Give the module what it takes, and show what it answers itself")
        ->group(pointGroup);
}

QString PointOptions::name(Role role) const { return m_profile.parameterOf(role); }

bool PointOptions::isFormatted() const
{
    return !(m_type + m_order + m_scale + m_offset + m_unit).empty();
}

QString PointOptions::fill(const QString& address, const QString& data, Request& request) const
{
    const bool isWhole = !address.isEmpty() && (isRead() || !data.isEmpty());
    if (!isWhole) {
        return {}; // it is told what is missing
    }
    if (m_raw && (isFormatted() || m_values > 0)) {
        return QStringLiteral("--raw goes without --type, --order, --scale, --offset, "
                              "--engineering-unit and --values");
    }
    Target target;
    QString error = findTarget(address, request, target);
    if (!error.isEmpty()) {
        return error;
    }
    request.parameters.insert(name(Role::Address), target.address.number);
    request.isOldNumber = target.address.form == Points::Address::Form::Old;
    if (!isRead()) {
        return fillWrite(target, data, request);
    }
    return m_raw ? fillRawRead(target, request) : fillRead(target, request);
}

QString PointOptions::findTarget(const QString& text, const Request& request, Target& target) const
{
    const QString option = optionName(name(Role::Address));
    const QString kindOption = optionName(name(Role::Kind));
    const QString kind = request.parameters.value(name(Role::Kind)).toString();
    const bool namesTable = text.contains(QLatin1Char(':'));
    if (!kind.isEmpty() && !namesTable) {
        return countedTarget(text, kind, target);
    }
    if (!kind.isEmpty()) {
        return QStringLiteral("%1: '%2' names its table, so it goes without %3")
            .arg(option, text, kindOption);
    }
    const Points::AddressReading reading = Points::addressFrom(text, m_module.profile);
    if (!reading.address) {
        return QStringLiteral("%1: %2; with %3 a number counts from 0")
            .arg(option, reading.error, kindOption);
    }
    target.address = *reading.address;
    const bool isWritable = isRead() || target.address.table->mostWritten() > 0;
    return isWritable
        ? QString()
        : QStringLiteral("%1: %2 cannot be written, they are %3")
              .arg(option, target.address.table->name, target.address.table->description);
}

QString PointOptions::countedTarget(const QString& text, const QString& kind, Target& target) const
{
    const Points::Table* table = m_module.profile.tableOf(m_profile.use, kind);
    if (table == nullptr) {
        return unfit(optionName(name(Role::Kind)), kind,
                     oneOf(m_profile.parameters.value(name(Role::Kind)).words));
    }
    const auto number = parseNumber(text, itemNumbers);
    if (!number) {
        return optionName(name(Role::Address)) + QLatin1String(": ")
            + notInRange(text, itemNumbers);
    }
    target.address = {table, *number, Points::Address::Form::Plain, 0};
    target.kind = kind;
    return {};
}

QString PointOptions::readFormat(const Points::Table& table, Points::ValueFormat& format) const
{
    const bool bits = table.holdsBits;
    const QString type = m_type.empty() ? QLatin1String(bits ? "bool" : "uint16") : given(m_type);
    const auto known = Points::dataTypeFrom(type);
    if (!known) {
        return unfit(QStringLiteral("--type"), type, oneOf(Points::dataTypeNames()));
    }
    format.type = *known;
    format.unit = given(m_unit);
    if (bits && (type != QLatin1String("bool") || !m_order.empty())) {
        return QStringLiteral("--type: %1 holds bits, which are bool and have no --order")
            .arg(table.name);
    }
    const auto order = Points::orderFrom(m_order.empty() ? QStringLiteral("ABCD") : given(m_order));
    if (!order || !Points::fits(*order, format.type)) {
        return unfit(QStringLiteral("--order"), given(m_order),
                     order ? QStringLiteral("ABCD or BADC, which a string takes")
                           : oneOf(Points::orderNames()));
    }
    format.order = *order;
    return readNumbers(format);
}

QString PointOptions::readNumbers(Points::ValueFormat& format) const
{
    if (!(m_scale + m_offset).empty() && !Points::isNumber(format.type)) {
        return QStringLiteral("--scale and --offset are for numbers, not for ")
            + Points::dataTypeName(format.type);
    }
    QString error = readScale("--scale", m_scale, false, format.scale);
    return error.isEmpty() ? readScale("--offset", m_offset, true, format.offset) : error;
}
