#pragma once

#include "network.h"

#include <vector>

class Book;

/// The links of one port, and the books of the objects that use them: one, or several that share.
class Line final : public Network::Watcher
{
public:
    explicit Line(quint16 port) : m_port(port) { }

    void add(Book& book) { m_books.push_back(&book); }
    bool isShared() const { return m_books.size() > 1; }
    /// One of its objects is there.
    bool isUsed() const;
    /// One of its objects has a connect that runs.
    bool isWanted() const;
    int openCount() const { return Network::current()->openCount(m_port); }

    void attempts(quint64 link) override;
    void opens(quint64 link) override;
    void sends(quint64 link, const QByteArray& bytes) override;
    void receives(quint64 link, const QByteArray& bytes) override;
    void loses(quint64 link) override;
    void closes(quint64 link, int unread) override;
    void looksUp() override;

private:
    quint16 m_port;
    std::vector<Book*> m_books;
};
