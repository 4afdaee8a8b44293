#pragma once

#include <QtTest>

#include <QJsonDocument>
#include <QJsonObject>

/// Test rows out of a text table: a line "name | cell | cell" is a row, '#' begins a comment and
/// {{text*3}} stands for the text three times.
inline void addRows(const QString& file)
{
    static const QRegularExpression repetition("\\{\\{(.*?)\\*(\\d+)\\}\\}");
    QTest::addColumn<QStringList>("cells");
    QFile table(file);
    if (!table.open(QIODevice::ReadOnly)) {
        qFatal("no table %s", qPrintable(file));
    }
    for (QString line : QString::fromUtf8(table.readAll()).split('\n')) {
        for (auto match = repetition.match(line); match.hasMatch();
             match = repetition.match(line)) {
            line.replace(match.captured(0), match.captured(1).repeated(match.captured(2).toInt()));
        }
        QStringList cells = line.split("|");
        std::transform(cells.begin(), cells.end(), cells.begin(),
                       [](const QString& cell) { return cell.trimmed(); });
        if (!line.startsWith('#') && cells.size() > 1) {
            QTest::newRow(qPrintable(cells.takeFirst())) << cells;
        }
    }
}

/// The parts of a cell that are separated by ';'.
inline QStringList parts(const QString& cell)
{
    return cell.split(QRegularExpression(" *; *"), Qt::SkipEmptyParts);
}

/// A JSON value as a host passes it: whole numbers are int where they fit, {"texts": [...]} is a
/// QStringList.
inline QVariant fromJson(const QString& text)
{
    const std::function<QVariant(const QVariant&)> adapt = [&](const QVariant& value) -> QVariant {
        QVariantMap map = value.toMap();
        QVariantList list = value.toList();
        if (map.contains("texts")) {
            return map["texts"].toStringList();
        }
        std::transform(map.begin(), map.end(), map.begin(), adapt);
        std::transform(list.begin(), list.end(), list.begin(), adapt);
        return value.type() == QVariant::Map              ? map
            : value.type() == QVariant::List              ? list
            : value.type() != QVariant::LongLong          ? value
            : value.toLongLong() == qint64{value.toInt()} ? value.toInt()
                                                          : value;
    };
    const QByteArray document = "{\"value\":" + text.toUtf8() + '}';
    return adapt(QJsonDocument::fromJson(document).object().toVariantMap()["value"]);
}
