#include "Companion/FileSearch.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"

#include <QtTest>

#include <dlfcn.h>

namespace {

int followedPaths = 0;

/// A folder in each other, @p depth of them below @p path, and a file in the last one.
void makeFolders(const QString &path, int depth)
{
    QString deepest = path;
    for (int i = 0; i < depth; ++i) {
        deepest += QStringLiteral("/n");
    }
    QVERIFY(QDir().mkpath(deepest));
    QFile file(deepest + QStringLiteral("/leaf.config.json"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"({"type":"treenode","value":{"leaf":{"type":"int32","value":1}}})");
}

} // namespace

// Stands in front of the system's function, which follows a path from its beginning.
extern "C" __attribute__((visibility("default"))) char *realpath(const char *path,
                                                                 char *resolved) noexcept
{
    ++followedPaths;
    static const auto next = reinterpret_cast<char *(*)(const char *, char *)>(
        dlsym(RTLD_NEXT, "realpath"));
    return next(path, resolved);
}

/// What a walk over folders asks the system, however deep they lie.
class tst_DirectoryDepth : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void searchFollowsNoPathForEachFolder();
    void parsingFollowsNoPathForEachFolder();
};

void tst_DirectoryDepth::searchFollowsNoPathForEachFolder()
{
    const QTemporaryDir folder;
    makeFolders(folder.path(), 40);
    QList<QFileInfo> files;
    followedPaths = 0;

    searchFilesOnPathRecursive(folder.path(), {QStringLiteral("*.json")}, files);

    QCOMPARE(files.size(), 1);
    QCOMPARE(followedPaths, 1);
}

void tst_DirectoryDepth::parsingFollowsNoPathForEachFolder()
{
    const QTemporaryDir folder;
    makeFolders(folder.path(), 40);
    ConfigurationAndProcessDataBase::BaseClassSharedPointer root;
    followedPaths = 0;

    QVERIFY(ConfigurationDataAndProcessDescriptionAccess::parseConfigDir(root,
                                                                         QFileInfo(folder.path())));

    QVERIFY(!root.isNull());
    QVERIFY(
        !root->getLeaf(QStringLiteral("n/").repeated(40) + QStringLiteral("leaf/leaf")).isNull());
    QCOMPARE(followedPaths, 1);
}

QTEST_GUILESS_MAIN(tst_DirectoryDepth)

#include "tst_DirectoryDepth.moc"
