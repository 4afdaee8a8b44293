#include "output/renderer.h"

#include "output/event_json.h"
#include "output/value_text.h"

namespace {

QString utcText(const QDateTime& time) { return time.toUTC().toString(Qt::ISODateWithMs); }

class TextRenderer : public Renderer
{
public:
    explicit TextRenderer(const RenderedOrder& order) : m_order(order) { }

    QString result(const QDateTime& time, const QString& name, const QVariant& value) override
    {
        const QString prefix = m_order.recurrent
            ? time.toLocalTime().toString(QStringLiteral("HH:mm:ss.zzz  "))
            : QString();
        QString text;
        for (const QString& line : lines(name, value)) {
            text += prefix + line + QLatin1Char('\n');
        }
        return text;
    }

private:
    QStringList lines(const QString& name, const QVariant& value) const
    {
        if (m_order.saysWritten) {
            return {QStringLiteral("written")};
        }
        if (!m_order.endpoint.isEmpty() && name == QLatin1String("connected")) {
            return {value.toBool()
                        ? QStringLiteral("connected to %1").arg(plainText(m_order.endpoint))
                        : QStringLiteral("connection lost, retrying")};
        }
        switch (value.userType()) {
        case QMetaType::QVariantList:
            return listLines(value.toList());
        case QMetaType::QVariantMap:
            return mapLines(value.toMap());
        default:
            return {plainText(value)};
        }
    }

    QStringList listLines(const QVariantList& values) const
    {
        QStringList texts;
        for (int i = 0; i < values.size(); ++i) {
            const QString place = placeOf(m_order.places, i, values.size());
            const QString head = place.isEmpty() ? place : place + QLatin1String("  ");
            texts.append(head + itemText(values.at(i)));
        }
        return texts;
    }

    QString itemText(const QVariant& value) const
    {
        if (m_order.places && m_order.places->isTyped) {
            return typedText(value, m_order.places->unit);
        }
        const QString word = wordText(value);
        return word.isEmpty() ? plainText(value) : plainText(value) + QLatin1String("  ") + word;
    }

    static QStringList mapLines(const ParameterMap& map)
    {
        QStringList texts;
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            texts.append(QStringLiteral("%1: %2").arg(plainText(it.key()), plainText(it.value())));
        }
        return texts;
    }

    RenderedOrder m_order;
};

class JsonRenderer : public Renderer
{
public:
    explicit JsonRenderer(const RenderedOrder& order)
        : m_source{QJsonValue::Undefined, order.device, order.command}
    {
    }

    QString result(const QDateTime& time, const QString& name, const QVariant& value) override
    {
        return EventJson::result(m_source, time, name, value);
    }

    QString connection(const QDateTime& time, bool connected, const QString& message) override
    {
        return EventJson::connection(m_source, time, connected, message);
    }

    QString error(const QDateTime& time, const OrderFailure& failure,
                  const QString& message) override
    {
        return EventJson::error(m_source, time, failure, message);
    }

    QString finished(const QDateTime& time, bool ok, const ParameterMap& results) override
    {
        return EventJson::finished(m_source, time, ok, results);
    }

private:
    EventSource m_source;
};

// RFC 4180, section 2: a field with a separator, a quote or a line end stands in quotes, and its
// quotes are doubled. Lines end as this system's do.
QString csvField(QString text)
{
    const bool quoted = text.contains(QLatin1Char(',')) || text.contains(QLatin1Char('"'))
        || text.contains(QLatin1Char('\n')) || text.contains(QLatin1Char('\r'));
    if (!quoted) {
        return text;
    }
    text.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + text + QLatin1Char('"');
}

QString csvLine(const QStringList& fields)
{
    QStringList quoted;
    for (const QString& field : fields) {
        quoted.append(csvField(field));
    }
    return quoted.join(QLatin1Char(',')) + QLatin1Char('\n');
}

class CsvRenderer : public Renderer
{
public:
    CsvRenderer(const RenderedOrder& order, bool hasHeader)
        : m_order(order), m_headerWritten(!hasHeader)
    {
    }

    QString result(const QDateTime& time, const QString& name, const QVariant& value) override
    {
        const QString header = m_headerWritten ? QString() : csvHeader(m_order);
        m_headerWritten = true;
        const QString stamp = utcText(time);
        switch (value.userType()) {
        case QMetaType::QVariantList:
            return header + listRows(stamp, name, value.toList());
        case QMetaType::QVariantMap:
            return header + mapRows(stamp, name, value.toMap());
        default:
            return header + row(stamp, name, {}, value);
        }
    }

private:
    // Without places, a value goes by name and index.
    QString row(const QString& stamp, const QString& name, const QString& place,
                const QVariant& value) const
    {
        if (!m_order.places) {
            return csvLine({stamp, name, place, fieldText(value)});
        }
        QStringList fields{stamp, place, fieldText(value)};
        fields += m_order.places->isTyped ? QStringList{m_order.places->type, m_order.places->unit}
                                          : QStringList();
        return csvLine(fields);
    }

    QString listRows(const QString& stamp, const QString& name, const QVariantList& values) const
    {
        QString rows;
        for (int i = 0; i < values.size(); ++i) {
            rows += row(stamp, name, listPlace(i, values.size()), values.at(i));
        }
        return rows;
    }

    QString listPlace(int index, int size) const
    {
        return m_order.places ? placeOf(m_order.places, index, size) : QString::number(index);
    }

    QString mapRows(const QString& stamp, const QString& name, const ParameterMap& map) const
    {
        QString rows;
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            rows += row(stamp, name, it.key(), it.value());
        }
        return rows;
    }

    RenderedOrder m_order;
    bool m_headerWritten;
};

} // namespace

QString csvHeader(const RenderedOrder& order)
{
    const QString time = QStringLiteral("time");
    const QString value = QStringLiteral("value");
    if (!order.places) {
        return csvLine({time, QStringLiteral("name"), QStringLiteral("index"), value});
    }
    QStringList titles{time, order.places->title, value};
    titles += order.places->isTyped ? QStringList{QStringLiteral("type"), QStringLiteral("unit")}
                                    : QStringList();
    return csvLine(titles);
}

std::unique_ptr<Renderer> makeCsvRows(const RenderedOrder& order)
{
    return std::make_unique<CsvRenderer>(order, false);
}

QString placeOf(const std::optional<Places>& places, int index, int size)
{
    return places && places->labels.size() == size ? places->labels.at(index) : QString();
}

QString Renderer::connection(const QDateTime& time, bool connected, const QString& message)
{
    Q_UNUSED(time)
    Q_UNUSED(connected)
    Q_UNUSED(message)
    return {};
}

QString Renderer::error(const QDateTime& time, const OrderFailure& failure, const QString& message)
{
    Q_UNUSED(time)
    Q_UNUSED(failure)
    Q_UNUSED(message)
    return {};
}

QString Renderer::finished(const QDateTime& time, bool ok, const ParameterMap& results)
{
    Q_UNUSED(time)
    Q_UNUSED(ok)
    Q_UNUSED(results)
    return {};
}

std::unique_ptr<Renderer> makeRenderer(Format format, const RenderedOrder& order)
{
    switch (format) {
    case Format::Json:
        return std::make_unique<JsonRenderer>(order);
    case Format::Csv:
        return std::make_unique<CsvRenderer>(order, true);
    case Format::Text:
        break;
    }
    return std::make_unique<TextRenderer>(order);
}
