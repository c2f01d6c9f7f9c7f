#ifndef DAEMONCONTROL_H
#define DAEMONCONTROL_H

#include "standincontrol.h"

#include <QString>
#include <QStringList>
#include <QVariantList>

class VirusDaemonStandIn;

// The daemon stand-in's orders on "/control", served through the adaptor generated from
// daemoncontrol.xml: the daemon's signals on demand, injected faults and a report of its state.
class DaemonControl : public StandInControl
{
    Q_OBJECT

public:
    explicit DaemonControl(VirusDaemonStandIn &daemon, QObject *parent = nullptr);

    // Control methods beyond the common ones, called by the generated adaptor.
    void Emit(const QString &signal, const QStringList &args);
    void EmitMany(const QString &signal, const QStringList &args, int count);
    void EmitRaw(const QString &member, const QVariantList &args);
    void Force(const QString &method, int value);
    void Short(const QString &method, int value);
    QString State();

private:
    VirusDaemonStandIn &m_daemon;
};

#endif // DAEMONCONTROL_H
