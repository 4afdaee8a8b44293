#include "profile/point_options.h"

// The requests that the options make, one part for reading and one for writing.

#include "cli/command_line.h"
#include "cli/option_text.h"
#include "profile/data_list.h"

#include <common/number.h>

using Points::Role;

namespace {

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
