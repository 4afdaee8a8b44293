#pragma once

#include <plugin_management/order_failure.h>
#include <plugin_management/types.h>

#include <QDateTime>
#include <QString>

#include <memory>
#include <optional>

enum class Format { Text, Json, Csv };

/// Where in the device the values of a list come from, and what they are.
struct Places
{
    QString title; ///< what a place is
    QStringList labels; ///< one for each value
    bool isTyped = false; ///< type and unit are shown, else plain words
    QString type;
    QString unit; ///< may be empty
};

/// The place of the value at \a index of \a size values; empty when there are not as many as
/// places: such values belong to none of them.
QString placeOf(const std::optional<Places>& places, int index, int size);

/// The order whose results are rendered.
struct RenderedOrder
{
    QString device;
    QString command;
    QString endpoint; ///< "host:port" of a connect order, else empty
    bool recurrent = false; ///< it goes on, so that its text lines carry the time
    std::optional<Places> places;
    bool saysWritten = false; ///< as text, instead of its result
};

/// Puts what an order reports into lines for standard output. Every answer is whole lines, each
/// with its line end, or empty when the format has nothing to say there.
class Renderer
{
public:
    virtual ~Renderer() = default;

    /// A result has a new value.
    virtual QString result(const QDateTime& time, const QString& name, const QVariant& value) = 0;
    /// The connection on which the order goes on was lost, or is there again.
    virtual QString connection(const QDateTime& time, bool connected, const QString& message);
    /// The order, or one repetition of it, failed; \a message is the text for people.
    virtual QString error(const QDateTime& time, const OrderFailure& failure,
                          const QString& message);
    /// The order has ended; \a results are the last values.
    virtual QString finished(const QDateTime& time, bool ok, const ParameterMap& results);
};

/// The first line of results as CSV.
QString csvHeader(const RenderedOrder& order);
/// Rows below such a line.
std::unique_ptr<Renderer> makeCsvRows(const RenderedOrder& order);

std::unique_ptr<Renderer> makeRenderer(Format format, const RenderedOrder& order);
