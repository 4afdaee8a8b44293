#include <points/json_node.h>

#include <QVariant>

namespace Points {

JsonNode JsonNode::at(const char* key) const { return member(QLatin1String(key)); }

JsonNode JsonNode::member(const QString& key) const
{
    const QString place = m_place.isEmpty() ? key : m_place + QLatin1Char('.') + key;
    return {m_value.toObject().value(key), place, m_error};
}

std::vector<JsonNode> JsonNode::items() const
{
    expect(m_value.isArray() || !isThere(), QStringLiteral("an array"));
    std::vector<JsonNode> nodes;
    const QJsonArray array = m_value.toArray();
    nodes.reserve(std::size_t(array.size()));
    for (int i = 0; i < array.size(); ++i) {
        nodes.emplace_back(array.at(i), QStringLiteral("%1[%2]").arg(m_place).arg(i), m_error);
    }
    return nodes;
}

QStringList JsonNode::keys() const
{
    expect(m_value.isObject() || !isThere(), QStringLiteral("an object"));
    return m_value.toObject().keys();
}

QString JsonNode::text() const
{
    QString text = m_value.toString();
    expect(!text.isEmpty(), QStringLiteral("a text that is not empty"));
    return text;
}

int JsonNode::number(int least, int most) const
{
    const double number = m_value.toDouble(least - 1.0);
    expect(number >= least && number <= most && number == int(number),
           QStringLiteral("a whole number %1 to %2").arg(least).arg(most));
    return int(number);
}

bool JsonNode::flag() const
{
    expect(m_value.isBool(), QStringLiteral("true or false"));
    return m_value.toBool();
}

QVariantList JsonNode::list() const
{
    expect(m_value.isArray(), QStringLiteral("an array"));
    return m_value.toArray().toVariantList();
}

int JsonNode::choice(const QStringList& words) const
{
    const int index = words.indexOf(m_value.toString());
    expect(index >= 0, QStringLiteral("one of ") + words.join(QLatin1String(", ")));
    return qMax(0, index);
}

const JsonNode& JsonNode::only(const QStringList& known) const
{
    expect(m_value.isObject(), QStringLiteral("an object"));
    for (const QString& key : m_value.toObject().keys()) {
        if (!known.contains(key)) {
            member(key).refuse(QStringLiteral("is not known; there are ")
                               + known.join(QLatin1String(", ")));
        }
    }
    return *this;
}

void JsonNode::refuse(const QString& what) const
{
    if (m_error->isEmpty()) {
        *m_error = m_place.isEmpty() ? QLatin1String("the document ") + what
                                     : m_place + QLatin1Char(' ') + what;
    }
}

void JsonNode::expect(bool isSo, const QString& wanted) const
{
    if (!isSo) {
        refuse(QLatin1String(isThere() ? "is not " : "is missing: it must be ") + wanted);
    }
}

} // namespace Points
