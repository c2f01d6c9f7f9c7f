#ifndef STANDINCONTROL_H
#define STANDINCONTROL_H

#include "faultplan.h"

#include <QDBusContext>
#include <QJsonArray>
#include <QObject>
#include <QStringList>

// The object a stand-in takes orders on at "/control", through an adaptor generated from the
// stand-in's control interface file, and the orders both stand-ins take alike. It is an object of
// its own, not the stand-in: the bus serves every adaptor of an object on each path the object is
// registered at, so on the stand-in the control interface would also be served at the service's
// path, and each of the service's signals would be sent a second time from "/control".
class StandInControl : public QObject, protected QDBusContext
{
    Q_OBJECT

public:
    // Control methods, called by the generated adaptor; see the control interface files.
    void Fail(const QString &method, const QString &errorName, const QString &message);
    void Hold(const QString &method);
    void Reset(const QString &method);
    QStringList Calls();
    void ClearCalls();

protected:
    // peer names the stand-in in errors, methods are its service's methods; faults and calls are
    // the stand-in's own, which its service methods apply and fill.
    StandInControl(const QString &peer, const QStringList &methods, FaultPlan &faults, QJsonArray &calls,
                   QObject *parent);

    // True for a method of the service; otherwise answers the order with an error.
    bool knownMethod(const QString &method);
    // Answers the order being served with InvalidArgs and text.
    void refuse(const QString &text);

    FaultPlan &m_faults;

private:
    QString m_peer;
    QStringList m_methods;
    QJsonArray &m_calls;
};

#endif // STANDINCONTROL_H
