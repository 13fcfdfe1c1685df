#pragma once

#include "Companion/JsonText_p.h"
#include "Configuration/PropertyRecord_p.h"

#include <QSet>
#include <QString>
#include <QVariant>

#include <vector>

/// The key of a property, and what an element has to know of it.
struct PropertyKey
{
    explicit PropertyKey(const QString &key);

    /// What isHeldInDataType would be for @p key.
    static bool isHeldInDataTypeUnder(const QString &key);

    QString text;
    bool isType;
    bool isValue;
    /// Whether the property is held in the data type of its element: the value and its limits.
    bool isHeldInDataType;
};

/// The texts that the elements of one description have in common.
///
/// Ten thousand leaves have the same dozen keys, and mostly the same unit and type. While one of
/// these is alive on a thread, the elements made there share the characters of such texts instead
/// of holding copies. It ends with the outermost call that makes elements of a description, so
/// nothing is kept from one description to the next.
class DescriptionTexts
{
public:
    /// Becomes the current one of this thread, unless there is one already.
    DescriptionTexts();
    ~DescriptionTexts();

    /// Null outside of any description.
    static DescriptionTexts *current();

    /// Begins with the properties of another element.
    void beginElement();
    /// The next property of the element. Elements beside each other have the same keys in the same
    /// order as a rule, so that the one at the same place is tried first.
    const PropertyKey &nextKey(const QString &key);
    /// The same for a key of a text that is read.
    const PropertyKey &nextKey(const JsonText::Value &key);
    /// The value of this property, which shares the characters of an equal text.
    QVariant valueOf(const QJsonValue &value);
    /// The same for a text that is read.
    QVariant valueOf(const JsonText::Value &value);
    /// Tells that the property whose key came last is none of the element.
    void leaveOut();
    /// All keys of the element since its begin. Another element may begin before this one has its
    /// properties.
    PropertyRecord::Shape endElement();

private:
    Q_DISABLE_COPY(DescriptionTexts)

    struct Property
    {
        PropertyKey key;
        QString lastText;
    };

    void shareValue(QVariant &value);
    QStringList keysOfElement() const;

    std::vector<Property> m_properties;
    std::size_t m_index = 0;
    /// The places of the properties that were left out.
    std::vector<std::size_t> m_leftOut;
    /// Of the element before, and how many keys it had. Null if a key has changed since.
    PropertyRecord::Shape m_shape;
    std::size_t m_shapeCount = 0;
    std::vector<std::size_t> m_shapeLeftOut;
    QHash<QStringList, PropertyRecord::Shape> m_shapes;
    QSet<QString> m_texts;
};
