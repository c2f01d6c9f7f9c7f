#ifndef RISKBOXSTANDIN_H
#define RISKBOXSTANDIN_H

#include "faultplan.h"
#include "riskbox.h"

#include <QDBusContext>
#include <QJsonArray>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QStringList>

class RiskBoxAdaptor;
class RiskBoxWindow;

// A development stand-in for the risk-box notification service. It serves "/service" through an
// adaptor generated from the service's interface file, collects each box from the calls that build
// it, presents shown boxes (as windows with a display, as text without one), answers them by a
// rule when asked to, and takes orders on "/control".
class RiskBoxStandIn : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.vorn.standin.Control")

public:
    struct Options
    {
        bool windows = false;
        bool quiet = false;
        QStringList answers; // button labels, each used once, in order
        int answerDelayMs = 500;
        QString snapshots; // a folder for a picture of each box window, or empty
    };

    explicit RiskBoxStandIn(const Options &options, QObject *parent = nullptr);

    // The service's methods, called by the generated adaptor.
    int create(int boxType, const QString &appName, const QString &title);
    void addContent(int id, const QString &content);
    void addButton(int id, const QString &text, const QString &key);
    void setNotifyFold(int id, int fold);
    void setTimeout(int id, int timeout);
    void show(int id);

public slots:
    Q_SCRIPTABLE void Result(int id, int state, const QString &reserved);
    Q_SCRIPTABLE void EmitRaw(const QString &member, const QVariantList &args);
    Q_SCRIPTABLE void Press(int id, const QString &label);
    Q_SCRIPTABLE void Fail(const QString &method, const QString &errorName, const QString &message);
    Q_SCRIPTABLE void FailAfter(const QString &method, int passing);
    Q_SCRIPTABLE void Force(const QString &method, int value);
    Q_SCRIPTABLE void Hold(const QString &method);
    Q_SCRIPTABLE void Empty(const QString &method);
    Q_SCRIPTABLE void Reset(const QString &method);
    Q_SCRIPTABLE QStringList Boxes();
    Q_SCRIPTABLE QStringList Calls();
    Q_SCRIPTABLE void ClearCalls();

private:
    // Records the call and applies an injected fault; true when the fault answered the call.
    bool intercept(int &value);
    bool knownMethod(const QString &method);
    // The open box a call names, or null after replying with an error.
    RiskBox *openBox(int id);
    void present(const RiskBox &box);
    void scheduleAnswer(const RiskBox &box);
    void close(int id);
    void answer(int id, int state, const QString &how);
    void print(const QString &line) const;

    RiskBoxAdaptor *m_adaptor = nullptr;
    Options m_options;
    FaultPlan m_faults;
    QJsonArray m_calls;
    QMap<int, RiskBox> m_boxes;
    QMap<int, QPointer<RiskBoxWindow>> m_windows;
    int m_nextId = 1;
};

#endif // RISKBOXSTANDIN_H
