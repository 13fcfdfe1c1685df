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

quint32 numberOf(const ProcessDataValue &element, UsualKey key)
{
    // One of a derived class may answer in its own way.
    return isOfUsualClass(element) ? ownNumber(ownProperties(element), key)
                                   : element.getProperty(keyText(key)).toUInt();
}

class LeafReader
{
public:
    /// All but the URL.
    void read(const ProcessDataValue &element, LayoutLeaf &leaf)
    {
        leaf.type = typeOf(element);
        leaf.offset = numberOf(element, UsualKey::OffsetSharedMemory);
        leaf.sizeValue = numberOf(element, UsualKey::SizeValue);
        leaf.relativeOffsetMetadata = numberOf(element, UsualKey::RelativeOffsetMetadata);
        leaf.sizeMetadata = numberOf(element, UsualKey::SizeMetadata);
        leaf.bitmask = numberOf(element, UsualKey::Bitmask);
    }

private:
    QByteArray typeOf(const ProcessDataValue &element)
    {
        if (!isOfUsualClass(element)) {
            return shared(element.getProperty(keyText(UsualKey::Type)).toString());
        }
        const QVariant *const type = PropertyRecord::valueUnder(ownProperties(element),
                                                                UsualKey::Type);
        if (type == nullptr) {
            return shared(QString());
        }
        return ::typeOf(*type) == QMetaType::QString ? shared(heldBy<QString>(*type))
                                                     : shared(type->toString());
    }

    /// Shared by the leaves of one type.
    const QByteArray &shared(const QString &type)
    {
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
        m_leaf.url.reserve(usualUrl);
        m_names.reserve(usualNames);
    }

    /// False if a name with a slash in it, or one that is there twice, upsets that order: without them no
    /// URL is there twice.
    bool walkBelow(const Base &node)
    {
        const int namesBefore = m_names.size();
        const int size = m_leaf.url.size();
        std::vector<Child> children;
        if (!sortChildren(node, children)) {
            return false;
        }
        for (const Child &child : children) {
            m_leaf.url.append(m_names.constData() + child.nameBegin, child.nameSize);
            if (child.leaf != nullptr) {
                m_reader.read(*child.leaf, m_leaf);
                m_take(m_leaf);
            } else if (!walkBelow(*child.node)) {
                return false;
            }
            m_leaf.url.truncate(size);
        }
        m_names.truncate(namesBefore);
        return true;
    }

private:
    struct Child
    {
        int nameBegin; ///< in the names, where a slash is behind each
        int nameSize;  ///< of a node with the slash
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
            // Each on its way into the caches before any of them is looked at.
            __builtin_prefetch(child.value().data());
            children.push_back({begin, m_names.size() - begin, child.value().data(), nullptr});
            m_names += '/';
        }
        for (Child &child : children) {
            child.leaf = leafIn(*child.node);
            if (child.leaf != nullptr) {
                PropertyRecord::prefetch(ownProperties(*child.leaf));
            } else {
                ++child.nameSize;
            }
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
    /// With the URL of the place to which the walk has come.
    LayoutLeaf m_leaf;
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
                LayoutLeaf &added = m_leaves.emplace_back();
                added.url = url;
                m_reader.read(*leaf, added);
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
