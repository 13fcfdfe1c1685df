#include "Companion/JsonText_p.h"
#include "support/ToolkitDocument.h"

#include <QJsonDocument>
#include <QtTest>

// Each row is held against what stands here and against the document class of the toolkit.

namespace {

using Error = QJsonParseError::ParseError;

} // namespace

Q_DECLARE_METATYPE(QJsonParseError::ParseError)

class tst_JsonTextErrors : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void brokenTextIsRefusedAtItsPlace_data();
    void brokenTextIsRefusedAtItsPlace();
    void faultIsToldByItsFirstByte_data();
    void faultIsToldByItsFirstByte();
    void everyBeginningIsRefusedAlike_data();
    void everyBeginningIsRefusedAlike();
    void everyWrongByteIsToldAlike_data() { everyBeginningIsRefusedAlike_data(); }
    void everyWrongByteIsToldAlike();
    void levelsEndAtTheirLimit();
    void greatTextIsNotTooLarge();

private:
    static void addDocumentRows();
    static void addArrayRows();
    static void addObjectRows();
    static void addNumberRows();
    static void addTextRows();
    static void addRow(const QByteArray &json, Error error, int offset);
    static void compareWithToolkit(const QByteArray &json);
};

void tst_JsonTextErrors::addRow(const QByteArray &json, Error error, int offset)
{
    QTest::newRow(json.isEmpty() ? "nothing" : json.toPercentEncoding(" []{}\":,\\+").constData())
        << json << error << offset;
}

void tst_JsonTextErrors::addDocumentRows()
{
    addRow("", Error::IllegalValue, 0);
    addRow("  ", Error::IllegalValue, 2);
    addRow("1", Error::IllegalValue, 1);
    addRow("\"a\"", Error::IllegalValue, 1);
    addRow("null", Error::IllegalValue, 1);
    addRow("\xef\xbb\xbf", Error::IllegalValue, 1);
    addRow("\xef\xbb\xbf[", Error::UnterminatedArray, 4);
    addRow("\xef\xbb\xbf\xef\xbb\xbf[]", Error::IllegalValue, 4);
    addRow("\xfe\xff", Error::IllegalValue, 1);
    addRow("\v[]", Error::IllegalValue, 1);
    addRow("[]]", Error::GarbageAtEnd, 2);
    addRow("{} x", Error::GarbageAtEnd, 3);
    addRow(QByteArray("[]\0", 3), Error::GarbageAtEnd, 2);
    addRow("qbjs\x01", Error::IllegalValue, 1);
}

void tst_JsonTextErrors::addArrayRows()
{
    addRow("[", Error::UnterminatedArray, 1);
    addRow("[ ", Error::UnterminatedArray, 2);
    addRow("[1,", Error::UnterminatedArray, 3);
    addRow("[1 ", Error::UnterminatedArray, 3);
    addRow("[1}", Error::UnterminatedArray, 3);
    addRow("[1,]", Error::MissingObject, 4);
    addRow("[}", Error::MissingObject, 2);
    addRow("[,1]", Error::IllegalValue, 2);
    addRow("[1 2]", Error::MissingValueSeparator, 4);
    addRow("[1 2  ]", Error::MissingValueSeparator, 6);
    addRow("[nullx]", Error::MissingValueSeparator, 6);
    addRow("[null", Error::IllegalValue, 2);
    addRow("[nxll]", Error::IllegalValue, 3);
    addRow("[truf]", Error::IllegalValue, 5);
    addRow("[true", Error::IllegalValue, 2);
    addRow("[false", Error::IllegalValue, 2);
    addRow("[falsx]", Error::IllegalValue, 6);
}

void tst_JsonTextErrors::addObjectRows()
{
    addRow("{", Error::UnterminatedObject, 1);
    addRow("{1:2}", Error::UnterminatedObject, 2);
    addRow("{,}", Error::UnterminatedObject, 2);
    addRow("{\"a\"", Error::UnterminatedString, 4);
    addRow("{\"a\" ", Error::MissingNameSeparator, 5);
    addRow("{\"a\",1}", Error::MissingNameSeparator, 5);
    addRow("{\"a\":", Error::UnterminatedObject, 5);
    addRow("{\"a\":}", Error::MissingObject, 6);
    addRow("{\"a\":,}", Error::IllegalValue, 6);
    addRow("{\"a\":1", Error::TerminationByNumber, 6);
    addRow("{\"a\":1 ", Error::UnterminatedObject, 7);
    addRow("{\"a\":1,", Error::UnterminatedObject, 7);
    addRow("{\"a\":1,}", Error::MissingObject, 8);
    addRow("{\"a\":1,,}", Error::UnterminatedObject, 8);
    addRow("{\"a\":1 \"b\":2}", Error::UnterminatedObject, 8);
    addRow("{\"a\":1]", Error::UnterminatedObject, 7);
}

void tst_JsonTextErrors::addNumberRows()
{
    addRow("[1e400]", Error::IllegalNumber, 6);
    addRow("[-1e400]", Error::IllegalNumber, 7);
    addRow("[1e-400]", Error::IllegalNumber, 7);
    addRow("[2e-324]", Error::IllegalNumber, 7);
    addRow("[-]", Error::IllegalNumber, 2);
    addRow("[- 1]", Error::IllegalNumber, 2);
    addRow("[+1]", Error::IllegalNumber, 1);
    addRow("[01]", Error::MissingValueSeparator, 3);
    addRow("[-01]", Error::MissingValueSeparator, 4);
    addRow("[.]", Error::IllegalNumber, 2);
    addRow("[.e1]", Error::IllegalNumber, 4);
    addRow("[1e]", Error::IllegalNumber, 3);
    addRow("[1e+]", Error::IllegalNumber, 4);
    addRow("[e5]", Error::IllegalNumber, 3);
    addRow("[x]", Error::IllegalNumber, 1);
    addRow("[\x80]", Error::IllegalNumber, 1);
    addRow(QByteArray("[\0]", 3), Error::IllegalNumber, 1);
    addRow("[1", Error::TerminationByNumber, 2);
    addRow("[-", Error::TerminationByNumber, 2);
    addRow("[1e400", Error::TerminationByNumber, 6);
}

void tst_JsonTextErrors::addTextRows()
{
    addRow("[\"a", Error::UnterminatedString, 4);
    addRow("[\"a\"", Error::UnterminatedString, 4);
    addRow("[\"\\", Error::UnterminatedString, 3);
    addRow("[\"\\n", Error::UnterminatedString, 5);
    addRow("[\"\\n\\", Error::IllegalEscapeSequence, 5);
    addRow("[\"\\u", Error::IllegalEscapeSequence, 4);
    addRow("[\"\\u12\"]", Error::IllegalEscapeSequence, 6);
    addRow("[\"\\uZZZZ\"]", Error::IllegalEscapeSequence, 4);
    addRow("[\"\\u123", Error::IllegalEscapeSequence, 4);
    addRow("[\"\x80\"]", Error::IllegalUTF8String, 2);
    addRow("[\"\xc0\x80\"]", Error::IllegalUTF8String, 2);
    addRow("[\"a\xc3\"]", Error::IllegalUTF8String, 3);
    addRow("[\"\xe0\x9f\xbf\"]", Error::IllegalUTF8String, 2);
    addRow("[\"\xed\xa0\x80\"]", Error::IllegalUTF8String, 2);
    addRow("[\"\xf0\x8f\xbf\xbf\"]", Error::IllegalUTF8String, 2);
    addRow("[\"\xf4\x90\x80\x80\"]", Error::IllegalUTF8String, 2);
    addRow("[\"\xf8\x88\x80\x80\x80\"]", Error::IllegalUTF8String, 2);
    addRow("[\"\\\xc3\xa9\"]", Error::IllegalUTF8String, 4);
    addRow("[\"\xc3", Error::IllegalUTF8String, 2);
}

void tst_JsonTextErrors::brokenTextIsRefusedAtItsPlace_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<Error>("error");
    QTest::addColumn<int>("offset");
    addDocumentRows();
    addArrayRows();
    addObjectRows();
    addNumberRows();
    addTextRows();
}

void tst_JsonTextErrors::brokenTextIsRefusedAtItsPlace()
{
    QFETCH(QByteArray, json);
    JsonText text;

    QVERIFY(!text.read(json));

    QTEST(text.error().error, "error");
    QTEST(text.error().offset, "offset");
    compareWithToolkit(json);
}

void tst_JsonTextErrors::compareWithToolkit(const QByteArray &json)
{
    QJsonParseError expected;
    const bool isTaken = !toolkitDocument(json, &expected).isNull();
    JsonText text;

    QCOMPARE(text.read(json), isTaken);
    QCOMPARE(text.error().error, expected.error);
    QCOMPARE(text.error().offset, expected.offset);
}

void tst_JsonTextErrors::faultIsToldByItsFirstByte_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("offset");

    QTest::newRow("nothing") << QByteArray() << 0;
    QTest::newRow("blanks") << QByteArray("  ") << 2;
    QTest::newRow("no list and no object") << QByteArray(" 1") << 1;
    QTest::newRow("something behind the end") << QByteArray("[] x") << 3;
    QTest::newRow("misspelt word") << QByteArray("[1, tru]") << 4;
    QTest::newRow("word that differs at its end") << QByteArray("[nulx ]") << 1;
    QTest::newRow("word cut off") << QByteArray("[fal") << 1;
    QTest::newRow("comma for a value") << QByteArray("[1, ,2]") << 4;
    QTest::newRow("comma at the end of a list") << QByteArray("[1, ]") << 4;
    QTest::newRow("comma at the end of an object") << QByteArray("{\"a\":1, }") << 8;
    QTest::newRow("no comma in a list") << QByteArray("[1 2  ]") << 3;
    QTest::newRow("list closed as an object") << QByteArray("[1}") << 2;
    QTest::newRow("no comma in an object") << QByteArray("{\"a\":1 \"b\":2}") << 7;
    QTest::newRow("key in other quotes") << QByteArray("{'a':1}") << 1;
    QTest::newRow("no colon") << QByteArray("{\"a\" 1}") << 5;
    QTest::newRow("object cut off") << QByteArray("{\"a\":1") << 6;
    QTest::newRow("object cut off behind a value") << QByteArray("{\"a\":[]") << 7;
    QTest::newRow("value missing") << QByteArray("{\"a\":") << 5;
    QTest::newRow("list cut off") << QByteArray("[[]") << 3;
    QTest::newRow("text cut off") << QByteArray("[\"ab") << 4;
    QTest::newRow("number that is none") << QByteArray("[ NaN]") << 2;
    QTest::newRow("number beyond every double") << QByteArray("[1, 1e999]") << 4;
    QTest::newRow("number without digits") << QByteArray("[-]") << 1;
    QTest::newRow("byte that is no UTF-8") << QByteArray("[\"a\xff\"]") << 3;
}

void tst_JsonTextErrors::faultIsToldByItsFirstByte()
{
    QFETCH(QByteArray, json);
    QFETCH(int, offset);
    JsonText text;

    QVERIFY(!text.read(json));

    QCOMPARE(text.faultOffset(), offset);
}

void tst_JsonTextErrors::everyBeginningIsRefusedAlike_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("leaf") << QByteArray(
        R"({"type":"int32","value":-1.5e3,"list":[true,false,null],"labelTextId":"a\n\u00e9"} )");
    QTest::newRow("characters") << QByteArray("[\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\\\\\",{}]");
}

void tst_JsonTextErrors::everyBeginningIsRefusedAlike()
{
    QFETCH(QByteArray, json);

    for (int size = 0; size <= json.size(); ++size) {
        compareWithToolkit(json.left(size));
    }
}

void tst_JsonTextErrors::everyWrongByteIsToldAlike()
{
    QFETCH(QByteArray, json);

    for (int place = 0; place < json.size(); ++place) {
        for (int byte = 0; byte < 256; ++byte) {
            QByteArray changed = json;
            changed[place] = static_cast<char>(byte);
            compareWithToolkit(changed);
        }
    }
}

void tst_JsonTextErrors::levelsEndAtTheirLimit()
{
    JsonText text;

    QVERIFY(text.read(QByteArray(1024, '[') + QByteArray(1024, ']')));
    QVERIFY(!text.read(QByteArray(1025, '[') + QByteArray(1025, ']')));

    QCOMPARE(text.error().error, Error::DeepNesting);
    QCOMPARE(text.error().offset, 1025);
    compareWithToolkit(QByteArray(1025, '['));
    compareWithToolkit(QByteArray("{\"a\":").repeated(1025));
    compareWithToolkit(QByteArray("[{\"a\":").repeated(600));
}

/// The form of older toolkits ended at 128 MB; that of today does not.
void tst_JsonTextErrors::greatTextIsNotTooLarge()
{
    compareWithToolkit("[\"" + QByteArray(130 * 1024 * 1024, 'x') + "\"]");
}

QTEST_APPLESS_MAIN(tst_JsonTextErrors)
#include "tst_JsonTextErrors.moc"
