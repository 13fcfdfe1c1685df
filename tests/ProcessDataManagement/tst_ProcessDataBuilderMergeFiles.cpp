#include "ProcessDataManagement/DescriptionDirectory.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "support/LogCapture.h"
#include "support/ResourceLimit.h"

#include <csignal>

namespace {

/// What no operation would give: the results are untouched.
const int untouched = -77;

const QString rootName = QStringLiteral("root.process.json");
const QString partName = QStringLiteral("part.process.json");

} // namespace

class tst_ProcessDataBuilderMergeFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void rootFileTakesThePartIn();
    void secondPartGoesBehindTheFirst();
    void rootThatDoesNotParseIsReported();
    void rootIsReadFirst();
    void partThatDoesNotParseIsReported();
    void refusedMergeLeavesTheFiles();
    void rootThatCannotBeWrittenIsReported();

private:
    bool build(const QString &part = partName);

    QScopedPointer<DescriptionDirectory> m_directory;
    int m_size = untouched;
    int m_offset = untouched;
};

void tst_ProcessDataBuilderMergeFiles::init()
{
    m_directory.reset(new DescriptionDirectory);
    m_size = untouched;
    m_offset = untouched;
    QVERIFY(m_directory->write(
        rootName, Description::root({{"own", Description::leaf(1, 4, 4, 0)}}, "root key", 100)));
    QVERIFY(m_directory->write(partName, Description::root({{"a", Description::leaf(1, 16, 0, 0)},
                                                            {"b", Description::leaf(2, 4, 4, 16)}},
                                                           "part key", 40)));
}

bool tst_ProcessDataBuilderMergeFiles::build(const QString &part)
{
    return ProcessDataBuilder().buildProcessDataFromFiles(
        m_directory->filePath(rootName), m_directory->filePath(part), "part", m_size, m_offset);
}

void tst_ProcessDataBuilderMergeFiles::rootFileTakesThePartIn()
{
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    QJsonObject expected = m_directory->json(rootName);
    QJsonObject part = m_directory->json(partName);
    part.insert("value", QJsonObject{{"a", Description::leaf(1, 16, 0, 100)},
                                     {"b", Description::leaf(2, 4, 4, 116)}});
    part.insert("displayPosition", 1);
    part.remove("keyProcessDataMemory");
    QJsonObject children = expected.value("value").toObject();
    children.insert("part", part);
    expected.insert("value", children);
    expected.insert("sizeOfSharedMemory", 140);
    LogCapture log;

    QVERIFY(build());

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(m_size, 40);
    QCOMPARE(m_offset, 100);
    // Nothing else, so no stamp of a modification either.
    QCOMPARE(m_directory->json(rootName), expected);
    QCOMPARE(m_directory->snapshot().value(partName), former.value(partName));
    QCOMPARE(m_directory->files(), (QStringList{partName, rootName}));
}

void tst_ProcessDataBuilderMergeFiles::secondPartGoesBehindTheFirst()
{
    QVERIFY(m_directory->write("other.process.json",
                               Description::root({{"c", Description::leaf(1, 1, 0, 0)}}, {}, 41)));
    QVERIFY(build());

    QVERIFY(ProcessDataBuilder().buildProcessDataFromFiles(
        m_directory->filePath(rootName), m_directory->filePath("other.process.json"), "other",
        m_size, m_offset));

    QCOMPARE(m_size, 41);
    QCOMPARE(m_offset, 140);
    const QJsonObject root = m_directory->json(rootName);
    QCOMPARE(Description::sizeOf(root), 181);
    QCOMPARE(Description::offsetOf(root, "part/b"), 116);
    QCOMPARE(Description::offsetOf(root, "other/c"), 140);
    QCOMPARE(Description::keyOf(root), QString("root key"));
}

void tst_ProcessDataBuilderMergeFiles::rootThatDoesNotParseIsReported()
{
    QVERIFY(m_directory->write(rootName, QByteArray("{}")));
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    LogCapture log;

    QVERIFY(!build());

    COMPARE_LOG(
        log, warning("key 'type' not found in JSON object"),
        warning(
            QStringLiteral("Can not parse file:  \"%1\"").arg(m_directory->filePath(rootName))));
    QCOMPARE(m_directory->snapshot(), former);
    QCOMPARE(m_size, untouched);
    QCOMPARE(m_offset, untouched);
}

void tst_ProcessDataBuilderMergeFiles::rootIsReadFirst()
{
    QVERIFY(m_directory->write(rootName, QByteArray("{}")));
    QVERIFY(m_directory->write(partName, QByteArray("{}")));
    LogCapture log;

    QVERIFY(!build());

    COMPARE_LOG(
        log, warning("key 'type' not found in JSON object"),
        warning(
            QStringLiteral("Can not parse file:  \"%1\"").arg(m_directory->filePath(rootName))));
}

void tst_ProcessDataBuilderMergeFiles::partThatDoesNotParseIsReported()
{
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    const QString path = m_directory->filePath("missing.process.json");
    LogCapture log;

    QVERIFY(!build("missing.process.json"));

    COMPARE_LOG(log,
                warning(QStringLiteral("Can't open file  \"%1\"  IO Error:  "
                                       "\"No such file or directory\"")
                            .arg(path)),
                warning(QStringLiteral("Can not parse file:  \"%1\"").arg(path)));
    QCOMPARE(m_directory->snapshot(), former);
    QCOMPARE(m_size, untouched);
    QCOMPARE(m_offset, untouched);
}

void tst_ProcessDataBuilderMergeFiles::refusedMergeLeavesTheFiles()
{
    QVERIFY(m_directory->write(
        partName, Description::without(m_directory->json(partName), "sizeOfSharedMemory")));
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    LogCapture log;

    QVERIFY(!build());

    COMPARE_LOG(log, warning("No property in part: \"sizeOfSharedMemory\""),
                warning("Can not adapt size of shared memory in root."));
    QCOMPARE(m_directory->snapshot(), former);
    QCOMPARE(m_size, 0);
    QCOMPARE(m_offset, 100);
}

void tst_ProcessDataBuilderMergeFiles::rootThatCannotBeWrittenIsReported()
{
    const DescriptionDirectory::Snapshot former = m_directory->snapshot();
    const auto formerHandler = std::signal(SIGXFSZ, SIG_IGN);
    bool result = true;
    LogCapture log;

    {
        const ResourceLimit noSpace(RLIMIT_FSIZE, 0);
        result = build();
    }
    std::signal(SIGXFSZ, formerHandler);

    QVERIFY(!result);
    const QString path = m_directory->filePath(rootName);
    COMPARE_LOG(log, warning(QStringLiteral("Error on writing to file! \"%1\"").arg(path)),
                warning(QStringLiteral("Error on commit file! \"%1\"").arg(path)),
                warning("Can not frame new process data description to file."));
    QCOMPARE(m_directory->snapshot(), former);
    QCOMPARE(m_size, 40);
    QCOMPARE(m_offset, 100);
}

QTEST_GUILESS_MAIN(tst_ProcessDataBuilderMergeFiles)
#include "tst_ProcessDataBuilderMergeFiles.moc"
