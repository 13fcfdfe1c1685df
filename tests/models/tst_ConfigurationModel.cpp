#include "TesselModels/ConfigurationModel.h"
#include "support/WorkingDirectory.h"

#include <QAbstractItemModelTester>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <limits>
#include <memory>

using namespace TesselModels;

namespace {

using Tester = QAbstractItemModelTester;

constexpr int longestWait = 60000;

const char content[] = R"({
    "type": "treenode", "schemeVersion": 1, "modifiedBy": "", "lastModified": "",
    "value": {
        "code": {"type": "string", "displayPosition": 1, "value": "123",
                 "regularExpression": "[0-9]{3}", "labelTextId": "LABEL_CODE"},
        "range": {"type": "treenode", "displayPosition": 2, "value": {
            "lower": {"type": "double", "value": 1.5, "minLimit": -10, "maxLimit": 10,
                      "unit": "bar"}}},
        "mode": {"type": "selector", "displayPosition": 3, "value": 0,
                 "selectionList": ["off", "auto"]},
        "small": {"type": "int8", "displayPosition": 4, "value": 5},
        "fixed": {"type": "int32", "displayPosition": 5, "value": 7, "readOnly": true},
        "empty": {"type": "uint32", "displayPosition": 6, "value": null},
        "flag": {"type": "boolean", "displayPosition": 7, "value": false},
        "big": {"type": "int64", "displayPosition": 8, "value": 1}
    }
})";

QString configurationFile()
{
    const QString path = QDir::currentPath() + QStringLiteral("/pump.config.json");
    writeFile(path, content);
    return path;
}

QVariant at(const ConfigurationModel &model, const char *url, int role)
{
    return model.indexOf(QString::fromLatin1(url)).data(role);
}

QModelIndex valueIndex(const ConfigurationModel &model, const char *url)
{
    const QModelIndex index = model.indexOf(QString::fromLatin1(url));
    return index.sibling(index.row(), ConfigurationValueColumn);
}

bool waitUntilLoaded(const ConfigurationModel &model)
{
    return QTest::qWaitFor([&] { return model.isLoaded(); }, longestWait);
}

QJsonObject writtenValue(const QString &file, const QString &key)
{
    const QJsonObject root = QJsonDocument::fromJson(readFile(file)).object();
    return root.value(QStringLiteral("value")).toObject().value(key).toObject();
}

} // namespace

/// A configuration as a tree that is edited and written back.
class tst_ConfigurationModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void configurationIsATree();
    void rolesOfAValue();
    void valueIsWrittenAsItIsEntered_data();
    void valueIsWrittenAsItIsEntered();
    void refusedValueIsToldInWords_data();
    void refusedValueIsToldInWords();
    void answerStaysWithTheValue();
    void savedConfigurationIsStamped();
    void savesAreOverWithTheLastOne();
    void saveIsFinishedThoughTheModelGoes();
    void folderIsAnInstance();
    void cellOfAnArrayIsWritten();
    void reloadForgetsWhatWasNotSaved();
    void whatCannotBeReadIsSaid_data();
    void whatCannotBeReadIsSaid();
    void filesThatCannotBeWrittenAreSaid();
};

void tst_ConfigurationModel::configurationIsATree()
{
    const WorkingDirectory directory;
    ConfigurationModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    QVERIFY(!model.isLoaded());
    model.setPath(configurationFile());

    QVERIFY(waitUntilLoaded(model));

    QStringList names;
    for (int row = 0; row < model.rowCount(); ++row) {
        names.append(model.index(row, 0).data().toString());
    }
    QCOMPARE(names,
             QStringList({"code", "range", "mode", "small", "fixed", "empty", "flag", "big"}));
    const QModelIndex range = model.indexOf(QStringLiteral("range"));
    QCOMPARE(model.rowCount(range), 1);
    QCOMPARE(model.columnCount(), 5);
    QCOMPARE(model.index(0, 1, range).data(), QVariant("1.5"));
    QVERIFY(!range.sibling(range.row(), 1).data().isValid());
    QVERIFY(!model.isModified());
    QCOMPARE(model.getErrorText(), QString());
}

void tst_ConfigurationModel::rolesOfAValue()
{
    const WorkingDirectory directory;
    ConfigurationModel model;
    model.setPath(configurationFile());
    QVERIFY(waitUntilLoaded(model));

    const auto names = model.roleNames();
    const auto role = [&](const char *url, const char *name) {
        return at(model, url, names.key(name, -1));
    };
    QCOMPARE(role("code", "value"), QVariant("123"));
    QCOMPARE(role("code", "pattern"), QVariant("[0-9]{3}"));
    QCOMPARE(role("code", "label"), QVariant("LABEL_CODE"));
    QCOMPARE(role("range/lower", "url"), QVariant("range/lower"));
    QCOMPARE(role("range/lower", "name"), QVariant("lower"));
    QCOMPARE(role("range/lower", "value"), QVariant(1.5));
    QCOMPARE(role("range/lower", "unit"), QVariant("bar"));
    QCOMPARE(role("range/lower", "minimum").toDouble(), -10.0);
    QCOMPARE(role("range/lower", "maximum").toDouble(), 10.0);
    QCOMPARE(role("range/lower", "type"), QVariant("double"));
    QCOMPARE(role("mode", "text"), QVariant("off"));
    QCOMPARE(role("mode", "selection").toStringList(), QStringList({"off", "auto"}));
    QCOMPARE(role("fixed", "readOnly"), QVariant(true));
    QVERIFY(!role("empty", "value").isValid());
    QCOMPARE(role("empty", "text"), QVariant(QString()));
    QVERIFY(!role("code", "status").isValid());
    QVERIFY(valueIndex(model, "code").flags() & Qt::ItemIsEditable);
    QVERIFY(!(valueIndex(model, "fixed").flags() & Qt::ItemIsEditable));
    QVERIFY(!(valueIndex(model, "range").flags() & Qt::ItemIsEditable));
}

void tst_ConfigurationModel::valueIsWrittenAsItIsEntered_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QVariant>("entered");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("text") << "code" << QVariant("456") << QVariant("456");
    QTest::newRow("number") << "range/lower" << QVariant(2.5) << QVariant(2.5);
    QTest::newRow("number as text") << "range/lower" << QVariant("-10") << QVariant(-10.0);
    QTest::newRow("whole number of QML") << "small" << QVariant(-128.0) << QVariant(-128);
    QTest::newRow("selector by index") << "mode" << QVariant(1) << QVariant(1);
    QTest::newRow("selector by text") << "mode" << QVariant("auto") << QVariant(1);
    QTest::newRow("boolean") << "flag" << QVariant(true) << QVariant(true);
    QTest::newRow("first number") << "empty" << QVariant("4294967295") << QVariant(4294967295u);
    QTest::newRow("2^53 + 1") << "big" << QVariant("9007199254740993")
                              << QVariant(Q_INT64_C(9007199254740993));
}

void tst_ConfigurationModel::valueIsWrittenAsItIsEntered()
{
    QFETCH(QString, url);
    QFETCH(QVariant, entered);
    QFETCH(QVariant, value);
    const WorkingDirectory directory;
    ConfigurationModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    model.setPath(configurationFile());
    QVERIFY(waitUntilLoaded(model));
    QSignalSpy written(&model, &ConfigurationModel::written);
    QSignalSpy changed(&model, &ConfigurationModel::dataChanged);

    QVERIFY(model.setData(valueIndex(model, url.toLatin1()), entered));
    QVERIFY(written.wait(longestWait));

    QCOMPARE(written.first(), QList<QVariant>({url, int(ConfigurationChanged), "changed"}));
    QCOMPARE(at(model, url.toLatin1(), ValueRole), value);
    QCOMPARE(at(model, url.toLatin1(), ValueRole).userType(), value.userType());
    QCOMPARE(changed.count(), 1);
    QVERIFY(model.isModified());
    // The same again.
    model.write(url, entered);
    QVERIFY(written.wait(longestWait));
    QCOMPARE(written.last(), QList<QVariant>({url, int(ConfigurationUnchanged), "unchanged"}));
}

void tst_ConfigurationModel::refusedValueIsToldInWords_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QVariant>("entered");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("text");

    const auto row = [](const char *name, const char *url, const QVariant &entered,
                        ConfigurationStatus status, const char *text) {
        QTest::newRow(name) << url << entered << int(status) << text;
    };
    row("pattern", "code", "1234", ConfigurationPatternMismatch,
        "the text does not match the pattern");
    row("below", "range/lower", -10.5, ConfigurationOutOfRange,
        "-10.5 is below the lower limit, -10");
    row("above", "range/lower", "11", ConfigurationOutOfRange, "11 is above the upper limit, 10");
    row("no number", "range/lower", "wide", ConfigurationWrongType, "'wide' is no double");
    row("not finite", "range/lower", "nan", ConfigurationWrongType, "'nan' is no double");
    row("too big", "small", 128, ConfigurationWrongType, "'128' is no int8");
    row("half", "small", 1.5, ConfigurationWrongType, "'1.5' is no int8");
    row("negative", "empty", "-1", ConfigurationWrongType, "'-1' is no uint32");
    row("no entry", "mode", 2, ConfigurationWrongType, "'2' is no selector");
    row("no boolean", "flag", "perhaps", ConfigurationWrongType, "'perhaps' is no boolean");
    // Both have no fraction.
    row("beyond 64 bits", "big", 1e300, ConfigurationWrongType, "'1e+300' is no int64");
    row("infinite", "big", std::numeric_limits<double>::infinity(), ConfigurationWrongType,
        "'inf' is no int64");
    row("read-only", "fixed", 8, ConfigurationReadOnly, "the value is read-only");
    row("node", "range", 8, ConfigurationTargetMissing, "there is no such value");
    row("missing", "none", 8, ConfigurationTargetMissing, "there is no such value");
}

void tst_ConfigurationModel::refusedValueIsToldInWords()
{
    QFETCH(QString, url);
    QFETCH(QVariant, entered);
    QFETCH(int, status);
    QFETCH(QString, text);
    const WorkingDirectory directory;
    ConfigurationModel model;
    model.setPath(configurationFile());
    QVERIFY(waitUntilLoaded(model));
    const QVariant former = at(model, url.toLatin1(), ValueRole);
    QSignalSpy written(&model, &ConfigurationModel::written);

    model.write(url, entered);
    QVERIFY(written.wait(longestWait));

    QCOMPARE(written.first(), QList<QVariant>({url, status, text}));
    QCOMPARE(at(model, url.toLatin1(), ValueRole), former);
    QVERIFY(!model.isModified());
}

void tst_ConfigurationModel::answerStaysWithTheValue()
{
    const WorkingDirectory directory;
    ConfigurationModel model;
    model.setPath(configurationFile());
    QVERIFY(waitUntilLoaded(model));
    QSignalSpy written(&model, &ConfigurationModel::written);

    model.write(QStringLiteral("small"), 1000);
    QVERIFY(written.wait(longestWait));

    QCOMPARE(at(model, "small", StatusRole), QVariant(int(ConfigurationWrongType)));
    QCOMPARE(at(model, "small", StatusTextRole), QVariant("'1000' is no int8"));
    const QModelIndex small = model.indexOf(QStringLiteral("small"));
    QCOMPARE(small.sibling(small.row(), ConfigurationStatusColumn).data(),
             QVariant("'1000' is no int8"));
    model.write(QStringLiteral("small"), 100);
    QVERIFY(written.wait(longestWait));
    QCOMPARE(at(model, "small", StatusTextRole), QVariant("changed"));
}

void tst_ConfigurationModel::savedConfigurationIsStamped()
{
    const WorkingDirectory directory;
    const QString file = configurationFile();
    ConfigurationModel model;
    model.setPath(file);
    QVERIFY(waitUntilLoaded(model));
    QSignalSpy saved(&model, &ConfigurationModel::saved);
    model.write(QStringLiteral("small"), 100);

    model.save(QStringLiteral("module"), QStringLiteral("object"));
    QVERIFY(model.isSaving());
    QVERIFY(saved.wait(longestWait));

    QCOMPARE(saved.first(), QList<QVariant>({true, QString()}));
    QVERIFY(!model.isSaving());
    QVERIFY(!model.isModified());
    QCOMPARE(writtenValue(file, QStringLiteral("small")).value(QStringLiteral("value")).toInt(),
             100);
    const QJsonObject root = QJsonDocument::fromJson(readFile(file)).object();
    QCOMPARE(root.value(QStringLiteral("modifiedBy")).toString(), QStringLiteral("Device"));
    QVERIFY(QDateTime::fromString(root.value(QStringLiteral("lastModified")).toString(),
                                  Qt::ISODateWithMs)
                .isValid());
}

/// Who asks what was stamped waits for that, and the helper thread is still at the second one.
void tst_ConfigurationModel::savesAreOverWithTheLastOne()
{
    const WorkingDirectory directory;
    ConfigurationModel model;
    model.setPath(configurationFile());
    QVERIFY(waitUntilLoaded(model));
    QVector<bool> isSavingBehind;
    connect(&model, &ConfigurationModel::saved, this,
            [&] { isSavingBehind.append(model.isSaving()); });
    QSignalSpy changed(&model, &ConfigurationModel::savingChanged);

    model.save();
    model.save();
    QTRY_COMPARE_WITH_TIMEOUT(isSavingBehind.size(), 2, longestWait);

    QCOMPARE(isSavingBehind, QVector<bool>({true, false}));
    QCOMPARE(changed.count(), 2);
}

void tst_ConfigurationModel::saveIsFinishedThoughTheModelGoes()
{
    const WorkingDirectory directory;
    const QString file = configurationFile();
    auto model = std::make_unique<ConfigurationModel>();
    model->setPath(file);
    QVERIFY(waitUntilLoaded(*model));

    model->write(QStringLiteral("small"), 100);
    model->save();
    model.reset();

    QTRY_COMPARE_WITH_TIMEOUT(
        writtenValue(file, QStringLiteral("small")).value(QStringLiteral("value")).toInt(), 100,
        longestWait);
}

void tst_ConfigurationModel::folderIsAnInstance()
{
    const WorkingDirectory directory;
    const QString folder = QDir::currentPath() + QStringLiteral("/device");
    writeFile(folder + QStringLiteral("/pump.config.json"), content);
    writeFile(folder + QStringLiteral("/inner/tank.config.json"), content);
    ConfigurationModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    model.setPath(folder);
    QVERIFY(waitUntilLoaded(model));
    QSignalSpy saved(&model, &ConfigurationModel::saved);

    QCOMPARE(at(model, "pump/code", ValueRole), QVariant("123"));
    model.write(QStringLiteral("inner/tank/small"), 99);
    model.save();
    QVERIFY(saved.wait(longestWait));

    QCOMPARE(saved.first().first().toBool(), true);
    QCOMPARE(
        writtenValue(folder + QStringLiteral("/inner/tank.config.json"), QStringLiteral("small"))
            .value(QStringLiteral("value"))
            .toInt(),
        99);
}

void tst_ConfigurationModel::cellOfAnArrayIsWritten()
{
    const WorkingDirectory directory;
    const QString file = QDir::currentPath() + QStringLiteral("/calibration.config.json");
    writeFile(file, readFile(QStringLiteral(EXAMPLE_DEVICE "/inputs/calibration.config.json")));
    ConfigurationModel model;
    model.setPath(file);
    QVERIFY(waitUntilLoaded(model));
    const QString table = QStringLiteral(CALIBRATION_TABLE);
    const QVariant former = model.indexOf(table).data(ValueRole);
    QVERIFY(model.indexOf(table).data(TextRole).toString().startsWith(QLatin1Char('[')));
    QSignalSpy written(&model, &ConfigurationModel::written);

    model.write(table + QStringLiteral("#0,0"), 4.25);
    QVERIFY(written.wait(longestWait));

    QCOMPARE(written.first()[1].toInt(), int(ConfigurationChanged));
    QVERIFY(model.indexOf(table).data(ValueRole) != former);
    QVERIFY(model.indexOf(table).data(TextRole).toString().contains(QLatin1String("4.25")));
    model.write(table + QStringLiteral("#1000,0"), 4.25);
    QVERIFY(written.wait(longestWait));
    QCOMPARE(written.last()[1].toInt(), int(ConfigurationTargetMissing));
    // As a whole it is not entered.
    QVERIFY(!(valueIndex(model, CALIBRATION_TABLE).flags() & Qt::ItemIsEditable));
}

void tst_ConfigurationModel::reloadForgetsWhatWasNotSaved()
{
    const WorkingDirectory directory;
    ConfigurationModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    model.setPath(configurationFile());
    QVERIFY(waitUntilLoaded(model));
    QSignalSpy reset(&model, &ConfigurationModel::modelReset);
    model.write(QStringLiteral("small"), 100);
    QTRY_VERIFY_WITH_TIMEOUT(model.isModified(), longestWait);

    model.reload();
    QVERIFY(reset.wait(longestWait));

    QCOMPARE(at(model, "small", ValueRole), QVariant(5));
    QVERIFY(!model.isModified());
}

void tst_ConfigurationModel::whatCannotBeReadIsSaid_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("text");

    QTest::newRow("missing") << "none.config.json"
                             << "%1: no such configuration file or folder";
    QTest::newRow("broken") << "broken.config.json"
                            << "%1: cannot be read or parsed; 'tessel validate' shows where";
    QTest::newRow("of another name") << "pump.process.json"
                                     << "%1: not the name of a configuration, which is "
                                        "NAME.config.json";
    QTest::newRow("beside its folder") << "device.config.json"
                                       << "%1: the folder 'device' beside it is the instance of "
                                          "that name; give that one";
}

void tst_ConfigurationModel::whatCannotBeReadIsSaid()
{
    QFETCH(QString, name);
    QFETCH(QString, text);
    const WorkingDirectory directory;
    const QString path = QDir::currentPath() + QLatin1Char('/');
    writeFile(path + QStringLiteral("broken.config.json"), "{ broken");
    writeFile(path + QStringLiteral("pump.process.json"), content);
    writeFile(path + QStringLiteral("device.config.json"), content);
    makeDirectory(path + QStringLiteral("device"));
    ConfigurationModel model;
    QSignalSpy told(&model, &ConfigurationModel::errorTextChanged);

    model.setPath(path + name);
    QVERIFY(told.wait(longestWait));

    QCOMPARE(model.getErrorText(), text.arg(path + name));
    QVERIFY(!model.isLoaded());
    QCOMPARE(model.rowCount(), 0);
}

void tst_ConfigurationModel::filesThatCannotBeWrittenAreSaid()
{
    const WorkingDirectory directory;
    const QString file = configurationFile();
    ConfigurationModel model;
    model.setPath(file);
    QVERIFY(waitUntilLoaded(model));
    QSignalSpy saved(&model, &ConfigurationModel::saved);
    // Where the file was there is a folder now, which nobody can replace by a file.
    QVERIFY(QFile::remove(file));
    makeDirectory(file);

    model.save();
    QVERIFY(saved.wait(longestWait));

    QCOMPARE(saved.first()[0].toBool(), false);
    QCOMPARE(model.getErrorText(), saved.first()[1].toString());
    QVERIFY(model.getErrorText().startsWith(file + QStringLiteral(": ")));
    QVERIFY(model.isLoaded());
}

QTEST_GUILESS_MAIN(tst_ConfigurationModel)
#include "tst_ConfigurationModel.moc"
