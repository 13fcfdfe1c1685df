#pragma once

#include "recordings/RecordingFormat.h"

#include <vector>

/// Where the values of a recording lie in a whole set: each behind the one before, its error state behind it.
class ImageLayout
{
public:
    /// Of a set that fits into a record.
    static constexpr quint64 sm_mostBytes = RecordingFormat::longestRecord
                                            - RecordingFormat::setHeadSize;

    struct Place
    {
        quint64 offset;
        quint32 size;
        quint32 stateSize;

        quint64 stateOffset() const { return offset + size; }
    };

    explicit ImageLayout(const QVector<RecordedValue> &values);

    const std::vector<Place> &places() const { return m_places; }
    /// Bytes of a whole set.
    quint64 size() const { return m_size; }

private:
    std::vector<Place> m_places;
    quint64 m_size = 0;
};

/// One change: how many values lie between it and the change before, whether its error state follows, then the
/// bytes. The first number has seven bits a byte, the least first.
void appendChange(QByteArray &changes, quint64 passedOver, bool hasState);

/// Takes the changes into the image of a whole set, and tells in @p changed which values they are of. False if they
/// are none for this layout; the image has some of them then.
bool applyChanges(const ImageLayout &layout, const char *changes, int size, QByteArray &image,
                  std::vector<int> &changed);
