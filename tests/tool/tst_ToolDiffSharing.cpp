#include "ComparedPair.h"

namespace {

QStringList changesBetween(const QByteArray &former, const QByteArray &now)
{
    const Pair files(former, now, "process");
    return changesIn(diff({QStringLiteral("--json"), files.former, files.now}).output);
}

/// A key with a slash inside leads to the same URL as two nodes.
QByteArray besideSlash(const QByteArray &hidden)
{
    return process(leafA).replace(
        R"("value": {"n")",
        R"("value": {"n/a": {"type": "double", "sizeValue": 8, "offsetSharedMemory": )" + hidden
            + R"(}, "n")");
}

/// The leaves a, b, c of one word each at these offsets.
QByteArray threeAt(const QByteArray &a, const QByteArray &b, const QByteArray &c)
{
    const auto leaf = [](const QByteArray &offset) {
        return R"("type": "int32", "sizeValue": 4, "offsetSharedMemory": )" + offset;
    };
    return process(leaf(a) + R"(}, "b": {)" + leaf(b) + R"(}, "c": {)" + leaf(c));
}

} // namespace

/// `tessel diff` of leaves that share a URL, or bytes.
class tst_ToolDiffSharing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void eachLeafOfOneUrlIsCompared();
    void leavesOfOneUrlComeAndGo();
    void newSlotsOnOneByteAreBreaking();
    void anotherOneOnTheSameByteIsBreaking();
    void whoWentOnSharingIsNotTold();
    void newBitOfOthersIsBreaking();
};

void tst_ToolDiffSharing::eachLeafOfOneUrlIsCompared()
{
    QCOMPARE(changesBetween(besideSlash("8"), besideSlash("16")),
             QStringList(QStringLiteral("attach process n/a offsetSharedMemory [8] [16]")));
}

void tst_ToolDiffSharing::leavesOfOneUrlComeAndGo()
{
    QCOMPARE(changesBetween(process(leafA), besideSlash("8")),
             QStringList(QStringLiteral("attach process n/a added [null] [\"double\"]")));
    QCOMPARE(changesBetween(besideSlash("8"), process(leafA)),
             QStringList(QStringLiteral("breaking process n/a removed [\"double\"] [null]")));
}

void tst_ToolDiffSharing::newSlotsOnOneByteAreBreaking()
{
    const QByteArray other = R"("}, "b": {"type": "int32", "sizeValue": 4, "offsetSharedMemory": )";
    const QByteArray first = QByteArray(leafA) + other.mid(1);
    const Pair files(process(first + "8"), process(first + "4"), "process");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(changesIn(result.output),
             (QStringList{QStringLiteral("breaking process n/a sharesWith [null] [\"n/b\"]"),
                          QStringLiteral("attach process n/b offsetSharedMemory [8] [4]"),
                          QStringLiteral("breaking process n/b sharesWith [null] [\"n/a\"]")}));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolDiffSharing::anotherOneOnTheSameByteIsBreaking()
{
    QCOMPARE(changesBetween(threeAt("0", "2", "8"), threeAt("0", "2", "4")),
             (QStringList{QStringLiteral("breaking process n/b sharesWith [null] [\"n/c\"]"),
                          QStringLiteral("attach process n/c offsetSharedMemory [8] [4]"),
                          QStringLiteral("breaking process n/c sharesWith [null] [\"n/b\"]")}));
}

void tst_ToolDiffSharing::whoWentOnSharingIsNotTold()
{
    QCOMPARE(changesBetween(threeAt("0", "2", "8"), threeAt("0", "1", "8")),
             QStringList(QStringLiteral("attach process n/b offsetSharedMemory [2] [1]")));
}

void tst_ToolDiffSharing::newBitOfOthersIsBreaking()
{
    const auto bits = [](const QByteArray &second) {
        return process(R"("type": "bit", "sizeValue": 1, "offsetSharedMemory": 0, "bitmask": 1}, )"
                       R"("b": {"type": "bit", "sizeValue": 1, "offsetSharedMemory": 0, )"
                       R"("bitmask": )"
                       + second);
    };

    QCOMPARE(changesBetween(bits("2"), bits("3")),
             (QStringList{QStringLiteral("breaking process n/a sharesWith [null] [\"n/b\"]"),
                          QStringLiteral("attach process n/b bitmask [2] [3]"),
                          QStringLiteral("breaking process n/b sharesWith [null] [\"n/a\"]")}));
}

QTEST_GUILESS_MAIN(tst_ToolDiffSharing)
#include "tst_ToolDiffSharing.moc"
