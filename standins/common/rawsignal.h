#ifndef RAWSIGNAL_H
#define RAWSIGNAL_H

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QVariantList>

// Sends a signal with exactly the values given, whatever their signature: how a stand-in sends a
// malformed signal from its own, legitimate connection. Returns the signature sent.
inline QString sendRawSignal(const QDBusConnection &connection, const QString &path, const QString &interface,
                             const QString &member, const QVariantList &args)
{
    QDBusMessage signal = QDBusMessage::createSignal(path, interface, member);
    for (const QVariant &arg : args)
        signal << (arg.userType() == qMetaTypeId<QDBusVariant>() ? arg.value<QDBusVariant>().variant() : arg);
    connection.send(signal);
    return signal.signature();
}

#endif // RAWSIGNAL_H
