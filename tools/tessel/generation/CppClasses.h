#pragma once

#include <QString>

/// The part of a generated header that is the same in all of them but for the namespace, which stands there as
/// `NAMESPACE`: the classes of the accessors, and the check of the layout.
QString cppClasses();
