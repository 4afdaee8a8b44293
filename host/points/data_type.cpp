#include <points/data_type.h>

#include <algorithm>
#include <array>

namespace Points {

namespace {

using Kind = DataType::Kind;

struct TypeEntry
{
    const char* name; // what a number follows, where there are sizes
    Kind kind;
    int words; // 0: as the size tells
    int leastSize;
    int mostSize; // -1: has no size
};

constexpr std::array<TypeEntry, 13> entries{{
    {"bool", Kind::Bool, 1, 0, -1},
    {"int16", Kind::Int16, 1, 0, -1},
    {"uint16", Kind::UInt16, 1, 0, -1},
    {"int32", Kind::Int32, 2, 0, -1},
    {"uint32", Kind::UInt32, 2, 0, -1},
    {"int64", Kind::Int64, 4, 0, -1},
    {"uint64", Kind::UInt64, 4, 0, -1},
    {"float32", Kind::Float32, 2, 0, -1},
    {"float64", Kind::Float64, 4, 0, -1},
    {"bcd16", Kind::Bcd16, 1, 0, -1},
    {"bcd32", Kind::Bcd32, 2, 0, -1},
    {"bit", Kind::Bit, 1, 0, 15},
    {"string", Kind::String, 0, 1, longestString},
}};

const TypeEntry& entryOf(const DataType& type)
{
    return *std::find_if(entries.begin(), entries.end(),
                         [&](const TypeEntry& entry) { return entry.kind == type.kind; });
}

bool hasSize(const TypeEntry& entry) { return entry.mostSize >= 0; }

// The digits behind the name, in parentheses or without.
QString sizeText(const TypeEntry& entry, const QString& name)
{
    const QString text = name.mid(int(qstrlen(entry.name)));
    const bool enclosed = text.startsWith(QLatin1Char('(')) && text.endsWith(QLatin1Char(')'));
    return enclosed ? text.mid(1, text.size() - 2) : text;
}

std::optional<DataType> sizedType(const TypeEntry& entry, const QString& name)
{
    bool isSize = false;
    const int size = sizeText(entry, name).toInt(&isSize);
    const bool fits = isSize && size >= entry.leastSize && size <= entry.mostSize;
    return fits ? std::optional(DataType{entry.kind, size}) : std::nullopt;
}

} // namespace

std::optional<DataType> dataTypeFrom(const QString& name)
{
    for (const TypeEntry& entry : entries) {
        if (!hasSize(entry) && name == QLatin1String(entry.name)) {
            return DataType{entry.kind, 0};
        }
        if (hasSize(entry) && name.startsWith(QLatin1String(entry.name))) {
            return sizedType(entry, name);
        }
    }
    return std::nullopt;
}

QString dataTypeName(const DataType& type)
{
    const TypeEntry& entry = entryOf(type);
    return QLatin1String(entry.name) + (hasSize(entry) ? QString::number(type.size) : QString());
}

const QStringList& dataTypeNames()
{
    static const QStringList names = [] {
        QStringList list;
        for (const TypeEntry& entry : entries) {
            list.append(QLatin1String(entry.name) + QLatin1String(hasSize(entry) ? "N" : ""));
        }
        return list;
    }();
    return names;
}

int wordCount(const DataType& type)
{
    const int words = entryOf(type).words;
    return words > 0 ? words : (type.size + 1) / 2;
}

bool isNumber(const DataType& type)
{
    return type.kind != Kind::Bool && type.kind != Kind::Bit && type.kind != Kind::String;
}

std::optional<Order> orderFrom(const QString& name)
{
    const int index = orderNames().indexOf(name);
    return index >= 0 ? std::optional(Order(index)) : std::nullopt;
}

const QStringList& orderNames()
{
    static const QStringList names{QStringLiteral("ABCD"), QStringLiteral("CDAB"),
                                   QStringLiteral("BADC"), QStringLiteral("DCBA")};
    return names;
}

bool fits(Order order, const DataType& type)
{
    return type.kind != Kind::String || order == Order::ABCD || order == Order::BADC;
}

} // namespace Points
