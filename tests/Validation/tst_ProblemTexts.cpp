#include "ProblemText.h"
#include "support/LogCapture.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

/// What is said of the cases of the corpus: which value, key, byte or neighbour is meant.
class tst_ProblemTexts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void documentIsToldOf_data();
    void documentIsToldOf();
    void keyIsToldOf_data();
    void keyIsToldOf();
    void valueIsToldOf_data();
    void valueIsToldOf();
    void tableIsToldOf_data();
    void tableIsToldOf();
    void slotIsToldOf_data();
    void slotIsToldOf();
    void folderIsToldOf_data();
    void folderIsToldOf();
    void bothMessagesOfOneLeafAreTold();
    void longTextIsCutBehindFortyCharacters();
    void foldersOfOneKeyAreToldOf();
    void folderThatWasNeverBuiltIsToldOf();
    void missingFileIsToldApartFromOneOfAnotherName();

private:
    void check();
};

namespace {

const QString corpus = QStringLiteral(CORPUS);

QString pathOf(const QString &name)
{
    for (const char *ending : {"", ".process.json", ".config.json"}) {
        const QString path = corpus + QLatin1Char('/') + name + QLatin1String(ending);
        if (QFileInfo::exists(path)) {
            return path;
        }
    }
    return {};
}

QStringList textsOf(const QStringList &paths)
{
    LogCapture log;
    QStringList texts;
    const auto problems = DescriptionCheck::check(paths);
    for (const DescriptionProblem &problem : problems) {
        texts.append(problem.text);
    }
    return texts;
}

struct Case
{
    const char *name;
    const char *text;
};

void addRows(const std::initializer_list<Case> &cases)
{
    QTest::addColumn<QString>("text");
    for (const Case &one : cases) {
        QTest::newRow(one.name) << QString::fromUtf8(one.text);
    }
}

QString write(const QTemporaryDir &folder, const QString &name, const QByteArray &text)
{
    const QString path = folder.filePath(name);
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() ? path : QString();
}

QByteArray neverBuilt(const QByteArray &key)
{
    return R"({"type": "treenode", "keyProcessDataMemory": ")" + key
           + R"(", "sizeOfSharedMemory": 0, "doubleBuffer": true,
             "value": {"level": {"type": "double", "sizeValue": 8, "relativeOffsetMetadata": 8,
             "sizeMetadata": 4, "offsetSharedMemory": 0}}})";
}

} // namespace

void tst_ProblemTexts::check()
{
    QFETCH(QString, text);

    QCOMPARE(textsOf({pathOf(QTest::currentDataTag())}), QStringList(text));
}

void tst_ProblemTexts::documentIsToldOf_data()
{
    addRows({
        {"garbage-at-end", "garbage at the end of the document"},
        {"single-quotes", "unterminated object"},
        {"top-level-list", "the top level is a list, not an object"},
        {"duplicate-child",
         "the key 'level' stands in this object before; only one of its values is kept"},
        {"large-number-in-a-table", "9223372036854775809 is read as 9.2233720368547758e+18"},
        {"version-two", "version 2 is read as version 1"},
        {"version-as-text", "'schemeVersion' is '1', and should be a whole number"},
        {"root-without-type", "the element has no 'type'"},
        {"node-without-children", "the tree node has no 'value' with its children"},
        {"children-as-list", "the children are a list, and should be an object"},
        {"child-as-null", "the child 'former' is null, and should be an object"},
        {"child-as-number", "the child 'enabled' is true, and should be an object"},
        {"leaf-at-the-top", "the top level is a leaf, and no tree node"},
        {"no-leaf", "the description has no leaf"},
        {"array-as-process-value", "an array has no slot in a region"},
        {"misspelt-type", "unknown type 'doubel'; did you mean 'double'?"},
        {"type-in-other-case", "unknown type 'Boolean'; did you mean 'boolean'?"},
        {"type-as-number", "'type' is 7, and should be a text"},
        {"stamp-without-date",
         "there is no 'lastModified' beside it, so that no change is stamped"},
        {"stamp-without-origin",
         "there is no 'modifiedBy' beside it, so that no change is stamped"},
    });
}

void tst_ProblemTexts::documentIsToldOf()
{
    check();
}

void tst_ProblemTexts::keyIsToldOf_data()
{
    addRows({
        {"misspelt-key", "unknown key 'unti'; did you mean 'unit'?"},
        {"byte-order-mark", "unknown key 'hint'"},
        {"slot-in-a-configuration", "'sizeValue' means nothing here"},
        {"stamp-below-the-top", "'modifiedBy' means nothing below the top level"},
        {"memory-size-below-the-top", "'sizeOfSharedMemory' means nothing below the top level"},
        {"memory-size-of-a-configuration", "'sizeOfSharedMemory' means nothing here"},
        {"empty-name", "no URL reaches an element without a name"},
        {"slash-in-a-key", "no URL reaches 'is/enabled', because of its '/'"},
        {"name-like-a-cell", "'curve#1,2' is taken for a cell of 'curve'"},
        {"one-position-twice", "'count' has the display position 2 as well"},
        {"position-is-missing", "no 'displayPosition', while siblings have one"},
        {"position-as-word", "'displayPosition' is 'third', and should be a whole number"},
        {"position-beyond-32-bits", "5000000000 of 'displayPosition' is read as 705032704"},
        {"size-with-a-fraction", "4.2 of 'sizeMetadata' is read as 4"},
        {"size-as-text", "'sizeValue' is '8', and should be a whole number"},
        {"flag-as-number", "'doubleBuffer' is 1, and should be true or false"},
        {"flag-as-other-word", "'doubleBuffer' is 'yes', and should be true or false"},
        {"metadata-null", "'readOnly' is null, and should be true or false"},
        {"unit-as-number", "'unit' is 7, and should be a text"},
        {"unit-text-as-text", "'unitText' is 'metre', and should be an object"},
        {"view-as-text", "'viewStart' is '0', and should be a number"},
        {"pattern-as-list", "'regularExpression' is a list, and should be a text"},
    });
}

void tst_ProblemTexts::keyIsToldOf()
{
    check();
}

void tst_ProblemTexts::valueIsToldOf_data()
{
    addRows({
        {"leaf-without-value", "the leaf has no 'value'"},
        {"above-the-upper-limit", "11 is above the upper limit, 10"},
        {"below-the-lower-limit", "-1 is below the lower limit, 0"},
        {"limits-exchanged", "the lower limit 10 is above the upper one, 0"},
        {"view-falls", "the view range does not rise from 4 to 0"},
        {"negative-byte", "'value' is 256, which no uint8 can hold"},
        {"too-large-for-a-byte", "'maxLimit' is 200, which no int8 can hold"},
        {"fraction-in-a-whole-number", "'value' is 5.5, which becomes 6 as int16"},
        {"negative-without-sign", "'value' is -1, which becomes 4294967295 as uint32"},
        {"too-large-for-32-bits", "'value' is 5000000000, which becomes 705032704 as int32"},
        {"small-number-of-a-float", "'value' is 1e-50, which becomes 0 as float"},
        {"word-as-boolean", "'value' is 'no', which becomes true as boolean"},
        {"word-as-number", "'value' is 'five', which is no int16"},
        {"object-as-text", "'value' is an object, which is no string"},
        {"number-as-text", "'value' is '5', which is converted to int16"},
        {"boolean-as-number", "'value' is 1, which is converted to boolean"},
        {"pattern-with-open-bracket", "'[A-Z]{2}-[0-9+': unexpected end"},
        {"value-matches-in-part", "'TI-101a' does not match '[A-Z]{2}-[0-9]+'"},
        {"selector-without-list", "the selector has no 'selectionList'"},
        {"selection-list-as-text", "'selectionList' is 'off, on', and should be a list of texts"},
        {"no-entry", "the list has no entry"},
        {"entry-twice", "'off' stands in the list before"},
        {"entry-as-number", "the entry is 2, and should be a text"},
        {"index-behind-the-list", "2 is no index of a list with 2 entries"},
    });
}

void tst_ProblemTexts::valueIsToldOf()
{
    check();
}

void tst_ProblemTexts::tableIsToldOf_data()
{
    addRows({
        {"array-as-number", "the value is 1.5, and should be a list"},
        {"number-among-rows", "2.5 stands among rows of another kind"},
        {"row-too-short", "the row has 1 cells, and the first one has 2"},
        {"row-too-long", "the row has 3 cells, and the first one has 2"},
        {"array-without-information", "the array has no 'arrayInformation'"},
        {"information-as-object", "'arrayInformation' is an object, and should be a list of lists"},
        {"dimension-as-object", "a dimension is described by an object, and should be by a list"},
        {"column-as-text", "a column is described by 'double', and should be by an object"},
        {"column-too-many", "3 columns are described, and the rows have 2"},
        {"column-of-nodes", "the cells of a column are no treenode"},
        {"column-without-default", "the column has no 'value' for a new row"},
        {"column-limit-as-word", "'maxLimit' is 'two', which is no double"},
        {"cell-as-word", "'high' is no double"},
        {"cell-refused-by-the-pattern", "'TI-2x' does not match '[A-Z]{2}-[0-9]+'"},
        {"pattern-of-a-column-with-open-bracket", "'[A-Z{2}-(': unexpected end"},
        {"grows-from-nothing", "an array without a row can have no new one"},
        {"no-row-can-be-added", "without 'arrayMaxRows' there can be no new row"},
        {"row-limits-exchanged", "at least 4 rows, and at most 2"},
        {"too-few-rows", "at least 3 rows, and there are 2"},
        {"too-many-rows", "at most 1 rows, and there are 2"},
    });
}

void tst_ProblemTexts::tableIsToldOf()
{
    check();
}

void tst_ProblemTexts::slotIsToldOf_data()
{
    addRows({
        {"no-size-of-memory", "the description has no 'sizeOfSharedMemory'"},
        {"region-without-key", "the region has no 'keyProcessDataMemory'"},
        // Both halves, and 512 bytes in front of them.
        {"region-too-large", "a region of 4000000512 bytes is too large"},
        {"slash-in-the-memory-key", "no region can be called 'corpus/Plant'"},
        {"blank-in-the-memory-key", "'corpus plant' becomes part of the name of a file"},
        {"text-of-one-byte", "1 bytes hold no text"},
        {"text-of-seven-bytes", "the last of 7 bytes is never used"},
        {"double-of-four-bytes", "4 bytes, and double has 8"},
        {"metadata-of-two-bytes", "2 bytes, and an error state has 4"},
        {"no-metadata", "a slot of int32 without metadata carries no error state"},
        {"mask-is-missing", "the bit has no 'bitmask'"},
        {"mask-in-the-next-byte", "256 has none of the bits 1 to 128"},
        {"mask-of-nine-bits", "257 is used as 1"},
        {"masks-overlap", "bits of byte 20 belong to 'valve' as well"},
        {"value-behind-the-end", "the value ends at byte 26 of a buffer of 25"},
        {"state-behind-the-end", "the error state ends at byte 26 of a buffer of 25"},
        {"values-overlap", "byte 4 belongs to the value of 'level' as well"},
        {"value-on-a-state", "byte 10 belongs to the error state of 'level' as well"},
        {"distance-into-the-value",
         "byte 4 of the buffer is in the error state and belongs to its own value as well"},
        {"distance-into-the-next-value", "byte 12 of the buffer is in the error state and belongs "
                                         "to the value of 'count' as well"},
        {"distance-into-another-state", "byte 16 of the buffer is in the error state and belongs "
                                        "to the error state of 'count' as well"},
    });
}

void tst_ProblemTexts::slotIsToldOf()
{
    check();
}

void tst_ProblemTexts::folderIsToldOf_data()
{
    addRows({
        {"nothing-to-load", "no name below the folder ends in .config.json or .process.json"},
        {"name-of-no-description", "'c.proces.json' is not the name of a description"},
        {"name-without-a-dot", "the name needs something and a dot before its postfix"},
        {"two-files-of-one-name", "'b.old.config.json' has the name 'b' as well, and replaces it"},
        {"file-and-folder-of-one-name",
         "'inputs.config.json' has the name 'inputs' as well, and replaces it"},
        {"file-without-key", "a folder's description needs 'keyProcessDataMemory'"},
        {"leaf-without-offset", "a build needs 'offsetSharedMemory'"},
        {"offset-to-be-moved", "a build moves 1 values of this file, this one from byte 16 to 12"},
        {"state-in-its-value", "the error state begins in its own value, at byte 6 of 8"},
        {"state-in-the-next-slot", "the error state ends at byte 16 of a slot of 12"},
        {"label-as-list", "'labelTextId' is a list, and should be a text"},
        {"version-as-number", "'cpveVersion' is 1.5, and should be a text"},
        {"misspelt-key-of-a-folder", "unknown key 'labelTextID'; did you mean 'labelTextId'?"},
    });
}

void tst_ProblemTexts::folderIsToldOf()
{
    check();
}

void tst_ProblemTexts::bothMessagesOfOneLeafAreTold()
{
    QCOMPARE(textsOf({pathOf(QStringLiteral("metadata-too-large-for-the-buffer"))}),
             (QStringList{QStringLiteral("8 bytes of metadata are counted from byte 20 of a buffer "
                                         "of 25, and the value is not bound"),
                          QStringLiteral("8 bytes, and an error state has 4")}));
}

void tst_ProblemTexts::longTextIsCutBehindFortyCharacters()
{
    const QTemporaryDir folder;
    const QByteArray forty(40, 'p');
    const auto textFor = [&folder](const QByteArray &key) {
        return textsOf({write(folder, QStringLiteral("a.config.json"),
                              R"({"type": "treenode", "value": {}, ")" + key + "\": 1}")});
    };

    QCOMPARE(textFor(forty),
             QStringList(QStringLiteral("unknown key '%1'").arg(QLatin1String(forty))));
    QCOMPARE(textFor(forty + 'q'),
             QStringList(QStringLiteral("unknown key '%1...'").arg(QLatin1String(forty))));
}

void tst_ProblemTexts::foldersOfOneKeyAreToldOf()
{
    const QTemporaryDir folder;
    write(folder, QStringLiteral("one/x.process.json"), neverBuilt("k"));
    write(folder, QStringLiteral("two/y.process.json"), neverBuilt("k"));
    const QStringList paths{folder.filePath(QStringLiteral("one")),
                            folder.filePath(QStringLiteral("two"))};

    const QString expected = QStringLiteral("'k' is the key of '%1' as well");
    const QStringList texts = textsOf(paths);

    const QString cut = paths.first().size() > 40 ? paths.first().left(40) + QStringLiteral("...")
                                                  : paths.first();
    QVERIFY2(texts.contains(expected.arg(cut)), qPrintable(texts.join(QLatin1Char('\n'))));
}

void tst_ProblemTexts::folderThatWasNeverBuiltIsToldOf()
{
    const QTemporaryDir folder;
    write(folder, QStringLiteral("a/x.process.json"), neverBuilt(""));
    write(folder, QStringLiteral("a/y.process.json"), neverBuilt(""));

    QCOMPARE(textsOf({folder.filePath(QStringLiteral("a"))}),
             (QStringList{QStringLiteral("a build does not keep ''"),
                          QStringLiteral("a build changes it from 0 to 24"),
                          QStringLiteral("a build changes it from 0 to 24"),
                          QStringLiteral("a build moves 1 values of this file, this one from byte "
                                         "0 to 12")}));
}

void tst_ProblemTexts::missingFileIsToldApartFromOneOfAnotherName()
{
    const QTemporaryDir folder;
    const QString other = write(folder, QStringLiteral("plant.json"), "{}");

    QCOMPARE(textsOf({folder.filePath(QStringLiteral("a.process.json")), other,
                      folder.filePath(QStringLiteral("z"))}),
             (QStringList{QStringLiteral("no such file"),
                          QStringLiteral("the name is not that of a description"),
                          QStringLiteral("no such file")}));
}

QTEST_GUILESS_MAIN(tst_ProblemTexts)
#include "tst_ProblemTexts.moc"
