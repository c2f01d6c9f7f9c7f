#include "faultplan.h"

#include <QDBusConnection>
#include <QDBusMessage>

void FaultPlan::fail(const QString &method, const QString &errorName, const QString &message, int passing)
{
    Fault fault;
    fault.kind = ErrorReply;
    fault.passing = passing;
    fault.errorName = errorName.isEmpty() ? QStringLiteral("com.vorn.standin.Error.Injected") : errorName;
    fault.message = message.isEmpty() ? QStringLiteral("injected failure of %1").arg(method) : message;
    m_faults.insert(method, fault);
}

void FaultPlan::force(const QString &method, int value)
{
    Fault fault;
    fault.kind = ForcedValue;
    fault.value = value;
    m_faults.insert(method, fault);
}

void FaultPlan::shortReply(const QString &method, int value)
{
    Fault fault;
    fault.kind = ShortReply;
    fault.value = value;
    m_faults.insert(method, fault);
}

void FaultPlan::emptyReply(const QString &method)
{
    Fault fault;
    fault.kind = EmptyReply;
    m_faults.insert(method, fault);
}

void FaultPlan::hold(const QString &method)
{
    Fault fault;
    fault.kind = NoReply;
    m_faults.insert(method, fault);
}

void FaultPlan::reset(const QString &method)
{
    if (method.isEmpty())
        m_faults.clear();
    else
        m_faults.remove(method);
}

bool FaultPlan::apply(const QDBusContext &context, int &value, QString &outcome)
{
    const auto found = m_faults.find(context.message().member());
    if (found == m_faults.end())
        return false;
    Fault &fault = found.value();
    if (fault.passing > 0) {
        --fault.passing;
        return false;
    }
    value = fault.value;
    switch (fault.kind) {
    case ErrorReply:
        context.sendErrorReply(fault.errorName, fault.message);
        outcome = QStringLiteral("error %1 (injected)").arg(fault.errorName);
        break;
    case ShortReply:
        context.setDelayedReply(true);
        context.connection().send(context.message().createReply(QVariant(fault.value)));
        outcome = QStringLiteral("%1 alone (injected)").arg(fault.value);
        break;
    case ForcedValue: outcome = QStringLiteral("%1 (injected)").arg(fault.value); break;
    case EmptyReply:
        context.setDelayedReply(true);
        context.connection().send(context.message().createReply(QVariantList()));
        outcome = QStringLiteral("an empty reply (injected)");
        break;
    case NoReply:
        context.setDelayedReply(true);
        outcome = QStringLiteral("no reply (injected)");
        break;
    }
    return true;
}
