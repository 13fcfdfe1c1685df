#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QJsonArray>
#include <QRandomGenerator>

#include <cmath>
#include <cstring>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Tools = ConfigurationAndProcessDataTools;

const char seedVariable[] = "TESSEL_TEST_SEED";

/// Makes descriptions of every shape that the format allows.
class RandomDescriptions
{
public:
    explicit RandomDescriptions(quint32 seed) : m_random(seed) { }

    QJsonObject node(int depth)
    {
        QJsonObject childs;
        const int count = m_random.bounded(6);
        for (int i = 0; i < count; ++i) {
            const bool isNode = depth > 0 && m_random.bounded(3) == 0;
            childs.insert(text(1), isNode ? node(depth - 1) : leaf());
        }
        QJsonObject json{{"type", "treenode"}, {"value", childs}};
        addProperties(json);
        return json;
    }

private:
    QJsonObject leaf()
    {
        static const QStringList types{"int8",   "int16",    "int32", "int64",  "uint8",  "uint16",
                                       "uint32", "uint64",   "float", "double", "string", "boolean",
                                       "bit",    "selector", "array", "record"};
        const QString &type = types.at(m_random.bounded(types.size()));
        QJsonObject json{{"type", type}};
        for (const auto *key : {"value", "minLimit", "maxLimit"}) {
            if (m_random.bounded(4) != 0) {
                json.insert(QLatin1String(key), valueOf(type));
            }
        }
        addProperties(json);
        return json;
    }

    QJsonValue valueOf(const QString &type)
    {
        const bool isNumber = Tools::isNumberType(type);
        if ((isNumber || Tools::isSelectorType(type)) && m_random.bounded(6) == 0) {
            return QJsonValue();
        }
        if (type == "int64") {
            return QString::number(static_cast<qint64>(m_random.generate64()));
        }
        if (type == "uint64") {
            return QString::number(m_random.generate64());
        }
        if (type == "float") {
            return double(finite<float>(m_random.generate()));
        }
        if (type == "double") {
            return finite<double>(m_random.generate64());
        }
        if (isNumber || type == "selector") {
            return type.startsWith('u') ? double(m_random.generate())
                                        : double(static_cast<qint32>(m_random.generate()));
        }
        if (type == "boolean" || type == "bit") {
            return m_random.bounded(2) == 0;
        }
        return type == "string" ? QJsonValue(text(0)) : anything(3);
    }

    /// A number out of random bits; infinity and NaN have no form in JSON.
    template <class Number, class Bits>
    static Number finite(Bits bits)
    {
        static_assert(sizeof(Number) == sizeof(Bits));
        Number number = 0;
        std::memcpy(&number, &bits, sizeof(number));
        return std::isfinite(number) ? number : Number(0.1);
    }

    QJsonValue anything(int depth)
    {
        switch (m_random.bounded(depth > 0 ? 7 : 5)) {
        case 0: return QJsonValue();
        case 1: return m_random.bounded(2) == 0;
        case 2:
            return m_random.bounded(2) == 0 ? finite<double>(m_random.generate64())
                                            : m_random.bounded(2000.0) - 1000.0;
        case 3: return static_cast<int>(m_random.generate());
        case 4: return text(0);
        case 5: return list(depth - 1);
        default: return object(depth - 1);
        }
    }

    QJsonArray list(int depth)
    {
        QJsonArray entries;
        for (int i = m_random.bounded(4); i > 0; --i) {
            entries.append(anything(depth));
        }
        return entries;
    }

    QJsonObject object(int depth)
    {
        QJsonObject entries;
        for (int i = m_random.bounded(4); i > 0; --i) {
            entries.insert(text(0), anything(depth));
        }
        return entries;
    }

    void addProperties(QJsonObject &json)
    {
        for (int i = m_random.bounded(4); i > 0; --i) {
            // No key of the format begins with a blank.
            json.insert(' ' + text(0), anything(2));
        }
    }

    QString text(int shortest)
    {
        static const QString letters = QString::fromUtf8(
            "aZ09 /.[],#\"\\\n\t\x01\xC3\xA4\xE2\x82\xAC\xE4\xB8\xAD");
        QString result;
        for (int i = shortest + m_random.bounded(8); i > 0; --i) {
            result.append(letters.at(m_random.bounded(letters.size())));
        }
        if (m_random.bounded(8) == 0) {
            result.append(QString::fromUtf8("\xF0\x9F\x8C\xA1"));
        }
        return result;
    }

    QRandomGenerator m_random;
};

template <class Map>
QStringList sortedKeys(const Map &map)
{
    QStringList keys = map.keys();
    keys.sort();
    return keys;
}

/// Nothing if the two are the same, else the first difference.
QString findDifference(const Base &left, const Base &right, const QString &url)
{
    if (left.metaObject() != right.metaObject()) {
        return url + " is of another class";
    }
    const auto &properties = const_cast<Base &>(left).getProperties();
    const auto &others = const_cast<Base &>(right).getProperties();
    if (sortedKeys(properties) != sortedKeys(others)) {
        return url + " has other properties";
    }
    for (auto property = properties.cbegin(); property != properties.cend(); ++property) {
        const QVariant other = others.value(property.key());
        if (property->userType() != other.userType() || property->isNull() != other.isNull()
            || *property != other) {
            QString difference;
            QDebug(&difference) << url << "differs in" << property.key() << *property << other;
            return difference;
        }
    }
    const auto &childs = left.getChildMap();
    if (sortedKeys(childs) != sortedKeys(right.getChildMap())) {
        return url + " has other childs";
    }
    for (auto child = childs.cbegin(); child != childs.cend(); ++child) {
        QString difference = findDifference(**child, *right.getChildMap().value(child.key()),
                                            url + '/' + child.key());
        if (!difference.isEmpty()) {
            return difference;
        }
    }
    return {};
}

int countEmptyNodes(const Base &element)
{
    if (element.getProperty("type") != QVariant("treenode")) {
        return 0;
    }
    int count = element.getNumberOfChilds() == 0 ? 1 : 0;
    for (const auto &child : element.getChildMap()) {
        count += countEmptyNodes(*child);
    }
    return count;
}

/// How many empty nodes the log tells of; -1 if it tells of anything else.
int countReportedNodes(const QList<LogLine> &lines)
{
    for (const LogLine &line : lines) {
        if (line.type != QtWarningMsg || !line.text.startsWith("Node has no childs!")) {
            return -1;
        }
    }
    return lines.size();
}

} // namespace

class tst_FramingRoundTrips : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parsedFrameIsTheTree_data();
    void parsedFrameIsTheTree();
};

void tst_FramingRoundTrips::parsedFrameIsTheTree_data()
{
    QTest::addColumn<QString>("postfix");

    QTest::newRow("configuration") << "config.json";
    QTest::newRow("process description") << "process.json";
}

void tst_FramingRoundTrips::parsedFrameIsTheTree()
{
    QFETCH(QString, postfix);
    const quint32 seed = qEnvironmentVariableIsSet(seedVariable)
                             ? qEnvironmentVariable(seedVariable).toUInt()
                             : QRandomGenerator::system()->generate();
    qInfo("repeat with %s=%u", seedVariable, seed);
    RandomDescriptions descriptions(seed);
    const ConfigurationAndProcessDataParser parser;
    LogCapture log;

    for (int i = 0; i < 100; ++i) {
        const QByteArray description = QJsonDocument(descriptions.node(4)).toJson();
        const auto tree = parser.parseFromByteArray(description, postfix);
        QVERIFY(!tree.isNull());
        COMPARE_LOG(log);

        QByteArray text;
        QVERIFY(parser.frameToByteArray(tree, text, QJsonDocument::Compact));
        QCOMPARE(countReportedNodes(log.take()), countEmptyNodes(*tree));
        const auto parsed = parser.parseFromByteArray(text, postfix);

        COMPARE_LOG(log);
        QVERIFY(!parsed.isNull());
        QCOMPARE(findDifference(*tree, *parsed, QString()), QString());
        QByteArray again;
        QVERIFY(parser.frameToByteArray(parsed, again, QJsonDocument::Compact));
        QCOMPARE(again, text);
        log.take();
    }
}

QTEST_GUILESS_MAIN(tst_FramingRoundTrips)
#include "tst_FramingRoundTrips.moc"
