#include "Validation/ProcessSlot_p.h"

namespace {

using Key = DescribedKey;

JsonText::Value placeOf(const CheckedElement &leaf, Key key)
{
    return leaf.has(key) ? leaf.value(key) : leaf.object();
}

} // namespace

ProcessSlot::ProcessSlot(const CheckedElement &leaf)
    : url(leaf.url())
    , type(leaf.type())
    , offset(leaf.count(Key::OffsetSharedMemory))
    , size(leaf.count(Key::SizeValue))
    , distance(leaf.count(Key::RelativeOffsetMetadata))
    , sizeMetadata(leaf.count(Key::SizeMetadata))
    , mask(leaf.count(Key::Bitmask))
    , offsetAt(placeOf(leaf, Key::OffsetSharedMemory))
    , distanceAt(placeOf(leaf, Key::RelativeOffsetMetadata))
    , sizeMetadataAt(placeOf(leaf, Key::SizeMetadata))
    , maskAt(placeOf(leaf, Key::Bitmask))
{
}
