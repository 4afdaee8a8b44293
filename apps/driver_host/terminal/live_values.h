#pragma once

#include "output/renderer.h"

#include <QDateTime>
#include <QString>
#include <QVariant>

#include <vector>

/// One value that is listened to, and what became of it.
struct LiveRow
{
    QString label; ///< its place; without one "values[0]" in a list, else its name
    QVariant value;
    QString text; ///< the value for people
    QString hex; ///< of a plain word; else empty
    /// The last values, oldest first; NaN for one that is no number. Of those within trendStepMs
    /// only the last one.
    std::vector<double> trend;
    QDateTime changed; ///< when it last became another one; invalid when it never did
    bool changedLast = false; ///< the last result that changed anything changed this one
};

/// The last values of an order that goes on, one row for each element of a list or a map.
class LiveValues
{
public:
    static constexpr int trendLength = 40; ///< so many values at most
    static constexpr int trendStepMs = 25;

    explicit LiveValues(const std::optional<Places>& places) : m_places(places) { }

    /// A result has a new value. Its rows replace those that it had before; a row with the same
    /// label in the same place goes on.
    void take(const QDateTime& time, const QString& name, const QVariant& value);
    /// All rows, by result in the order of their first appearance. Valid until the next take().
    std::vector<const LiveRow*> rows() const;
    /// True when the last labels were places.
    bool hasPlaces() const { return m_hasPlaces; }
    /// What the labels are.
    QString title() const { return m_hasPlaces ? m_places->title : QStringLiteral("name"); }

private:
    struct Block
    {
        QString name;
        std::vector<LiveRow> rows;
        QDateTime step; // when the last step of the trends began
    };

    struct Part
    {
        QString label;
        QVariant value;
    };

    void setValue(LiveRow& row, const QVariant& value) const;
    std::vector<Part> parts(const QString& name, const QVariant& value);
    std::vector<Part> listParts(const QString& name, const QVariantList& list);
    Block& block(const QString& name);
    void unmark();

    std::optional<Places> m_places;
    bool m_hasPlaces = false;
    std::vector<Block> m_blocks;
};
