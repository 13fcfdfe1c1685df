#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "trees/ChildrenInOrder.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

class tst_ChildrenInOrder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void childrenStandByPositionThenByName_data();
    void childrenStandByPositionThenByName();
    void childWithoutElementStandsBehind();
    void onlyWhatHasAValueIsGiven();

private:
    ConfigurationAndProcessDataBase::BaseClassSharedPointer parsed(const QByteArray &children);

    QTemporaryDir m_folder;
};

ConfigurationAndProcessDataBase::BaseClassSharedPointer tst_ChildrenInOrder::parsed(
    const QByteArray &children)
{
    QFile file(m_folder.filePath(QStringLiteral("device.config.json")));
    if (!file.open(QIODevice::WriteOnly)) {
        return {};
    }
    file.write("{\"type\": \"treenode\", \"value\": {" + children + "}}");
    file.close();
    return ConfigurationAndProcessDataParser().parseFromFile(file.fileName());
}

void tst_ChildrenInOrder::childrenStandByPositionThenByName_data()
{
    QTest::addColumn<QByteArray>("children");
    QTest::addColumn<QStringList>("order");
    const auto leaf = [](const char *name, const QByteArray &position) {
        return '"' + QByteArray(name) + "\": {\"type\": \"int32\", \"value\": 1"
               + (position.isEmpty() ? QByteArray() : ", \"displayPosition\": " + position) + "}";
    };

    QTest::newRow("none") << QByteArray() << QStringList();
    QTest::newRow("by position") << leaf("a", "3") + ',' + leaf("b", "-1") + ',' + leaf("c", "20")
                                 << QStringList{"b", "a", "c"};
    QTest::newRow("the same by name")
        << leaf("b", "1") + ',' + leaf("c", "0") + ',' + leaf("a", "1")
        << QStringList{"c", "a", "b"};
    QTest::newRow("without one behind")
        << leaf("a", {}) + ',' + leaf("c", "2147483646") + ',' + leaf("b", {})
        << QStringList{"c", "a", "b"};
}

void tst_ChildrenInOrder::childrenStandByPositionThenByName()
{
    QFETCH(const QByteArray, children);

    const auto root = parsed(children);

    QVERIFY(root);
    QTEST(ChildrenInOrder::keys(root->getChildMap()), "order");
}

void tst_ChildrenInOrder::childWithoutElementStandsBehind()
{
    const auto root = parsed("\"b\": {\"type\": \"int32\", \"value\": 1, \"displayPosition\": 7}");
    QVERIFY(root);
    auto children = root->getChildMap();
    children.insert(QStringLiteral("a"), {});

    QCOMPARE(ChildrenInOrder::keys(children), (QStringList{"b", "a"}));
}

void tst_ChildrenInOrder::onlyWhatHasAValueIsGiven()
{
    const auto root = parsed("\"a\": {\"type\": \"int32\", \"value\": 1, \"unit\": \"bar\"}");
    QVERIFY(root);
    const auto &element = *root->getChildMap()[QStringLiteral("a")];

    QCOMPARE(ChildrenInOrder::given(element, QStringLiteral("unit")),
             QVariant(QStringLiteral("bar")));
    QVERIFY(!ChildrenInOrder::given(element, QStringLiteral("minLimit")).isValid());
    QVERIFY(!ChildrenInOrder::given(element, QStringLiteral("nothing")).isValid());
}

QTEST_GUILESS_MAIN(tst_ChildrenInOrder)
#include "tst_ChildrenInOrder.moc"
