#pragma once

#include "TesselModels/ModelEnumerations.h"

#include <QAbstractTableModel>
#include <QStringList>

#include <memory>

class ProcessDataSource;
struct ShownChanges;
struct ShownSet;

/// Process values of a source as a flat list: those of `urls`, those below `rootUrl`, or all of them.
///
/// A row a value, the columns of TesselModels::Column, and in every column the roles of TesselModels::Role.
/// A new set costs one pass over what has changed: up to 16 runs of neighbouring rows are told by one
/// dataChanged() each, more by one over all rows, with the roles named, and over the columns from value to
/// state if a state has changed, else over that of the value. Rows of `urls` are as many as these, whatever
/// the description has; the others are reset when a description with other values is read.
///
/// Setting a value (Qt::EditRole of the value's column, or the value's role) writes it through the source:
/// true means that it was queued, see ProcessDataSource::write().
class TESSEL_MODELS_EXPORT ProcessDataListModel : public QAbstractTableModel
{
    Q_OBJECT
    Q_PROPERTY(ProcessDataSource *source READ getSource WRITE setSource NOTIFY sourceChanged)
    Q_PROPERTY(QStringList urls READ getUrls WRITE setUrls NOTIFY urlsChanged)
    Q_PROPERTY(QString rootUrl READ getRootUrl WRITE setRootUrl NOTIFY rootUrlChanged)
    Q_PROPERTY(int count READ getCount NOTIFY countChanged)

public:
    explicit ProcessDataListModel(QObject *parent = nullptr);
    ~ProcessDataListModel() override;

    /// Not owned, and of the same thread; null: none, also once it was destroyed.
    ProcessDataSource *getSource() const;
    /// See getSource().
    void setSource(ProcessDataSource *source);

    /// The rows; empty: those below the root URL.
    QStringList getUrls() const;
    /// See getUrls().
    void setUrls(const QStringList &urls);

    /// A node of the description; empty: all values. Without meaning while there are urls.
    QString getRootUrl() const;
    /// See getRootUrl().
    void setRootUrl(const QString &url);

    /// How many rows there are.
    int getCount() const { return rowCount(); }

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    QHash<int, QByteArray> roleNames() const override;

Q_SIGNALS:
    void sourceChanged();
    void urlsChanged();
    void rootUrlChanged();
    void countChanged();

private:
    class Q_DECL_HIDDEN Private;
    Q_DECL_HIDDEN void showSet(const std::shared_ptr<const ShownSet> &set);
    Q_DECL_HIDDEN void rebuild();
    Q_DECL_HIDDEN void tellChanged(const ShownChanges &changes);

    std::unique_ptr<Private> m_private;
};
