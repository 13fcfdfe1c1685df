#include "ToolDescription.h"
#include "TwoFiles.h"

#include <QJsonArray>
#include <QXmlStreamReader>

#include <sys/stat.h>

using Metadata = ToolDescription::Metadata;

namespace {

ToolResult layout(const QStringList &arguments, const QStringList &environment = {})
{
    return runTool(QStringList(QStringLiteral("layout")) + arguments, environment);
}

/// A value with its state, a hole, and two bits of one byte.
QString smallFile(ToolDescription &description)
{
    description.add(QStringLiteral("n/a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    description.add(QStringLiteral("n/b"), QStringLiteral("bit"), Metadata::None, 1,
                    {{QStringLiteral("offsetSharedMemory"), 12}, {QStringLiteral("bitmask"), 1}});
    description.add(QStringLiteral("n/c"), QStringLiteral("bit"), Metadata::None, 1,
                    {{QStringLiteral("offsetSharedMemory"), 12}, {QStringLiteral("bitmask"), 2}});
    description.setRoot(QStringLiteral("sizeOfSharedMemory"), 14);
    return description.write();
}

/// One leaf at an offset, in a buffer of a size.
void addAt(ToolDescription &description, const char *url, const char *type, int size, double offset,
           int mask = 0)
{
    description.add(
        QLatin1String(url), QLatin1String(type), Metadata::None, size,
        {{QStringLiteral("offsetSharedMemory"), offset}, {QStringLiteral("bitmask"), mask}});
}

QStringList linesOf(const QString &output)
{
    return output.split(QLatin1Char('\n'));
}

QJsonArray slotsIn(const QString &json)
{
    return QJsonDocument::fromJson(json.toUtf8()).object().value(QStringLiteral("slots")).toArray();
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

/// The tool in a shell, behind @p before and with a redirection.
ToolResult inShell(const QString &before, const QStringList &arguments, const QString &behind = {})
{
    QProcess shell;
    shell.start(QStringLiteral("sh"),
                QStringList{QStringLiteral("-c"), before + QStringLiteral("exec \"$@\" ") + behind,
                            QStringLiteral("sh"), QStringLiteral(TESSEL_TOOL),
                            QStringLiteral("layout")}
                    + arguments);
    shell.waitForFinished();
    return {shell.exitCode(), QString::fromUtf8(shell.readAllStandardOutput()),
            QString::fromUtf8(shell.readAllStandardError())};
}

} // namespace

/// `tessel layout`.
class tst_ToolLayout : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyByteHasALine();
    void jsonHasAnObjectASlot();
    void bytesOfTwoLeavesAreAnOverlap();
    void bitsOverlapByTheirMasksAlone();
    void oneFarReachingLeafOverlapsAllBehindIt();
    void crossingsAreThoseOfTheMapping_data();
    void crossingsAreThoseOfTheMapping();
    void textsCrossNoLine();
    void slotOutsideTheBufferIsTold_data();
    void slotOutsideTheBufferIsTold();
    void urlsChooseTheSlots();
    void folderIsLaidOutAsByABuild();
    void folderThatIsBuiltHasNoNote();
    void defaultDescriptionStandsForAFileThatIsLeftOut();
    void pictureIsXmlWithTitles();
    void pictureOfHalfACharacterIsXml();
    void pictureOfManyRowsIsAnOverview();
    void pictureOfManySlotsInOnePlaceStaysSmall();
    void pictureIsPrintedForAMinus();
    void pictureReplacesNoDevice();
    void pictureThatCannotBeWritten_data();
    void pictureThatCannotBeWritten();
    void pictureThatIsCutOffLeavesTheFormerOne();
    void fileThatIsNoDescriptionIsRefused_data();
    void fileThatIsNoDescriptionIsRefused();
    void unknownUrlHasAHint();
    void wrongUse_data();
    void wrongUse();
    void closedPipeIsNoFailure();
    void fullOutputIsAFailure();
};

void tst_ToolLayout::everyByteHasALine()
{
    ToolDescription description;

    const ToolResult result = layout({smallFile(description)});

    QCOMPARE(result.output, QStringLiteral("OFFSET  SIZE  WHAT   URL  TYPE      NOTE\n"
                                           "     0     4  value  n/a  int32\n"
                                           "     4     4  state  n/a\n"
                                           "     8     4  hole\n"
                                           "    12     1  value  n/b  bit 0x01\n"
                                           "    12     1  value  n/c  bit 0x02\n"
                                           "    13     1  hole\n"
                                           "\n"
                                           "TYPE   LEAVES  BYTES  STATES\n"
                                           "bit         2      1       0\n"
                                           "int32       1      4       4\n"
                                           "\n"
                                           "Key          %1\n"
                                           "Buffer       double, 14 bytes\n"
                                           "Used         9 bytes\n"
                                           "Holes        5 bytes in 2 places\n"
                                           "Overlapping  0 bytes\n"
                                           "Crossings    0\n")
                                .arg(description.key()));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolLayout::jsonHasAnObjectASlot()
{
    ToolDescription description;
    const QString file = smallFile(description);

    const ToolResult result = layout({QStringLiteral("--json"), file});

    QJsonObject object = QJsonDocument::fromJson(result.output.toUtf8()).object();
    const QJsonArray found = object.take(QStringLiteral("slots")).toArray();
    const QJsonArray types = object.take(QStringLiteral("types")).toArray();
    QCOMPARE(object, (QJsonObject{{QStringLiteral("file"), file},
                                  {QStringLiteral("key"), description.key()},
                                  {QStringLiteral("bufferSize"), 14},
                                  {QStringLiteral("doubleBuffer"), true},
                                  {QStringLiteral("isAsWritten"), true},
                                  {QStringLiteral("used"), 9},
                                  {QStringLiteral("holes"), 5},
                                  {QStringLiteral("holeCount"), 2},
                                  {QStringLiteral("overlapping"), 0},
                                  {QStringLiteral("crossings"), 0}}));
    QCOMPARE(types.size(), 2);
    QCOMPARE(types.at(1).toObject(), (QJsonObject{{QStringLiteral("type"), QStringLiteral("int32")},
                                                  {QStringLiteral("leaves"), 1},
                                                  {QStringLiteral("bytes"), 4},
                                                  {QStringLiteral("stateBytes"), 4}}));
    QCOMPARE(found.size(), 6);
    const QJsonObject hole{{QStringLiteral("offset"), 8},
                           {QStringLiteral("size"), 4},
                           {QStringLiteral("what"), QStringLiteral("hole")},
                           {QStringLiteral("url"), QString()},
                           {QStringLiteral("type"), QString()},
                           {QStringLiteral("bitmask"), 0},
                           {QStringLiteral("sharesWith"), QJsonValue()},
                           {QStringLiteral("isOutside"), false},
                           {QStringLiteral("crossesLineInBuffers"), QJsonArray()}};
    QCOMPARE(found.at(2).toObject(), hole);
    QCOMPARE(found.at(4).toObject().value(QStringLiteral("bitmask")), QJsonValue(2));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolLayout::bytesOfTwoLeavesAreAnOverlap()
{
    ToolDescription description;
    addAt(description, "a", "double", 8, 0);
    addAt(description, "b", "int32", 4, 6);
    const QString file = description.write();

    const ToolResult plain = layout({file});
    const ToolResult json = layout({QStringLiteral("--json"), file});

    QVERIFY(plain.output.contains(
        QLatin1String("     0     8  value  a    double  shares byte 6 with the value of 'b'\n"
                      "     6     4  value  b    int32   shares byte 6 with the value of 'a'\n")));
    QVERIFY(plain.output.contains(QLatin1String("Overlapping  2 bytes\n")));
    QCOMPARE(slotsIn(json.output).at(1).toObject().value(QStringLiteral("sharesWith")).toObject(),
             (QJsonObject{{QStringLiteral("url"), QStringLiteral("a")},
                          {QStringLiteral("what"), QStringLiteral("value")},
                          {QStringLiteral("byte"), 6}}));
    QCOMPARE(plain.exitCode, 0);
}

void tst_ToolLayout::bitsOverlapByTheirMasksAlone()
{
    ToolDescription description;
    addAt(description, "a", "bit", 1, 0, 1);
    addAt(description, "b", "bit", 1, 0, 2);
    addAt(description, "c", "bit", 1, 0, 6);
    // Only the low 8 bits of a mask count.
    addAt(description, "d", "bit", 1, 0, 257);
    addAt(description, "e", "bit", 1, 0, 8);

    const QStringList lines = linesOf(layout({description.write()}).output);

    QVERIFY(lines.at(1).endsWith(QLatin1String("shares byte 0 with the value of 'd'")));
    QVERIFY(lines.at(2).endsWith(QLatin1String("shares byte 0 with the value of 'c'")));
    QVERIFY(lines.at(3).endsWith(QLatin1String("shares byte 0 with the value of 'b'")));
    QVERIFY(lines.at(4).endsWith(QLatin1String("shares byte 0 with the value of 'a'")));
    QVERIFY(lines.at(5).endsWith(QLatin1String("value  e    bit 0x08")));
    QVERIFY(lines.contains(QStringLiteral("Overlapping  1 bytes")));
}

void tst_ToolLayout::oneFarReachingLeafOverlapsAllBehindIt()
{
    ToolDescription description;
    addAt(description, "a", "string", 20, 0);
    addAt(description, "b", "int16", 2, 4);
    addAt(description, "c", "bit", 1, 10, 1);
    addAt(description, "d", "int16", 2, 18);
    addAt(description, "e", "int16", 2, 20);

    const QStringList lines = linesOf(layout({description.write()}).output);

    QVERIFY(lines.at(1).endsWith(QLatin1String("shares byte 4 with the value of 'b'")));
    QVERIFY(lines.at(2).endsWith(QLatin1String("shares byte 4 with the value of 'a'")));
    QVERIFY(lines.at(3).endsWith(QLatin1String("shares byte 10 with the value of 'a'")));
    QVERIFY(lines.at(4).endsWith(QLatin1String("shares byte 18 with the value of 'a'")));
    QVERIFY(lines.at(5).endsWith(QLatin1String("value  e    int16")));
    QVERIFY(lines.contains(QStringLiteral("Overlapping  5 bytes")));
}

void tst_ToolLayout::crossingsAreThoseOfTheMapping_data()
{
    QTest::addColumn<bool>("isDouble");
    QTest::addColumn<int>("bufferSize");
    QTest::addColumn<int>("offset");
    QTest::addColumn<QString>("note");
    QTest::addColumn<QJsonArray>("buffers");

    QTest::newRow("single, up to the line") << false << 128 << 56 << "" << QJsonArray();
    QTest::newRow("single") << false << 128 << 57 << "crosses a cache line" << QJsonArray{1};
    QTest::newRow("single, behind the line") << false << 128 << 64 << "" << QJsonArray();
    QTest::newRow("both") << true << 128 << 60 << "crosses a cache line in both buffers"
                          << QJsonArray{1, 2};
    QTest::newRow("first") << true << 132 << 60 << "crosses a cache line in the first buffer"
                           << QJsonArray{1};
    QTest::newRow("second") << true << 132 << 56 << "crosses a cache line in the second buffer"
                            << QJsonArray{2};
}

void tst_ToolLayout::crossingsAreThoseOfTheMapping()
{
    QFETCH(bool, isDouble);
    QFETCH(int, bufferSize);
    QFETCH(int, offset);
    QFETCH(QString, note);
    QFETCH(QJsonArray, buffers);
    ToolDescription description;
    addAt(description, "a", "double", 8, offset);
    description.setRoot(QStringLiteral("doubleBuffer"), isDouble);
    description.setRoot(QStringLiteral("sizeOfSharedMemory"), bufferSize);
    const QString file = description.write();

    const ToolResult plain = layout({file, QStringLiteral("a")});
    const ToolResult json = layout({QStringLiteral("--json"), file, QStringLiteral("a")});

    QCOMPARE(linesOf(plain.output).at(1).section(QStringLiteral("double"), 1).trimmed(), note);
    QCOMPARE(linesOf(plain.output).contains(QStringLiteral("Crossings    1")), !note.isEmpty());
    QCOMPARE(slotsIn(json.output)
                 .at(0)
                 .toObject()
                 .value(QStringLiteral("crossesLineInBuffers"))
                 .toArray(),
             buffers);
}

void tst_ToolLayout::textsCrossNoLine()
{
    ToolDescription description;
    addAt(description, "a", "string", 20, 50);
    description.setRoot(QStringLiteral("sizeOfSharedMemory"), 128);

    QVERIFY(layout({description.write()}).output.contains(QLatin1String("Crossings    0\n")));
}

void tst_ToolLayout::slotOutsideTheBufferIsTold_data()
{
    QTest::addColumn<double>("offset");
    QTest::addColumn<QString>("shown");

    QTest::newRow("one byte") << 9.0 << "9";
    QTest::newRow("2^31") << 2147483648.0 << "2147483648";
    // As the leaf reads it.
    QTest::newRow("negative") << -8.0 << "4294967288";
}

void tst_ToolLayout::slotOutsideTheBufferIsTold()
{
    QFETCH(double, offset);
    QFETCH(QString, shown);
    ToolDescription description;
    addAt(description, "a", "double", 8, offset);
    description.setRoot(QStringLiteral("sizeOfSharedMemory"), 16);
    const QString file = description.write();

    const ToolResult plain = layout({file, QStringLiteral("a")});
    const ToolResult picture = layout({QStringLiteral("--svg"), QStringLiteral("-"), file});

    QCOMPARE(linesOf(plain.output).at(1).trimmed(),
             shown + QStringLiteral("     8  value  a    double  ends outside the buffer"));
    QVERIFY(!elementsOf(picture.output.toUtf8()).isEmpty());
    QCOMPARE(plain.exitCode, 0);
}

void tst_ToolLayout::urlsChooseTheSlots()
{
    ToolDescription description;
    const QString file = smallFile(description);

    const ToolResult result = layout({file, QStringLiteral("*/[bc]"), QStringLiteral("**/c")});
    const ToolResult chosen = layout({file, QStringLiteral("**/c")});

    QCOMPARE(result.exitCode, 3);
    QCOMPARE(linesOf(chosen.output).mid(0, 5),
             (QStringList{QStringLiteral("OFFSET  SIZE  WHAT   URL  TYPE      NOTE"),
                          QStringLiteral("    12     1  value  n/c  bit 0x02"), QString(),
                          QStringLiteral("TYPE  LEAVES  BYTES  STATES"),
                          QStringLiteral("bit        1      1       0")}));
    QVERIFY(chosen.output.contains(QLatin1String("Used         9 bytes\n")));
}

void tst_ToolLayout::folderIsLaidOutAsByABuild()
{
    const TwoFiles folder;
    const auto before = folder.snapshot();

    const ToolResult result = layout({folder.path()});

    // 6 + 3 and 4 + 1 bytes are filled up to 16, where the next file begins; so is the last one, to 24.
    QCOMPARE(
        linesOf(result.output).mid(0, 11),
        (QStringList{QStringLiteral("OFFSET  SIZE  WHAT   URL      TYPE    NOTE"),
                     QStringLiteral("     0     6  value  a/x      uint32"),
                     QStringLiteral("     6     4  state  a/x              shares byte 9 with "
                                    "the value of 'a/y'"),
                     QStringLiteral("     9     4  value  a/y      uint32  shares byte 9 with "
                                    "the state of 'a/x'"),
                     QStringLiteral("    13     4  state  a/y              shares byte 16 with "
                                    "the value of 'sub/b/z'"),
                     QStringLiteral("    16     4  value  sub/b/z  uint32  shares byte 16 with "
                                    "the state of 'a/y'"),
                     QStringLiteral("    20     4  state  sub/b/z"), QString(),
                     QStringLiteral("TYPE    LEAVES  BYTES  STATES"),
                     QStringLiteral("uint32       3     14      12"), QString()}));
    QVERIFY(result.output.contains(QLatin1String("Buffer       single, 24 bytes\n")));
    QCOMPARE(result.error, QStringLiteral("tessel: note: %1: this is what a build makes of it; its "
                                          "files still have another layout\n")
                               .arg(folder.path()));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(folder.snapshot(), before);
}

void tst_ToolLayout::folderThatIsBuiltHasNoNote()
{
    const TwoFiles folder;
    QCOMPARE(runBuild(folder.path()).exitCode, 0);

    const ToolResult result = layout({QStringLiteral("--json"), folder.path()});

    QCOMPARE(result.error, QString());
    const QJsonObject object = QJsonDocument::fromJson(result.output.toUtf8()).object();
    QCOMPARE(object.value(QStringLiteral("isAsWritten")), QJsonValue(true));
    QVERIFY(object.value(QStringLiteral("key")).toString().startsWith(keyPrefix()));
}

void tst_ToolLayout::defaultDescriptionStandsForAFileThatIsLeftOut()
{
    ToolDescription description;
    const QString file = smallFile(description);

    const ToolResult named = layout({file, QStringLiteral("n/a")});
    const ToolResult leftOut = layout({QStringLiteral("n/a")},
                                      {QStringLiteral("TESSEL_DIR=") + file});

    QVERIFY(named.output.contains(QLatin1String("n/a")));
    QCOMPARE(leftOut.output, named.output);
    QCOMPARE(leftOut.exitCode, 0);
}

void tst_ToolLayout::pictureIsXmlWithTitles()
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

void tst_ToolLayout::pictureOfHalfACharacterIsXml()
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

void tst_ToolLayout::pictureOfManyRowsIsAnOverview()
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

void tst_ToolLayout::pictureOfManySlotsInOnePlaceStaysSmall()
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

void tst_ToolLayout::pictureIsPrintedForAMinus()
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

void tst_ToolLayout::pictureReplacesNoDevice()
{
    ToolDescription description;
    const QString fifo = description.path(QStringLiteral("fifo.svg"));
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);

    const ToolResult result = layout({QStringLiteral("--svg"), fifo, smallFile(description)});

    QCOMPARE(result.error, QStringLiteral("tessel: %1: is no regular file\n").arg(fifo));
    QCOMPARE(result.exitCode, 9);
    QVERIFY(QFileInfo::exists(fifo) && !QFileInfo(fifo).isFile());
}

void tst_ToolLayout::pictureThatCannotBeWritten_data()
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

void tst_ToolLayout::pictureThatCannotBeWritten()
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

void tst_ToolLayout::pictureThatIsCutOffLeavesTheFormerOne()
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

void tst_ToolLayout::fileThatIsNoDescriptionIsRefused_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("missing") << "none.process.json"
                             << "no such file" << 3;
    QTest::newRow("empty") << "empty.process.json"
                           << "cannot be parsed: line 1, column 1: illegal value" << 9;
    QTest::newRow("a list") << "list.process.json"
                            << "cannot be parsed: key 'type' not found in JSON object" << 9;
    QTest::newRow("without leaves") << "bare.process.json"
                                    << "holds no process value; its top level must be a tree node "
                                       "with leaves below"
                                    << 9;
    QTest::newRow("another name") << "plant.json"
                                  << "no process description; its name must end in .process.json"
                                  << 9;
    QTest::newRow("a FIFO") << "fifo.process.json"
                            << "is no regular file" << 9;
    QTest::newRow("a device") << "zero.process.json"
                              << "is no regular file" << 9;
    QTest::newRow("an empty folder") << "folder"
                                     << "holds no process description; their names end in "
                                        ".process.json"
                                     << 9;
}

void tst_ToolLayout::fileThatIsNoDescriptionIsRefused()
{
    QFETCH(QString, path);
    QFETCH(QString, reason);
    QFETCH(int, exitCode);
    const ToolDescription description;
    description.write(QStringLiteral("empty.process.json"), "");
    description.write(QStringLiteral("list.process.json"), "[]");
    description.write(QStringLiteral("bare.process.json"), R"({"type": "treenode", "value": {}})");
    description.write(QStringLiteral("plant.json"), R"({"type": "treenode", "value": {}})");
    const QString fifo = description.path(QStringLiteral("fifo.process.json"));
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    QVERIFY(QFile::link(QStringLiteral("/dev/zero"),
                        description.path(QStringLiteral("zero.process.json"))));
    QVERIFY(QDir().mkpath(description.path(QStringLiteral("folder"))));

    const ToolResult result = layout({description.path(path)});

    QCOMPARE(result.error, QStringLiteral("tessel: %1: %2\n").arg(description.path(path), reason));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolLayout::unknownUrlHasAHint()
{
    ToolDescription description;
    const QString file = smallFile(description);

    const ToolResult result = layout({file, QStringLiteral("n/aa")});

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: no element at 'n/aa' (did you mean 'n/a'?)\n").arg(file));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolLayout::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");

    QTest::newRow("no file") << QStringList() << "FILE is missing";
    QTest::newRow("typo") << QStringList{"--jsn", "f"}
                          << "unknown option '--jsn' (did you mean '--json'?)";
    QTest::newRow("no picture") << QStringList{"f", "--svg"} << "Missing value after '--svg'";
    QTest::newRow("two outputs") << QStringList{"--json", "--svg", "p", "f"}
                                 << "give --json or --svg, not both";
}

void tst_ToolLayout::wrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    const ToolResult result = layout(arguments);

    QCOMPARE(result.error,
             QStringLiteral("tessel: layout: %1; see 'tessel layout --help'\n").arg(reason));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolLayout::closedPipeIsNoFailure()
{
    ToolDescription description;

    QCOMPARE(exitCodeWithoutReader({QStringLiteral("layout"), smallFile(description)}), 0);
}

void tst_ToolLayout::fullOutputIsAFailure()
{
    ToolDescription description;
    const QString file = smallFile(description);

    for (const QStringList &options : {QStringList(), QStringList(QStringLiteral("--json")),
                                       QStringList{QStringLiteral("--svg"), QStringLiteral("-")}}) {
        const ToolResult result = inShell({}, options + QStringList(file),
                                          QStringLiteral(">/dev/full"));

        QCOMPARE(result.error,
                 QStringLiteral("tessel: standard output: No space left on device\n"));
        QCOMPARE(result.exitCode, 9);
    }
}

QTEST_GUILESS_MAIN(tst_ToolLayout)
#include "tst_ToolLayout.moc"
