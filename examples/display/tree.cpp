// Shows all values of a device as a tree that can be sorted: display-tree PROCESS_DESCRIPTION [PICTURE]. With a
// picture, a PNG file, the window is photographed as soon as it has values, and the program ends.
//! [tree]
#include <QApplication>
#include <QSortFilterProxyModel>
#include <QTreeView>

#include <TesselModels/ProcessDataModel.h>
#include <TesselModels/ProcessDataSource.h>

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    ProcessDataSource source(QApplication::arguments().value(1));
    ProcessDataModel model;
    model.setSource(&source);
    QSortFilterProxyModel sorted;
    sorted.setSourceModel(&model);
    QTreeView view;
    view.setModel(&sorted);
    view.setSortingEnabled(true);
    view.sortByColumn(TesselModels::NameColumn, Qt::AscendingOrder);
    QObject::connect(&model, &ProcessDataModel::modelReset, &view, &QTreeView::expandAll);
    view.resize(800, 500);
    view.show();
    //! [tree]
    QObject::connect(&source, &ProcessDataSource::generationChanged, &view, [&] {
        const QString picture = QApplication::arguments().value(2);
        if (!picture.isEmpty() && source.getGeneration() > 1) {
            view.setColumnWidth(TesselModels::NameColumn, 240);
            QApplication::exit(view.grab().save(picture) ? 0 : 1);
        }
    });
    return QApplication::exec();
}
