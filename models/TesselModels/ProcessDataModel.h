#pragma once

#include "TesselModels/ModelEnumerations.h"

#include <QAbstractItemModel>

#include <memory>

class ProcessDataSource;
struct ShownChanges;
struct ShownSet;

/// Process values of a source as the tree of their URLs.
///
/// Nodes and values stand in the order of their display positions, with the columns of TesselModels::Column
/// and in every column the roles of TesselModels::Role; nodes have a URL and a name alone. A new set costs
/// one pass over what has changed, and is told below each node as ProcessDataListModel does it. The model
/// is reset when a description with other values is read. Setting a value writes it through the source:
/// true means that it was queued, see ProcessDataSource::write().
class TESSEL_MODELS_EXPORT ProcessDataModel : public QAbstractItemModel
{
    Q_OBJECT
    Q_PROPERTY(ProcessDataSource *source READ getSource WRITE setSource NOTIFY sourceChanged)

public:
    explicit ProcessDataModel(QObject *parent = nullptr);
    ~ProcessDataModel() override;

    /// Not owned, and of the same thread; null: none, also once it was destroyed.
    ProcessDataSource *getSource() const;
    /// See getSource().
    void setSource(ProcessDataSource *source);

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
    void sourceChanged();

private:
    class Q_DECL_HIDDEN Private;
    Q_DECL_HIDDEN void showSet(const std::shared_ptr<const ShownSet> &set);
    Q_DECL_HIDDEN void rebuild();
    Q_DECL_HIDDEN void tellChanged(const ShownChanges &changes);
    Q_DECL_HIDDEN QModelIndex indexOfNode(int node, int column) const;

    std::unique_ptr<Private> m_private;
};
