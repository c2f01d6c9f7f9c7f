#include "serveonbus.h"

#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusReply>

#include <cstdio>

bool serveOnBus(QObject *standIn, const QString &path, QObject *control, const QString &service,
                const char *program)
{
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected()) {
        std::fprintf(stderr, "%s: no system bus: %s\n", program, qPrintable(bus.lastError().message()));
        return false;
    }
    if (!bus.registerObject(path, standIn, QDBusConnection::ExportAdaptors) ||
        !bus.registerObject(QStringLiteral("/control"), control, QDBusConnection::ExportAdaptors)) {
        std::fprintf(stderr, "%s: cannot register its objects\n", program);
        return false;
    }
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> owned = bus.interface()->registerService(
        service, QDBusConnectionInterface::DontQueueService, QDBusConnectionInterface::DontAllowReplacement);
    if (!owned.isValid() || owned.value() != QDBusConnectionInterface::ServiceRegistered) {
        std::fprintf(stderr, "%s: cannot own %s%s%s\n", program, qPrintable(service),
                     owned.isValid() ? "" : ": ", owned.isValid() ? "" : qPrintable(owned.error().message()));
        return false;
    }
    return true;
}
