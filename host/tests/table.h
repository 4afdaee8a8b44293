#pragma once

#include <utilities/utilities.h>

#include <QtTest>

/// Test rows out of tables/NAME.txt beside the test: a line "name | cell | cell" is a row, '#'
/// begins a comment.
inline void addRows(const char* name, const char* test = __builtin_FILE())
{
    QTest::addColumn<QStringList>("cells");
    const QString path = QStringLiteral("tables/%1.txt").arg(QLatin1String(name));
    QFile table(QTest::qFindTestData(path, test, __LINE__, QT_TESTCASE_BUILDDIR));
    if (!table.open(QIODevice::ReadOnly)) {
        qFatal("no table %s", name);
    }
    for (const QString& line : QString::fromUtf8(table.readAll()).split(QLatin1Char('\n'))) {
        QStringList cells = line.split(QLatin1Char('|'));
        std::transform(cells.begin(), cells.end(), cells.begin(),
                       [](const QString& cell) { return cell.trimmed(); });
        if (!line.startsWith(QLatin1Char('#')) && cells.size() > 1) {
            QTest::newRow(qPrintable(cells.takeFirst())) << cells;
        }
    }
}

/// What a cell holds: JSON, "real" and a number, or nothing at all.
inline QVariant valueIn(const QString& cell)
{
    if (cell.startsWith(QLatin1String("real "))) {
        return cell.mid(5).toDouble();
    }
    const QByteArray json = '[' + cell.toUtf8() + ']';
    const QVariant value = QJsonDocument::fromJson(json).array().first().toVariant();
    const qlonglong number = value.toLongLong();
    const bool isInt = value.userType() == QMetaType::LongLong && number == int(number);
    return isInt ? QVariant(int(number)) : value;
}

/// A value with its type, such as "uint 7" or 'QString "7"'; nothing when it is invalid.
inline QString typed(const QVariant& value)
{
    const QString text = convVariantMapToString({{QString(), value}}); // {"": 7}
    const QString type = QLatin1String(value.typeName());
    return value.isValid() ? type + QLatin1Char(' ') + text.mid(5).chopped(1) : QString();
}
