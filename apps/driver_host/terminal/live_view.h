#pragma once

#include "terminal/live_picture.h"

#include <common/signal_source.h>

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <functional>

class Console;

/// The results of an order that goes on, replaced in place on the terminal of standard output
/// instead of one below the other.
///
/// It draws out of the event loop, at most 20 times a second, and only when there is news. At most
/// one object at a time.
class LiveView : public QObject
{
    Q_OBJECT

public:
    struct Options
    {
        std::optional<Places> places; ///< that the order asks for
        bool color = false;
        /// Asked at each drawing; empty when nobody wants to know.
        std::function<LiveStatus()> status;
    };

    /// \a console must outlive the view.
    LiveView(const Options& options, Console& console, QObject* parent = nullptr);
    ~LiveView() override;

    /// A result has a new value.
    void take(const QDateTime& time, const QString& name, const QVariant& value);
    /// There is news: what the status tells has changed.
    void update();
    /// Leaves the last values standing, and the terminal as it was. Nothing is drawn any more.
    void finish();

private:
    void redraw();
    QStringList picture() const;
    void draw();
    void takeSignal(int signal);
    void suspend();

    Options m_options;
    Console& m_console;
    bool m_unicode;
    LiveValues m_values;
    SignalSource m_signals{{SIGTSTP, SIGCONT, SIGWINCH}};
    QTimer m_timer; ///< until the next drawing, when there is news
    QElapsedTimer m_sinceDrawn;
    bool m_hasNews = false; ///< there was some, ever: before, there is nothing to draw
    bool m_isFinished = false;
};
