#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/LookupKey_p.h"
#include "Configuration/UrlWalk_p.h"

#include <algorithm>
#include <typeinfo>

namespace {

void skipSeparators(QStringView &url)
{
    const auto *const piece = std::find_if(
        url.begin(), url.end(), [](QChar character) { return character != QLatin1Char('/'); });
    url = url.mid(piece - url.begin());
}

/// Empty if there is none left.
QStringView takePiece(QStringView &url)
{
    const auto *const end = std::find(url.begin(), url.end(), QLatin1Char('/'));
    const QStringView piece = url.left(end - url.begin());
    url = url.mid(piece.size());
    skipSeparators(url);
    return piece;
}

} // namespace

bool isOfNodeClass(const ConfigurationAndProcessDataBase &element)
{
    return typeid(element) == typeid(ConfigurationAndProcessDataTreeNode);
}

const ConfigurationAndProcessDataBase::BaseClassSharedPointer *followUrl(
    const ConfigurationAndProcessDataBase &node, QStringView &url)
{
    skipSeparators(url);
    const ConfigurationAndProcessDataBase *current = &node;
    while (!url.isEmpty()) {
        const auto &childs = current->getChildMap();
        const auto child = childs.constFind(LookupKey(takePiece(url)).text());
        if (child == childs.constEnd()) {
            return nullptr;
        }
        const auto &element = child.value();
        if (url.isEmpty() || element.isNull() || !isOfNodeClass(*element)) {
            return &element;
        }
        current = element.data();
    }
    return nullptr;
}

QStringList splitUrl(QStringView url)
{
    return url.toString().split(QLatin1Char('/'), Qt::SkipEmptyParts);
}
