#include "terminal/live_values.h"

#include "output/value_text.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double noNumber = std::numeric_limits<double>::quiet_NaN();

// A text counts as well: modules hand numbers on as their device writes them.
double numberOf(const QVariant& value)
{
    bool isNumber = false;
    const double number = value.toDouble(&isNumber);
    const bool bytes = value.userType() == QMetaType::QByteArray;
    return isNumber && !bytes && std::isfinite(number) ? number : noNumber;
}

void addToTrend(std::vector<double>& trend, const QVariant& value, bool isNewStep)
{
    if (!isNewStep && !trend.empty()) {
        trend.pop_back();
    }
    if (trend.size() == LiveValues::trendLength) {
        trend.erase(trend.begin());
    }
    trend.push_back(numberOf(value));
}

} // namespace

void LiveValues::take(const QDateTime& time, const QString& name, const QVariant& value)
{
    const std::vector<Part> news = parts(name, value);
    Block& known = block(name);
    // Either way, as the clock may have been set.
    const bool isNewStep = !known.step.isValid() || qAbs(known.step.msecsTo(time)) >= trendStepMs;
    known.step = isNewStep ? time : known.step;
    std::vector<LiveRow>& rows = known.rows;
    rows.resize(news.size());
    std::vector<LiveRow*> changed;
    for (size_t i = 0; i < news.size(); ++i) {
        if (rows[i].label != news[i].label) {
            rows[i] = LiveRow();
            rows[i].label = news[i].label;
        } else if (rows[i].value != news[i].value) {
            changed.push_back(&rows[i]);
        }
        setValue(rows[i], news[i].value);
        addToTrend(rows[i].trend, news[i].value, isNewStep);
    }
    if (!changed.empty()) {
        unmark();
    }
    for (LiveRow* row : changed) {
        row->changed = time;
        row->changedLast = true;
    }
}

void LiveValues::setValue(LiveRow& row, const QVariant& value) const
{
    const bool isTyped = m_hasPlaces && m_places->isTyped;
    row.value = value;
    row.text = isTyped ? typedText(value, m_places->unit) : plainText(value);
    row.hex = isTyped ? QString() : wordText(value);
}

std::vector<const LiveRow*> LiveValues::rows() const
{
    std::vector<const LiveRow*> all;
    for (const Block& block : m_blocks) {
        for (const LiveRow& row : block.rows) {
            all.push_back(&row);
        }
    }
    return all;
}

std::vector<LiveValues::Part> LiveValues::parts(const QString& name, const QVariant& value)
{
    std::vector<Part> parts;
    if (value.userType() == QMetaType::QVariantMap) {
        const ParameterMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            parts.push_back({it.key(), it.value()});
        }
        return parts;
    }
    return value.userType() == QMetaType::QVariantList ? listParts(name, value.toList())
                                                       : std::vector<Part>{{name, value}};
}

std::vector<LiveValues::Part> LiveValues::listParts(const QString& name, const QVariantList& list)
{
    std::vector<Part> parts;
    for (int i = 0; i < list.size(); ++i) {
        const QString place = placeOf(m_places, i, list.size());
        m_hasPlaces = !place.isEmpty();
        parts.push_back(
            {m_hasPlaces ? place : QStringLiteral("%1[%2]").arg(name, QString::number(i)),
             list.at(i)});
    }
    return parts;
}

LiveValues::Block& LiveValues::block(const QString& name)
{
    const auto it = std::find_if(m_blocks.begin(), m_blocks.end(),
                                 [&](const Block& known) { return known.name == name; });
    return it != m_blocks.end() ? *it : m_blocks.emplace_back(Block{name, {}, {}});
}

void LiveValues::unmark()
{
    for (Block& block : m_blocks) {
        for (LiveRow& row : block.rows) {
            row.changedLast = false;
        }
    }
}
