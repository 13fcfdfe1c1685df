#pragma once

#include <QVariant>

/// The container in @p value, whose type is known to be that one, without a reference of its own.
/// It lives as long as the variant stays as it is.
template <class Container>
const Container &heldBy(const QVariant &value)
{
    return *static_cast<const Container *>(value.constData());
}
