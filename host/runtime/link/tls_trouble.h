#pragma once

#include <QString>

class QSslSocket;

/// Why this connection has failed or ended, in words: whose certificate is wrong and how, or what
/// else the two sides could not agree on.
QString tlsTrouble(const QSslSocket& socket);
