#include "Companion/StringConversionsDefinitions.h"

#include "Companion/Lasting_p.h"

const QString &StringConversionsDefinitions::getBoolValueTrue()
{
    static const Lasting<QString> text(QStringLiteral("true"));
    return text.get();
}

const QString &StringConversionsDefinitions::getBoolValueFalse()
{
    static const Lasting<QString> text(QStringLiteral("false"));
    return text.get();
}

const QString &StringConversionsDefinitions::getErrorUnderrangeSign()
{
    static const Lasting<QString> text(QStringLiteral("_____"));
    return text.get();
}

const QString &StringConversionsDefinitions::getErrorOverrangeSign()
{
    static const Lasting<QString> text(QStringLiteral("^^^^^"));
    return text.get();
}

const QString &StringConversionsDefinitions::getErrorNoInputValueSign()
{
    static const Lasting<QString> text(QStringLiteral("-----"));
    return text.get();
}

const QString &StringConversionsDefinitions::getErrorNaNSign()
{
    static const Lasting<QString> text(QStringLiteral("?????"));
    return text.get();
}
