#ifndef CVIRUSDBUSMIDDLE_H
#define CVIRUSDBUSMIDDLE_H

#include "criskboxclient.h"
#include "svirusboxinfo.h"
#include "virusrecords.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

class CThreatQueue;
class VirusScanInterface;

// The one object that ties the agent together: it owns the daemon proxy, the risk-box client and
// the threat queue; daemon signals become risk boxes and the user's answers become daemon calls.
// It builds every box and handles every answer; the client draws the boxes, the queue keeps the
// threats and the boxes that wait for an answer.
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

    // The risk-box client's operations: each returns a negative value on failure.
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

    // The events of a quarantine and of a trust-zone add, written by the bridge and the dialog alike.
    static void logThreatsDealt(int items, int notProcessed);
    static void logTrustAdded(const QStringList &files, const QString &result);

    // The boxes shown and not yet answered, by risk-box id.
    QMap<int, SVirusBoxInfo> pendingBoxes() const;
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
    explicit CVirusDbusMiddle(QObject *parent = nullptr);

    // Draws a box that expects an answer and, once it is shown, remembers it under its id.
    int showAnsweredBox(int createType, const QStringList &contents, const QStringList &buttons,
                        CRiskBoxClient::Finish finish, const SVirusBoxInfo &entry);
    // Draws a box through the client and counts it once it is shown.
    CRiskBoxClient::Step drawBox(int createType, const QStringList &contents, const QStringList &buttons,
                                 CRiskBoxClient::Finish finish, int &iId, int &ret);
    // The "moved to trust zone" and "cleared" notices; false when they could not be shown, after
    // logging the failing step with the answer (id, state) it followed.
    bool showNotice(const QString &headline, const QString &virusName, int id, int state);

    void trustProcedure(int id, int state, const SVirusBoxInfo &entry);
    bool clearProcedure(int id, int state, const SVirusBoxInfo &entry, bool &done);
    bool trustFromThreatProcedure(int id, const SVirusBoxInfo &entry, bool &done);
    int showTrustFailure(const QString &objectName, const QString &text);

    void logEvent(const QString &message, const QString &title = QStringLiteral("Dealing with threats"),
                  int level = 3);
    void logFailure(const QString &message);

    int m_nBoxesShown = 0;
    int m_nAnswersHandled = 0;
    VirusScanInterface *m_pVirusInterface = nullptr;
    CThreatQueue *m_pQueue = nullptr;
    CRiskBoxClient *m_pRiskBox = nullptr;
};

#endif // CVIRUSDBUSMIDDLE_H
