#include "LayoutCalls.h"
#include "TwoFiles.h"

#include <QJsonArray>
#include <QXmlStreamReader>

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

QTEST_GUILESS_MAIN(tst_ToolLayout)
#include "tst_ToolLayout.moc"
