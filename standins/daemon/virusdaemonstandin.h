#ifndef VIRUSDAEMONSTANDIN_H
#define VIRUSDAEMONSTANDIN_H

#include "faultplan.h"
#include "virusrecords.h"

#include <QDBusContext>
#include <QJsonArray>
#include <QObject>
#include <QStringList>

class DaemonAdaptor;

// A development stand-in for the virus-scan daemon. It serves "/daemon" through an adaptor
// generated from the daemon's interface file, keeps a believable quarantine area, trust zone,
// scan mode and configuration, records every call, and can be driven through "/control" by its
// DaemonControl.
class VirusDaemonStandIn : public QObject, protected QDBusContext
{
    Q_OBJECT

public:
    explicit VirusDaemonStandIn(bool quiet, QObject *parent = nullptr);

    // The daemon's methods, called by the generated adaptor.
    int add_quarantineFile(const SQuarantineFileInfoList &fileList);
    int add_trustExtension(const QStringList &fileList);
    int add_trustFile(const QStringList &fileList);
    int begin_scan(int scanType, const QStringList &filePath);
    int delete_quarantineFile(const QStringList &fileList);
    int delete_trustExtension(const QStringList &fileList);
    int delete_trustFile(const QStringList &fileList);
    int get_allEngineInfoList(SEngineInfoList &infoList);
    int get_allScanConfig(SScanConfigInfo &configInfo);
    int get_protectDate();
    int get_quarantineFileList(SIsolateFileInfoList &infoList);
    int get_quarantineSize();
    int get_scanMode();
    int get_scanStatus();
    int get_trustExtensionList(SExtensionInfoList &infoList);
    int get_trustFileList(STrustFileInfoList &infoList);
    int restore_quarantineFile(const QStringList &fileList, int dealMode);
    int set_scanConfig(int configType, int configParameters);
    int set_scanEngine(const QString &engineName);
    int set_scanMode(int mode);
    int set_scanStatus(int status);
    int special_scan(int scanType, const QStringList &filePath);
    int test(int status);

private:
    // The control emits the daemon's signals, plans its faults and reports its calls and state.
    friend class DaemonControl;

    // Records the call being served and applies an injected fault; true when the fault decided the
    // answer, which is then in value and described in outcome.
    bool intercept(int &value, QString &outcome);
    // Serves one daemon method: records it, applies an injected fault or runs the body, and
    // reports the reply.
    template <typename Body> int serve(Body body);
    bool quarantine(const QString &path, const QString &virusName);

    DaemonAdaptor *m_adaptor = nullptr;
    bool m_quiet = false;
    FaultPlan m_faults;
    QJsonArray m_calls;
    SIsolateFileInfoList m_quarantine;
    STrustFileInfoList m_trustFiles;
    SExtensionInfoList m_trustExtensions;
    SEngineInfoList m_engines;
    SScanConfigInfo m_config;
    QString m_engine;
    int m_scanMode = 0;
    int m_scanStatus = 0;
    int m_protectDate = 30;
};

#endif // VIRUSDAEMONSTANDIN_H
