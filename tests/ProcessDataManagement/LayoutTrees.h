#pragma once

#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"

#include <QJsonObject>
#include <QRandomGenerator>

#include <algorithm>

/// Trees of process values for tests of their layout.
namespace LayoutTrees {

using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

inline Root parse(const QJsonObject &children)
{
    return ConfigurationAndProcessDataParser().createNode(
        QJsonObject{{QStringLiteral("type"), QStringLiteral("treenode")},
                    {QStringLiteral("value"), children}},
        PropertyManagerConst::getProcessDataDescriptionFileExtension());
}

inline QJsonObject leafAt(int offset)
{
    return {{QStringLiteral("type"), QStringLiteral("int32")},
            {QStringLiteral("offsetSharedMemory"), offset},
            {QStringLiteral("sizeValue"), 4}};
}

inline QJsonObject nodeOf(const QJsonObject &children)
{
    return {{QStringLiteral("type"), QStringLiteral("treenode")},
            {QStringLiteral("value"), children}};
}

/// Of leaves of any kind and of names whose characters stand before, at and behind the slash, in one byte or several.
class RandomTree
{
public:
    explicit RandomTree(quint32 seed, bool hasSlashes)
        : m_random(seed)
        , m_hasSlashes(hasSlashes) { }

    QJsonObject children(int depth, const QByteArray &prefix)
    {
        QJsonObject children;
        for (int i = m_random.bounded(1, 6); i > 0; --i) {
            const QString name = this->name();
            if (children.contains(name)) {
                continue;
            }
            const QByteArray url = prefix + name.toUtf8();
            const bool isNode = depth > 0 && m_random.bounded(2) == 0;
            if (!isNode) {
                m_urls.append(url);
            }
            children.insert(name, isNode ? nodeOf(this->children(depth - 1, url + '/')) : leaf());
        }
        return children;
    }
    /// In ascending order.
    QList<QByteArray> urls() const
    {
        QList<QByteArray> sorted = m_urls;
        std::sort(sorted.begin(), sorted.end());
        return sorted;
    }

private:
    QJsonObject leaf()
    {
        static const QStringList types{QStringLiteral("int32"), QStringLiteral("double"),
                                       QStringLiteral("bit"), QStringLiteral("ü")};
        return {{QStringLiteral("type"), types.at(m_random.bounded(types.size()))},
                {QStringLiteral("offsetSharedMemory"), m_urls.size()},
                {QStringLiteral("sizeValue"), m_random.bounded(3)},
                {QStringLiteral("relativeOffsetMetadata"), m_random.bounded(3)},
                {QStringLiteral("sizeMetadata"), m_random.bounded(3)},
                {QStringLiteral("bitmask"), m_random.bounded(200)}};
    }
    QString name()
    {
        static const QString characters = QStringLiteral("a-.0ü€\U0001F600");
        QString name;
        for (int i = m_random.bounded(4); i >= 0; --i) {
            const int at = m_random.bounded(characters.size() - 1);
            name += characters.at(at).isHighSurrogate() ? characters.mid(at, 2)
                                                        : QString(characters.at(at));
        }
        return m_hasSlashes && m_random.bounded(4) == 0 ? name + QLatin1Char('/') + name : name;
    }

    QRandomGenerator m_random;
    bool m_hasSlashes;
    QList<QByteArray> m_urls;
};

} // namespace LayoutTrees
