#include "Validation/DescriptionPlaces.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/PropertyManagerConst.h"
#include "Companion/SelectorUrlArrayIndex.h"
#include "Configuration/DirectoryWalk_p.h"
#include "Validation/CheckedFile_p.h"
#include "Validation/NameInTree_p.h"

#include <QHash>

#include <algorithm>
#include <vector>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Kind = DescriptionPlaces::Kind;
using Value = JsonText::Value;

QString extensionOf(Kind kind)
{
    return kind == Kind::Process ? PropertyManagerConst::getProcessDataDescriptionFileExtension()
                                 : PropertyManagerConst::getConfigFileExtension();
}

/// The entry that stands in the tree under a name.
std::optional<QFileInfo> entryNamed(const QFileInfo &folder, const QString &name,
                                    const QString &extension)
{
    const QList<QFileInfo> entries = DirectoryWalk::entriesOf(folder);
    const auto found = std::find_if(
        entries.crbegin(), entries.crend(),
        [&](const QFileInfo &entry) { return nameInTree(entry, extension) == name; });
    return found == entries.crend() ? std::nullopt : std::make_optional(*found);
}

using Places = QVector<std::optional<DescriptionPlace>>;

/// URLs that are looked for, by the names in them.
struct Wanted
{
    /// The number of the URL of a cell, by row and column.
    using Cells = QHash<QPair<quint32, quint32>, int>;

    QHash<QString, Wanted> below;
    QVector<int> here; ///< the numbers of the URLs that end here
    Cells cells;       ///< of the array that is here

    void add(const QString &url, int number, Kind kind)
    {
        SelectorUrlArrayIndex index;
        QString withoutIndex = url;
        if (kind == Kind::Configuration) {
            SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, withoutIndex);
        }
        Wanted *wanted = this;
        const QStringList names = withoutIndex.split(QLatin1Char('/'), Qt::SkipEmptyParts);
        for (const QString &name : names) {
            wanted = &wanted->below[name];
        }
        if (index.isValid()) {
            wanted->cells.insert({index.getRowIndex(), index.getColumnIndex()}, number);
        } else {
            wanted->here.append(number);
        }
    }
};

/// Goes through the text of one file once, however many elements are looked for.
class FileSearch
{
public:
    explicit FileSearch(CheckedFile &file) : m_file(file) { }

    /// The element whose key is @p place, and those below it.
    void search(const Value &place, const Value &element, const Wanted &wanted)
    {
        for (const int number : wanted.here) {
            m_hits.push_back({place, number});
        }
        if (!wanted.cells.isEmpty()) {
            searchCells(element, wanted.cells);
        }
        const auto children = wanted.below.isEmpty() ? std::nullopt : childrenOf(element);
        if (!children) {
            return;
        }
        for (JsonText::Members member(*children); member.isValid(); member.next()) {
            const auto below = wanted.below.constFind(member.key().toString());
            if (below != wanted.below.cend() && member.value().isObject()) {
                search(member.key(), member.value(), *below);
            }
        }
    }

    void addTo(Places &found)
    {
        // Lines and columns are counted from one place to the next.
        std::sort(m_hits.begin(), m_hits.end(), [](const Hit &left, const Hit &right) {
            return left.place.offset() < right.place.offset();
        });
        for (const Hit &hit : m_hits) {
            const TextPlaces::Place at = m_file.placeOf(hit.place);
            found[hit.number] = DescriptionPlace{m_file.path(), at.line, at.column};
        }
    }

private:
    struct Hit
    {
        Value place;
        int number;
    };

    /// An object under the same key is the value of a leaf, and has no children.
    static std::optional<Value> childrenOf(const Value &element)
    {
        const QByteArray type = Definitions::getKeyDataPropertyType().toLatin1();
        const QByteArray value = Definitions::getKeyDataPropertyValue().toLatin1();
        const Value typeName = element.member(QLatin1String(type));
        const Value below = element.member(QLatin1String(value));
        const bool isNode = typeName.isValid() && typeName.isText()
                            && typeName.toString() == Definitions::getKeyDataTypeTreeNode();
        return isNode && below.isValid() && below.isObject() ? std::make_optional(below)
                                                             : std::nullopt;
    }

    void searchCells(const Value &element, const Wanted::Cells &cells)
    {
        const QByteArray key = Definitions::getKeyDataPropertyValue().toLatin1();
        const Value rows = element.member(QLatin1String(key));
        if (!rows.isValid() || !rows.isArray()) {
            return;
        }
        quint32 row = 0;
        for (JsonText::Elements entry(rows); entry.isValid(); entry.next(), ++row) {
            // A flat list is a table of one column.
            if (!entry.value().isArray()) {
                addCell(entry.value(), cells.value({row, 0}, -1));
                continue;
            }
            quint32 column = 0;
            for (JsonText::Elements cell(entry.value()); cell.isValid(); cell.next(), ++column) {
                addCell(cell.value(), cells.value({row, column}, -1));
            }
        }
    }

    void addCell(const Value &cell, int number)
    {
        if (number >= 0) {
            m_hits.push_back({cell, number});
        }
    }

    CheckedFile &m_file;
    std::vector<Hit> m_hits;
};

void searchEntry(Places &found, const QFileInfo &entry, const Wanted &wanted,
                 const QString &extension)
{
    if (entry.isDir()) {
        for (auto name = wanted.below.cbegin(); name != wanted.below.cend(); ++name) {
            if (const auto next = entryNamed(entry, name.key(), extension)) {
                searchEntry(found, *next, name.value(), extension);
            }
        }
        return;
    }
    Findings unused;
    CheckedFile file(entry.filePath(), CheckedFile::Kind::Process, {}, unused);
    if (file.read()) {
        FileSearch search(file);
        search.search(file.root(), file.root(), wanted);
        search.addTo(found);
    }
}

} // namespace

std::optional<DescriptionPlace> DescriptionPlaces::find(const QString &path, const QString &url,
                                                        DescriptionPlaces::Kind kind)
{
    return findAll(path, {url}, kind).constFirst();
}

QVector<std::optional<DescriptionPlace>> DescriptionPlaces::findAll(const QString &path,
                                                                    const QStringList &urls,
                                                                    DescriptionPlaces::Kind kind)
{
    Wanted wanted;
    for (int i = 0; i < urls.size(); ++i) {
        wanted.add(urls.at(i), i, kind);
    }
    Places found(urls.size());
    searchEntry(found, QFileInfo(path), wanted, extensionOf(kind));
    return found;
}
