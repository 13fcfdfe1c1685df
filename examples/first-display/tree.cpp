#include <QApplication>
#include <QTreeView>

#include <TesselModels/ProcessDataModel.h>
#include <TesselModels/ProcessDataSource.h>

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    ProcessDataSource source(QApplication::arguments().value(1));
    ProcessDataModel model;
    model.setSource(&source);

    QTreeView view;
    view.setModel(&model);
    QObject::connect(&model, &ProcessDataModel::modelReset, &view, &QTreeView::expandAll);
    QObject::connect(&source, &ProcessDataSource::errorTextChanged, &view,
                     [&] { view.setWindowTitle(source.getErrorText()); });
    view.show();
    return QApplication::exec();
}
