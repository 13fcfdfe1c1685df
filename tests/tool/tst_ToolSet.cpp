#include "HeldRegion.h"
#include "ToolProcess.h"

#include <QtTest>

#include <memory>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

/// What `tessel set` writes and what it refuses. Each row looks at the published value, which a
/// refusal must leave as it was.
class tst_ToolSet : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void valueIsReadBackByItsType_data();
    void valueIsReadBackByItsType();
    void byteOrderMarkInFrontIsWritten();
    void valueThatDoesNotFitIsRefused_data();
    void valueThatDoesNotFitIsRefused();
    void everyErrorStateIsCarried_data();
    void everyErrorStateIsCarried();
    void errorStateThatWouldBeLostIsRefused_data();
    void errorStateThatWouldBeLostIsRefused();
    void readOnlyLeafIsRefused();
    void otherValuesStayAsTheyWere();
    void singleBufferIsWritten();
    void bitsOfOneByteAreIndependent();

private:
    ToolResult set(const QStringList &arguments);

    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
};

void tst_ToolSet::init()
{
    m_description = std::make_unique<ToolDescription>();
    m_description->addEveryForm();
    m_description->add(QStringLiteral("fixed"), QStringLiteral("int32"), Metadata::ErrorState, 4,
                       {{QStringLiteral("readOnly"), true}});
    m_description->add(QStringLiteral("maskless"), QStringLiteral("bit"), Metadata::None, 1,
                       {{QStringLiteral("bitmask"), 0x100}});
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(m_region->isValid());
}

void tst_ToolSet::cleanup()
{
    m_region.reset();
    m_description.reset();
}

ToolResult tst_ToolSet::set(const QStringList &arguments)
{
    return runTool(QStringList{QStringLiteral("set"), m_file} + arguments);
}

void tst_ToolSet::valueIsReadBackByItsType_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QVariant>("content");
    const auto row = [](const char *type, const char *text, const QVariant &content) {
        for (const char *place : {"full/", "bare/"}) {
            const QByteArray url = QByteArray(place) + type;
            QTest::newRow((url + ' ' + text).constData())
                << QString::fromLatin1(url) << QString::fromUtf8(text) << content;
        }
    };
    row("boolean", "true", true);
    row("boolean", "0", false);
    row("int8", "-128", -128);
    row("int8", "127", 127);
    row("int8", "0x7f", 127);
    row("int16", "-32768", -32768);
    row("int16", "32767", 32767);
    row("int32", "-2147483648", std::numeric_limits<int>::min());
    row("int32", "2147483647", std::numeric_limits<int>::max());
    row("int64", "-9223372036854775808", QVariant(std::numeric_limits<qint64>::min()));
    row("int64", "9223372036854775807", QVariant(std::numeric_limits<qint64>::max()));
    row("uint8", "255", 255U);
    row("uint16", "65535", 65535U);
    row("uint32", "4294967295", 4294967295U);
    row("uint64", "18446744073709551615", QVariant(std::numeric_limits<quint64>::max()));
    row("uint64", "010", QVariant(quint64(10)));
    row("float", "-0.1", QVariant(-0.1F));
    row("float", "3.4e38", QVariant(3.4e38F));
    row("double", "-1e300", -1e300);
    row("double", "-.5", -0.5);
    row("string", "7 chars", QStringLiteral("7 chars"));
    row("string", "", QString());
    row("string", "°C µ", QStringLiteral("°C µ"));
}

void tst_ToolSet::valueIsReadBackByItsType()
{
    QFETCH(QString, url);
    QFETCH(QString, text);
    QFETCH(QVariant, content);

    const ToolResult result = set({url, text});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 0);
    const ProcessValue value = m_region->read(url);
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
    QCOMPARE(value.getValue(), content);
}

void tst_ToolSet::byteOrderMarkInFrontIsWritten()
{
    const QString url = QStringLiteral("full/string");
    const QString text = QChar(QChar::ByteOrderMark) + QStringLiteral("e");

    const ToolResult result = set({url, text});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(m_region->read(url).getValue(), QVariant(text));
}

void tst_ToolSet::valueThatDoesNotFitIsRefused_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char *url, const char *text, const char *reason) {
        QTest::newRow((QByteArray(url) + ' ' + text).constData())
            << QString::fromLatin1(url) << QString::fromUtf8(text) << QString::fromUtf8(reason);
    };
    row("full/int8", "128", "'128' is no int8; a whole number from -128 to 127 is");
    row("full/int8", "-129", "'-129' is no int8; a whole number from -128 to 127 is");
    row("full/int8", "%9%1%3%4", "'%9%1%3%4' is no int8; a whole number from -128 to 127 is");
    row("full/uint8", "%3%1", "'%3%1' is no uint8; a whole number from 0 to 255 is");
    row("full/int16", "32768", "'32768' is no int16; a whole number from -32768 to 32767 is");
    row("full/int32", "2147483648",
        "'2147483648' is no int32; a whole number from -2147483648 to 2147483647 is");
    row("full/int64", "9223372036854775808",
        "'9223372036854775808' is no int64; a whole number from -9223372036854775808 to "
        "9223372036854775807 is");
    row("full/uint8", "256", "'256' is no uint8; a whole number from 0 to 255 is");
    row("full/uint8", "-1", "'-1' is no uint8; a whole number from 0 to 255 is");
    row("full/uint16", "65536", "'65536' is no uint16; a whole number from 0 to 65535 is");
    row("full/uint32", "4294967296",
        "'4294967296' is no uint32; a whole number from 0 to 4294967295 is");
    row("full/uint64", "-1", "'-1' is no uint64; a whole number from 0 to 18446744073709551615 is");
    row("full/uint64", "18446744073709551616",
        "'18446744073709551616' is no uint64; a whole number from 0 to 18446744073709551615 is");
    row("full/int32", "1.5", "'1.5' is no int32; a whole number from -2147483648 to 2147483647 is");
    row("full/int32", "twelve",
        "'twelve' is no int32; a whole number from -2147483648 to 2147483647 is");
    row("full/int32", "", "'' is no int32; a whole number from -2147483648 to 2147483647 is");
    row("full/boolean", "2", "'2' is no boolean; true, false, 1 and 0 are");
    row("bare/bit0", "yes", "'yes' is no bit; true, false, 1 and 0 are");
    row("full/float", "1e39", "'1e39' does not fit a float");
    row("full/float", "1e-60", "'1e-60' does not fit a float");
    row("full/double", "1e999",
        "'1e999' is no finite number of type double; an error state is written with --error");
    row("full/double", "nan",
        "'nan' is no finite number of type double; an error state is written with --error");
    row("full/float", "-inf",
        "'-inf' is no finite number of type float; an error state is written with --error");
    row("full/double", "12,5",
        "'12,5' is no finite number of type double; an error state is written with --error");
    row("bare/float", "2e37",
        "2e+37 would read back as an error state, which this slot keeps in the number");
    row("full/string", "8 chars.", "a text of 8 characters does not fit; 7 do");
    row("maskless", "true", "the mask of this bit names no bit of its byte");
}

void tst_ToolSet::valueThatDoesNotFitIsRefused()
{
    QFETCH(QString, url);
    QFETCH(QString, text);
    QFETCH(QString, reason);
    const ProcessValue before = m_region->read(url);

    const ToolResult result = set({url, text});

    QCOMPARE(result.error, QStringLiteral("tessel: '%1': %2\n").arg(url, reason));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 5);
    QCOMPARE(m_region->read(url), before);
}

void tst_ToolSet::everyErrorStateIsCarried_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<int>("state");
    const QStringList urls{QStringLiteral("full/boolean"), QStringLiteral("full/int8"),
                           QStringLiteral("full/uint64"),  QStringLiteral("full/double"),
                           QStringLiteral("full/string"),  QStringLiteral("full/float"),
                           QStringLiteral("bare/float")};
    for (int i = 0; i < urls.size(); ++i) {
        for (const int state : {1 + i, 9 - i}) {
            QTest::newRow(qPrintable(QStringLiteral("%1 %2").arg(urls[i]).arg(state)))
                << urls[i] << state;
        }
    }
}

void tst_ToolSet::everyErrorStateIsCarried()
{
    QFETCH(QString, url);
    QFETCH(int, state);

    const ToolResult result = set({url, QStringLiteral("--error"), QString::number(state)});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    const ProcessValue value = m_region->read(url);
    QCOMPARE(int(value.getErrorType()), state);
    QVERIFY(!value.getValue().isValid());
}

void tst_ToolSet::errorStateThatWouldBeLostIsRefused_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("type");
    for (const char *type : {"boolean", "int8", "int16", "int32", "int64", "uint8", "uint16",
                             "uint32", "uint64", "double", "string"}) {
        QTest::newRow(type) << QStringLiteral("bare/") + QLatin1String(type)
                            << QString::fromLatin1(type);
    }
    QTest::newRow("bit") << QStringLiteral("bare/bit0") << QStringLiteral("bit");
}

void tst_ToolSet::errorStateThatWouldBeLostIsRefused()
{
    QFETCH(QString, url);
    QFETCH(QString, type);
    const ProcessValue before = m_region->read(url);

    const ToolResult result = set({url, QStringLiteral("--error"), QStringLiteral("timeout")});

    QCOMPARE(result.error,
             QStringLiteral("tessel: '%1': a %2 without metadata cannot carry an error state\n")
                 .arg(url, type));
    QCOMPARE(result.exitCode, 5);
    QCOMPARE(m_region->read(url), before);
}

void tst_ToolSet::readOnlyLeafIsRefused()
{
    QVERIFY(m_region->publish(QStringLiteral("fixed"), validValue(41)));

    const ToolResult result = set({QStringLiteral("fixed"), QStringLiteral("42")});

    QCOMPARE(result.error,
             QStringLiteral("tessel: 'fixed' is read-only; only the process that created the "
                            "region writes it\n"));
    QCOMPARE(result.exitCode, 5);
    QCOMPARE(m_region->read(QStringLiteral("fixed")), validValue(41));
}

void tst_ToolSet::otherValuesStayAsTheyWere()
{
    QVERIFY(m_region->publish(QStringLiteral("full/int32"), validValue(41)));

    QCOMPARE(set({QStringLiteral("full/int16"), QStringLiteral("5")}).exitCode, 0);
    QCOMPARE(set({QStringLiteral("full/int16"), QStringLiteral("6")}).exitCode, 0);

    QCOMPARE(m_region->read(QStringLiteral("full/int32")), validValue(41));
    QCOMPARE(m_region->read(QStringLiteral("full/int16")), validValue(6));
}

void tst_ToolSet::singleBufferIsWritten()
{
    ToolDescription single;
    single.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    single.setRoot(QStringLiteral("doubleBuffer"), false);
    const QString file = single.write();
    HeldRegion region(file);

    const ToolResult result = runTool(
        {QStringLiteral("set"), file, QStringLiteral("/a"), QStringLiteral("-3")});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(region.read(QStringLiteral("a")), validValue(-3));
}

void tst_ToolSet::bitsOfOneByteAreIndependent()
{
    QCOMPARE(set({QStringLiteral("bare/bit0"), QStringLiteral("true")}).exitCode, 0);
    QCOMPARE(set({QStringLiteral("bare/bit1"), QStringLiteral("true")}).exitCode, 0);
    QCOMPARE(set({QStringLiteral("bare/bit0"), QStringLiteral("false")}).exitCode, 0);

    QCOMPARE(m_region->read(QStringLiteral("bare/bit0")), validValue(false));
    QCOMPARE(m_region->read(QStringLiteral("bare/bit1")), validValue(true));
}

QTEST_GUILESS_MAIN(tst_ToolSet)
#include "tst_ToolSet.moc"
