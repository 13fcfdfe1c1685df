#include "mqtt/PayloadDecoding.h"
#include "mqtt/PayloadEncoding.h"
#include "mqtt/WireValue.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

/// Payloads of Sparkplug B, written here and read by another implementation of the encoding.
class tst_MqttPayload : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valueTravelsInTheFieldOfItsType_data();
    void valueTravelsInTheFieldOfItsType();
    void everyPartIsReadByOthers();
    void nullHasNoValue();
    void nameIsLeftOutBesideAnAlias();
    void whatIsWrittenIsReadBack();
    void propertyNeedsKeyAndValue();
    void textIsReadBackAsItWas_data();
    void textIsReadBackAsItWas();
    void unknownFieldsAreSkipped();
    void brokenBytesAreRefused_data();
    void brokenBytesAreRefused();
    void tooMuchIsRefused();
    void wireValueOutOfRangeMeansNothing_data();
    void wireValueOutOfRangeMeansNothing();

private:
    static QJsonObject readByOthers(const QByteArray &bytes);
    static QJsonObject metricReadByOthers(const Metric &metric)
    {
        Payload payload;
        payload.metrics.append(metric);
        return readByOthers(encodePayload(payload))["metrics"].toArray().first().toObject();
    }
};

QJsonObject tst_MqttPayload::readByOthers(const QByteArray &bytes)
{
    QProcess reader;
    reader.start(QStringLiteral("/usr/bin/python3"),
                 {QStringLiteral("-B"), QStringLiteral(TESSEL_PAYLOAD_READER)});
    reader.write(bytes.toHex());
    reader.closeWriteChannel();
    if (!reader.waitForFinished(60000) || reader.exitCode() != 0) {
        qWarning() << "no payload:" << reader.readAllStandardError();
        return {};
    }
    return QJsonDocument::fromJson(reader.readAllStandardOutput()).object();
}

void tst_MqttPayload::valueTravelsInTheFieldOfItsType_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("datatype");
    QTest::addColumn<QString>("field");
    const auto row = [](const char *type, const QVariant &value, const char *datatype,
                        const char *field) {
        QTest::addRow("%s %s", type, qPrintable(value.toString()))
            << QString(type) << value << QString(datatype) << QString(field);
    };
    row("boolean", true, "11", "boolean True");
    row("bit", false, "11", "boolean False");
    row("int8", -128, "1", "int 4294967168");
    row("int16", -2, "2", "int 4294967294");
    row("int32", std::numeric_limits<int>::min(), "3", "int 2147483648");
    row("int32", 7, "3", "int 7");
    row("int64", -1LL, "4", "long 18446744073709551615");
    row("uint8", 255U, "5", "int 255");
    row("uint16", 65535U, "6", "int 65535");
    row("uint32", 4294967295U, "7", "int 4294967295");
    row("uint64", std::numeric_limits<quint64>::max(), "8", "long 18446744073709551615");
    row("float", 1.5F, "9", "float 1.5");
    row("double", -0.1, "10", "double -0.1");
    row("string", QStringLiteral("Füllstand"), "12", "string Füllstand");
    row("selector", -1, "3", "int 4294967295");
}

void tst_MqttPayload::valueTravelsInTheFieldOfItsType()
{
    QFETCH(QString, type);
    QFETCH(QVariant, value);
    QFETCH(QString, datatype);
    QFETCH(QString, field);
    Metric metric;
    metric.name = QStringLiteral("m");
    metric.type = dataTypeOf(type);
    metric.value = wireValueOf(metric.type, value);

    const QJsonObject read = metricReadByOthers(metric);

    QCOMPARE(read["datatype"].toString(), datatype);
    QCOMPARE(read["value"].toString(), field);
    QCOMPARE(valueOfWire(metric.type, metric.value), value);
}

void tst_MqttPayload::everyPartIsReadByOthers()
{
    Metric metric;
    metric.name = QStringLiteral("a/b");
    metric.alias = 300;
    metric.timestamp = 1700000000000;
    metric.type = DataType::Double;
    metric.isHistorical = true;
    metric.value = 2.5;
    metric.properties = {{QStringLiteral("engUnit"), DataType::String, QStringLiteral("°C")},
                         {QStringLiteral("engLow"), DataType::Double, -40.0},
                         {QStringLiteral("Quality"), DataType::Int32, 192U}};
    Payload payload;
    payload.timestamp = 1700000000001;
    payload.seq = 0;
    payload.metrics = {metric, metric};

    const QJsonObject read = readByOthers(encodePayload(payload));

    const QJsonObject expected{{"name", "a/b"},
                               {"alias", "300"},
                               {"timestamp", "1700000000000"},
                               {"datatype", "10"},
                               {"is_historical", "True"},
                               {"value", "double 2.5"},
                               {"properties", QJsonObject{{"engUnit", "12 string °C"},
                                                          {"engLow", "10 double -40.0"},
                                                          {"Quality", "3 int 192"}}}};
    QCOMPARE(read, (QJsonObject{{"timestamp", "1700000000001"},
                                {"seq", "0"},
                                {"metrics", QJsonArray{expected, expected}}}));
}

void tst_MqttPayload::nullHasNoValue()
{
    Metric metric;
    metric.name = QStringLiteral("m");
    metric.isNull = true;
    metric.value = 5U;

    QCOMPARE(metricReadByOthers(metric), (QJsonObject{{"name", "m"}, {"is_null", "True"}}));
}

void tst_MqttPayload::nameIsLeftOutBesideAnAlias()
{
    Metric metric;
    metric.alias = 0;
    metric.value = 5U;

    QCOMPARE(metricReadByOthers(metric), (QJsonObject{{"alias", "0"}, {"value", "int 5"}}));
}

void tst_MqttPayload::whatIsWrittenIsReadBack()
{
    Payload payload;
    payload.timestamp = 5;
    payload.seq = 255;
    for (const QVariant &value : {QVariant(7U), QVariant(quint64{1} << 40), QVariant(1.5F),
                                  QVariant(-2.5), QVariant(true), QVariant(QStringLiteral("é"))}) {
        Metric metric;
        metric.name = QStringLiteral("n/%1").arg(payload.metrics.size());
        metric.timestamp = 9;
        metric.type = DataType::Int32;
        metric.value = value;
        metric.properties = {{QStringLiteral("Quality"), DataType::Int32, 500U},
                             {QStringLiteral("other"), DataType::String, value}};
        payload.metrics.append(metric);
    }

    const auto read = decodePayload(encodePayload(payload));

    QCOMPARE(read.problem, QString());
    QCOMPARE(*read.payload->timestamp, quint64{5});
    QCOMPARE(*read.payload->seq, quint64{255});
    QCOMPARE(read.payload->metrics.size(), 6);
    for (int i = 0; i < 6; ++i) {
        QCOMPARE(read.payload->metrics[i].name, payload.metrics[i].name);
        QCOMPARE(*read.payload->metrics[i].timestamp, quint64{9});
        QVERIFY(read.payload->metrics[i].type == DataType::Int32);
        QCOMPARE(read.payload->metrics[i].value, payload.metrics[i].value);
        const auto &properties = read.payload->metrics[i].properties;
        QCOMPARE(properties.size(), 2);
        QCOMPARE(properties[0].key, QStringLiteral("Quality"));
        QVERIFY(properties[0].type == DataType::Int32);
        QCOMPARE(properties[0].value, QVariant(500U));
        QCOMPARE(properties[1].key, QStringLiteral("other"));
        QCOMPARE(properties[1].value, payload.metrics[i].value);
    }
}

void tst_MqttPayload::propertyNeedsKeyAndValue()
{
    // Of two keys and one value, and of one key and two values.
    for (const char *bytes : {"120c4a0a0a01610a016212020803", "120b4a090a0161120208031200"}) {
        const auto read = decodePayload(QByteArray::fromHex(bytes));

        QVERIFY2(read.payload, qPrintable(read.problem));
        const auto &properties = read.payload->metrics.first().properties;
        QCOMPARE(properties.size(), 1);
        QCOMPARE(properties.first().key, QStringLiteral("a"));
    }
}

void tst_MqttPayload::textIsReadBackAsItWas_data()
{
    QTest::addColumn<QString>("text");
    const QChar mark(0xfeff);
    QTest::newRow("empty") << QString();
    QTest::newRow("mark of the byte order") << mark + QStringLiteral("ab");
    QTest::newRow("two of them") << QString(2, mark);
    QTest::newRow("one inside") << QStringLiteral("a") + mark;
    QTest::newRow("zero inside") << QStringLiteral("a") + QChar(0) + QStringLiteral("b");
    QTest::newRow("beyond 16 bits") << QStringLiteral("\U0001F600");
}

void tst_MqttPayload::textIsReadBackAsItWas()
{
    QFETCH(const QString, text);
    Metric metric;
    metric.name = QStringLiteral("x");
    metric.type = DataType::String;
    metric.value = text;
    Payload payload;
    payload.metrics.append(metric);

    const auto read = decodePayload(encodePayload(payload));

    QVERIFY2(read.payload, qPrintable(read.problem));
    QCOMPARE(read.payload->metrics.first().value.toString(), text);
}

void tst_MqttPayload::unknownFieldsAreSkipped()
{
    // Field 20 as a number, 21 as text, 22 and 23 of fixed width, then seq.
    const auto read = decodePayload(
        QByteArray::fromHex("a00105aa010161b50100000000b9010000000000000000"
                            "1807"));

    QCOMPARE(read.problem, QString());
    QCOMPARE(*read.payload->seq, quint64{7});
    QVERIFY(read.payload->metrics.isEmpty());
}

void tst_MqttPayload::brokenBytesAreRefused_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("problem");
    const QString cut = QStringLiteral("a field is cut off");
    const QString other = QStringLiteral("a field has another encoding than its number says");
    const QString number = QStringLiteral("a field has no valid number");
    QTest::newRow("length beyond the end") << QByteArray::fromHex("12ff01") << cut;
    QTest::newRow("huge length") << QByteArray::fromHex("12ffffffff0f00") << cut;
    QTest::newRow("number without end") << QByteArray::fromHex("08ffffffffffffffffffffff01") << cut;
    QTest::newRow("float of two bytes") << QByteArray::fromHex("120365"
                                                               "0000")
                                        << cut;
    QTest::newRow("seq as text") << QByteArray::fromHex("1a0161") << other;
    QTest::newRow("name as number") << QByteArray::fromHex("12020805") << other;
    QTest::newRow("field number 0") << QByteArray::fromHex("000000") << number;
    QTest::newRow("tag without end") << QByteArray::fromHex("ff") << number;
    QTest::newRow("property as number") << QByteArray::fromHex("12024805") << other;
    QTest::newRow("type of a property as text")
        << QByteArray::fromHex("12074a0512030a0161") << other;
    QTest::newRow("name that is no UTF-8")
        << QByteArray::fromHex("12040a02c328") << QStringLiteral("a text is no UTF-8");
}

void tst_MqttPayload::brokenBytesAreRefused()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, problem);

    const auto read = decodePayload(bytes);

    QVERIFY(!read.payload);
    QCOMPARE(read.problem, problem);
}

void tst_MqttPayload::tooMuchIsRefused()
{
    const QByteArray emptyMetric = QByteArray::fromHex("1200");

    QVERIFY(decodePayload(emptyMetric.repeated(PayloadBounds::mostMetrics)).payload);
    QCOMPARE(decodePayload(emptyMetric.repeated(PayloadBounds::mostMetrics + 1)).problem,
             QStringLiteral("more metrics than are taken at once"));
    QCOMPARE(decodePayload(QByteArray(PayloadBounds::mostBytes + 1, '\0')).problem,
             QStringLiteral("more bytes than are taken at once"));
}

void tst_MqttPayload::wireValueOutOfRangeMeansNothing_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QVariant>("wire");
    QTest::newRow("128 as int8") << "int8" << QVariant(128U);
    QTest::newRow("-129 as int8") << "int8" << QVariant(static_cast<quint32>(-129));
    QTest::newRow("32768 as int16") << "int16" << QVariant(32768U);
    QTest::newRow("256 as uint8") << "uint8" << QVariant(256U);
    QTest::newRow("long as int32") << "int32" << QVariant(quint64{5});
    QTest::newRow("int as int64") << "int64" << QVariant(5U);
    QTest::newRow("double as float") << "float" << QVariant(1.5);
    QTest::newRow("int as boolean") << "boolean" << QVariant(1U);
    QTest::newRow("nothing as text") << "string" << QVariant();
}

void tst_MqttPayload::wireValueOutOfRangeMeansNothing()
{
    QFETCH(QString, type);
    QFETCH(QVariant, wire);

    QVERIFY(!valueOfWire(dataTypeOf(type), wire).isValid());
}

QTEST_GUILESS_MAIN(tst_MqttPayload)
#include "tst_MqttPayload.moc"
