#include "LayoutCalls.h"
#include "TwoFiles.h"

#include <QXmlStreamReader>

#include <sys/stat.h>

using Metadata = ToolDescription::Metadata;

namespace {

/// One leaf at an offset, in a buffer of a size.
void addAt(ToolDescription &description, const char *url, const char *type, int size, double offset,
           int mask = 0)
{
    description.add(
        QLatin1String(url), QLatin1String(type), Metadata::None, size,
        {{QStringLiteral("offsetSharedMemory"), offset}, {QStringLiteral("bitmask"), mask}});
}

/// The numbers of the elements of a picture; empty if it is no XML.
QMap<QString, int> elementsOf(const QByteArray &picture)
{
    QMap<QString, int> counts;
    QXmlStreamReader xml(picture);
    while (!xml.atEnd()) {
        if (xml.readNext() == QXmlStreamReader::StartElement) {
            ++counts[xml.name().toString()];
        }
    }
    return xml.hasError() ? QMap<QString, int>() : counts;
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

/// The picture that `tessel layout --svg` draws.
class tst_ToolLayoutPicture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pictureIsXmlWithTitles();
    void pictureOfHalfACharacterIsXml();
    void pictureOfManyRowsIsAnOverview();
    void pictureOfManySlotsInOnePlaceStaysSmall();
    void pictureIsPrintedForAMinus();
    void pictureReplacesNoDevice();
    void pictureThatCannotBeWritten_data();
    void pictureThatCannotBeWritten();
    void pictureThatIsCutOffLeavesTheFormerOne();
};

void tst_ToolLayoutPicture::pictureIsXmlWithTitles()
{
    ToolDescription description;
    addAt(description, "n/a\x1b<&>", "double", 8, 60);
    addAt(description, "n/b", "int32", 4, 62);
    addAt(description, "n/c", "bit", 1, 80, 3);
    description.setRoot(QStringLiteral("sizeOfSharedMemory"), 132);
    const QString picture = description.path(QStringLiteral("plant.svg"));

    const ToolResult result = layout({QStringLiteral("--svg"), picture, description.write()});

    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    const QByteArray text = contentOf(picture);
    const QMap<QString, int> elements = elementsOf(text);
    QCOMPARE(elements.value(QStringLiteral("svg")), 1);
    // Of the whole; of two parts of a, two of b, both bits of c and three holes; of the overlap in two rows.
    QCOMPARE(elements.value(QStringLiteral("title")), 1 + 2 + 2 + 2 + 4 + 2);
    QVERIFY(text.contains(
        QStringLiteral("<title>%1: double, 132 bytes</title>").arg(description.key()).toUtf8()));
    QVERIFY(
        text.contains("bytes 60 to 67: value of 'n/a\\u001b&lt;&amp;&gt;', double; shares byte 62 "
                      "with the value of 'n/b'; crosses a cache line in the first buffer"));
    QVERIFY(text.contains("byte 80: value of 'n/c', bit 0x03"));
    QVERIFY(text.contains("bytes 62 to 63 belong to more than one"));
}

void tst_ToolLayoutPicture::pictureOfHalfACharacterIsXml()
{
    ToolDescription description;
    addAt(description, "n/half", "double", 8, 0);
    description.setRoot(QStringLiteral("sizeOfSharedMemory"), 8);
    QFile file(description.write());
    QVERIFY(file.open(QIODevice::ReadWrite));
    const QByteArray text = file.readAll().replace("half", "a\\ud800b");
    QVERIFY(file.resize(0) && file.seek(0) && file.write(text) == text.size());
    file.close();

    const ToolResult result = layout(
        {QStringLiteral("--svg"), QStringLiteral("-"), file.fileName()});

    QCOMPARE(result.exitCode, 0);
    QXmlStreamReader xml(result.output);
    while (!xml.atEnd()) {
        xml.readNext();
    }
    QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
    QVERIFY(result.output.contains(QStringLiteral("value of 'n/a\uFFFDb', double")));
}

void tst_ToolLayoutPicture::pictureOfManyRowsIsAnOverview()
{
    ToolDescription description;
    addAt(description, "n/a", "double", 8, 0);
    addAt(description, "n/b", "string", 100000, 1000);
    description.setRoot(QStringLiteral("sizeOfSharedMemory"), 120000);
    const QString file = description.write();

    const QByteArray whole =
        layout({QStringLiteral("--svg"), QStringLiteral("-"), file}).output.toUtf8();
    const QByteArray part = layout({QStringLiteral("--svg"), QStringLiteral("-"), file,
                                    QStringLiteral("n/a")})
                                .output.toUtf8();

    // Cells of 16 bytes are the smallest of which 8192 are enough.
    QVERIFY(whole.contains("a cell is 16 bytes"));
    QVERIFY(whole.contains(
        "<title>bytes 0 to 15: 1 leaves begin, 8 free, 0 overlapping; first 'n/a'</title>"));
    QVERIFY(whole.contains(
        "<title>bytes 119984 to 119999: 0 leaves begin, 16 free, 0 overlapping</title>"));
    QCOMPARE(elementsOf(whole).value(QStringLiteral("title")), 1 + 120000 / 16);
    QVERIFY(!part.contains("a cell is"));
    QVERIFY(part.contains("bytes 0 to 7: value of 'n/a', double"));
}

void tst_ToolLayoutPicture::pictureOfManySlotsInOnePlaceStaysSmall()
{
    ToolDescription description;
    QByteArray leaves;
    for (int i = 0; i < 21000; ++i) {
        leaves += QByteArray(i == 0 ? "" : ",") + "\"l" + QByteArray::number(i)
                  + R"(": {"type": "double", "offsetSharedMemory": 8, "sizeValue": 8})";
    }
    const QString file = description.write(
        QStringLiteral("heap.process.json"),
        R"({"type": "treenode", "sizeOfSharedMemory": 32, "value": {)" + leaves + "}}");

    const QByteArray picture =
        layout({QStringLiteral("--svg"), QStringLiteral("-"), file}).output.toUtf8();

    QVERIFY(picture.contains("a cell is 1 bytes"));
    QVERIFY(
        picture.contains("<title>byte 8: 21000 leaves begin, 0 free, 1 overlapping; first 'l0'"));
    QCOMPARE(elementsOf(picture).value(QStringLiteral("title")), 1 + 32);
}

void tst_ToolLayoutPicture::pictureIsPrintedForAMinus()
{
    ToolDescription description;
    const QString file = smallFile(description);
    const QString picture = description.path(QStringLiteral("plant.svg"));

    const ToolResult written = layout({QStringLiteral("--svg"), picture, file});
    const ToolResult printed = layout({QStringLiteral("--svg"), QStringLiteral("-"), file});

    QCOMPARE(written.exitCode, 0);
    QVERIFY(!printed.output.isEmpty());
    QCOMPARE(printed.output.toUtf8(), contentOf(picture));
}

void tst_ToolLayoutPicture::pictureReplacesNoDevice()
{
    ToolDescription description;
    const QString fifo = description.path(QStringLiteral("fifo.svg"));
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);

    const ToolResult result = layout({QStringLiteral("--svg"), fifo, smallFile(description)});

    QCOMPARE(result.error, QStringLiteral("tessel: %1: is no regular file\n").arg(fifo));
    QCOMPARE(result.exitCode, 9);
    QVERIFY(QFileInfo::exists(fifo) && !QFileInfo(fifo).isFile());
}

void tst_ToolLayoutPicture::pictureThatCannotBeWritten_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("no folder") << "none/plant.svg"
                               << "no such folder" << 3;
    QTest::newRow("a folder") << "."
                              << "is no regular file" << 9;
    QTest::newRow("no permission") << "closed/plant.svg"
                                   << "no permission to write it" << 4;
}

void tst_ToolLayoutPicture::pictureThatCannotBeWritten()
{
    QFETCH(QString, name);
    QFETCH(QString, reason);
    QFETCH(int, exitCode);
    if (!makePermissionsCount()) {
        QSKIP("The system does not take root's permissions away.");
    }
    ToolDescription description;
    const QString file = smallFile(description);
    QVERIFY(QDir().mkpath(description.path(QStringLiteral("closed"))));
    const NarrowPermissions narrow(description.path(QStringLiteral("closed")),
                                   QFile::ReadOwner | QFile::ExeOwner);

    const ToolResult result = layout({QStringLiteral("--svg"), description.path(name), file});

    QCOMPARE(result.error, QStringLiteral("tessel: %1: %2\n").arg(description.path(name), reason));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolLayoutPicture::pictureThatIsCutOffLeavesTheFormerOne()
{
    ToolDescription description;
    const QString file = smallFile(description);
    const QString picture = description.write(QStringLiteral("plant.svg"), "former");

    const ToolResult result = inShell(QStringLiteral("ulimit -f 1; "),
                                      {QStringLiteral("--svg"), picture, file});

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: cannot be written: File too large\n").arg(picture));
    QCOMPARE(result.exitCode, 9);
    QCOMPARE(contentOf(picture), QByteArray("former"));
}

QTEST_GUILESS_MAIN(tst_ToolLayoutPicture)
#include "tst_ToolLayoutPicture.moc"
