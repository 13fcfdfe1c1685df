#pragma once

#include "Validation/CheckedFile_p.h"
#include "Validation/ProcessSlot_p.h"

#include <QVector>

#include <memory>

/// A configuration or process description that was looked over alone, with what the rules for a whole folder
/// need of it.
class CheckedDescription
{
public:
    enum class Layout {
        AsWritten, ///< the slots are where the file says
        ByBuild    ///< a build of the folder decides
    };

    CheckedDescription(const QString &path, CheckedFile::Kind kind, const QString &url,
                       Layout layout, Findings &findings);

    const CheckedFile &file() const { return m_file; }
    bool isProcess() const { return m_file.isProcess(); }
    /// Whether the parser takes the file.
    bool isParsed() const { return m_isParsed; }
    /// Whether a build can lay the file out.
    bool canBeBuilt() const { return m_isParsed && m_canBeBuilt; }
    /// Only of a file that is parsed.
    const CheckedElement &root() const { return *m_root; }
    /// Of a process description, in the order of the text.
    const QVector<ProcessSlot> &processSlots() const { return m_slots; }

private:
    void checkElement(const CheckedElement &element, bool isRoot);
    void checkNode(const CheckedElement &node);
    void checkChild(const JsonText::Value &key, const JsonText::Value &child, const QString &url);
    void checkLeaf(const CheckedElement &leaf);
    void checkProcessLeaf(const CheckedElement &leaf);
    void checkRoot();

    CheckedFile m_file;
    Layout m_layout;
    bool m_isParsed = false;
    bool m_canBeBuilt = true;
    bool m_hasLeaf = false;
    std::unique_ptr<CheckedElement> m_root;
    QVector<ProcessSlot> m_slots;
};
