#include "terminal/live_picture.h"

#include "output/value_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <wchar.h>

namespace {

constexpr int gap = 2; // between columns, and the mark with the blank behind it
constexpr int leastTrend = 8;
constexpr int timeWidth = 12;

constexpr const char* header = "2"; // faint
constexpr const char* changedLast = "1"; // bold
constexpr const char* alarm = "31"; // red

QString colored(const QString& text, const char* attribute, const PictureStyle& style)
{
    return style.color ? QStringLiteral("\x1b[%1m%2\x1b[0m").arg(QLatin1String(attribute), text)
                       : text;
}

// One column is left free: some terminals wrap a line as soon as it is full.
int usableColumns(const PictureStyle& style) { return std::max(1, style.columns - 1); }

// The columns that a character takes; negative when it cannot be shown.
int columnsOf(uint character, bool unicode)
{
    return character < 0x80 || unicode ? ::wcwidth(wchar_t(character)) : -1;
}

int columnsOf(const QString& text, bool unicode)
{
    int columns = 0;
    for (const uint character : text.toUcs4()) {
        columns += columnsOf(character, unicode);
    }
    return columns;
}

// Only what the terminal can show, so that its columns can be counted.
QString showable(const QString& text, bool unicode)
{
    QString shown;
    for (const uint character : text.toUcs4()) {
        shown += columnsOf(character, unicode) < 0 ? QStringLiteral("?")
                                                   : QString::fromUcs4(&character, 1);
    }
    return shown;
}

// A number that is cut must not look like a smaller one.
QString cut(const QString& text, int width, bool unicode)
{
    if (columnsOf(text, unicode) <= width) {
        return text;
    }
    QString kept;
    int columns = 1;
    for (const uint character : text.toUcs4()) {
        columns += columnsOf(character, unicode);
        if (columns > width) {
            break;
        }
        kept += QString::fromUcs4(&character, 1);
    }
    return kept + (unicode ? QChar(0x2026) : QLatin1Char('~'));
}

QString padded(const QString& text, int width, bool toTheRight, bool unicode)
{
    const QString blanks(std::max(0, width - columnsOf(text, unicode)), QLatin1Char(' '));
    return toTheRight ? blanks + text : text + blanks;
}

QString trendStep(double position, bool unicode)
{
    static const QString blocks =
        QStringLiteral("\u2581\u2582\u2583\u2584\u2585\u2586\u2587\u2588");
    static const QString ascii = QStringLiteral("_.-^");
    const QString& steps = unicode ? blocks : ascii;
    return steps.mid(int(std::lround(position * (steps.size() - 1))), 1);
}

// The last \a width values between the least and the most of them.
QString trendText(const std::vector<double>& trend, int width, bool unicode)
{
    const auto first = trend.cend() - std::min<std::ptrdiff_t>(width, std::ptrdiff_t(trend.size()));
    std::vector<double> numbers;
    std::copy_if(first, trend.cend(), std::back_inserter(numbers),
                 [](double value) { return !std::isnan(value); });
    if (numbers.empty()) {
        return {};
    }
    const auto [least, most] = std::minmax_element(numbers.cbegin(), numbers.cend());
    const double span = *most / 2 - *least / 2; // halves, as the whole may be beyond a double
    QString text;
    for (auto it = first; it != trend.cend(); ++it) {
        const double position = span > 0 ? (*it / 2 - *least / 2) / span : 0;
        text += std::isnan(*it) ? QStringLiteral(" ") : trendStep(position, unicode);
    }
    return text;
}

// A line of the table before its columns are known. The trend is the row's.
struct Texts
{
    QString label;
    QString value;
    QString hex;
    QString changed;
    bool isNumber = false;
};

Texts headerTexts(const QString& title, bool numbers)
{
    return {title, QStringLiteral("value"), QStringLiteral("hex"), QStringLiteral("last change"),
            numbers};
}

Texts textsOf(const LiveRow& row, bool unicode)
{
    const QString changed = row.changed.isValid()
        ? row.changed.toLocalTime().toString(QStringLiteral("HH:mm:ss.zzz"))
        : QString();
    return {showable(row.label, unicode), showable(row.text, unicode), row.hex, changed,
            !row.trend.empty() && !std::isnan(row.trend.back())};
}

// The widths of the columns; 0 for one that is not shown.
struct Widths
{
    int label = 0;
    int value = 0;
    int hex = 0;
    int changed = 0;
    int trend = 0;
};

class Table
{
public:
    Table(const std::vector<const LiveRow*>& rows, bool hasHeader, const LiveValues& values,
          const PictureStyle& style);

    QStringList lines() const;

private:
    bool hasNumbers() const;
    Widths neededWidths() const;
    void fitWidths();
    QString line(const Texts& texts, const QString& mark, const QString& trend) const;
    QString rowLine(size_t index) const;

    std::vector<const LiveRow*> m_rows;
    std::vector<Texts> m_texts;
    std::optional<Texts> m_header;
    bool m_hasPlaces;
    PictureStyle m_style;
    Widths m_widths;
};

Table::Table(const std::vector<const LiveRow*>& rows, bool hasHeader, const LiveValues& values,
             const PictureStyle& style)
    : m_rows(rows), m_hasPlaces(values.hasPlaces()), m_style(style)
{
    for (const LiveRow* row : rows) {
        m_texts.push_back(textsOf(*row, style.unicode));
    }
    if (hasHeader) {
        m_header = headerTexts(values.title(), hasNumbers());
    }
    fitWidths();
}

bool Table::hasNumbers() const
{
    return std::any_of(m_texts.cbegin(), m_texts.cend(),
                       [](const Texts& texts) { return texts.isNumber; });
}

Widths Table::neededWidths() const
{
    Widths needed;
    std::vector<Texts> all = m_texts;
    all.push_back(m_header.value_or(Texts()));
    const auto grow = [&](int& width, const QString& text) {
        width = std::max(width, columnsOf(text, m_style.unicode));
    };
    for (const Texts& texts : all) {
        grow(needed.label, texts.label);
        grow(needed.value, texts.value);
    }
    for (const Texts& texts : m_texts) {
        grow(needed.hex, texts.hex);
    }
    needed.changed = timeWidth;
    needed.trend = hasNumbers() ? leastTrend : 0;
    return needed;
}

void Table::fitWidths()
{
    m_widths = neededWidths();
    int left = usableColumns(m_style) - gap - m_widths.label - gap - m_widths.value;
    for (int* width : {&m_widths.hex, &m_widths.trend, &m_widths.changed}) {
        const int taken = *width > 0 ? gap + *width : 0;
        if (taken > left) {
            left = 0; // what matters less goes as well
            *width = 0;
        }
        left -= *width > 0 ? taken : 0;
    }
    if (m_widths.trend > 0) {
        m_widths.trend = std::min(LiveValues::trendLength, m_widths.trend + left);
    }
}

QString Table::line(const Texts& texts, const QString& mark, const QString& trend) const
{
    const bool unicode = m_style.unicode;
    const QString between(gap, QLatin1Char(' '));
    QString line = mark.leftJustified(gap)
        + padded(texts.label, m_widths.label, m_hasPlaces, unicode) + between
        + padded(texts.value, m_widths.value, texts.isNumber, unicode);
    const std::array<std::pair<int, const QString*>, 3> others{
        {{m_widths.hex, &texts.hex}, {m_widths.changed, &texts.changed}, {m_widths.trend, &trend}}};
    for (const auto& [width, text] : others) {
        line += width > 0 ? between + padded(*text, width, false, unicode) : QString();
    }
    while (line.endsWith(QLatin1Char(' '))) {
        line.chop(1);
    }
    return cut(line, usableColumns(m_style), unicode);
}

QString Table::rowLine(size_t index) const
{
    const LiveRow& row = *m_rows[index];
    const QString text = line(m_texts[index], QLatin1String(row.changedLast ? "*" : ""),
                              trendText(row.trend, m_widths.trend, m_style.unicode));
    return row.changedLast ? colored(text, changedLast, m_style) : text;
}

QStringList Table::lines() const
{
    QStringList lines;
    if (m_header) {
        lines.append(colored(line(*m_header, {}, QStringLiteral("trend")), header, m_style));
    }
    for (size_t i = 0; i < m_rows.size(); ++i) {
        lines.append(rowLine(i));
    }
    return lines;
}

// What fits of it, the most important first; shown in another order.
QString statusLine(const LiveStatus& status, const PictureStyle& style)
{
    const QString interval = status.intervalMs > 0
        ? QStringLiteral("every %1 ms").arg(status.intervalMs)
        : QStringLiteral("default interval");
    const std::array<QString, 5> parts{
        showable(status.device, style.unicode), interval,
        status.connected ? QStringLiteral("connected") : QStringLiteral("connection lost"),
        QStringLiteral("%1 done").arg(status.done), QStringLiteral("%1 failed").arg(status.failed)};
    std::array<bool, 5> isShown{};
    const QString comma = QStringLiteral(", ");
    int left = usableColumns(style) + comma.size();
    for (const size_t part : {2U, 4U, 3U, 0U, 1U}) {
        const int width = columnsOf(parts[part], style.unicode);
        left -= width > 0 ? width + comma.size() : 0;
        isShown[part] = width > 0 && (left >= 0 || part == 2);
    }
    QStringList shown;
    for (size_t part = 0; part < parts.size(); ++part) {
        if (isShown[part]) {
            shown.append(parts[part]);
        }
    }
    const QString text = cut(shown.join(comma), usableColumns(style), style.unicode);
    return colored(text, status.connected ? header : alarm, style);
}

} // namespace

QStringList livePicture(const LiveValues& values, const std::optional<LiveStatus>& status,
                        const PictureStyle& style)
{
    std::vector<const LiveRow*> rows = values.rows();
    const int count = int(rows.size());
    const bool hasStatus = status && style.rows > std::min(2, count);
    const int room = style.rows - (hasStatus ? 1 : 0);
    const int shown = count <= room ? count : std::max(1, room - 1);
    rows.resize(size_t(shown));
    QStringList lines = Table(rows, count > 0 && count < room, values, style).lines();
    if (shown < count && room > shown) {
        lines.append(cut(QStringLiteral("(%1 more)").arg(count - shown), usableColumns(style),
                         style.unicode));
    }
    if (hasStatus) {
        lines.append(statusLine(*status, style));
    }
    return lines;
}
