#pragma once

#include "TesselModels/ModelEnumerations.h"

#include <QAbstractItemModel>

#include <memory>

struct ShownConfiguration;

/// A configuration as the tree of its URLs, to be edited and written back.
///
/// A thread of its own reads the files, writes values and writes the files back; what the thread of the
/// display has is a copy. So a written value shows when it was checked: setting one
/// (Qt::EditRole of the value's column, or the value's role) is true when it was queued, and written()
/// tells what became of it, as do the status column and role of the value until the next write. A text is
/// taken as a value of the type; limits and read-only values are held to, the pattern by the library's checked
/// write. An array is shown as JSON, and written cell by cell with write().
///
/// Nodes have a URL and a name alone. Saving writes the files that were read, each stamped with the time and
/// the origin, and adds them to the records of ConfigurationModificationHandler: an application that reads
/// these does so while no model is saving. What was not saved is lost with the model.
class TESSEL_MODELS_EXPORT ConfigurationModel : public QAbstractItemModel
{
    Q_OBJECT
    Q_PROPERTY(QString path READ getPath WRITE setPath NOTIFY pathChanged)
    Q_PROPERTY(bool loaded READ isLoaded NOTIFY loadedChanged)
    Q_PROPERTY(bool modified READ isModified NOTIFY modifiedChanged)
    Q_PROPERTY(bool saving READ isSaving NOTIFY savingChanged)
    Q_PROPERTY(QString errorText READ getErrorText NOTIFY errorTextChanged)

public:
    explicit ConfigurationModel(QObject *parent = nullptr);
    /// Asks the thread to end and does not wait for it; a save that was asked for is finished.
    ~ConfigurationModel() override;

    /// A file whose name ends in `.config.json`, or the folder of an instance.
    QString getPath() const;
    /// Reads another one; what was not saved is lost. Empty: none.
    void setPath(const QString &path);

    /// Whether there is a configuration.
    bool isLoaded() const;
    /// Whether something was changed since it was read or saved.
    bool isModified() const;
    /// From save() to saved().
    bool isSaving() const;
    /// Why there is no configuration, or why it was not saved, and what to do; else empty.
    QString getErrorText() const;

    /// Reads the files again; what was not saved is lost.
    Q_INVOKABLE void reload();
    /// Writes a value, or the cell of an array, such as `tables/calibration#3,1`. See written().
    Q_INVOKABLE void write(const QString &url, const QVariant &value);
    /// Stamps and writes the files back. @p moduleName and @p objectName: who owns the instance, for the
    /// records of ConfigurationModificationHandler. See saved().
    Q_INVOKABLE void save(const QString &moduleName = {}, const QString &objectName = {});
    /// Of the node or value at @p url; invalid if there is none.
    Q_INVOKABLE QModelIndex indexOf(const QString &url) const;

    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &index) const override;
    using QAbstractItemModel::parent;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    QHash<int, QByteArray> roleNames() const override;

Q_SIGNALS:
    void pathChanged();
    void loadedChanged();
    void modifiedChanged();
    void savingChanged();
    void errorTextChanged();
    /// What became of a write. @p status: a TesselModels::ConfigurationStatus; @p text: the same for a person.
    void written(const QString &url, int status, const QString &text);
    /// The files were written, or not; @p text is the reason then.
    void saved(bool isSaved, const QString &text);

private:
    class Q_DECL_HIDDEN Private;
    Q_DECL_HIDDEN void showConfiguration(const std::shared_ptr<const ShownConfiguration> &shown);
    Q_DECL_HIDDEN void showWrite(const QString &url, int status, const QString &text,
                                 const QString &leafUrl, const QVariant &value);
    Q_DECL_HIDDEN void showSave(bool isSaved, const QString &text);
    Q_DECL_HIDDEN void setModified(bool isModified);
    Q_DECL_HIDDEN QModelIndex indexOfNode(int node, int column) const;

    std::unique_ptr<Private> m_private;
};
