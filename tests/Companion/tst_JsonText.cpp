#include "Companion/JsonText_p.h"
#include "support/HeapWatch.h"
#include "support/JsonAnswers.h"
#include "support/ToolkitDocument.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <cmath>

// Each row is held against what stands here and against the document class of the toolkit.

namespace {

QVariant valueOf(const QByteArray &json)
{
    JsonText text;
    return text.read('[' + json + ']') ? text.root().toVariant().toList().value(0) : QVariant();
}

QVariant toolkitValueOf(const QByteArray &json)
{
    return toolkitDocument('[' + json + ']').array().at(0).toVariant();
}

/// Keys and values in the order in which they are visited.
QStringList membersOf(const QByteArray &json)
{
    JsonText text;
    QStringList members;
    if (text.read(json)) {
        for (JsonText::Members member(text.root()); member.isValid(); member.next()) {
            members << member.key().toString() + '=' + member.value().toVariant().toString();
        }
    }
    return members;
}

QStringList toolkitMembersOf(const QByteArray &json)
{
    const QJsonObject object = toolkitDocument(json).object();
    QStringList members;
    for (auto member = object.constBegin(); member != object.constEnd(); ++member) {
        members << member.key() + '=' + member.value().toVariant().toString();
    }
    return members;
}

/// So many zeros.
QByteArray arrayOf(int count)
{
    return '[' + QByteArray("0,").repeated(count - 1) + "0]";
}

/// What reading @p bytes takes from the heap where @p text had read them before and was cleared.
qint64 bytesTakenAgain(JsonText &text, const QByteArray &bytes)
{
    text.read(bytes);
    text.clear();
    const HeapWatch heap;
    text.read(bytes);
    return heap.takenBytes();
}

} // namespace

class tst_JsonText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void numberIsAnIntegerOrADouble_data();
    void numberIsAnIntegerOrADouble();
    void textIsDecoded_data();
    void textIsDecoded();
    void membersComeInTheOrderOfTheToolkit_data();
    void membersComeInTheOrderOfTheToolkit();
    void keyTwiceAmongManyHasTheValueOfTheToolkit();
    void writtenMembersAreAllThere_data();
    void writtenMembersAreAllThere();
    void wordsAreValues();
    void wholeTreeIsTheSameVariant_data();
    void wholeTreeIsTheSameVariant();
    void wholeTreeIsTheSameJsonValue_data() { wholeTreeIsTheSameVariant_data(); }
    void wholeTreeIsTheSameJsonValue();
    void everyMemberIsTheSameJsonValue();
    void partIsTheSameJsonValue_data();
    void partIsTheSameJsonValue();
    void memberIsFoundByItsKey_data();
    void memberIsFoundByItsKey();
    void missingMemberIsNoValue();
    void plainTextIsAViewIntoTheInput();
    void offsetsLeadToTheValues();
    void nextTextTakesThePlaceOfTheFormer();
    void brokenTextAfterAGoodOneIsRefused();
    void clearedTextIsNotHeld();
    void clearedTextKeepsASmallBlock();
    void clearedTextGivesALargeBlockBack();
};

void tst_JsonText::numberIsAnIntegerOrADouble_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QVariant>("expected");
    const auto integer = [](const char *json, qint64 number) {
        QTest::newRow(json) << QByteArray(json) << QVariant(number);
    };
    const auto real = [](const char *json, double number) {
        QTest::newRow(json) << QByteArray(json) << QVariant(number);
    };
    integer("0", 0);
    integer("-0", 0);
    integer("-0.0", 0);
    integer("1", 1);
    integer("1.0", 1);
    integer("1.", 1);
    integer("1e3", 1000);
    integer("1.e5", 100000);
    integer("1.50e1", 15);
    integer("0e-400", 0);
    integer("0.0e400", 0);
    integer("9007199254740993", 9007199254740993);
    integer("9007199254740993.0", 9007199254740992);
    integer("999999999999999999", 999999999999999999);
    integer("9223372036854775807", std::numeric_limits<qint64>::max());
    integer("-9223372036854775808", std::numeric_limits<qint64>::min());
    integer("-9223372036854775809", std::numeric_limits<qint64>::min());
    integer("123456789012345678.9", 123456789012345680);
    integer("9.0e18", 9000000000000000000);
    real("9223372036854775808", 9223372036854775808.0);
    real("18446744073709551615", 18446744073709551616.0);
    real("1e19", 1e19);
    real("0.1", 0.1);
    real(".5", 0.5);
    real("-.5", -0.5);
    real("1E-5", 1e-5);
    real("1.5e+300", 1.5e300);
    real("4.9e-324", 4.9e-324);
    real("1.7976931348623157e308", 1.7976931348623157e308);
    real("12345678901234.5678", 12345678901234.5678);
    real("0.1000000000000000055511151231257827", 0.1);
    real("9007199254740993e-1", 900719925474099.3);
    real("3e-22", 3e-22);
    real("3e-23", 3e-23);
    real("7.5e-00001", 0.75);
}

void tst_JsonText::numberIsAnIntegerOrADouble()
{
    QFETCH(QByteArray, json);
    QFETCH(QVariant, expected);

    QVERIFY(JsonAnswers::isSame(valueOf(json), expected));
    QVERIFY(JsonAnswers::isSame(toolkitValueOf(json), expected));
}

void tst_JsonText::textIsDecoded_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("expected");
    QTest::newRow("empty") << QByteArray("") << QStringLiteral("");
    QTest::newRow("ASCII") << QByteArray("bar") << QStringLiteral("bar");
    QTest::newRow("two bytes") << QByteArray("\xc3\xa9") << QString(QChar(0xe9));
    QTest::newRow("four bytes") << QByteArray("\xf0\x9f\x98\x80") << QStringLiteral("\U0001f600");
    QTest::newRow("last character")
        << QByteArray("\xf4\x8f\xbf\xbf") << QStringLiteral("\U0010ffff");
    QTest::newRow("no character") << QByteArray("\xef\xbf\xbe") << QString(QChar(0xfffe));
    QTest::newRow("control characters")
        << QByteArray("\0\x01\n\x1f", 4) << QString::fromLatin1("\0\x01\n\x1f", 4);
    QTest::newRow("escapes") << QByteArray(R"(\"\\\/\b\f\n\r\t)")
                             << QStringLiteral("\"\\/\b\f\n\r\t");
    QTest::newRow("escapes without a meaning")
        << QByteArray(R"(\q\a\0\x41)") << QStringLiteral("qa0x41");
    QTest::newRow("escaped unit") << QByteArray(R"(\u00e9\u00E9)") << QString(2, QChar(0xe9));
    QTest::newRow("escaped pair") << QByteArray(R"(\ud83d\ude00)") << QStringLiteral("\U0001f600");
    QTest::newRow("half a pair") << QByteArray(R"(\ud800)") << QString(QChar(0xd800));
    QTest::newRow("pair in wrong order")
        << QByteArray(R"(\ude00\ud83d)") << QString(QChar(0xde00)) + QChar(0xd83d);
    QTest::newRow("escape and several bytes")
        << QByteArray("\\n\xc3\xa9\xf0\x9f\x98\x80") << QStringLiteral("\n\u00e9\U0001f600");
    QTest::newRow("mark in front is dropped") << QByteArray("\xef\xbb\xbf"
                                                            "abc")
                                              << QStringLiteral("abc");
    QTest::newRow("mark behind is kept")
        << QByteArray("a\xef\xbb\xbf") << QStringLiteral("a\ufeff");
    QTest::newRow("mark before an escape is kept")
        << QByteArray("\xef\xbb\xbf\\n") << QStringLiteral("\ufeff\n");
    QTest::newRow("one of two marks is kept")
        << QByteArray("\xef\xbb\xbf\xef\xbb\xbf") << QStringLiteral("\ufeff");
    QTest::newRow("longer than a word")
        << QByteArray("0123456789abcdef\\n0123456") << QStringLiteral("0123456789abcdef\n0123456");
}

void tst_JsonText::textIsDecoded()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, expected);
    const QByteArray quoted = '"' + json + '"';

    QVERIFY(JsonAnswers::isSame(valueOf(quoted), expected));
    QVERIFY(JsonAnswers::isSame(toolkitValueOf(quoted), expected));
}

void tst_JsonText::membersComeInTheOrderOfTheToolkit_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *name, const QByteArray &json, const QStringList &expected) {
        QTest::newRow(name) << json << expected;
    };
    const QString e000(QChar(0xe000));
    const QString last = QStringLiteral("\U00010000");
    row("none", "{}", {});
    row("in order", R"({"a":1,"b":2})", {"a=1", "b=2"});
    row("out of order", R"({"b":1,"a":2})", {"a=2", "b=1"});
    row("shorter one first", R"({"ab":1,"a":2,"":3})", {"=3", "a=2", "ab=1"});
    row("capitals first", R"({"a":1,"B":2})", {"B=2", "a=1"});
    row("last of a key counts", R"({"b":1,"a":2,"b":3})", {"a=2", "b=3"});
    row("twice in a row", R"({"a":1,"a":2})", {"a=2"});
    row("empty key twice", R"({"":1,"":2})", {"=2"});
    row("escaped key is the same", R"({"a":1,"\u0061":2})", {"a=2"});
    row("plain after escaped", R"({"\u0061":1,"a":2})", {"a=2"});
    row("mark in front is another key",
        "{\"\xef\xbb\xbf"
        "a\":1,\"a\":2}",
        {"a=2", "a=1"});
    row("plain: by characters", "{\"\xf0\x90\x80\x80\":1,\"\xee\x80\x80\":2}",
        {e000 + "=2", last + "=1"});
    row("escaped: by units", R"({"\ue000":1,"\ud800\udc00":2})", {last + "=2", e000 + "=1"});
    row("mixed: by characters", "{\"\xee\x80\x80\":1,\"\\ud800\\udc00\":2}",
        {e000 + "=1", last + "=2"});
    row("half a pair as replacement", "{\"\\ud800\":1,\"\xef\xbf\xbd\":2}",
        {QString(QChar(0xfffd)) + "=2"});
    row("orders that contradict",
        "{\"\xee\x80\x80\":1,\"\xf0\x90\x80\x80\":2,\"\\ue000\":3,\"\\ud800\\udc00\":4,\"a\":5}",
        {"a=5", e000 + "=3", last + "=4"});
    row("zero byte ends the comparison", QByteArray("{\"\0b\":1,\"\0a\":2}", 15),
        {QString::fromLatin1("\0a=2", 4)});
}

void tst_JsonText::membersComeInTheOrderOfTheToolkit()
{
    QFETCH(QByteArray, json);

    QTEST(membersOf(json), "expected");
    QTEST(toolkitMembersOf(json), "expected");
}

/// Which is not always the last one.
void tst_JsonText::keyTwiceAmongManyHasTheValueOfTheToolkit()
{
    for (int count = 2; count < 100; ++count) {
        QByteArray json(1, '{');
        for (int i = 0; i < count; ++i) {
            json += '"' + QByteArray(1, static_cast<char>('a' + i * i % 19))
                    + "\":" + QByteArray::number(i) + ',';
        }
        json.chop(1);
        json += '}';
        JsonText text;

        QVERIFY(text.read(json));

        QCOMPARE(membersOf(json), toolkitMembersOf(json));
        QCOMPARE(text.root().member(QLatin1String("a")).toInteger(),
                 toolkitDocument(json).object().value(QLatin1String("a")).toInt());
    }
}

void tst_JsonText::writtenMembersAreAllThere_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *name, const QByteArray &json, const QStringList &expected) {
        QTest::newRow(name) << json << expected;
    };
    row("none", "{}", {});
    row("out of order", R"({"b":1,"a":2})", {"b=1", "a=2"});
    row("twice", R"({"b":1,"a":2,"b":3})", {"b=1", "a=2", "b=3"});
    row("twice, once escaped", R"({"a":1,"\u0061":2})", {"a=1", "a=2"});
    row("over what is nested", R"({"b":{"x":1,"x":2},"a":[3,{"y":4}],"c":5})", {"b=", "a=", "c=5"});
}

void tst_JsonText::writtenMembersAreAllThere()
{
    QFETCH(QByteArray, json);
    JsonText text;
    QVERIFY(text.read(json));

    QStringList members;
    for (JsonText::WrittenMembers member(text.root()); member.isValid(); member.next()) {
        members << member.key().toString() + '=' + member.value().toVariant().toString();
    }

    QTEST(members, "expected");
}

void tst_JsonText::wordsAreValues()
{
    QVERIFY(JsonAnswers::isSame(valueOf("true"), true));
    QVERIFY(JsonAnswers::isSame(valueOf("false"), false));
    QVERIFY(JsonAnswers::isSame(valueOf("null"), QVariant::fromValue(nullptr)));
    QVERIFY(JsonAnswers::isSame(toolkitValueOf("null"), QVariant::fromValue(nullptr)));
}

void tst_JsonText::wholeTreeIsTheSameVariant_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("empty array") << QByteArray("[]");
    QTest::newRow("empty object") << QByteArray("{}");
    QTest::newRow("with a mark in front") << QByteArray("\xef\xbb\xbf[1]");
    QTest::newRow("spaces") << QByteArray(" \t\r\n{ \"a\" : [ 1 , { } ] } \n");
    QTest::newRow("nested") << QByteArray(R"([[1,[2.5,"x"]],{"b":{"c":[null]},"a":true}])");
    QTest::newRow("every level that may be") << QByteArray(1024, '[') + QByteArray(1024, ']');
    QTest::newRow("marks in texts")
        << QByteArray("[\"\xef\xbb\xbf\",{\"\xef\xbb\xbfk\":\"\xef\xbb\xbfv\"}]");
    QTest::newRow("more members than fit beside each other")
        << '{' + QByteArray("\"k\":1,\"j\":[2],").repeated(100) + "\"a\":3}";
}

void tst_JsonText::wholeTreeIsTheSameVariant()
{
    QFETCH(QByteArray, json);
    JsonText text;

    QVERIFY(text.read(json));

    QVERIFY(JsonAnswers::isSame(text.root().toVariant(), toolkitDocument(json).toVariant()));
}

void tst_JsonText::wholeTreeIsTheSameJsonValue()
{
    // The value is made by the toolkit's parser.
    [[maybe_unused]] const ToolkitLeaks leaks;
    QFETCH(QByteArray, json);
    const QJsonDocument document = toolkitDocument(json);
    JsonText text;

    QVERIFY(text.read(json));

    QCOMPARE(text.root().toJsonValue(),
             document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object()));
}

/// What is no list and no object is not given to the toolkit's parser.
void tst_JsonText::everyMemberIsTheSameJsonValue()
{
    [[maybe_unused]] const ToolkitLeaks leaks;
    const QByteArray json =
        R"({"b":true,"d":0.5,"f":false,"i":7,"l":[1],"n":null,"o":{"a":-1},"t":"x"})";
    const QJsonObject object = toolkitDocument(json).object();
    JsonText text;
    QVERIFY(text.read(json));

    int members = 0;
    for (JsonText::Members member(text.root()); member.isValid(); member.next(), ++members) {
        QCOMPARE(member.value().toJsonValue(), object.value(member.key().toString()));
    }
    QCOMPARE(members, 8);
}

void tst_JsonText::partIsTheSameJsonValue_data()
{
    QTest::addColumn<QByteArray>("part");
    QTest::addColumn<QJsonValue>("value");

    const auto row = [](const char *name, const QByteArray &part, const QJsonValue &value) {
        QTest::newRow(name) << part << value;
    };
    row("null", "null", QJsonValue::Null);
    row("true", "true", true);
    row("false", "false", false);
    row("integer", "-7", -7);
    row("large integer", "9007199254740993", Q_INT64_C(9007199254740993));
    row("fraction", "0.25", 0.25);
    row("text", R"("bar")", QStringLiteral("bar"));
    row("text of other characters", "\"\xc3\xbc\"", QString(QChar(0xfc)));
    row("escaped text", R"("a\"b\u00fc")", QStringLiteral("a\"b") + QChar(0xfc));
    row("mark in front, which each copy drops",
        "\"\xef\xbb\xbf"
        "a\"",
        QStringLiteral("a"));
    row("array", "[1,[2]]", QJsonArray{1, QJsonArray{2}});
    row("object", R"({"a":{"b":null}})", QJsonObject{{"a", QJsonObject{{"b", QJsonValue::Null}}}});
}

/// With something on each side, which is no part of it.
void tst_JsonText::partIsTheSameJsonValue()
{
    QFETCH(QByteArray, part);
    QFETCH(QJsonValue, value);
    const QByteArray bytes = R"({"a":[0],"b":)" + part + R"(,"c":{"b":1}})";
    JsonText text;
    QVERIFY(text.read(bytes));

    const QJsonValue found = text.root().member(QLatin1String("b")).toJsonValue();

    QCOMPARE(found.type(), value.type());
    QCOMPARE(found.toVariant(), value.toVariant());
    QCOMPARE(found, toolkitDocument(bytes).object().value("b"));
}

void tst_JsonText::memberIsFoundByItsKey_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("among others") << QByteArray(R"({"c":1,"type":7,"z":{"type":2}})");
    QTest::newRow("last one counts") << QByteArray(R"({"type":1,"c":[1,2],"type":7})");
    QTest::newRow("escaped") << QByteArray(R"({"\u0074ype":7})");
    QTest::newRow("with a mark it is another") << QByteArray("{\"type\":7,\"\xef\xbb\xbftype\":1}");
}

void tst_JsonText::memberIsFoundByItsKey()
{
    QFETCH(QByteArray, json);
    JsonText text;

    QVERIFY(text.read(json));

    QVERIFY(text.root().member(QLatin1String("type")).isValid());
    QCOMPARE(text.root().member(QLatin1String("type")).toInteger(), 7);
    QCOMPARE(toolkitDocument(json).object().value(QLatin1String("type")).toInt(), 7);
}

void tst_JsonText::missingMemberIsNoValue()
{
    JsonText text;

    QVERIFY(text.read("{\"types\":1,\"\xef\xbb\xbftype\":2,\"a\":{\"type\":3}}"));

    QVERIFY(!text.root().member(QLatin1String("type")).isValid());
}

void tst_JsonText::plainTextIsAViewIntoTheInput()
{
    const QByteArray json("[\"plain\",\"\xc3\xa9\",\"\\n\"]");
    JsonText text;
    QVERIFY(text.read(json));

    JsonText::Elements element(text.root());
    QVERIFY(element.value().isPlainText());
    QCOMPARE(element.value().plainText(), QLatin1String("plain"));
    QCOMPARE(element.value().plainText().data(), json.constData() + 2);
    element.next();
    QVERIFY(!element.value().isPlainText());
    element.next();
    QVERIFY(!element.value().isPlainText());
}

void tst_JsonText::offsetsLeadToTheValues()
{
    JsonText text;
    QVERIFY(text.read(R"( {"ab": [1.5, "x", true]})"));

    const JsonText::Members member(text.root());
    JsonText::Elements element(member.value());

    QCOMPARE(text.root().offset(), 1);
    QCOMPARE(member.key().offset(), 3);
    QCOMPARE(member.value().offset(), 8);
    QCOMPARE(element.value().offset(), 9);
    element.next();
    QCOMPARE(element.value().offset(), 15);
    element.next();
    QCOMPARE(element.value().offset(), 19);
}

void tst_JsonText::nextTextTakesThePlaceOfTheFormer()
{
    JsonText text;
    QVERIFY(text.read("[1,2,3]"));

    QVERIFY(text.read("{\"a\":4}"));

    QCOMPARE(text.root().toVariant(), QVariant(QVariantMap{{QStringLiteral("a"), qint64(4)}}));
}

void tst_JsonText::brokenTextAfterAGoodOneIsRefused()
{
    JsonText text;
    QVERIFY(text.read("[1]"));

    QVERIFY(!text.read("[1"));
    QCOMPARE(text.error().error, QJsonParseError::TerminationByNumber);

    QVERIFY(text.read("[1]"));
    QCOMPARE(text.error().error, QJsonParseError::NoError);
    QCOMPARE(text.error().offset, 0);
}

void tst_JsonText::clearedTextIsNotHeld()
{
    const QByteArray bytes = "[1,2]" + QByteArray(8, ' ');
    JsonText text;
    QVERIFY(text.read(bytes));
    QVERIFY(!bytes.isDetached());

    text.clear();

    QVERIFY(bytes.isDetached());
    QVERIFY(text.read("[3]"));
    QCOMPARE(text.root().toVariant(), QVariant(QVariantList{qint64(3)}));
}

void tst_JsonText::clearedTextKeepsASmallBlock()
{
    if (!HeapWatch::canWatch()) {
        QSKIP("the sanitizer has a heap of its own");
    }
    JsonText text;

    QCOMPARE(bytesTakenAgain(text, arrayOf(100000)), qint64{0});

    QCOMPARE(text.root().toVariant().toList().size(), 100000);
}

/// Of one large text among many, the room would be held as long as the small ones are read.
void tst_JsonText::clearedTextGivesALargeBlockBack()
{
    if (!HeapWatch::canWatch()) {
        QSKIP("the sanitizer has a heap of its own");
    }
    constexpr int count = 300000;
    JsonText text;

    QVERIFY(bytesTakenAgain(text, arrayOf(count)) >= count * qint64{sizeof(JsonText::Entry)});

    QCOMPARE(text.root().toVariant().toList().size(), count);
}

QTEST_APPLESS_MAIN(tst_JsonText)
#include "tst_JsonText.moc"
