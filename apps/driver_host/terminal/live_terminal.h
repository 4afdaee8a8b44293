#pragma once

#include <QString>
#include <QStringList>

#include <functional>

/// A picture of several lines on the terminal of standard output that the next one replaces. What
/// goes to standard error meanwhile is held back, and printed above it with the next picture.
///
/// While a picture is shown, the cursor is hidden and typed characters do not show. The cursor
/// rests at the picture's beginning, so that however the terminal wraps its lines anew when it is
/// made narrower, the next picture begins there. Nothing is drawn while another program has the
/// terminal.
namespace LiveTerminal {

/// True when standard output is a terminal on which lines can be replaced.
bool isPossible();
/// Its size in characters; 80 by 24 where it does not tell.
int columns();
int rows();

/// Shows \a lines, each narrower than the terminal and without control characters but colours, and
/// no more of them than it has rows. False with errno when they cannot be written.
bool show(const QStringList& lines);
/// The terminal has a new size: the same lines have to be drawn again.
void touch();
/// Gives the terminal back, with the last lines standing above the cursor.
void leave();
/// Another program has had the terminal, and has set it up anew: the next picture begins where the
/// cursor is.
void forget();
/// Shows \a lines as the last ones, whoever has the terminal, and gives it back.
bool finish(const QStringList& lines);

/// Called when a line was held back, from whichever thread it came; it must only post the wish for
/// the next picture. An empty function: nobody is there to show pictures.
void setWake(const std::function<void()>& wake);
/// Holds a line for standard error back; false when there is no reason to.
bool holdBack(const QString& line);
/// Prints what is held back, before the program ends itself in the middle of something.
void printHeldBack();

/// Gives the terminal back in a signal handler that ends the program.
void restoreAtOnce();

} // namespace LiveTerminal
