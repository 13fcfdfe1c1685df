#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QByteArray>
#include <QHash>
#include <QPair>
#include <QString>
#include <QWeakPointer>

#include <optional>
#include <utility>

/// Trees that one operation on a directory parsed and is done with, for its next walk over the same
/// files.
///
/// A start on a directory goes over its files two or three times. While one of these is alive on a
/// thread, each walk reads every file, and a text that is byte for byte one that was parsed before
/// gets the tree back that was made of it, instead of a second one like it. Only whole trees of the
/// library's own classes come back, whose parsing said nothing in the log: nobody can tell them from
/// new ones. It ends with the outermost operation, so that nothing is kept from one to the next.
class ParsedDescriptions
{
public:
    using Tree = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
    /// Postfix and text of a document.
    using Source = QPair<QString, QByteArray>;

    /// Becomes the current one of this thread, unless there is one already.
    ParsedDescriptions();
    ~ParsedDescriptions();

    /// Null outside of any such operation.
    static ParsedDescriptions *current();

    /// The tree of @p text, made by @p parse where none was put back.
    template <class Parse>
    Tree treeOf(const QByteArray &text, const QString &postfix, const Parse &parse)
    {
        const Source source(postfix, text);
        Tree tree = m_returned.take(source);
        if (tree.isNull()) {
            m_isRepeatable = true;
            tree = parse();
            // Asked now, as the parsing of one document may lead to that of another.
            if (!std::exchange(m_isRepeatable, false) || tree.isNull()) {
                return tree;
            }
        }
        noteSource(tree, source);
        return tree;
    }

    /// Called while a document is parsed: a second time would be seen, by a message or by a class
    /// that is not of the library.
    static void noteWhatCanBeSeen();

    /// Ends the use of @p tree, which nobody changed. Nothing happens outside of any such operation.
    static void putBack(const Tree &tree);

    /// What @p tree, which was parsed meanwhile, can be made of once more without anybody seeing it.
    /// Nothing for any other.
    std::optional<Source> sourceOf(const Tree &tree) const;

private:
    Q_DISABLE_COPY(ParsedDescriptions)

    void noteSource(const Tree &tree, const Source &source);

    /// Of the trees in use. Weak, as an element may lie where one that is gone lay before.
    QHash<const ConfigurationAndProcessDataBase *,
          QPair<QWeakPointer<ConfigurationAndProcessDataBase>, Source>>
        m_sources;
    QMultiHash<Source, Tree> m_returned;
    bool m_isRepeatable = false;
};
