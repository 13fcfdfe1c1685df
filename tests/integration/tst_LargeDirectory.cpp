#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "support/LogCapture.h"

#include <QDirIterator>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int fileCount = 200;
constexpr int leavesPerFile = 100;

/// Path to inode and time of change: equal only if no file was written.
QMap<QString, QPair<quint64, qint64>> fileStates(const QString &directory)
{
    QMap<QString, QPair<quint64, qint64>> states;
    QDirIterator walk(directory, QDir::Files, QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        struct stat status = {};
        const QString path = walk.next();
        stat(QFile::encodeName(path).constData(), &status);
        states.insert(path, {status.st_ino,
                             qint64{status.st_mtim.tv_sec} * 1000000000 + status.st_mtim.tv_nsec});
    }
    return states;
}

} // namespace

/// Input of the size that a big device has.
class tst_LargeDirectory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isBuiltOnceAndLive();
};

void tst_LargeDirectory::isBuiltOnceAndLive()
{
    const QTemporaryDir parent;
    const QString directory = parent.filePath(QStringLiteral("large"));
    QCOMPARE(
        QProcess::execute(QStringLiteral(MAKE_DIRECTORY),
                          {directory, QString::number(fileCount), QString::number(leavesPerFile)}),
        0);
    const QString prefix = QStringLiteral("tesselLarge%1").arg(getpid());
    LogCapture log;
    QString key;
    QVERIFY(ProcessDataBuilder().buildProcessDataFromDir(prefix, directory, key));
    const auto built = fileStates(directory);
    COMPARE_LOG(log);

    QString secondKey;
    QVERIFY(ProcessDataBuilder().buildProcessDataFromDir(prefix, directory, secondKey));
    QCOMPARE(secondKey, key);
    QCOMPARE(fileStates(directory), built);
    COMPARE_LOG(log);

    ProcessDataManager manager;
    const auto root = manager.createProcessDataFromDir(
        prefix, directory, ProcessDataManager::InitTypeSharedMemoryCreate);
    QVERIFY(root);
    QVERIFY(manager.isBufferValid());
    QCOMPARE(fileStates(directory), built);
    ConfigurationAndProcessDataBase::ListElements leaves;
    root->collectElements(leaves, true);
    QCOMPARE(leaves.size(), fileCount * leavesPerFile);
    const auto leaf = root->getLeafProcessDataValue(QStringLiteral("module20/channel200/leaf100"));
    QVERIFY(leaf);
    QVERIFY(leaf->setValue({7U, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID}));
    QVERIFY(manager.swapReadAndWriteBuffer());
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    leaf->getValue(value);
    QCOMPARE(value.toInt(), 7);
}

QTEST_GUILESS_MAIN(tst_LargeDirectory)

#include "tst_LargeDirectory.moc"
