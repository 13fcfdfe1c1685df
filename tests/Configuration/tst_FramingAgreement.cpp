#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "RandomConfiguration.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <limits>

using Base = ConfigurationAndProcessDataBase;
using Element = Base::BaseClassSharedPointer;
using Parser = ConfigurationAndProcessDataParser;
using TreeNode = ConfigurationAndProcessDataTreeNode;

namespace {

/// Frames every element by itself and puts the objects together by hand.
QJsonObject frameLiterally(const Element &element)
{
    QJsonObject json;
    element->Base::getContentAsQJsonObject(json);
    const auto node = element.dynamicCast<TreeNode>();
    if (node.isNull()) {
        return json;
    }
    QJsonObject childs;
    if (node->getChildMap().isEmpty()) {
        qWarning() << "Node has no childs!" << node.data();
    }
    const Base::ChildMap &map = node->getChildMap();
    for (auto child = map.cbegin(); child != map.cend(); ++child) {
        childs.insert(child.key(), frameLiterally(child.value()));
    }
    json.insert("value", childs);
    return json;
}

/// Gives elements values and keys that no description brings.
void makeStrange(const Element &element, RandomConfiguration &random)
{
    static const QStringList keys{"type", "value", "minLimit", "added", "info", "z"};
    if (random.once(3)) {
        element->removeProperties({random.pick(keys)});
    }
    for (int i = random.once(3) ? random.below(3) : 0; i > 0; --i) {
        const QVariant undefined = QJsonValue(QJsonValue::Undefined);
        element->addProperty(random.pick(keys), random.once(5) ? undefined : random.value());
    }
    for (const Element &child : element->getChildMap()) {
        makeStrange(child, random);
    }
}

/// The type names of an element, to which an application's class may add its own.
QHash<QString, QMetaType::Type> &dataTypesOf(Base &element)
{
    struct Opened : Base
    {
        static QHash<QString, QMetaType::Type> &of(Base &element)
        {
            return element.*(&Opened::m_dataTypeMap);
        }
    };
    return Opened::of(element);
}

/// An element of an application, which frames itself in its own way.
class OwnWay : public TreeNode
{
public:
    explicit OwnWay(const QJsonObject &json) : TreeNode({}, nullptr), m_json(json) { }

    void getContentAsQJsonObject(QJsonObject &json) const override
    {
        qWarning() << "own way";
        json = m_json;
    }

private:
    QJsonObject m_json;
};

/// With the toolkit's JSON object for everything.
QByteArray frameByToolkit(const Element &root, QJsonDocument::JsonFormat format)
{
    return QJsonDocument(Parser().createJsonObject(root)).toJson(format);
}

QByteArray frame(const Element &root, QJsonDocument::JsonFormat format)
{
    QByteArray text;
    return Parser().frameToByteArray(root, text, format) ? text : QByteArray("not framed");
}

QVariantList oddValues()
{
    QVariantList values{QString(),
                        QString(""),
                        "plain ~",
                        "a\"b\\c/",
                        "\n\t\x01\x7f",
                        QString::fromUtf8("\u00e4\u20ac\U0001f600"),
                        QString(QChar(0xd800)),
                        0,
                        -0.0,
                        0.1,
                        1e300,
                        -7.0,
                        1e15,
                        std::numeric_limits<double>::quiet_NaN(),
                        std::numeric_limits<double>::infinity(),
                        2.5f,
                        std::numeric_limits<int>::min(),
                        std::numeric_limits<qint64>::min(),
                        std::numeric_limits<qint64>::max(),
                        (qint64{1} << 53) + 1,
                        -(qint64{1} << 53),
                        std::numeric_limits<quint64>::max(),
                        7U,
                        true,
                        false,
                        QVariant(),
                        QVariant(QMetaType::Int, nullptr),
                        QByteArray("bytes"),
                        QVariantList(),
                        QVariantMap(),
                        QVariantList{1, QVariantList{}, "x\n"},
                        QVariantMap{{"b", QVariantMap{{"c", 1}}}, {"a", QVariantList{1, 2}}},
                        QStringList{"a", "b"},
                        QUrl("http://a b"),
                        QJsonValue(5),
                        QPoint(1, 2)};
    values.append(QVariant::fromValue(nullptr));
    return values;
}

QJsonObject row(int number, const QString &unit)
{
    return {{"type", "int32"}, {"value", number}, {"unit", unit}, {"limits", QJsonArray{number}}};
}

} // namespace

Q_DECLARE_METATYPE(QJsonDocument::JsonFormat)

/// Objects that start as a copy of the one before against objects that grow key by key.
class tst_FramingAgreement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void anyTreeIsFramedAsItsElementsAreAlone();
    void anyValueUnderAnyKeyIsWrittenAsTheToolkitDoes_data();
    void anyValueUnderAnyKeyIsWrittenAsTheToolkitDoes();
    void elementsOfAnApplicationFrameThemselves_data();
    void elementsOfAnApplicationFrameThemselves();
    void neighboursOfOneShapeKeepTheirOwnValues();
    void neighboursOfAnotherShapeKeepTheirOwnKeys();
    void anObjectThatIsNotEmptyKeepsWhatItHolds();
    void typeNamesAreThoseOfTheElement();
};

void tst_FramingAgreement::anyTreeIsFramedAsItsElementsAreAlone()
{
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo() << "seed" << seed;
    RandomConfiguration random(seed);
    LogCapture log;
    for (int i = 0; i < 400; ++i) {
        const Element root = Parser().createNode(random.description(), "config.json");
        if (random.once(2)) {
            makeStrange(root, random);
        }
        log.take();
        const QJsonObject expected = frameLiterally(root);
        const QString expectedLog = toText(log.take());

        const QJsonObject json = Parser().createJsonObject(root);
        const QString jsonLog = toText(log.take());
        const auto format = random.once(2) ? QJsonDocument::Compact : QJsonDocument::Indented;
        QByteArray text;
        const bool isFramed = Parser().frameToByteArray(root, text, format);

        QCOMPARE(jsonLog, expectedLog);
        QCOMPARE(toText(log.take()), expectedLog);
        QCOMPARE(QJsonDocument(json).toJson(), QJsonDocument(expected).toJson());
        QVERIFY(isFramed);
        QCOMPARE(text, QJsonDocument(expected).toJson(format));
    }
}

void tst_FramingAgreement::anyValueUnderAnyKeyIsWrittenAsTheToolkitDoes_data()
{
    QTest::addColumn<QJsonDocument::JsonFormat>("format");
    QTest::newRow("compact") << QJsonDocument::Compact;
    QTest::newRow("indented") << QJsonDocument::Indented;
}

void tst_FramingAgreement::anyValueUnderAnyKeyIsWrittenAsTheToolkitDoes()
{
    QFETCH(QJsonDocument::JsonFormat, format);
    const QStringList keys{"k",
                           "",
                           "a\"b",
                           "\n",
                           QString::fromUtf8("\u00e4"),
                           "value",
                           "Z",
                           QString::fromUtf8("\U0001f600"),
                           QString::fromUtf8("\uffee")};
    const QStringList types{"int32", "uint64", "double", "string", "selector", "treenode", "other"};
    const QVariantList values = oddValues();
    LogCapture log;
    for (const QVariant &value : values) {
        for (const QString &type : types) {
            const auto node = QSharedPointer<TreeNode>::create(QJsonObject(), nullptr);
            const Element leaf(new ConfigurationDataValue({{"type", type}}, nullptr));
            for (const QString &key : keys) {
                node->addProperty(key, value);
                leaf->addProperty(key, value);
                node->addElement(key, key == "Z" ? Element() : leaf);
            }
            log.take();
            const QByteArray expected = frameByToolkit(node, format);
            const QString expectedLog = toText(log.take());

            const QByteArray text = frame(node, format);

            QCOMPARE(toText(log.take()), expectedLog);
            QCOMPARE(text, expected);
            QCOMPARE(frame(leaf, format), frameByToolkit(leaf, format));
        }
    }
}

void tst_FramingAgreement::elementsOfAnApplicationFrameThemselves_data()
{
    anyValueUnderAnyKeyIsWrittenAsTheToolkitDoes_data();
}

void tst_FramingAgreement::elementsOfAnApplicationFrameThemselves()
{
    QFETCH(QJsonDocument::JsonFormat, format);
    const QJsonObject odd{{"a", QJsonArray{1, QJsonObject{{"b\n", "    "}}}}, {"c", QJsonArray()}};
    LogCapture log;
    for (const QJsonObject &json : {QJsonObject(), odd}) {
        const Element strange(new OwnWay(json));
        const auto inner = QSharedPointer<TreeNode>::create(QJsonObject{{"type", "x"}}, nullptr);
        const auto outer = QSharedPointer<TreeNode>::create(QJsonObject(), nullptr);
        inner->addElement("strange", strange);
        inner->addElement("bare", Element(new ConfigurationDataValue({}, nullptr)));
        outer->addElement("inner", inner);
        for (const Element &root : {strange, Element(inner), Element(outer)}) {
            log.take();
            const QByteArray expected = frameByToolkit(root, format);
            const QString expectedLog = toText(log.take());

            QCOMPARE(frame(root, format), expected);

            QCOMPARE(toText(log.take()), expectedLog);
        }
    }
}

void tst_FramingAgreement::neighboursOfOneShapeKeepTheirOwnValues()
{
    QJsonObject childs;
    for (int i = 0; i < 20; ++i) {
        childs.insert(QString::number(i), row(i, i % 3 == 0 ? "mbar" : ""));
    }
    const QJsonObject description{{"type", "treenode"}, {"value", childs}};
    const Element root = Parser().createNode(description, "config.json");

    QCOMPARE(Parser().createJsonObject(root), description);

    // A text may become a number, and a value that JSON does not know leaves no member.
    root->getLeaf("7")->setProperty("unit", 5);
    root->getLeaf("9")->setProperty("unit", QJsonValue(QJsonValue::Undefined));
    QJsonObject changed = row(7, {});
    changed.insert("unit", 5);
    childs.insert("7", changed);
    changed = row(9, {});
    changed.remove("unit");
    childs.insert("9", changed);
    QCOMPARE(Parser().createJsonObject(root),
             (QJsonObject{{"type", "treenode"}, {"value", childs}}));
    QCOMPARE(Parser().createJsonObject(root->getLeaf("8")), row(8, ""));
}

/// One inside the other, as children come in any order. All of their texts are the same: only the keys differ.
void tst_FramingAgreement::neighboursOfAnotherShapeKeepTheirOwnKeys()
{
    const QJsonObject bare{{"type", "treenode"}};
    const QJsonObject named{{"type", "treenode"}, {"labelTextId", "name"}};
    QJsonObject description{{"type", "string"}, {"value", "innermost"}};
    for (QJsonObject node : {bare, bare, named, named, bare, bare}) {
        node.insert("value", QJsonObject{{"child", description}});
        description = node;
    }
    const Element root = Parser().createNode(description, "config.json");

    QCOMPARE(Parser().createJsonObject(root), description);
}

void tst_FramingAgreement::anObjectThatIsNotEmptyKeepsWhatItHolds()
{
    const Element root = Parser().createNode(row(1, "mbar"), "config.json");
    QJsonObject json{{"unit", "other"}, {"kept", true}};
    QJsonObject expected = row(1, "mbar");
    expected.insert("kept", true);

    root->getContentAsQJsonObject(json);

    QCOMPARE(json, expected);
}

void tst_FramingAgreement::typeNamesAreThoseOfTheElement()
{
    const auto leaf = QSharedPointer<ConfigurationDataValue>::create(
        QJsonObject{{"type", "wide"}, {"value", 7}}, nullptr);
    dataTypesOf(*leaf).insert("wide", QMetaType::LongLong);
    QByteArray text;

    QVERIFY(Parser().frameToByteArray(leaf, text, QJsonDocument::Compact));

    QCOMPARE(text, QByteArray(R"({"type":"wide","value":"7"})"));
    QCOMPARE(Parser().createJsonObject(leaf), (QJsonObject{{"type", "wide"}, {"value", "7"}}));
}

QTEST_GUILESS_MAIN(tst_FramingAgreement)

#include "tst_FramingAgreement.moc"
