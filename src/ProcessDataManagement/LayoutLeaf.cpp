#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/OwnProperties_p.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/LayoutLeaf_p.h"

#include <QHash>

#include <algorithm>
#include <cstring>
#include <tuple>
#include <typeinfo>
#include <utility>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;
using Take = std::function<void(const LayoutLeaf &leaf)>;

bool isOfUsualClass(const Base &element)
{
    return typeid(element) == typeid(ProcessDataValue);
}

/// Null for a node.
const ProcessDataValue *leafIn(const Base &element)
{
    // The usual class, without a search through its bases.
    return isOfUsualClass(element) ? static_cast<const ProcessDataValue *>(&element)
                                   : dynamic_cast<const ProcessDataValue *>(&element);
}

std::size_t countLeaves(const Base &node)
{
    std::size_t count = 0;
    for (const auto &child : node.getChildMap()) {
        if (!child.isNull()) {
            count += leafIn(*child) != nullptr ? 1 : countLeaves(*child);
        }
    }
    return count;
}

quint32 numberOf(const ProcessDataValue &element, const QString &key)
{
    // One of a derived class may answer in its own way.
    if (!isOfUsualClass(element)) {
        return element.getProperty(key).toUInt();
    }
    const QVariant *const number = ownProperties(element).get(key);
    return number == nullptr ? 0 : number->toUInt();
}

class LeafReader
{
public:
    LayoutLeaf read(const QByteArray &url, const ProcessDataValue &element)
    {
        const auto number = [&element](const QString &key) { return numberOf(element, key); };
        return {url,
                typeOf(element),
                number(Definitions::getKeyDataPropertyOffsetSharedMemory()),
                number(Definitions::getKeyDataPropertySizeValue()),
                number(Definitions::getKeyDataPropertyRelativeOffsetMetadata()),
                number(Definitions::getKeyDataPropertySizeMetadata()),
                number(Definitions::getKeyDataPropertyBitmask())};
    }

private:
    /// Shared by the leaves of one type.
    QByteArray typeOf(const ProcessDataValue &element)
    {
        const QString type = element.getProperty(Definitions::getKeyDataPropertyType()).toString();
        QByteArray &text = m_types[type];
        if (text.isNull()) {
            text = type.toUtf8();
        }
        return text;
    }

    QHash<QString, QByteArray> m_types;
};

/// Comes to the leaves in the order of their URLs without knowing all of them: it sorts the children of
/// each node alone, by name, and by name and slash where something is below them.
class OrderedWalk
{
public:
    explicit OrderedWalk(const Take &take) : m_take(take)
    {
        // What was reserved once stays, however short the text becomes in between.
        constexpr int usualUrl = 256;
        constexpr int usualNames = 16384;
        m_url.reserve(usualUrl);
        m_names.reserve(usualNames);
    }

    /// False if a name with a slash in it, or one that is there twice, upsets that order: without them no
    /// URL is there twice.
    bool walkBelow(const Base &node)
    {
        const int namesBefore = m_names.size();
        const int size = m_url.size();
        std::vector<Child> children;
        if (!sortChildren(node, children)) {
            return false;
        }
        for (const Child &child : children) {
            m_url.append(m_names.constData() + child.nameBegin, child.nameSize);
            if (child.leaf != nullptr) {
                m_take(m_reader.read(m_url, *child.leaf));
            } else if (!walkBelow(*child.node)) {
                return false;
            }
            m_url.truncate(size);
        }
        m_names.truncate(namesBefore);
        return true;
    }

private:
    struct Child
    {
        int nameBegin; ///< in the names
        int nameSize;
        const Base *node;
        const ProcessDataValue *leaf; ///< null for a node
    };

    bool sortChildren(const Base &node, std::vector<Child> &children)
    {
        const auto &childs = node.getChildMap();
        children.reserve(static_cast<std::size_t>(childs.size()));
        for (auto child = childs.cbegin(); child != childs.cend(); ++child) {
            // What a folder holds but cannot be parsed.
            if (child.value().isNull()) {
                continue;
            }
            const int begin = m_names.size();
            addName(child.key());
            if (m_names.indexOf('/', begin) >= 0) {
                return false;
            }
            const auto *const leaf = leafIn(*child.value());
            if (leaf == nullptr) {
                m_names += '/';
            }
            children.push_back({begin, m_names.size() - begin, child.value().data(), leaf});
        }
        std::sort(children.begin(), children.end(), [this](const Child &left, const Child &right) {
            return compare(left, right) < 0;
        });
        return std::adjacent_find(children.cbegin(), children.cend(),
                                  [this](const Child &left, const Child &right) {
                                      return compare(left, right) == 0;
                                  })
               == children.cend();
    }

    /// In UTF-8, without a text of its own for each.
    void addName(const QString &name)
    {
        const int begin = m_names.size();
        m_names.resize(begin + name.size());
        char *const text = m_names.data() + begin;
        ushort bits = 0;
        for (int i = 0; i < name.size(); ++i) {
            const ushort character = name.at(i).unicode();
            bits |= character;
            text[i] = static_cast<char>(character);
        }
        if (bits > 0x7F) {
            m_names.truncate(begin);
            m_names += name.toUtf8();
        }
    }

    int compare(const Child &left, const Child &right) const
    {
        const char *const names = m_names.constData();
        const int order = std::memcmp(
            names + left.nameBegin, names + right.nameBegin,
            static_cast<std::size_t>(std::min(left.nameSize, right.nameSize)));
        return order != 0 ? order : left.nameSize - right.nameSize;
    }

    const Take &m_take;
    LeafReader m_reader;
    QByteArray m_url;
    /// Of the children of the nodes on the way, one behind the other.
    QByteArray m_names;
};

/// With a slash in a name two leaves can have one URL, and the children of a node come in an order that
/// each process has by chance: those two are told apart by their slots. Alike in these, they count alike.
bool comesBefore(const LayoutLeaf &left, const LayoutLeaf &right)
{
    const auto rank = [](const LayoutLeaf &leaf) {
        return std::tie(leaf.url, leaf.type, leaf.offset, leaf.sizeValue,
                        leaf.relativeOffsetMetadata, leaf.sizeMetadata, leaf.bitmask);
    };
    return rank(left) < rank(right);
}

class Collection
{
public:
    explicit Collection(const Base &root)
    {
        // A table that grows is there twice for a moment, which is much for a million leaves.
        m_leaves.reserve(countLeaves(root));
    }

    /// In the order of their URLs, or false.
    bool addInOrder(const Base &root)
    {
        const Take add = [this](const LayoutLeaf &leaf) {
            m_leaves.push_back(leaf);
            // A copy of its own, as the walk goes on with the URL.
            m_leaves.back().url = QByteArray(leaf.url.constData(), leaf.url.size());
        };
        return OrderedWalk(add).walkBelow(root);
    }

    void addAndSort(const Base &root)
    {
        m_leaves.clear();
        addBelow(root, {});
        std::sort(m_leaves.begin(), m_leaves.end(), comesBefore);
    }

    std::vector<LayoutLeaf> take() { return std::move(m_leaves); }

private:
    void addBelow(const Base &node, const QByteArray &prefix)
    {
        const auto &children = node.getChildMap();
        for (auto child = children.cbegin(); child != children.cend(); ++child) {
            // What a folder holds but cannot be parsed.
            if (child.value().isNull()) {
                continue;
            }
            const QByteArray url = prefix + child.key().toUtf8();
            if (const auto *leaf = leafIn(*child.value())) {
                m_leaves.push_back(m_reader.read(url, *leaf));
            } else {
                addBelow(*child.value(), url + '/');
            }
        }
    }

    std::vector<LayoutLeaf> m_leaves;
    LeafReader m_reader;
};

} // namespace

std::vector<LayoutLeaf> layoutLeavesOf(
    const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root)
{
    if (root.isNull()) {
        return {};
    }
    Collection collection(*root);
    if (!collection.addInOrder(*root)) {
        collection.addAndSort(*root);
    }
    return collection.take();
}

bool takeLayoutLeavesOf(const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root,
                        const std::function<void(const LayoutLeaf &leaf)> &take)
{
    return root.isNull() || OrderedWalk(take).walkBelow(*root);
}
