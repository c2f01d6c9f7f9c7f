// The bridge's client of the risk-box notification service.
#include "cvirusdbusmiddle.h"

#include "vorntext.h"

#include <QDBusInterface>

#include <cstdio>

int CVirusDbusMiddle::create_secRiskBox(int type, const QStringList &contents)
{
    // Only create checks the interface: the later calls for the same box use what it found or made.
    if (!notifyInterfaceUsable()) {
        std::printf("DBus interface invalid, attempting to reConnectionDBus...\n");
        if (!reConnectionDBus()) {
            std::printf("Failed to reConnection DBus interface\n");
            return -1;
        }
    }
    QList<QVariant> reply;
    callNotifyMethod(reply, QStringLiteral("create"),
                     {type, QStringLiteral("vorn-defender"), vornText("Security Center")});
    // QtDBus pads a reply without arguments with one invalid value: that is no id either.
    if (reply.isEmpty() || !reply.first().isValid())
        return -1;
    const int id = reply.first().toInt();
    if (id >= 0) {
        for (const QString &line : contents) {
            QList<QVariant> ignored;
            const int status = callNotifyMethod(ignored, QStringLiteral("addContent"), {id, line});
            if (status < 0)
                return status;
        }
    }
    return id;
}

int CVirusDbusMiddle::add_secRiskBoxAction(int id, const QStringList &buttons)
{
    // Pairs of text and key; a trailing unpaired entry is never sent.
    int status = 0;
    for (int i = 0; i + 1 < buttons.size(); i += 2) {
        QList<QVariant> ignored;
        status =
            callNotifyMethod(ignored, QStringLiteral("addButton"), {id, buttons.at(i), buttons.at(i + 1)});
        if (status < 0)
            return status;
    }
    return status;
}

int CVirusDbusMiddle::set_secRiskBoxFold(int id, int fold)
{
    QList<QVariant> ignored;
    return callNotifyMethod(ignored, QStringLiteral("setNotifyFold"), {id, fold});
}

int CVirusDbusMiddle::set_secRiskBoxTimeout(int id, int timeout)
{
    QList<QVariant> ignored;
    return callNotifyMethod(ignored, QStringLiteral("setTimeout"), {id, timeout});
}

int CVirusDbusMiddle::show_secRiskBox(int id)
{
    QList<QVariant> ignored;
    return callNotifyMethod(ignored, QStringLiteral("show"), {id});
}
