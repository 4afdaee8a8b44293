#include "profile/parameter_rules.h"

#include "cli/option_text.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace {

constexpr int mostTypos = 2;

bool isInRange(const Points::ParameterProfile& profile, const QVariant& value)
{
    bool isNumber = false;
    const int number = value.toInt(&isNumber);
    return !profile.least || (isNumber && number >= *profile.least && number <= *profile.most);
}

// Letters to add, leave out or change.
int distance(const QString& a, const QString& b)
{
    std::vector<int> row(std::size_t(b.size()) + 1);
    std::iota(row.begin(), row.end(), 0);
    for (const QChar letter : a) {
        int diagonal = row[0]++;
        for (std::size_t j = 1; j < row.size(); ++j) {
            const int changed = diagonal + (letter == b[int(j) - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

int distanceOf(const QString& name, const QString& known)
{
    const QString a = name.toLower().remove(QLatin1Char('-')).remove(QLatin1Char('_'));
    const QString b = known.toLower();
    const bool isPart = a.size() > mostTypos && b.contains(a);
    return isPart ? 1 : distance(a, b);
}

} // namespace

void takeOutOfBrackets(QVariant& host)
{
    const QString text = host.toString().trimmed();
    if (text.startsWith(QLatin1Char('[')) && text.endsWith(QLatin1Char(']'))) {
        host = text.mid(1, text.size() - 2);
    }
}

QString checkRule(const QString& name, const Points::ParameterProfile& profile, QVariant& value)
{
    if (profile.role == Points::Role::Host) {
        takeOutOfBrackets(value);
    }
    if (!profile.mayBeEmpty && value.toString().trimmed().isEmpty()) {
        return QStringLiteral("%1 is empty; it takes: %2").arg(name, profile.description);
    }
    if (!profile.words.isEmpty() && !profile.words.contains(value.toString())) {
        return unfit(name, value.toString(),
                     QLatin1String("one of ") + profile.words.join(QLatin1String(", ")));
    }
    return isInRange(profile, value)
        ? QString()
        : unfit(name, value.toString(),
                QStringLiteral("a number %1 to %2").arg(*profile.least).arg(*profile.most));
}

QString undeclaredNote(const QString& name, const QStringList& declared,
                       const Points::Profile& profile)
{
    QStringList known = declared;
    for (const Points::CommandProfile& command : profile.commands) {
        if (command.parameters.contains(name)) {
            return {};
        }
    }
    if (known.isEmpty() || known.contains(name)) {
        return {};
    }
    const auto nearest =
        std::min_element(known.begin(), known.end(), [&](const auto& a, const auto& b) {
            return distanceOf(name, a) < distanceOf(name, b);
        });
    const QString meant = distanceOf(name, *nearest) <= mostTypos
        ? QStringLiteral("; did you mean '%1'?").arg(*nearest)
        : QString();
    return QStringLiteral("passed on, not declared: '%1'%2").arg(name, meant);
}
