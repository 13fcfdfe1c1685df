#include "InspectedRegion.h"
#include "support/ResourceLimit.h"

#include <algorithm>
#include <cerrno>
#include <string>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

/// errno of the attempt to open the folder of all regions; 0: as the system says.
int openError = 0;
/// The same of each attempt to read one more of its entries, behind so many of them.
int readError = 0;
int entriesBefore = 0;

template <class Function>
Function original(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

/// In the place of the functions that the library calls.
extern "C" Q_DECL_EXPORT DIR *opendir(const char *path)
{
    static const auto call = original<DIR *(*)(const char *)>("opendir");
    if (openError != 0 && std::string(path).rfind("/dev/shm", 0) == 0) {
        errno = openError;
        return nullptr;
    }
    return call(path);
}

extern "C" Q_DECL_EXPORT dirent *readdir(DIR *folder)
{
    static const auto call = original<dirent *(*)(DIR *)>(sizeof(off_t) > sizeof(long) ? "readdir64"
                                                                                       : "readdir");
    if (readError != 0 && entriesBefore-- <= 0) {
        errno = readError;
        return nullptr;
    }
    return call(folder);
}

namespace {

/// What the folder of all regions is, and how it cannot be read, as long as this lives.
class FolderFault
{
public:
    explicit FolderFault(int error) { openError = error; }
    FolderFault(int entries, int error)
    {
        entriesBefore = entries;
        readError = error;
    }
    ~FolderFault()
    {
        openError = 0;
        readError = 0;
    }

    FolderFault(const FolderFault &) = delete;
    FolderFault &operator=(const FolderFault &) = delete;
};

} // namespace

/// The keys of all regions of the machine, and whether they are all.
class tst_RegionKeys : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keysOfAllRegionsAreFound();
    void whatIsNoRegionHasNoKey();
    void nameThatIsNoTextHasNoKey();
    void folderThatCannotBeOpenedIsTold_data();
    void folderThatCannotBeOpenedIsTold();
    void folderThatCannotBeReadToItsEndIsTold();
    void missingDescriptorsAreTold();
};

void tst_RegionKeys::keysOfAllRegionsAreFound()
{
    const TwoNumbers first;
    const TwoNumbers second(false);
    const TwoNumbers third;
    const QuietManager firstCreator(first, create);
    const QuietManager secondCreator(second, create);
    QStringList keys{QStringLiteral("of a former look")};

    QCOMPARE(RegionInspection::findKeysWithStatus(keys), 0);

    QCOMPARE(keys.count(first.key), 1);
    QCOMPARE(keys.count(second.key), 1);
    QVERIFY(!keys.contains(third.key));
    QVERIFY(!keys.contains(QStringLiteral("of a former look")));
    QVERIFY(std::is_sorted(keys.cbegin(), keys.cend()));
    const QStringList plain = RegionInspection::findKeys();
    QCOMPARE(plain.count(first.key), 1);
    QCOMPARE(plain.count(second.key), 1);
    QVERIFY(std::is_sorted(plain.cbegin(), plain.cend()));
}

void tst_RegionKeys::whatIsNoRegionHasNoKey()
{
    const QString key = SemaphoreSet::uniqueKey(QStringLiteral("keys"));
    const SegmentFile otherEnding(key + QStringLiteral("SharedMemories"));
    const SegmentFile hidden(QLatin1Char('.') + key + QStringLiteral("SharedMemory"));
    const SegmentFile linked(key + QStringLiteral("linkedSharedMemory"));
    const SegmentFile dangling(key + QStringLiteral("danglingSharedMemory"));
    const QString folder = key + QStringLiteral("folderSharedMemory");
    QVERIFY(otherEnding.make("seven b") && hidden.make("seven b"));
    QVERIFY(QFile::link(otherEnding.path(), linked.path()));
    QVERIFY(QFile::link(otherEnding.path() + QLatin1Char('x'), dangling.path()));
    QVERIFY(QDir(QStringLiteral("/dev/shm")).mkdir(folder));

    QStringList keys;
    const int status = RegionInspection::findKeysWithStatus(keys);

    QVERIFY(QDir(QStringLiteral("/dev/shm")).rmdir(folder));
    QCOMPARE(status, 0);
    // A file of somebody else whose name ends so counts.
    QCOMPARE(keys.filter(key),
             (QStringList{QLatin1Char('.') + key, key + QStringLiteral("linked")}));
    QVERIFY(!keys.contains(QString()));
}

/// Nobody could ask for it.
void tst_RegionKeys::nameThatIsNoTextHasNoKey()
{
    const QString key = SemaphoreSet::uniqueKey(QStringLiteral("keys"));
    const QByteArray path = "/dev/shm/" + key.toLatin1() + "\xC3(SharedMemory";
    const int file = open(path.constData(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    QVERIFY(file >= 0);
    close(file);

    QStringList keys;
    const int status = RegionInspection::findKeysWithStatus(keys);

    QCOMPARE(unlink(path.constData()), 0);
    QCOMPARE(status, 0);
    QCOMPARE(keys.filter(key), QStringList());
}

void tst_RegionKeys::folderThatCannotBeOpenedIsTold_data()
{
    QTest::addColumn<int>("error");

    QTest::newRow("no descriptor is left") << EMFILE;
    QTest::newRow("none of the whole machine") << ENFILE;
    QTest::newRow("it may not be read") << EACCES;
    QTest::newRow("it is not there") << ENOENT;
    QTest::newRow("no memory is left") << ENOMEM;
}

void tst_RegionKeys::folderThatCannotBeOpenedIsTold()
{
    QFETCH(int, error);
    const SegmentFile segment(SemaphoreSet::uniqueKey(QStringLiteral("keys"))
                              + QStringLiteral("SharedMemory"));
    QVERIFY(segment.make("seven b"));
    QStringList keys{QStringLiteral("of a former look")};
    const FolderFault fault(error);

    QCOMPARE(RegionInspection::findKeysWithStatus(keys), error);
    QCOMPARE(keys, QStringList());
    QCOMPARE(RegionInspection::findKeys(), QStringList());
}

void tst_RegionKeys::folderThatCannotBeReadToItsEndIsTold()
{
    const SegmentFile segment(SemaphoreSet::uniqueKey(QStringLiteral("keys"))
                              + QStringLiteral("SharedMemory"));
    QVERIFY(segment.make("seven b"));
    QStringList keys;
    {
        const FolderFault fault(0, EIO);
        QCOMPARE(RegionInspection::findKeysWithStatus(keys), EIO);
        QCOMPARE(keys, QStringList());
    }
    // The folder itself, its parent, and the region at least.
    const FolderFault fault(3, EIO);
    QCOMPARE(RegionInspection::findKeysWithStatus(keys), EIO);
    QVERIFY(keys.size() <= 1);
}

void tst_RegionKeys::missingDescriptorsAreTold()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    QStringList keys;
    {
        const ResourceLimit limit(RLIMIT_NOFILE, 0);
        QCOMPARE(RegionInspection::findKeysWithStatus(keys), EMFILE);
        QCOMPARE(keys, QStringList());
    }

    QCOMPARE(RegionInspection::findKeysWithStatus(keys), 0);
    QCOMPARE(keys.count(description.key), 1);
}

QTEST_GUILESS_MAIN(tst_RegionKeys)

#include "tst_RegionKeys.moc"
