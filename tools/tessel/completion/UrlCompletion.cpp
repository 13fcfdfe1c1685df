#include "completion/UrlCompletion.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "configuration/ConfigurationTable.h"
#include "configuration/ConfigurationTarget.h"
#include "descriptions/DescriptionSource.h"

#include <QSet>

namespace {

using Candidate = Completion::Candidate;
using Definitions = ConfigurationAndProcessDataDefinitions;

constexpr QChar slash('/');
constexpr QChar cellMark('#');

QString descriptionOf(const QString &type, const QString &unit)
{
    return unit.isEmpty() ? type : type + QLatin1String(", ") + unit;
}

QStringList truthValues()
{
    return {QStringLiteral("true"), QStringLiteral("false")};
}

/// What follows on @p typed: leaves as they are, nodes up to the slash behind their names.
QVector<Candidate> nextPieces(const QVector<Candidate> &leaves, const QString &typed)
{
    QVector<Candidate> pieces;
    QSet<QString> nodes;
    for (const auto &leaf : leaves) {
        if (!leaf.word.startsWith(typed)) {
            continue;
        }
        const int end = leaf.word.indexOf(slash, typed.size());
        const QString node = leaf.word.left(end + 1);
        if (end < 0) {
            pieces.append(leaf);
        } else if (!nodes.contains(node)) {
            nodes.insert(node);
            pieces.append({node, {}});
        }
    }
    return pieces;
}

/// Where one node is all that follows, what is in it follows.
QVector<Candidate> piecesBehind(const QVector<Candidate> &leaves, const QString &typed)
{
    QVector<Candidate> pieces = nextPieces(leaves, typed);
    while (pieces.size() == 1 && pieces.constFirst().word.endsWith(slash)) {
        pieces = nextPieces(leaves, pieces.constFirst().word);
    }
    return pieces;
}

QString cellUrl(const QString &url, int row, int column)
{
    return QStringLiteral("%1#%2,%3").arg(url, QString::number(row), QString::number(column));
}

QVector<Candidate> cellsOf(const ConfigurationLeaf &leaf)
{
    const ConfigurationTable table(leaf);
    const QStringList titles = table.titles();
    QVector<Candidate> cells;
    for (int row = 0; row < table.rows().size(); ++row) {
        for (int column = 0; column < titles.size(); ++column) {
            cells.append({cellUrl(leaf.url, row, column), titles[column]});
        }
    }
    return cells;
}

/// Whether the action can do anything with the leaf.
bool fits(const QString &action, const ConfigurationLeaf &leaf)
{
    if (action == QLatin1String("table")) {
        return leaf.isArray();
    }
    return action != QLatin1String("set") || !rulesOf(leaf).isReadOnly;
}

} // namespace

QVector<Candidate> processUrls(const QString &path, const QString &typed, UrlsOf leaves)
{
    const DescriptionSource description(path);
    QVector<Candidate> urls;
    for (const auto &leaf : description.leaves()) {
        const LeafSlot slot = slotOf(leaf);
        if (leaves == UrlsOf::Everything || !slot.isReadOnly) {
            const QString unit = textProperty(leaf, Definitions::getKeyDataPropertyUnit());
            urls.append({leaf.url, descriptionOf(slot.type, unit)});
        }
    }
    return piecesBehind(urls, typed);
}

QVector<Candidate> configurationUrls(const QString &action, const QString &path,
                                     const QString &typed)
{
    const ConfigurationSource source(path);
    const bool takesCells = action == QLatin1String("get") || action == QLatin1String("set");
    if (takesCells && typed.contains(cellMark)) {
        return cellsOf(source.leafAt(typed.section(cellMark, 0, 0)));
    }
    QVector<Candidate> urls;
    const QVector<ConfigurationLeaf> leaves = source.leavesAt({});
    for (const auto &leaf : leaves) {
        if (fits(action, leaf)) {
            const QString unit = leaf.text(Definitions::getKeyDataPropertyUnit());
            const QString type = leaf.text(Definitions::getKeyDataPropertyType());
            const bool needsCell = takesCells && leaf.isArray();
            urls.append({needsCell ? leaf.url + cellMark : leaf.url, descriptionOf(type, unit)});
        }
    }
    const QVector<Candidate> pieces = piecesBehind(urls, typed);
    const bool isOneArray = pieces.size() == 1 && pieces.constFirst().word.endsWith(cellMark);
    return isOneArray ? cellsOf(source.leafAt(pieces.constFirst().word.chopped(1))) : pieces;
}

QStringList processValues(const QString &path, const QString &url)
{
    const LeafSlot slot = slotOf(DescriptionSource(path).leafAt(url));
    return slot.metaType == QMetaType::Bool ? truthValues() : QStringList();
}

QStringList configurationValues(const QString &path, const QString &url)
{
    const ConfigurationValueRules rules = targetAt(ConfigurationSource(path), url).rules;
    return rules.metaType == QMetaType::Bool ? truthValues() : rules.selectionList;
}
