#include "leaves/WritableSlot.h"

#include <QtTest>

#include <limits>

Q_DECLARE_METATYPE(WritableSlot)

class tst_WritableSlot : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valuesThatWouldReadBackAsOthersAreTold_data();
    void valuesThatWouldReadBackAsOthersAreTold();
    void statesThatWouldBeLostAreTold_data();
    void statesThatWouldBeLostAreTold();
    void rangesAreThoseOfTheBytes();
};

void tst_WritableSlot::valuesThatWouldReadBackAsOthersAreTold_data()
{
    QTest::addColumn<WritableSlot>("slot");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("problem");
    const WritableSlot text{QStringLiteral("string"), QMetaType::QString, 16, true, 0};
    const WritableSlot noRoom{QStringLiteral("string"), QMetaType::QString, 1, true, 0};
    const WritableSlot bare{QStringLiteral("float"), QMetaType::Float, 4, false, 0};
    const WritableSlot beside{QStringLiteral("float"), QMetaType::Float, 4, true, 0};
    const WritableSlot wide{QStringLiteral("double"), QMetaType::Double, 8, false, 0};
    const QString asState = QStringLiteral(
        " would read back as an error state, which this slot keeps in the number");
    const QString noBit = QStringLiteral("the mask of this bit names no bit of its byte");

    QTest::newRow("text that fills it") << text << QVariant(QString(7, 'x')) << "";
    QTest::newRow("text too long")
        << text << QVariant(QString(8, 'x')) << "a text of 8 characters does not fit; 7 do";
    QTest::newRow("no text at all") << noRoom << QVariant(QString()) << "";
    QTest::newRow("no room for one")
        << noRoom << QVariant(QStringLiteral("x")) << "a text of 1 characters does not fit; 0 do";
    QTest::newRow("zero character") << text << QVariant(QString(QChar::Null))
                                    << "a text ends where its first zero character is";
    for (int state = 1; state <= 9; ++state) {
        const float number = static_cast<float>(state) * 1e37F;
        QTest::addRow("float for state %d", state)
            << bare << QVariant(number)
            << QString::number(state) + QStringLiteral("e+37") + asState;
    }
    QTest::newRow("float beside those") << bare << QVariant(1.5e37F) << "";
    QTest::newRow("float with a state beside it") << beside << QVariant(9e37F) << "";
    QTest::newRow("double") << wide << QVariant(9e37) << "";
    QTest::newRow("bit without a mask")
        << WritableSlot{QStringLiteral("bit"), QMetaType::Bool, 1, true, 0} << QVariant(true)
        << noBit;
    QTest::newRow("mask outside of the byte")
        << WritableSlot{QStringLiteral("bit"), QMetaType::Bool, 1, true, 0x100} << QVariant(true)
        << noBit;
    QTest::newRow("bit") << WritableSlot{QStringLiteral("bit"), QMetaType::Bool, 1, true, 0x80}
                         << QVariant(true) << "";
    QTest::newRow("boolean") << WritableSlot{QStringLiteral("boolean"), QMetaType::Bool, 1, true, 0}
                             << QVariant(true) << "";
}

void tst_WritableSlot::valuesThatWouldReadBackAsOthersAreTold()
{
    QFETCH(WritableSlot, slot);
    QFETCH(QVariant, value);

    QTEST(slot.problemOf(value), "problem");
}

void tst_WritableSlot::statesThatWouldBeLostAreTold_data()
{
    QTest::addColumn<WritableSlot>("slot");
    QTest::addColumn<QString>("problem");

    QTest::newRow("metadata") << WritableSlot{QStringLiteral("int8"), QMetaType::LongLong, 1, true,
                                              0}
                              << "";
    QTest::newRow("float") << WritableSlot{QStringLiteral("float"), QMetaType::Float, 4, false, 0}
                           << "";
    QTest::newRow("int8") << WritableSlot{QStringLiteral("int8"), QMetaType::LongLong, 1, false, 0}
                          << "a int8 without metadata cannot carry an error state";
    QTest::newRow("double") << WritableSlot{QStringLiteral("double"), QMetaType::Double, 8, false,
                                            0}
                            << "a double without metadata cannot carry an error state";
}

void tst_WritableSlot::statesThatWouldBeLostAreTold()
{
    QFETCH(WritableSlot, slot);
    QFETCH(QString, problem);

    QCOMPARE(slot.problemOfState(), problem);
    QCOMPARE(slot.carriesErrorState(), problem.isEmpty());
}

void tst_WritableSlot::rangesAreThoseOfTheBytes()
{
    QCOMPARE(NumberRange<qint64>::ofBytes(1).least, qint64{-128});
    QCOMPARE(NumberRange<qint64>::ofBytes(1).most, qint64{127});
    QCOMPARE(NumberRange<qint64>::ofBytes(4).least, qint64{-2147483648LL});
    QCOMPARE(NumberRange<quint64>::ofBytes(2).least, quint64{0});
    QCOMPARE(NumberRange<quint64>::ofBytes(2).most, quint64{65535});
    for (const quint32 bytes : {0U, 8U, 9U, 1000U}) {
        QCOMPARE(NumberRange<qint64>::ofBytes(bytes).least, std::numeric_limits<qint64>::min());
        QCOMPARE(NumberRange<quint64>::ofBytes(bytes).most, std::numeric_limits<quint64>::max());
    }
    QVERIFY(NumberRange<qint64>::ofBytes(1).has(-128));
    QVERIFY(!NumberRange<qint64>::ofBytes(1).has(128));
}

QTEST_GUILESS_MAIN(tst_WritableSlot)
#include "tst_WritableSlot.moc"
