#include "DeviceConfiguration.h"

#include <QTemporaryDir>

namespace {

void makeFile(const QString &path)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"({"type":"treenode","value":{"tag":{"type":"string","value":"T"}}})");
}

/// The URLs in what `config show` prints, without the line above them.
QStringList urlsIn(const QString &output)
{
    QStringList urls;
    for (const QString &line : output.split('\n', Qt::SkipEmptyParts).mid(1)) {
        urls.append(line.section(' ', 0, 0));
    }
    return urls;
}

} // namespace

/// `tessel config` in a folder "top" with links to folders beside it: it knows the files that the
/// library has in its tree, and no others.
class tst_ToolConfigLinks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void filesAreThoseOfTheTree_data();
    void filesAreThoseOfTheTree();
};

void tst_ToolConfigLinks::filesAreThoseOfTheTree_data()
{
    QTest::addColumn<QStringList>("links"); // name and target in turn, from "top"
    QTest::addColumn<QStringList>("urls");

    QTest::newRow("a folder below one that a link led to")
        << QStringList{"a", "../outside", "b", "../outside/sub"}
        << QStringList{"a/outer/tag", "a/sub/inner/tag", "own/tag"};
    QTest::newRow("a folder above one that a link led to")
        << QStringList{"a", "../outside/sub", "b", "../outside"}
        << QStringList{"a/inner/tag", "b/outer/tag", "own/tag"};
    QTest::newRow("two links to one folder")
        << QStringList{"a", "../outside/sub", "b", "a"} << QStringList{"a/inner/tag", "own/tag"};
    QTest::newRow("a folder that links to itself")
        << QStringList{"a", "../outside/sub", "../outside/sub/back", "."}
        << QStringList{"a/inner/tag", "own/tag"};
    QTest::newRow("a folder below a hidden one")
        << QStringList{"a", "../outside", "b", "../outside/.hidden/deep"}
        << QStringList{"a/outer/tag", "a/sub/inner/tag", "b/far/tag", "own/tag"};
    QTest::newRow("the folder in which the top lies")
        << QStringList{"up", ".."}
        << QStringList{"own/tag", "up/outside/outer/tag", "up/outside/sub/inner/tag"};
}

void tst_ToolConfigLinks::filesAreThoseOfTheTree()
{
    QFETCH(QStringList, links);
    QFETCH(QStringList, urls);
    const QTemporaryDir directory;
    makeFile(directory.filePath("top/own.config.json"));
    makeFile(directory.filePath("outside/outer.config.json"));
    makeFile(directory.filePath("outside/sub/inner.config.json"));
    makeFile(directory.filePath("outside/.hidden/deep/far.config.json"));
    for (int i = 0; i < links.size(); i += 2) {
        QVERIFY(QFile::link(links.at(i + 1), directory.filePath("top/" + links.at(i))));
    }

    const ToolResult result = runTool({"config", "show", directory.filePath("top")});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(urlsIn(result.output), urls);
}

QTEST_GUILESS_MAIN(tst_ToolConfigLinks)
#include "tst_ToolConfigLinks.moc"
