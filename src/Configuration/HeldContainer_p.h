#pragma once

#include <QVariant>

// What QVariant answers by a call of the toolkit each, in place: a path asks for both at every step.

/// As userType().
inline int typeOf(const QVariant &value)
{
    return static_cast<int>(value.data_ptr().type);
}

/// The container in @p value, whose type is known to be that one, without a reference of its own.
/// It lives as long as the variant stays as it is.
template <class Container>
const Container &heldBy(const QVariant &value)
{
    const auto &held = value.data_ptr();
    const void *const container = held.is_shared ? held.data.shared->ptr : &held.data.ptr;
    return *static_cast<const Container *>(container);
}
