#include "web/HostName.h"

#include <algorithm>

namespace {

constexpr int longestName = 255;

bool isPort(const QByteArray &text)
{
    const bool isNumber = std::all_of(text.cbegin(), text.cend(), [](char character) {
        return character >= '0' && character <= '9';
    });
    return isNumber && text.size() <= 5 && text.toInt() <= 65535;
}

bool isPartOfName(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= '0' && character <= '9')
           || character == '-' || character == '.' || character == '_';
}

bool isPartOfAddress(char character)
{
    return (character >= 'a' && character <= 'f') || (character >= '0' && character <= '9')
           || character == ':' || character == '.';
}

} // namespace

QByteArray hostNameOf(const QByteArray &authority)
{
    const QByteArray text = authority.toLower();
    const bool isBracketed = text.startsWith('[');
    const int bracket = text.indexOf(']');
    const int begin = isBracketed ? 1 : 0;
    const int colon = text.indexOf(':');
    int end = text.size();
    if (isBracketed) {
        end = bracket;
    } else if (colon >= 0) {
        end = colon;
    }
    if (end <= begin || end - begin > longestName) {
        return {};
    }
    const QByteArray rest = text.mid(isBracketed ? end + 1 : end);
    const QByteArray name = text.mid(begin, end - begin);
    const bool isName = std::all_of(name.cbegin(), name.cend(),
                                    isBracketed ? isPartOfAddress : isPartOfName);
    const bool hasGoodEnd = rest.isEmpty() || (rest.startsWith(':') && isPort(rest.mid(1)));
    return isName && hasGoodEnd ? name : QByteArray();
}
