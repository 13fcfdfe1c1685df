#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/FakeBufferHandler.h"
#include "support/LogCapture.h"
#include "support/SlotDescription.h"

using namespace ProcessDataDefinitions;

namespace {

const quint32 bufferSize = 64;

/// A text leaf on a buffer full of 0xEE that its readers and writers share.
struct TextLeaf
{
    TextLeaf(quint32 offset, quint32 sizeValue, quint32 sizeMetadata)
        : element(
            SlotDescription{QStringLiteral("string"), offset, sizeValue, sizeMetadata, sizeValue}
                .toJson(),
            nullptr)
    {
        handler.useSingleBuffer();
        std::fill_n(handler.writeBytes(), bufferSize, static_cast<unsigned char>(0xEE));
        element.setBufferHandlerInterface(&handler, false);
    }

    bool setText(const QString &text)
    {
        return element.setValue({text, PROCESS_VALUE_ERROR_TYPE_VALID});
    }
    ProcessValue read() const
    {
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
        element.getValue(value, true);
        return value;
    }

    FakeBufferHandler handler{bufferSize};
    ProcessDataValue element;
};

/// The code units of a text as they lie in memory, in hexadecimal.
QByteArray unitsHex(const QString &text)
{
    return QByteArray(reinterpret_cast<const char *>(text.utf16()), text.length() * 2).toHex();
}

const QString bufferToSmall = QStringLiteral("Buffer to small.");
const QString stringToLarge = QStringLiteral("String to large");
const QString notWritten = QStringLiteral("Process value could not be written.");

} // namespace

class tst_ProcessDataValueEncodingText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void textIsStoredInUnitsWithATerminator();
    void bytesBehindTheTerminatorStay();
    void longestTextFits_data();
    void longestTextFits();
    void oneCharacterMoreIsRefused_data();
    void oneCharacterMoreIsRefused();
    void textThatDoesNotFitStillWritesTheMetadata();
    void textWithoutTerminatorFillsTheSlot();
    void oddLastByteIsNotRead();
    void slotBelowTwoBytesIsTooSmall_data();
    void slotBelowTwoBytesIsTooSmall();
    void slotOfTwoBytesHoldsTheEmptyText();
    void characterOutsideTheBasicPlaneTakesTwoUnits();
    void numbersAreWrittenAsText();
    void textEndsAtAZeroUnitInside();
};

void tst_ProcessDataValueEncodingText::textIsStoredInUnitsWithATerminator()
{
    const QString text = QStringLiteral("Öl 20°");
    for (quint32 offset = 8; offset < 16; ++offset) {
        TextLeaf leaf(offset, 20, 4);
        LogCapture log;

        QCOMPARE(leaf.setText(text), true);

        QCOMPARE(leaf.handler.writtenHex(offset - 1, 22),
                 "ee" + unitsHex(text) + "0000" + QByteArray("ee").repeated(6) + "00");
        QCOMPARE(leaf.handler.writtenHex(offset + 20, 5), QByteArray("00000000ee"));
        const ProcessValue value = leaf.read();
        QCOMPARE(value.getValue().userType(), static_cast<int>(QMetaType::QString));
        QCOMPARE(value.getValue().toString(), text);
        QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
        COMPARE_LOG(log);
    }
}

void tst_ProcessDataValueEncodingText::bytesBehindTheTerminatorStay()
{
    TextLeaf leaf(8, 12, 0);
    QCOMPARE(leaf.setText(QStringLiteral("abcde")), true);

    QCOMPARE(leaf.setText(QStringLiteral("x")), true);

    QCOMPARE(leaf.handler.writtenHex(8, 12),
             unitsHex(QStringLiteral("x")) + "0000" + unitsHex(QStringLiteral("cde")) + "0000");
    QCOMPARE(leaf.read().getValue().toString(), QStringLiteral("x"));
}

void tst_ProcessDataValueEncodingText::longestTextFits_data()
{
    QTest::addColumn<quint32>("sizeValue");
    QTest::addColumn<QString>("text");

    QTest::newRow("even size") << 10U << QStringLiteral("abcd");
    QTest::newRow("odd size") << 11U << QStringLiteral("abcd");
    QTest::newRow("one character") << 4U << QStringLiteral("a");
    QTest::newRow("empty") << 3U << QString();
}

void tst_ProcessDataValueEncodingText::longestTextFits()
{
    QFETCH(quint32, sizeValue);
    QFETCH(QString, text);
    TextLeaf leaf(8, sizeValue, 0);
    LogCapture log;

    QCOMPARE(leaf.setText(text), true);

    QCOMPARE(leaf.read().getValue().toString(), text);
    COMPARE_LOG(log);
}

void tst_ProcessDataValueEncodingText::oneCharacterMoreIsRefused_data()
{
    QTest::addColumn<quint32>("sizeValue");
    QTest::addColumn<QString>("text");

    QTest::newRow("even size") << 10U << QStringLiteral("abcde");
    QTest::newRow("odd size") << 11U << QStringLiteral("abcde");
    QTest::newRow("no room but for the terminator") << 2U << QStringLiteral("a");
    QTest::newRow("far too long") << 10U << QString(1000, QLatin1Char('a'));
}

void tst_ProcessDataValueEncodingText::oneCharacterMoreIsRefused()
{
    QFETCH(quint32, sizeValue);
    QFETCH(QString, text);
    TextLeaf leaf(8, sizeValue, 0);
    const QByteArray before = leaf.handler.readContent();
    LogCapture log;

    QCOMPARE(leaf.setText(text), false);

    COMPARE_LOG(log, warning(stringToLarge), warning(notWritten));
    QCOMPARE(leaf.handler.readContent(), before);
}

void tst_ProcessDataValueEncodingText::textThatDoesNotFitStillWritesTheMetadata()
{
    TextLeaf leaf(8, 10, 4);
    QCOMPARE(leaf.setText(QStringLiteral("old")), true);
    leaf.handler.put<qint32>(18, 9);
    LogCapture log;

    QCOMPARE(leaf.setText(QStringLiteral("too long")), false);

    COMPARE_LOG(log, warning(stringToLarge), warning(notWritten));
    const ProcessValue value = leaf.read();
    QCOMPARE(value.getValue().toString(), QStringLiteral("old"));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
}

void tst_ProcessDataValueEncodingText::textWithoutTerminatorFillsTheSlot()
{
    TextLeaf leaf(9, 10, 4);
    leaf.handler.put<qint32>(19, 2);
    LogCapture log;

    const ProcessValue value = leaf.read();

    QCOMPARE(value.getValue().toString(), QString(5, QChar(0xEEEE)));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    COMPARE_LOG(log);
}

void tst_ProcessDataValueEncodingText::oddLastByteIsNotRead()
{
    TextLeaf leaf(9, 11, 0);

    QCOMPARE(leaf.read().getValue().toString(), QString(5, QChar(0xEEEE)));
}

void tst_ProcessDataValueEncodingText::slotBelowTwoBytesIsTooSmall_data()
{
    QTest::addColumn<quint32>("sizeValue");

    QTest::newRow("none") << 0U;
    QTest::newRow("one") << 1U;
}

void tst_ProcessDataValueEncodingText::slotBelowTwoBytesIsTooSmall()
{
    QFETCH(quint32, sizeValue);
    TextLeaf leaf(8, sizeValue, 4);
    LogCapture log;

    QCOMPARE(leaf.setText(QString()), false);
    COMPARE_LOG(log, warning(bufferToSmall), warning(notWritten));
    QCOMPARE(leaf.handler.writtenHex(8, sizeValue), QByteArray("ee").repeated(int(sizeValue)));
    QCOMPARE(leaf.handler.writtenHex(8 + sizeValue, 5), QByteArray("00000000ee"));

    const ProcessValue value = leaf.read();
    COMPARE_LOG(log, warning(bufferToSmall));
    QCOMPARE(value.getValue().userType(), static_cast<int>(QMetaType::QString));
    QCOMPARE(value.getValue().toString(), QString());
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
}

void tst_ProcessDataValueEncodingText::slotOfTwoBytesHoldsTheEmptyText()
{
    TextLeaf leaf(9, 2, 0);
    LogCapture log;

    QCOMPARE(leaf.setText(QString()), true);

    QCOMPARE(leaf.handler.writtenHex(8, 4), QByteArray("ee0000ee"));
    QCOMPARE(leaf.read().getValue().toString(), QString());
    COMPARE_LOG(log);
}

void tst_ProcessDataValueEncodingText::characterOutsideTheBasicPlaneTakesTwoUnits()
{
    const QString clef = QString::fromUcs4(U"\U0001D11E");
    TextLeaf fitting(9, 6, 0);
    TextLeaf small(9, 5, 0);
    LogCapture log;

    QCOMPARE(fitting.setText(clef), true);
    QCOMPARE(fitting.handler.writtenHex(9, 6), unitsHex(clef) + "0000");
    QCOMPARE(fitting.read().getValue().toString(), clef);
    COMPARE_LOG(log);

    QCOMPARE(small.setText(clef), false);
    COMPARE_LOG(log, warning(stringToLarge), warning(notWritten));
}

void tst_ProcessDataValueEncodingText::numbersAreWrittenAsText()
{
    TextLeaf leaf(9, 20, 0);

    QCOMPARE(leaf.element.setValue({-42, PROCESS_VALUE_ERROR_TYPE_VALID}), true);

    QCOMPARE(leaf.read().getValue().toString(), QStringLiteral("-42"));
}

void tst_ProcessDataValueEncodingText::textEndsAtAZeroUnitInside()
{
    TextLeaf leaf(9, 20, 0);
    QString text = QStringLiteral("ab cd");
    text[2] = QChar(0);

    QCOMPARE(leaf.setText(text), true);

    QCOMPARE(leaf.handler.writtenHex(9, 12), unitsHex(text) + "0000");
    QCOMPARE(leaf.read().getValue().toString(), QStringLiteral("ab"));
}

QTEST_GUILESS_MAIN(tst_ProcessDataValueEncodingText)
#include "tst_ProcessDataValueEncodingText.moc"
