#ifndef SERVEONBUS_H
#define SERVEONBUS_H

#include <QDBusConnection>
#include <QString>

// Puts a stand-in on the system bus: its service object at path and its control object at
// "/control" (each through its generated adaptor), and then the service name. Without queueing, a
// second stand-in fails here rather than waiting silently for the name. Prints why on failure.
bool serveOnBus(QObject *standIn, const QString &path, QObject *control, const QString &service,
                const char *program);

#endif // SERVEONBUS_H
