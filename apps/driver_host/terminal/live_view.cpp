#include "terminal/live_view.h"

#include "output/console.h"
#include "terminal/live_terminal.h"

#include <langinfo.h>

namespace {

constexpr qint64 drawingIntervalMs = 50;

bool isUtf8Terminal() { return QByteArray(::nl_langinfo(CODESET)) == "UTF-8"; }

} // namespace

LiveView::LiveView(const Options& options, Console& console, QObject* parent)
    : QObject(parent), m_options(options), m_console(console), m_unicode(isUtf8Terminal()),
      m_values(options.places)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &LiveView::draw);
    connect(&m_signals, &SignalSource::arrived, this, &LiveView::takeSignal);
    LiveTerminal::setWake(
        [this] { QMetaObject::invokeMethod(this, &LiveView::redraw, Qt::QueuedConnection); });
}

LiveView::~LiveView()
{
    finish();
    LiveTerminal::setWake({});
}

void LiveView::take(const QDateTime& time, const QString& name, const QVariant& value)
{
    m_values.take(time, name, value);
    update();
}

void LiveView::update()
{
    m_hasNews = true;
    redraw();
}

// Out of the event loop, so that all that one reply brings is drawn at once.
void LiveView::redraw()
{
    if (!m_isFinished && m_hasNews && !m_timer.isActive()) {
        const qint64 waited = m_sinceDrawn.isValid() ? m_sinceDrawn.elapsed() : drawingIntervalMs;
        m_timer.start(int(qMax(qint64(0), drawingIntervalMs - waited)));
    }
}

void LiveView::finish()
{
    if (m_isFinished) {
        return;
    }
    m_isFinished = true;
    m_timer.stop();
    if (m_hasNews && !LiveTerminal::finish(picture())) {
        m_console.loseOutput();
    }
}

QStringList LiveView::picture() const
{
    std::optional<LiveStatus> status;
    if (m_options.status) {
        status = m_options.status();
    }
    // One row is left for what is printed above.
    const int rows = qMax(1, LiveTerminal::rows() - 1);
    return livePicture(m_values, status,
                       {LiveTerminal::columns(), rows, m_options.color, m_unicode});
}

void LiveView::draw()
{
    m_sinceDrawn.start();
    if (!LiveTerminal::show(picture())) {
        m_console.loseOutput();
    }
}

void LiveView::takeSignal(int signal)
{
    switch (signal) {
    case SIGTSTP:
        suspend();
        break;
    case SIGCONT: // perhaps after a stop that nobody asked for
        LiveTerminal::forget();
        redraw();
        break;
    default: // another size
        LiveTerminal::touch();
        redraw();
    }
}

// SIGTSTP and not SIGSTOP, which would stop a program that no shell looks after for good.
void LiveView::suspend()
{
    LiveTerminal::touch();
    if (m_hasNews && !m_isFinished) {
        draw();
    }
    LiveTerminal::leave();
    m_signals.raiseAsBefore(SIGTSTP);
    redraw();
}
