#include "DoctoredPlant.h"
#include "support/LogCapture.h"
#include "support/LookingReader.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString recorder = QStringLiteral(MAPPING_RECORDER);

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

/// Commands that only read map the region so that it cannot be written.
class tst_ToolReadingMap : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void readingCommandMapsForReading_data() { addReading(); }
    void readingCommandMapsForReading();
    void readingCommandNeedsNoRightToWrite_data() { addReading(); }
    void readingCommandNeedsNoRightToWrite();
    void writingCommandMapsForWriting_data();
    void writingCommandMapsForWriting();
    void runningReaderHasOneMapping_data();
    void runningReaderHasOneMapping();
    void semaphoresThatMayNotBeAlteredAreNamed();
    void layoutOfAReaderIsUnknown();

private:
    static void addReading();
    void useSingleBuffer();
    QStringList line(const QStringList &words) const;
    QByteArray mappingsOf(const QStringList &words, int exitCode);

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<DoctoredPlant> m_plant;
    std::unique_ptr<HeldRegion> m_region;
    std::unique_ptr<QTemporaryDir> m_folder;
};

void tst_ToolReadingMap::init()
{
    m_log = std::make_unique<LogCapture>();
    m_plant = std::make_unique<DoctoredPlant>();
    m_region = std::make_unique<HeldRegion>(m_plant->file);
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_region->publish(m_plant->url, validValue(5)));
    QCOMPARE(runTool({QStringLiteral("snapshot"), m_plant->file, QStringLiteral("-o"),
                      m_plant->description().path(QStringLiteral("kept.json"))})
                 .exitCode,
             0);
}

void tst_ToolReadingMap::cleanup()
{
    m_region.reset();
    m_plant.reset();
    m_folder.reset();
    m_log.reset();
}

/// FILE, URL, KEPT and OUT stand for those of the test.
QStringList tst_ToolReadingMap::line(const QStringList &words) const
{
    QStringList all;
    for (const auto &word : words) {
        QString text = word;
        text.replace(QStringLiteral("FILE"), m_plant->file);
        text.replace(QStringLiteral("URL"), m_plant->url);
        text.replace(QStringLiteral("KEPT"),
                     m_plant->description().path(QStringLiteral("kept.json")));
        text.replace(QStringLiteral("OUT"), m_folder->filePath(QStringLiteral("out")));
        all.append(text);
    }
    return all;
}

void tst_ToolReadingMap::addReading()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<bool>("attaches");
    const auto add = [](bool attaches, const QString &words) {
        QTest::newRow(qPrintable(words.section(QLatin1Char(' '), 0, 0)))
            << words.split(QLatin1Char(' ')) << attaches;
    };
    add(true, QStringLiteral("get FILE"));
    add(true, QStringLiteral("watch --count=1 FILE"));
    add(true, QStringLiteral("trend FILE URL --for=100ms"));
    add(true, QStringLiteral("stat --for=100ms FILE"));
    add(true, QStringLiteral("record FILE -o OUT --for=100ms"));
    add(true, QStringLiteral("expect FILE URL>4"));
    add(true, QStringLiteral("snapshot FILE -o OUT"));
    add(true, QStringLiteral("compare FILE KEPT"));
    add(false, QStringLiteral("explain FILE URL"));
    add(false, QStringLiteral("wait FILE"));
    add(false, QStringLiteral("info FILE"));
    add(false, QStringLiteral("layout FILE"));
    add(false, QStringLiteral("regions --json"));
    add(false, QStringLiteral("doctor FILE"));
}

QByteArray tst_ToolReadingMap::mappingsOf(const QStringList &words, int exitCode)
{
    const QString record = m_folder->filePath(QStringLiteral("mappings"));
    const ToolResult result = runTool(line(words), {QStringLiteral("LD_PRELOAD=") + recorder,
                                                    QStringLiteral("MAPPING_RECORD=") + record});
    return result.exitCode == exitCode
               ? contentOf(record)
               : QStringLiteral("exit code %1: %2").arg(result.exitCode).arg(result.error).toUtf8();
}

void tst_ToolReadingMap::readingCommandMapsForReading()
{
    QFETCH(QStringList, words);
    QFETCH(bool, attaches);

    QCOMPARE(mappingsOf(words, 0), attaches ? QByteArray("r--s\n") : QByteArray());
}

void tst_ToolReadingMap::readingCommandNeedsNoRightToWrite()
{
    QFETCH(QStringList, words);
    if (geteuid() != 0) {
        QSKIP("needs the right to become another user", );
    }
    QCOMPARE(chmod(qPrintable(m_plant->segment().path()), 0644), 0);
    // The other user reads the description and writes beside it.
    QCOMPARE(chmod(qPrintable(QFileInfo(m_plant->file).path()), 0755), 0);
    QCOMPARE(chmod(qPrintable(m_folder->path()), 0777), 0);

    const ToolResult result = runToolAsAnother(line(words));

    if (result.exitCode != 0 && result.output.isEmpty() && result.error.isEmpty()) {
        QSKIP("needs a tool that another user can reach", );
    }
    // A mode of its own is what a doctor has to tell.
    const bool isDoctor = words.first() == QStringLiteral("doctor");
    QVERIFY2(result.exitCode == (isDoctor ? 1 : 0), qPrintable(result.output + result.error));
    QCOMPARE(
        runToolAsAnother({QStringLiteral("set"), m_plant->file, m_plant->url, QStringLiteral("6")})
            .exitCode,
        4);
}

void tst_ToolReadingMap::writingCommandMapsForWriting_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::newRow("set") << QStringList{QStringLiteral("set"), QStringLiteral("FILE"),
                                        QStringLiteral("URL"), QStringLiteral("6")};
}

void tst_ToolReadingMap::writingCommandMapsForWriting()
{
    QFETCH(QStringList, words);

    QCOMPARE(mappingsOf(words, 0), QByteArray("rw-s\n"));
}

void tst_ToolReadingMap::runningReaderHasOneMapping_data()
{
    QTest::addColumn<QStringList>("words");
    const auto add = [](const QString &words) {
        QTest::newRow(qPrintable(words.section(QLatin1Char(' '), 0, 0)))
            << words.split(QLatin1Char(' '));
    };
    add(QStringLiteral("watch --on-change FILE"));
    add(QStringLiteral("trend FILE URL --for=60s"));
    add(QStringLiteral("stat --for=60s FILE"));
    add(QStringLiteral("record FILE -o OUT"));
    add(QStringLiteral("expect FILE URL>7 --timeout=60s"));
}

/// As an administrator sees it.
void tst_ToolReadingMap::runningReaderHasOneMapping()
{
    QFETCH(QStringList, words);
    ToolProcess reader(line(words));
    QVERIFY(LookingReader::waitUntilSeen(m_plant->key()));

    QList<QByteArray> rights;
    const QList<QByteArray> mappings =
        contentOf(QStringLiteral("/proc/%1/maps").arg(reader.pid())).split('\n');
    for (const auto &mapping : mappings) {
        if (mapping.contains(m_plant->segment().path().toUtf8())) {
            rights.append(mapping.simplified().split(' ').value(1));
        }
    }

    QCOMPARE(rights, QList<QByteArray>{"r--s"});
}

void tst_ToolReadingMap::useSingleBuffer()
{
    m_region.reset();
    m_plant->description().setRoot(QStringLiteral("doubleBuffer"), false);
    m_plant->description().write();
    m_region = std::make_unique<HeldRegion>(m_plant->file);
}

/// Nothing but this stands in the line, whatever was logged before.
void tst_ToolReadingMap::semaphoresThatMayNotBeAlteredAreNamed()
{
    useSingleBuffer();
    // Another program's set, under the same System V key.
    QVERIFY(m_plant->semaphores().remove());
    QVERIFY(m_plant->semaphores().make({0, 0, 0, 0, 0, 1, 1, 1, 1}) >= 0);

    const ToolResult result = runTool({QStringLiteral("get"), m_plant->file});

    QCOMPARE(result.exitCode, 4);
    QCOMPARE(result.error,
             QStringLiteral(
                 "tessel: %1: no region for key '%2': The semaphores of \"%2Semaphore\" can't "
                 "be used: System V key %3 belongs to somebody else (ipcs -s). Choose "
                 "another memory key.; Can not initialize Buffer Handler.; Can not create "
                 "process data memory.\n")
                 .arg(m_plant->file, m_plant->key())
                 .arg(SystemVSemaphoreBaseClass::systemVKey(m_plant->semaphores().key())));
}

void tst_ToolReadingMap::layoutOfAReaderIsUnknown()
{
    ToolProcess reader(
        line({QStringLiteral("watch"), QStringLiteral("--on-change"), QStringLiteral("FILE")}));
    QVERIFY(LookingReader::waitUntilSeen(m_plant->key()));

    const auto users = RegionUsers().getUsersOf(RegionInspection(m_plant->key()));

    QCOMPARE(users.size(), 2);
    for (const auto &user : users) {
        QCOMPARE(user.hasOtherLayout.has_value(), user.pid == getpid());
    }
}

QTEST_GUILESS_MAIN(tst_ToolReadingMap)
#include "tst_ToolReadingMap.moc"
