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
// rule when asked to, and takes orders on "/control" through its RiskBoxControl.
class RiskBoxStandIn : public QObject, protected QDBusContext
{
    Q_OBJECT

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

private:
    // The control answers and presses boxes, plans faults and reports boxes and calls.
    friend class RiskBoxControl;

    // The error a call naming no open box is answered with.
    static QString unknownBoxError() { return QStringLiteral("com.tarsel.secriskbox.Error.UnknownBox"); }
    // The text with its control characters made visible, so a hostile text cannot fake lines of
    // the transcript.
    static QString printable(const QString &text);

    // Records the call and applies an injected fault; true when the fault answered the call.
    bool intercept(int &value);
    // The open box a call names, or null after replying with an error.
    RiskBox *openBox(int id);
    void present(const RiskBox &box);
    void scheduleAnswer(const RiskBox &box);
    void close(int id);
    void answer(int id, int state, const QString &how);
    // Answers a shown box as a press on its button with this label; false when it has none.
    bool press(int id, const QString &label);
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
