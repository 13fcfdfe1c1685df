#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/DirectoryVisits_p.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/DirectoryWalk_p.h"
#include "Configuration/FramingSilence_p.h"
#include "Configuration/SharedFiles_p.h"

#include <QDebug>

#include <algorithm>
#include <utility>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Element = SharedFiles::Element;

/// A file that the walk is going to meet, and the names in the tree that lead to its subtree.
struct Place
{
    QFileInfo entry;
    QStringList names;
};

void collectPlaces(const QFileInfo &directory, const QStringList &names, DirectoryVisits &visits,
                   QVector<Place> &places)
{
    if (!visits.enter(directory)) {
        return;
    }
    const QFileInfoList entries = DirectoryWalk::entriesOf(directory);
    for (const QFileInfo &entry : entries) {
        if (entry.isDir()) {
            collectPlaces(entry, names + QStringList(entry.fileName()), visits, places);
        } else if (entry.fileName().endsWith(PropertyManagerConst::getConfigFileExtension())) {
            places.append({entry, names + QStringList(DirectoryWalk::stemOf(entry))});
        }
    }
    visits.leave();
}

/// Without a link among them all files are different ones.
bool holdsLink(const QVector<Place> &places)
{
    return std::any_of(places.cbegin(), places.cend(),
                       [](const Place &place) { return place.entry.isSymLink(); });
}

/// Name by name, as the walk does it. Null if the tree has no such subtree.
Element subtreeAt(const Element &root, const QStringList &names)
{
    Element element = root;
    for (const QString &name : names) {
        if (element.isNull()) {
            return {};
        }
        element = element->getLeaf(name);
    }
    return element;
}

QByteArray textOf(const Element &subtree)
{
    const FramingSilence silence;
    QByteArray text;
    ConfigurationAndProcessDataParser().frameToByteArray(subtree, text, QJsonDocument::Compact);
    return text;
}

} // namespace

SharedFiles::SharedFiles(const Element &element, const QFileInfo &entry)
{
    QVector<Place> places;
    if (entry.isDir()) {
        DirectoryVisits visits;
        collectPlaces(entry, {}, visits, places);
    }
    if (!holdsLink(places)) {
        return;
    }
    QHash<QString, int> counts;
    for (const Place &place : std::as_const(places)) {
        ++counts[place.entry.canonicalFilePath()];
    }
    QHash<QString, int> indices;
    for (const Place &place : std::as_const(places)) {
        const QString path = place.entry.canonicalFilePath();
        if (counts.value(path) < 2) {
            continue;
        }
        if (!indices.contains(path)) {
            indices.insert(path, m_files.size());
            m_files.append(QVector<Name>());
            m_written.insert(path, {});
        }
        m_files[indices.value(path)].append({place.entry, subtreeAt(element, place.names)});
    }
}

bool SharedFiles::agree() const
{
    return std::all_of(m_files.cbegin(), m_files.cend(),
                       [this](const QVector<Name> &names) { return agree(names); });
}

bool SharedFiles::agree(const QVector<Name> &names) const
{
    const Name &first = names.first();
    const QByteArray text = first.subtree.isNull() ? QByteArray() : textOf(first.subtree);
    for (const Name &name : names) {
        // The walk ends where a file has no subtree, before it can write another text.
        if (name.subtree.isNull() || first.subtree.isNull() || name.subtree == first.subtree) {
            continue;
        }
        if (textOf(name.subtree) != text) {
            qWarning() << "One file under two names would get different texts:"
                       << first.entry.filePath() << name.entry.filePath();
            return false;
        }
    }
    return true;
}

Element SharedFiles::writtenFor(const QFileInfo &entry) const
{
    return m_written.isEmpty() ? Element() : m_written.value(entry.canonicalFilePath());
}

void SharedFiles::noteWritten(const QFileInfo &entry, const Element &subtree)
{
    if (m_written.isEmpty()) {
        return;
    }
    const auto written = m_written.find(entry.canonicalFilePath());
    if (written != m_written.end()) {
        *written = subtree;
    }
}

void SharedFiles::copyStamp(const ConfigurationAndProcessDataBase &written,
                            ConfigurationAndProcessDataBase &subtree)
{
    for (const QString &key : {Definitions::getKeyDataPropertyModifiedBy(),
                               Definitions::getKeyDataPropertyLastModified()}) {
        if (written.hasProperty(key)) {
            subtree.setProperty(key, written.getProperty(key));
        }
    }
}
