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

    void add(const char* key, const QJsonValue& value) { addJson(key, compactJson(value)); }
    void addJson(const char* key, const QString& json)
    {
        m_text += QLatin1String(m_text.isEmpty() ? "{" : ",") + QLatin1Char('"')
            + QLatin1String(key) + QLatin1String("\":") + json;
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
    line.addJson("value", jsonText(value));
    return line.text();
}

QString connection(const EventSource& source, const QDateTime& time, bool connected,
                   const QString& message)
{
    JsonLine line(source, time, "connection");
    line.add("connected", connected);
    line.add("message", message);
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
    line.addJson("results", jsonText(results));
    return line.text();
}

} // namespace EventJson
