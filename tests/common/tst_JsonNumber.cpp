#include "leaves/TypedValue.h"
#include "support/HeapWatch.h"

#include <QtTest>

#include <algorithm>
#include <limits>

namespace {

struct WholeType
{
    QString name;
    int size;
    QVariant least;
    QVariant most;
};

template <class Number>
WholeType wholeType(const char *name)
{
    const auto asVariant = [](Number number) {
        return std::numeric_limits<Number>::is_signed ? QVariant(static_cast<qlonglong>(number))
                                                      : QVariant(static_cast<qulonglong>(number));
    };
    return {QString::fromLatin1(name), int(sizeof(Number)),
            asVariant(std::numeric_limits<Number>::min()),
            asVariant(std::numeric_limits<Number>::max())};
}

QVector<WholeType> wholeTypes()
{
    return {wholeType<qint8>("int8"),     wholeType<qint16>("int16"),  wholeType<qint32>("int32"),
            wholeType<qint64>("int64"),   wholeType<quint8>("uint8"),  wholeType<quint16>("uint16"),
            wholeType<quint32>("uint32"), wholeType<quint64>("uint64")};
}

WritableSlot slotOf(const WholeType &type)
{
    return {type.name, type.least.userType(), static_cast<quint32>(type.size), true, 0};
}

/// The number that is farther from zero by one, of the bound of a type.
QString nextFromZero(const QVariant &bound)
{
    QString digits = bound.toString();
    // None of them ends on a nine; below a type without signs there is -1.
    const QChar last = digits.at(digits.size() - 1);
    digits.chop(1);
    digits.append(QChar(last.unicode() + 1));
    return digits == QLatin1String("1") ? QStringLiteral("-1") : digits;
}

/// The same number with a point, with an exponent, and with as many digits as nobody writes.
QStringList formsOf(const QString &number)
{
    const int sign = number.startsWith(QLatin1Char('-')) ? 1 : 0;
    QString pointed = number;
    pointed.insert(sign + 1, QLatin1Char('.'));
    return {number,
            number + QStringLiteral(".0"),
            number + QStringLiteral("e0"),
            number + QStringLiteral("00E-2"),
            number + QString(100, QLatin1Char('0')) + QStringLiteral("e-100"),
            number + QLatin1Char('.') + QString(100, QLatin1Char('0')),
            pointed + QStringLiteral("e+%1").arg(number.size() - sign - 1)};
}

} // namespace

/// What a number of JSON means as a value of a slot.
class tst_JsonNumber : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void boundsOfAWholeTypeAreTaken();
    void whatIsBeyondTheBoundsIsRefused();
    void wholeNumberMayHaveAsManyDigitsAsAnyType_data();
    void wholeNumberMayHaveAsManyDigitsAsAnyType();
    void numberThatCannotFitIsNotWrittenOut_data();
    void numberThatCannotFitIsNotWrittenOut();
};

void tst_JsonNumber::boundsOfAWholeTypeAreTaken()
{
    for (const auto &type : wholeTypes()) {
        for (const auto &bound : {type.least, type.most}) {
            for (const auto &form : formsOf(bound.toString())) {
                const TypedValue typed = TypedValue::fromJsonNumber(slotOf(type), form, {});

                QVERIFY2(typed.problem.isEmpty(), qPrintable(type.name + typed.problem));
                QCOMPARE(typed.value, bound);
            }
        }
    }
}

void tst_JsonNumber::whatIsBeyondTheBoundsIsRefused()
{
    for (const auto &type : wholeTypes()) {
        for (const auto &bound : {type.least, type.most}) {
            for (const auto &form : formsOf(nextFromZero(bound))) {
                const TypedValue typed = TypedValue::fromJsonNumber(slotOf(type), form, {});

                QVERIFY2(!typed.value.isValid(), qPrintable(type.name + form));
                QVERIFY2(typed.problem.endsWith(
                             QStringLiteral("' is no %1; a whole number from %2 to %3 is")
                                 .arg(type.name, type.least.toString(), type.most.toString())),
                         qPrintable(typed.problem));
            }
        }
    }
}

void tst_JsonNumber::wholeNumberMayHaveAsManyDigitsAsAnyType_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("exponent") << QStringLiteral("1e19");
    QTest::newRow("point and exponent") << QStringLiteral("0.00001e24");
    QTest::newRow("digits") << QStringLiteral("10000000000000000000.0");
    QTest::newRow("digits and exponent") << QStringLiteral("1000000000000000000000e-2");
}

void tst_JsonNumber::wholeNumberMayHaveAsManyDigitsAsAnyType()
{
    QFETCH(const QString, text);

    const TypedValue typed = TypedValue::fromJsonNumber(slotOf(wholeType<quint64>("uint64")), text,
                                                        {});

    QCOMPARE(typed.problem, QString());
    QCOMPARE(typed.value, QVariant(quint64{10000000000000000000U}));
}

void tst_JsonNumber::numberThatCannotFitIsNotWrittenOut_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("next") << QStringLiteral("1e20");
    QTest::newRow("many digits") << QStringLiteral("1e100000000");
    QTest::newRow("negative") << QStringLiteral("-7e100000000");
    QTest::newRow("many zeros") << QStringLiteral("100000e100000000");
    QTest::newRow("longest exponent") << QStringLiteral("1e2147483647");
    QTest::newRow("longest exponent and zeros") << QStringLiteral("100e2147483647");
    QTest::newRow("longer exponent") << QStringLiteral("1e2147483648");
    QTest::newRow("smallest") << QStringLiteral("1e-2147483648");
}

void tst_JsonNumber::numberThatCannotFitIsNotWrittenOut()
{
    QFETCH(const QString, text);
    constexpr qint64 bound = 65536;
    const HeapWatch watch;

    const TypedValue typed = TypedValue::fromJsonNumber(slotOf(wholeType<quint64>("uint64")), text,
                                                        {});

    QCOMPARE(typed.problem, QStringLiteral("'%1' is no uint64; a whole number from 0 to "
                                           "18446744073709551615 is")
                                .arg(text));
    if (HeapWatch::canWatch()) {
        QVERIFY2(watch.peakBytes() < bound, qPrintable(QString::number(watch.peakBytes())));
    }
}

QTEST_GUILESS_MAIN(tst_JsonNumber)
#include "tst_JsonNumber.moc"
