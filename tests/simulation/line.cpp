#include "line.h"

#include "book.h"

#include <algorithm>

bool Line::isUsed() const
{
    return std::any_of(m_books.begin(), m_books.end(),
                       [](const Book* book) { return book->isThere(); });
}

bool Line::isWanted() const
{
    return std::any_of(m_books.begin(), m_books.end(),
                       [](const Book* book) { return book->wantsLink(); });
}

void Line::attempts(quint64 link)
{
    for (Book* book : m_books) {
        book->attempts(link);
    }
}

void Line::opens(quint64 link)
{
    for (Book* book : m_books) {
        book->opens(link);
    }
}

// Objects that share have units of their own.
void Line::sends(quint64 link, const QByteArray& bytes)
{
    const auto own = std::find_if(m_books.begin(), m_books.end(),
                                  [&](const Book* book) { return book->isUnitOf(bytes); });
    Book& sender = own != m_books.end() ? **own : *m_books.front();
    for (Book* book : m_books) {
        if (book != &sender) {
            book->otherSends(link, bytes);
        }
    }
    sender.sends(link, bytes);
}

void Line::receives(quint64 link, const QByteArray& bytes)
{
    for (Book* book : m_books) {
        book->receives(link, bytes);
    }
}

void Line::loses(quint64 link)
{
    for (Book* book : m_books) {
        book->loses(link);
    }
}

void Line::closes(quint64 link, int unread)
{
    for (Book* book : m_books) {
        book->closes(link, unread);
    }
}

void Line::looksUp()
{
    for (Book* book : m_books) {
        book->looksUp();
    }
}
