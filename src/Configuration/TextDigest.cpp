#include "Configuration/TextDigest_p.h"

#include <QRandomGenerator>
#include <QtEndian>

namespace {

// SipHash by J.-P. Aumasson and D. J. Bernstein, in the form that gives 128 bits.

class SipState
{
public:
    explicit SipState(const TextDigest::Secret &secret)
        : m_v0(secret.low ^ 0x736f6d6570736575)
        , m_v1(secret.high ^ 0x646f72616e646f6d ^ 0xee)
        , m_v2(secret.low ^ 0x6c7967656e657261)
        , m_v3(secret.high ^ 0x7465646279746573)
    {
    }

    void add(quint64 word)
    {
        m_v3 ^= word;
        mix(2);
        m_v0 ^= word;
    }
    quint64 finishLow()
    {
        m_v2 ^= 0xee;
        mix(4);
        return m_v0 ^ m_v1 ^ m_v2 ^ m_v3;
    }
    /// After finishLow().
    quint64 finishHigh()
    {
        m_v1 ^= 0xdd;
        mix(4);
        return m_v0 ^ m_v1 ^ m_v2 ^ m_v3;
    }

private:
    static quint64 turned(quint64 word, int bits) { return (word << bits) | (word >> (64 - bits)); }

    void mix(int rounds)
    {
        for (int round = 0; round < rounds; ++round) {
            m_v0 += m_v1;
            m_v1 = turned(m_v1, 13) ^ m_v0;
            m_v0 = turned(m_v0, 32);
            m_v2 += m_v3;
            m_v3 = turned(m_v3, 16) ^ m_v2;
            m_v0 += m_v3;
            m_v3 = turned(m_v3, 21) ^ m_v0;
            m_v2 += m_v1;
            m_v1 = turned(m_v1, 17) ^ m_v2;
            m_v2 = turned(m_v2, 32);
        }
    }

    quint64 m_v0;
    quint64 m_v1;
    quint64 m_v2;
    quint64 m_v3;
};

TextDigest::Secret drawSecret()
{
    return {QRandomGenerator::system()->generate64(), QRandomGenerator::system()->generate64()};
}

} // namespace

TextDigest TextDigest::of(const QByteArray &text)
{
    static const Secret secret = drawSecret();
    return {text, secret};
}

TextDigest::TextDigest(const QByteArray &text, const Secret &secret) : m_size(text.size())
{
    constexpr int wordSize = sizeof(quint64);
    SipState state(secret);
    const int wholeWords = text.size() - text.size() % wordSize;
    for (int offset = 0; offset < wholeWords; offset += wordSize) {
        state.add(qFromLittleEndian<quint64>(text.constData() + offset));
    }
    quint64 last = static_cast<quint64>(text.size()) << 56;
    for (int offset = wholeWords; offset < text.size(); ++offset) {
        last |= quint64{static_cast<unsigned char>(text.at(offset))} << (8 * (offset - wholeWords));
    }
    state.add(last);
    m_low = state.finishLow();
    m_high = state.finishHigh();
}
