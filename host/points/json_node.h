#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QStringList>

#include <vector>

// Not installed: a JSON document that is read as what it is expected to be.

namespace Points {

/// A value and its place in the document, such as "tables[2].read". The first thing that is not as
/// expected is kept, for all nodes of the document; what is read after it does not count.
class JsonNode
{
public:
    /// \a error must outlive all nodes of the document.
    JsonNode(const QJsonValue& value, const QString& place, QString* error)
        : m_value(value), m_place(place), m_error(error)
    {
    }

    bool isThere() const { return !m_value.isUndefined(); }
    /// A member of an object; not there, when it is not.
    JsonNode at(const char* key) const;
    std::vector<JsonNode> items() const;
    /// The members of an object.
    QStringList keys() const;
    JsonNode member(const QString& key) const;

    QString text() const; ///< not empty
    int number(int least, int most) const;
    bool flag() const;
    QVariantList list() const;
    /// The index of the text among \a words.
    int choice(const QStringList& words) const;
    /// An object with no other keys than these.
    const JsonNode& only(const QStringList& known) const;
    /// Something is wrong here.
    void refuse(const QString& what) const;

private:
    void expect(bool isSo, const QString& wanted) const;

    QJsonValue m_value;
    QString m_place;
    QString* m_error;
};

} // namespace Points
