#pragma once

#include <QtGlobal>

#include <new>
#include <type_traits>
#include <utility>

/// A static object that stays until the process ends.
///
/// Static objects go in the opposite order of their construction. So what a function makes at its
/// first call is gone when an object of the application that was there before is destroyed, and
/// that may be where the application saves its configuration. This one is never destroyed. What it
/// holds counts as reachable where leaks are looked for.
template <class T>
class Lasting
{
public:
    template <class... Arguments>
    explicit Lasting(Arguments &&...arguments)
    {
        new (m_room) T(std::forward<Arguments>(arguments)...);
    }

    T &get() { return *std::launder(reinterpret_cast<T *>(m_room)); }
    const T &get() const { return *std::launder(reinterpret_cast<const T *>(m_room)); }

private:
    Q_DISABLE_COPY(Lasting)

    alignas(T) unsigned char m_room[sizeof(T)];
};

template <class T>
Lasting(T) -> Lasting<T>;

static_assert(std::is_trivially_destructible<Lasting<std::pair<int, int *>>>::value,
              "what has a destructor is destroyed when the process ends");
