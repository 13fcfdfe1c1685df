#pragma once

#include <QJsonObject>
#include <QString>
#include <QTemporaryDir>

/// A description file of a test's own, with a key that nobody else uses. Slots lie one behind the
/// other in the order of the leaves.
class ToolDescription
{
public:
    enum class Metadata { None, ErrorState };

    ToolDescription();

    /// Adds a leaf at a URL of one or two pieces. @p properties come on top and win.
    void add(const QString &url, const QString &type, Metadata metadata, int size,
             const QJsonObject &properties = {});
    /// Sets or overwrites a property of the top level.
    void setRoot(const QString &key, const QJsonValue &value);

    /// Writes the file and gives its path.
    QString write();
    /// Writes a file of another name in the same folder.
    QString write(const QString &name, const QByteArray &text) const;
    QString path(const QString &name) const { return m_dir.filePath(name); }

    QString key() const { return m_key; }
    QString segmentPath() const { return QStringLiteral("/dev/shm/%1SharedMemory").arg(m_key); }
    bool hasSegment() const;
    bool hasSemaphores() const;

    /// Every storage form: full/TYPE with metadata, bare/TYPE without, and two bits of one byte.
    void addEveryForm();

private:
    QTemporaryDir m_dir;
    QString m_key;
    QJsonObject m_root;
    int m_size = 0;
};
