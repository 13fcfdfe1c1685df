#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "support/LogCapture.h"
#include "support/WorkingDirectory.h"

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;

/// What an operation that must not touch its result finds there.
QVariant former()
{
    return QVariant("former");
}

QVariant readMember(const QString &path, const QString &key)
{
    QVariant value = former();
    Access::readFolderDescription(path, key, value);
    return value;
}

int countOfOpenFiles()
{
    return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System).size();
}

} // namespace

/// Each test begins with an empty directory "base".
class tst_FolderDescription : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void memberIsReadAsItStands_data();
    void memberIsReadAsItStands();
    void missingMemberReplacesTheResult();
    void keyIsCaseSensitive();
    void noDirectoryLeavesTheResultSilently_data();
    void noDirectoryLeavesTheResultSilently();
    void missingFolderDescriptionIsToldInTheDebugLog();
    void folderDescriptionThatCannotBeOpenedIsReported();
    void folderDescriptionThatIsNoJsonIsReported_data();
    void folderDescriptionThatIsNoJsonIsReported();
    void jsonOtherThanAnObjectHasNoMembers();
    void pathOfTheFolderDescriptionIsPlainText();
    void folderDescriptionIsReadAnewForEachKey();
    void folderDescriptionIsClosedAfterwards();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_FolderDescription::init()
{
    m_directory.reset(new WorkingDirectory);
    makeDirectory("base");
}

void tst_FolderDescription::cleanup()
{
    m_directory.reset();
}

void tst_FolderDescription::memberIsReadAsItStands_data()
{
    QTest::addColumn<QByteArray>("member");
    QTest::addColumn<QVariant>("expected");

    QTest::newRow("text") << QByteArray("\"label\"") << QVariant("label");
    QTest::newRow("empty text") << QByteArray("\"\"") << QVariant("");
    QTest::newRow("number") << QByteArray("1.5") << QVariant(1.5);
    QTest::newRow("truth") << QByteArray("true") << QVariant(true);
    QTest::newRow("null") << QByteArray("null") << QVariant::fromValue(nullptr);
    QTest::newRow("list") << QByteArray("[\"a\"]") << QVariant(QVariantList{"a"});
    QTest::newRow("object") << QByteArray("{\"a\":\"b\"}") << QVariant(QVariantMap{{"a", "b"}});
}

void tst_FolderDescription::memberIsReadAsItStands()
{
    QFETCH(QByteArray, member);
    QFETCH(QVariant, expected);
    writeFile("base/folder.json", "{\"other\":\"x\",\r\n \"labelTextId\": " + member + "}");
    LogCapture log;

    const QVariant value = readMember("base", "labelTextId");

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(value, expected);
    QCOMPARE(value.userType(), expected.userType());
}

void tst_FolderDescription::missingMemberReplacesTheResult()
{
    writeFile("base/folder.json", R"({"labelTextId":"label"})");
    LogCapture log;

    QVERIFY(!readMember("base", "cpveVersion").isValid());

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_FolderDescription::keyIsCaseSensitive()
{
    writeFile("base/folder.json", R"({"LabelTextId":"label"})");

    QVERIFY(!readMember("base", "labelTextId").isValid());
}

void tst_FolderDescription::noDirectoryLeavesTheResultSilently_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("missing") << "missing";
    QTest::newRow("file") << "base/folder.json";
    QTest::newRow("empty") << "";
}

void tst_FolderDescription::noDirectoryLeavesTheResultSilently()
{
    QFETCH(QString, path);
    writeFile("base/folder.json", R"({"labelTextId":"label"})");
    LogCapture log;

    QCOMPARE(readMember(path, "labelTextId"), former());

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_FolderDescription::missingFolderDescriptionIsToldInTheDebugLog()
{
    LogCapture log;

    QCOMPARE(readMember("base", "labelTextId"), former());

    COMPARE_LOG(log, debugLine("No description file found!"));
}

void tst_FolderDescription::folderDescriptionThatCannotBeOpenedIsReported()
{
    makeDirectory("base/folder.json");
    QFile file("base/folder.json");
    QVERIFY(!file.open(QIODevice::ReadOnly | QIODevice::Text));
    LogCapture log;

    QCOMPARE(readMember("base", "labelTextId"), former());

    COMPARE_LOG(log, warning("Can't open file  \"base/folder.json\"  IO Error:  \""
                             + file.errorString() + '"'));
}

void tst_FolderDescription::folderDescriptionThatIsNoJsonIsReported_data()
{
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("empty") << QByteArray();
    QTest::newRow("cut off") << QByteArray(R"({"labelTextId":"label")");
    QTest::newRow("something behind") << QByteArray(R"({"labelTextId":"label"} x)");
    QTest::newRow("no JSON") << QByteArray("labelTextId=label");
}

void tst_FolderDescription::folderDescriptionThatIsNoJsonIsReported()
{
    QFETCH(QByteArray, content);
    writeFile("base/folder.json", content);
    LogCapture log;

    QCOMPARE(readMember("base", "labelTextId"), former());

    COMPARE_LOG(log, warning("Can't parse Json! of File \"base/folder.json\""));
}

void tst_FolderDescription::jsonOtherThanAnObjectHasNoMembers()
{
    writeFile("base/folder.json", R"([{"labelTextId":"label"}])");
    LogCapture log;

    QVERIFY(!readMember("base", "labelTextId").isValid());

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_FolderDescription::pathOfTheFolderDescriptionIsPlainText()
{
    writeFile("base/folder.json", "");
    LogCapture log;

    QCOMPARE(readMember("base/", "labelTextId"), former());

    COMPARE_LOG(log, warning("Can't parse Json! of File \"base//folder.json\""));
}

void tst_FolderDescription::folderDescriptionIsReadAnewForEachKey()
{
    writeFile("base/folder.json", R"({"labelTextId":"first"})");
    QCOMPARE(readMember("base", "labelTextId"), QVariant("first"));

    writeFile("base/folder.json", R"({"labelTextId":"second"})");

    QCOMPARE(readMember("base", "labelTextId"), QVariant("second"));
}

void tst_FolderDescription::folderDescriptionIsClosedAfterwards()
{
    const int count = countOfOpenFiles();
    LogCapture log;

    writeFile("base/folder.json", R"({"labelTextId":"label"})");
    QCOMPARE(readMember("base", "labelTextId"), QVariant("label"));
    writeFile("base/folder.json", "no JSON");
    QCOMPARE(readMember("base", "labelTextId"), former());

    QCOMPARE(countOfOpenFiles(), count);
}

QTEST_GUILESS_MAIN(tst_FolderDescription)

#include "tst_FolderDescription.moc"
