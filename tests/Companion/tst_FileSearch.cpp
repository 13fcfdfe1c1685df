#include "Companion/FileSearch.h"
#include "support/LogCapture.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <sys/stat.h>

/// Each test searches a directory of its own that is made anew.
class tst_FileSearch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void directoryWithoutFilesAppendsNothing();
    void missingDirectoryAppendsNothingAndSaysNothing();
    void emptyPathAppendsNothing();
    void fileInsteadOfADirectoryAppendsNothing();
    void noPatternMatchesNothing();
    void patternSelectsByName();
    void fileThatMatchesSeveralPatternsIsFoundOnce();
    void patternIsMatchedAgainstTheNameNotThePath();
    void patternIsCaseSensitive();
    void patternIsAnchoredAtBothEnds();
    void directoryWithAMatchingNameIsNoFile();
    void everySubDirectoryIsSearched();
    void filesAreAppendedBehindThoseAlreadyThere();
    void pathIsThatOfTheSearch();
    void trailingSlashChangesNothing();

    void filesOfADirectoryComeByCodePoint();
    void charactersOutsideTheBasicPlaneComeLast();
    void subDirectoryStandsAtThePlaceOfItsName();
    void orderDoesNotDependOnTheOrderOfCreation();

    void hiddenEntriesArePassedOver();
    void hiddenDirectoryItselfMayBeSearched();
    void linkToAFileIsAFile();
    void brokenLinkIsPassedOver();
    void fifoIsPassedOver();
    void linkToSomethingElseIsPassedOver_data();
    void linkToSomethingElseIsPassedOver();
    void linkToADirectoryIsFollowed();
    void loopOfLinksEnds();
    void linkToItselfIsPassedOver();
    void directoryReachedTwiceIsSearchedAtItsOwnPlace();
    void hiddenDirectoryIsSearchedUnderItsLink();
    void nameWithADotInItIsNotHidden();
    void directoryOutsideIsSearchedUnderItsFirstName();
    void directoriesThatLinkToEachOtherAreSearchedOnce();
    void linkAsStartIsFollowed();

private:
    void makeFile(const QString &relativePath) const;
    void makeLink(const QString &relativePath, const QString &target) const;
    LogLine passedOver(const QString &relativePath) const;
    QStringList found(const QStringList &patterns = {QStringLiteral("*.process.json")}) const;

    QScopedPointer<QTemporaryDir> m_directory;
    QString m_path;
};

void tst_FileSearch::init()
{
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
    m_path = m_directory->path();
}

void tst_FileSearch::cleanup()
{
    m_directory.reset();
}

void tst_FileSearch::makeFile(const QString &relativePath) const
{
    const QFileInfo info(m_path + QLatin1Char('/') + relativePath);
    QVERIFY(QDir().mkpath(info.path()));
    QFile file(info.filePath());
    QVERIFY(file.open(QIODevice::WriteOnly));
}

void tst_FileSearch::makeLink(const QString &relativePath, const QString &target) const
{
    QVERIFY(QFile::link(target, m_path + QLatin1Char('/') + relativePath));
}

LogLine tst_FileSearch::passedOver(const QString &relativePath) const
{
    return warning(
        QStringLiteral("Directory has another place in the tree and is passed over: \"%1/%2\"")
            .arg(m_path, relativePath));
}

QStringList tst_FileSearch::found(const QStringList &patterns) const
{
    QList<QFileInfo> files;
    searchFilesOnPathRecursive(m_path, patterns, files);
    QStringList paths;
    for (const auto &file : files) {
        paths.append(QDir(m_path).relativeFilePath(file.filePath()));
    }
    return paths;
}

void tst_FileSearch::directoryWithoutFilesAppendsNothing()
{
    QVERIFY(QDir(m_path).mkdir(QStringLiteral("sub")));

    QCOMPARE(found(), QStringList());
}

void tst_FileSearch::missingDirectoryAppendsNothingAndSaysNothing()
{
    LogCapture log;
    QList<QFileInfo> files;

    searchFilesOnPathRecursive(m_path + QStringLiteral("/missing"), {QStringLiteral("*")}, files);

    QVERIFY(files.isEmpty());
    QVERIFY(log.take().isEmpty());
}

void tst_FileSearch::emptyPathAppendsNothing()
{
    makeFile(QStringLiteral("a.process.json"));
    const QString former = QDir::currentPath();
    QVERIFY(QDir::setCurrent(m_path));
    QList<QFileInfo> files;

    searchFilesOnPathRecursive(QString(), {QStringLiteral("*")}, files);
    QVERIFY(QDir::setCurrent(former));

    QVERIFY(files.isEmpty());
}

void tst_FileSearch::fileInsteadOfADirectoryAppendsNothing()
{
    makeFile(QStringLiteral("a.process.json"));
    QList<QFileInfo> files;

    searchFilesOnPathRecursive(m_path + QStringLiteral("/a.process.json"), {QStringLiteral("*")},
                               files);

    QVERIFY(files.isEmpty());
}

void tst_FileSearch::noPatternMatchesNothing()
{
    makeFile(QStringLiteral("a.process.json"));

    QCOMPARE(found({}), QStringList());
}

void tst_FileSearch::patternSelectsByName()
{
    makeFile(QStringLiteral("a.process.json"));
    makeFile(QStringLiteral("b.config.json"));
    makeFile(QStringLiteral("folder.json"));
    makeFile(QStringLiteral("plain"));

    QCOMPARE(found(), QStringList{QStringLiteral("a.process.json")});
    QCOMPARE(found({QStringLiteral("?.c*")}), QStringList{QStringLiteral("b.config.json")});
    QCOMPARE(found({QStringLiteral("[pf]*")}),
             (QStringList{QStringLiteral("folder.json"), QStringLiteral("plain")}));
    QCOMPARE(found({QStringLiteral("*")}).size(), 4);
}

void tst_FileSearch::fileThatMatchesSeveralPatternsIsFoundOnce()
{
    makeFile(QStringLiteral("a.process.json"));
    makeFile(QStringLiteral("b.config.json"));

    QCOMPARE(found({QStringLiteral("*.json"), QStringLiteral("a*"), QStringLiteral("nothing")}),
             (QStringList{QStringLiteral("a.process.json"), QStringLiteral("b.config.json")}));
}

void tst_FileSearch::patternIsMatchedAgainstTheNameNotThePath()
{
    makeFile(QStringLiteral("sub.process.json/a.txt"));

    QCOMPARE(found(), QStringList());
    QCOMPARE(found({QStringLiteral("*sub*")}), QStringList());
    QCOMPARE(found({QStringLiteral("a.txt")}),
             QStringList{QStringLiteral("sub.process.json/a.txt")});
}

void tst_FileSearch::patternIsCaseSensitive()
{
    makeFile(QStringLiteral("a.Process.json"));
    makeFile(QStringLiteral("b.process.JSON"));
    makeFile(QStringLiteral("c.process.json"));

    QCOMPARE(found(), QStringList{QStringLiteral("c.process.json")});
}

void tst_FileSearch::patternIsAnchoredAtBothEnds()
{
    makeFile(QStringLiteral("a.process.json.bak"));
    makeFile(QStringLiteral("aXprocessXjson"));
    makeFile(QStringLiteral("process.json"));

    QCOMPARE(found(), QStringList());
    QCOMPARE(found({QStringLiteral("process.json")}), QStringList{QStringLiteral("process.json")});
}

void tst_FileSearch::directoryWithAMatchingNameIsNoFile()
{
    makeFile(QStringLiteral("d.process.json/e.process.json"));

    QCOMPARE(found(), QStringList{QStringLiteral("d.process.json/e.process.json")});
}

void tst_FileSearch::everySubDirectoryIsSearched()
{
    makeFile(QStringLiteral("a/b/c/d/deep.process.json"));
    makeFile(QStringLiteral("a/b/middle.process.json"));
    makeFile(QStringLiteral("top.process.json"));
    makeFile(QStringLiteral("z/last.process.json"));

    QCOMPARE(found(), (QStringList{QStringLiteral("a/b/c/d/deep.process.json"),
                                   QStringLiteral("a/b/middle.process.json"),
                                   QStringLiteral("top.process.json"),
                                   QStringLiteral("z/last.process.json")}));
}

void tst_FileSearch::filesAreAppendedBehindThoseAlreadyThere()
{
    makeFile(QStringLiteral("a.process.json"));
    const QFileInfo former(QStringLiteral("former"));
    QList<QFileInfo> files = {former};

    searchFilesOnPathRecursive(m_path, {QStringLiteral("*")}, files);

    QCOMPARE(files.size(), 2);
    QCOMPARE(files.at(0), former);
    QCOMPARE(files.at(1).fileName(), QStringLiteral("a.process.json"));
}

void tst_FileSearch::pathIsThatOfTheSearch()
{
    makeFile(QStringLiteral("sub/a.process.json"));
    QList<QFileInfo> files;

    searchFilesOnPathRecursive(m_path, {QStringLiteral("*")}, files);

    QCOMPARE(files.size(), 1);
    QCOMPARE(files.at(0).filePath(), m_path + QStringLiteral("/sub/a.process.json"));
    QVERIFY(files.at(0).isFile());
}

void tst_FileSearch::trailingSlashChangesNothing()
{
    makeFile(QStringLiteral("a.process.json"));
    QList<QFileInfo> files;

    searchFilesOnPathRecursive(m_path + QLatin1Char('/'), {QStringLiteral("*")}, files);

    QCOMPARE(files.size(), 1);
    QCOMPARE(files.at(0).filePath(), m_path + QStringLiteral("/a.process.json"));
}

void tst_FileSearch::filesOfADirectoryComeByCodePoint()
{
    const QStringList names = {QStringLiteral("-"),     QStringLiteral("10"), QStringLiteral("9"),
                               QStringLiteral("A"),     QStringLiteral("B"),  QStringLiteral("_"),
                               QStringLiteral("a"),     QStringLiteral("ab"), QStringLiteral("b"),
                               QStringLiteral("\u00e4")};
    for (int i = names.size() - 1; i >= 0; --i) {
        makeFile(names.at(i));
    }

    QCOMPARE(found({QStringLiteral("*")}), names);
}

void tst_FileSearch::charactersOutsideTheBasicPlaneComeLast()
{
    // U+1F321 has the UTF-16 units D83C DF21, which are below U+FF21.
    const QString fullWidthLetter = QString::fromUtf8("\uff21");
    const QString thermometer = QString::fromUtf8("\U0001F321");
    QVERIFY(thermometer < fullWidthLetter);
    makeFile(thermometer);
    makeFile(fullWidthLetter);

    QCOMPARE(found({QStringLiteral("*")}), (QStringList{fullWidthLetter, thermometer}));
}

void tst_FileSearch::subDirectoryStandsAtThePlaceOfItsName()
{
    makeFile(QStringLiteral("a.process.json"));
    makeFile(QStringLiteral("b/a.process.json"));
    makeFile(QStringLiteral("b/z.process.json"));
    makeFile(QStringLiteral("b.process.json"));
    makeFile(QStringLiteral("c.process.json"));
    makeFile(QStringLiteral("C/x.process.json"));

    QCOMPARE(found(),
             (QStringList{QStringLiteral("C/x.process.json"), QStringLiteral("a.process.json"),
                          QStringLiteral("b/a.process.json"), QStringLiteral("b/z.process.json"),
                          QStringLiteral("b.process.json"), QStringLiteral("c.process.json")}));
}

void tst_FileSearch::orderDoesNotDependOnTheOrderOfCreation()
{
    QStringList names;
    for (int i = 100; i < 140; ++i) {
        names.append(QStringLiteral("%1.process.json").arg(i));
    }
    // 17 has no factor in common with 40, so that each name is made once, far out of order.
    for (int i = 0; i < names.size(); ++i) {
        makeFile(names.at(i * 17 % names.size()));
    }

    QCOMPARE(found(), names);
}

void tst_FileSearch::hiddenEntriesArePassedOver()
{
    makeFile(QStringLiteral(".a.process.json"));
    makeFile(QStringLiteral(".hidden/b.process.json"));
    makeFile(QStringLiteral("c.process.json"));

    QCOMPARE(found(), QStringList{QStringLiteral("c.process.json")});
}

void tst_FileSearch::hiddenDirectoryItselfMayBeSearched()
{
    makeFile(QStringLiteral(".hidden/b.process.json"));
    QList<QFileInfo> files;

    searchFilesOnPathRecursive(m_path + QStringLiteral("/.hidden"), {QStringLiteral("*")}, files);

    QCOMPARE(files.size(), 1);
    QCOMPARE(files.at(0).fileName(), QStringLiteral("b.process.json"));
}

void tst_FileSearch::linkToAFileIsAFile()
{
    makeFile(QStringLiteral("target.txt"));
    makeLink(QStringLiteral("link.process.json"), QStringLiteral("target.txt"));
    makeFile(QStringLiteral("real.process.json"));
    makeLink(QStringLiteral("zlink.process.json"), QStringLiteral("real.process.json"));

    QCOMPARE(found(),
             (QStringList{QStringLiteral("link.process.json"), QStringLiteral("real.process.json"),
                          QStringLiteral("zlink.process.json")}));
}

void tst_FileSearch::brokenLinkIsPassedOver()
{
    makeLink(QStringLiteral("a.process.json"), QStringLiteral("missing"));
    makeFile(QStringLiteral("b.process.json"));

    QCOMPARE(found(), QStringList{QStringLiteral("b.process.json")});
}

void tst_FileSearch::fifoIsPassedOver()
{
    const QByteArray name = QFile::encodeName(m_path + QStringLiteral("/a.process.json"));
    QCOMPARE(mkfifo(name.constData(), 0600), 0);
    makeFile(QStringLiteral("b.process.json"));

    QCOMPARE(found(), QStringList{QStringLiteral("b.process.json")});
}

void tst_FileSearch::linkToSomethingElseIsPassedOver_data()
{
    QTest::addColumn<QString>("target");

    QTest::newRow("fifo") << QStringLiteral("pipe");
    QTest::newRow("device") << QStringLiteral("/dev/zero");
}

void tst_FileSearch::linkToSomethingElseIsPassedOver()
{
    QFETCH(QString, target);
    const QByteArray name = QFile::encodeName(m_path + QStringLiteral("/pipe"));
    QCOMPARE(mkfifo(name.constData(), 0600), 0);
    makeLink(QStringLiteral("a.process.json"), target);
    makeFile(QStringLiteral("b.process.json"));
    LogCapture log;

    QCOMPARE(found(), QStringList{QStringLiteral("b.process.json")});

    QVERIFY(log.take().isEmpty());
}

void tst_FileSearch::linkToADirectoryIsFollowed()
{
    QTemporaryDir elsewhere;
    QFile file(elsewhere.filePath(QStringLiteral("a.process.json")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    makeLink(QStringLiteral("link"), elsewhere.path());

    QCOMPARE(found(), QStringList{QStringLiteral("link/a.process.json")});
}

void tst_FileSearch::loopOfLinksEnds()
{
    makeFile(QStringLiteral("a/x.process.json"));
    makeFile(QStringLiteral("b/y.process.json"));
    makeLink(QStringLiteral("a/toB"), QStringLiteral("../b"));
    makeLink(QStringLiteral("b/toA"), QStringLiteral("../a"));
    makeLink(QStringLiteral("b/toTop"), QStringLiteral(".."));

    QCOMPARE(found(),
             (QStringList{QStringLiteral("a/x.process.json"), QStringLiteral("b/y.process.json")}));
}

void tst_FileSearch::linkToItselfIsPassedOver()
{
    makeLink(QStringLiteral("self"), QStringLiteral("self"));
    makeLink(QStringLiteral("here"), QStringLiteral("."));
    makeFile(QStringLiteral("a.process.json"));

    QCOMPARE(found(), QStringList{QStringLiteral("a.process.json")});
}

void tst_FileSearch::directoryReachedTwiceIsSearchedAtItsOwnPlace()
{
    makeFile(QStringLiteral("real/a.process.json"));
    makeLink(QStringLiteral("first"), QStringLiteral("real"));
    makeLink(QStringLiteral("zlast"), QStringLiteral("real"));
    LogCapture log;

    QCOMPARE(found(), QStringList{QStringLiteral("real/a.process.json")});

    COMPARE_LOG(log, passedOver(QStringLiteral("first")), passedOver(QStringLiteral("zlast")));
}

/// No walk comes to it but by the link.
void tst_FileSearch::hiddenDirectoryIsSearchedUnderItsLink()
{
    makeFile(QStringLiteral(".hidden/a.process.json"));
    makeLink(QStringLiteral("link"), QStringLiteral(".hidden"));
    LogCapture log;

    QCOMPARE(found(), QStringList{QStringLiteral("link/a.process.json")});

    QVERIFY(log.take().isEmpty());
}

void tst_FileSearch::nameWithADotInItIsNotHidden()
{
    makeFile(QStringLiteral("r.l/a.process.json"));
    makeLink(QStringLiteral("first"), QStringLiteral("r.l"));
    LogCapture log;

    QCOMPARE(found(), QStringList{QStringLiteral("r.l/a.process.json")});

    COMPARE_LOG(log, passedOver(QStringLiteral("first")));
}

void tst_FileSearch::directoryOutsideIsSearchedUnderItsFirstName()
{
    QTemporaryDir elsewhere;
    QFile file(elsewhere.filePath(QStringLiteral("a.process.json")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    makeLink(QStringLiteral("first"), elsewhere.path());
    makeLink(QStringLiteral("second"), QStringLiteral("first"));
    LogCapture log;

    QCOMPARE(found(), QStringList{QStringLiteral("first/a.process.json")});

    COMPARE_LOG(log, passedOver(QStringLiteral("second")));
}

void tst_FileSearch::directoriesThatLinkToEachOtherAreSearchedOnce()
{
    QStringList expected;
    for (const QChar from : QStringLiteral("abcdefghi")) {
        expected.append(from + QStringLiteral("/x.process.json"));
        makeFile(expected.last());
        for (const QChar to : QStringLiteral("abcdefghi")) {
            if (to != from) {
                makeLink(from + QStringLiteral("/to") + to, QStringLiteral("../") + to);
            }
        }
    }
    LogCapture log;

    QCOMPARE(found(), expected);
}

void tst_FileSearch::linkAsStartIsFollowed()
{
    makeFile(QStringLiteral("real/a.process.json"));
    makeLink(QStringLiteral("start"), QStringLiteral("real"));
    QList<QFileInfo> files;

    searchFilesOnPathRecursive(m_path + QStringLiteral("/start"), {QStringLiteral("*")}, files);

    QCOMPARE(files.size(), 1);
    QCOMPARE(files.at(0).filePath(), m_path + QStringLiteral("/start/a.process.json"));
}

QTEST_GUILESS_MAIN(tst_FileSearch)
#include "tst_FileSearch.moc"
