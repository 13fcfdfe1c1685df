#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "support/LogCapture.h"
#include "support/WorkingDirectory.h"

#include <type_traits>

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;

static_assert(std::is_default_constructible<Access>::value, "");
static_assert(std::has_virtual_destructor<Access>::value, "");

QStringList listedNames(const QDir &directory)
{
    QStringList names;
    const auto entries = Access::generateDirectoryInfoList(directory);
    for (const QFileInfo &entry : entries) {
        names.append(entry.fileName());
    }
    return names;
}

} // namespace

/// Each test begins with an empty directory "base".
class tst_DirectoryConventions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void entriesStandByNameCaseSensitively();
    void listingEntersNoSubDirectory();
    void hiddenEntriesAreNotListed();
    void linksAreFollowed();
    void brokenLinksAreNotListed();
    void entriesCarryThePathOfTheDirectory();
    void emptyAndMissingDirectoriesGiveAnEmptyList();
    void directoryOfTheCallerStaysUntouched();
    void settingsOfTheCallerDoNotCount();

    void listingHoldsSomething_data();
    void listingHoldsSomething();
    void emptySubDirectoryMakesAListingCount();

    void originIsTheDevice();

    void configurationPathIsThatOfTheFile();
    void processDescriptionPathIsThatOfTheFile();
    void eachKindHasItsOwnExtension();
    void missingFileKeepsTheFormerPath();
    void missingDirectoryKeepsTheFormerPath();
    void extensionIsAddedToAnyName();
    void directoryInPlaceOfTheFileExists();
    void brokenLinkInPlaceOfTheFileDoesNotExist();

private:
    QScopedPointer<WorkingDirectory> m_directory;
};

void tst_DirectoryConventions::init()
{
    m_directory.reset(new WorkingDirectory);
    makeDirectory("base");
}

void tst_DirectoryConventions::cleanup()
{
    m_directory.reset();
}

void tst_DirectoryConventions::entriesStandByNameCaseSensitively()
{
    const QStringList files{"base/b",
                            "base/A.config.json",
                            "base/a.config.json",
                            "base/folder.json",
                            "base/Z",
                            QString::fromUtf8("base/\xC3\xA4")};
    for (const QString &file : files) {
        writeFile(file, "");
    }
    makeDirectory("base/B");
    makeDirectory("base/a");
    makeDirectory("base/c.d.e");

    QCOMPARE(listedNames(QDir("base")),
             (QStringList{"A.config.json", "B", "Z", "a", "a.config.json", "b", "c.d.e",
                          "folder.json", QString::fromUtf8("\xC3\xA4")}));
}

void tst_DirectoryConventions::listingEntersNoSubDirectory()
{
    writeFile("base/sub/a.config.json", "");

    QCOMPARE(listedNames(QDir("base")), QStringList{"sub"});
}

void tst_DirectoryConventions::hiddenEntriesAreNotListed()
{
    writeFile("base/.a.config.json", "");
    makeDirectory("base/.sub");
    writeFile("base/b", "");

    QCOMPARE(listedNames(QDir("base")), QStringList{"b"});
}

void tst_DirectoryConventions::linksAreFollowed()
{
    writeFile("elsewhere/file", "");
    makeLink("base/toDirectory", "../elsewhere");
    makeLink("base/toFile", "../elsewhere/file");

    const auto entries = Access::generateDirectoryInfoList(QDir("base"));

    QCOMPARE(entries.size(), 2);
    QVERIFY(entries.at(0).isDir());
    QCOMPARE(entries.at(0).fileName(), QString("toDirectory"));
    QVERIFY(entries.at(1).isFile());
    QCOMPARE(entries.at(1).fileName(), QString("toFile"));
}

void tst_DirectoryConventions::brokenLinksAreNotListed()
{
    makeLink("base/a.config.json", "nowhere");
    makeLink("base/self", "self");

    QCOMPARE(listedNames(QDir("base")), QStringList());
}

void tst_DirectoryConventions::entriesCarryThePathOfTheDirectory()
{
    writeFile("base/a", "");

    const auto entries = Access::generateDirectoryInfoList(QDir("base"));

    QCOMPARE(entries.size(), 1);
    QCOMPARE(entries.first().filePath(), QString("base/a"));
}

void tst_DirectoryConventions::emptyAndMissingDirectoriesGiveAnEmptyList()
{
    LogCapture log;

    QCOMPARE(listedNames(QDir("base")), QStringList());
    QCOMPARE(listedNames(QDir("missing")), QStringList());
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DirectoryConventions::directoryOfTheCallerStaysUntouched()
{
    writeFile("base/a", "");
    QDir directory("base");
    directory.setFilter(QDir::Files | QDir::Hidden);
    directory.setSorting(QDir::Time | QDir::Reversed);

    QCOMPARE(listedNames(directory), QStringList{"a"});

    QCOMPARE(directory.filter(), QDir::Files | QDir::Hidden);
    QCOMPARE(directory.sorting(), QDir::Time | QDir::Reversed);
    QCOMPARE(directory.path(), QString("base"));
}

void tst_DirectoryConventions::settingsOfTheCallerDoNotCount()
{
    writeFile("base/a", "");
    writeFile("base/b", "");
    writeFile("base/.c", "");
    makeDirectory("base/d");
    QDir directory("base");
    directory.setFilter(QDir::Files | QDir::Hidden);
    directory.setSorting(QDir::Name | QDir::Reversed | QDir::IgnoreCase);

    QCOMPARE(listedNames(directory), (QStringList{"a", "b", "d"}));
}

void tst_DirectoryConventions::listingHoldsSomething_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("ending");
    QTest::addColumn<bool>("expected");

    QTest::newRow("nothing") << QStringList{} << "config.json" << false;
    QTest::newRow("one file") << QStringList{"a.config.json"} << "config.json" << true;
    QTest::newRow("behind others")
        << QStringList{"a", "b.txt", "c.config.json"} << "config.json" << true;
    QTest::newRow("other extension only")
        << QStringList{"a.process.json", "folder.json"} << "config.json" << false;
    QTest::newRow("more dots") << QStringList{"a.b.c.config.json"} << "config.json" << true;
    QTest::newRow("merely ends in the text")
        << QStringList{"myconfig.json"} << "config.json" << true;
    QTest::newRow("is the text") << QStringList{"config.json"} << "config.json" << true;
    QTest::newRow("other case") << QStringList{"a.Config.json", "a.config.JSON"} << "config.json"
                                << false;
    QTest::newRow("not at the end") << QStringList{"a.config.json.bak"} << "config.json" << false;
    QTest::newRow("any text") << QStringList{"readme"} << "me" << true;
}

void tst_DirectoryConventions::listingHoldsSomething()
{
    QFETCH(QStringList, files);
    QFETCH(QString, ending);
    QFETCH(bool, expected);
    for (const QString &file : files) {
        writeFile("base/" + file, "");
    }
    LogCapture log;

    QCOMPARE(Access::containsFileOrDir(Access::generateDirectoryInfoList(QDir("base")), ending),
             expected);

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DirectoryConventions::emptySubDirectoryMakesAListingCount()
{
    writeFile("base/a.process.json", "");
    makeDirectory("base/sub");

    QVERIFY(
        Access::containsFileOrDir(Access::generateDirectoryInfoList(QDir("base")), "config.json"));
    QVERIFY(Access::containsFileOrDir({QFileInfo("base/sub")}, "config.json"));
}

void tst_DirectoryConventions::originIsTheDevice()
{
    QCOMPARE(Access::getOrigin(), QString("Device"));
    QCOMPARE(Access::getOrigin(), QString("Device"));
}

void tst_DirectoryConventions::configurationPathIsThatOfTheFile()
{
    writeFile("base/a.config.json", "");
    QString path = "former";

    QVERIFY(Access::createConfigurationFilePath(QDir("base"), "a", path));

    QCOMPARE(path, QString("base/a.config.json"));
}

void tst_DirectoryConventions::processDescriptionPathIsThatOfTheFile()
{
    writeFile("base/a.process.json", "");
    QString path = "former";

    QVERIFY(Access::createProcessDescriptionFilePath(QDir("base"), "a", path));

    QCOMPARE(path, QString("base/a.process.json"));
}

void tst_DirectoryConventions::eachKindHasItsOwnExtension()
{
    writeFile("base/configured.config.json", "");
    writeFile("base/processed.process.json", "");
    QString path = "former";

    QVERIFY(!Access::createConfigurationFilePath(QDir("base"), "processed", path));
    QVERIFY(!Access::createProcessDescriptionFilePath(QDir("base"), "configured", path));

    QCOMPARE(path, QString("former"));
}

void tst_DirectoryConventions::missingFileKeepsTheFormerPath()
{
    // A directory of the name, or a file without extension, is not asked for here.
    makeDirectory("base/a");
    writeFile("base/b", "");
    QString path = "former";
    QString empty;
    LogCapture log;

    QVERIFY(!Access::createConfigurationFilePath(QDir("base"), "a", path));
    QVERIFY(!Access::createProcessDescriptionFilePath(QDir("base"), "b", path));
    QVERIFY(!Access::createConfigurationFilePath(QDir("base"), "c", empty));

    QCOMPARE(path, QString("former"));
    QVERIFY(empty.isNull());
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_DirectoryConventions::missingDirectoryKeepsTheFormerPath()
{
    QString path = "former";

    QVERIFY(!Access::createConfigurationFilePath(QDir("missing"), "a", path));
    QVERIFY(!Access::createProcessDescriptionFilePath(QDir("missing"), "a", path));

    QCOMPARE(path, QString("former"));
}

void tst_DirectoryConventions::extensionIsAddedToAnyName()
{
    writeFile("base/sub/a.b.config.json.config.json", "");
    QString path;

    QVERIFY(Access::createConfigurationFilePath(QDir("base"), "sub/a.b.config.json", path));

    QCOMPARE(path, QString("base/sub/a.b.config.json.config.json"));
}

void tst_DirectoryConventions::directoryInPlaceOfTheFileExists()
{
    makeDirectory("base/a.config.json");
    QString path;

    QVERIFY(Access::createConfigurationFilePath(QDir("base"), "a", path));

    QCOMPARE(path, QString("base/a.config.json"));
}

void tst_DirectoryConventions::brokenLinkInPlaceOfTheFileDoesNotExist()
{
    makeLink("base/a.config.json", "nowhere");
    QString path = "former";

    QVERIFY(!Access::createConfigurationFilePath(QDir("base"), "a", path));

    QCOMPARE(path, QString("former"));
}

QTEST_GUILESS_MAIN(tst_DirectoryConventions)

#include "tst_DirectoryConventions.moc"
