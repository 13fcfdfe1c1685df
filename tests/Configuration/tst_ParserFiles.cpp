#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataValue.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/LogCapture.h"

#include <QDir>
#include <QFile>
#include <QJsonParseError>
#include <QTemporaryDir>

namespace {

const QByteArray leafJson = R"({"type":"int32","value":5})";

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(path));
    QCOMPARE(file.write(content), qint64(content.size()));
}

LogLine openFailure(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly | QIODevice::Text);
    return warning(
        QStringLiteral("Can't open file  \"%1\"  IO Error:  \"%2\"").arg(path, file.errorString()));
}

} // namespace

/// Every test runs in an empty directory of its own, so that paths need no dots but their own.
class tst_ParserFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void postfixIsTheLastTwoPieces_data();
    void postfixIsTheLastTwoPieces();
    void fewerThanTwoDotsGiveNoPostfix_data();
    void fewerThanTwoDotsGiveNoPostfix();

    void configurationFileParses();
    void processDescriptionParses();
    void onlyTheLastTwoPiecesCount();
    void lineEndsAreReadAsText();
    void missingFileIsReported();
    void missingFileIsReportedBeforeItsName();
    void directoryCannotBeOpened();
    void emptyPathCannotBeOpened();
    void pathWithOneDotIsRefused();
    void dotOfADirectoryCounts();
    void unknownPostfixIsRefused_data();
    void unknownPostfixIsRefused();
    void refusedFileIsNotParsed();
    void emptyFileIsAParsingError();
    void versionOfAFileIsReported();

private:
    QScopedPointer<QTemporaryDir> m_directory;
    QString m_formerPath;
};

void tst_ParserFiles::init()
{
    m_formerPath = QDir::currentPath();
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
    QVERIFY(QDir::setCurrent(m_directory->path()));
}

void tst_ParserFiles::cleanup()
{
    QVERIFY(QDir::setCurrent(m_formerPath));
    m_directory.reset();
}

void tst_ParserFiles::postfixIsTheLastTwoPieces_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("postfix");

    QTest::newRow("two dots") << "a.config.json"
                              << "config.json";
    QTest::newRow("three dots") << "a.b.c.d"
                                << "c.d";
    QTest::newRow("dot in a directory") << "/d.x/f.y"
                                        << "x/f.y";
    QTest::newRow("no base name") << ".config.json"
                                  << "config.json";
    QTest::newRow("dot at the end") << "a.config."
                                    << "config.";
    QTest::newRow("two dots in a row") << "a..json"
                                       << ".json";
    QTest::newRow("dots alone") << ".."
                                << ".";
    QTest::newRow("any case") << "A.Config.JSON"
                              << "Config.JSON";
    QTest::newRow("complete path") << "/etc/device/a.process.json"
                                   << "process.json";
}

void tst_ParserFiles::postfixIsTheLastTwoPieces()
{
    QFETCH(QString, path);
    QFETCH(QString, postfix);
    LogCapture log;

    QCOMPARE(ConfigurationAndProcessDataParser().cutOutFileTypeAndExtension(path), postfix);
    COMPARE_LOG(log);
}

void tst_ParserFiles::fewerThanTwoDotsGiveNoPostfix_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("one dot") << "a.b";
    QTest::newRow("a postfix alone") << "config.json";
    QTest::newRow("no dot") << "ab";
    QTest::newRow("dot in a directory only") << "/d.x/f";
    QTest::newRow("empty") << "";
}

void tst_ParserFiles::fewerThanTwoDotsGiveNoPostfix()
{
    QFETCH(QString, path);
    LogCapture log;

    QVERIFY(ConfigurationAndProcessDataParser().cutOutFileTypeAndExtension(path).isEmpty());
    COMPARE_LOG(log, warning(QStringLiteral("Path is not valid:  \"%1\"").arg(path)));
}

void tst_ParserFiles::configurationFileParses()
{
    writeFile("a.config.json", R"({"type":"treenode","value":{"b":{"type":"int32","value":5}}})");
    LogCapture log;

    const auto root = ConfigurationAndProcessDataParser().parseFromFile("a.config.json");

    COMPARE_LOG(log);
    QVERIFY(!root.isNull());
    QVERIFY(!root->getLeafConfigurationData("b").isNull());
    QCOMPARE(root->getLeafConfigurationData("b")->getValue(), QVariant(5));
}

void tst_ParserFiles::processDescriptionParses()
{
    const QString path = m_directory->filePath("a.process.json");
    writeFile(path, R"({"type":"treenode","value":{"b":{"type":"int32","value":5}}})");
    LogCapture log;

    const auto root = ConfigurationAndProcessDataParser().parseFromFile(path);

    COMPARE_LOG(log);
    QVERIFY(!root.isNull());
    QVERIFY(!root->getLeafProcessDataValue("b").isNull());
    QVERIFY(root->getLeafConfigurationData("b").isNull());
}

void tst_ParserFiles::onlyTheLastTwoPiecesCount()
{
    writeFile("a.process.json.config.json", leafJson);
    LogCapture log;

    const auto leaf = ConfigurationAndProcessDataParser().parseFromFile(
        "a.process.json.config.json");

    COMPARE_LOG(log);
    QVERIFY(!leaf.dynamicCast<ConfigurationDataValue>().isNull());
}

void tst_ParserFiles::lineEndsAreReadAsText()
{
    writeFile("a.config.json", "{\"type\":\"string\",\r\n\"value\":\"one\r\ntwo\"}\r\n");
    LogCapture log;

    const auto leaf = ConfigurationAndProcessDataParser().parseFromFile("a.config.json");

    COMPARE_LOG(log);
    QVERIFY(!leaf.isNull());
    QCOMPARE(leaf->getProperty("value"), QVariant("one\ntwo"));
}

void tst_ParserFiles::missingFileIsReported()
{
    LogCapture log;

    QVERIFY(ConfigurationAndProcessDataParser().parseFromFile("no.config.json").isNull());
    COMPARE_LOG(log, warning("Can't open file  \"no.config.json\"  IO Error:  "
                             "\"No such file or directory\""));
    QVERIFY(!QFile::exists("no.config.json"));
}

void tst_ParserFiles::missingFileIsReportedBeforeItsName()
{
    LogCapture log;

    QVERIFY(ConfigurationAndProcessDataParser().parseFromFile("no").isNull());
    COMPARE_LOG(log, warning("Can't open file  \"no\"  IO Error:  \"No such file or directory\""));
}

void tst_ParserFiles::directoryCannotBeOpened()
{
    QVERIFY(QDir().mkdir("a.config.json"));
    LogCapture log;

    QVERIFY(ConfigurationAndProcessDataParser().parseFromFile("a.config.json").isNull());
    COMPARE_LOG(log, openFailure("a.config.json"));
}

void tst_ParserFiles::emptyPathCannotBeOpened()
{
    LogCapture log;
    const LogLine expected = openFailure(QString());
    log.take();

    QVERIFY(ConfigurationAndProcessDataParser().parseFromFile(QString()).isNull());
    QCOMPARE(log.take().last(), expected);
}

void tst_ParserFiles::pathWithOneDotIsRefused()
{
    writeFile("a.b", leafJson);
    LogCapture log;

    QVERIFY(ConfigurationAndProcessDataParser().parseFromFile("a.b").isNull());
    COMPARE_LOG(log, warning("Path is not valid:  \"a.b\""),
                warning("No valid file extension found \"\""));
}

void tst_ParserFiles::dotOfADirectoryCounts()
{
    QVERIFY(QDir().mkdir("d.x"));
    writeFile("d.x/f.y", leafJson);
    LogCapture log;

    QVERIFY(ConfigurationAndProcessDataParser().parseFromFile("d.x/f.y").isNull());
    COMPARE_LOG(log, warning("No valid file extension found \"x/f.y\""));
}

void tst_ParserFiles::unknownPostfixIsRefused_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("postfix");

    QTest::newRow("unknown") << "a.menu.json"
                             << "menu.json";
    QTest::newRow("other case") << "a.Config.json"
                                << "Config.json";
    QTest::newRow("further piece") << "a.config.json.bak"
                                   << "json.bak";
    QTest::newRow("empty pieces") << "a.."
                                  << ".";
}

void tst_ParserFiles::unknownPostfixIsRefused()
{
    QFETCH(QString, path);
    QFETCH(QString, postfix);
    writeFile(path, leafJson);
    LogCapture log;

    QVERIFY(ConfigurationAndProcessDataParser().parseFromFile(path).isNull());
    COMPARE_LOG(log, warning(QStringLiteral("No valid file extension found \"%1\"").arg(postfix)));
}

void tst_ParserFiles::refusedFileIsNotParsed()
{
    writeFile("a.menu.json", "no json");
    LogCapture log;

    QVERIFY(ConfigurationAndProcessDataParser().parseFromFile("a.menu.json").isNull());
    COMPARE_LOG(log, warning("No valid file extension found \"menu.json\""));
}

void tst_ParserFiles::emptyFileIsAParsingError()
{
    writeFile("a.config.json", QByteArray());
    QJsonParseError error;
    QJsonDocument::fromJson(QByteArray(), &error);
    LogCapture log;

    QVERIFY(ConfigurationAndProcessDataParser().parseFromFile("a.config.json").isNull());
    COMPARE_LOG(log, warning(QStringLiteral("Parsing error:  \"%1\"").arg(error.errorString())));
}

void tst_ParserFiles::versionOfAFileIsReported()
{
    writeFile("a.config.json", R"({"type":"int32","value":5,"schemeVersion":2})");
    ConfigurationAndProcessDataParser parser;
    LogCapture log;

    QVERIFY(!parser.parseFromFile("a.config.json").isNull());
    COMPARE_LOG(log, warning("Received incompatible scheme version: 2 , 1 !"));

    parser.setCheckVersion(false);
    QVERIFY(!parser.parseFromFile("a.config.json").isNull());
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_ParserFiles)
#include "tst_ParserFiles.moc"
