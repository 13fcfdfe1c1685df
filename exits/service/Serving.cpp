#include "service/Serving.h"

#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QCoreApplication>

namespace {

void reload(Service &service, const Serving &serving)
{
    try {
        serving.readAgain();
        ServiceLog::notice(QStringLiteral("the configuration was read again"));
    } catch (const Refusal &refusal) {
        ServiceLog::error(
            QStringLiteral("%1; the configuration stays as it was").arg(refusal.text));
    }
    service.tellReady(serving.status());
}

} // namespace

void keepServing(Service &service, const QObject *context, const Serving &serving)
{
    service.tellReady(serving.status());
    QObject::connect(&service, &Service::endAsked, context, [] { QCoreApplication::quit(); });
    QObject::connect(&service, &Service::reloadAsked, context,
                     [&service, serving] { reload(service, serving); });
}
