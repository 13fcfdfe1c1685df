#include "DisplayedPlant.h"
#include "TesselModels/ConfigurationModel.h"
#include "TesselModels/ProcessDataItem.h"
#include "TesselModels/ProcessDataListModel.h"
#include "TesselModels/ProcessDataModel.h"

#include <QAbstractItemModelTester>
#include <QJsonDocument>

using namespace TesselModels;

namespace {

using Tester = QAbstractItemModelTester;

/// Doubles of whatever name, in one node below the top.
QJsonObject nodeOf(const QStringList &names, int &offset)
{
    constexpr int slot = 12;
    QJsonObject leaves;
    for (const auto &name : names) {
        leaves.insert(name, QJsonObject{{QStringLiteral("type"), QStringLiteral("double")},
                                        {QStringLiteral("sizeValue"), 8},
                                        {QStringLiteral("sizeMetadata"), 4},
                                        {QStringLiteral("relativeOffsetMetadata"), 8},
                                        {QStringLiteral("displayPosition"), offset / slot},
                                        {QStringLiteral("offsetSharedMemory"), offset}});
        offset += slot;
    }
    return {{QStringLiteral("type"), QStringLiteral("treenode")},
            {QStringLiteral("value"), leaves}};
}

/// A description of these alone, and what is left of its region at the end.
class OddPlant
{
public:
    explicit OddPlant(const QStringList &names)
        : m_segment(m_description.key() + QStringLiteral("SharedMemory"))
        , m_semaphores(m_description.key() + QStringLiteral("Semaphore"))
    {
        int size = 0;
        QJsonObject root = nodeOf(names, size);
        root.insert(QStringLiteral("keyProcessDataMemory"), m_description.key());
        root.insert(QStringLiteral("doubleBuffer"), true);
        root.insert(QStringLiteral("sizeOfSharedMemory"), size);
        file = m_description.write(QStringLiteral("odd.process.json"),
                                   QJsonDocument(root).toJson());
    }

    QString file;

private:
    ToolDescription m_description;
    SegmentFile m_segment;
    SemaphoreSet m_semaphores;
};

QStringList oddNames()
{
    return {QString(),
            QStringLiteral("/"),
            QStringLiteral("a/b"),
            QStringLiteral("a"),
            QStringLiteral("#1,2"),
            QStringLiteral("<b>bold</b>"),
            QStringLiteral("line\nbreak"),
            QString::fromUtf8("\u202Eright to left\u202C"),
            QString(10000, QLatin1Char('x'))};
}

} // namespace

/// Names that a description may have though nobody would choose them, and URLs as people write them.
class tst_ModelsOfOddNames : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valuesOfOddNamesAreShown();
    void valueWithoutANameIsInNoTree();
    void urlIsFoundWithWhateverSlashes_data();
    void urlIsFoundWithWhateverSlashes();
    void failureOfAWriteIsToldUnderTheUrlThatWasGiven();
    void configurationIsWrittenWithWhateverSlashes();
    void tipIsNeverMarkup();
};

void tst_ModelsOfOddNames::valuesOfOddNamesAreShown()
{
    const OddPlant plant(oddNames());
    HeldRegion region(plant.file);
    QVERIFY(region.isValid());
    ProcessDataSource source(plant.file);
    ProcessDataListModel list;
    ProcessDataModel tree;
    const Tester listTester(&list, Tester::FailureReportingMode::Fatal);
    const Tester treeTester(&tree, Tester::FailureReportingMode::Fatal);
    list.setSource(&source);
    tree.setSource(&source);
    QVERIFY(waitForGeneration(source, 1));
    const int rows = list.rowCount();
    QCOMPARE(rows, oddNames().size());
    // The one without a name has no place in a tree, and "a/b" is below "a".
    QCOMPARE(tree.rowCount(), rows - 2);

    // Each with the others left as they are.
    for (int row = 0; row < rows; ++row) {
        const QString url = list.index(row, 0).data(UrlRole).toString();
        source.write(url, row + 0.5);
        QTRY_COMPARE_WITH_TIMEOUT(list.index(row, 0).data(ValueRole), QVariant(row + 0.5),
                                  longestWait);
    }
    region.manager().swapReadAndWriteBuffer();
    QVERIFY(waitForGeneration(source, quint64(rows) + 2));
}

void tst_ModelsOfOddNames::valueWithoutANameIsInNoTree()
{
    const OddPlant plant({QString(), QStringLiteral("named")});
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataListModel list;
    ProcessDataModel tree;
    list.setSource(&source);
    tree.setSource(&source);
    QVERIFY(waitForGeneration(source, 1));
    QCOMPARE(tree.rowCount(), 1);
    QSignalSpy listChanged(&list, &ProcessDataListModel::dataChanged);
    QSignalSpy treeChanged(&tree, &ProcessDataModel::dataChanged);

    source.write(QString(), 1.5);
    QVERIFY(waitForGeneration(source, 2));

    QCOMPARE(listChanged.count(), 1);
    QCOMPARE(treeChanged.count(), 0);
}

void tst_ModelsOfOddNames::urlIsFoundWithWhateverSlashes_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("root");

    QTest::newRow("plain") << "pump/speed"
                           << "pump";
    QTest::newRow("one in front") << "/pump/speed"
                                  << "/pump";
    QTest::newRow("one behind") << "pump/speed/"
                                << "pump/";
    QTest::newRow("an empty piece") << "pump//speed"
                                    << "//pump//";
}

void tst_ModelsOfOddNames::urlIsFoundWithWhateverSlashes()
{
    QFETCH(QString, url);
    QFETCH(QString, root);
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.speed, validValue(7.5)));
    ProcessDataSource source(plant.file);
    ProcessDataListModel some;
    ProcessDataListModel below;
    ProcessDataModel tree;
    ProcessDataItem item;
    some.setUrls({url});
    below.setRootUrl(root);
    item.setUrl(url);
    some.setSource(&source);
    below.setSource(&source);
    tree.setSource(&source);
    item.setSource(&source);
    QVERIFY(waitForGeneration(source, 2));

    QCOMPARE(some.index(0, 0).data(ValueRole), QVariant(7.5));
    QCOMPARE(some.index(0, 0).data(NameRole), QVariant("speed"));
    QCOMPARE(below.rowCount(), 3);
    QCOMPARE(tree.indexOf(url).data(ValueRole), QVariant(7.5));
    QVERIFY(tree.indexOf(root).isValid());
    QCOMPARE(item.getValue(), QVariant(7.5));
    QCOMPARE(item.getName(), QString("speed"));
    source.write(url, 8.5);
    QTRY_COMPARE_WITH_TIMEOUT(item.getValue(), QVariant(8.5), longestWait);
}

void tst_ModelsOfOddNames::failureOfAWriteIsToldUnderTheUrlThatWasGiven()
{
    const DisplayedPlant plant;
    const HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataItem item;
    item.setUrl(plant.speed);
    item.setSource(&source);
    QVERIFY(waitForGeneration(source, 1));
    QSignalSpy sourceFailed(&source, &ProcessDataSource::writeFailed);
    QSignalSpy itemFailed(&item, &ProcessDataItem::writeFailed);

    source.write(QStringLiteral("/pump/speed"), -1);

    QVERIFY(itemFailed.wait(longestWait));
    QCOMPARE(sourceFailed.count(), 1);
    QCOMPARE(sourceFailed.first()[0], QVariant("/pump/speed"));
    QCOMPARE(itemFailed.first()[0], QVariant(static_cast<int>(WriteError::OutOfRange)));
}

void tst_ModelsOfOddNames::configurationIsWrittenWithWhateverSlashes()
{
    const QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("device.config.json")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"({"type": "treenode", "value": {"filter": {"type": "treenode", "value":
        {"time": {"type": "double", "value": 1.5}}}}})");
    file.close();
    ConfigurationModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    model.setPath(file.fileName());
    QTRY_VERIFY_WITH_TIMEOUT(model.isLoaded(), longestWait);
    QSignalSpy written(&model, &ConfigurationModel::written);

    model.write(QStringLiteral("/filter//time"), 2.5);

    QVERIFY(written.wait(longestWait));
    QCOMPARE(written.first()[1], QVariant(int(ConfigurationChanged)));
    // What the row shows is what was written.
    const QModelIndex time = model.indexOf(QStringLiteral("filter/time/"));
    QCOMPARE(time.data(ValueRole), QVariant(2.5));
    QCOMPARE(time.data(StatusRole), QVariant(int(ConfigurationChanged)));
}

void tst_ModelsOfOddNames::tipIsNeverMarkup()
{
    ProcessDataListModel model;
    model.setUrls({QStringLiteral("pump/speed"), QStringLiteral("pump/<img src='/etc/x'>&<b>s")});

    QCOMPARE(model.index(0, 0).data(Qt::ToolTipRole), QVariant("pump/speed"));
    QCOMPARE(model.index(1, 0).data(Qt::ToolTipRole),
             QVariant("<p>pump/&lt;img src='/etc/x'&gt;&amp;&lt;b&gt;s</p>"));
    QCOMPARE(model.index(1, 0).data(UrlRole), QVariant("pump/<img src='/etc/x'>&<b>s"));
}

QTEST_GUILESS_MAIN(tst_ModelsOfOddNames)
#include "tst_ModelsOfOddNames.moc"
