#include "HeldRegion.h"
#include "ToolProcess.h"
#include "support/SegmentFile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtTest>

namespace {

QString inodeOf(const QString &path)
{
    struct stat status = {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0
               ? QString::number(status.st_ino)
               : QString();
}

/// A region, and what stands beside it as the receiver of a mirror leaves it there.
class MirroredRegion
{
public:
    MirroredRegion() : m_file(writeDescription()), m_region(m_file), m_note(key() + "Mirror") { }

    bool isValid() const { return m_region.isValid(); }
    QString key() const { return m_description.key(); }
    QString file() const { return m_file; }
    const SegmentFile &note() const { return m_note; }
    QString inode() const { return inodeOf(m_description.segmentPath()); }

    /// Of the region `plant` at @p source.
    bool say(const QJsonValue &source, const QJsonArray &commands = {}) const
    {
        return sayOf(inode(), source, commands);
    }
    bool sayOf(const QString &memory, const QJsonValue &source,
               const QJsonArray &commands = {}) const
    {
        const QJsonObject said{
            {"memory", memory}, {"region", "plant"}, {"source", source}, {"commands", commands}};
        return m_note.make(QJsonDocument(said).toJson());
    }

private:
    QString writeDescription()
    {
        m_description.add(QStringLiteral("a"), QStringLiteral("int32"),
                          ToolDescription::Metadata::ErrorState, 4);
        return m_description.write();
    }

    ToolDescription m_description;
    QString m_file;
    HeldRegion m_region;
    SegmentFile m_note;
};

const QJsonObject knownSource{{"host", "device"}, {"address", "192.0.2.7"}};

/// The line of `tessel info` that begins so; empty if there is none.
QString infoLine(const MirroredRegion &region, const QString &begin)
{
    const QStringList lines = runTool({QStringLiteral("info"), region.file()}).output.split('\n');
    const QStringList found = lines.filter(QRegularExpression('^' + begin));
    return found.value(0);
}

/// The member `mirror` of `tessel explain --json`.
QJsonValue explained(const MirroredRegion &region)
{
    const ToolResult result = runTool(
        {QStringLiteral("explain"), region.file(), QStringLiteral("a"), QStringLiteral("--json")});
    const QJsonArray said = QJsonDocument::fromJson(result.output.toUtf8()).array();
    return said.at(0).toObject().value("mirror");
}

} // namespace

/// What the subcommands say of a region that the receiver of a mirror fills.
class tst_ToolMirrorNote : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void infoTellsWhoseMirrorItIs_data();
    void infoTellsWhoseMirrorItIs();
    void explanationHasTheNote();
    void nothingIsSaidOfAnotherRegion_data();
    void nothingIsSaidOfAnotherRegion();
    void noteOfAnotherUserDoesNotCount();
    void writeTellsWhatBecomesOfIt_data();
    void writeTellsWhatBecomesOfIt();
    void doctorTellsThatTheSourceIsNotThere();
};

void tst_ToolMirrorNote::infoTellsWhoseMirrorItIs_data()
{
    QTest::addColumn<QJsonValue>("source");
    QTest::addColumn<QString>("text");

    QTest::newRow("host and address")
        << QJsonValue(knownSource) << "mirror of 'plant' of device (192.0.2.7)";
    QTest::newRow("host alone") << QJsonValue(QJsonObject{{"host", "device"}})
                                << "mirror of 'plant' of device";
    QTest::newRow("no source") << QJsonValue(QJsonValue::Null)
                               << "mirror of 'plant', whose source is not there";
}

void tst_ToolMirrorNote::infoTellsWhoseMirrorItIs()
{
    QFETCH(QJsonValue, source);
    QFETCH(QString, text);
    const MirroredRegion region;
    QVERIFY(region.isValid() && region.say(source));

    QCOMPARE(infoLine(region, QStringLiteral("Mirror")), "Mirror      " + text);
}

void tst_ToolMirrorNote::explanationHasTheNote()
{
    const MirroredRegion region;
    QVERIFY(region.isValid() && region.say(knownSource, {"a", "n/*"}));

    QCOMPARE(explained(region), QJsonValue(QJsonObject{{"region", "plant"},
                                                       {"host", "device"},
                                                       {"address", "192.0.2.7"},
                                                       {"commands", QJsonArray{"a", "n/*"}}}));

    QVERIFY(region.say(QJsonValue::Null));
    QCOMPARE(explained(region), QJsonValue(QJsonObject{{"region", "plant"},
                                                       {"host", QJsonValue::Null},
                                                       {"address", QJsonValue::Null},
                                                       {"commands", QJsonArray()}}));
}

void tst_ToolMirrorNote::nothingIsSaidOfAnotherRegion_data()
{
    QTest::addColumn<QString>("kind");

    for (const char *const kind : {"no note", "former memory", "no JSON", "link", "folder"}) {
        QTest::newRow(kind) << kind;
    }
}

void tst_ToolMirrorNote::nothingIsSaidOfAnotherRegion()
{
    QFETCH(QString, kind);
    const MirroredRegion region;
    QVERIFY(region.isValid());
    const QString path = region.note().path();
    const SegmentFile target(region.key() + "Elsewhere");
    if (kind == "former memory") {
        QVERIFY(region.sayOf(region.inode() + '1', knownSource));
    } else if (kind == "no JSON") {
        QVERIFY(region.note().make("mirror"));
    } else if (kind == "link") {
        QVERIFY(region.say(knownSource));
        QVERIFY(QFile::rename(path, target.path()) && QFile::link(target.path(), path));
    } else if (kind == "folder") {
        QVERIFY(QDir().mkdir(path));
    }

    const QString line = infoLine(region, QStringLiteral("Mirror"));
    const QJsonValue note = explained(region);
    QDir().rmdir(path);

    QCOMPARE(line, QString());
    QVERIFY(note.isNull());
}

void tst_ToolMirrorNote::noteOfAnotherUserDoesNotCount()
{
    constexpr uid_t somebody = 65534;
    const MirroredRegion region;
    QVERIFY(region.isValid() && region.say(knownSource));
    if (::chown(QFile::encodeName(region.note().path()).constData(), somebody, somebody) != 0) {
        QSKIP("needs the right to give a file to another user");
    }

    QCOMPARE(infoLine(region, QStringLiteral("Mirror")), QString());
}

void tst_ToolMirrorNote::writeTellsWhatBecomesOfIt_data()
{
    QTest::addColumn<QJsonArray>("commands");
    QTest::addColumn<QString>("text");

    QTest::newRow("kept here") << QJsonArray()
                               << "what was written stays here until the next set of the source";
    QTest::newRow("asked for") << QJsonArray{"a", "n/*"}
                               << "the source is asked for what was written into a, n/*; the log "
                                  "of 'tessel mirror receive' has its answer";
}

void tst_ToolMirrorNote::writeTellsWhatBecomesOfIt()
{
    QFETCH(QJsonArray, commands);
    QFETCH(QString, text);
    const MirroredRegion region;
    QVERIFY(region.isValid() && region.say(knownSource, commands));

    const ToolResult result = runTool(
        {QStringLiteral("set"), region.file(), QStringLiteral("a"), QStringLiteral("7")});

    QCOMPARE(
        result.error,
        QStringLiteral("tessel: note: '%1' is the mirror of 'plant' of device (192.0.2.7): %2\n")
            .arg(region.key(), text));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolMirrorNote::doctorTellsThatTheSourceIsNotThere()
{
    const MirroredRegion region;
    QVERIFY(region.isValid() && region.say(QJsonValue::Null));

    const QString output = runTool({QStringLiteral("doctor"), region.file()}).output;

    QVERIFY2(output.contains("it is the mirror of 'plant', whose source is not there: all values "
                             "are 'timeout'"),
             qPrintable(output));

    QVERIFY(region.say(knownSource));
    QVERIFY(!runTool({QStringLiteral("doctor"), region.file()}).output.contains("whose source"));
}

QTEST_GUILESS_MAIN(tst_ToolMirrorNote)

#include "tst_ToolMirrorNote.moc"
