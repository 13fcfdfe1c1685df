#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "support/LogCapture.h"
#include "support/WorkingDirectory.h"

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;

} // namespace

/// Each test begins with an empty directory "dir".
class tst_DependencyFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void dependencyIsTheCompactText();
    void dependencyMayHoldAnything();
    void dependencyNameMayHoldDots();
    void dependencyWithoutNameIsRefused();
    void dependencyInAMissingDirectoryIsRefused();
    void missingDependencyIsReported();
    void directoryIsNoDependency();
    void processDescriptionIsNoDependency();
    void brokenDependencyAddsNoMessage_data();
    void brokenDependencyAddsNoMessage();
    void dependencyThatCannotBeOpenedAddsNoMessage();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_DependencyFiles::init()
{
    m_directory.reset(new WorkingDirectory);
    makeDirectory("dir");
}

void tst_DependencyFiles::cleanup()
{
    m_directory.reset();
}

void tst_DependencyFiles::dependencyIsTheCompactText()
{
    writeFile("dir/d.config.json",
              "{ \"value\" : {\n \"b\" : {\"value\":\"\xC3\xA4\", \"type\":\"string\"} },\n"
              " \"type\":\"treenode\" }\n");
    LogCapture log;

    QCOMPARE(Access::getDependency(QDir("dir"), "d"),
             QString::fromUtf8("{\"type\":\"treenode\",\"value\":{\"b\":"
                               "{\"type\":\"string\",\"value\":\"\xC3\xA4\"}}}"));

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DependencyFiles::dependencyMayHoldAnything()
{
    writeFile("dir/d.config.json", R"({"type":"anything","needs":["a","b"]})");
    LogCapture log;

    QCOMPARE(Access::getDependency(QDir("dir"), "d"),
             QString(R"({"needs":["a","b"],"type":"anything"})"));

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DependencyFiles::dependencyNameMayHoldDots()
{
    writeFile("dir/d.v1.config.json", R"({"type":"one"})");
    LogCapture log;

    QCOMPARE(Access::getDependency(QDir("dir"), "d.v1"), QString(R"({"type":"one"})"));

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DependencyFiles::dependencyWithoutNameIsRefused()
{
    writeFile("dir/.config.json", R"({"type":"one"})");
    LogCapture log;

    QVERIFY(Access::getDependency(QDir("dir"), "").isEmpty());
    // The name comes before the directory.
    QVERIFY(Access::getDependency(QDir("missing"), {}).isEmpty());

    COMPARE_LOG(log, warning("Dependency instance name is empty!"),
                warning("Dependency instance name is empty!"));
}

void tst_DependencyFiles::dependencyInAMissingDirectoryIsRefused()
{
    LogCapture log;

    QVERIFY(Access::getDependency(QDir("missing/dir"), "d").isEmpty());

    COMPARE_LOG(log, warning("Dependency folder does not exist: \"missing/dir\""));
}

void tst_DependencyFiles::missingDependencyIsReported()
{
    LogCapture log;

    QVERIFY(Access::getDependency(QDir("dir"), "d").isEmpty());

    COMPARE_LOG(log, warning("Cannot parse dependency file. \"\""));
}

void tst_DependencyFiles::directoryIsNoDependency()
{
    writeFile("dir/d/a.config.json", R"({"type":"one"})");
    LogCapture log;

    QVERIFY(Access::getDependency(QDir("dir"), "d").isEmpty());
    COMPARE_LOG(log, warning("Cannot parse dependency file. \"\""));

    writeFile("dir/d.config.json", R"({"type":"two"})");
    QCOMPARE(Access::getDependency(QDir("dir"), "d"), QString(R"({"type":"two"})"));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DependencyFiles::processDescriptionIsNoDependency()
{
    writeFile("dir/d.process.json", R"({"type":"one"})");
    LogCapture log;

    QVERIFY(Access::getDependency(QDir("dir"), "d").isEmpty());

    COMPARE_LOG(log, warning("Cannot parse dependency file. \"\""));
}

void tst_DependencyFiles::brokenDependencyAddsNoMessage_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");

    QTest::newRow("empty") << QByteArray() << "Parsing error:  \"illegal value\"";
    QTest::newRow("no JSON") << QByteArray("{\"a\" 1}")
                             << "Parsing error:  \"missing name separator\"";
    QTest::newRow("no type") << QByteArray("{}") << "key 'type' not found in JSON object";
}

void tst_DependencyFiles::brokenDependencyAddsNoMessage()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    writeFile("dir/d.config.json", content);
    LogCapture log;

    QVERIFY(Access::getDependency(QDir("dir"), "d").isEmpty());

    COMPARE_LOG(log, warning(message));
}

void tst_DependencyFiles::dependencyThatCannotBeOpenedAddsNoMessage()
{
    makeDirectory("dir/d.config.json");
    QFile file("dir/d.config.json");
    QVERIFY(!file.open(QIODevice::ReadOnly | QIODevice::Text));
    LogCapture log;

    QVERIFY(Access::getDependency(QDir("dir"), "d").isEmpty());

    COMPARE_LOG(log, warning("Can't open file  \"dir/d.config.json\"  IO Error:  \""
                             + file.errorString() + '"'));
}

QTEST_GUILESS_MAIN(tst_DependencyFiles)

#include "tst_DependencyFiles.moc"
