#include "TesselModels/ModelEnumerations.h"

#include <QMetaEnum>

QString TesselModels::stateName(int state)
{
    static const char *const names[] = {"valid",
                                        "underrange",
                                        "overrange",
                                        "no-input",
                                        "division-by-zero",
                                        "incorrect-mathematic",
                                        "invalid-temperature",
                                        "sensor-short-circuit",
                                        "sensor-breakage",
                                        "timeout"};
    constexpr int count = sizeof names / sizeof names[0];
    return state >= 0 && state < count ? QString::fromLatin1(names[state])
                                       : QStringLiteral("state-%1").arg(state);
}
