// A display as an application's developer begins it, against the installed package.
#include <QCoreApplication>

#include <cstdlib>

#include <TesselModels/ProcessDataItem.h>
#include <TesselModels/ProcessDataListModel.h>
#include <TesselModels/ProcessDataSource.h>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    ProcessDataSource source(QStringLiteral("nowhere.process.json"));
    ProcessDataListModel model;
    model.setSource(&source);
    ProcessDataItem item;
    item.setSource(&source);
    QObject::connect(&source, &ProcessDataSource::errorTextChanged, QCoreApplication::quit);

    // What cannot be followed is told by the thread of the source.
    QCoreApplication::exec();
    const bool isTold = source.getErrorText().startsWith(QLatin1String("nowhere.process.json: "));
    return isTold && item.getStateName() == TesselModels::stateName(3) ? EXIT_SUCCESS
                                                                       : EXIT_FAILURE;
}
