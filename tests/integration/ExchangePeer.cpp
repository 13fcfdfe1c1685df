#include "integration/ExchangePeer.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

/// Milliseconds that no honest run takes.
constexpr int longestWait = 60000;

QVariantMap withValue(const QString &action, const QString &url, const ProcessValue &value)
{
    // 64-bit numbers and floats would lose digits on the way through JSON numbers.
    return {{QStringLiteral("do"), action},
            {QStringLiteral("url"), url},
            {QStringLiteral("error"), static_cast<int>(value.getErrorType())},
            {QStringLiteral("type"), static_cast<int>(value.getValue().type())},
            {QStringLiteral("value"), value.getValue().toString()}};
}

} // namespace

ExchangePeer::ExchangePeer(const QString &descriptionFile)
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(QStringLiteral(EXCHANGEPEER), {descriptionFile});
    m_isReady = command({}).value(QStringLiteral("ready")).toBool();
}

ExchangePeer::~ExchangePeer()
{
    kill();
}

bool ExchangePeer::write(const QString &url, const ProcessValue &value)
{
    return command(withValue(QStringLiteral("write"), url, value))
        .value(QStringLiteral("ok"))
        .toBool();
}

ProcessValue ExchangePeer::read(const QString &url)
{
    const QVariantMap answer = command(
        {{QStringLiteral("do"), QStringLiteral("read")}, {QStringLiteral("url"), url}});
    const auto state = static_cast<ProcessDataDefinitions::ErrorTypes>(
        answer.value(QStringLiteral("error"), -1).toInt());
    const int type = answer.value(QStringLiteral("type")).toInt();
    QVariant value = answer.value(QStringLiteral("value"));
    if (type == QMetaType::UnknownType || !value.convert(type)) {
        return ProcessValue(state);
    }
    return ProcessValue(value, state);
}

bool ExchangePeer::swap()
{
    return command({{QStringLiteral("do"), QStringLiteral("swap")}})
        .value(QStringLiteral("ok"))
        .toBool();
}

bool ExchangePeer::stayInsideWriteLock(const QString &url, const ProcessValue &value)
{
    return command(withValue(QStringLiteral("stay"), url, value))
        .value(QStringLiteral("ok"))
        .toBool();
}

void ExchangePeer::kill()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(longestWait);
    }
}

bool ExchangePeer::quit()
{
    m_process.closeWriteChannel();
    return m_process.waitForFinished(longestWait) && m_process.exitStatus() == QProcess::NormalExit
           && m_process.exitCode() == 0;
}

QVariantMap ExchangePeer::command(const QVariantMap &request)
{
    if (!request.isEmpty()) {
        m_process.write(
            QJsonDocument(QJsonObject::fromVariantMap(request)).toJson(QJsonDocument::Compact)
            + '\n');
    }
    while (!m_process.canReadLine()) {
        if (!m_process.waitForReadyRead(longestWait)) {
            return {};
        }
    }
    return QJsonDocument::fromJson(m_process.readLine()).object().toVariantMap();
}
