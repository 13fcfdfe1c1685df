#include "Validation/DescriptionPlaces.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/DirectoryWalk_p.h"
#include "Validation/CheckedFile_p.h"
#include "Validation/NameInTree_p.h"

#include <QStringList>

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Kind = DescriptionPlaces::Kind;
using Value = JsonText::Value;

QString extensionOf(Kind kind)
{
    return kind == Kind::Process ? PropertyManagerConst::getProcessDataDescriptionFileExtension()
                                 : PropertyManagerConst::getConfigFileExtension();
}

/// The entry that stands in the tree under a name.
std::optional<QFileInfo> entryNamed(const QFileInfo &folder, const QString &name,
                                    const QString &extension)
{
    const QList<QFileInfo> entries = DirectoryWalk::entriesOf(folder);
    const auto found = std::find_if(
        entries.crbegin(), entries.crend(),
        [&](const QFileInfo &entry) { return nameInTree(entry, extension) == name; });
    return found == entries.crend() ? std::nullopt : std::make_optional(*found);
}

/// A key of an object and what stands under it.
struct Member
{
    Value key;
    Value value;
};

std::optional<Member> memberOf(const Value &object, const QString &key)
{
    for (JsonText::Members member(object); member.isValid(); member.next()) {
        if (member.key().toString() == key) {
            return Member{member.key(), member.value()};
        }
    }
    return std::nullopt;
}

/// The key of the element that @p pieces lead to, or the root for none.
std::optional<Value> elementAt(const Value &root, const QStringList &pieces)
{
    const QByteArray type = Definitions::getKeyDataPropertyType().toLatin1();
    const QByteArray children = Definitions::getKeyDataPropertyValue().toLatin1();
    Value place = root;
    Value element = root;
    for (const QString &piece : pieces) {
        // An object under the same key is the value of a leaf, and no child.
        const Value typeName = element.member(QLatin1String(type));
        const Value below = element.member(QLatin1String(children));
        const bool isNode = typeName.isValid() && typeName.isText()
                            && typeName.toString() == Definitions::getKeyDataTypeTreeNode();
        const auto child = isNode && below.isValid() && below.isObject() ? memberOf(below, piece)
                                                                         : std::nullopt;
        if (!child || !child->value.isObject()) {
            return std::nullopt;
        }
        place = child->key;
        element = child->value;
    }
    return place;
}

} // namespace

std::optional<DescriptionPlace> DescriptionPlaces::find(const QString &path, const QString &url,
                                                        DescriptionPlaces::Kind kind)
{
    QStringList pieces = url.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    QFileInfo entry(path);
    while (entry.isDir()) {
        const auto next = pieces.isEmpty()
                              ? std::nullopt
                              : entryNamed(entry, pieces.takeFirst(), extensionOf(kind));
        if (!next) {
            return std::nullopt;
        }
        entry = *next;
    }
    Findings unused;
    CheckedFile file(entry.filePath(), CheckedFile::Kind::Process, {}, unused);
    const auto place = file.read() ? elementAt(file.root(), pieces) : std::nullopt;
    if (!place) {
        return std::nullopt;
    }
    const TextPlaces::Place found = file.placeOf(*place);
    return DescriptionPlace{file.path(), found.line, found.column};
}
