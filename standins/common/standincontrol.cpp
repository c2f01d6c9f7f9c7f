#include "standincontrol.h"

#include "dbusjson.h"

StandInControl::StandInControl(const QString &peer, const QStringList &methods, FaultPlan &faults,
                               QJsonArray &calls, QObject *parent)
    : QObject(parent), m_faults(faults), m_peer(peer), m_methods(methods), m_calls(calls)
{}

bool StandInControl::knownMethod(const QString &method)
{
    if (m_methods.contains(method))
        return true;
    refuse(QStringLiteral("unknown %1 method '%2'; the methods are: %3")
               .arg(m_peer, method, m_methods.join(QLatin1Char(' '))));
    return false;
}

void StandInControl::refuse(const QString &text)
{
    sendErrorReply(QDBusError::InvalidArgs, text);
}

void StandInControl::Fail(const QString &method, const QString &errorName, const QString &message)
{
    if (knownMethod(method))
        m_faults.fail(method, errorName, message);
}

void StandInControl::Hold(const QString &method)
{
    if (knownMethod(method))
        m_faults.hold(method);
}

void StandInControl::Reset(const QString &method)
{
    if (method.isEmpty() || knownMethod(method))
        m_faults.reset(method);
}

QStringList StandInControl::Calls()
{
    return jsonLines(m_calls);
}

void StandInControl::ClearCalls()
{
    m_calls = QJsonArray();
}
