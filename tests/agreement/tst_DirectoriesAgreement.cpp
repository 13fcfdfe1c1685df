#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "agreement/DirectoryOperations.h"
#include "agreement/PlainBuilder.h"
#include "agreement/PlainDirectories.h"

#include <QRandomGenerator>

Q_DECLARE_METATYPE(RandomDirectory::Oddities)

namespace {

using LibraryOperations =
    DirectoryOperations<ConfigurationDataAndProcessDescriptionAccess, ProcessDataBuilder>;
using PlainOperations = DirectoryOperations<PlainDirectories, PlainBuilder>;
using Oddities = RandomDirectory::Oddities;

const QString keyPrefix = QStringLiteral("agreement");

/// The name of the operation and the first lines that differ.
QString difference(const QString &library, const QString &plain)
{
    const QStringList libraryLines = library.split('\n');
    const QStringList plainLines = plain.split('\n');
    int line = 0;
    while (line < libraryLines.size() && line < plainLines.size()
           && libraryLines.at(line) == plainLines.at(line)) {
        ++line;
    }
    return QStringLiteral("%1\n--- library:\n%2\n--- plain:\n%3")
        .arg(libraryLines.first(), libraryLines.mid(line, 2).join('\n'),
             plainLines.mid(line, 2).join('\n'));
}

/// What both implementations make of one directory; empty if that is the same.
QString compare(quint32 seed, Oddities oddities, QMap<QString, int> &countByResult)
{
    const RandomDirectory directory(seed, oddities, keyPrefix + "Folderdevice12345");
    QTemporaryDir place;
    const QString libraryBase = place.filePath("library");
    const QString plainBase = place.filePath("plain");
    directory.writeTo(libraryBase + "/device");
    directory.writeTo(plainBase + "/device");

    const QStringList library =
        LibraryOperations(seed, libraryBase, directory, keyPrefix).perform();
    const QStringList plain = PlainOperations(seed, plainBase, directory, keyPrefix).perform();

    directory.releaseAt(libraryBase + "/device");
    directory.releaseAt(plainBase + "/device");
    for (int i = 0; i < qMin(library.size(), plain.size()); ++i) {
        if (library.at(i) != plain.at(i)) {
            return difference(library.at(i), plain.at(i));
        }
        ++countByResult[plain.at(i).section('\n', 0, 0)];
    }
    return library.size() == plain.size() ? QString() : QStringLiteral("another number of results");
}

} // namespace

/// The library's operations on directories against second ones that take the plain way: results,
/// trees, what is on the disk afterwards and every message in order. Set TESSEL_TEST_SEED to the
/// number of a failed run to have the same directories again, and TESSEL_TEST_DIRECTORIES to a
/// number of directories.
class tst_DirectoriesAgreement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void everyOperationAgrees_data();
    void everyOperationAgrees();
    void everyOperationSucceeds();

private:
    quint32 m_seed = 0;
    int m_directories = 60;
    QMap<QString, int> m_countByResult;
};

void tst_DirectoriesAgreement::initTestCase()
{
    bool isGiven = false;
    m_seed = qEnvironmentVariable("TESSEL_TEST_SEED").toUInt(&isGiven);
    if (!isGiven) {
        m_seed = QRandomGenerator::global()->generate();
    }
    const int directories = qEnvironmentVariableIntValue("TESSEL_TEST_DIRECTORIES", &isGiven);
    if (isGiven) {
        m_directories = directories;
    }
    qInfo() << "TESSEL_TEST_SEED" << m_seed;
}

void tst_DirectoriesAgreement::everyOperationAgrees_data()
{
    QTest::addColumn<Oddities>("oddities");

    QTest::newRow("files and folders") << Oddities::None;
    QTest::newRow("links to directories") << Oddities::LinksToDirectories;
    QTest::newRow("links to files") << Oddities::LinksToFiles;
    QTest::newRow("things that are no files") << Oddities::NoFiles;
}

void tst_DirectoriesAgreement::everyOperationAgrees()
{
    QFETCH(Oddities, oddities);

    for (int i = 0; i < m_directories; ++i) {
        const quint32 seed = m_seed + static_cast<quint32>(i);
        const QString difference = compare(seed, oddities, m_countByResult);
        QVERIFY2(difference.isEmpty(),
                 qPrintable(QStringLiteral("TESSEL_TEST_SEED %1: %2").arg(seed).arg(difference)));
    }
}

void tst_DirectoriesAgreement::everyOperationSucceeds()
{
    for (const char *operation : {"configurations", "written back", "part written back", "memory",
                                  "process directory", "built", "merged", "files merged"}) {
        const QString name = operation;
        QVERIFY2(m_countByResult.value(name + " succeeded") > 0, operation);
    }
}

QTEST_GUILESS_MAIN(tst_DirectoriesAgreement)

#include "tst_DirectoriesAgreement.moc"
