#pragma once

#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "ProcessDataManagement/DescriptionDirectory.h"

/// Trees for the steps of the builder that see no file.
namespace BuilderTrees {

using Base = ConfigurationAndProcessDataBase;
using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

/// What no operation of the builder would give: a result is untouched.
const int untouched = -77;

inline Root parse(const QJsonObject &json)
{
    return ConfigurationAndProcessDataParser().createNode(json, QStringLiteral("process.json"));
}

inline QJsonObject toJson(const Root &root)
{
    return ConfigurationAndProcessDataParser().createJsonObject(root);
}

inline QVariant offsetOf(const Root &root, const QString &url)
{
    const Root leaf = root->getLeaf(url);
    return leaf ? leaf->getProperty(QStringLiteral("offsetSharedMemory")) : QVariant();
}

inline int sizeOf(const Root &root)
{
    return root->getProperty(QStringLiteral("sizeOfSharedMemory")).toInt();
}

/// Leaves a, b and, one level down, n/c with offsets 0, 16 and 20.
inline QJsonObject threeLeaves()
{
    return {{QStringLiteral("a"), Description::leaf(1, 16, 0, 0)},
            {QStringLiteral("b"), Description::leaf(2, 4, 0, 16)},
            {QStringLiteral("n"),
             Description::node({{QStringLiteral("c"), Description::leaf(1, 4, 0, 20)}}, 3)}};
}

/// A root with one leaf.
inline Root makeRoot(int size)
{
    return parse(Description::root({{QStringLiteral("own"), Description::leaf(1, 4, 4, 0)}},
                                   QStringLiteral("root key"), size));
}

/// A part with the three leaves.
inline Root makePart(int size)
{
    return parse(Description::root(threeLeaves(), QStringLiteral("part key"), size));
}

/// A node that gives the test's own elements, and no message, when it is asked for its leaves.
class NodeOfElements : public ConfigurationAndProcessDataTreeNode
{
public:
    explicit NodeOfElements(const ListElements &elements = {})
        : ConfigurationAndProcessDataTreeNode(Description::root({}, {}, 40), nullptr)
        , m_elements(elements)
    {
    }

    void collectElements(ListElements &elements, bool sorted) const override
    {
        wasEmpty = elements.isEmpty();
        wasSorted = sorted;
        elements.append(m_elements);
    }

    mutable bool wasEmpty = false;
    mutable bool wasSorted = false;

private:
    ListElements m_elements;
};

} // namespace BuilderTrees
