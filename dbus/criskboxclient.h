#ifndef CRISKBOXCLIENT_H
#define CRISKBOXCLIENT_H

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

class QDBusInterface;
class QDBusServiceWatcher;

// The client of the risk-box notification service, on a private system-bus connection of its own
// ("virus_dialog_conn_" and the process id), so that its traffic does not share the default
// connection the daemon is reached on. It rebuilds that connection when the interface cannot be
// used, watches who owns the service's name, and draws a whole box in one call.
//
// The service's answers ("signalResult") go straight to the receiver's slot given at construction,
// connected again to every interface that is made; the client never sees them.
class CRiskBoxClient : public QObject
{
    Q_OBJECT

public:
    // What is set on a box between its buttons and show.
    enum class Finish
    {
        None,
        Fold,
        Timeout
    };
    // The step of a box's sequence that failed, None when it was shown.
    enum class Step
    {
        None,
        Create,
        AddButton,
        Fold,
        Timeout,
        Show
    };

    // Opens the connection and the interface, and connects resultSlot of receiver (the string form
    // of SLOT()) to the service's answers. Prints the connection's name.
    CRiskBoxClient(QObject *receiver, const char *resultSlot, QObject *parent = nullptr);
    ~CRiskBoxClient() override;

    bool isValid() const;
    // Valid, and able to deliver answers (see hasResultSignal).
    bool isUsable() const;
    // Rebuilds the connection and the interface: one attempt, no retry. An interface that is not
    // valid stays in place, so that the next box tries again; its failure is logged.
    bool reconnect();
    // Calls one method: 0 with the reply's arguments in replyArgs, or -1 leaving it alone.
    int call(QList<QVariant> &replyArgs, const QString &method, const QList<QVariant> &args);
    // The service's unique bus name now, as the private connection sees it.
    QString owner() const;

    // The five operations; each returns a negative value on failure.
    int create(int type, const QStringList &contents);
    int addButtons(int id, const QStringList &buttons);
    int setFold(int id, int fold);
    int setTimeout(int id, int timeout);
    int show(int id);
    // A whole box: create with its contents, the buttons (pairs of text and key), the finish, show.
    // Each step runs only if the one before it worked, and a failed step prints its line. iId is the
    // box created (negative if none), ret the result of show or of the failed step.
    Step draw(int type, const QStringList &contents, const QStringList &buttons, Finish finish, int &iId,
              int &ret);

signals:
    // The service's name changed hands; an empty owner means nobody.
    void ownerChanged(const QString &oldOwner, const QString &newOwner);

private:
    void watchOwner();
    void createInterface();
    // A dynamic interface knows signalResult only if it could introspect its peer when it was
    // made. One made while the service was away turns valid when the service appears, but still
    // cannot deliver answers: it is as unusable as an invalid one.
    bool hasResultSignal() const;
    void connectResult();

    QObject *m_pReceiver = nullptr;
    const char *m_resultSlot = nullptr;
    QDBusServiceWatcher *m_pOwnerWatcher = nullptr;
    QDBusInterface *m_pNotifyInterface = nullptr;
    QString m_connectionName;
};

#endif // CRISKBOXCLIENT_H
