#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QJsonObject>
#include <QJsonValue>

#include <vector>

/// The keys and the common texts of the elements that were framed last, as a form for the next one.
///
/// Elements beside each other mostly have the same keys. A copy of an object that has them, with
/// the values put into their places, costs a fraction of one that grows key by key. The form holds
/// only texts that no element since has had another one for: what is replaced in a JSON object
/// keeps its room, so a long text in the form would be carried by every element after it. While one
/// of these is alive on a thread, the elements framed there use it. It ends with the outermost call
/// that frames a tree.
class FramedShape
{
public:
    using PropertyMap = ConfigurationAndProcessDataBase::PropertyMap;

    /// Becomes the current one of this thread, unless there is one already.
    FramedShape();
    ~FramedShape();

    /// Null outside of any framing.
    static FramedShape *current();

    /// Makes @p json of @p properties, whose values in the form of a description are @p values, in
    /// the same order.
    void fill(QJsonObject &json, const PropertyMap &properties,
              const std::vector<QVariant> &values);

private:
    Q_DISABLE_COPY(FramedShape)

    struct Member
    {
        QString key;
        /// In all elements so far; invalid where they differ, and for what is no text.
        QVariant text;
        /// In the order of the JSON object.
        int index;
    };

    bool fits(const PropertyMap &properties) const;
    void note(const PropertyMap &properties, const std::vector<QVariant> &values);
    bool fillForm(QJsonObject &json, const std::vector<QVariant> &values);
    /// Whether there was anything to blank.
    bool blankWhatDiffers(const std::vector<QVariant> &values);
    void makeForm();

    /// Empty while only one element had these keys. Null where the elements differ.
    QJsonObject m_form;
    /// In the order in which the element iterates over its properties.
    std::vector<Member> m_members;
};
