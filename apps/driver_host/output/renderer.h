#pragma once

#include <plugin_management/order_failure.h>
#include <plugin_management/types.h>

#include <QDateTime>
#include <QString>

#include <memory>
#include <optional>

enum class Format { Text, Json, Csv };

/// Which registers an order asks for, by its parameters "register" and "dataSize".
struct RegisterRange
{
    int first = 0;
    int count = 0;
};

/// The range of an order with these parameters; none when they do not name both.
std::optional<RegisterRange> registerRange(const ParameterMap& parameters);

/// The register that the value at \a index of \a size values came from. Packed answers (coils as
/// bits, the outcome of a write) hold another number of values than was asked for: those belong to
/// no one register.
std::optional<int> registerOf(const std::optional<RegisterRange>& registers, int index, int size);

/// The order whose results are rendered.
struct RenderedOrder
{
    QString device;
    QString command;
    QString endpoint; ///< "host:port" of a connect order, else empty
    bool recurrent = false; ///< it goes on, so that its text lines carry the time
    std::optional<RegisterRange> registers;
};

/// Puts what an order reports into lines for standard output. Every answer is whole lines, each
/// with its line end, or empty when the format has nothing to say there.
class Renderer
{
public:
    virtual ~Renderer() = default;

    /// A result has a new value.
    virtual QString result(const QDateTime& time, const QString& name, const QVariant& value) = 0;
    /// The order, or one repetition of it, failed; \a message is the text for people.
    virtual QString error(const QDateTime& time, const OrderFailure& failure,
                          const QString& message);
    /// The order has ended; \a results are the last values.
    virtual QString finished(const QDateTime& time, bool ok, const ParameterMap& results);
};

std::unique_ptr<Renderer> makeRenderer(Format format, const RenderedOrder& order);
