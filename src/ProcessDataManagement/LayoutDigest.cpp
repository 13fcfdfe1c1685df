#include "ProcessDataManagement/LayoutDigest_p.h"

#include <algorithm>

namespace {

/// FNV-1a of 64 bits: a few lines in any language, without a library.
class Hash
{
public:
    void add(const LayoutLeaf &leaf)
    {
        addText(leaf.url);
        addText(leaf.type);
        for (const quint32 number : {leaf.offset, leaf.sizeValue, leaf.relativeOffsetMetadata,
                                     leaf.sizeMetadata, leaf.bitmask}) {
            addNumber(number);
        }
    }
    /// Never 0, which stands for an unknown layout.
    quint64 value() const { return m_value == 0 ? 1 : m_value; }
    quint32 folded() const { return static_cast<quint32>(m_value ^ (m_value >> 32)); }

private:
    void addByte(unsigned char byte) { m_value = (m_value ^ byte) * 0x100000001B3; }
    /// With a zero behind it, which no text holds: so two texts never run into each other.
    void addText(const QByteArray &text)
    {
        for (const char character : text) {
            addByte(static_cast<unsigned char>(character));
        }
        addByte(0);
    }
    /// The lowest byte first, whatever the machine's own order is.
    void addNumber(quint32 number)
    {
        for (int shift = 0; shift < 32; shift += 8) {
            addByte(static_cast<unsigned char>(number >> shift));
        }
    }

    quint64 m_value = 0xCBF29CE484222325;
};

std::size_t partOf(const LayoutLeaf &leaf, quint32 bufferSize)
{
    constexpr std::size_t count = std::tuple_size<LayoutFingerprint::Parts>::value;
    return leaf.offset < bufferSize
               ? static_cast<std::size_t>(quint64{leaf.offset} * count / bufferSize)
               : count - 1;
}

class PartHashes
{
public:
    explicit PartHashes(quint32 bufferSize) : m_bufferSize(bufferSize) { }

    void add(const LayoutLeaf &leaf) { m_hashes[partOf(leaf, m_bufferSize)].add(leaf); }
    LayoutFingerprint::Parts parts() const
    {
        LayoutFingerprint::Parts parts{};
        std::transform(m_hashes.cbegin(), m_hashes.cend(), parts.begin(),
                       [](const Hash &hash) { return hash.folded(); });
        return parts;
    }

private:
    quint32 m_bufferSize;
    std::array<Hash, std::tuple_size<LayoutFingerprint::Parts>::value> m_hashes;
};

LayoutDigest::Numbers numbersOf(const LayoutDigest::Leaves &leaves, quint32 bufferSize)
{
    Hash hash;
    PartHashes parts(bufferSize);
    leaves([&](const LayoutLeaf &leaf) {
        hash.add(leaf);
        parts.add(leaf);
    });
    return {hash.value(), parts.parts()};
}

} // namespace

quint64 LayoutDigest::valueOf(const Leaves &leaves)
{
    Hash hash;
    leaves([&hash](const LayoutLeaf &leaf) { hash.add(leaf); });
    return hash.value();
}

quint64 LayoutDigest::valueOf(const LayoutFingerprint::BaseClassSharedPointer &root)
{
    Hash hash;
    const bool isTaken = takeLayoutLeavesOf(root, [&](const LayoutLeaf &leaf) { hash.add(leaf); });
    return isTaken ? hash.value() : valueOf(in(layoutLeavesOf(root)));
}

LayoutFingerprint::Parts LayoutDigest::partsOf(const Leaves &leaves, quint32 bufferSize)
{
    PartHashes parts(bufferSize);
    leaves([&parts](const LayoutLeaf &leaf) { parts.add(leaf); });
    return parts.parts();
}

LayoutDigest::Numbers LayoutDigest::numbersOf(const LayoutFingerprint::BaseClassSharedPointer &root,
                                              quint32 bufferSize)
{
    bool isTaken = true;
    const Numbers numbers = ::numbersOf(
        [&](const auto &take) { isTaken = takeLayoutLeavesOf(root, take); }, bufferSize);
    return isTaken ? numbers : ::numbersOf(in(layoutLeavesOf(root)), bufferSize);
}

QString LayoutDigest::findFirstDifference(const Leaves &leaves,
                                          const LayoutFingerprint::Parts &others,
                                          quint32 bufferSize)
{
    const LayoutFingerprint::Parts own = partsOf(leaves, bufferSize);
    bool isFound = false;
    quint32 offset = 0;
    QString url;
    leaves([&](const LayoutLeaf &leaf) {
        const std::size_t part = partOf(leaf, bufferSize);
        if (own[part] != others[part] && (!isFound || leaf.offset < offset)) {
            isFound = true;
            offset = leaf.offset;
            url = QString::fromUtf8(leaf.url);
        }
    });
    return url;
}

LayoutDigest::Leaves LayoutDigest::in(const std::vector<LayoutLeaf> &leaves)
{
    return [&leaves](const auto &take) { std::for_each(leaves.cbegin(), leaves.cend(), take); };
}
