#pragma once

#include "FuzzTarget.h"

#include <QFile>
#include <QString>

#include <sys/mman.h>
#include <unistd.h>

/// An input as a file for who wants a path: in memory alone, so that nothing is left whatever happens.
class InputFile
{
public:
    explicit InputFile(const QByteArray &content) : m_descriptor(memfd_create("input", MFD_CLOEXEC))
    {
        require(m_descriptor >= 0
                    && write(m_descriptor, content.constData(), static_cast<size_t>(content.size()))
                           == content.size(),
                "there is room for the input");
    }
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;
    ~InputFile() { close(m_descriptor); }

    QString path() const { return QStringLiteral("/proc/self/fd/%1").arg(m_descriptor); }

private:
    int m_descriptor;
};
