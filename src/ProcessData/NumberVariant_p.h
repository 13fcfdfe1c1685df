#pragma once

#include <QVariant>

#include <cstring>

// A QVariant lets its content be read and replaced through functions of Qt's library only, each of
// which costs more than the number that it is about. Through the word that Qt keeps numbers in, at
// which its own inline functions look as well, the same takes two instructions.
//
// T is bool, int, unsigned int, qlonglong, qulonglong, float or double.

namespace NumberVariant {

static_assert(QT_VERSION_MAJOR == 5, "data_ptr() belongs to the binary interface of Qt 5");

/// Whether the content has the type of that number, as QMetaType counts them.
inline bool isOfType(const QVariant &variant, int type)
{
    return variant.data_ptr().type == static_cast<uint>(type);
}

template <class T>
bool holds(const QVariant &variant)
{
    return isOfType(variant, qMetaTypeId<T>());
}

/// The same, which leaves out variants that are null or share their content: one comparison.
template <class T>
bool isJust(const QVariant &variant)
{
    const QVariant::DataPtr &content = variant.data_ptr();
    return content.type == static_cast<uint>(qMetaTypeId<T>()) && !content.is_shared
           && !content.is_null;
}

/// The number in a variant that holds a T.
template <class T>
T number(const QVariant &variant)
{
    T number{};
    std::memcpy(&number, &variant.data_ptr().data, sizeof number);
    return number;
}

/// Makes @p variant invalid.
[[gnu::noinline]] inline void clear(QVariant &variant)
{
    variant = QVariant();
}

template <class T>
[[gnu::noinline]] void replace(QVariant &variant, T number)
{
    variant = QVariant(number);
}

/// Whether the content is nothing or a number that ends without being destroyed.
inline bool isPlain(const QVariant &variant)
{
    const uint type = variant.data_ptr().type;
    return type <= QMetaType::Double || type == QMetaType::Float;
}

/// Makes @p variant what QVariant(number) is.
template <class T>
void assign(QVariant &variant, T number)
{
    QVariant::DataPtr &content = variant.data_ptr();
    // Nothing is written beside the number where nothing changes: a flag that shares a word with
    // the type would hold the next look at the type up.
    if (__builtin_expect(static_cast<long>(isJust<T>(variant)), 1L) == 0) {
        if (!isPlain(variant)) {
            replace(variant, number);
            return;
        }
        content = QVariant::DataPtr(static_cast<uint>(qMetaTypeId<T>()));
    }
    std::memcpy(&content.data, &number, sizeof number);
}

} // namespace NumberVariant
