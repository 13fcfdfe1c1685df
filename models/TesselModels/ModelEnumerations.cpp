#include "TesselModels/ModelEnumerations.h"

#include "states/StateTable.h"

#include <QMetaEnum>

QString TesselModels::stateName(int state)
{
    return StateTable::nameOf(static_cast<ProcessDataDefinitions::ErrorTypes>(state));
}
