#include "ProcessDataManagement/LayoutLeaf_p.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "Validation/FolderRules_p.h"
#include "Validation/SlotRules_p.h"
#include "Validation/ValueShown_p.h"

#include <QSet>

#include <algorithm>

namespace {

using Descriptions = CheckedFolder::Descriptions;
using Key = DescribedKey;
using Record = ProcessDataBuilder::SharedMemoryData;

QString textValue(const CheckedElement &root, Key key)
{
    return root.has(key) ? root.value(key).toVariant().toString() : QString();
}

QString memoryKey(const CheckedElement &root)
{
    return textValue(root, Key::KeyProcessDataMemory);
}

/// The first one that is parsed, to which the others are compared.
const CheckedDescription *referenceOf(const Descriptions &descriptions)
{
    const auto found = std::find_if(descriptions.begin(), descriptions.end(),
                                    [](const auto &one) { return one->isParsed(); });
    return found == descriptions.end() ? nullptr : found->get();
}

bool differs(const CheckedElement &one, const CheckedElement &other, Key key)
{
    if (!one.has(key) || !other.has(key)) {
        return false; // Reported by the rules for a build.
    }
    switch (key) {
    case Key::DoubleBuffer: return one.flag(key) != other.flag(key);
    case Key::SizeOfSharedMemory: return one.count(key) != other.count(key);
    default: return textValue(one, key) != textValue(other, key);
    }
}

void checkAgreement(const CheckedDescription &reference, const CheckedDescription &description)
{
    const auto keys = {Key::DoubleBuffer, Key::SizeOfSharedMemory, Key::KeyProcessDataMemory};
    const CheckedElement &root = description.root();
    for (const Key key : keys) {
        if (differs(reference.root(), root, key)) {
            root.report(Rule::FilesDisagree, key,
                        QStringLiteral("'%1' is %2, and in %3 it is %4")
                            .arg(textOf(key), shown(root.file(), root.value(key)),
                                 quoted(reference.file().path()),
                                 shown(reference.file(), reference.root().value(key))));
        }
    }
}

/// What a build makes of the files, without writing any.
class PlannedBuild
{
public:
    explicit PlannedBuild(const CheckedFolder &folder)
        : m_folder(folder)
        , m_path(QFileInfo(folder.path()).canonicalFilePath())
    {
    }

    /// One file after the other, as a build goes on where the one before ended: no tree stays for long.
    void check(const CheckedDescription &reference)
    {
        for (const auto &description : m_folder.processDescriptions()) {
            QVector<Record> records;
            const QFileInfo file(description->file().path());
            if (!m_builder.updateOffsetFromDir({file}, m_size, records) || records.isEmpty()) {
                return;
            }
            if (records.constFirst().modified) {
                checkOffsets(*description, records.constFirst());
            }
            if (m_first.isEmpty()) {
                m_first = records;
            }
        }
        checkMemoryKey(reference.root());
        for (const auto &description : m_folder.processDescriptions()) {
            checkSize(reference.root(), description->root());
        }
    }

private:
    void checkMemoryKey(const CheckedElement &root) const
    {
        QString key;
        const QString former = memoryKey(root);
        const bool isMade = m_builder.getSharedMemoryKeyForDir({}, m_path, m_first, key);
        if (isMade && key != former) {
            root.report(Rule::BuildChangesKey, Key::KeyProcessDataMemory,
                        QStringLiteral("a build does not keep %1").arg(quoted(former)));
        } else if (!former.isEmpty()) {
            SlotRules::checkMemoryKey(root);
        }
    }

    void checkSize(const CheckedElement &reference, const CheckedElement &root) const
    {
        // A file that disagrees is told of already.
        if (root.count(Key::SizeOfSharedMemory) != static_cast<quint32>(m_size)
            && !differs(reference, root, Key::SizeOfSharedMemory)) {
            root.report(Rule::BuildChangesSize, Key::SizeOfSharedMemory,
                        QStringLiteral("a build changes it from %1 to %2")
                            .arg(root.count(Key::SizeOfSharedMemory))
                            .arg(m_size));
        }
    }

    /// One problem a file, at the first leaf that moves.
    static void checkOffsets(const CheckedDescription &description, const Record &record)
    {
        QHash<QString, quint32> offsets;
        for (const LayoutLeaf &leaf : layoutLeavesOf(record.root)) {
            const QString url = QString::fromUtf8(leaf.url);
            offsets.insert(CheckedFile::childUrl(description.file().url(), url), leaf.offset);
        }
        const ProcessSlot *first = nullptr;
        int moved = 0;
        for (const ProcessSlot &slot : description.processSlots()) {
            const bool isMoved = offsets.value(slot.url, slot.offset) != slot.offset;
            first = isMoved && first == nullptr ? &slot : first;
            moved += isMoved ? 1 : 0;
        }
        if (first != nullptr) {
            description.root().file().report(
                Rule::BuildChangesOffset, first->offsetAt, first->url,
                QStringLiteral("a build moves %1 values of this file, this one from "
                               "byte %2 to %3")
                    .arg(moved)
                    .arg(first->offset)
                    .arg(offsets.value(first->url)));
        }
    }

    const CheckedFolder &m_folder;
    QString m_path;
    ProcessDataBuilder m_builder;
    /// Of the first file, whose key counts.
    QVector<Record> m_first;
    int m_size = 0;
};

bool isWithin(const QString &path, const QString &folder)
{
    return path == folder || path.startsWith(folder + QLatin1Char('/'));
}

} // namespace

void FolderRules::check(const CheckedFolder &folder)
{
    const Descriptions &descriptions = folder.processDescriptions();
    const CheckedDescription *const reference = referenceOf(descriptions);
    if (reference == nullptr) {
        return;
    }
    for (const auto &description : descriptions) {
        if (description->isParsed()) {
            checkAgreement(*reference, *description);
        }
    }
    if (std::all_of(descriptions.begin(), descriptions.end(),
                    [](const auto &one) { return one->canBeBuilt(); })) {
        PlannedBuild(folder).check(*reference);
    }
}

void FolderRules::checkKeys(const std::vector<std::unique_ptr<CheckedFolder>> &folders)
{
    QHash<QString, const CheckedFolder *> owners;
    for (const auto &folder : folders) {
        const CheckedDescription *const first = referenceOf(folder->processDescriptions());
        const QString key = first == nullptr ? QString() : memoryKey(first->root());
        if (key.isEmpty()) {
            continue;
        }
        const CheckedFolder *&owner = owners[key];
        if (owner == nullptr) {
            owner = folder.get();
            continue;
        }
        const QString path = QFileInfo(folder->path()).canonicalFilePath();
        const QString other = QFileInfo(owner->path()).canonicalFilePath();
        // Parts of one device have one key.
        if (!isWithin(path, other) && !isWithin(other, path)) {
            first->root().report(Rule::SameKey, Key::KeyProcessDataMemory,
                                 QStringLiteral("%1 is the key of %2 as well")
                                     .arg(quoted(key), quoted(owner->path())));
        }
    }
}
