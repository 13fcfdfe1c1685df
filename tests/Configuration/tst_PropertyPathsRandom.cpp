#include "Configuration/ConfigurationAndProcessDataPropertyHandler.h"
#include "support/LogCapture.h"

#include <QRandomGenerator>
#include <QtTest>

using Base = ConfigurationAndProcessDataBase;
using Handler = ConfigurationAndProcessDataPropertyHandler;
using PropertyMap = Handler::PropertyMap;

namespace {

constexpr int cases = 2000;

/// A value that no generated property holds.
const QVariant nothingFound = QUrl(QStringLiteral("nothing:found"));

bool isMap(const QVariant &value)
{
    return value.userType() == QMetaType::QVariantMap
           || value.userType() == QMetaType::QVariantHash;
}

/// Equal in type and in being null as well; both kinds of map count as one.
bool isSameValue(const QVariant &left, const QVariant &right)
{
    if (isMap(left) && isMap(right)) {
        const QVariantHash leftMap = left.toHash();
        const QVariantHash rightMap = right.toHash();
        for (auto entry = leftMap.cbegin(); entry != leftMap.cend(); ++entry) {
            const auto other = rightMap.constFind(entry.key());
            if (other == rightMap.cend() || !isSameValue(entry.value(), other.value())) {
                return false;
            }
        }
        return leftMap.size() == rightMap.size();
    }
    if (left.userType() != right.userType() || left.isNull() != right.isNull()) {
        return false;
    }
    if (left.userType() == QMetaType::QVariantList) {
        const QVariantList leftList = left.toList();
        const QVariantList rightList = right.toList();
        return leftList.size() == rightList.size()
               && std::equal(leftList.cbegin(), leftList.cend(), rightList.cbegin(), isSameValue);
    }
    return left == right;
}

bool isSameValue(const PropertyMap &left, const PropertyMap &right)
{
    return isSameValue(QVariant(left), QVariant(right));
}

class Generator
{
public:
    explicit Generator(quint32 seed) : m_random(seed) { }

    PropertyMap properties() { return map(3); }

    QVariant value(int depth)
    {
        const int kind = below(depth > 0 ? 10 : 6);
        switch (kind) {
        case 0: return below(4);
        case 1: return below(8) / 2.0;
        case 2: return QString::number(below(4));
        case 3: return below(2) == 0;
        case 4: return QVariant(QVariant::Int);
        case 5: return QVariant();
        case 6: return map(depth - 1);
        case 7: {
            QVariantMap sorted;
            const QVariantHash entries = map(depth - 1);
            for (auto entry = entries.cbegin(); entry != entries.cend(); ++entry) {
                sorted.insert(entry.key(), entry.value());
            }
            return sorted;
        }
        default: return list(depth - 1);
        }
    }

    /// Follows @p properties to some value. One step in six goes astray.
    QString path(const PropertyMap &properties)
    {
        QString path;
        QVariant current = properties;
        while (isMap(current) && (path.isEmpty() || below(5) != 0)) {
            const QStringList keys = current.toHash().keys();
            const QString key = keys.isEmpty() || astray() ? anyKey() : keys.at(below(keys.size()));
            path += (path.isEmpty() ? QString() : QStringLiteral("/")) + key;
            current = current.toHash().value(key);
            path += dimension(current);
        }
        if (astray()) {
            path += below(2) == 0 ? QStringLiteral("/") : QLatin1Char('/') + anyKey();
        }
        return path;
    }

private:
    int below(int bound) { return m_random.bounded(bound); }
    bool astray() { return below(6) == 0; }

    QString anyKey()
    {
        static const QStringList keys{"a", "b", "Cd", "x1", "e f", ""};
        return keys.at(below(keys.size()));
    }

    QVariantHash map(int depth)
    {
        QVariantHash entries;
        for (int i = below(5); i >= 0; --i) {
            entries.insert(anyKey(), value(depth));
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

    /// An index list into @p current, which becomes what it leads to. Empty as a rule where there
    /// is nothing to index.
    QString dimension(QVariant &current)
    {
        QStringList indices;
        while (current.userType() == QMetaType::QVariantList && below(8) != 0) {
            const QVariantList entries = current.toList();
            const int index = below(entries.size() + (astray() ? 2 : 0) + 1);
            indices.append(QString::number(index));
            current = entries.value(index);
        }
        if (astray()) {
            static const QStringList odd{"0", "-1", "", "99999999999", "1,,1"};
            indices.append(odd.at(below(odd.size())));
        }
        return indices.isEmpty()
                   ? QString()
                   : QLatin1Char('[') + indices.join(QLatin1Char(',')) + QLatin1Char(']');
    }

    QRandomGenerator m_random;
};

} // namespace

/// Whatever is written where: what arrived reads back, and what did not arrive left no trace. Set
/// TESSEL_TEST_SEED to the number of a failed run to have the same cases again.
class tst_PropertyPathsRandom : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void whatWasWrittenReadsBackAndNothingElseChanged();
    void readingTouchesTheResultOnlyOnSuccess();

private:
    quint32 m_seed = 0;
};

void tst_PropertyPathsRandom::initTestCase()
{
    bool isGiven = false;
    m_seed = qEnvironmentVariable("TESSEL_TEST_SEED").toUInt(&isGiven);
    if (!isGiven) {
        m_seed = QRandomGenerator::global()->generate();
    }
    qInfo() << "TESSEL_TEST_SEED" << m_seed;
}

void tst_PropertyPathsRandom::whatWasWrittenReadsBackAndNothingElseChanged()
{
    Generator generator(m_seed);
    QMap<int, int> countByStatus;
    LogCapture log;
    for (int i = 0; i < cases; ++i) {
        const PropertyMap before = generator.properties();
        const QString path = generator.path(before);
        const QVariant value = generator.value(2);
        const QByteArray place =
            QStringLiteral("seed %1, case %2, path \"%3\"").arg(m_seed).arg(i).arg(path).toUtf8();
        PropertyMap properties = before;
        QVariant former = nothingFound;
        Handler::iteratePropertyMapForGettingValue(before, path, former);

        const int status = Handler::iteratePropertyMapForSettingValue(properties, path, value);

        ++countByStatus[status];
        QVERIFY2((status < Base::SetValueTargetMissing) == (former != nothingFound), place);
        QVariant result = nothingFound;
        Handler::iteratePropertyMapForGettingValue(properties, path, result);
        if (status == Base::SetValueChanged) {
            QVERIFY2(isSameValue(result, value), place);
            // With the former value back in its place nothing tells that there was a write.
            Handler::iteratePropertyMapForSettingValue(properties, path, former);
            QVERIFY2(QVariant(properties) == QVariant(before), place);
            continue;
        }
        QVERIFY2(isSameValue(properties, before), place);
        QVERIFY2(isSameValue(result, former), place);
        if (status == Base::SetValueUnchanged) {
            QVERIFY2(result == value, place);
        }
        log.take();
    }
    for (const int status : {0, 1, 2, 4}) {
        QVERIFY2(countByStatus.value(status) > cases / 100, QByteArray::number(status));
    }
    QCOMPARE(countByStatus.size(), 4);
}

void tst_PropertyPathsRandom::readingTouchesTheResultOnlyOnSuccess()
{
    Generator generator(m_seed + 1);
    LogCapture log;
    for (int i = 0; i < cases; ++i) {
        const PropertyMap properties = generator.properties();
        const QString path = generator.path(properties);
        QVariant one = nothingFound;
        QVariant other = 17;

        Handler::iteratePropertyMapForGettingValue(properties, path, one);
        const bool wasReported = !log.take().isEmpty();
        Handler::iteratePropertyMapForGettingValue(properties, path, other);
        log.take();

        const QByteArray place =
            QStringLiteral("seed %1, case %2, path \"%3\"").arg(m_seed).arg(i).arg(path).toUtf8();
        if (one == nothingFound) {
            QVERIFY2(other == QVariant(17) && other.userType() == QMetaType::Int, place);
        } else {
            QVERIFY2(isSameValue(one, other), place);
            QVERIFY2(!wasReported, place);
        }
    }
}

QTEST_GUILESS_MAIN(tst_PropertyPathsRandom)

#include "tst_PropertyPathsRandom.moc"
