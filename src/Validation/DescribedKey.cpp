#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/Lasting_p.h"
#include "Validation/DescribedKey_p.h"

#include <QHash>
#include <QVector>

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Key = DescribedKey;
using Rows = QVector<DescribedKeyRow>;

Rows elementRows()
{
    using namespace KeyPlace;
    const unsigned limited = Number | Column;
    return {
        {Key::Type, Definitions::getKeyDataPropertyType(), Element | Column, KeyForm::Text},
        {Key::Value, Definitions::getKeyDataPropertyValue(), Element | Column, KeyForm::Any},
        {Key::MinLimit, Definitions::getKeyDataPropertyMinLimit(), limited, KeyForm::Any},
        {Key::MaxLimit, Definitions::getKeyDataPropertyMaxLimit(), limited, KeyForm::Any},
        {Key::SchemeVersion, Definitions::getKeyDataPropertySchemeVersion(), Top, KeyForm::Version},
        {Key::DisplayPosition, Definitions::getKeyDataPropertyDisplayPosition(), Element | Column,
         KeyForm::Position},
        {Key::ReadOnly, Definitions::getKeyDataPropertyReadOnly(), Element | Column, KeyForm::Flag},
        {Key::RegularExpression, Definitions::getKeyDataPropertyRegularExpression(),
         ConfigurationText | Column, KeyForm::Text},
        {Key::LabelTextId, Definitions::getKeyDataPropertyLabelTextId(), Element | Column | Folder,
         KeyForm::FreeText},
        {Key::CpveVersion, Definitions::getKeyDataPropertyCpveVersion(), Top | Folder,
         KeyForm::FreeText},
        {Key::ConfigurationVersion, Definitions::getKeyDataPropertyConfigurationVersion(),
         Top | Folder, KeyForm::FreeText},
    };
}

Rows configurationRows()
{
    using namespace KeyPlace;
    const unsigned measured = AnyLeaf | Column;
    return {
        {Key::ArrayInformation, Definitions::getKeyDataPropertyArrayInformation(), Array,
         KeyForm::Any},
        {Key::ArrayHasDynamicRows, Definitions::getKeyDataPropertyArrayHasDynamicRows(), Array,
         KeyForm::Flag},
        {Key::ArrayMinRows, Definitions::getKeyDataPropertyArrayMinRows(), Array, KeyForm::Count},
        {Key::ArrayMaxRows, Definitions::getKeyDataPropertyArrayMaxRows(), Array, KeyForm::Count},
        {Key::UnitType, Definitions::getKeyDataPropertyUnitType(), Array | Column, KeyForm::Text},
        {Key::ModifiedBy, Definitions::getKeyDataPropertyModifiedBy(), Top, KeyForm::FreeText},
        {Key::LastModified, Definitions::getKeyDataPropertyLastModified(), Top, KeyForm::FreeText},
        {Key::Unit, Definitions::getKeyDataPropertyUnit(), measured, KeyForm::FreeText},
        {Key::UnitText, Definitions::getKeyDataPropertyUnitText(), measured, KeyForm::FreeObject},
        {Key::ViewStart, Definitions::getKeyDataPropertyViewStart(), measured, KeyForm::FreeNumber},
        {Key::ViewEnd, Definitions::getKeyDataPropertyViewEnd(), measured, KeyForm::FreeNumber},
    };
}

Rows processRows()
{
    using namespace KeyPlace;
    return {
        {Key::OffsetSharedMemory, Definitions::getKeyDataPropertyOffsetSharedMemory(), ProcessLeaf,
         KeyForm::Count},
        {Key::RelativeOffsetMetadata, Definitions::getKeyDataPropertyRelativeOffsetMetadata(),
         ProcessLeaf, KeyForm::Count},
        {Key::SizeValue, Definitions::getKeyDataPropertySizeValue(), ProcessLeaf, KeyForm::Count},
        {Key::SizeMetadata, Definitions::getKeyDataPropertySizeMetadata(), ProcessLeaf,
         KeyForm::Count},
        {Key::Bitmask, Definitions::getKeyDataPropertyBitmask(), ProcessLeaf, KeyForm::Count},
        {Key::SizeOfSharedMemory, Definitions::getKeyDataPropertySizeOfSharedMemory(), ProcessTop,
         KeyForm::Count},
        {Key::DoubleBuffer, Definitions::getKeyDataPropertyDoubleBuffer(), ProcessTop,
         KeyForm::Flag},
        {Key::KeyProcessDataMemory, Definitions::getStrKeyProcessDataMemory(), ProcessTop,
         KeyForm::Text},
        // Of applications and the tool: the library knows no such key.
        {Key::SelectionList, QStringLiteral("selectionList"), Selector | Column, KeyForm::Any},
    };
}

const Rows &rows()
{
    static const Lasting<Rows> all(elementRows() + configurationRows() + processRows());
    return all.get();
}

using Places = QHash<QByteArray, DescribedKey>;

Places keysByText()
{
    Places keys;
    for (const DescribedKeyRow &row : rows()) {
        keys.insert(row.text.toUtf8(), row.key);
    }
    return keys;
}

} // namespace

const DescribedKeyRow &rowOf(DescribedKey key)
{
    return rows().at(static_cast<int>(key));
}

const QString &textOf(DescribedKey key)
{
    return rowOf(key).text;
}

std::optional<DescribedKey> describedKey(const JsonText::Value &key)
{
    static const Lasting<Places> keys(keysByText());
    if (!key.isPlainText()) {
        const auto row = std::find_if(
            rows().cbegin(), rows().cend(), [&key](const auto &candidate) {
                return key.isKey(QLatin1String(candidate.text.toLatin1()));
            });
        return row == rows().cend() ? std::nullopt : std::make_optional(row->key);
    }
    const QLatin1String text = key.plainText();
    const auto found = keys.get().constFind(QByteArray::fromRawData(text.data(), text.size()));
    return found == keys.get().cend() ? std::nullopt : std::make_optional(*found);
}

QStringList describedKeysIn(unsigned places)
{
    QStringList texts;
    for (const DescribedKeyRow &row : rows()) {
        if ((row.places & places) != 0) {
            texts.append(row.text);
        }
    }
    return texts;
}
