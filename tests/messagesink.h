#ifndef MESSAGESINK_H
#define MESSAGESINK_H

#include <QDBusConnection>
#include <QDBusMessage>
#include <QList>
#include <QObject>

// Collects every D-Bus signal that matches a subscription, whatever its signature, so a test can
// look at the message exactly as it came off the wire.
class MessageSink : public QObject
{
    Q_OBJECT
public:
    bool subscribe(QDBusConnection connection, const QString &service, const QString &path,
                   const QString &interface, const QString &member)
    {
        return connection.connect(service, path, interface, member, this, SLOT(onMessage(QDBusMessage)));
    }

    QList<QDBusMessage> messages;

public slots:
    void onMessage(const QDBusMessage &message) { messages.append(message); }
};

#endif // MESSAGESINK_H
