#include "TesselModels/LeafCells_p.h"

#include <QCoreApplication>

using namespace TesselModels;

namespace {

QString access(const SourceLeaf &leaf)
{
    return leaf.isReadOnly ? QStringLiteral("read-only") : QStringLiteral("writable");
}

QVariant described(const SourceLeaf &leaf, int role)
{
    switch (role) {
    case UnitRole: return leaf.unit;
    case TypeRole: return leaf.type;
    case MinimumRole: return leaf.minimum;
    case MaximumRole: return leaf.maximum;
    case ReadOnlyRole: return leaf.isReadOnly;
    case DisplayPositionRole: return leaf.displayPosition;
    case LabelRole: return leaf.label;
    default: return {};
    }
}

QVariant live(const ShownSet &set, int leaf, int role)
{
    switch (role) {
    case ValueRole: return set.value(leaf);
    case TextRole: return set.text(leaf);
    case StateRole: return static_cast<int>(set.stateOf(leaf));
    case StateNameRole: return stateName(static_cast<int>(set.stateOf(leaf)));
    case ValidRole: return set.isValid(leaf);
    default: return described(set.leafAt(leaf), role);
    }
}

/// Of a leaf that is not there.
QVariant missing(int role)
{
    constexpr auto state = static_cast<int>(State::NoInput);
    switch (role) {
    case TextRole:
        return ProcessValue(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE)
            .toString();
    case StateRole: return state;
    case StateNameRole: return stateName(state);
    case ValidRole: return false;
    case ReadOnlyRole: return true;
    case UnitRole:
    case TypeRole:
    case LabelRole: return QString();
    default: return {};
    }
}

QVariant displayed(const ShownSet &set, int leaf, const QString &url, int column)
{
    switch (column) {
    case NameColumn: return url.section(QLatin1Char('/'), -1, -1, QString::SectionSkipEmpty);
    case ValueColumn: return LeafCells::data(set, leaf, url, column, TextRole);
    case UnitColumn: return LeafCells::data(set, leaf, url, column, UnitRole);
    case StateColumn: return LeafCells::data(set, leaf, url, column, StateNameRole);
    case TypeColumn: return LeafCells::data(set, leaf, url, column, TypeRole);
    case AccessColumn: return leaf >= 0 ? access(set.leafAt(leaf)) : QString();
    default: return {};
    }
}

} // namespace

QHash<int, QByteArray> LeafCells::roleNames()
{
    return {{Qt::DisplayRole, "display"}, {UrlRole, "url"},
            {NameRole, "name"},           {ValueRole, "value"},
            {TextRole, "text"},           {StateRole, "state"},
            {StateNameRole, "stateName"}, {ValidRole, "valid"},
            {UnitRole, "unit"},           {TypeRole, "type"},
            {MinimumRole, "minimum"},     {MaximumRole, "maximum"},
            {ReadOnlyRole, "readOnly"},   {DisplayPositionRole, "displayPosition"},
            {LabelRole, "label"}};
}

QVariant LeafCells::header(int section, int role)
{
    static const char *const titles[] = {
        QT_TRANSLATE_NOOP("TesselModels", "Name"), QT_TRANSLATE_NOOP("TesselModels", "Value"),
        QT_TRANSLATE_NOOP("TesselModels", "Unit"), QT_TRANSLATE_NOOP("TesselModels", "State"),
        QT_TRANSLATE_NOOP("TesselModels", "Type"), QT_TRANSLATE_NOOP("TesselModels", "Access")};
    return role == Qt::DisplayRole && section >= 0 && section < ColumnCount
               ? QCoreApplication::translate("TesselModels", titles[section])
               : QVariant();
}

QVariant LeafCells::data(const ShownSet &set, int leaf, const QString &url, int column, int role)
{
    switch (role) {
    case Qt::DisplayRole: return displayed(set, leaf, url, column);
    case Qt::EditRole:
        return column == ValueColumn ? data(set, leaf, url, column, ValueRole)
                                     : displayed(set, leaf, url, column);
    case Qt::ToolTipRole: return tip(url);
    case UrlRole: return url;
    case NameRole: return displayed(set, leaf, url, NameColumn);
    case Qt::TextAlignmentRole:
        return column == ValueColumn ? QVariant(int(Qt::AlignRight | Qt::AlignVCenter))
                                     : QVariant();
    default: break;
    }
    return leaf >= 0 ? live(set, leaf, role) : missing(role);
}

QString LeafCells::tip(const QString &text)
{
    return text.contains(QLatin1Char('<')) ? QStringLiteral("<p>%1</p>").arg(text.toHtmlEscaped())
                                           : text;
}

bool LeafCells::isWritable(const ShownSet &set, int leaf)
{
    return leaf >= 0 && set.isConnected && !set.leafAt(leaf).isReadOnly;
}

const QVector<int> &LeafCells::changingRoles()
{
    static const QVector<int> roles{Qt::DisplayRole, Qt::EditRole,  ValueRole, TextRole,
                                    StateRole,       StateNameRole, ValidRole};
    return roles;
}
