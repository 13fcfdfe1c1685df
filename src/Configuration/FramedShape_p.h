#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QJsonObject>
#include <QJsonValue>

#include <vector>

/// The JSON object of the element that was framed last, as a start for the next one.
///
/// Elements beside each other mostly have the same keys. A copy of such an object, with other
/// values put into their places, costs a fraction of one that grows key by key. While one of these
/// is alive on a thread, the elements framed there use it. It ends with the outermost call that
/// frames a tree.
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
        QVariant value;
        /// In the order of the JSON object.
        int index;
    };

    bool fits(const PropertyMap &properties) const;
    bool fillFromLast(QJsonObject &json, const std::vector<QVariant> &values);
    void noteKeys(const PropertyMap &properties);
    void remember(const QJsonObject &json, const std::vector<QVariant> &values);

    /// Empty while only the keys are known.
    QJsonObject m_json;
    /// In the order in which the element iterates over its properties.
    std::vector<Member> m_members;
};
