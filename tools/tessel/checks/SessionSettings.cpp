#include "checks/SessionSettings.h"

#include <QDir>
#include <QFile>
#include <QMap>

namespace {

const QLatin1String mainName("/systemd/logind.conf");

/// The first wins where a name is in several.
QStringList foldersBelow(const QString &root)
{
    return {root + QStringLiteral("/etc"), root + QStringLiteral("/run"),
            root + QStringLiteral("/usr/local/lib"), root + QStringLiteral("/usr/lib")};
}

/// In the order in which they are read.
QStringList filesBelow(const QString &root)
{
    QStringList files;
    QMap<QString, QString> dropIns; // by name, wherever they are
    const QStringList folders = foldersBelow(root);
    for (const auto &folder : folders) {
        const QString main = folder + mainName;
        if (files.isEmpty() && QFileInfo::exists(main)) {
            files.append(main);
        }
        const QDir more(main + QStringLiteral(".d"));
        const QStringList names = more.entryList({QStringLiteral("*.conf")},
                                                 QDir::Files | QDir::Hidden | QDir::System);
        for (const auto &name : names) {
            if (!dropIns.contains(name)) {
                dropIns.insert(name, more.filePath(name));
            }
        }
    }
    return files + dropIns.values();
}

std::optional<bool> truthOf(const QString &word)
{
    const QString text = word.toLower();
    for (const char *yes : {"1", "yes", "y", "true", "t", "on"}) {
        if (text == QLatin1String(yes)) {
            return true;
        }
    }
    for (const char *no : {"0", "no", "n", "false", "f", "off"}) {
        if (text == QLatin1String(no)) {
            return false;
        }
    }
    return {};
}

struct Setting
{
    std::optional<bool> isOn;
    /// What would be without any: such files show that in a comment.
    std::optional<bool> isOnWithout;
};

Setting settingIn(const QString &text)
{
    Setting setting;
    bool isInSection = false;
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const auto &raw : lines) {
        QString line = raw.trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            isInSection = line == QLatin1String("[Login]");
            continue;
        }
        const bool isComment = line.startsWith(QLatin1Char('#'))
                               || line.startsWith(QLatin1Char(';'));
        line.remove(0, isComment ? 1 : 0);
        const QString name = line.section(QLatin1Char('='), 0, 0).trimmed();
        const auto value = truthOf(line.section(QLatin1Char('='), 1).trimmed());
        // What is no truth value is passed over there as well.
        if (isInSection && name == QLatin1String("RemoveIPC") && value) {
            (isComment ? setting.isOnWithout : setting.isOn) = value;
        }
    }
    return setting;
}

} // namespace

std::optional<RemovedIpc> SessionSettings::readRemovedIpc(const QString &root)
{
    // As it is made.
    RemovedIpc removed{true, root + QStringLiteral("/etc") + mainName};
    bool isSet = false;
    const QStringList paths = filesBelow(root);
    for (const auto &path : paths) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            return {};
        }
        const Setting setting = settingIn(QString::fromUtf8(file.readAll()));
        if (setting.isOn) {
            removed = {*setting.isOn, path};
            isSet = true;
        } else if (!isSet && setting.isOnWithout) {
            removed.isOn = *setting.isOnWithout;
        }
    }
    return removed;
}

uid_t SessionSettings::readLastSystemUser(const QString &root)
{
    constexpr uid_t usual = 999;
    QFile file(root + QStringLiteral("/etc/login.defs"));
    if (!file.open(QIODevice::ReadOnly)) {
        return usual;
    }
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const auto &line : lines) {
        const QList<QByteArray> words = line.simplified().split(' ');
        bool isNumber = false;
        const uint number = words.value(1).toUInt(&isNumber);
        if (words.first() == "SYS_UID_MAX" && isNumber) {
            return number;
        }
    }
    return usual;
}
