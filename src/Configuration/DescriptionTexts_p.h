#pragma once

#include "Companion/JsonText_p.h"
#include "Configuration/PropertyKinds_p.h"

#include <QSet>
#include <QString>
#include <QVariant>

#include <utility>
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

/// The texts that the elements of one description, or of the files of one directory, have in common.
///
/// Ten thousand leaves have the same dozen keys, and mostly the same unit and type. The next file of a
/// device has the same leaves once more. While one of these is alive on a thread, the elements made
/// there share the characters of such texts instead of holding copies. It ends with the outermost call
/// that makes elements, so nothing is kept from one to the next.
///
/// A text is compared with the ones that stood at its place before, and not looked for among all: that
/// would take longer than to make it.
class DescriptionTexts
{
public:
    /// Becomes the current one of this thread, unless there is one already.
    DescriptionTexts();
    ~DescriptionTexts();

    /// Null outside of any description.
    static DescriptionTexts *current();

    /// The children of one node, as long as they are made.
    class Children
    {
    public:
        explicit Children(DescriptionTexts &texts) : m_texts(texts), m_depth(texts.m_depth++) { }
        ~Children() { --m_texts.m_depth; }

        /// Begins with the next child. Gives its key.
        QString next(const JsonText::Value &key);
        /// The same for a key of a JSON object.
        QString next(const QString &key);

    private:
        Q_DISABLE_COPY(Children)

        DescriptionTexts &m_texts;
        std::size_t m_depth;
        std::size_t m_number = 0;
    };

    /// A text that is read, in the block of the one before it. Another may be read meanwhile.
    class Reading
    {
    public:
        explicit Reading(DescriptionTexts &texts)
            : m_texts(texts)
            , m_text(std::move(texts.m_formerText))
        {
        }
        ~Reading()
        {
            m_text.clear();
            m_texts.m_formerText = std::move(m_text);
        }

        JsonText &text() { return m_text; }

    private:
        Q_DISABLE_COPY(Reading)

        DescriptionTexts &m_texts;
        JsonText m_text;
    };

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
    /// The shapes for all keys of the element since its begin. Another element may begin before this one
    /// has its properties.
    PropertyKinds &endElement();

private:
    Q_DISABLE_COPY(DescriptionTexts)

    struct Property
    {
        PropertyKey key;
        QString lastText;
        /// Those under this key in the children with the same number.
        std::vector<QString> *textsOfChildren;
    };

    void shareValue(QVariant &value);
    Property propertyUnder(const QString &key);
    /// Lets @p text share the characters of an equal one at place @p number, else puts it there.
    static QString sharedAt(std::vector<QString> &texts, std::size_t number, const QString &text);
    QStringList keysOfElement() const;

    JsonText m_formerText;
    std::vector<Property> m_properties;
    std::size_t m_index = 0;
    /// The places of the properties that were left out.
    std::vector<std::size_t> m_leftOut;
    /// Of the element before, and how many keys it had. Null if a key has changed since.
    PropertyKinds *m_kinds = nullptr;
    std::size_t m_kindsCount = 0;
    std::vector<std::size_t> m_kindsLeftOut;
    // A hash of this kind never moves what it holds.
    QHash<QStringList, PropertyKinds> m_kindsOfKeys;
    QSet<QString> m_texts;
    /// By key.
    QHash<QString, std::vector<QString>> m_textsOfChildren;
    /// The keys in the nodes of each depth.
    std::vector<std::vector<QString>> m_childKeys;
    std::size_t m_depth = 0;
    /// Of the element in its node.
    std::size_t m_number = 0;
};
