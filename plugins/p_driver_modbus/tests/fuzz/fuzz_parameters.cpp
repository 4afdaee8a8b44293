// Every accessor on a map of the known keys with any values.

#include "fuzz_input.h"
#include "modbus_utilities.h"

int LLVMFuzzerTestOneInput(const quint8* data, size_t size)
{
    static const auto silent = qInstallMessageHandler([](auto, const auto&, const auto&) {});
    static const char* const keys[] = {
        "funcCode",   "register", "start_address", "dataSize",         "nb_words",  "value",
        "write_data", "data",     "values",        "requestTimeoutMs", "recurrent", "periodic"};
    Q_UNUSED(silent)
    FuzzInput input(data, size);
    ParameterMap map;
    for (const char* key : keys) {
        if (input.byte() % 2 == 1) {
            map.insert(key, input.value());
        }
    }
    bool found = false;
    bool valid = false;
    for (const auto accessor : {functionCodeParameter, registerParameter, quantityParameter,
                                valueParameter, requestTimeoutParameter}) {
        if (accessor(1, map, &found, &valid, 42) != 42 && !(found && valid)) {
            qFatal("a number out of nothing");
        }
    }
    for (const auto accessor : {valueFlagParameter, periodicParameter}) {
        accessor(1, map, nullptr, &valid, 0);
    }
    for (const auto accessor : {dataParameter, valuesParameter}) {
        accessor(1, map, &found, &valid, 0);
    }
    return 0;
}
