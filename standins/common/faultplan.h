#ifndef FAULTPLAN_H
#define FAULTPLAN_H

#include <QDBusContext>
#include <QHash>
#include <QString>

// Failure injection for a stand-in: per D-Bus method, answer with an error, a forced int, a reply
// that carries only the int (for the methods that normally add a second value) or no value at all.
// A plan stays until it is reset.
class FaultPlan
{
public:
    enum Kind
    {
        ErrorReply,
        ForcedValue,
        ShortReply,
        EmptyReply,
        NoReply
    };

    // The error is answered from the call after the first `passing` ones on.
    void fail(const QString &method, const QString &errorName, const QString &message, int passing = 0);
    void force(const QString &method, int value);
    void shortReply(const QString &method, int value);
    // A reply with no arguments at all.
    void emptyReply(const QString &method);
    // No reply: the caller waits for its own timeout, as on a peer that hangs.
    void hold(const QString &method);
    // An empty method resets every plan.
    void reset(const QString &method);

    // Applies the plan for the method of the call being served, if there is one. Returns true when
    // the plan decided the answer: value then holds the int to return (ignored by D-Bus when the
    // reply was already sent by the plan) and outcome says what was answered.
    bool apply(const QDBusContext &context, int &value, QString &outcome);

private:
    struct Fault
    {
        Kind kind = ErrorReply;
        int value = 0;
        int passing = 0;
        QString errorName;
        QString message;
    };
    QHash<QString, Fault> m_faults;
};

#endif // FAULTPLAN_H
