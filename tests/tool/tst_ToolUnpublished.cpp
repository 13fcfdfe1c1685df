#include "Companion/PingPongBufferHandler.h"
#include "HeldRegion.h"
#include "ProcessData/Linux/SharedMemory.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"
#include "support/LookingReader.h"

#include <QtTest>

#include <cstring>
#include <memory>

using Metadata = ToolDescription::Metadata;

namespace {

const QString url = QStringLiteral("n/a");

} // namespace

/// A region whose creator has not published anything yet: its bytes are zero, as if they were valid values.
class tst_ToolUnpublished : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void getSaysSoBesideWhatItPrints();
    void getSaysNothingBehindTheFirstSet();
    void expectFindsNoSet();
    void expectWaitsForTheFirstSet();
    void expectTimesOutWithoutASet();
    void snapshotKeepsNothing();
    void compareHasNothingToCompare();

private:
    PingPongBufferHandler::ManagementBuffer &block()
    {
        return *static_cast<PingPongBufferHandler::ManagementBuffer *>(m_memory->data());
    }
    /// As it is between the making of the region and its first set.
    void takeBack()
    {
        const std::size_t head = PingPongBufferHandler::getSizeManagementBuffer();
        std::memset(static_cast<char *>(m_memory->data()) + head, 0,
                    static_cast<std::size_t>(m_memory->size()) - head);
        block().swapCount = 0;
    }
    QStringList line(const char *subcommand, const QStringList &rest = {}) const
    {
        return QStringList{QString::fromLatin1(subcommand), m_file} + rest;
    }
    QString refusal() const
    {
        return QStringLiteral("tessel: %1: nothing was published in region '%2' yet\n")
            .arg(m_file, m_description->key());
    }
    QString kept() const { return m_description->path(QStringLiteral("s.json")); }

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
    std::unique_ptr<SharedMemory> m_memory;
};

void tst_ToolUnpublished::init()
{
    m_log = std::make_unique<LogCapture>();
    m_description = std::make_unique<ToolDescription>();
    m_description->add(url, QStringLiteral("int32"), Metadata::ErrorState, 4);
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    m_memory = std::make_unique<SharedMemory>();
    m_memory->setKey(m_description->key() + QStringLiteral("SharedMemory"));
    QVERIFY(m_memory->attach(SharedMemory::ReadWrite));
    takeBack();
}

void tst_ToolUnpublished::cleanup()
{
    m_memory.reset();
    m_region.reset();
    m_description.reset();
    m_log.reset();
}

void tst_ToolUnpublished::getSaysSoBesideWhatItPrints()
{
    const ToolResult result = runTool(line("get"));

    QCOMPARE(result.output, QStringLiteral("URL  VALUE  UNIT  STATE\n"
                                           "n/a      0        valid\n"));
    QCOMPARE(result.error, QStringLiteral("tessel: note: nothing was published in region '%1' yet; "
                                          "these are bytes that nobody has written\n")
                               .arg(m_description->key()));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolUnpublished::getSaysNothingBehindTheFirstSet()
{
    QVERIFY(m_region->publish(url, validValue(1)));

    QCOMPARE(runTool(line("get")).error, QString());
}

void tst_ToolUnpublished::expectFindsNoSet()
{
    const ToolResult result = runTool(line("expect", {QStringLiteral("n/a is valid")}));

    QCOMPARE(result.error, refusal());
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 7);
}

void tst_ToolUnpublished::expectWaitsForTheFirstSet()
{
    ToolProcess expect(line("expect", {QStringLiteral("--timeout"), QStringLiteral("60s"),
                                       QStringLiteral("n/a is valid")}));
    QVERIFY(LookingReader::waitUntilSeen(m_description->key()));
    QVERIFY(m_region->publish(url, validValue(1)));

    const ToolResult result = expect.finish();

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolUnpublished::expectTimesOutWithoutASet()
{
    const ToolResult result = runTool(
        line("expect",
             {QStringLiteral("--timeout"), QStringLiteral("0s"), QStringLiteral("n/a is valid")}));

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: nothing was published in region '%2' within 0 s\n")
                 .arg(m_file, m_description->key()));
    QCOMPARE(result.exitCode, 6);
}

void tst_ToolUnpublished::snapshotKeepsNothing()
{
    const ToolResult result = runTool(line("snapshot", {QStringLiteral("-o"), kept()}));

    QCOMPARE(result.error, refusal());
    QCOMPARE(result.exitCode, 7);
    QVERIFY(!QFile::exists(kept()));
}

void tst_ToolUnpublished::compareHasNothingToCompare()
{
    QVERIFY(m_region->publish(url, validValue(0)));
    QCOMPARE(runTool(line("snapshot", {QStringLiteral("-o"), kept()})).exitCode, 0);
    takeBack();

    const ToolResult result = runTool(line("compare", {kept()}));

    QCOMPARE(result.error, refusal());
    QCOMPARE(result.exitCode, 7);
}

QTEST_GUILESS_MAIN(tst_ToolUnpublished)
#include "tst_ToolUnpublished.moc"
