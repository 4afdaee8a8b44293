#include "modbus_utilities.h"

#include "log_line.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

void store(bool* flag, bool value)
{
    if (flag != nullptr) {
        *flag = value;
    }
}

void logMissingField(quint64 orderId, const ParameterMap& parameters, const QString& key,
                     const QString& alias)
{
    const QString names = alias.isEmpty() ? key : key + QStringLiteral("\" or \"") + alias;
    log_line::orderError(nullptr, log_line::missingField, orderId)
        << names << "field available in parameters :" << parameters;
}

// Of the types that numbers mostly come in; anything else takes the way of conversions.
bool isPlainNumber(const QVariant& value)
{
    const int type = value.userType();
    return type == QMetaType::Int || type == QMetaType::UInt;
}

// Any container whose elements Qt can walk, such as a QVector of numbers. toList() knows the usual
// ones only, and costs less.
QVariantList elementsOf(const QVariant& value)
{
    return value.userType() == QMetaType::QVariantList ? value.toList()
                                                       : value.value<QVariantList>();
}

// Replaces the list when there is at least one element and all are numbers. The first that is none
// ends the walk: the rest is never looked at.
bool readList(const QVariant& value, quint16 defaultValue, RegisterValues& list)
{
    const QVariantList elements = elementsOf(value);
    RegisterValues numbers;
    numbers.reserve(elements.size());
    bool ok = false;
    for (const QVariant& element : elements) {
        const quint16 number = variantToUInt16(element, defaultValue, &ok);
        if (!ok) {
            break;
        }
        numbers.append(number);
    }
    if (!ok) {
        log_line::error(nullptr, log_line::badData);
        return false;
    }
    list = numbers;
    return true;
}

quint16 readValue(quint64 orderId, const QVariant& value, quint16 defaultValue, bool* ok,
                  RegisterValues* list)
{
    if (isPlainNumber(value) || value.canConvert(QMetaType::Int)) {
        const quint16 number = variantToUInt16(value, defaultValue, ok);
        if (list != nullptr) {
            // Deliberate: an unusable single value leaves the default as the one element, so that a
            // caller that overlooks the flag writes the default and not nothing.
            *list = {number};
        }
        return number;
    }
    if (value.canConvert(QMetaType::QString)) {
        // Deliberate: the list is left alone here, so it may be empty for a valid value.
        return variantToUInt16(QVariant(value.toString()), defaultValue, ok);
    }
    if (value.canConvert(QMetaType::QVariantList)) {
        if (list != nullptr) {
            *ok = readList(value, defaultValue, *list);
        } else {
            log_line::orderError(nullptr, log_line::manyValues, orderId) << value;
        }
    }
    return defaultValue;
}

const QVariant* findParameter(const ParameterMap& parameters, const QString& key,
                              const QString& alias)
{
    const QVariant* found = findValue(parameters, key);
    return found == nullptr && !alias.isEmpty() ? findValue(parameters, alias) : found;
}

} // namespace

const QVariant* findValue(const ParameterMap& parameters, const QString& key)
{
    const auto size = static_cast<std::size_t>(key.size()) * sizeof(QChar);
    for (auto it = parameters.cbegin(), end = parameters.cend(); it != end; ++it) {
        if (it.key().size() == key.size() && *it.key().constData() == *key.constData()
            && std::memcmp(it.key().constData(), key.constData(), size) == 0) {
            return &it.value();
        }
    }
    return nullptr;
}

quint16 getOrderParameter(quint64 orderId, const ParameterMap& parameters, const QString& key,
                          const QString& alias, quint16 defaultValue, bool* found, bool* valid,
                          RegisterValues* list)
{
    const QVariant* parameter = findParameter(parameters, key, alias);
    if (parameter == nullptr) {
        if (found != nullptr) {
            logMissingField(orderId, parameters, key, alias);
        }
        store(found, false);
        store(valid, false);
        return defaultValue;
    }
    bool ok = false;
    const quint16 number = readValue(orderId, *parameter, defaultValue, &ok, list);
    store(found, true);
    store(valid, ok);
    return number;
}

quint16 variantToUInt16(const QVariant& value, quint16 defaultValue, bool* ok)
{
    store(ok, false);
    const bool plain = isPlainNumber(value);
    if (plain || value.canConvert(QMetaType::Int)) {
        bool converted = plain;
        const auto number = plain ? *static_cast<const uint*>(value.constData())
                                  : static_cast<uint>(value.toInt(&converted));
        if (!converted || number > 0xFFFF) {
            return defaultValue;
        }
        store(ok, true);
        return static_cast<quint16>(number);
    }
    if (value.canConvert(QMetaType::QString)) {
        return variantToUInt16(QVariant(value.toString()), defaultValue, ok);
    }
    return defaultValue;
}

int registerTypeToFunctionCode(const QString& registerType)
{
    static const QLatin1String types[] = {
        QLatin1String("coilsRegister"), QLatin1String("inputStatus"),
        QLatin1String("holdingRegisters"), QLatin1String("inputRegisters")};
    const auto* const type = std::find(std::begin(types), std::end(types), registerType);
    return type == std::end(types) ? 0 : static_cast<int>(type - std::begin(types)) + 1;
}

const QString& readFunctionName(int functionCode)
{
    static const QString names[] = {QStringLiteral("modbus_read_coilsRegister"),
                                    QStringLiteral("modbus_read_inputStatus"),
                                    QStringLiteral("modbus_read_holdingRegisters"),
                                    QStringLiteral("modbus_read_inputRegisters")};
    return names[functionCode - 1];
}

quint16 functionCodeParameter(quint64 orderId, const ParameterMap& parameters, bool* found,
                              bool* valid, quint16 defaultValue)
{
    return getOrderParameter(orderId, parameters, QStringLiteral("funcCode"), QString(),
                             defaultValue, found, valid);
}

quint16 registerParameter(quint64 orderId, const ParameterMap& parameters, bool* found, bool* valid,
                          quint16 defaultValue)
{
    return getOrderParameter(orderId, parameters, QStringLiteral("register"),
                             QStringLiteral("start_address"), defaultValue, found, valid);
}

quint16 quantityParameter(quint64 orderId, const ParameterMap& parameters, bool* found, bool* valid,
                          quint16 defaultValue)
{
    return getOrderParameter(orderId, parameters, QStringLiteral("dataSize"),
                             QStringLiteral("nb_words"), defaultValue, found, valid);
}

quint16 valueParameter(quint64 orderId, const ParameterMap& parameters, bool* found, bool* valid,
                       quint16 defaultValue)
{
    return getOrderParameter(orderId, parameters, QStringLiteral("value"),
                             QStringLiteral("write_data"), defaultValue, found, valid);
}

bool valueFlagParameter(quint64 orderId, const ParameterMap& parameters, bool* found, bool* valid,
                        quint16 defaultValue)
{
    return valueParameter(orderId, parameters, found, valid, defaultValue) != 0;
}

RegisterValues dataParameter(quint64 orderId, const ParameterMap& parameters, bool* found,
                             bool* valid, quint16 defaultValue)
{
    RegisterValues list;
    getOrderParameter(orderId, parameters, QStringLiteral("data"), QString(), defaultValue, found,
                      valid, &list);
    return list;
}

RegisterValues valuesParameter(quint64 orderId, const ParameterMap& parameters, bool* found,
                               bool* valid, quint16 defaultValue)
{
    RegisterValues list;
    getOrderParameter(orderId, parameters, QStringLiteral("values"), QString(), defaultValue, found,
                      valid, &list);
    return list;
}

quint16 requestTimeoutParameter(quint64 orderId, const ParameterMap& parameters, bool* found,
                                bool* valid, quint16 defaultValue)
{
    return getOrderParameter(orderId, parameters, QStringLiteral("requestTimeoutMs"), QString(),
                             defaultValue, found, valid);
}

bool periodicParameter(quint64 orderId, const ParameterMap& parameters, bool* found, bool* valid,
                       quint16 defaultValue)
{
    return getOrderParameter(orderId, parameters, QStringLiteral("recurrent"),
                             QStringLiteral("periodic"), defaultValue, found, valid)
        != 0;
}
