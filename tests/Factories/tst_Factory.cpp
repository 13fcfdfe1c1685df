#include "Factories/Factory.h"

#include <QObject>
#include <QtTest>

#include <type_traits>

namespace {

class Sensor : public QObject
{
public:
    Sensor(const QString &place, int channel, QObject *parent)
        : QObject(parent)
        , m_place(place)
        , m_channel(channel)
    {
    }
    virtual QString kind() const = 0;

    QString m_place;
    int m_channel;
};

class Thermometer : public Sensor
{
public:
    using Sensor::Sensor;
    QString kind() const override { return "thermometer"; }
};

class Manometer : public Sensor
{
public:
    using Sensor::Sensor;
    QString kind() const override { return "manometer"; }
};

using SensorFactory = VEXOFactories::Factory<Sensor, const QString &, int>;
using OtherFactory = VEXOFactories::Factory<Sensor, const QString &>;

/// Counts how many creators of it have been destroyed.
class CountingCreator : public SensorFactory::AbstractCreator
{
public:
    explicit CountingCreator(int &destroyed) : m_destroyed(destroyed) { }
    ~CountingCreator() override { ++m_destroyed; }

    Sensor *create(const QString &place, int channel) const override
    {
        return new Thermometer(place, channel, nullptr);
    }

private:
    int &m_destroyed;
};

template <class T>
void registerAs(const QString &key)
{
    SensorFactory::instance().registerCreator(key, std::make_unique<SensorFactory::Creator<T>>());
}

} // namespace

class tst_Factory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void thereIsOneInstanceAFamily();
    void unknownKeyHasNoCreator();
    void creatorMakesItsClassFromTheArguments();
    void productHasNoParent();
    void everyCallMakesANewProduct();
    void keysAreCaseSensitive();
    void emptyKeyIsAKeyLikeAnyOther();
    void laterCreatorReplacesTheFormer();
    void replacedCreatorIsDestroyed();
    void otherKeysKeepTheirCreators();
    void hashIsThatOfTheTextWithoutSeed();
    void creatorHoldsNothing();
};

void tst_Factory::thereIsOneInstanceAFamily()
{
    QCOMPARE(&SensorFactory::instance(), &SensorFactory::instance());
    registerAs<Thermometer>("one instance");

    QVERIFY(SensorFactory::instance().findCreator("one instance") != nullptr);
    QVERIFY(OtherFactory::instance().findCreator("one instance") == nullptr);
}

void tst_Factory::unknownKeyHasNoCreator()
{
    QVERIFY(SensorFactory::instance().findCreator("unknown") == nullptr);
    // The look-up must not have entered the key.
    QVERIFY(SensorFactory::instance().findCreator("unknown") == nullptr);
}

void tst_Factory::creatorMakesItsClassFromTheArguments()
{
    registerAs<Thermometer>("t");
    registerAs<Manometer>("p");

    const QScopedPointer<Sensor> warm(SensorFactory::instance().findCreator("t")->create("in", 3));
    const QScopedPointer<Sensor> dense(
        SensorFactory::instance().findCreator("p")->create("out", -4));

    QCOMPARE(warm->kind(), QString("thermometer"));
    QCOMPARE(warm->m_place, QString("in"));
    QCOMPARE(warm->m_channel, 3);
    QCOMPARE(dense->kind(), QString("manometer"));
    QCOMPARE(dense->m_place, QString("out"));
    QCOMPARE(dense->m_channel, -4);
}

void tst_Factory::productHasNoParent()
{
    registerAs<Thermometer>("no parent");

    const QScopedPointer<Sensor> product(
        SensorFactory::instance().findCreator("no parent")->create("in", 1));

    QVERIFY(product->parent() == nullptr);
}

void tst_Factory::everyCallMakesANewProduct()
{
    registerAs<Thermometer>("new");
    const auto *creator = SensorFactory::instance().findCreator("new");

    const QScopedPointer<Sensor> first(creator->create("in", 1));
    const QScopedPointer<Sensor> second(creator->create("in", 1));

    QVERIFY(first.data() != second.data());
}

void tst_Factory::keysAreCaseSensitive()
{
    registerAs<Thermometer>("case.Key");

    QVERIFY(SensorFactory::instance().findCreator("case.Key") != nullptr);
    QVERIFY(SensorFactory::instance().findCreator("case.key") == nullptr);
    QVERIFY(SensorFactory::instance().findCreator("case.Key ") == nullptr);
}

void tst_Factory::emptyKeyIsAKeyLikeAnyOther()
{
    QVERIFY(SensorFactory::instance().findCreator(QString()) == nullptr);

    registerAs<Thermometer>(QString());

    QVERIFY(SensorFactory::instance().findCreator("") != nullptr);
}

void tst_Factory::laterCreatorReplacesTheFormer()
{
    registerAs<Thermometer>("replaced");
    registerAs<Manometer>("replaced");

    const QScopedPointer<Sensor> product(
        SensorFactory::instance().findCreator("replaced")->create("in", 1));

    QCOMPARE(product->kind(), QString("manometer"));
}

void tst_Factory::replacedCreatorIsDestroyed()
{
    int destroyed = 0;
    SensorFactory::instance().registerCreator("counted",
                                              std::make_unique<CountingCreator>(destroyed));
    QCOMPARE(destroyed, 0);

    registerAs<Manometer>("counted");

    QCOMPARE(destroyed, 1);
}

void tst_Factory::otherKeysKeepTheirCreators()
{
    registerAs<Thermometer>("kept");
    const auto *kept = SensorFactory::instance().findCreator("kept");

    for (int i = 0; i < 1000; ++i) {
        registerAs<Manometer>(QStringLiteral("filler %1").arg(i));
    }

    QCOMPARE(SensorFactory::instance().findCreator("kept"), kept);
}

void tst_Factory::hashIsThatOfTheTextWithoutSeed()
{
    const QString key = QStringLiteral("config.json");

    QCOMPARE(VEXOFactories::KeyHasher()(key), std::size_t(qHash(key, 0)));
    QCOMPARE(VEXOFactories::KeyHasher()(QString()), std::size_t(qHash(QString(), 0)));
}

void tst_Factory::creatorHoldsNothing()
{
    // An abstract base with a virtual table, and no member behind it.
    QVERIFY(std::is_abstract<SensorFactory::AbstractCreator>::value);
    QVERIFY(std::has_virtual_destructor<SensorFactory::AbstractCreator>::value);
    QCOMPARE(sizeof(SensorFactory::Creator<Thermometer>), sizeof(void *));
}

QTEST_GUILESS_MAIN(tst_Factory)
#include "tst_Factory.moc"
