#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "FuzzTarget.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QTemporaryDir>

#include <algorithm>

#include <sanitizer/lsan_interface.h>

// A folder of descriptions from anybody, with folders and links in it, is read and laid out, or refused; nothing
// outside of it is touched.
//
// An input is a row of names and contents, each with a zero byte behind it. A content that begins with "->" makes a
// link to the name behind that.

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Element = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

const int largestCount = 8;
const int deepest = 4;
const int longestName = 60;
const QByteArray linkMark = QByteArrayLiteral("->");

/// The names of @p path, none of which leads out of the folder.
QStringList namesOf(const QByteArray &path)
{
    QStringList names;
    for (const QByteArray &piece : path.split('/')) {
        const QString name = QFile::decodeName(piece.left(longestName));
        if (!name.isEmpty() && name != QLatin1String(".") && name != QLatin1String("..")
            && names.size() < deepest) {
            names.append(name);
        }
    }
    return names;
}

void makeEntry(const QDir &folder, const QByteArray &path, const QByteArray &content)
{
    const QStringList names = namesOf(path);
    if (names.isEmpty()) {
        return;
    }
    const QString inside = names.mid(0, names.size() - 1).join(QLatin1Char('/'));
    if (!inside.isEmpty()) {
        folder.mkpath(inside);
    }
    const QString place = folder.filePath(names.join(QLatin1Char('/')));
    if (content.startsWith(linkMark)) {
        const QStringList target = namesOf(content.mid(linkMark.size()));
        QFile::link(folder.filePath(target.join(QLatin1Char('/'))), place);
        return;
    }
    QFile file(place);
    if (!QFileInfo(place).isSymLink() && file.open(QIODevice::WriteOnly)) {
        file.write(content);
    }
}

void makeFolder(const QDir &folder, const QByteArray &input)
{
    const QList<QByteArray> pieces = input.split('\0');
    const int count = std::min(pieces.size() / 2, largestCount);
    for (int i = 0; i < count; ++i) {
        makeEntry(folder, pieces.at(2 * i), pieces.at(2 * i + 1));
    }
}

/// What each file holds, those that links lead to once.
QMap<QString, QByteArray> contentsBelow(const QString &folder)
{
    QMap<QString, QByteArray> contents;
    QDirIterator files(folder, QDir::Files | QDir::Hidden | QDir::NoSymLinks,
                       QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        contents.insert(file.fileName(),
                        file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
    }
    return contents;
}

void checkReading(const QString &folder)
{
    const QMap<QString, QByteArray> before = contentsBelow(folder);
    const QString text = Access::getConfiguration(QFileInfo(folder));
    require(Access::getConfiguration(QFileInfo(folder)) == text, "a folder reads the same twice");
    Element root;
    Access::parseProcessDir(root, QFileInfo(folder));
    bool isDouble = false;
    int size = 0;
    QString key;
    Access::getSharedMemoryInfoFromDir(QFileInfo(folder), isDouble, size, key);
    require(contentsBelow(folder) == before, "who reads a folder changes nothing in it");
}

void checkBuilding(const QString &folder)
{
    const ProcessDataBuilder builder;
    QString key;
    if (!builder.buildProcessDataFromDir(QStringLiteral("fuzz"), folder, key)) {
        return;
    }
    // A root that cannot take size and key ends the writing, which is no failure.
    bool isDouble = false;
    int size = 0;
    QString kept;
    if (!Access::getSharedMemoryInfoFromDir(QFileInfo(folder), isDouble, size, kept)
        || kept != key) {
        return;
    }
    const QMap<QString, QByteArray> built = contentsBelow(folder);
    QString same;
    require(builder.buildProcessDataFromDir(QStringLiteral("fuzz"), folder, same),
            "what was built can be built again");
    require(same == key, "the key stays");
    require(contentsBelow(folder) == built, "a second build changes nothing");
}

} // namespace

void runInput(const QByteArray &input)
{
    // The parser of the toolkit forgets memory where a key stands twice.
    const __lsan::ScopedDisabler noLeaks;
    const QTemporaryDir place;
    require(place.isValid(), "there is room for a folder");
    const QDir around(place.path());
    around.mkdir(QStringLiteral("folder"));
    QFile neighbour(around.filePath(QStringLiteral("neighbour.process.json")));
    require(neighbour.open(QIODevice::WriteOnly), "there is room for a file");
    neighbour.write("{}");
    neighbour.close();
    const QString folder = around.filePath(QStringLiteral("folder"));
    makeFolder(QDir(folder), input);

    checkReading(folder);
    checkBuilding(folder);

    require(around.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).size() == 2,
            "nothing is made beside the folder");
    require(neighbour.open(QIODevice::ReadOnly) && neighbour.readAll() == "{}",
            "nothing is changed beside the folder");
}
