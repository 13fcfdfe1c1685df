#pragma once

#include <QByteArray>
#include <QHash>

/// By what a text is told from any other once its characters are gone: its size, and the 128 bits that
/// SipHash-2-4 makes of it under a secret.
///
/// Each process draws a secret of its own, so that nobody who writes a text can know what it comes to:
/// that two different ones have the same digest is as likely as to guess 128 bits at once.
class TextDigest
{
public:
    struct Secret
    {
        quint64 low;
        quint64 high;
    };

    /// Under the secret of this process.
    static TextDigest of(const QByteArray &text);

    TextDigest() = default;
    TextDigest(const QByteArray &text, const Secret &secret);

    quint64 low() const { return m_low; }
    quint64 high() const { return m_high; }

    bool operator==(const TextDigest &other) const
    {
        return m_size == other.m_size && m_low == other.m_low && m_high == other.m_high;
    }

private:
    int m_size = 0;
    quint64 m_low = 0;
    quint64 m_high = 0;
};

inline uint qHash(const TextDigest &digest, uint seed = 0)
{
    return qHash(digest.low(), seed);
}
