#include "profile/profile_info.h"

#include <points/address.h>

#include <QJsonArray>

namespace {

QString accessText(const Points::Access& access)
{
    return QStringLiteral("%1 as %2%3")
        .arg(access.limit)
        .arg(access.kind, QLatin1String(access.rawOnly ? " with --raw" : ""));
}

QString tableText(const Points::Table& table)
{
    QStringList ways;
    if (table.read) {
        ways.append(QLatin1String("one request reads ") + accessText(*table.read));
    }
    for (const Points::Access& access : table.writes) {
        ways.append(QLatin1String("writes ") + accessText(access));
    }
    const QString old = Points::oldNumberText(table, 0);
    const QString names = (QStringList(table.name) + table.aliases).join(QLatin1String(" or "));
    return QStringLiteral("  %1%2: %3; %4\n")
        .arg(names, old.isEmpty() ? old : QStringLiteral(", %1 is number 0").arg(old),
             table.description, ways.join(QLatin1String(", ")));
}

QJsonObject accessJson(const Points::Access& access)
{
    return {{QStringLiteral("kind"), access.kind},
            {QStringLiteral("limit"), access.limit},
            {QStringLiteral("rawOnly"), access.rawOnly}};
}

QJsonObject tableJson(const Points::Table& table)
{
    QJsonArray writes;
    for (const Points::Access& access : table.writes) {
        writes.append(accessJson(access));
    }
    return {
        {QStringLiteral("name"), table.name},
        {QStringLiteral("aliases"), QJsonArray::fromStringList(table.aliases)},
        {QStringLiteral("description"), table.description},
        {QStringLiteral("item"), QLatin1String(table.holdsBits ? "bit" : "word")},
        {QStringLiteral("digit"), table.digit},
        {QStringLiteral("read"), table.read ? QJsonValue(accessJson(*table.read)) : QJsonValue()},
        {QStringLiteral("write"), writes}};
}

} // namespace

QString ruleText(const Points::ParameterProfile& profile)
{
    if (!profile.words.isEmpty()) {
        return QStringLiteral(" (one of %1)").arg(profile.words.join(QLatin1String(", ")));
    }
    return profile.least ? QStringLiteral(" (%1 to %2)").arg(*profile.least).arg(*profile.most)
                         : QString();
}

QJsonObject ruleJson(const Points::ParameterProfile& profile)
{
    QJsonObject rule;
    if (!profile.words.isEmpty()) {
        rule.insert(QStringLiteral("words"), QJsonArray::fromStringList(profile.words));
    }
    if (profile.least) {
        rule.insert(QStringLiteral("least"), *profile.least);
        rule.insert(QStringLiteral("most"), *profile.most);
    }
    return rule;
}

QString tablesText(const Points::Profile& profile)
{
    QString text;
    for (const Points::Table& table : profile.tables) {
        text += tableText(table);
    }
    return text.isEmpty() ? text : QLatin1String("\ntables, whose numbers count from 0:\n") + text;
}

QJsonArray tablesJson(const Points::Profile& profile)
{
    QJsonArray tables;
    for (const Points::Table& table : profile.tables) {
        tables.append(tableJson(table));
    }
    return tables;
}
