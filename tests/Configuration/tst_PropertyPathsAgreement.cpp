#include "LiteralPropertyPaths.h"
#include "support/LogCapture.h"

#include <QRandomGenerator>
#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using Handler = ConfigurationAndProcessDataPropertyHandler;
using PropertyMap = Handler::PropertyMap;

namespace {

constexpr int cases = 10000;

/// Everything there is to tell about a value, also what comparing variants does not tell: types,
/// kinds of maps, what is null, and several entries under one key.
QString described(const QVariant &value)
{
    QStringList parts;
    switch (value.userType()) {
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        for (auto entry = map.cbegin(); entry != map.cend(); ++entry) {
            parts.append('"' + entry.key() + "\":" + described(entry.value()));
        }
        return "map{" + parts.join(',') + '}';
    }
    case QMetaType::QVariantHash: {
        const QVariantHash hash = value.toHash();
        for (auto entry = hash.cbegin(); entry != hash.cend(); ++entry) {
            parts.append('"' + entry.key() + "\":" + described(entry.value()));
        }
        parts.sort();
        return "hash{" + parts.join(',') + '}';
    }
    case QMetaType::QVariantList:
        for (const QVariant &entry : value.toList()) {
            parts.append(described(entry));
        }
        return '[' + parts.join(',') + ']';
    case QMetaType::QStringList: return "strings(" + value.toStringList().join(',') + ')';
    default:
        return QLatin1String(value.typeName()) + (value.isNull() ? "-" : "+") + value.toString();
    }
}

class Generator
{
public:
    explicit Generator(quint32 seed) : m_random(seed) { }

    int below(int bound) { return m_random.bounded(bound); }

    /// Made of what the patterns tell apart: letters in and outside ASCII, digits of two scripts,
    /// brackets, signs, whole and broken surrogates.
    QString piece()
    {
        static const QStringList odd{"[",  "]",           ",",
                                     "-",  " ",           "\u00e9",
                                     "[a", "\u0661",      QString(QChar(0xd83d)),
                                     "Z",  "\U0001f600",  QString(QChar(u'\0')),
                                     "1",  "99999999999", QString(QChar(0xdc00))};
        QString text = key();
        if (below(2) == 0) {
            text += dimension();
        }
        for (int i = below(4) == 0 ? below(4) : 0; i > 0; --i) {
            text.insert(below(text.size() + 1), odd.at(below(odd.size())));
        }
        return text;
    }

    QString path()
    {
        QString text = piece();
        while (below(2) == 0) {
            text += '/' + piece();
        }
        return text;
    }

    PropertyMap properties() { return hash(4); }

    QVariant value(int depth)
    {
        switch (below(depth > 0 ? 14 : 7)) {
        case 0: return below(3);
        case 1: return QString::number(below(3));
        case 2: return QVariant(QVariant::Int);
        case 3: return QVariant();
        case 4: return QStringList{"0", "x"};
        case 5: return below(3) / 2.0;
        case 6: return QVariant::fromValue(nullptr);
        case 7:
        case 8: return hash(depth - 1);
        case 9:
        case 10: return map(depth - 1);
        default: return list(depth - 1);
        }
    }

private:
    QString key()
    {
        static const QStringList keys{"a", "a", "a", "b", "ab", "a1", "", "a]", "\u00e9", "a[1]"};
        return keys.at(below(keys.size()));
    }

    QString dimension()
    {
        static const QStringList numbers{"0", "1", "0", "1", "01", "2", "", "12345678901"};
        QString text = numbers.at(below(numbers.size()));
        while (below(4) == 0) {
            text += ',' + numbers.at(below(numbers.size()));
        }
        return '[' + text + ']';
    }

    QVariantHash hash(int depth)
    {
        QVariantHash entries;
        for (int i = below(6); i >= 0; --i) {
            entries.insert(key(), value(depth));
        }
        return entries;
    }

    QVariantMap map(int depth)
    {
        QMultiMap<QString, QVariant> entries;
        for (int i = below(6); i >= 0; --i) {
            entries.insert(key(), value(depth));
        }
        return entries;
    }

    QVariantList list(int depth)
    {
        QVariantList entries;
        for (int i = below(4); i > 0; --i) {
            entries.append(value(depth));
        }
        return entries;
    }

    QRandomGenerator m_random;
};

} // namespace

/// The short ways of the library against the long one. Set TESSEL_TEST_SEED to the number of a
/// failed run to have the same cases again.
class tst_PropertyPathsAgreement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void piecesComeApartAsThePatternsSay();
    void readingAgrees();
    void writingAgrees();
    void aResultMayHoldWhatIsRead();
    void aValueMayBeWrittenIntoItself();
    void aNestedWriteCopiesNothingThatItNeedNot();
    void aCopyTakenBeforeAWriteKeepsItsValues();

private:
    quint32 m_seed = 0;
};

void tst_PropertyPathsAgreement::initTestCase()
{
    bool isGiven = false;
    m_seed = qEnvironmentVariable("TESSEL_TEST_SEED").toUInt(&isGiven);
    if (!isGiven) {
        m_seed = QRandomGenerator::global()->generate();
    }
    qInfo() << "TESSEL_TEST_SEED" << m_seed;
}

void tst_PropertyPathsAgreement::piecesComeApartAsThePatternsSay()
{
    Generator generator(m_seed);
    int withDimension = 0;
    for (int i = 0; i < cases; ++i) {
        const QString piece = generator.piece();
        QString expectedKey = piece;
        const QStringList expected = LiteralPropertyPaths::getAndRemoveDimension(expectedKey);
        QString key = piece;

        const QStringList indices = Handler::getAndRemoveDimension(key);

        QCOMPARE(indices, expected);
        QCOMPARE(key, expectedKey);
        withDimension += expected.isEmpty() ? 0 : 1;
    }
    QVERIFY(withDimension > cases / 10);
    QVERIFY(withDimension < cases / 10 * 9);
}

void tst_PropertyPathsAgreement::readingAgrees()
{
    Generator generator(m_seed + 1);
    LogCapture log;
    int found = 0;
    for (int i = 0; i < cases; ++i) {
        const PropertyMap properties = generator.properties();
        const QString path = generator.below(50) == 0 ? QString() : generator.path();
        const QVariant untouched = QStringLiteral("untouched");
        QVariant expected = untouched;
        LiteralPropertyPaths::get(properties, path, expected);
        const QString expectedLog = toText(log.take());
        QVariant result = untouched;

        Handler::iteratePropertyMapForGettingValue(properties, path, result);

        QCOMPARE(described(result), described(expected));
        QCOMPARE(toText(log.take()), expectedLog);
        found += result == untouched ? 0 : 1;
    }
    QVERIFY(found > cases / 200);
}

void tst_PropertyPathsAgreement::writingAgrees()
{
    Generator generator(m_seed + 2);
    LogCapture log;
    QMap<int, int> countByStatus;
    for (int i = 0; i < cases; ++i) {
        const PropertyMap before = generator.properties();
        const QString path = generator.below(50) == 0 ? QString() : generator.path();
        const QVariant value = generator.value(1);
        PropertyMap expected = before;
        const int expectedStatus = LiteralPropertyPaths::set(expected, path, value);
        const QString expectedLog = toText(log.take());
        const QString former = described(before);
        PropertyMap properties = before;

        const int status = Handler::iteratePropertyMapForSettingValue(properties, path, value);

        QCOMPARE(status, expectedStatus);
        QCOMPARE(described(properties), described(expected));
        QCOMPARE(toText(log.take()), expectedLog);
        QCOMPARE(described(before), former);
        ++countByStatus[status];
    }
    QCOMPARE(countByStatus.keys(), (QList<int>{0, 1, 2, 4}));
}

void tst_PropertyPathsAgreement::aResultMayHoldWhatIsRead()
{
    PropertyMap properties{{"a", QVariantMap{{"b", QVariantList{1, "two"}}}}};

    Handler::iteratePropertyMapForGettingValue(properties, "a/b[1]", properties["a"]);

    QCOMPARE(properties, (PropertyMap{{"a", "two"}}));
}

void tst_PropertyPathsAgreement::aValueMayBeWrittenIntoItself()
{
    QVariant list = QVariantList{1, 2};

    const int status = Handler::iteratePropertiesForSettingValues(list, {}, {"1"}, list);

    QCOMPARE(status, int(Base::SetValueChanged));
    QCOMPARE(list, QVariant(QVariantList{1, QVariant(QVariantList{1, 2})}));

    PropertyMap properties{{"a", QVariantHash{{"b", 1}}}};

    Handler::iteratePropertyMapForSettingValue(properties, "a/b", properties["a"]);

    QCOMPARE(properties,
             (PropertyMap{{"a", QVariantHash{{"b", QVariant(QVariantHash{{"b", 1}})}}}}));
}

void tst_PropertyPathsAgreement::aNestedWriteCopiesNothingThatItNeedNot()
{
    PropertyMap properties{{"a", QVariantHash{{"rows", QVariantList{1, 2, 3}}}}};
    const auto firstEntry = [&properties] {
        const auto &hash = *static_cast<const QVariantHash *>(properties["a"].constData());
        const QVariant &rows = hash.constFind("rows").value();
        return &static_cast<const QVariantList *>(rows.constData())->first();
    };
    const QVariant *const before = firstEntry();

    Handler::iteratePropertyMapForSettingValue(properties, "a/rows[2]", 7);

    QCOMPARE(firstEntry(), before);
    QCOMPARE(properties, (PropertyMap{{"a", QVariantHash{{"rows", QVariantList{1, 2, 7}}}}}));
}

void tst_PropertyPathsAgreement::aCopyTakenBeforeAWriteKeepsItsValues()
{
    PropertyMap properties{{"a", QVariantList{QVariant(QVariantList{1, 2}), 3}}};
    const PropertyMap copy = properties;
    const QVariant listCopy = properties["a"];

    Handler::iteratePropertyMapForSettingValue(properties, "a[0,1]", 7);

    QCOMPARE(properties, (PropertyMap{{"a", QVariantList{QVariant(QVariantList{1, 7}), 3}}}));
    QCOMPARE(copy, (PropertyMap{{"a", QVariantList{QVariant(QVariantList{1, 2}), 3}}}));
    QCOMPARE(listCopy, QVariant(QVariantList{QVariant(QVariantList{1, 2}), 3}));
}

QTEST_GUILESS_MAIN(tst_PropertyPathsAgreement)

#include "tst_PropertyPathsAgreement.moc"
