#include "Configuration/ConfigurationAndProcessDataTreeNode.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ElementRegistration_p.h"
#include "Configuration/ElementType_p.h"
#include "Configuration/FramingSilence_p.h"
#include "Configuration/OwnProperties_p.h"
#include "Configuration/SortedLeaves_p.h"
#include "Configuration/UrlWalk_p.h"

#include <QDebug>

#include <algorithm>
#include <deque>
#include <functional>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

using Definitions = ConfigurationAndProcessDataDefinitions;

namespace {

using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

/// The children in the order of their keys. The order of a hash changes from process to process;
/// starting from this one, children without a position of their own stand in the same order
/// everywhere, and a layout made of them does as well.
ConfigurationAndProcessDataBase::ListElements childrenByKey(
    const ConfigurationAndProcessDataBase::ChildMap &childs)
{
    using Child = ConfigurationAndProcessDataBase::ChildMap::const_iterator;
    std::vector<Child> entries;
    entries.reserve(static_cast<std::size_t>(childs.size()));
    for (auto child = childs.cbegin(); child != childs.cend(); ++child) {
        entries.push_back(child);
    }
    std::sort(entries.begin(), entries.end(),
              [](Child left, Child right) { return left.key() < right.key(); });
    ConfigurationAndProcessDataBase::ListElements children;
    children.reserve(childs.size());
    for (const Child entry : entries) {
        children.append(entry.value());
    }
    return children;
}

/// A child in a sort, with what compareElements() would read of it again and again.
struct Place
{
    /// In the list before the sort.
    int index = 0;
    bool isNode = false;
    bool hasPosition = false;
    int position = 0;
};

/// For an element of a class of this library, where nobody can tell how often it is read.
Place readPlace(int index, const ConfigurationAndProcessDataBase &element)
{
    const auto &properties = ownProperties(element);
    const QVariant *const type = PropertyRecord::valueUnder(properties, UsualKey::Type);
    const bool isNode = type != nullptr
                        && type->toString() == Definitions::getKeyDataTypeTreeNode();
    const QVariant *const position = PropertyRecord::valueUnder(properties,
                                                                UsualKey::DisplayPosition);
    const bool hasPosition = position != nullptr && position->isValid();
    return {index, isNode, hasPosition, hasPosition ? position->toInt() : 0};
}

/// What compareElements() answers, and says.
bool comparePlaces(const Place &left, const Place &right)
{
    if (left.hasPosition && right.hasPosition) {
        return left.position < right.position;
    }
    if (!left.isNode && !right.isNode) {
        qWarning() << "Object contains no valid element"
                   << Definitions::getKeyDataPropertyDisplayPosition();
    }
    return false;
}

/// Sorts by display position. What could not be parsed has none and goes to the end.
void sortChildren(QList<BaseClassSharedPointer> &children)
{
    const auto firstMissing = std::partition(
        children.begin(), children.end(),
        [](const BaseClassSharedPointer &child) { return !child.isNull(); });
    const auto count = static_cast<int>(firstMissing - children.begin());
    const bool areOwn = std::all_of(children.begin(), firstMissing, [](const auto &child) {
        return ElementRegistration::isOfOwnClass(*child);
    });
    std::vector<Place> places;
    places.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        places.push_back(areOwn ? readPlace(i, *children.at(i)) : Place{i});
    }
    if (areOwn) {
        std::sort(places.begin(), places.end(), comparePlaces);
    } else {
        std::sort(places.begin(), places.end(), [&children](const Place &left, const Place &right) {
            return compareElements(children.at(left.index), children.at(right.index));
        });
    }
    ConfigurationAndProcessDataBase::ListElements sorted;
    sorted.reserve(children.size());
    for (const Place &place : places) {
        sorted.append(children.at(place.index));
    }
    std::copy(firstMissing, children.end(), std::back_inserter(sorted));
    children = sorted;
}

/// Children whose positions are their own among them.
struct OwnPlaces
{
    /// By their positions.
    std::vector<Place> order;
    /// At the indices that the places have.
    std::vector<BaseClassSharedPointer> children;
};

/// As sortByPosition(), with a room for every position of @p range positions from @p first on: each
/// place goes into its own at once.
bool putIntoRooms(std::vector<Place> &places, int first, std::size_t range)
{
    std::vector<Place> rooms(range);
    for (const Place &place : places) {
        // cppcheck-suppress redundantAssignment ; one of many rooms, which are read below
        Place &room = rooms[static_cast<std::size_t>(qint64{place.position} - first)];
        if (room.hasPosition) {
            return false;
        }
        room = place;
    }
    std::copy_if(rooms.cbegin(), rooms.cend(), places.begin(),
                 [](const Place &place) { return place.hasPosition; });
    return true;
}

/// Of at least one place. False if two of them have the same position.
bool sortByPosition(std::vector<Place> &places)
{
    const auto isBefore = [](const Place &left, const Place &right) {
        return left.position < right.position;
    };
    const auto [first, last] = std::minmax_element(places.cbegin(), places.cend(), isBefore);
    const auto range = static_cast<std::size_t>(qint64{last->position} - first->position + 1);
    // The positions of a description mostly lie as close together as that.
    if (range / 2 <= places.size()) {
        return putIntoRooms(places, first->position, range);
    }
    std::sort(places.begin(), places.end(), isBefore);
    return std::adjacent_find(places.cbegin(), places.cend(),
                              [](const Place &left, const Place &right) {
                                  return left.position == right.position;
                              })
           == places.cend();
}

/// In the order in which they lie in memory, each with its element behind it. In that of the hash, or of
/// their positions, nearly every one of many children would be a miss of the caches.
std::vector<const BaseClassSharedPointer *> childrenByMemory(
    const ConfigurationAndProcessDataBase::ChildMap &childs)
{
    std::vector<const BaseClassSharedPointer *> children;
    children.reserve(static_cast<std::size_t>(childs.size()));
    for (const BaseClassSharedPointer &child : childs) {
        // On its way into the caches before it is looked at.
        __builtin_prefetch(child.data());
        children.push_back(&child);
    }
    std::sort(children.begin(), children.end(), std::less<>());
    return children;
}

/// The children by their positions, which have to be read once and never compared with care: all
/// are of the library's own classes, have a position, and no two have the same. Nothing for any
/// others, whose order depends on the one before, and whose comparison may say something.
std::optional<OwnPlaces> ownPlaces(const ConfigurationAndProcessDataBase::ChildMap &childs)
{
    OwnPlaces places;
    places.order.reserve(static_cast<std::size_t>(childs.size()));
    places.children.reserve(static_cast<std::size_t>(childs.size()));
    for (const BaseClassSharedPointer *const child : childrenByMemory(childs)) {
        if (child->isNull() || !ElementRegistration::isOfOwnClass(**child)) {
            return std::nullopt;
        }
        const Place place = readPlace(static_cast<int>(places.order.size()), **child);
        if (!place.hasPosition) {
            return std::nullopt;
        }
        places.order.push_back(place);
        places.children.push_back(*child);
    }
    return sortByPosition(places.order) ? std::make_optional(std::move(places)) : std::nullopt;
}

void collectBelow(const ConfigurationAndProcessDataBase &node,
                  ConfigurationAndProcessDataBase::ListElements &elements)
{
    node.collectElements(elements, true);
}

/// A new last element.
BaseClassSharedPointer &appendTo(ConfigurationAndProcessDataBase::ListElements &elements)
{
    elements.append(BaseClassSharedPointer());
    return elements.last();
}

/// Moves the leaves out of @p places, in the order that these have.
template <class Elements>
void collectPlaces(OwnPlaces places, Elements &elements)
{
    bool isNodePassed = false;
    for (const Place &place : places.order) {
        BaseClassSharedPointer &child = places.children[static_cast<std::size_t>(place.index)];
        // Below a node may lie elements of any class, which may change what comes after it.
        if (isNodePassed ? isTreeNode(*child) : place.isNode) {
            isNodePassed = true;
            collectBelow(*child, elements);
        } else {
            // A copy would count its owners, which lie beside the element, once more.
            appendTo(elements).swap(child);
        }
    }
}

/// The leaves of a walk: in a deque, until somebody has to be given a list.
class SortedLeaves
{
public:
    BaseClassSharedPointer &append()
    {
        return m_list ? appendTo(*m_list) : m_leaves.emplace_back();
    }

    void addBelow(const ConfigurationAndProcessDataBase &node)
    {
        // Without children it says so, and one of another class collects in its own way.
        if (isOfNodeClass(node) && !node.getChildMap().isEmpty()) {
            if (auto places = ownPlaces(node.getChildMap())) {
                collectPlaces(std::move(*places), *this);
                return;
            }
        }
        node.collectElements(list(), true);
    }

    std::deque<BaseClassSharedPointer> take()
    {
        if (m_list) {
            m_leaves.assign(m_list->cbegin(), m_list->cend());
        }
        return std::move(m_leaves);
    }

private:
    /// Once for all: what is collected afterwards goes there as well.
    ConfigurationAndProcessDataBase::ListElements &list()
    {
        if (!m_list) {
            m_list.emplace();
            for (BaseClassSharedPointer &leaf : m_leaves) {
                appendTo(*m_list).swap(leaf);
            }
            m_leaves.clear();
        }
        return *m_list;
    }

    std::deque<BaseClassSharedPointer> m_leaves;
    std::optional<ConfigurationAndProcessDataBase::ListElements> m_list;
};

void collectBelow(const ConfigurationAndProcessDataBase &node, SortedLeaves &leaves)
{
    leaves.addBelow(node);
}

BaseClassSharedPointer &appendTo(SortedLeaves &leaves)
{
    return leaves.append();
}

/// Objects keep their members in the order of their keys. In that order each goes to the end, where
/// in any other the members behind it would have to make room every time.
QJsonObject withMembers(std::vector<std::pair<QString, QJsonObject>> &members)
{
    std::sort(members.begin(), members.end(),
              [](const auto &left, const auto &right) { return left.first < right.first; });
    QJsonObject json;
    for (const auto &member : members) {
        json.insert(member.first, member.second);
    }
    return json;
}

} // namespace

std::deque<BaseClassSharedPointer> sortedLeavesOf(const ConfigurationAndProcessDataBase &node)
{
    SortedLeaves leaves;
    leaves.addBelow(node);
    return leaves.take();
}

ConfigurationAndProcessDataTreeNode::ConfigurationAndProcessDataTreeNode(const QJsonObject &json,
                                                                         QObject *parent)
    : ConfigurationAndProcessDataBase(json, parent)
{
}

ConfigurationAndProcessDataTreeNode::ConfigurationAndProcessDataTreeNode(
    const DescribedElement &described)
    : ConfigurationAndProcessDataBase(described)
{
}

ConfigurationAndProcessDataTreeNode::~ConfigurationAndProcessDataTreeNode()
{
    QObject::disconnect(this, nullptr, nullptr, nullptr);
    // Whoever hears that a child dies, and asks this node or deletes in it, finds an empty node. Here,
    // as the base class is no node any more.
    ChildMap childs;
    childs.swap(m_childs);
}

// NOLINTNEXTLINE(readability-const-return-type): the signature is public and stays
const BaseClassSharedPointer ConfigurationAndProcessDataTreeNode::getLeaf(const QStringList &pieces)
{
    if (pieces.isEmpty()) {
        return {};
    }
    BaseClassSharedPointer child = m_childs.value(pieces.first());
    int used = 1;
    while (used < pieces.size() && !child.isNull() && isOfNodeClass(*child)) {
        child = child->getChildMap().value(pieces.at(used));
        ++used;
    }
    // A child that could not be parsed is null, and nothing is below it.
    if (child.isNull() || used == pieces.size()) {
        return child;
    }
    return child->getLeaf(pieces.mid(used));
}

bool ConfigurationAndProcessDataTreeNode::isUrlValid(const QStringList &pieces)
{
    if (pieces.isEmpty()) {
        return false;
    }
    const ChildMap *childs = &m_childs;
    for (int used = 1;; ++used) {
        const auto child = childs->constFind(pieces.at(used - 1));
        if (child == childs->constEnd() || used == pieces.size()) {
            return child != childs->constEnd();
        }
        if (child.value().isNull()) {
            return false;
        }
        if (!isOfNodeClass(*child.value())) {
            return child.value()->isUrlValid(pieces.mid(used));
        }
        childs = &child.value()->getChildMap();
    }
}

void ConfigurationAndProcessDataTreeNode::getContentAsQJsonObject(QJsonObject &json) const
{
    ConfigurationAndProcessDataBase::getContentAsQJsonObject(json);

    std::vector<std::pair<QString, QJsonObject>> framed;
    framed.reserve(static_cast<std::size_t>(m_childs.size()));
    if (m_childs.isEmpty() && !FramingSilence::isKept()) {
        qWarning() << "Node has no childs!" << this;
    }
    for (auto child = m_childs.cbegin(); child != m_childs.cend(); ++child) {
        if (child.value().isNull()) {
            if (!FramingSilence::isKept()) {
                qWarning() << "Key has no value!";
            }
            continue;
        }
        QJsonObject childJson;
        child.value()->getContentAsQJsonObject(childJson);
        framed.emplace_back(child.key(), childJson);
    }
    json.insert(Definitions::getKeyDataPropertyValue(), withMembers(framed));
}

void ConfigurationAndProcessDataTreeNode::collectElements(ListElements &elements, bool sorted) const
{
    if (m_childs.isEmpty()) {
        qWarning() << "Node has no childs!";
        return;
    }
    if (sorted) {
        if (auto places = ownPlaces(m_childs)) {
            collectPlaces(std::move(*places), elements);
            return;
        }
    }
    ListElements children = sorted ? childrenByKey(m_childs) : m_childs.values();
    if (sorted) {
        sortChildren(children);
    }
    for (const BaseClassSharedPointer &child : std::as_const(children)) {
        if (child.isNull()) {
            qWarning() << "Key has no value!";
        } else if (isTreeNode(*child)) {
            child->collectElements(elements, sorted);
        } else {
            elements.append(child);
        }
    }
}

void ConfigurationAndProcessDataTreeNode::collectUrlsOfElements(QStringList &urls,
                                                                QString &prefix) const
{
    if (m_childs.isEmpty()) {
        qWarning() << "Node has no childs!";
        return;
    }
    for (auto child = m_childs.cbegin(); child != m_childs.cend(); ++child) {
        if (child.key().isEmpty() || child.value().isNull()) {
            qWarning() << "Key has no value!";
            continue;
        }
        QString url = prefix + QLatin1Char('/') + child.key();
        if (isTreeNode(*child.value())) {
            child.value()->collectUrlsOfElements(urls, url);
        } else {
            urls.append(url);
        }
    }
}

void ConfigurationAndProcessDataTreeNode::addElement(const QString &key,
                                                     const BaseClassSharedPointer &element)
{
    BaseClassSharedPointer former = element;
    m_childs[key].swap(former);
    // A child that was replaced dies here, when the table is complete: it may be asked and changed
    // by whoever hears of that.
}

void ConfigurationAndProcessDataTreeNode::deleteElement(const QString &key)
{
    // Out of the table first. What hears that the child dies may ask for it, or delete again.
    const BaseClassSharedPointer child = m_childs.take(key);
}
