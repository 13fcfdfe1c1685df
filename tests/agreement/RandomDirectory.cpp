#include "agreement/RandomDirectory.h"

#include "ProcessDataManagement/DescriptionDirectory.h"
#include "support/WorkingDirectory.h"

#include <sys/stat.h>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

const QString top = QStringLiteral(".");

QString below(const QString &folder, const QString &name)
{
    return folder == top ? name : folder + '/' + name;
}

QByteArray textOf(const QJsonObject &json)
{
    return QJsonDocument(json).toJson();
}

void setMode(const QString &path, int mode)
{
    ::chmod(QFile::encodeName(path).constData(), static_cast<mode_t>(mode));
}

} // namespace

RandomDirectory::RandomDirectory(quint32 seed, Oddities oddities, const QString &memoryKey)
    : m_random(seed)
    , m_oddities(oddities)
    , m_memoryKey(memoryKey)
    , m_isInOrder(m_random.once(2))
    , m_kinds(m_random.below(3))
    , m_hasDoubleBuffer(m_random.once(2))
{
    m_folders.append(top);
    fill(top, 3);
}

void RandomDirectory::writeTo(const QString &path) const
{
    makeDirectory(path);
    for (const Entry &entry : m_entries) {
        const QString entryPath = path + '/' + entry.path;
        switch (entry.kind) {
        case Kind::File: writeFile(entryPath, entry.content); break;
        case Kind::Folder: makeDirectory(entryPath); break;
        case Kind::Link: makeLink(entryPath, QFile::decodeName(entry.content)); break;
        case Kind::Pipe: ::mkfifo(QFile::encodeName(entryPath).constData(), 0600); break;
        }
    }
    for (auto entry = m_entries.crbegin(); entry != m_entries.crend(); ++entry) {
        if (entry->mode != 0) {
            setMode(path + '/' + entry->path, entry->mode);
        }
    }
}

void RandomDirectory::releaseAt(const QString &path) const
{
    for (const Entry &entry : m_entries) {
        if (entry.mode != 0) {
            setMode(path + '/' + entry.path, 0700);
        }
    }
}

bool RandomDirectory::add(const Entry &entry)
{
    if (m_taken.contains(entry.path)) {
        return false;
    }
    m_taken.insert(entry.path);
    m_entries.append(entry);
    if (entry.kind != Kind::Folder) {
        m_files.append(entry.path);
    }
    return true;
}

void RandomDirectory::fill(const QString &folder, int depth)
{
    if (m_random.once(2)) {
        addFolderDescription(folder);
    }
    for (int i = m_random.below(6); i > 0; --i) {
        const int kind = m_random.below(10);
        if (kind < 3 && depth > 0) {
            addFolder(folder, depth);
        } else if (kind == 3) {
            addLink(folder, depth);
        } else if (kind == 4 && m_oddities == Oddities::NoFiles) {
            addPipe(folder);
        } else {
            addDescription(folder);
        }
    }
}

void RandomDirectory::addFolder(const QString &parent, int depth)
{
    const QString name = odd(8) ? stem() + ending() : stem();
    const QString path = below(parent, name);
    if (!add({Kind::Folder, path, {}, odd(15) ? 0555 : 0})) {
        return;
    }
    m_folders.append(path);
    if (!m_random.once(5)) {
        fill(path, depth - 1);
    }
}

void RandomDirectory::addFolderDescription(const QString &folder)
{
    const QString path = below(folder, QStringLiteral("folder.json"));
    if (odd(10)) {
        add({Kind::Folder, path, {}});
        return;
    }
    QJsonObject json;
    for (const QString &key : {Definitions::getKeyDataPropertyLabelTextId(),
                               Definitions::getKeyDataPropertyCpveVersion(),
                               Definitions::getKeyDataPropertyConfigurationVersion()}) {
        if (!m_random.once(3)) {
            json.insert(key, QJsonValue::fromVariant(m_random.once(2) ? m_random.value()
                                                                      : m_random.text()));
        }
    }
    static const QList<QByteArray> wrong{"", "{", "[1]", "7", "null", "[{\"a\":1}]", "{}\n{}"};
    add({Kind::File, path, odd(4) ? m_random.pick(wrong) : textOf(json), odd(15) ? 0200 : 0});
}

void RandomDirectory::addDescription(const QString &folder)
{
    const QString name = odd(15) ? '.' + stem() + ending() : stem() + ending();
    const bool isConfiguration = name.endsWith(QLatin1String("config.json"));
    if (odd(12) && !m_entries.isEmpty()) {
        // The same text once more.
        const Entry other = m_random.pick(m_entries);
        if (other.kind == Kind::File) {
            add({Kind::File, below(folder, name), other.content});
            return;
        }
    }
    const QByteArray text = isConfiguration ? configuration() : processDescription();
    const int mode = odd(25) ? (m_random.once(2) ? 0444 : 0200) : 0;
    add({Kind::File, below(folder, name), odd(10) ? spoilt(text) : text, mode});
}

void RandomDirectory::addLink(const QString &folder, int depth)
{
    const QString path = below(folder, stem() + ending());
    const bool isOutside = folder.startsWith(QLatin1String("../"));
    const int levels = folder == top ? 0 : folder.count('/') + (isOutside ? 0 : 1);
    const QString upwards = QStringLiteral("../").repeated(levels) + (isOutside ? "device/" : "");
    const auto link = [&](const QString &target) {
        add({Kind::Link, path, QFile::encodeName(upwards + target)});
    };
    if (m_oddities == Oddities::NoFiles && m_random.once(2)) {
        static const QStringList devices{"/dev/null", "/dev/zero", "/dev/full"};
        add({Kind::Link, path, QFile::encodeName(m_random.pick(devices))});
    } else if (m_oddities == Oddities::LinksToFiles && !m_files.isEmpty() && !m_random.once(4)) {
        link(m_random.pick(m_files));
    } else if (m_oddities == Oddities::LinksToDirectories && !m_random.once(4)) {
        const bool leadsOutside = m_random.once(4) && depth > 0;
        const QString outside = QStringLiteral("../outside%1").arg(m_random.below(2));
        if (leadsOutside && add({Kind::Folder, outside, {}})) {
            fill(outside, 1);
        }
        const QString name = below(folder, stem());
        add({Kind::Link, name,
             QFile::encodeName(upwards + (leadsOutside ? outside : m_random.pick(m_folders)))});
    } else if (m_random.once(3)) {
        link(QStringLiteral("nowhere"));
    } else {
        const QString target = QStringLiteral("../beside/%1").arg(m_entries.size());
        const bool isConfiguration = path.endsWith(QLatin1String("config.json"));
        add({Kind::File, target, isConfiguration ? configuration() : processDescription()});
        m_files.removeLast();
        link(target);
    }
}

void RandomDirectory::addPipe(const QString &folder)
{
    const bool isFolderDescription = m_random.once(4);
    add({Kind::Pipe,
         below(folder, isFolderDescription ? QStringLiteral("folder.json") : stem() + ending()),
         {}});
}

QString RandomDirectory::stem()
{
    // The last two stand in one order by code point and in the other by UTF-16 unit.
    static const QStringList stems{"a",
                                   "b",
                                   "A",
                                   "B",
                                   "main",
                                   "ae",
                                   "a b",
                                   "a-b",
                                   "1",
                                   "10",
                                   "\u00e4",
                                   "\uff21",
                                   QString::fromUtf8("\xf0\x9d\x90\x80")};
    const QString stem = m_random.pick(stems);
    return odd(10) ? stem + QStringLiteral(".more") : stem;
}

QString RandomDirectory::ending()
{
    static const QStringList endings{".json",
                                     ".Config.json",
                                     "config.json",
                                     "process.json",
                                     ".config.json~",
                                     ".txt",
                                     "",
                                     ".config",
                                     ".process.json.config.json"};
    if (odd(6)) {
        return m_random.pick(endings);
    }
    const bool isConfiguration = m_kinds == 2 ? m_random.once(2) : m_kinds == 0;
    return isConfiguration ? QStringLiteral(".config.json") : QStringLiteral(".process.json");
}

QByteArray RandomDirectory::configuration()
{
    QJsonObject json = m_random.description();
    if (!m_random.once(4)) {
        json.insert(Definitions::getKeyDataPropertyModifiedBy(), m_random.once(2) ? "" : "Panel");
    }
    if (!m_random.once(4)) {
        json.insert(Definitions::getKeyDataPropertyLastModified(), "");
    }
    if (odd(6)) {
        json.insert(Definitions::getKeyDataPropertySchemeVersion(), m_random.below(3));
    }
    if (odd(20)) {
        json = QJsonObject{{"type", "int32"}, {"value", 7}};
    }
    return textOf(json);
}

QByteArray RandomDirectory::processDescription()
{
    QJsonObject json = processNode(2);
    json.insert(Definitions::getKeyDataPropertyDoubleBuffer(),
                odd(10) ? !m_hasDoubleBuffer : m_hasDoubleBuffer);
    json.insert(Definitions::getKeyDataPropertySizeOfSharedMemory(),
                odd(5) ? m_random.below(40) : 16);
    json.insert(Definitions::getStrKeyProcessDataMemory(), odd(8) ? QString() : m_memoryKey);
    if (odd(20)) {
        json.insert(Definitions::getKeyDataPropertySchemeVersion(), m_random.below(3));
    }
    for (const QString &key : {Definitions::getKeyDataPropertyDoubleBuffer(),
                               Definitions::getKeyDataPropertySizeOfSharedMemory(),
                               Definitions::getStrKeyProcessDataMemory()}) {
        if (odd(25)) {
            json.insert(key, QJsonValue::fromVariant(m_random.value(1)));
        } else if (odd(25)) {
            json.remove(key);
        }
    }
    return textOf(json);
}

QByteArray RandomDirectory::spoilt(const QByteArray &text)
{
    static const QList<QByteArray> wrong{"",
                                         "[]",
                                         "7",
                                         "{}",
                                         "{\"type\":\"treenode\"}",
                                         "{\"type\":\"treenode\",\"value\":{\"a\":1}}"};
    return m_random.once(2) ? m_random.pick(wrong) : text.left(m_random.below(text.size()));
}

QJsonObject RandomDirectory::processNode(int depth)
{
    QJsonObject children;
    for (int i = m_random.below(4) + (m_random.once(15) ? 0 : 1); i > 0; --i) {
        children.insert(QString::number(m_random.below(8)),
                        depth > 0 && m_random.once(4) ? processNode(depth - 1) : processLeaf());
    }
    QJsonObject json = Description::node(children);
    if (odd(15)) {
        json.remove(Definitions::getKeyDataPropertyDisplayPosition());
    }
    return json;
}

QJsonObject RandomDirectory::processLeaf()
{
    QJsonObject json = Description::leaf(m_random.below(100), 1 << m_random.below(3), 4,
                                         m_random.below(20));
    if (odd(25)) {
        json.insert("value", "no number");
    }
    static const QStringList keys{Definitions::getKeyDataPropertyDisplayPosition(),
                                  Definitions::getKeyDataPropertyOffsetSharedMemory(),
                                  Definitions::getKeyDataPropertySizeValue()};
    if (odd(40)) {
        json.remove(m_random.pick(keys));
    } else if (odd(40)) {
        json.insert(m_random.pick(keys), QJsonValue::fromVariant(m_random.value(1)));
    }
    return json;
}
