#pragma once

#include <QtTest>

/// Test rows out of tables/NAME.txt: a line "name | cell | cell" is a row, '#' begins a comment.
inline void addRows(const char* name)
{
    QTest::addColumn<QStringList>("cells");
    QFile table(QFINDTESTDATA(QStringLiteral("tables/%1.txt").arg(QLatin1String(name))));
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
