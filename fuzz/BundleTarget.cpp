#include "FuzzTarget.h"
#include "mirror/DescriptionBundle.h"
#include "region/DescriptionTree.h"
#include "service/Refusal.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QSet>
#include <QTemporaryDir>

#include <algorithm>

#include <sanitizer/lsan_interface.h>

// A description that a source on another machine sent becomes files: all of them below the folder that was
// asked for, each as it was sent, or none at all. What is beside that folder stays as it was.
//
// An input is one byte, 'f' for a folder, then names and contents, each with a zero byte behind it. A content that
// begins with "*" and a number is as many blanks, and a name that does stands for as many files.

namespace {

using Contents = QMap<QString, QByteArray>;

constexpr int mostFiles = 40;
constexpr int mostWritten = 3;
constexpr int mostFolders = 64;
const QString key = QStringLiteral("plant");

/// Behind a "*"; 0 if there is none.
int countOf(const QByteArray &text)
{
    return text.startsWith('*') ? std::clamp(text.mid(1).toInt(), 0, 1 << 25) : 0;
}

DescriptionBundle bundleOf(const QByteArray &input)
{
    const QList<QByteArray> pieces = input.mid(1).split('\0');
    DescriptionBundle bundle;
    bundle.isFolder = input.startsWith('f');
    for (int i = 0; i + 1 < std::min(pieces.size(), 2 * mostFiles); i += 2) {
        const int blanks = countOf(pieces[i + 1]);
        const QByteArray content = blanks > 0 ? QByteArray(blanks, ' ') : pieces[i + 1];
        const int files = countOf(pieces[i]);
        for (int number = 0; number < std::min(files, 2000); ++number) {
            bundle.files.append({QStringLiteral("%1.json").arg(number), content});
        }
        if (files == 0) {
            bundle.files.append({QString::fromUtf8(pieces[i]), content});
        }
    }
    return bundle;
}

/// All that is there, folders and links among them.
Contents contentsBelow(const QString &folder)
{
    Contents contents;
    QDirIterator entries(folder,
                         QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QString path = entries.next();
        const QFileInfo entry(path);
        require(!entry.isSymLink(), "no link is made");
        QFile file(path);
        if (!entry.isDir()) {
            require(file.open(QIODevice::ReadOnly), "what is written can be read");
            contents.insert(QDir(folder).relativeFilePath(path), file.readAll());
        }
    }
    return contents;
}

void checkName(const QString &name)
{
    QSet<QString> odd = {QString(), QStringLiteral("."), QStringLiteral("..")};
    const QStringList parts = name.split(QLatin1Char('/'));
    require(parts.size() <= mostFolders && name.endsWith(QLatin1String(".json")),
            "a file is one of a description");
    for (const auto &part : parts) {
        require(!odd.contains(part), "a name leads below its folder");
    }
    for (const QChar one : name) {
        require(one.unicode() >= ' ' && one.unicode() != 0x7F, "a name can be shown");
    }
}

} // namespace

void runInput(const QByteArray &input)
{
    // The parser of the toolkit forgets memory where a key stands twice.
    const __lsan::ScopedDisabler noLeaks;
    const DescriptionBundle bundle = bundleOf(input);
    if (!bundle.problem().isEmpty()) {
        return;
    }
    require(bundle.isFolder || bundle.files.size() == 1, "a file is one");
    Contents sent;
    qint64 size = 0;
    for (const auto &file : bundle.files) {
        checkName(file.name);
        require(!sent.contains(file.name), "each name is there once");
        sent.insert(file.name, file.content);
        size += file.content.size();
    }
    require(sent.size() <= DescriptionBundle::sm_mostFiles
                && size <= DescriptionBundle::sm_mostBytes,
            "there is an end");
    // Each is waited for until it is on the disk.
    if (bundle.files.size() > mostWritten) {
        return;
    }

    const QTemporaryDir place;
    require(place.isValid(), "there is room for a folder");
    QFile neighbour(place.filePath(QStringLiteral("neighbour.json")));
    require(neighbour.open(QIODevice::WriteOnly), "there is room for a file");
    neighbour.close();
    const QString folder = place.filePath(QStringLiteral("copy"));
    bool isWritten = false;
    try {
        const QString path = bundle.write(folder, key);
        isWritten = true;
        require(path == folder || (!bundle.isFolder && path.startsWith(folder + QLatin1Char('/'))),
                "it is told where it is");
        require(DescriptionTree::read(path).key == key, "it describes what was asked for");
    } catch (const Refusal &refusal) {
        require(!refusal.text.isEmpty(), "a refusal has a reason");
    }
    Contents expected{{QStringLiteral("neighbour.json"), {}}};
    for (auto file = sent.cbegin(); isWritten && file != sent.cend(); ++file) {
        expected.insert(QStringLiteral("copy/") + file.key(), file.value());
    }
    require(contentsBelow(place.path()) == expected, "all files are there or none, and no other");
    require(
        QDir(place.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot).size()
            == (isWritten ? 2 : 1),
        "nothing is left beside them");
}
