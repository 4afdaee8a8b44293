#pragma once

#include <QDebug>
#include <QRegularExpression>
#include <QStringList>
#include <QThread>

/// Takes over Qt's message handler and keeps what is logged. A critical line in the module's form,
/// by \a object or by a free function ("static"), comes out as "unit line message"; any other line
/// comes out as it went in.
class LogCatcher
{
public:
    explicit LogCatcher(const QObject* object = nullptr)
        : m_previous(qInstallMessageHandler(&LogCatcher::handle))
    {
        reporter = "This = " + print(object);
        lines.clear();
    }
    ~LogCatcher() { qInstallMessageHandler(m_previous); }
    Q_DISABLE_COPY(LogCatcher)

    static QStringList take() { return std::exchange(lines, {}); }

private:
    static QString print(const QObject* object)
    {
        QString text;
        QDebug(&text).nospace() << object;
        return text;
    }

    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& message)
    {
        static const QRegularExpression form(
            "\\A\n \"(\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3})\" ;\t Thread = (.*?) ;\t "
            "(.*?) ;\t plugins/p_driver_modbus/source/(\\w+) ;\t (\\d+) ;\t (.*)\\z");
        const QStringList parts = form.match(message).capturedTexts();
        const bool ours = type == QtCriticalMsg && !context.file && !context.line
            && !context.function && qstrcmp(context.category, "default") == 0 && parts.size() == 7
            && parts[2] == print(QThread::currentThread())
            && parts[3] == (parts[4] == "modbus_utilities" ? "static" : reporter);
        lines.append(ours ? parts.mid(4).join(' ') : message);
    }

    inline static QString reporter;
    inline static QStringList lines;
    QtMessageHandler m_previous;
};
