#include "web/EventText.h"
#include "web/HostName.h"
#include "web/JsonText.h"
#include "web/RequestGate.h"
#include "web/TokenCheck.h"
#include "web/WriteBody.h"

#include <QtTest>

#include <limits>

/// The parts of tessel-web that need neither a region nor a network.
class tst_WebParts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nameOfAHostStandsWithoutItsPort_data();
    void nameOfAHostStandsWithoutItsPort();
    void onlyTheWholeTokenIsTheSame_data();
    void onlyTheWholeTokenIsTheSame();
    void bearerStandsBehindItsScheme_data();
    void bearerStandsBehindItsScheme();
    void eventHasItsNameAndItsDataALine();
    void lineEndInDataBeginsALineOfData();
    void numbersOfJsonKeepTheirDigits();
    void longIntegersAreTextsForABrowser();
    void bodyKeepsWhatWasWritten();
    void bodyThatIsNoneIsRefusedWithItsPlace_data();
    void bodyThatIsNoneIsRefusedWithItsPlace();
    void writesAreRefusedInTheirOrder_data();
    void writesAreRefusedInTheirOrder();
};

void tst_WebParts::nameOfAHostStandsWithoutItsPort_data()
{
    QTest::addColumn<QByteArray>("authority");
    QTest::addColumn<QByteArray>("name");
    const auto row = [](const char *authority, const char *name) {
        QTest::newRow(authority) << QByteArray(authority) << QByteArray(name);
    };
    row("LocalHost", "localhost");
    row("127.0.0.1:9300", "127.0.0.1");
    row("press3.works.example:65535", "press3.works.example");
    row("[::1]", "::1");
    row("[FE80::1]:9300", "fe80::1");
    row("localhost:", "localhost");
    row("", "");
    row(":9300", "");
    row("[]", "");
    row("[::1", "");
    row("[::1]x", "");
    row("[localhost]", "");
    row("::1", "");
    row("localhost:65536", "");
    row("localhost:1:1", "");
    row("localhost:-1", "");
    row("user@localhost", "");
    row("local host", "");
    row("localhost,localhost", "");
    row("localhost/", "");
}

void tst_WebParts::nameOfAHostStandsWithoutItsPort()
{
    QFETCH(const QByteArray, authority);
    QFETCH(const QByteArray, name);

    QCOMPARE(hostNameOf(authority), name);
}

void tst_WebParts::onlyTheWholeTokenIsTheSame_data()
{
    QTest::addColumn<QByteArray>("given");
    QTest::addColumn<QByteArray>("token");
    QTest::addColumn<bool>("isSame");
    QTest::newRow("same") << QByteArray("secret") << QByteArray("secret") << true;
    QTest::newRow("shorter") << QByteArray("secre") << QByteArray("secret") << false;
    QTest::newRow("longer") << QByteArray("secretx") << QByteArray("secret") << false;
    QTest::newRow("zero behind") << QByteArray("secret\0", 7) << QByteArray("secret") << false;
    QTest::newRow("other case") << QByteArray("Secret") << QByteArray("secret") << false;
    QTest::newRow("first other") << QByteArray("xecret") << QByteArray("secret") << false;
    QTest::newRow("last other") << QByteArray("secrex") << QByteArray("secret") << false;
    QTest::newRow("both empty") << QByteArray() << QByteArray() << false;
    QTest::newRow("empty") << QByteArray() << QByteArray("secret") << false;
}

void tst_WebParts::onlyTheWholeTokenIsTheSame()
{
    QFETCH(const QByteArray, given);
    QFETCH(const QByteArray, token);
    QFETCH(const bool, isSame);

    QCOMPARE(TokenCheck::isSame(given, token), isSame);
}

void tst_WebParts::bearerStandsBehindItsScheme_data()
{
    QTest::addColumn<QByteArray>("header");
    QTest::addColumn<QByteArray>("bearer");
    QTest::newRow("usual") << QByteArray("Bearer abc") << QByteArray("abc");
    QTest::newRow("other case") << QByteArray("bEARER  abc ") << QByteArray("abc");
    QTest::newRow("other scheme") << QByteArray("Basic abc") << QByteArray();
    QTest::newRow("no blank") << QByteArray("Bearerabc") << QByteArray();
    QTest::newRow("alone") << QByteArray("Bearer") << QByteArray();
    QTest::newRow("nothing") << QByteArray() << QByteArray();
}

void tst_WebParts::bearerStandsBehindItsScheme()
{
    QFETCH(const QByteArray, header);
    QFETCH(const QByteArray, bearer);

    QCOMPARE(TokenCheck::bearerOf(header), bearer);
}

void tst_WebParts::eventHasItsNameAndItsDataALine()
{
    QCOMPARE(EventText::event("set", R"({"a": 1})"),
             QByteArray("event: set\ndata: {\"a\": 1}\n\n"));
    QCOMPARE(EventText::comment(), QByteArray(": alive\n\n"));
}

void tst_WebParts::lineEndInDataBeginsALineOfData()
{
    QCOMPARE(EventText::event("x", "1\nevent: y"),
             QByteArray("event: x\ndata: 1\ndata: event: y\n\n"));
}

void tst_WebParts::numbersOfJsonKeepTheirDigits()
{
    using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;
    const auto json = [](const QVariant &value) {
        return JsonText::value({value, PROCESS_VALUE_ERROR_TYPE_VALID});
    };
    QCOMPARE(json(0.1F), QByteArray("0.1"));
    QCOMPARE(json(0.1), QByteArray("0.1"));
    QCOMPARE(json(std::numeric_limits<quint64>::max()), QByteArray("18446744073709551615"));
    QCOMPARE(json(std::numeric_limits<qint64>::min()), QByteArray("-9223372036854775808"));
    QCOMPARE(json(std::numeric_limits<double>::quiet_NaN()), QByteArray("\"nan\""));
    QCOMPARE(json(-std::numeric_limits<float>::infinity()), QByteArray("\"-inf\""));
    QCOMPARE(json(false), QByteArray("false"));
    QCOMPARE(json(QStringLiteral("a\"\n")), QByteArray(R"("a\"\n")"));
    QCOMPARE(JsonText::value({ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT}),
             QByteArray("null"));
}

void tst_WebParts::longIntegersAreTextsForABrowser()
{
    QCOMPARE(JsonText::numberForBrowser(qlonglong(5)), QByteArray("\"5\""));
    QCOMPARE(JsonText::numberForBrowser(qulonglong(5)), QByteArray("\"5\""));
    QCOMPARE(JsonText::numberForBrowser(5), QByteArray("5"));
    QCOMPARE(JsonText::numberForBrowser(QVariant()), QByteArray("null"));
}

void tst_WebParts::bodyKeepsWhatWasWritten()
{
    const WriteBody body = WriteBody::read(
        " {\"a/b\" : 18446744073709551615 ,\"c\":-0.5e+3, \"d\":\"\\u00e4\\n\\ud83d\\ude00\","
        "\"e\":true,\"f\":{\"state\":\"timeout\"}, \"g\":{ \"state\" : 9 } }\r\n");

    QCOMPARE(body.problem, QString());
    QStringList read;
    for (const auto &write : body.writes) {
        read.append(QStringLiteral("%1 %2 %3").arg(write.url).arg(int(write.kind)).arg(write.text));
    }
    const QStringList expected{QStringLiteral("a/b 0 18446744073709551615"),
                               QStringLiteral("c 0 -0.5e+3"),
                               QStringLiteral("d 1 \u00e4\n\U0001F600"),
                               QStringLiteral("e 2 true"),
                               QStringLiteral("f 3 timeout"),
                               QStringLiteral("g 3 9")};
    QCOMPARE(read, expected);
}

void tst_WebParts::bodyThatIsNoneIsRefusedWithItsPlace_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("where");
    const auto row = [](const char *body, const char *where) {
        QTest::newRow(body) << QByteArray(body) << QString::fromLatin1(where);
    };
    row("", "character 1");
    row("\"a\"", "character 1");
    row("{", "character 2");
    row("{}", "body");
    row("{\"a\"}", "character 5");
    row("{\"a\":}", "character 6");
    row("{\"a\":1", "character 7");
    row("{\"a\":1}}", "character 8");
    row("{\"a\":1.}", "character 6");
    row("{\"a\":.5}", "character 6");
    row("{\"a\":+1}", "character 6");
    row("{\"a\":1e}", "character 6");
    row("{\"a\":007}", "character 6");
    row("{\"a\":tru}", "character 6");
    row("{\"a\":null}", "a");
    row("{\"a\":{}}", "character 7");
    row("{\"a\":{\"state\":true}}", "a");
    row("{\"a\":{\"state\":1,\"x\":2}}", "a");
    row("{\"a\":\"\\x\"}", "character 9");
    row("{\"a\":\"\\u12\"}", "character 9");
    row("{\"a\":\"\\u+123\"}", "character 9");
    row("{\"a\":\"\\u0X12\"}", "character 9");
    row("{\"a\":\"\\u0x12\"}", "character 9");
    row("{\"a\":\"\\u-000\"}", "character 9");
    row("{\"a\":\"\\u\xc2\xa0"
        "041\"}",
        "character 9");
    row("{\"a\":\"\\u\xd9\xa0"
        "041\"}",
        "character 9");
    row("{\"a\":\"\\U0041\"}", "character 9");
    row("{\"a\":\"\\", "character 9");
    row("{\"a\":\"\t\"}", "character 7");
    row("{\"a\":1,\"\\u0061\":2}", "a");
    row("{\"a\":\"\xff\"}", "body");
    row("\xef\xbb\xbf{\"a\":1}", "character 1");
}

void tst_WebParts::bodyThatIsNoneIsRefusedWithItsPlace()
{
    QFETCH(const QByteArray, body);
    QFETCH(const QString, where);

    const WriteBody read = WriteBody::read(body);

    QVERIFY(read.writes.isEmpty());
    QVERIFY(!read.problem.isEmpty());
    QCOMPARE(read.where, where);
}

void tst_WebParts::writesAreRefusedInTheirOrder_data()
{
    QTest::addColumn<HttpHeaders>("headers");
    QTest::addColumn<bool>("isBodyCut");
    QTest::addColumn<int>("status");
    const QPair<QByteArray, QByteArray> token{"AUTHORIZATION", "Bearer 0123456789abcdef"};
    const QPair<QByteArray, QByteArray> type{"content-type", "application/json"};
    QTest::newRow("all right") << HttpHeaders{token, type} << false << 0;
    // Who has no token learns nothing else.
    QTest::newRow("nothing") << HttpHeaders{} << true << 401;
    QTest::newRow("two tokens") << HttpHeaders{token, token, type} << false << 401;
    QTest::newRow("no type") << HttpHeaders{token} << true << 415;
    QTest::newRow("too large") << HttpHeaders{token, type} << true << 413;
}

void tst_WebParts::writesAreRefusedInTheirOrder()
{
    QFETCH(const HttpHeaders, headers);
    QFETCH(const bool, isBodyCut);
    QFETCH(const int, status);
    const RequestGate gate({{"localhost"}, false, "0123456789abcdef"});

    const auto problem = gate.problemOfWrite({"POST", "/api/values", headers, {}, isBodyCut});

    QCOMPARE(problem ? problem->status : 0, status);
}

QTEST_GUILESS_MAIN(tst_WebParts)
#include "tst_WebParts.moc"
