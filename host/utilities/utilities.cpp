#include <utilities/utilities.h>

#include <QDateTime>
#include <QMetaType>
#include <QVector>

#include <array>

namespace {

constexpr int versionFields = 4;
constexpr int bitsPerField = 16;

void appendValue(QString& text, const QVariant& value);

void appendQuoted(QString& text, const QString& raw)
{
    text += QLatin1Char('"');
    for (const QChar c : raw) {
        if (c == QLatin1Char('"') || c == QLatin1Char('\\')) {
            text += QLatin1Char('\\');
            text += c;
        } else if (c < QLatin1Char(' ')) {
            text += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        } else {
            text += c;
        }
    }
    text += QLatin1Char('"');
}

void appendMap(QString& text, const QMap<QString, QVariant>& map)
{
    text += QLatin1Char('{');
    bool first = true;
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        if (!first) {
            text += QLatin1String(", ");
        }
        first = false;
        appendQuoted(text, it.key());
        text += QLatin1String(": ");
        appendValue(text, it.value());
    }
    text += QLatin1Char('}');
}

void appendList(QString& text, const QList<QVariant>& list)
{
    text += QLatin1Char('[');
    bool first = true;
    for (const QVariant& value : list) {
        if (!first) {
            text += QLatin1String(", ");
        }
        first = false;
        appendValue(text, value);
    }
    text += QLatin1Char(']');
}

void appendPlain(QString& text, const QVariant& value)
{
    if (value.canConvert<QString>()) {
        text += value.toString();
        return;
    }
    const char* name = value.isValid() ? value.typeName() : nullptr;
    text += QLatin1Char('<') + QLatin1String(name != nullptr ? name : "none") + QLatin1Char('>');
}

void appendValue(QString& text, const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QString:
        return appendQuoted(text, value.toString());
    case QMetaType::QByteArray:
        text += QLatin1String(value.toByteArray().toHex());
        return;
    case QMetaType::QVariantMap:
        return appendMap(text, value.toMap());
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return appendList(text, value.toList());
    default:
        return appendPlain(text, value);
    }
}

// A list of so many values to fill. The one that was handed out last is used again once nobody else
// holds it, as is usual: to make and free each value anew costs 11,000 of 24,000 instructions of an
// order for 63 registers. Of replies that are dealt with together each has one.
QList<QVariant>& valuesToFill(int count)
{
    constexpr std::size_t together = 64;
    thread_local std::array<QList<QVariant>, together> lists;
    thread_local std::size_t last = 0;
    if (!lists[last].isDetached()) {
        last = (last + 1) % together;
    }
    if (lists[last].size() != count || !lists[last].isDetached()) {
        lists[last] = QVector<QVariant>(count).toList();
    }
    return lists[last];
}

} // namespace

unsigned long long versionFromString(const QString& text, bool* ok, QChar separator)
{
    const QVector<QStringRef> fields = text.splitRef(separator);
    unsigned long long version = 0;
    bool good = fields.size() <= versionFields;
    for (int i = 0; good && i < versionFields; ++i) {
        const unsigned short field = i < fields.size() ? fields[i].toUShort(&good) : ushort(0);
        version = version << bitsPerField | field;
    }
    if (ok != nullptr) {
        *ok = good;
    }
    return good ? version : 0;
}

QString convVariantMapToString(const QMap<QString, QVariant>& map)
{
    QString text;
    appendMap(text, map);
    return text;
}

QList<QVariant> convUInt16BigEndianByteArrayToVariantList(const QByteArray& bytes)
{
    const int size = bytes.size();
    const auto* data = reinterpret_cast<const uchar*>(bytes.constData());
    QList<QVariant>& values = valuesToFill((size + 1) / 2);
    int at = 0;
    for (QVariant& value : values) {
        const bool isWord = at + 1 < size;
        value = isWord ? uint(data[at]) << 8 | data[at + 1] : uint(data[at]);
        at += 2;
    }
    return values;
}

QString getDate()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
}
