#include "Companion/StringConversionsDefinitions.h"

const QString &StringConversionsDefinitions::getBoolValueTrue()
{
    static const QString text = QStringLiteral("true");
    return text;
}

const QString &StringConversionsDefinitions::getBoolValueFalse()
{
    static const QString text = QStringLiteral("false");
    return text;
}

const QString &StringConversionsDefinitions::getErrorUnderrangeSign()
{
    static const QString text = QStringLiteral("_____");
    return text;
}

const QString &StringConversionsDefinitions::getErrorOverrangeSign()
{
    static const QString text = QStringLiteral("^^^^^");
    return text;
}

const QString &StringConversionsDefinitions::getErrorNoInputValueSign()
{
    static const QString text = QStringLiteral("-----");
    return text;
}

const QString &StringConversionsDefinitions::getErrorNaNSign()
{
    static const QString text = QStringLiteral("?????");
    return text;
}
