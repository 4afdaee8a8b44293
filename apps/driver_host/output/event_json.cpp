#include "output/event_json.h"

#include "output/value_text.h"

namespace {

class JsonLine
{
public:
    JsonLine(const EventSource& source, const QDateTime& time, const char* event)
    {
        add("time", time.toUTC().toString(Qt::ISODateWithMs));
        if (!source.id.isUndefined()) {
            add("id", source.id);
        }
        addText("device", source.device);
        addText("command", source.command);
        add("event", QLatin1String(event));
    }

    void add(const char* key, const QJsonValue& value)
    {
        m_text += QStringLiteral("%1\"%2\":%3")
                      .arg(QLatin1String(m_text.isEmpty() ? "{" : ","), QLatin1String(key),
                           compactJson(value));
    }
    QString text() const { return m_text + QLatin1String("}\n"); }

private:
    void addText(const char* key, const QString& text)
    {
        if (!text.isEmpty()) {
            add(key, text);
        }
    }

    QString m_text;
};

} // namespace

namespace EventJson {

QString started(const EventSource& source, const QDateTime& time)
{
    return JsonLine(source, time, "started").text();
}

QString result(const EventSource& source, const QDateTime& time, const QString& name,
               const QVariant& value)
{
    JsonLine line(source, time, "result");
    line.add("name", name);
    line.add("value", jsonValue(value));
    return line.text();
}

QString error(const EventSource& source, const QDateTime& time, const OrderFailure& failure,
              const QString& message)
{
    JsonLine line(source, time, "error");
    line.add("code", OrderFailure::codeName(failure.code));
    line.add("message", message);
    if (failure.code == OrderFailure::Code::DeviceException) {
        line.add("exceptionCode", failure.exceptionCode);
    }
    return line.text();
}

QString finished(const EventSource& source, const QDateTime& time, bool ok,
                 const ParameterMap& results)
{
    JsonLine line(source, time, "finished");
    line.add("ok", ok);
    line.add("results", jsonValue(results));
    return line.text();
}

} // namespace EventJson
