#include "Companion/PropertyManagerConst.h"
#include "Companion/RegularFile_p.h"
#include "Validation/CheckedFile_p.h"

#include <QFileInfo>

namespace {

/// The parser takes a file only with something before the dot of its postfix.
bool hasPostfix(const QString &name, const QString &postfix)
{
    return name.endsWith(QLatin1Char('.') + postfix);
}

bool isNumberCharacter(char character)
{
    return (character >= '0' && character <= '9') || character == '-' || character == '+'
           || character == '.' || character == 'e' || character == 'E';
}

} // namespace

CheckedFile::CheckedFile(const QString &path, Kind kind, const QString &url, Findings &findings)
    : m_path(path)
    , m_kind(kind)
    , m_url(url)
    , m_findings(findings)
    , m_places({})
{
}

std::optional<CheckedFile::Kind> CheckedFile::kindOf(const QString &path)
{
    const QString name = QFileInfo(path).fileName();
    if (hasPostfix(name, PropertyManagerConst::getConfigFileExtension())) {
        return Kind::Configuration;
    }
    if (hasPostfix(name, PropertyManagerConst::getProcessDataDescriptionFileExtension())) {
        return Kind::Process;
    }
    if (name == PropertyManagerConst::getMenuFolderDescriptionFilename()) {
        return Kind::Folder;
    }
    return std::nullopt;
}

bool CheckedFile::read()
{
    if (!readText()) {
        return false;
    }
    m_places = TextPlaces(m_text);
    if (!m_json.read(m_text)) {
        m_findings.add(Rule::NotJson, m_path, m_places.placeOf(m_json.faultOffset()), m_url,
                       m_json.error().errorString());
        return false;
    }
    if (!root().isObject()) {
        report(Rule::NotAnObject, root(), m_url,
               QStringLiteral("the top level is a list, not an object"));
        return false;
    }
    return true;
}

bool CheckedFile::readText()
{
    if (RegularFile::isSomethingElse(m_path)) {
        report(Rule::NotRegular, QStringLiteral("neither a regular file nor a link to one"));
        return false;
    }
    const QFileInfo info(m_path);
    QFile file;
    if (!info.isReadable() || !RegularFile::openForReading(m_path, file)) {
        report(Rule::Unreadable, info.exists() ? QStringLiteral("no permission to read it")
                                               : QStringLiteral("no such file"));
        return false;
    }
    // As it is on the disk: the parser takes line ends of two bytes for one, which moves what follows.
    file.setTextModeEnabled(false);
    m_text = file.readAll();
    return true;
}

QString CheckedFile::childUrl(const QString &url, const QString &key)
{
    return url.isEmpty() ? key : url + QLatin1Char('/') + key;
}

QByteArray CheckedFile::written(const JsonText::Value &value) const
{
    int end = value.offset();
    while (end < m_text.size() && isNumberCharacter(m_text.at(end))) {
        ++end;
    }
    return m_text.mid(value.offset(), end - value.offset());
}

TextPlaces::Place CheckedFile::placeOf(const JsonText::Value &at)
{
    return m_places.placeOf(at.offset() - (at.isText() ? 1 : 0));
}

void CheckedFile::report(Rule rule, const JsonText::Value &at, const QString &url,
                         const QString &text)
{
    m_findings.add(rule, m_path, placeOf(at), url, text);
}

void CheckedFile::report(Rule rule, const QString &text)
{
    m_findings.addWhole(rule, m_path, m_url, text);
}
