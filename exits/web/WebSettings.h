#pragma once

#include "http/HttpServer.h"
#include "http/ListenAddress.h"
#include "service/Settings.h"

#include <QByteArray>
#include <QSet>
#include <QString>
#include <QStringList>

/// What `tessel-web` was told, checked.
struct WebSettings
{
    QString path; ///< of the description
    ListenAddress address;
    QStringList hosts; ///< beside the address and localhost
    QByteArray token;  ///< empty: nothing can be written
    HttpServer::Certificate certificate;
    int rate = 0;          ///< sets a second at most
    QString configuration; ///< file or folder; empty: none is shown
    HttpServer::Limits limits;

    /// By which the page may be asked for, in small letters.
    QSet<QByteArray> hostNames() const;

    static ProgramSyntax syntax();
    /// Reads the files with secrets. Throws a Refusal that names what makes no sense, or a file that is not
    /// to be used.
    static WebSettings from(const Settings &all);
};
