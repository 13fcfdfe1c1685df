#include "HeldRegion.h"
#include "oddNames.hpp"
#include "support/LogCapture.h"

#include <QTemporaryDir>
#include <QtTest>

#include <limits>

using namespace ProcessDataDefinitions;

namespace {

/// The description from which the header was made, with a key that nobody else uses.
class OddNames
{
public:
    OddNames()
    {
        QFile source(QStringLiteral(ODD_NAMES));
        if (source.open(QIODevice::ReadOnly)) {
            m_text = source.readAll();
        }
        m_text.replace("tesselOddNames",
                       "tesselOddNames" + QByteArray::number(QCoreApplication::applicationPid()));
    }

    void replace(const QByteArray &former, const QByteArray &now) { m_text.replace(former, now); }
    QString write() const
    {
        QFile file(m_dir.filePath(QStringLiteral("odd-names.process.json")));
        return file.open(QIODevice::WriteOnly) && file.write(m_text) == m_text.size()
                   ? file.fileName()
                   : QString();
    }

private:
    QTemporaryDir m_dir;
    QByteArray m_text;
};

constexpr auto attach = ProcessDataManager::InitTypeSharedMemoryAttach;
constexpr auto create = ProcessDataManager::InitTypeSharedMemoryCreate;

/// Writes the value and an error state, publishes each, and reads both back.
template <class Content, class Accessor>
bool goesThrough(ProcessDataManager &manager, const Accessor &accessor, const Content &content)
{
    Content read{};
    my::odd::State state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
    const bool isValue = accessor.isValid() && accessor.write(content)
                         && manager.swapReadAndWriteBuffer() && accessor.read(read, state)
                         && read == content && state == my::odd::leaf::valid;
    const bool isState = accessor.write(content, PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE)
                         && manager.swapReadAndWriteBuffer() && accessor.read(read, state)
                         && state == PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE;
    return isValue && isState;
}

} // namespace

/// A header that `tessel gen cpp` has made from a description with every type and odd names, compiled and used.
class tst_GeneratedAccess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyTypeGoesThrough();
    void integersOf64BitsAreExact();
    void numberThatDoesNotFitIsRefused();
    void oddNamesHaveAccessors();
    void accessorReachesTheVeryLeaf();
    void formsWithoutLockWorkInsideALock();
    void readOnlyIsRefusedToOthers();
    void treeThatIsNotThereIsNotUsed();
    void otherDescriptionIsNotUsed();
    void otherRegionIsNotUsed();
};

void tst_GeneratedAccess::everyTypeGoesThrough()
{
    const LogCapture log;
    ProcessDataManager manager;
    const my::odd::Values values(manager.createProcessDataFromFile(OddNames().write(), create));
    QCOMPARE(values.getProblem(), QString());
    QVERIFY(values.isValid());
    const auto &types = values->types;

    QVERIFY(goesThrough<double>(manager, types.double_, 0.1));
    QVERIFY(goesThrough<double>(manager, types.float_, 0.5));
    QVERIFY(goesThrough<bool>(manager, types.boolean, true));
    QVERIFY(goesThrough<bool>(manager, types.bit, true));
    QVERIFY(goesThrough<qint64>(manager, types.int8, -128));
    QVERIFY(goesThrough<qint64>(manager, types.int16, 32767));
    QVERIFY(goesThrough<qint64>(manager, types.int32, -2147483648LL));
    QVERIFY(goesThrough<qint64>(manager, types.uint8, 255));
    QVERIFY(goesThrough<qint64>(manager, types.uint16, 65535));
    QVERIFY(goesThrough<qint64>(manager, types.uint32, 4294967295LL));
    QVERIFY(goesThrough<qint64>(manager, types.selector, 1));
    QVERIFY(goesThrough<QString>(manager, types.string, QStringLiteral("°C")));
}

void tst_GeneratedAccess::integersOf64BitsAreExact()
{
    const LogCapture log;
    ProcessDataManager manager;
    const my::odd::Values values(manager.createProcessDataFromFile(OddNames().write(), create));

    for (const qint64 number : {std::numeric_limits<qint64>::min(),
                                std::numeric_limits<qint64>::max(), (qint64(1) << 53) + 1}) {
        QVERIFY(goesThrough<qint64>(manager, values->types.int64, number));
    }
    for (const quint64 number : {std::numeric_limits<quint64>::max(), quint64(0)}) {
        QVERIFY(goesThrough<quint64>(manager, values->types.uint64, number));
    }
}

void tst_GeneratedAccess::numberThatDoesNotFitIsRefused()
{
    const LogCapture log;
    ProcessDataManager manager;
    const my::odd::Values values(manager.createProcessDataFromFile(OddNames().write(), create));

    QVERIFY(!values->types.int8.write(128));
    QVERIFY(!values->types.int8.write(-129));
    QVERIFY(!values->types.uint16.write(65536));
    QVERIFY(!values->types.uint32.write(-1));
    QVERIFY(!values->types.string.write(QStringLiteral("too long a text")));
}

void tst_GeneratedAccess::oddNamesHaveAccessors()
{
    const LogCapture log;
    ProcessDataManager manager;
    const auto root = manager.createProcessDataFromFile(OddNames().write(), create);
    const my::odd::Values values(root);
    const auto &names = values->names;

    QVERIFY(names.class_.isValid());
    QVERIFY(names.n3rd.isValid());
    QVERIFY(names.Gru00f6u00dfe.isValid());
    QVERIFY(names.signals_.isValid());
    QVERIFY(names.QString_.isValid());
    QVERIFY(names.tesselRoot_2.isValid());
    QVERIFY(names.say_n.isValid());
    QVERIFY(names.back.isValid());
    QVERIFY(names.x_y.isValid());
    QVERIFY(names.linux_.isValid());
    QVERIFY(names.Root.isValid() && names.State.isValid() && names.leaf.isValid());
    QVERIFY(names.nodes.isValid() && names.valid.isValid() && names.u00b0.isValid());
    QVERIFY(values->odd.isValid());
    // Each leads to its own leaf.
    QVERIFY(names.a_b.write(1) && names.a_b_2.write(2) && names.a_b_3.write(3));
    QVERIFY(manager.swapReadAndWriteBuffer());
    const auto at = [&root](const char *url) {
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
        root->getLeafProcessDataValue(QString::fromUtf8(url))->getValue(value);
        return value.toDouble();
    };
    QCOMPARE(at("names/a_b"), 1.0);
    QCOMPARE(at("names/a b"), 2.0);
    QCOMPARE(at("names/a-b"), 3.0);
}

void tst_GeneratedAccess::accessorReachesTheVeryLeaf()
{
    const LogCapture log;
    ProcessDataManager manager;
    const auto root = manager.createProcessDataFromFile(OddNames().write(), create);
    const my::odd::Values values(root);
    const auto &units = values->units;

    QVERIFY(units.a.write(1) && units.ufeffa.write(2) && units.b.write(3) && units.b_c.write(4));
    QVERIFY(units.x.write(5) && units.ufffd.write(6) && units.SLOT_.write(7));
    QVERIFY(manager.swapReadAndWriteBuffer());
    const auto at = [&root](const QString &name) {
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
        root->getLeafProcessDataValue(QStringLiteral("units/") + name)->getValue(value);
        return value.toDouble();
    };
    QCOMPARE(at(QStringLiteral("a")), 1.0);
    QCOMPARE(at(QChar(0xFEFF) + QStringLiteral("a")), 2.0);
    QCOMPARE(at(QStringLiteral("b")), 3.0);
    QCOMPARE(at(QStringLiteral("b") + QChar(0) + QLatin1Char('c')), 4.0);
    QCOMPARE(at(QStringLiteral("?")), 5.0);
    QCOMPARE(at(QChar(0xD800)), 6.0);
    QCOMPARE(at(QStringLiteral("SLOT")), 7.0);
}

void tst_GeneratedAccess::formsWithoutLockWorkInsideALock()
{
    const LogCapture log;
    ProcessDataManager manager;
    const my::odd::Values values(manager.createProcessDataFromFile(OddNames().write(), create));
    const auto &types = values->types;

    QVERIFY(manager.lockWriteBuffer());
    QVERIFY(types.double_.writeNoLock(2.5) && types.int16.writeNoLock(-7)
            && types.boolean.writeNoLock(true) && types.int64.writeNoLock(8)
            && types.string.writeNoLock(QStringLiteral("text")));
    QVERIFY(manager.unlockWriteBuffer());
    QVERIFY(manager.swapReadAndWriteBuffer());
    double number = 0;
    qint64 small = 0;
    qint64 large = 0;
    bool flag = false;
    QString text;
    my::odd::State state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
    QVERIFY(manager.lockReadBuffer());
    QVERIFY(types.double_.readNoLock(number, state) && types.int16.readNoLock(small, state)
            && types.boolean.readNoLock(flag, state) && types.int64.readNoLock(large, state)
            && types.string.readNoLock(text, state));
    bool isRepeated = false;
    QVERIFY(manager.unlockReadBuffer(isRepeated));

    QCOMPARE(number, 2.5);
    QCOMPARE(small, qint64(-7));
    QCOMPARE(large, qint64(8));
    QCOMPARE(flag, true);
    QCOMPARE(text, QStringLiteral("text"));
    QCOMPARE(state, PROCESS_VALUE_ERROR_TYPE_VALID);
}

void tst_GeneratedAccess::readOnlyIsRefusedToOthers()
{
    const LogCapture log;
    const OddNames description;
    ProcessDataManager creator;
    const my::odd::Values own(creator.createProcessDataFromFile(description.write(), create));
    ProcessDataManager manager;
    const my::odd::Values values(manager.createProcessDataFromFile(description.write(), attach));

    QVERIFY(values.isValid());
    QVERIFY(own->types.readOnly.write(1));
    QVERIFY(!values->types.readOnly.write(1));
}

void tst_GeneratedAccess::treeThatIsNotThereIsNotUsed()
{
    const LogCapture log;
    const my::odd::Values values{my::odd::Root()};
    double number = 1.5;
    qint64 whole = 7;
    my::odd::State state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;

    QCOMPARE(values.getProblem(), QStringLiteral("there is no tree"));
    QVERIFY(!values.isValid());
    QVERIFY(!values->odd.isValid());
    QVERIFY(!values->odd.read(number, state));
    QVERIFY(!values->types.int64.read(whole, state));
    QVERIFY(!values->types.int8.read(whole, state));
    QVERIFY(!values->types.int64.write(1));
    QCOMPARE(number, 1.5);
    QCOMPARE(whole, qint64(7));
    QCOMPARE(state, PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
}

void tst_GeneratedAccess::otherDescriptionIsNotUsed()
{
    const LogCapture log;
    OddNames description;
    description.replace("\"type\": \"int32\"", "\"type\": \"uint32\"");
    ProcessDataManager manager;

    const my::odd::Values values(manager.createProcessDataFromFile(description.write(), create));

    QCOMPARE(
        values.getProblem(),
        QStringLiteral("the description has another layout than when the accessors were made"));
    QVERIFY(!values->types.int32.isValid());
    QVERIFY(!values->odd.isValid());
}

void tst_GeneratedAccess::otherRegionIsNotUsed()
{
    const LogCapture log;
    OddNames other;
    other.replace("\"type\": \"int32\"", "\"type\": \"uint32\"");
    ProcessDataManager creator;
    QVERIFY(creator.createProcessDataFromFile(other.write(), create));
    ProcessDataManager manager;

    const my::odd::Values values(manager.createProcessDataFromFile(OddNames().write(), attach));

    QCOMPARE(values.getProblem(),
             QStringLiteral("the region has another layout than when the accessors were made"));
    QVERIFY(!values->odd.isValid());
}

QTEST_GUILESS_MAIN(tst_GeneratedAccess)
#include "tst_GeneratedAccess.moc"
