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
///
/// A text is written once, where its element comes in turn, and copied once, to where its key
/// belongs, however deep the tree is.
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
    /// What is written of an element, or of a child with its key, in m_text.
    struct Stretch
    {
        int begin = 0;
        /// The children lie between these two, in the order in which they were framed.
        int childrenBegin = 0;
        int childrenEnd = 0;
        int end = 0;
        /// In the order of their keys.
        std::vector<Stretch> children;
    };

    struct Member
    {
        const QString *key;
        /// Null for the children of a node.
        const QVariant *value;
    };

    Stretch writeElement(const ConfigurationAndProcessDataBase &element, int depth);
    void writeOwnElement(const ConfigurationAndProcessDataBase &element, int depth,
                         Stretch &stretch);
    static std::vector<QVariant> framedValues(
        const ConfigurationAndProcessDataBase &element,
        const ConfigurationAndProcessDataBase::PropertyMap &properties);
    void writeChildren(const ConfigurationAndProcessDataBase &node, int depth, Stretch &stretch);
    void appendInOrder(QByteArray &framed, const Stretch &stretch) const;
    QByteArray separator() const;
    void writeKey(const QString &key, int depth);
    void closeObject(bool isEmpty, int depth);

    /// False, and nothing written, for a value that JSON does not know.
    bool writeVariant(const QVariant &value, int depth);
    void writeText(const QString &text);
    void writeByToolkit(const QJsonValue &value, int depth);

    bool m_isCompact;
    /// The children of a node stand in it in the order of the hash, in which their messages come.
    /// No separators stand between them.
    QByteArray m_text;
    /// Of the separators that are still to come.
    int m_separatorsSize = 0;
};
