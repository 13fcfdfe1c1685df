#include "DisplayedPlant.h"

#include <QQmlComponent>
#include <QQmlEngine>

#include <memory>

namespace {

const char page[] = R"(
import QtQml 2.15
import Tessel 1.0

QtObject {
    id: page
    property string file
    property var source: ProcessDataSource { path: page.file; updateInterval: 0 }
    property var speed: ProcessDataItem { source: page.source; url: "pump/speed" }
    property var count: ProcessDataItem { source: page.source; url: "pump/count" }
    property var list: ProcessDataListModel { source: page.source; rootUrl: "tank" }
    property var tree: ProcessDataModel { source: page.source }
    property var configuration: ConfigurationModel { }
    property bool isUndefined: speed.value === undefined
    property string told: speed.isValid ? speed.text + " " + speed.unit : speed.stateName
    property bool isOver: speed.state === Tessel.Overrange
    property string exact: count.text
    property real doubled: speed.isValid ? speed.value * 2 : -1
    property int failure: 0
    property var failures: Connections {
        target: page.source
        function onWriteFailed(url, code, text) { page.failure = code }
    }
    function set(value) { speed.value = value }
}
)";

} // namespace

/// The models as a page of QML sees them.
class tst_QmlModule : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void bindingsFollowTheValue();
    void wholeNumbersAreExactAsText();
    void valueIsWrittenFromThePage();
    void enumerationsAreKnown();

private:
    std::unique_ptr<QObject> make(const QString &file);

    QQmlEngine m_engine;
};

void tst_QmlModule::initTestCase()
{
    m_engine.addImportPath(QStringLiteral(QML_IMPORT_PATH));
}

std::unique_ptr<QObject> tst_QmlModule::make(const QString &file)
{
    QQmlComponent component(&m_engine);
    component.setData(page, QUrl());
    std::unique_ptr<QObject> made(
        component.createWithInitialProperties({{QStringLiteral("file"), file}}));
    if (!made) {
        qWarning() << component.errorString();
    }
    return made;
}

void tst_QmlModule::bindingsFollowTheValue()
{
    using namespace ProcessDataDefinitions;
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    const auto made = make(plant.file);
    QVERIFY(made);
    QCOMPARE(made->property("isUndefined"), QVariant(true));
    QCOMPARE(made->property("told"), QVariant("no-input"));

    QVERIFY(region.publish(plant.speed, validValue(7.5)));
    QTRY_COMPARE_WITH_TIMEOUT(made->property("told"), QVariant("7.5 1/min"), longestWait);
    QCOMPARE(made->property("isUndefined"), QVariant(false));
    QCOMPARE(made->property("doubled"), QVariant(15.0));
    QVERIFY(region.publish(plant.speed, ProcessValue(PROCESS_VALUE_ERROR_TYPE_OVERRANGE)));

    QTRY_COMPARE_WITH_TIMEOUT(made->property("isOver"), QVariant(true), longestWait);
    QCOMPARE(made->property("isUndefined"), QVariant(true));
    const auto *const list = made->property("list").value<QAbstractItemModel *>();
    QVERIFY(list != nullptr);
    QCOMPARE(list->rowCount(), 4);
}

void tst_QmlModule::wholeNumbersAreExactAsText()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    const auto made = make(plant.file);
    QVERIFY(made);

    QVERIFY(region.publish(plant.count, validValue(Q_INT64_C(9007199254740993))));

    QTRY_COMPARE_WITH_TIMEOUT(made->property("exact"), QVariant("9007199254740993"), longestWait);
}

void tst_QmlModule::valueIsWrittenFromThePage()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    const auto made = make(plant.file);
    QVERIFY(made);
    const auto *const source = made->property("source").value<ProcessDataSource *>();
    QVERIFY(source != nullptr && waitUntilConnected(*source));

    QVERIFY(QMetaObject::invokeMethod(made.get(), "set", Q_ARG(QVariant, 12.5)));
    QTRY_COMPARE_WITH_TIMEOUT(made->property("doubled"), QVariant(25.0), longestWait);
    QCOMPARE(region.read(plant.speed).toDouble(), 12.5);
    QVERIFY(QMetaObject::invokeMethod(made.get(), "set", Q_ARG(QVariant, 1e6)));

    QTRY_COMPARE_WITH_TIMEOUT(made->property("failure"),
                              QVariant(int(TesselModels::WriteError::OutOfRange)), longestWait);
}

void tst_QmlModule::enumerationsAreKnown()
{
    QQmlComponent component(&m_engine);
    component.setData("import QtQml 2.15\nimport Tessel 1.0\nQtObject {\n"
                      "property var all: [Tessel.Valid, Tessel.State.Timeout, Tessel.ReadOnly,\n"
                      "                   Tessel.ValueColumn, Tessel.ConfigurationOutOfRange]\n}",
                      QUrl());
    const std::unique_ptr<QObject> made(component.create());
    QVERIFY2(made, qPrintable(component.errorString()));

    QCOMPARE(made->property("all").toList(), QVariantList({0, 9, 3, 1, 6}));
}

QTEST_GUILESS_MAIN(tst_QmlModule)
#include "tst_QmlModule.moc"
