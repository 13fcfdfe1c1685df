#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonValue>

#include <vector>

/// The text of a tree, byte for byte the one that QJsonDocument makes of its JSON object.
///
/// The toolkit has no way to fill a JSON object with many members at once, and to fill it took longer
/// than to write it. Here the elements of the library's own classes are written as they stand. Whole
/// numbers, Booleans and plain texts are written at once; every other value, every text that wants
/// an escape, and every element of another class is given to the toolkit.
class FramedText
{
public:
    explicit FramedText(QJsonDocument::JsonFormat format)
        : m_isCompact(format == QJsonDocument::Compact)
    {
    }

    /// Says in the log what getContentAsQJsonObject() says, in the same order.
    QByteArray frame(const ConfigurationAndProcessDataBase &root);

private:
    /// A stretch of m_values.
    struct Member
    {
        QString key;
        int begin = 0;
        int end = 0;
    };

    void writeElement(const ConfigurationAndProcessDataBase &element, int depth);
    void writeOwnElement(const ConfigurationAndProcessDataBase &element, int depth);
    void writeProperties(const ConfigurationAndProcessDataBase &element, int depth,
                         std::vector<Member> &members);
    void writeChildren(const ConfigurationAndProcessDataBase &node, int depth);
    /// Puts the members, all that was written from @p begin on, into an object.
    void closeObject(std::vector<Member> &members, int begin, int depth);

    /// False, and nothing written, for a value that JSON does not know.
    bool writeVariant(const QVariant &value, int depth);
    void writeText(const QString &text);
    void writeByToolkit(const QJsonValue &value, int depth);

    bool m_isCompact;
    QByteArray m_text;
};
