#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <QString>

/// The two streams of the program: results go to standard output and leave it at once, everything
/// else goes to standard error.
class Console : public QObject
{
    Q_OBJECT

public:
    /// With \a quiet, notes are not shown; with \a color, failures stand out on a terminal.
    Console(bool quiet, bool color, QObject* parent = nullptr);

    /// Writes whole lines to standard output. On a terminal, control characters in them are shown.
    void write(const QString& lines);
    /// True when a result could not be written although somebody was there to read it.
    bool hasLostOutput() const { return m_lostOutput; }
    /// To be called when a write to standard output by someone else failed, with its errno.
    void loseOutput();
    /// True when results may be coloured.
    bool hasColorOfResults() const { return m_colorOfResults; }
    /// Tells what went wrong, on one line. Control characters in it are shown.
    void error(const QString& line);
    /// Tells what is nice to know, likewise.
    void note(const QString& line);
    /// True when somebody is at the terminal who wants notes and does not see results there.
    /// \a withResults: results are few, so that a terminal may show both.
    bool canShowProgress(bool withResults = false) const;
    /// Tells how far it has come, on a line that the next one replaces.
    void showProgress(const QString& text);
    /// Takes that line away, if it is there.
    void clearProgress();

signals:
    /// Nothing more can be written to standard output: its reader has gone, or a write failed.
    /// Emitted once.
    void outputClosed();

private:
    void watchOutput();
    void closeOutput();

    bool m_quiet;
    bool m_color;
    bool m_colorOfResults;
    bool m_isTerminal; // standard output
    bool m_open = true;
    bool m_lostOutput = false;
    QSocketNotifier m_hangUp;
};

/// One line to standard error, from any thread. Control characters in it are shown.
void writeStandardError(const QString& line);
