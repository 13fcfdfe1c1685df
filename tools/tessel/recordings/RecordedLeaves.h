#pragma once

#include "ProcessData/Linux/ProcessDataValue.h"
#include "recordings/SetImage.h"

#include <memory>

/// Makes values of the bytes of a recorded set, by the rules of the library for each type. A type that it does not
/// know gives an erroneous value.
class RecordedLeaves
{
public:
    RecordedLeaves(const RecordingHead &head, const ImageLayout &layout);
    ~RecordedLeaves();

    RecordedLeaves(const RecordedLeaves &) = delete;
    RecordedLeaves &operator=(const RecordedLeaves &) = delete;

    /// A whole set, which stays as it is until the next one is shown.
    void show(const QByteArray &image);
    /// Of the set that is shown; without content where it is erroneous.
    ProcessValue value(int index) const;

private:
    class Image;

    std::unique_ptr<Image> m_image;
    std::vector<std::unique_ptr<ProcessDataValue>> m_leaves;
};
