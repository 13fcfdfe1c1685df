#pragma once

#include "mirror/DomainStatus.h"
#include "mirror/StatusLook.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>

/// A file that holds what `tessel-mirror status --json` shows, of what a program hears of its domain by itself, for
/// programs that know nothing of the engine. Written anew each second, as a whole or not at all, and gone with
/// this.
class StatusFile : public QObject
{
    Q_OBJECT

public:
    using Own = std::function<void(DomainStatus &)>;

    /// @p domain has to live longer. @p own adds what is not heard, before each writing; null: nothing. Throws a
    /// Refusal if the file cannot be written.
    StatusFile(const QString &path, const MirrorDomain &domain, StatusReaders::Of of,
               const Own &own);
    ~StatusFile() override;

private:
    QString write();
    void writeAgain();

    QString m_path;
    StatusReaders m_readers;
    Own m_own;
    DomainStatus m_status;
    QTimer m_timer;
    int m_writings = 0;
    QString m_problem; ///< that was told last
};
