#pragma once

#include "Companion/JsonText_p.h"
#include "Validation/Findings_p.h"
#include "Validation/TextPlaces_p.h"

#include <QString>

#include <optional>

/// One file that is looked over, as it is written.
class CheckedFile
{
public:
    enum class Kind { Configuration, Process, Folder };

    /// @p path as it is shown; @p url of what the file becomes in the tree, empty for a root.
    CheckedFile(const QString &path, Kind kind, const QString &url, Findings &findings);

    /// By the end of the name; nothing for what the parser does not take.
    static std::optional<Kind> kindOf(const QString &path);

    /// False, with the problem reported, if there is no object to be looked at.
    bool read();

    JsonText::Value root() const { return m_json.root(); }
    const QString &path() const { return m_path; }
    const QString &url() const { return m_url; }
    Kind kind() const { return m_kind; }
    bool isProcess() const { return m_kind == Kind::Process; }

    /// The URL of a child of the element at @p url.
    static QString childUrl(const QString &url, const QString &key);

    /// A number or word as it stands in the text.
    QByteArray written(const JsonText::Value &value) const;

    /// Of a key, or of the value under it; a text stands where its quote does.
    TextPlaces::Place placeOf(const JsonText::Value &at);
    /// At a place as placeOf() has it.
    void report(Rule rule, const JsonText::Value &at, const QString &url, const QString &text);
    /// Of the whole file.
    void report(Rule rule, const QString &text);

private:
    bool readText();

    QString m_path;
    Kind m_kind;
    QString m_url;
    Findings &m_findings;
    QByteArray m_text;
    JsonText m_json;
    TextPlaces m_places;
};
