#ifndef CVIRUSDBUSMIDDLE_H
#define CVIRUSDBUSMIDDLE_H

#include "svirusboxinfo.h"
#include "virusrecords.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariant>

class CAuthDialogThread;
class CThreatJournalWriter;
class QDBusInterface;
class QDBusServiceWatcher;
class VirusScanInterface;

// The one object that ties the agent together: it owns the daemon proxy, the private connection
// and interface to the risk-box service and the dialog thread; daemon signals become risk boxes
// and the user's answers become daemon calls.
class CVirusDbusMiddle : public QObject
{
    Q_OBJECT

public:
    // The process-wide bridge, created on first use. The first call must be made on the main thread.
    static CVirusDbusMiddle *getInstance();

    // Rebuilds the private connection and the risk-box interface; true when the new one is valid.
    bool reConnectionDBus();
    // Calls one risk-box method; 0 with the reply's arguments in replyArgs, or -1 leaving it alone.
    int callNotifyMethod(QList<QVariant> &replyArgs, const QString &method, const QList<QVariant> &args);

    // Risk-box client: each returns a negative value on failure.
    int create_secRiskBox(int type, const QStringList &contents);
    int add_secRiskBoxAction(int id, const QStringList &buttons);
    int set_secRiskBoxFold(int id, int fold);
    int set_secRiskBoxTimeout(int id, int timeout);
    int show_secRiskBox(int id);

    // Daemon convenience operations.
    int get_protectDate();
    int get_scanStatus();
    int begin_scan(int type, const QStringList &paths);
    int set_scanStatus(int status);
    int set_scanEngine(const QString &engine);
    int get_scanMode();
    int set_scanMode(int mode);
    int set_scanConfig(int configType, int configParameters);
    int get_quarantineSize();
    int add_quarantineFile(const SQuarantineFileInfoList &fileList);

    // Query pass-throughs: 0 when the daemon answered 0, else -1. A transport error reads as 0
    // with the target unchanged; callers cannot tell it from an empty success.
    int get_allScanConfig(SScanConfigInfo &configInfo);
    int get_allEngineInfoList(SEngineInfoList &infoList);
    int get_quarantineFileList(SIsolateFileInfoList &infoList);
    int get_trustExtensionList(SExtensionInfoList &infoList);
    int get_trustFileList(STrustFileInfoList &infoList);

    // Quarantine and trust zone.
    // done, when given, tells whether the daemon's reply said every item was processed.
    int dealThreats(const SQuarantineFileInfoList &fileList, bool *done = nullptr);
    int restoreQuarantineFiles(const QStringList &files, int dealMode);
    // done, when given, tells whether the daemon's reply said every file was added.
    int addTrustFiles(const QStringList &files, bool *done = nullptr);
    int deleteTrustFiles(const QStringList &files);
    int addTrustExtensions(const QStringList &extensions);
    int deleteTrustExtensions(const QStringList &extensions);
    int deleteQuarantineFiles(const QStringList &files);

    // Risk boxes that expect an answer.
    int show_selectVirusBoxNotify(const QString &strVirusName);
    int show_retryVirusBoxNotify(const QString &strVirusName);
    int get_signalResult(const SVirusInfo &info);

    // The boxes shown and not yet answered, by risk-box id.
    QMap<int, SVirusBoxInfo> pendingBoxes() const { return virusMap; }
    // Threats announced and still waiting for their turn.
    int pendingThreats() const;
    // Risk boxes shown, and answers handled, since start.
    int boxesShown() const { return m_nBoxesShown; }
    int answersHandled() const { return m_nAnswersHandled; }

signals:
    void signal_fastItemChanged(int);
    void signal_customItemStartScan(QString filePath);
    void signal_fasetItemEnd(SScanItemVirusInfo);
    void signal_scanEnd(SVirusInfoList);
    void signal_startDealing(SVirusInfoList);
    void signal_dealFinish(int);
    void signal_scanDetailInfo(SScaningInfo);
    void signal_rightBeginScanMiddle(QString file);

public slots:
    void slot_scanItemBegin(int type);
    void slot_customItemBegin(QString filePath);
    void slot_scanDetailInfo(SScaningInfo info);
    void slot_scanItemEnd(SScanItemVirusInfo info);
    void slot_scanFinished(SVirusInfoList infoList);
    void slot_dealFinished(int failNum);
    void slot_rightClicked();
    void slot_rightScanBegin(QString file);
    void slot_addAuthDialog(SVirusInfo info);
    int slot_ExecAuthDialog(SVirusInfo info);
    int slot_sysPop(QString file);
    void slot_ResultSignal(int id, int state, QString reserved);

private:
    // How a box is finished before it is shown.
    enum class BoxExtra
    {
        None,
        Fold,
        Timeout
    };
    // The step of the box sequence that failed.
    enum class BoxStep
    {
        None,
        Create,
        AddButton,
        Fold,
        Timeout,
        Show
    };

    explicit CVirusDbusMiddle(QObject *parent = nullptr);

    void watchRiskBoxOwner();
    void createNotifyInterface();
    // A dynamic interface knows signalResult only if it could introspect its peer when it was
    // made. One made while the service was away turns valid when the service appears, but still
    // cannot deliver answers: it is as unusable as an invalid one.
    bool hasResultSignal() const;
    bool notifyInterfaceUsable() const;
    // The common box sequence: create with contents, buttons, fold or timeout, show. Returns the
    // result of show, or the failing step's negative code; iId and failedStep say what happened.
    int showRiskBox(int createType, const QStringList &contents, const QStringList &buttons, BoxExtra extra,
                    int &iId, BoxStep &failedStep);
    // The same for a box that expects an answer: on success it is remembered under its id.
    int showAnsweredBox(int createType, const QStringList &contents, const QStringList &buttons,
                        BoxExtra extra, const SVirusBoxInfo &entry);
    // The "moved to trust zone" and "cleared" notices; false when they could not be shown, after
    // logging the failing step with the answer (id, state) it followed.
    bool showNotice(const QString &headline, const QString &virusName, int id, int state);

    void trustProcedure(int id, int state, const SVirusBoxInfo &entry);
    bool clearProcedure(int id, int state, const SVirusBoxInfo &entry, bool &done);
    bool trustFromThreatProcedure(int id, const SVirusBoxInfo &entry, bool &done);
    // Queues restored threats on the dialog thread, or keeps them until the risk-box service is up.
    void queueRestored(const SVirusInfoList &threats, bool serviceUp);
    // The restored threats whose files the daemon has neither quarantined nor trusted meanwhile;
    // the others are forgotten.
    SVirusInfoList notHandledElsewhere(const SVirusInfoList &restored);
    // The boxes an instance of the risk-box service drew vanish with it: their ids decide nothing
    // from now on, and the threats among them that had no answer are shown again.
    void ownerGone(const QString &owner);
    void riskBoxOwnerChanged(const QString &oldOwner, const QString &newOwner);
    // Shows again the threats whose boxes failed or vanished: the oldest one at once when the
    // dialog thread waits for a box that failed, so that its success re-arms the thread; the
    // others through the thread, one at a time.
    void showUnshown();
    int showTrustFailure(const QString &objectName, const QString &text);

    void logEvent(const QString &message, const QString &title = QStringLiteral("Dealing with threats"),
                  int level = 3);
    void logFailure(const QString &message);

    int m_nBoxesShown = 0;
    int m_nAnswersHandled = 0;
    VirusScanInterface *m_pVirusInterface = nullptr;
    CAuthDialogThread *m_pAuthDialogThread = nullptr;
    CThreatJournalWriter *m_pJournal = nullptr;
    // Restored threats waiting for the risk-box service.
    SVirusInfoList m_restoredWaiting;
    // Threats whose box vanished with its service, or failed while it was away, oldest first, and
    // whether the dialog thread waits for a box that failed.
    SVirusInfoList m_unshown;
    bool m_threadWaiting = false;
    // The risk-box service's owner as the private connection sees it, and those that have left the
    // name (a unique name never returns).
    QDBusServiceWatcher *m_pOwnerWatcher = nullptr;
    QSet<QString> m_goneOwners;
    QMap<int, SVirusBoxInfo> virusMap;
    QDBusInterface *m_pNotifyInterface = nullptr;
    QString m_connectionName;
};

#endif // CVIRUSDBUSMIDDLE_H
