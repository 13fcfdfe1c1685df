#pragma once

#include <QByteArray>
#include <QHash>

/// The page, which is inside the program.
class PageFiles
{
public:
    struct File
    {
        QByteArray contentType;
        QByteArray content;
        QByteArray tag; ///< changes with the content
    };

    PageFiles();

    /// The file at a name such as `page.css` or `uplot/uPlot.esm.js`; null if there is none.
    const File *find(const QByteArray &name) const;

private:
    QHash<QByteArray, File> m_files;
};
