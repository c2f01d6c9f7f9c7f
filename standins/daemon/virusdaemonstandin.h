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
// scan mode and configuration, records every call, and can be driven through "/control".
class VirusDaemonStandIn : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.vorn.standin.Control")

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

public slots:
    // The control interface, "/control" on the same connection.
    Q_SCRIPTABLE void Emit(const QString &signal, const QStringList &args);
    Q_SCRIPTABLE void EmitMany(const QString &signal, const QStringList &args, int count);
    Q_SCRIPTABLE void EmitRaw(const QString &member, const QVariantList &args);
    Q_SCRIPTABLE void Fail(const QString &method, const QString &errorName, const QString &message);
    Q_SCRIPTABLE void Force(const QString &method, int value);
    Q_SCRIPTABLE void Hold(const QString &method);
    Q_SCRIPTABLE void Short(const QString &method, int value);
    Q_SCRIPTABLE void Reset(const QString &method);
    Q_SCRIPTABLE QStringList Calls();
    Q_SCRIPTABLE void ClearCalls();
    Q_SCRIPTABLE QString State();

private:
    // Records the call being served and applies an injected fault; true when the fault decided the
    // answer, which is then in value and described in outcome.
    bool intercept(int &value, QString &outcome);
    // Serves one daemon method: records it, applies an injected fault or runs the body, and
    // reports the reply.
    template <typename Body> int serve(Body body);
    bool knownMethod(const QString &method);
    bool controlError(const QString &text);
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
