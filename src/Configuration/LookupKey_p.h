#pragma once

#include <QString>
#include <QStringView>

/// A stretch of a text as the key of a look-up, without a copy of its characters.
///
/// Containers want a QString, and one made for each piece of a URL would cost more than the look-up
/// itself. This one borrows the characters as a string literal does. What text() gives must not be
/// copied or kept: it ends with this object and with the text behind it.
class LookupKey
{
public:
    explicit LookupKey(QStringView characters)
        : m_header{Q_REFCOUNT_INITIALIZE_STATIC, static_cast<int>(characters.size()), 0, 0,
                   reinterpret_cast<const char *>(characters.utf16())
                       - reinterpret_cast<const char *>(this)}
        , m_text(QStringDataPtr{static_cast<QStringData *>(&m_header)})
    {
        static_assert(sizeof(QStringData) == sizeof(QArrayData), "the header is all there is");
    }

    const QString &text() const { return m_text; }

private:
    Q_DISABLE_COPY(LookupKey)

    // The first member: the characters are found by their distance from it.
    QArrayData m_header;
    QString m_text;
};
