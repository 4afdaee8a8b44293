#pragma once

#include <plugin_management/types.h>

#include <QVector>

/// The parameters of an order: typed values out of its map, each under a key and, for some, an
/// alias that counts when the key is absent.
///
/// Numbers are 0 to 65535; a text that is a number will do. A given \a found makes a parameter
/// mandatory: its absence is logged. Without it absence is silent. \a valid tells whether the value
/// could be used; when it could not, the default stands in. \a orderId appears in log lines only.

using RegisterValues = QVector<quint16>;

/// The value stored under \a key, null when there is none. An order's map has a few entries: a walk
/// that compares lengths and first letters first is several times cheaper than the search of the
/// tree.
const QVariant* findValue(const ParameterMap& parameters, const QString& key);

/// The number under \a key or, when that is absent, under \a alias (empty: none). With \a list a
/// list of numbers will do too: it replaces \a list when every element is a number and there is
/// one at least. The number returned for a list is the default.
quint16 getOrderParameter(quint64 orderId, const ParameterMap& parameters, const QString& key,
                          const QString& alias, quint16 defaultValue, bool* found = nullptr,
                          bool* valid = nullptr, RegisterValues* list = nullptr);

/// The number in \a value, 0 to 65535; the default, and false in \a ok, when there is none.
quint16 variantToUInt16(const QVariant& value, quint16 defaultValue, bool* ok = nullptr);

/// The function code that reads a register type ("coilsRegister" 1, "inputStatus" 2,
/// "holdingRegisters" 3, "inputRegisters" 4), 0 for any other text.
int registerTypeToFunctionCode(const QString& registerType);
/// The worker function for a function code from registerTypeToFunctionCode(), 1 to 4:
/// "modbus_read_" and the register type.
const QString& readFunctionName(int functionCode);

/// "funcCode"
quint16 functionCodeParameter(quint64 orderId, const ParameterMap& parameters,
                              bool* found = nullptr, bool* valid = nullptr,
                              quint16 defaultValue = 0);
/// "register", alias "start_address"
quint16 registerParameter(quint64 orderId, const ParameterMap& parameters, bool* found = nullptr,
                          bool* valid = nullptr, quint16 defaultValue = 0);
/// "dataSize", alias "nb_words"
quint16 quantityParameter(quint64 orderId, const ParameterMap& parameters, bool* found = nullptr,
                          bool* valid = nullptr, quint16 defaultValue = 0);
/// "value", alias "write_data"
quint16 valueParameter(quint64 orderId, const ParameterMap& parameters, bool* found = nullptr,
                       bool* valid = nullptr, quint16 defaultValue = 0);
/// "value", alias "write_data": whether it is not 0
bool valueFlagParameter(quint64 orderId, const ParameterMap& parameters, bool* found = nullptr,
                        bool* valid = nullptr, quint16 defaultValue = 0);
/// "data"
RegisterValues dataParameter(quint64 orderId, const ParameterMap& parameters, bool* found = nullptr,
                             bool* valid = nullptr, quint16 defaultValue = 0);
/// "values"
RegisterValues valuesParameter(quint64 orderId, const ParameterMap& parameters,
                               bool* found = nullptr, bool* valid = nullptr,
                               quint16 defaultValue = 0);
/// "requestTimeoutMs"
quint16 requestTimeoutParameter(quint64 orderId, const ParameterMap& parameters,
                                bool* found = nullptr, bool* valid = nullptr,
                                quint16 defaultValue = 0);
/// "recurrent", alias "periodic": whether it is not 0
bool periodicParameter(quint64 orderId, const ParameterMap& parameters, bool* found = nullptr,
                       bool* valid = nullptr, quint16 defaultValue = 0);
