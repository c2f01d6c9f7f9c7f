#ifndef SERVEONBUS_H
#define SERVEONBUS_H

#include <QDBusConnection>
#include <QString>

// Puts a stand-in on the system bus: its service object at path (through its generated adaptor),
// its control interface at "/control", and then the service name. Without queueing, a second
// stand-in fails here rather than waiting silently for the name. Prints why on failure.
bool serveOnBus(QObject *standIn, const QString &path, const QString &service, const char *program);

#endif // SERVEONBUS_H
