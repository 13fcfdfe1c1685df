#include "FuzzTarget.h"
#include "mirror/ByteOrder.h"
#include "mirror/SlotLayout.h"
#include "mirror/SourceGate.h"

#include <QList>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

// What a mirror makes of samples that anybody may have sent: a set is shown if it is whole, of the layout
// and of the source that is followed, and never an older one, whatever the clock of its source says. Turning
// its byte order touches the bytes of leaves alone, and twice gives what was there.
//
// An input is the bytes of a buffer and the leaves in it, by lines; behind a zero byte the same of a source;
// behind another one samples, a line each, their bytes behind the ninth blank.

namespace {

constexpr quint32 mostBytes = 4096;
constexpr int mostLeaves = 64;
constexpr int mostSamples = 64;

quint32 numberAt(const QList<QByteArray> &words, int index)
{
    return words.value(index).toUInt();
}

/// The first line has the size of the buffer; a further one `URL TYPE OFFSET SIZE RELATIVE METADATA MASK`.
SlotLayout layoutOf(const QByteArray &text)
{
    const QList<QByteArray> lines = text.split('\n');
    SlotLayout layout;
    layout.bufferSize = std::min(lines[0].toUInt(), mostBytes);
    for (int i = 1; i < std::min(lines.size(), mostLeaves); ++i) {
        const QList<QByteArray> words = lines[i].split(' ');
        layout.leaves.append({QString::fromUtf8(words[0]), QString::fromUtf8(words.value(1)),
                              numberAt(words, 2), numberAt(words, 3), numberAt(words, 4),
                              numberAt(words, 5), numberAt(words, 6)});
    }
    return layout;
}

/// Which bytes of the buffer leaves have, and whether each is of one leaf alone.
struct Claims
{
    explicit Claims(const SlotLayout &layout) : taken(layout.bufferSize, false)
    {
        for (const auto &leaf : layout.leaves) {
            claim(leaf.offset, leaf.sizeValue);
            if (leaf.sizeMetadata != 0) {
                claim(quint64{leaf.offset} + leaf.relativeOffsetMetadata, sizeof(quint32));
            }
        }
    }

    std::vector<bool> taken;
    bool isDisjoint = true;

private:
    void claim(quint64 offset, quint64 size)
    {
        for (quint64 at = offset; at < offset + size && at < taken.size(); ++at) {
            isDisjoint = isDisjoint && !taken[at];
            taken[at] = true;
        }
    }
};

void checkTurning(const SlotLayout &layout, const QByteArray &pattern)
{
    // Of the heap and as large as the buffer, so that what lies beside it is guarded.
    const std::unique_ptr<unsigned char[]> bytes(new unsigned char[layout.bufferSize]);
    for (quint32 i = 0; i < layout.bufferSize; ++i) {
        const auto filling = pattern.isEmpty() ? '\0' : pattern[int(i) % pattern.size()];
        bytes[i] = static_cast<unsigned char>(static_cast<unsigned char>(filling) + i / 7);
    }
    const std::vector<unsigned char> former(bytes.get(), bytes.get() + layout.bufferSize);
    const ByteOrder order(layout);
    const Claims claims(layout);

    order.turn(bytes.get());
    for (quint32 i = 0; i < layout.bufferSize; ++i) {
        require(claims.taken[i] || bytes[i] == former[i], "what is no leaf's stays");
    }
    require(std::is_permutation(former.begin(), former.end(), bytes.get()),
            "bytes are moved and not made");
    order.turn(bytes.get());
    require(!claims.isDisjoint || std::equal(former.begin(), former.end(), bytes.get()),
            "turning twice gives what was there");
}

void checkDifference(const SlotLayout &own, const SlotLayout &source)
{
    require(own.firstDifference(source).isEmpty() == (own.leaves == source.leaves),
            "another leaf is told, and nothing else");
    require(own.firstDifference(own).isEmpty(), "a layout is like itself");
}

/// `SOURCE PUBLISHER ATTACHMENT GENERATION FINGERPRINT ORDER STATE TIME SIZE`.
ReceivedSet setOf(const QList<QByteArray> &words, const QByteArray &bytes)
{
    ReceivedSet set;
    set.source = words[0];
    set.publisher = words.value(1).toULongLong();
    set.attachment = numberAt(words, 2);
    set.generation = words.value(3).toULongLong();
    set.fingerprint = words.value(4).toULongLong();
    set.byteOrder = static_cast<quint8>(numberAt(words, 5));
    set.state = static_cast<quint8>(numberAt(words, 6));
    set.timeStamp = words.value(7).toLongLong();
    set.size = std::min(numberAt(words, 8), mostBytes);
    set.bytes = reinterpret_cast<const unsigned char *>(bytes.constData());
    return set;
}

/// Holds a gate to what it promises, from one sample to the next.
class Watch
{
public:
    explicit Watch(quint32 bufferSize)
        : m_bufferSize(bufferSize)
        , m_gate(fingerprint, bufferSize)
        , m_otherClock(fingerprint, bufferSize)
    {
    }

    void release(const QByteArray &source)
    {
        const bool isFollowed = m_followed && m_followed->source == source;
        require(m_gate.release(source) == isFollowed, "only who is followed can go");
        m_otherClock.release(source);
        if (isFollowed) {
            m_followed.reset();
        }
        require(m_gate.hasSource() == m_followed.has_value(), "who has gone is followed no more");
    }

    void take(const ReceivedSet &set)
    {
        const SourceGate::Answer answer = m_gate.take(set);
        ReceivedSet shifted = set;
        shifted.timeStamp = ~set.timeStamp;
        require(m_otherClock.take(shifted) == answer, "the clock of a source is no matter");
        check(set, answer);
        if (answer == SourceGate::Answer::Show || answer == SourceGate::Answer::Fail) {
            m_followed = set;
        }
        require(m_gate.hasSource() == m_followed.has_value(), "who was refused is not followed");
    }

private:
    static constexpr quint64 fingerprint = 5;

    bool isOfTheFollowed(const ReceivedSet &set) const
    {
        return !m_followed
               || (m_followed->source == set.source && m_followed->publisher == set.publisher);
    }

    bool isWhole(const ReceivedSet &set) const
    {
        const bool hasOrder = set.byteOrder == 1 || set.byteOrder == 2;
        return hasOrder && set.state <= 3 && set.size == (set.state == 0 ? m_bufferSize : 0);
    }

    void check(const ReceivedSet &set, SourceGate::Answer answer) const
    {
        using Answer = SourceGate::Answer;
        require((answer == Answer::OtherSource) == !isOfTheFollowed(set), "one source at a time");
        if (answer == Answer::OtherSource) {
            return;
        }
        require((answer == Answer::OtherLayout) == (set.fingerprint != fingerprint),
                "one layout alone");
        if (answer == Answer::OtherLayout) {
            return;
        }
        require((answer == Answer::NotASet) == !isWhole(set), "a set is whole");
        require((answer == Answer::NotASet) == !m_gate.problem().isEmpty(),
                "a refusal has a reason");
        const auto age = [](const ReceivedSet &one) {
            return std::make_pair(one.attachment, one.generation);
        };
        require((answer != Answer::Show && answer != Answer::Fail) || !m_followed
                    || age(set) >= age(*m_followed),
                "never an older one");
        require(answer != Answer::Show || set.state == 0, "what is shown is live");
        require(answer != Answer::Fail || set.state != 0, "what is live has not failed");
        require(answer != Answer::Keep || m_followed, "the first is new");
    }

    quint32 m_bufferSize;
    SourceGate m_gate;
    SourceGate m_otherClock;
    std::optional<ReceivedSet> m_followed;
};

} // namespace

void runInput(const QByteArray &input)
{
    constexpr int samplePart = 2;
    constexpr int bytesWord = 9;
    const QList<QByteArray> parts = input.split('\0');
    const SlotLayout own = layoutOf(parts[0]);
    const SlotLayout source = layoutOf(parts.value(1));
    checkDifference(own, source);
    checkTurning(own, {});

    Watch watch(own.bufferSize);
    const QList<QByteArray> lines = parts.value(samplePart).split('\n');
    for (int i = 0; i < std::min(lines.size(), mostSamples); ++i) {
        const QList<QByteArray> words = lines[i].split(' ');
        if (words.size() == 1) {
            watch.release(words[0]);
            continue;
        }
        checkTurning(own, words.value(bytesWord));
        watch.take(setOf(words, words.value(bytesWord)));
    }
}
