#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "Configuration/TextDigest_p.h"

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
///
/// Of a text its digest is kept: the texts of a large device take a quarter of what its tree does.
class ParsedDescriptions
{
public:
    using Tree = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
    /// What a document is made of.
    struct Source
    {
        QString postfix;
        QByteArray text;
    };
    /// Whether sourceOf() is asked.
    enum class Texts : quint8 { Dropped, Kept };

    /// Becomes the current one of this thread, unless there is one already.
    explicit ParsedDescriptions(Texts texts = Texts::Dropped);
    ~ParsedDescriptions();

    /// Null outside of any such operation.
    static ParsedDescriptions *current();

    /// The tree of @p text, made by @p parse where none was put back.
    template <class Parse>
    Tree treeOf(const QByteArray &text, const QString &postfix, const Parse &parse)
    {
        const Mark mark(postfix, TextDigest::of(text));
        Tree tree = m_returned.take(mark);
        if (tree.isNull()) {
            m_isRepeatable = true;
            tree = parse();
            // Asked now, as the parsing of one document may lead to that of another.
            if (!std::exchange(m_isRepeatable, false) || tree.isNull()) {
                return tree;
            }
        }
        noteOrigin(tree, {mark, m_texts == Texts::Kept ? text : QByteArray()});
        return tree;
    }

    /// Called while a document is parsed: a second time would be seen, by a message or by a class
    /// that is not of the library.
    static void noteWhatCanBeSeen();

    /// Ends the use of @p tree, which nobody changed. Nothing happens outside of any such operation.
    static void putBack(const Tree &tree);

    /// What @p tree, which was parsed meanwhile, can be made of once more without anybody seeing it.
    /// Nothing for any other, or where texts are dropped.
    std::optional<Source> sourceOf(const Tree &tree) const;

private:
    Q_DISABLE_COPY(ParsedDescriptions)

    /// Postfix and text of a document.
    using Mark = QPair<QString, TextDigest>;
    struct Origin
    {
        Mark mark;
        QByteArray text; ///< null where texts are dropped
    };

    /// Null if @p tree was not parsed meanwhile.
    const Origin *originOf(const Tree &tree) const;
    void noteOrigin(const Tree &tree, const Origin &origin);

    /// Of the trees in use. Weak, as an element may lie where one that is gone lay before.
    QHash<const ConfigurationAndProcessDataBase *,
          QPair<QWeakPointer<ConfigurationAndProcessDataBase>, Origin>>
        m_origins;
    QMultiHash<Mark, Tree> m_returned;
    Texts m_texts;
    bool m_isRepeatable = false;
};
