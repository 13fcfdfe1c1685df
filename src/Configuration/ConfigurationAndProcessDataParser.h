#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVariant>

/// Turns a JSON description into a tree of elements, and a tree back into the same JSON.
///
/// The file postfix decides the class of the leaves: configuration or process values. Failures are
/// null or false, with the reason in the log. Threads may parse at the same time with parsers of
/// their own.
class TESSEL_EXPORT ConfigurationAndProcessDataParser
{
public:
    /// In which trees travel; null means failure.
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    ConfigurationAndProcessDataParser();

    /// Whether a document of another format version is reported. True after construction.
    void setCheckVersion(bool check);

    /// Parses the file at @p path, whose name decides the class of the leaves.
    BaseClassSharedPointer parseFromFile(const QString &path) const;
    /// @p postfix may begin with a dot.
    BaseClassSharedPointer parseFromByteArray(const QByteArray &data, const QString &postfix) const;
    /// The same from UTF-16 text.
    BaseClassSharedPointer parseFromJson(const QString &json, const QString &postfix) const;
    /// The same from text or bytes in a variant.
    BaseClassSharedPointer parseFromJson(const QVariant &json, const QString &postfix) const;

    /// One element and all below it. @p postfix has no leading dot. One bad element anywhere fails
    /// the whole.
    BaseClassSharedPointer createNode(const QJsonObject &json, const QString &postfix) const;

    /// False if the document says a format version that this parser does not know.
    bool checkVersion(const QJsonObject &json) const;
    /// The last two dot-separated pieces of @p path; empty if it has fewer than two dots.
    QString cutOutFileTypeAndExtension(const QString &path) const;

    /// The JSON object of the whole tree; empty, with a warning, for a null root.
    QJsonObject createJsonObject(const BaseClassSharedPointer &root) const;
    /// Sets @p data only on success.
    bool frameToByteArray(const BaseClassSharedPointer &root, QByteArray &data,
                          QJsonDocument::JsonFormat format) const;
    /// Replaces the file at @p path at once by the compact text of the tree. False if the text
    /// could not be produced or written; a commit that fails is only logged.
    bool frameToFile(const BaseClassSharedPointer &root, const QString &path) const;

private:
    BaseClassSharedPointer createTreeNode(const QJsonObject &json, const QString &postfix) const;

    static const int sm_minimumNumberOfDotsInFileName;

    QStringList m_validFileExtensions;
    bool m_checkVersion = true;
};
