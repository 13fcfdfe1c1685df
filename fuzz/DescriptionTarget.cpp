#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "FuzzTarget.h"
#include "ToolkitLeak.h"

#include <QSet>

#include <algorithm>

// A description from anybody is refused or becomes a tree that can be walked, and that says in every
// frame what it said in the first.

namespace {

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;
using Element = Base::BaseClassSharedPointer;
using Parser = ConfigurationAndProcessDataParser;

QSet<const Base *> collect(const Element &root, bool isSorted)
{
    Base::ListElements elements;
    root->collectElements(elements, isSorted);
    QSet<const Base *> set;
    for (const Element &element : elements) {
        set.insert(element.data());
    }
    require(set.size() == elements.size(), "every leaf is collected once");
    return set;
}

/// Whether all elements below @p node are found by their URLs. A key that is empty or holds a slash
/// has no URL.
void checkUrls(const Element &root, const Element &node, const QString &url)
{
    const Base::ChildMap &childs = node->getChildMap();
    for (auto child = childs.cbegin(); child != childs.cend(); ++child) {
        if (child.key().isEmpty() || child.key().contains('/')) {
            continue;
        }
        const QString childUrl = url + '/' + child.key();
        require(root->isUrlValid(childUrl), "the URL of an element is valid");
        require(root->getLeaf(childUrl) == child.value(), "an element is found by its URL");
        checkUrls(root, child.value(), childUrl);
    }
}

QByteArray frame(const Element &root, QJsonDocument::JsonFormat format)
{
    QByteArray text;
    require(Parser().frameToByteArray(root, text, format), "a tree can be framed");
    require(text == QJsonDocument(Parser().createJsonObject(root)).toJson(format),
            "framing to bytes and to an object agree");
    return text;
}

/// False for text with one half of a pair of surrogates, which the toolkit writes as something
/// else, and two such keys as one.
bool isHeldByToolkit(const QByteArray &text)
{
    return QJsonDocument::fromJson(text).toJson(QJsonDocument::Compact) == text;
}

/// Whether a text leaf below @p element, or itself, was given what is no text. That is framed as
/// null, which is no text either but becomes the empty one.
bool hasRefusedText(const Base &element)
{
    const auto properties = const_cast<Base &>(element).getProperties();
    const bool isText = properties.value(Definitions::getKeyDataPropertyType())
                        == Definitions::getKeyDataTypeString();
    for (const QString &key :
         {Definitions::getKeyDataPropertyValue(), Definitions::getKeyDataPropertyMinLimit(),
          Definitions::getKeyDataPropertyMaxLimit()}) {
        const auto property = properties.constFind(key);
        if (isText && property != properties.cend() && !property->isValid()) {
            return true;
        }
    }
    const Base::ChildMap &childs = element.getChildMap();
    return std::any_of(childs.cbegin(), childs.cend(),
                       [](const Element &child) { return hasRefusedText(*child); });
}

/// The text of a frame after it was parsed.
QByteArray frameAgain(const QByteArray &text, const QString &postfix)
{
    const ToolkitLeak leak(text);
    const Element parsed = Parser().parseFromByteArray(text, postfix);
    require(!parsed.isNull(), "a frame parses");
    return frame(parsed, QJsonDocument::Compact);
}

/// Whether the same text in UTF-16 says the same. Bytes that are no UTF-8 have no such text.
void checkText(const QByteArray &description, const QString &postfix, const Element &root)
{
    const QString text = QString::fromUtf8(description);
    if (text.toUtf8() != description) {
        return;
    }
    const Element same = Parser().parseFromJson(text, postfix);
    require(same.isNull() == root.isNull(), "bytes and text are refused alike");
    require(root.isNull()
                || frame(same, QJsonDocument::Compact) == frame(root, QJsonDocument::Compact),
            "bytes and text say the same");
}

void requireSame(const Element &tree, const Element &expected)
{
    require(tree->metaObject() == expected->metaObject(), "an element has its class");
    const auto properties = tree->getProperties();
    const auto others = expected->getProperties();
    require(properties.keys() == others.keys(), "properties stand in the order of a hash");
    require(properties == others, "properties have their values");
    for (auto property = others.cbegin(); property != others.cend(); ++property) {
        const QVariant value = properties.value(property.key());
        require(value.userType() == property->userType() && value.isNull() == property->isNull(),
                "values have their types");
    }
    const Base::ChildMap &childs = tree->getChildMap();
    const Base::ChildMap &otherChilds = expected->getChildMap();
    require(childs.keys() == otherChilds.keys(), "children stand in the order of a hash");
    for (auto child = childs.cbegin(); child != childs.cend(); ++child) {
        requireSame(child.value(), otherChilds.value(child.key()));
    }
}

/// Whether the JSON object of the text makes the same tree.
void checkObject(const QByteArray &description, const QString &postfix, const Element &root)
{
    const QJsonDocument document = QJsonDocument::fromJson(description);
    const Element same = document.isNull() ? Element()
                                           : Parser().createNode(document.object(), postfix);
    require(same.isNull() == root.isNull(), "text and object are refused alike");
    if (!root.isNull()) {
        requireSame(root, same);
    }
}

void checkDescription(const QByteArray &description, const QString &postfix)
{
    const Element root = Parser().parseFromByteArray(description, postfix);
    checkText(description, postfix, root);
    checkObject(description, postfix, root);
    if (root.isNull()) {
        return;
    }
    require(collect(root, true) == collect(root, false), "sorting collects the same leaves");
    QStringList urls;
    QString prefix;
    root->collectUrlsOfElements(urls, prefix);
    require(prefix.isEmpty(), "collecting URLs leaves the prefix alone");
    checkUrls(root, root, QString());

    const QByteArray first = frame(root, QJsonDocument::Compact);
    frame(root, QJsonDocument::Indented);
    const QByteArray second = frameAgain(first, postfix);
    require(second == first || !isHeldByToolkit(first) || hasRefusedText(*root),
            "a parsed frame is framed as the same text");
    require(frameAgain(second, postfix) == second, "the next frame is the same in every case");
}

} // namespace

void runInput(const QByteArray &input)
{
    const ToolkitLeak leak(input);
    checkDescription(input, QStringLiteral("config.json"));
    checkDescription(input, QStringLiteral("process.json"));
}
