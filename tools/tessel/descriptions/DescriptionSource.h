#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "values/LeafSlot.h"

#include <QHash>
#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>

/// A process description as the command line names it, a file or a folder of files, parsed and not
/// bound yet.
///
/// Of a large device, URLs and leaves are gathered only where they are asked for. Not thread-safe.
///
/// Every operation throws a Failure that names the path and the reason.
class DescriptionSource
{
public:
    /// Which slots the leaves of a folder have: those in its files, or those of a build. In a file they are
    /// where the file says.
    enum class Layout { AsWritten, ByBuild };

    explicit DescriptionSource(const QString &path, Layout layout = Layout::AsWritten);
    /// One whose text stands in something else, which messages call @p name.
    DescriptionSource(const QString &name, const QByteArray &text);

    const QString &path() const { return m_path; }
    /// False of a folder that is laid out by a build which its files have not seen.
    bool isAsWritten() const { return m_isAsWritten; }
    const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root() const { return m_root; }

    // The memory of the description. All of it is empty or 0 if the description has none.
    QString key() const;
    /// Bytes of one buffer.
    quint32 bufferSize() const;
    bool isDoubleBuffered() const;
    /// Bytes of the whole region.
    quint32 regionSize() const;
    /// Name of the shared-memory object.
    QString segmentName() const;
    /// Text from which the key of the semaphores is made.
    QString semaphoreName() const;
    /// Refuses a description without memory.
    void requireMemory() const;

    /// All leaves, in the order of their display positions.
    const QVector<Leaf> &leaves() const;
    /// The leaves at the URLs, which may be patterns, and below those that are tree nodes; all of them
    /// if there is no URL.
    QVector<Leaf> leavesAt(const QStringList &urls) const;
    /// The one leaf at a URL.
    Leaf leafAt(const QString &url) const;

private:
    struct Selection;

    [[noreturn]] void refuseUrl(const QString &url) const;

    /// The leaves that a walk over the selected part comes to, or those of all that have been gathered.
    QVector<Leaf> leavesIn(const Selection &selection) const;
    QVector<Leaf> leavesAtAll(const QStringList &urls) const;
    QVector<Leaf> leavesAtOne(const QString &url) const;
    const QHash<QString, int> &placesOfLeaves() const;

    ConfigurationAndProcessDataBase::BaseClassSharedPointer parse(Layout layout);
    void checkOutline() const;

    QString m_path;
    bool m_isAsWritten = true;
    ConfigurationAndProcessDataBase::BaseClassSharedPointer m_root;
    mutable std::optional<QVector<Leaf>> m_leaves; ///< once they were all asked for
    mutable bool m_isWalked = false;               ///< once some were asked for
    mutable QHash<QString, int> m_placesOfLeaves;  ///< by URL, once a second one was asked for
};
