#include "ProblemText.h"
#include "support/LogCapture.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <algorithm>

#include <sys/stat.h>
#include <unistd.h>

/// What no file of the corpus can show, and the list of the rules.
class tst_DescriptionCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void missingFileIsAProblem();
    void fileWithoutPermissionIsAProblem();
    void otherNameIsAProblem();
    void pipeUnderAFittingNameIsAProblem();
    void folderDescriptionIsCheckedWithoutItsFolder();
    void foldersWithOneKeyAreAProblem();
    void partsOfOneFolderMayHaveItsKey();
    void folderThatWasNeverBuiltHasOnlyWarnings();
    void folderGivenTwiceIsLookedOverOnce();
    void typeOfNoColumnIsNotMistakenForAWord();
    void cellsOfASingleColumnAreJudged();
    void valueAtTheTopMayHaveAVersion();
    void keyOfTheTopIsToldApartFromOneOfNoUse();
    void nameWithAPlaceholderStaysWhole();
    void fileIsToldOf_data();
    void fileIsToldOf();
    void everyOtherVersionOf32BitsIsToldOf();
    void valueThatIsMisreadIsShownAsWritten();
    void folderWithOtherFilesIsInOrder();
    void problemsStandInOrder();
    void checkOfAFileIsSilent();
    void nothingIsWritten();
    void rulesAreSortedAndExplained();
};

namespace {

QByteArray processText(const QByteArray &key, int size, int offset)
{
    return "{\"type\": \"treenode\", \"keyProcessDataMemory\": \"" + key
           + "\", \"sizeOfSharedMemory\": " + QByteArray::number(size)
           + ", \"doubleBuffer\": true,\n \"value\": {\"level\": {\"type\": \"double\", "
             "\"displayPosition\": 1, \"sizeValue\": 8, \"relativeOffsetMetadata\": 8, "
             "\"sizeMetadata\": 4,\n  \"offsetSharedMemory\": "
           + QByteArray::number(offset) + "}}}\n";
}

/// Files of a test's own.
class Folder
{
public:
    QString path(const QString &name = {}) const
    {
        return name.isEmpty() ? m_dir.path() : m_dir.filePath(name);
    }

    QString write(const QString &name, const QByteArray &text) const
    {
        QDir(m_dir.path()).mkpath(QFileInfo(name).path());
        QFile file(path(name));
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() ? path(name)
                                                                                  : QString();
    }

    QStringList problems(const QStringList &names) const
    {
        QStringList paths;
        for (const QString &name : names) {
            paths.append(path(name));
        }
        return problemsOf(paths, m_dir.path());
    }

    QStringList texts(const QString &name) const
    {
        QStringList texts;
        const auto problems = DescriptionCheck::check({path(name)});
        for (const DescriptionProblem &problem : problems) {
            texts.append(problem.text);
        }
        return texts;
    }

private:
    QTemporaryDir m_dir;
};

} // namespace

void tst_DescriptionCheck::missingFileIsAProblem()
{
    const Folder folder;

    QCOMPARE(folder.problems({QStringLiteral("a.process.json"), QStringLiteral("b")}),
             (QStringList{QStringLiteral("a.process.json:1:1: error unreadable"),
                          QStringLiteral("b:1:1: error unreadable")}));
}

void tst_DescriptionCheck::fileWithoutPermissionIsAProblem()
{
    if (::geteuid() == 0) {
        QSKIP("Root reads every file");
    }
    const Folder folder;
    const QString path = folder.write(QStringLiteral("a.process.json"), "{}");
    QVERIFY(QFile::setPermissions(path, QFile::WriteOwner));

    QCOMPARE(folder.problems({QStringLiteral("a.process.json")}),
             QStringList(QStringLiteral("a.process.json:1:1: error unreadable")));
}

void tst_DescriptionCheck::otherNameIsAProblem()
{
    const Folder folder;
    folder.write(QStringLiteral("plant.json"), "{}");
    folder.write(QStringLiteral("process.json"), "{}");

    QCOMPARE(folder.problems({QStringLiteral("plant.json"), QStringLiteral("process.json")}),
             (QStringList{QStringLiteral("plant.json:1:1: error file-name"),
                          QStringLiteral("process.json:1:1: error file-name")}));
}

void tst_DescriptionCheck::pipeUnderAFittingNameIsAProblem()
{
    const Folder folder;
    folder.write(QStringLiteral("device/a.config.json"), R"({"type": "treenode", "value": {}})");
    const QString path = folder.path(QStringLiteral("device/b.config.json"));
    QCOMPARE(::mkfifo(qPrintable(path), 0600), 0);
    const QString expected = QStringLiteral("device/b.config.json:1:1: error not-regular");

    QCOMPARE(folder.problems({QStringLiteral("device")}), QStringList(expected));
    QCOMPARE(folder.problems({QStringLiteral("device/b.config.json")}), QStringList(expected));
}

void tst_DescriptionCheck::folderDescriptionIsCheckedWithoutItsFolder()
{
    const Folder folder;
    const QString name = QStringLiteral("device/folder.json");
    folder.write(QStringLiteral("device/a.config.json"), "[]");

    folder.write(name, R"({"labelTextId": "device", "cpveVersion": "1.0"})");
    QCOMPARE(folder.problems({name}), QStringList());

    folder.write(name, R"({"labelTextID": "device", "cpveVersion": "1.0"})");
    QCOMPARE(folder.problems({name}),
             QStringList(QStringLiteral("device/folder.json:1:2: warning unknown-key")));

    folder.write(name, "[]");
    QCOMPARE(folder.problems({name}),
             QStringList(QStringLiteral("device/folder.json:1:1: error not-an-object")));
}

void tst_DescriptionCheck::foldersWithOneKeyAreAProblem()
{
    const Folder folder;
    const QByteArray text = processText("plantFoldera1b2c3", 12, 0);
    folder.write(QStringLiteral("one/a/x.process.json"), text);
    folder.write(QStringLiteral("two/a/y.process.json"), text);

    QCOMPARE(folder.problems({QStringLiteral("one/a"), QStringLiteral("two/a")}),
             QStringList(QStringLiteral("two/a/y.process.json:1:46: error same-key y")));
}

void tst_DescriptionCheck::partsOfOneFolderMayHaveItsKey()
{
    const Folder folder;
    folder.write(QStringLiteral("a/a/x.process.json"), processText("plantFoldera1b2c3", 12, 0));

    QCOMPARE(folder.problems({QStringLiteral("a"), QStringLiteral("a/a")}), QStringList());
}

void tst_DescriptionCheck::folderThatWasNeverBuiltHasOnlyWarnings()
{
    const Folder folder;
    folder.write(QStringLiteral("a/x.process.json"), processText("", 0, 0));
    folder.write(QStringLiteral("a/y.process.json"), processText("", 0, 0));

    QCOMPARE(folder.problems({QStringLiteral("a")}),
             (QStringList{
                 QStringLiteral("a/x.process.json:1:46: warning build-changes-key x"),
                 QStringLiteral("a/x.process.json:1:72: warning build-changes-size x"),
                 QStringLiteral("a/y.process.json:1:72: warning build-changes-size y"),
                 QStringLiteral("a/y.process.json:3:25: warning build-changes-offset y/level"),
             }));
}

void tst_DescriptionCheck::folderGivenTwiceIsLookedOverOnce()
{
    const Folder folder;
    folder.write(QStringLiteral("a/x.config.json"), "[]");

    QCOMPARE(folder
                 .problems({QStringLiteral("a"), QStringLiteral("a/../a"),
                            QStringLiteral("a/x.config.json")})
                 .size(),
             2);
}

void tst_DescriptionCheck::typeOfNoColumnIsNotMistakenForAWord()
{
    const Folder folder;
    const QString path = folder.write(
        QStringLiteral("curve.config.json"),
        R"({"type": "treenode", "value": {"curve": {"type": "array", "value": [[1]],
            "arrayInformation": [[], [{"type": "array"}]]}}})");

    const auto problems = DescriptionCheck::check({path});

    QCOMPARE(problems.size(), 1);
    QCOMPARE(problems.first().text, QStringLiteral("the cells of a column are no array"));
}

/// Its rows are the cells themselves.
void tst_DescriptionCheck::cellsOfASingleColumnAreJudged()
{
    const Folder folder;
    const QString path = folder.write(
        QStringLiteral("curve.config.json"),
        R"({"type": "treenode", "value": {"curve": {"type": "array", "value": [1, 5, null, "5"],
            "arrayInformation": [[], [{"type": "int16", "maxLimit": 4}]]}}})");

    const auto problems = DescriptionCheck::check({path});

    QCOMPARE(problems.size(), 2);
    QCOMPARE(problems.first().text, QStringLiteral("5 is above the upper limit, 4"));
    QCOMPARE(problems.last().text, QStringLiteral("'5' is no int16"));
}

/// The parser looks for it there, whatever the element is.
void tst_DescriptionCheck::valueAtTheTopMayHaveAVersion()
{
    const Folder folder;
    folder.write(QStringLiteral("limit.config.json"),
                 R"({"type": "int16", "value": 1, "schemeVersion": 1, "cpveVersion": "2",
                    "modifiedBy": "", "lastModified": ""})");

    QCOMPARE(folder.problems({QStringLiteral("limit.config.json")}), QStringList());
}

void tst_DescriptionCheck::keyOfTheTopIsToldApartFromOneOfNoUse()
{
    const Folder folder;
    const QString path = folder.write(QStringLiteral("limit.config.json"),
                                      R"({"type": "treenode", "doubleBuffer": true,
            "value": {"a": {"type": "int16", "value": 1, "schemeVersion": 1}}})");

    const auto problems = DescriptionCheck::check({path});

    QCOMPARE(problems.size(), 2);
    QCOMPARE(problems.first().text, QStringLiteral("'doubleBuffer' means nothing here"));
    QCOMPARE(problems.last().text,
             QStringLiteral("'schemeVersion' means nothing below the top level"));
}

void tst_DescriptionCheck::nameWithAPlaceholderStaysWhole()
{
    const Folder folder;
    const QString path = folder.write(
        QStringLiteral("a.config.json"),
        R"({"type": "treenode", "value": {)"
        R"("50%1": {"type": "boolean", "value": true, "displayPosition": 7},)"
        R"("x": {"type": "boolean", "value": true, "displayPosition": 7}}})");

    const auto problems = DescriptionCheck::check({path});

    const bool isWhole = std::any_of(problems.cbegin(), problems.cend(), [](const auto &problem) {
        return problem.text == QLatin1String("'50%1' has the display position 7 as well");
    });
    QVERIFY2(isWhole, problems.isEmpty() ? "nothing found" : qPrintable(problems.last().text));
}

void tst_DescriptionCheck::fileIsToldOf_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("children");
    QTest::addColumn<QStringList>("texts");
    const QString process = QStringLiteral("a.process.json");
    const QString configuration = QStringLiteral("a.config.json");

    // Nothing else is told of a file that the parser refuses.
    QTest::newRow("refused file") << process << QByteArray(R"("former": false)")
                                  << QStringList(QStringLiteral(
                                         "the child 'former' is false, and should be an object"));
    // Whatever the type was meant to be, its keys may stand there.
    QTest::newRow("keys of an unknown type")
        << configuration
        << QByteArray(R"("a": {"type": "selektor", "value": 0, "selectionList": ["off"],
                         "arrayInformation": []})")
        << QStringList(QStringLiteral("unknown type 'selektor'; did you mean 'selector'?"));
    QTest::newRow("misspelt key that would mean nothing")
        << configuration << QByteArray(R"("a": {"type": "int16", "value": 0, "sizeValu": 2})")
        << QStringList(QStringLiteral("unknown key 'sizeValu'"));
    QTest::newRow("bits of one byte")
        << process << QByteArray(R"("a": {"type": "bit", "sizeValue": 1, "offsetSharedMemory": 0,
            "relativeOffsetMetadata": 1, "sizeMetadata": 4, "bitmask": 1},
            "b": {"type": "bit", "sizeValue": 1, "offsetSharedMemory": 0,
            "relativeOffsetMetadata": 5, "sizeMetadata": 4, "bitmask": 2})")
        << QStringList();
    QTest::newRow("array without value")
        << configuration << QByteArray(R"("a": {"type": "array", "arrayInformation": [[], []]})")
        << QStringList(QStringLiteral("the leaf has no 'value'"));
    QTest::newRow("smallest values of their types")
        << configuration << QByteArray(R"("a": {"type": "uint8", "value": 0},
            "b": {"type": "int8", "value": -128}, "c": {"type": "uint16", "value": 0})")
        << QStringList();
    // Only a text is compared with the pattern.
    QTest::newRow("no text in a column with a pattern")
        << configuration << QByteArray(R"("a": {"type": "array", "value": [null, "A", "a"],
            "arrayInformation": [[], [{"type": "string", "regularExpression": "[A-Z]"}]]})")
        << QStringList(QStringLiteral("'a' does not match '[A-Z]'"));
}

void tst_DescriptionCheck::fileIsToldOf()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, children);
    QFETCH(QStringList, texts);
    const Folder folder;
    const QByteArray memory = file.contains(QLatin1String("process"))
                                  ? R"("keyProcessDataMemory": "k", "sizeOfSharedMemory": 9,
                                      "doubleBuffer": true, )"
                                  : "";
    folder.write(file, R"({"type": "treenode", )" + memory + R"("value": {)" + children + "}}");

    QCOMPARE(folder.texts(file), texts);
}

/// As the parser warns of it.
void tst_DescriptionCheck::everyOtherVersionOf32BitsIsToldOf()
{
    const Folder folder;
    const QString name = QStringLiteral("a.config.json");
    for (const char *version : {"-2147483648", "2147483647"}) {
        folder.write(name, QByteArray(R"({"type": "treenode", "value": {}, "schemeVersion": )")
                               + version + '}');

        QCOMPARE(
            folder.texts(name),
            QStringList(
                QStringLiteral("version %1 is read as version 1").arg(QLatin1String(version))));
    }
}

/// What it is read as instead depends on the machine.
void tst_DescriptionCheck::valueThatIsMisreadIsShownAsWritten()
{
    const Folder folder;
    const QString name = QStringLiteral("a.config.json");
    folder.write(name, R"({"type": "uint64", "value": 18446744073709551615})");

    const QStringList texts = folder.texts(name);

    QCOMPARE(texts.size(), 1);
    QVERIFY2(
        texts.first().startsWith(QLatin1String("'value' is 18446744073709551615, and is read as ")),
        qPrintable(texts.first()));
}

/// Only what looks like a description is told to be none.
void tst_DescriptionCheck::folderWithOtherFilesIsInOrder()
{
    const Folder folder;
    folder.write(QStringLiteral("a/x.config.json"), R"({"type": "treenode", "value": {}})");
    folder.write(QStringLiteral("a/notes.txt"), "7");

    QCOMPARE(folder.problems({QStringLiteral("a")}), QStringList());
}

void tst_DescriptionCheck::problemsStandInOrder()
{
    const Folder folder;
    folder.write(QStringLiteral("b.config.json"), "[]");
    folder.write(QStringLiteral("a.config.json"),
                 "{\"type\": \"treenode\", \"value\": {\n\"y\": {\"type\": \"odd\", \"hint\": 1},"
                 "\n\"x\": {\"type\": \"odd\"}}}\n");

    QCOMPARE(folder.problems({QStringLiteral("b.config.json"), QStringLiteral("a.config.json")}),
             (QStringList{QStringLiteral("a.config.json:2:15: error unknown-type y"),
                          QStringLiteral("a.config.json:2:22: warning unknown-key y"),
                          QStringLiteral("a.config.json:3:15: error unknown-type x"),
                          QStringLiteral("b.config.json:1:1: error not-an-object")}));
}

void tst_DescriptionCheck::checkOfAFileIsSilent()
{
    const Folder folder;
    folder.write(QStringLiteral("a.process.json"),
                 "{\"type\": \"treenode\", \"value\": {\"a\": 5}}");
    folder.write(QStringLiteral("b.process.json"), "{\"type\"");
    LogCapture log;

    folder.problems({QStringLiteral("a.process.json"), QStringLiteral("b.process.json"),
                     QStringLiteral("c.process.json")});

    COMPARE_LOG(log);
}

void tst_DescriptionCheck::nothingIsWritten()
{
    const Folder folder;
    const QByteArray text = processText("", 0, 4);
    const QString path = folder.write(QStringLiteral("a/x.process.json"), text);
    const QDateTime modified = QFileInfo(path).lastModified();

    QVERIFY(!folder.problems({QStringLiteral("a")}).isEmpty());

    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), text);
    QCOMPARE(QFileInfo(path).lastModified(), modified);
    QCOMPARE(QDir(folder.path(QStringLiteral("a"))).entryList(QDir::Files).size(), 1);
}

void tst_DescriptionCheck::rulesAreSortedAndExplained()
{
    const QVector<DescriptionRule> rules = DescriptionCheck::getRules();
    QStringList names;
    for (const DescriptionRule &rule : rules) {
        QVERIFY2(QRegularExpression(QStringLiteral("^[a-z0-9]+(-[a-z0-9]+)*$"))
                     .match(rule.name)
                     .hasMatch(),
                 qPrintable(rule.name));
        QVERIFY2(rule.cause.endsWith(QLatin1Char('.')), qPrintable(rule.name));
        QVERIFY2(rule.cure.endsWith(QLatin1Char('.')), qPrintable(rule.name));
        names.append(rule.name);
    }
    QStringList sorted = names;
    std::sort(sorted.begin(), sorted.end());
    sorted.removeDuplicates();

    QVERIFY(rules.size() > 60);
    QCOMPARE(names, sorted);
}

QTEST_GUILESS_MAIN(tst_DescriptionCheck)
#include "tst_DescriptionCheck.moc"
