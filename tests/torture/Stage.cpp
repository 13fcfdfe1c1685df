#include "torture/Stage.h"

#include <QDebug>

#include <cstring>

namespace Torture {

namespace {

Stage *stageForMessages = nullptr;

void keepMessage(QtMsgType type, const QMessageLogContext & /*context*/, const QString &text)
{
    if (type == QtDebugMsg || type == QtInfoMsg) {
        return;
    }
    if (!stageForMessages->isDeaf
        && text.startsWith(QLatin1String("A process ended in the middle of writing"))) {
        stageForMessages->lossWarnings.fetch_add(1);
    }
    copyText(stageForMessages->lastMessage, text);
}

} // namespace

void tellStage(Stage &stage)
{
    stageForMessages = &stage;
    qInstallMessageHandler(keepMessage);
}

void copyText(char (&target)[textCapacity], const QString &text)
{
    const QByteArray bytes = text.toUtf8().left(textCapacity - 1);
    std::memcpy(target, bytes.constData(), static_cast<std::size_t>(bytes.size()) + 1);
}

} // namespace Torture
