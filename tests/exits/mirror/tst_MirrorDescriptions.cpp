#include "mirror/DescriptionBundle.h"
#include "service/Refusal.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QByteArray description =
    R"({"type": "treenode", "value": {"a": {"type": "int32", "offsetSharedMemory": 0, "sizeValue": 4,
        "relativeOffsetMetadata": 4, "sizeMetadata": 4}}, "keyProcessDataMemory": "plant",
        "doubleBuffer": true, "sizeOfSharedMemory": 8})";

DescriptionBundle bundle(const QStringList &names, bool isFolder = true)
{
    DescriptionBundle made;
    made.isFolder = isFolder;
    for (const auto &name : names) {
        made.files.append({name, description});
    }
    return made;
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList entriesOf(const QString &path)
{
    return QDir(path).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

} // namespace

/// What is written of a description that somebody else has sent.
class tst_MirrorDescriptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nameThatLeadsElsewhereIsRefused_data();
    void nameThatLeadsElsewhereIsRefused();
    void tooMuchIsRefused();
    void fileIsWrittenAsItWas();
    void folderIsWrittenWithItsFolders();
    void folderThatHoldsSomethingStays();
    void descriptionOfAnotherRegionLeavesNothing();
    void textThatIsNoDescriptionLeavesNothing();
};

void tst_MirrorDescriptions::nameThatLeadsElsewhereIsRefused_data()
{
    QTest::addColumn<QString>("name");
    for (const char *const name :
         {"", "/etc/plant.json", "../plant.json", "a/../plant.json", "a//plant.json", "a/",
          "./plant.json", ".plant.json", "a/.b/plant.json", "plant", "plant.json/", "a\nb.json",
          "\x1b[2J.json", ".json"}) {
        QTest::newRow(name[0] == '\0' ? "empty" : name) << QString::fromLatin1(name);
    }
    QTest::newRow("long") << QString(260, QLatin1Char('x')) + QStringLiteral(".json");
    QTest::newRow("deep") << QStringLiteral("a/").repeated(16) + QStringLiteral("x.json");
    QTest::newRow("zero") << QStringLiteral("a") + QChar(0) + QStringLiteral(".json");
}

void tst_MirrorDescriptions::nameThatLeadsElsewhereIsRefused()
{
    QFETCH(QString, name);

    QCOMPARE(bundle({name}).problem(),
             QStringLiteral("a file has a name that is none for a description"));
    QCOMPARE(bundle({QStringLiteral("a/b.process.json"), QStringLiteral("ä.json")}).problem(),
             QString());
}

void tst_MirrorDescriptions::tooMuchIsRefused()
{
    QCOMPARE(bundle({}).problem(), QStringLiteral("it has 0 files"));
    QCOMPARE(bundle({QStringLiteral("a.json"), QStringLiteral("b.json")}, false).problem(),
             QStringLiteral("it has 2 files"));
    QCOMPARE(bundle({QStringLiteral("a/b.json")}, false).problem(),
             QStringLiteral("its file lies in a folder"));
    QCOMPARE(bundle({QStringLiteral("a.json"), QStringLiteral("a.json")}).problem(),
             QStringLiteral("two files have one name"));
    DescriptionBundle many;
    many.isFolder = true;
    for (int i = 0; i < 1001; ++i) {
        many.files.append({QStringLiteral("%1.json").arg(i), {}});
    }
    QCOMPARE(many.problem(), QStringLiteral("it has 1001 files"));
    many.files.removeLast();
    QCOMPARE(many.problem(), QString());
    many.files[0].content = QByteArray(16 * 1024 * 1024, ' ');
    QCOMPARE(many.problem(), QString());
    many.files[1].content = " ";
    QCOMPARE(many.problem(), QStringLiteral("it has more than 16777216 bytes"));
}

void tst_MirrorDescriptions::fileIsWrittenAsItWas()
{
    const QTemporaryDir place;
    const QString folder = place.filePath(QStringLiteral("copy"));
    const DescriptionBundle one = bundle({QStringLiteral("plant.process.json")}, false);

    QCOMPARE(one.write(folder, QStringLiteral("plant")),
             folder + QStringLiteral("/plant.process.json"));

    QCOMPARE(contentOf(folder + QStringLiteral("/plant.process.json")), description);
    QCOMPARE(entriesOf(place.path()), QStringList(QStringLiteral("copy")));
    const DescriptionBundle again = DescriptionBundle::read(
        folder + QStringLiteral("/plant.process.json"));
    QVERIFY(!again.isFolder);
    QCOMPARE(again.files.size(), 1);
    QCOMPARE(again.files[0].name, QStringLiteral("plant.process.json"));
    QCOMPARE(again.files[0].content, description);
}

void tst_MirrorDescriptions::folderIsWrittenWithItsFolders()
{
    const QTemporaryDir place;
    const QString folder = place.filePath(QStringLiteral("copy"));
    QVERIFY(QDir().mkdir(folder)); // An empty one is replaced.
    DescriptionBundle one = bundle({QStringLiteral("inner/plant.process.json")});
    one.files.append({QStringLiteral("inner/folder.json"), "{}"});

    QCOMPARE(one.write(folder, QStringLiteral("plant")), folder);

    QCOMPARE(contentOf(folder + QStringLiteral("/inner/plant.process.json")), description);
    const DescriptionBundle again = DescriptionBundle::read(folder);
    QVERIFY(again.isFolder);
    QCOMPARE(again.files.size(), 2);
    QCOMPARE(again.files[0].name, QStringLiteral("inner/folder.json"));
    QCOMPARE(again.files[1].name, QStringLiteral("inner/plant.process.json"));
}

void tst_MirrorDescriptions::folderThatHoldsSomethingStays()
{
    const QTemporaryDir place;
    const QString folder = place.filePath(QStringLiteral("copy"));
    const DescriptionBundle one = bundle({QStringLiteral("plant.process.json")}, false);
    one.write(folder, QStringLiteral("plant"));
    DescriptionBundle other = one;
    other.files[0].content += ' ';

    QVERIFY_EXCEPTION_THROWN(other.write(folder, QStringLiteral("plant")), Refusal);

    QCOMPARE(contentOf(folder + QStringLiteral("/plant.process.json")), description);
    QCOMPARE(entriesOf(place.path()), QStringList(QStringLiteral("copy")));
}

void tst_MirrorDescriptions::descriptionOfAnotherRegionLeavesNothing()
{
    const QTemporaryDir place;

    try {
        bundle({QStringLiteral("plant.process.json")}, false)
            .write(place.filePath(QStringLiteral("copy")), QStringLiteral("boiler"));
        QFAIL("was written");
    } catch (const Refusal &refusal) {
        QCOMPARE(refusal.text,
                 QStringLiteral("the source of region 'boiler' sends a description of "
                                "region 'plant'; nothing was written"));
    }

    QCOMPARE(entriesOf(place.path()), QStringList());
}

void tst_MirrorDescriptions::textThatIsNoDescriptionLeavesNothing()
{
    const QTemporaryDir place;
    DescriptionBundle none = bundle({QStringLiteral("plant.process.json")}, false);
    none.files[0].content = "\xff{";

    QVERIFY_EXCEPTION_THROWN(
        none.write(place.filePath(QStringLiteral("copy")), QStringLiteral("plant")), Refusal);

    QCOMPARE(entriesOf(place.path()), QStringList());
}

QTEST_APPLESS_MAIN(tst_MirrorDescriptions)
#include "tst_MirrorDescriptions.moc"
