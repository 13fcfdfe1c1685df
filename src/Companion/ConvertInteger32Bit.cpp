#include "Companion/ConvertInteger32Bit.h"

void ConvertInteger32Bit::qint32ToString(int number, QString &text) const
{
    text = QString::number(number);
}
