#include "ProcessDataManagement/ProcessDataManager.h"
#include "ProcessDataManagement/ProcessDescription.h"
#include "support/LogCapture.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {

const auto create = ProcessDataManager::InitTypeSharedMemoryCreate;
const auto attach = ProcessDataManager::InitTypeSharedMemoryAttach;

const QString &processPostfix()
{
    return PropertyManagerConst::getProcessDataDescriptionFileExtension();
}

LogLine creationLine(const ProcessDescription &description)
{
    return debugLine(
        QStringLiteral("Create: Key for shared memory ( \"%1\" )!").arg(description.key));
}

struct OneNumber : ProcessDescription
{
    OneNumber() : ProcessDescription(8) { leaves.insert(QStringLiteral("a"), int32Slot(0)); }
};

bool isOpenHere(const QString &path)
{
    const QFileInfoList descriptors = QDir(QStringLiteral("/proc/self/fd"))
                                          .entryInfoList(QDir::NoDotAndDotDot | QDir::AllEntries
                                                         | QDir::System);
    return std::any_of(descriptors.cbegin(), descriptors.cend(), [&](const QFileInfo &descriptor) {
        return descriptor.symLinkTarget() == path;
    });
}

} // namespace

class tst_ProcessDataManagerFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void fileIsCreated();
    void fileIsAttached();
    void missingFileIsReported();
    void fileWithoutPostfixIsRefused();
    void fileWithABrokenTextIsRefused();
    void fileWithAnotherPostfixIsRefused();
    void emptyFileIsRefused();
    void fileWithoutMemoryComesBackUnbound();
    void fileWhoseMemoryFailsIsNoRoot();

    void textIsCreated_data();
    void textIsCreated();
    void brokenTextIsRefused();

private:
    /// The path of a file with this content.
    QString makeFile(const QString &name, const QByteArray &content) const;

    QTemporaryDir m_directory;
};

void tst_ProcessDataManagerFiles::initTestCase()
{
    QVERIFY(m_directory.isValid());
    // Dots in names of directories count too, and the one for temporary files may have some: from
    // inside the directory a path is a bare name.
    QVERIFY(QDir::setCurrent(m_directory.path()));
}

QString tst_ProcessDataManagerFiles::makeFile(const QString &name, const QByteArray &content) const
{
    QFile file(name);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() ? name
                                                                                    : QString();
}

void tst_ProcessDataManagerFiles::fileIsCreated()
{
    const OneNumber description;
    const QString path = makeFile(QStringLiteral("device.process.json"), description.toByteArray());
    ProcessDataManager manager;
    LogCapture log;

    const auto root = manager.createProcessDataFromFile(path, create);

    QVERIFY(root);
    COMPARE_LOG(log, creationLine(description));
    QVERIFY(root->getLeafProcessDataValue(QStringLiteral("a")));
    QVERIFY(manager.isBufferValid());
    QVERIFY(!isOpenHere(path));
}

void tst_ProcessDataManagerFiles::fileIsAttached()
{
    const OneNumber description;
    const QString path = makeFile(QStringLiteral("device.process.json"), description.toByteArray());
    ProcessDataManager creator;
    ProcessDataManager manager;
    LogCapture log;
    QVERIFY(creator.createProcessDataFromFile(path, create));
    log.take();

    QVERIFY(manager.createProcessDataFromFile(path, attach));

    COMPARE_LOG(
        log, debugLine(
                 QStringLiteral("Attach: Key for shared memory ( \"%1\" )!").arg(description.key)));
}

void tst_ProcessDataManagerFiles::missingFileIsReported()
{
    const QString path = QStringLiteral("missing");
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessDataFromFile(path, create));

    COMPARE_LOG(log, warning(QStringLiteral("Can't open file  \"%1\"  IO Error:  "
                                            "\"No such file or directory\"")
                                 .arg(path)));
    QVERIFY(!manager.isBufferValid());
}

void tst_ProcessDataManagerFiles::fileWithoutPostfixIsRefused()
{
    const OneNumber description;
    const QString path = makeFile(QStringLiteral("device.json"), description.toByteArray());
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessDataFromFile(path, create));

    COMPARE_LOG(log, warning(QStringLiteral("Path is not valid:  \"%1\"").arg(path)),
                warning(QStringLiteral("Cannot parse file: \"%1\"").arg(path)));
    QVERIFY(!isOpenHere(path));
    QVERIFY(!description.segment.exists());
}

void tst_ProcessDataManagerFiles::fileWithABrokenTextIsRefused()
{
    const QString path = makeFile(QStringLiteral("device.process.json"), QByteArrayLiteral("{]"));
    QJsonParseError error;
    QJsonDocument::fromJson(QByteArrayLiteral("{]"), &error);
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessDataFromFile(path, create));

    COMPARE_LOG(log, warning(QStringLiteral("Parsing error:  \"%1\"").arg(error.errorString())),
                warning(QStringLiteral("Cannot parse Json!")));
    QVERIFY(!isOpenHere(path));
}

void tst_ProcessDataManagerFiles::fileWithAnotherPostfixIsRefused()
{
    const OneNumber description;
    const QString path = makeFile(QStringLiteral("device.other.json"), description.toByteArray());
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessDataFromFile(path, create));

    COMPARE_LOG(log, warning(QStringLiteral("wrong file postfix \"other.json\"")),
                warning(QStringLiteral("object is invalid \"a\"")),
                warning(QStringLiteral("Cannot parse Json!")));
    QVERIFY(!description.segment.exists());
}

void tst_ProcessDataManagerFiles::emptyFileIsRefused()
{
    const QString path = makeFile(QStringLiteral("device.process.json"), QByteArray());
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessDataFromFile(path, create));

    const QList<LogLine> lines = log.take();
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.last(), warning(QStringLiteral("Cannot parse Json!")));
}

void tst_ProcessDataManagerFiles::fileWithoutMemoryComesBackUnbound()
{
    OneNumber description;
    description.size = 0;
    const QString path = makeFile(QStringLiteral("device.process.json"), description.toByteArray());
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(manager.createProcessDataFromFile(path, create));

    COMPARE_LOG(log);
    QVERIFY(!manager.isBufferValid());
}

void tst_ProcessDataManagerFiles::fileWhoseMemoryFailsIsNoRoot()
{
    OneNumber description;
    description.key.clear();
    const QString path = makeFile(QStringLiteral("device.process.json"), description.toByteArray());
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessDataFromFile(path, create));

    COMPARE_LOG(log, warning(QStringLiteral("Key for process data memory is empty.")),
                warning(QStringLiteral("Can not create process data memory.")));
    QVERIFY(!isOpenHere(path));
}

void tst_ProcessDataManagerFiles::textIsCreated_data()
{
    QTest::addColumn<bool>("asString");
    QTest::addColumn<QString>("postfix");

    QTest::newRow("bytes") << false << processPostfix();
    QTest::newRow("text") << true << processPostfix();
    QTest::newRow("postfix with a dot") << false << QLatin1Char('.') + processPostfix();
}

void tst_ProcessDataManagerFiles::textIsCreated()
{
    QFETCH(bool, asString);
    QFETCH(QString, postfix);
    const OneNumber description;
    const QByteArray bytes = description.toByteArray();
    const QVariant json = asString ? QVariant(QString::fromUtf8(bytes)) : QVariant(bytes);
    ProcessDataManager manager;
    LogCapture log;

    const auto root = manager.createProcessDataFromJson(json, postfix, create);

    QVERIFY(root);
    COMPARE_LOG(log, creationLine(description));
    QVERIFY(root->getLeafProcessDataValue(QStringLiteral("a")));
    QVERIFY(manager.isBufferValid());
}

void tst_ProcessDataManagerFiles::brokenTextIsRefused()
{
    ProcessDataManager manager;
    LogCapture log;

    // An object that says nothing of its type.
    QVERIFY(!manager.createProcessDataFromJson(QByteArrayLiteral("{}"), processPostfix(), create));

    COMPARE_LOG(log, warning(QStringLiteral("key 'type' not found in JSON object")),
                warning(QStringLiteral("Cannot parse Json!")));
    QVERIFY(!manager.isBufferValid());
}

QTEST_GUILESS_MAIN(tst_ProcessDataManagerFiles)

#include "tst_ProcessDataManagerFiles.moc"
