#include "cli/point_options.h"

#include "cli/command_line.h"
#include "cli/data_list.h"
#include "cli/option_text.h"

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

Places placesOf(const QString& title, const Points::Address& address,
                const Points::ValueFormat& format, int items)
{
    Places places;
    places.title = title;
    const int step = address.table->holdsBits ? 1 : Points::wordCount(format.type);
    for (int offset = 0; offset + step <= items; offset += step) {
        places.labels.append(Points::addressText(address, offset));
    }
    places.type = Points::dataTypeName(format.type);
    places.unit = format.unit;
    return places;
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

QString PointOptions::itemCount(const Points::ValueFormat& format, const Request& request,
                                int& items) const
{
    const QString option = optionName(name(Role::Count));
    const int words = Points::wordCount(format.type);
    const QVariant count = request.parameters.value(name(Role::Count));
    if (!count.isValid()) {
        items = words * qMax(1, m_values);
        return {};
    }
    items = count.toInt();
    if (m_values > 0) {
        return QStringLiteral("--values and %1 go not together; the first counts values, the "
                              "second what the module counts")
            .arg(option);
    }
    return items > 0 && items % words == 0
        ? QString()
        : unfit(option, count.toString(),
                QStringLiteral("a multiple of %1, what a value takes, and more than 0").arg(words));
}

QString PointOptions::fillRawRead(const Target& target, Request& request) const
{
    const Points::Access& access = *target.address.table->read;
    const NumberRange range{1, access.limit};
    const QString count = request.parameters.value(name(Role::Count), 1).toString();
    request.parameters.insert(name(Role::Kind), access.kind);
    if (!target.address.table->holdsBits) {
        request.places = placesOf(name(Role::Address), target.address, {}, count.toInt());
    }
    return parseNumber(count, range)
        ? QString()
        : QStringLiteral("%1: %2, as %3 come in one request")
              .arg(optionName(name(Role::Count)), notInRange(count, range), access.kind);
}

QString PointOptions::fillRead(const Target& target, Request& request) const
{
    const Points::Table& table = *target.address.table;
    Points::ValueFormat format;
    QString error = readFormat(table, format);
    int items = 0;
    error = error.isEmpty() ? itemCount(format, request, items) : error;
    if (!error.isEmpty()) {
        return error;
    }
    if (!table.read || (!table.holdsBits && Points::wordCount(format.type) > table.read->limit)) {
        return QStringLiteral("--type: '%1' does not fit one request of %2")
            .arg(Points::dataTypeName(format.type), table.name);
    }
    if (target.address.number + items > Points::Table::size) {
        return QStringLiteral("%1: %2 from %3 on go beyond the last one, %4")
            .arg(optionName(name(Role::Address)), QString::number(items),
                 Points::addressText(target.address),
                 Points::addressText(target.address,
                                     Points::Table::size - 1 - target.address.number));
    }
    request.parameters.insert(name(Role::Kind), table.read->kind);
    request.parameters.insert(name(Role::Count), items);
    request.places = placesOf(name(Role::Address), target.address, format, items);
    request.places->isTyped = table.holdsBits || isFormatted();
    if (request.places->isTyped || items > table.read->limit) {
        plan(target, format, items, request);
    }
    return {};
}

void PointOptions::plan(const Target& target, const Points::ValueFormat& format, int items,
                        Request& request) const
{
    const QString interval = QStringLiteral("recurrentInterval");
    const bool goesOn = !m_profile.once.isEmpty();
    PointPlan plan;
    plan.command = goesOn ? m_profile.once : m_command.name;
    plan.profile = *m_module.profile.command(plan.command);
    plan.table = *target.address.table;
    plan.format = format;
    plan.range = {target.address.number, items};
    plan.parameters = request.parameters;
    for (const Role role : {Role::Address, Role::Kind, Role::Count, Role::Data}) {
        plan.parameters.remove(name(role));
    }
    const QVariant given = plan.parameters.take(interval);
    plan.intervalMs = goesOn ? given.toInt() > 0 ? given.toInt() : m_profile.intervalMs : 0;
    request.points = plan;
}

QString PointOptions::encodeAll(const QString& data, const Points::ValueFormat& format,
                                Points::Words& items) const
{
    const QString option = optionName(name(Role::Data));
    QStringList texts{data};
    QString misfit;
    const bool isText =
        format.type.kind == Points::DataType::Kind::String && !data.startsWith(QLatin1Char('['));
    if (!isText && !splitData(data, texts, &misfit)) {
        return unfit(option, data, misfit);
    }
    for (int i = 0; i < texts.size(); ++i) {
        const Points::Encoded encoded = Points::encode(texts[i], format);
        if (encoded.words.isEmpty()) {
            const QString place = texts.size() > 1 ? QStringLiteral("[%1]").arg(i) : QString();
            const bool isPlainWord =
                m_type.empty() && !encoded.wanted.startsWith(QLatin1String("on"));
            return unfit(option + place, texts[i], encoded.wanted)
                + QLatin1String(isPlainWord ? "; --type tells of other values" : "");
        }
        items += encoded.words;
    }
    return {};
}

QString PointOptions::fillWrite(const Target& target, const QString& data, Request& request) const
{
    const Points::Table& table = *target.address.table;
    const auto* access = m_module.profile.accessOf(m_profile.use, target.kind);
    const bool asWords = m_raw && access != nullptr && access->rawOnly;
    Points::ValueFormat format;
    Points::Words items;
    QString error = asWords ? QString() : readFormat(table, format);
    error = error.isEmpty() ? encodeAll(data, format, items) : error;
    error = error.isEmpty() ? tooMany(target, items.size()) : error;
    if (!error.isEmpty()) {
        return error;
    }
    fillItems(target, items, request);
    return {};
}

QString PointOptions::tooMany(const Target& target, int count) const
{
    const QString option = optionName(name(Role::Data));
    const Points::Table& table = *target.address.table;
    const auto* access = m_module.profile.accessOf(m_profile.use, target.kind);
    const bool oneByOne = table.holdsBits && !m_raw;
    if (target.address.number + count > Points::Table::size) {
        return QStringLiteral("%1: %2 go beyond the last one, %3")
            .arg(option, QString::number(count), QString::number(Points::Table::size - 1));
    }
    const int most = access != nullptr ? access->limit : table.mostWritten();
    if (oneByOne || count <= most) {
        return {};
    }
    const QString what = access != nullptr ? target.kind : table.name;
    const QString other = most < table.mostWritten() ? QStringLiteral("; without %1 it is %2")
                                                           .arg(optionName(name(Role::Kind)))
                                                           .arg(table.mostWritten())
                                                     : QString();
    const QString range = QLatin1String(most > 1 ? "1 to " : "") + QString::number(most);
    return QStringLiteral("%1: %2 %3 are too many for one request, which takes %4 of %5%6")
        .arg(option, QString::number(count), QLatin1String(table.holdsBits ? "states" : "words"),
             range, what, other);
}

void PointOptions::fillItems(const Target& target, const Points::Words& items,
                             Request& request) const
{
    const Points::Table& table = *target.address.table;
    QVariantList data;
    for (const quint16 item : items) {
        data.append(int(item));
    }
    const bool isGiven = !target.kind.isEmpty();
    const bool oneByOne = table.holdsBits && !m_raw;
    const QString kind =
        isGiven && !oneByOne ? target.kind : table.writeOf(oneByOne ? 1 : items.size())->kind;
    request.parameters.insert(name(Role::Kind), kind);
    request.parameters.insert(name(Role::Data), data.size() == 1 ? data.first() : QVariant(data));
    request.saysWritten = !isGiven || (oneByOne && items.size() > 1);
    if (oneByOne && items.size() > 1) {
        plan(target, {}, items.size(), request);
        request.points->states = items;
    }
}
