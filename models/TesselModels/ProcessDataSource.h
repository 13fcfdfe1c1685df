#pragma once

#include "TesselModels/ModelEnumerations.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>

struct ShownSet;

/// The region of a process description, followed for a display.
///
/// A thread of its own reads the description, attaches to the region, is woken by each published set,
/// decodes it and hands over what has changed; the thread of the display takes no lock of a region, reads
/// none and waits for nothing. When the region goes, all values have the state NoInput, and the thread
/// attaches anew as soon as it is back, also if the description has changed meanwhile.
///
/// Belongs to the thread that makes it, as do the models and items that show it; signals come from its
/// event loop. Destroying a source does not wait for its thread: that ends by itself, at the latest
/// with the application.
class TESSEL_MODELS_EXPORT ProcessDataSource : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString path READ getPath WRITE setPath NOTIFY pathChanged)
    Q_PROPERTY(bool enabled READ isEnabled WRITE setEnabled NOTIFY enabledChanged)
    Q_PROPERTY(bool connected READ isConnected NOTIFY connectedChanged)
    Q_PROPERTY(quint64 generation READ getGeneration NOTIFY generationChanged)
    Q_PROPERTY(int updateInterval READ getUpdateInterval WRITE setUpdateInterval NOTIFY
                   updateIntervalChanged)
    Q_PROPERTY(QString errorText READ getErrorText NOTIFY errorTextChanged)

public:
    /// Follows nothing yet.
    explicit ProcessDataSource(QObject *parent = nullptr);
    /// Follows the description at @p path.
    explicit ProcessDataSource(const QString &path, QObject *parent = nullptr);
    ~ProcessDataSource() override;

    /// A process description: a file whose name ends in `.process.json`, or a folder of such files.
    QString getPath() const;
    /// Another description; empty: none. All values are without input until it is read.
    void setPath(const QString &path);

    /// Whether the region is followed; true at the start. A source that is not lets it go.
    bool isEnabled() const;
    /// See isEnabled().
    void setEnabled(bool isEnabled);

    /// Whether there is a region to be read, whose creator lives or into which somebody publishes.
    bool isConnected() const;
    /// How often the region was swapped when the shown set was published; 0 while it is away, and of a
    /// single buffer.
    quint64 getGeneration() const;

    /// Milliseconds from one shown set to the next at least; 33 at the start, so that a display has some
    /// 30 pictures a second. Of the sets in between only the newest is shown. A single buffer is read
    /// as often as that. A negative number counts as 0, which is as often as a set comes.
    int getUpdateInterval() const;
    /// See getUpdateInterval().
    void setUpdateInterval(int milliseconds);

    /// Why there are no values, and what to do, for a person; empty while there are, and while the source
    /// is not enabled or has no path.
    QString getErrorText() const;

    /// URLs of all values in the order of their display positions; empty until the description was read.
    Q_INVOKABLE QStringList urls() const;

    /// Writes a value and publishes it, later and in the other thread. A text is read as `tessel set`
    /// reads it, whole numbers also as 0x10. Nothing comes back but the value with the next set, or
    /// writeFailed().
    Q_INVOKABLE void write(const QString &url, const QVariant &value);

Q_SIGNALS:
    void pathChanged();
    void enabledChanged();
    void connectedChanged();
    void generationChanged();
    void updateIntervalChanged();
    void errorTextChanged();
    /// Another description was read: urls() are others.
    void urlsChanged();
    /// A set was taken over: the models and items of this source show it from here on. Comes before
    /// generationChanged() and the others.
    void setShown();
    /// The value at @p url was not written. @p code: a TesselModels::WriteError; @p text: the reason, for a
    /// person.
    void writeFailed(const QString &url, int code, const QString &text);

private:
    friend class ShownSetAccess; // for the models

    class Q_DECL_HIDDEN Private;
    Q_DECL_HIDDEN void takeOver();

    std::unique_ptr<Private> m_private;
};
