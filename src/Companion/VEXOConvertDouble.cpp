#include "Companion/VEXOConvertDouble.h"

#include <QLocale>

void VEXOConvertDouble::doubleToString(double number, QString &text) const
{
    text = QString::number(number, 'g', QLocale::FloatingPointShortest);
}
