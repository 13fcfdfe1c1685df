#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonValue>

#include <cstddef>
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
///
/// Every level of a tree takes room on the stack, which ends at some depth. What need not stand there
/// while the children are written is done in functions of its own, beside the three that call each
/// other: writeElement(), writeOwnElement() and writeChildren().
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
        /// Of a child, and only until all children of its node are written.
        const QString *key = nullptr;
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

    /// What an element of the library's own classes holds, in the order of the keys.
    struct OwnMembers
    {
        // A copy: what a child of another class does while it is framed is its own affair.
        ConfigurationAndProcessDataBase::PropertyMap properties;
        std::vector<QVariant> values;
        std::vector<Member> members; ///< point into the other two
    };

    void writeElement(const ConfigurationAndProcessDataBase &element, int depth, Stretch &stretch);
    void writeForeignElement(const ConfigurationAndProcessDataBase &element, int depth);
    void writeOwnElement(const ConfigurationAndProcessDataBase &element, int depth,
                         Stretch &stretch);
    static OwnMembers membersOf(const ConfigurationAndProcessDataBase &element);
    static std::vector<QVariant> framedValues(
        const ConfigurationAndProcessDataBase &element,
        const ConfigurationAndProcessDataBase::PropertyMap &properties);
    /// Up to the children or the end; says where that is.
    std::size_t writeValues(const std::vector<Member> &members, std::size_t next, int depth,
                            bool &isFirst);
    void writeChildren(const ConfigurationAndProcessDataBase &node, int depth, Stretch &stretch);
    void beginChildren(const ConfigurationAndProcessDataBase &node, int count, Stretch &stretch);
    /// False, and nothing begun, where the key leads to nothing.
    bool beginChild(ConfigurationAndProcessDataBase::ChildMap::const_iterator child, int depth,
                    Stretch &stretch);
    void endChildren(int depth, Stretch &stretch);
    void appendInOrder(QByteArray &framed, const Stretch &stretch) const;
    QByteArray separator() const;
    void openObject();
    void beginMember(const QString &key, int depth, bool isFirst);
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
