#include "Companion/SelectorUrlArrayIndex.h"

#include <limits>
#include <optional>

namespace {

/// The number that @p text writes, or nothing. Only ASCII digits count, and a leading zero does
/// not, so that each cell has one written form.
std::optional<quint32> readIndex(const QStringRef &text)
{
    if (text.isEmpty() || (text.size() > 1 && text.at(0) == QLatin1Char('0'))) {
        return std::nullopt;
    }
    quint64 number = 0;
    for (const QChar character : text) {
        if (character < QLatin1Char('0') || character > QLatin1Char('9')) {
            return std::nullopt;
        }
        number = number * 10 + (character.unicode() - u'0');
        if (number > std::numeric_limits<quint32>::max()) {
            return std::nullopt;
        }
    }
    return static_cast<quint32>(number);
}

} // namespace

void SelectorUrlArrayIndex::splitUrlAndArrayIndex(const QString &url, SelectorUrlArrayIndex &index,
                                                  QString &urlWithoutIndex)
{
    index = SelectorUrlArrayIndex();
    urlWithoutIndex = url;

    const int hash = urlWithoutIndex.lastIndexOf(QLatin1Char('#'));
    const int comma = urlWithoutIndex.lastIndexOf(QLatin1Char(','));
    if (hash < 1 || comma < hash) {
        return;
    }
    const auto row = readIndex(urlWithoutIndex.midRef(hash + 1, comma - hash - 1));
    const auto column = readIndex(urlWithoutIndex.midRef(comma + 1));
    if (!row || !column) {
        return;
    }
    index.m_rowIndex = *row;
    index.m_columnIndex = *column;
    index.m_isValid = true;
    urlWithoutIndex.truncate(hash);
}
