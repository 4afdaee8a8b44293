#include <points/address.h>

#include <QRegularExpression>

#include <algorithm>

namespace Points {

namespace {

constexpr int shortForm = 5;
constexpr int longForm = 6;
constexpr int mostShort = 9999;

const Table* find(const Profile& profile, const QString& name)
{
    const auto it = std::find_if(profile.tables.begin(), profile.tables.end(), [&](const auto& t) {
        return t.name == name || t.aliases.contains(name);
    });
    return it != profile.tables.end() ? &*it : nullptr;
}

const Table* findDigit(const Profile& profile, const QString& digit)
{
    const auto it = std::find_if(profile.tables.begin(), profile.tables.end(),
                                 [&](const Table& table) { return table.digit == digit; });
    return it != profile.tables.end() ? &*it : nullptr;
}

QStringList allNames(const Profile& profile)
{
    QStringList names;
    for (const Table& table : profile.tables) {
        names += table.name;
        names += table.aliases;
    }
    return names;
}

AddressReading refused(const QString& text, const QString& why)
{
    return {{}, QStringLiteral("'%1' is no address: %2").arg(text, why)};
}

AddressReading namedAddress(const QString& text, const Profile& profile)
{
    const int colon = text.indexOf(QLatin1Char(':'));
    const Table* table = find(profile, text.left(colon));
    if (table == nullptr) {
        return refused(
            text, QStringLiteral("the tables are ") + allNames(profile).join(QLatin1String(", ")));
    }
    bool isNumber = false;
    const int number = text.mid(colon + 1).toInt(&isNumber);
    if (!isNumber || number < 0 || number >= Table::size) {
        return refused(text, QStringLiteral("numbers count from 0 to %1").arg(Table::size - 1));
    }
    return {Address{table, number, Address::Form::Plain, 0}, {}};
}

QString bothForms(const Profile& profile)
{
    const auto old = std::find_if(profile.tables.rbegin(), profile.tables.rend(),
                                  [](const Table& table) { return !table.digit.isEmpty(); });
    const QString name = profile.tables.empty() ? QString() : profile.tables.front().name;
    return old == profile.tables.rend()
        ? QStringLiteral("it is written as in %1:100").arg(name)
        : QStringLiteral("it is written as in %1:100, from 0, or by the old number %2, from 1")
              .arg(old->name, oldNumberText(*old, 100));
}

AddressReading oldAddress(const QString& text, const Profile& profile)
{
    static const QRegularExpression form(QStringLiteral("^[0-9]{5,6}$"));
    const Table* table = form.match(text).hasMatch() ? findDigit(profile, text.left(1)) : nullptr;
    if (table == nullptr) {
        return refused(text, bothForms(profile));
    }
    const int number = text.mid(1).toInt();
    if (number < 1 || number > Table::size) {
        return refused(text,
                       QStringLiteral("the old numbers of %1 count from %2 to %3")
                           .arg(table->name, oldNumberText(*table, 0),
                                oldNumberText(*table, Table::size - 1)));
    }
    return {Address{table, number - 1, Address::Form::Old, text.size()}, {}};
}

QString oldText(const Table& table, int number, int digits)
{
    const int width = number + 1 > mostShort ? longForm - 1 : digits - 1;
    return table.digit + QStringLiteral("%1").arg(number + 1, width, 10, QLatin1Char('0'));
}

} // namespace

AddressReading addressFrom(const QString& text, const Profile& profile)
{
    return text.contains(QLatin1Char(':')) ? namedAddress(text, profile)
                                           : oldAddress(text, profile);
}

QString addressText(const Address& address, int offset)
{
    return address.form == Address::Form::Plain
        ? QString::number(address.number + offset)
        : oldText(*address.table, address.number + offset, address.digits);
}

QString oldNumberText(const Table& table, int number)
{
    return table.digit.isEmpty() ? QString() : oldText(table, number, shortForm);
}

} // namespace Points
