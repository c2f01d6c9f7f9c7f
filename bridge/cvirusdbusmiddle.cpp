#include "cvirusdbusmiddle.h"

#include "bridgelogging.h"
#include "cauthdialogthread.h"
#include "cthreatjournalwriter.h"
#include "cvorngenlog.h"
#include "virusscaninterface.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>

#include <cstdio>
#include <utility>

Q_LOGGING_CATEGORY(lcBridge, "vorn.bridge", QtInfoMsg)

namespace {

const QString kNotifyService = QStringLiteral("com.tarsel.secriskbox");
const QString kNotifyPath = QStringLiteral("/service");
const QString kNotifyInterface = QStringLiteral("com.tarsel.secriskbox");
const char *const kResultSignal = SIGNAL(signalResult(int, int, QString));
const char *const kResultSlot = SLOT(slot_ResultSignal(int, int, QString));

// The string-based connections are checked in debug builds: a misspelt signature fails only at
// run time.
void checkConnected(bool connected, const char *what)
{
    Q_ASSERT_X(connected, "CVirusDbusMiddle", what);
    if (!connected)
        qCWarning(lcBridge, "could not connect %s", what);
}

} // namespace

CVirusDbusMiddle *CVirusDbusMiddle::getInstance()
{
    // Never freed: the bridge lives until the process ends.
    static CVirusDbusMiddle *instance = new CVirusDbusMiddle(nullptr);
    return instance;
}

CVirusDbusMiddle::CVirusDbusMiddle(QObject *parent) : QObject(parent)
{
    m_connectionName = QStringLiteral("virus_dialog_conn_%1").arg(QCoreApplication::applicationPid());
    std::printf("m_connectionName :%s\n", m_connectionName.toLocal8Bit().constData());

    // The risk-box service is reached on a private connection of its own, so its traffic does not
    // share the default system-bus connection used for the daemon.
    QDBusConnection::connectToBus(QDBusConnection::SystemBus, m_connectionName);
    watchRiskBoxOwner();
    createNotifyInterface();
    if (!m_pNotifyInterface->isValid())
        CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan, 1,
                                             QStringLiteral("CVirusDbusMiddle m_pNotifyInterface is false"),
                                             CVornGenLog::Failure);
    // An interface that could not introspect its peer has no signalResult to connect; the first
    // risk box reconnects, and connects it then.
    if (hasResultSignal())
        checkConnected(connect(m_pNotifyInterface, kResultSignal, this, kResultSlot), "signalResult");

    // Registered before any thread or queued connection can carry a record: Qt 5 marks a queued
    // connection that meets an unregistered type unusable for good.
    registerDaemonMetaTypes();
    m_pAuthDialogThread = new CAuthDialogThread;
    checkConnected(connect(m_pAuthDialogThread, SIGNAL(signal_showDialog(SVirusInfo)), this,
                           SLOT(slot_ExecAuthDialog(SVirusInfo))),
                   "signal_showDialog");
    m_pAuthDialogThread->start(QThread::InheritPriority);

    m_pVirusInterface = new VirusScanInterface(QStringLiteral("com.vorn.virus"), QStringLiteral("/daemon"),
                                               QDBusConnection::systemBus(), this);
    // Threats an earlier run left undecided go first, before the daemon can announce new ones.
    m_pJournal = new CThreatJournalWriter(CThreatJournal::defaultDirectory());
    connect(m_pJournal, &CThreatJournalWriter::restoredLater, this,
            [this](const SVirusInfoList &threats) { queueRestored(threats, notifyInterfaceUsable()); });
    queueRestored(m_pJournal->takeRestored(), notifyInterfaceUsable());
    // The service may have come while the journal was read, before the watcher could see it.
    if (!m_restoredWaiting.isEmpty() &&
        QDBusConnection::systemBus().interface()->isServiceRegistered(kNotifyService).value())
        queueRestored({}, true);

    // The journal's match is registered first, so it hears every threat the bridge hears (and a
    // first few more, which it keeps for the next start). QtDBus posts a threat to both in one pass,
    // before any answer that could decide it, so a decision never overtakes the threat's record.
    checkConnected(m_pJournal->start(m_pVirusInterface->connection(), m_pVirusInterface->service(),
                                     m_pVirusInterface->path(), m_pVirusInterface->interface()),
                   "the threat journal");
    checkConnected(connect(m_pVirusInterface, SIGNAL(signal_showAuthDialog(SVirusInfo)), this,
                           SLOT(slot_addAuthDialog(SVirusInfo))),
                   "signal_showAuthDialog");
    checkConnected(
        connect(m_pVirusInterface, SIGNAL(signal_sysPop(QString)), this, SLOT(slot_sysPop(QString))),
        "signal_sysPop");
    CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan, 0,
                                         QStringLiteral("CVirusDbusMiddle: all signal have been connected"),
                                         CVornGenLog::Info);

    // Fired once and deliberately dropped unread: it only wakes the daemon.
    QDBusPendingReply<int> scanMode = m_pVirusInterface->get_scanMode();
    Q_UNUSED(scanMode)
    virusMap.clear();
}

void CVirusDbusMiddle::queueRestored(const SVirusInfoList &threats, bool serviceUp)
{
    m_restoredWaiting += threats;
    // A threat box that cannot be shown holds the queue: restored threats wait for a service that
    // is away, so that a session whose service starts late is not left silent.
    if (m_restoredWaiting.isEmpty() || !serviceUp)
        return;
    for (const SVirusInfo &info : notHandledElsewhere(std::exchange(m_restoredWaiting, SVirusInfoList())))
        m_pAuthDialogThread->addVirusInfo(info);
}

SVirusInfoList CVirusDbusMiddle::notHandledElsewhere(const SVirusInfoList &restored)
{
    // Another session, or the user in the security centre, may have quarantined or trusted a file
    // while no agent ran: its threat is not asked about again. The lists name the file first.
    SIsolateFileInfoList quarantined;
    STrustFileInfoList trusted;
    get_quarantineFileList(quarantined);
    get_trustFileList(trusted);
    QSet<QString> handled;
    for (const SIsolateFileInfo &file : std::as_const(quarantined))
        handled << file.text1;
    for (const STrustFileInfo &file : std::as_const(trusted))
        handled << file.text1;
    SVirusInfoList left;
    for (const SVirusInfo &info : restored) {
        if (handled.contains(info.virusPath))
            m_pJournal->forget(info);
        else
            left << info;
    }
    return left;
}

void CVirusDbusMiddle::ownerGone(const QString &owner)
{
    if (owner.isEmpty() || m_goneOwners.contains(owner))
        return;
    m_goneOwners.insert(owner);
    for (const SVirusBoxInfo &entry : std::as_const(virusMap))
        if (entry.owner == owner && entry.iVirusType == 3 && !entry.answered)
            m_unshown << SVirusInfo{entry.virusName, entry.virusDetail, entry.virusPath, entry.virusFlag};
}

void CVirusDbusMiddle::riskBoxOwnerChanged(const QString &oldOwner, const QString &newOwner)
{
    // At once, so that no answer the next owner sends can be taken for the old owner's.
    ownerGone(oldOwner);
    if (newOwner.isEmpty())
        return;
    // The boxes are raised from the event loop, not inside the watcher's signal: they make blocking
    // calls on the connection the watcher listens on, and may rebuild it.
    QMetaObject::invokeMethod(
        this,
        [this] {
            queueRestored({}, true);
            showUnshown();
        },
        Qt::QueuedConnection);
}

void CVirusDbusMiddle::showUnshown()
{
    if (m_unshown.isEmpty())
        return;
    // The ready flag is set only by a threat box that was shown: the bridge shows one itself.
    if (m_threadWaiting) {
        const SVirusInfo oldest = m_unshown.takeFirst();
        if (get_signalResult(oldest) < 0) {
            m_unshown.prepend(oldest);
            return;
        }
    }
    for (const SVirusInfo &info : std::exchange(m_unshown, SVirusInfoList()))
        m_pAuthDialogThread->addVirusInfo(info);
}

bool CVirusDbusMiddle::hasResultSignal() const
{
    return m_pNotifyInterface->metaObject()->indexOfSignal("signalResult(int,int,QString)") >= 0;
}

bool CVirusDbusMiddle::notifyInterfaceUsable() const
{
    return m_pNotifyInterface->isValid() && hasResultSignal();
}

void CVirusDbusMiddle::watchRiskBoxOwner()
{
    // Watched on the connection its answers arrive on, so that an owner's change is seen before
    // anything the next owner sends. A new connection of the same name gets a new watcher: one
    // told to move to a connection of its own connection's name stays where it was.
    // A reconnection may run inside the old watcher's own signal: it is let go, not deleted there.
    if (m_pOwnerWatcher) {
        m_pOwnerWatcher->disconnect(this);
        m_pOwnerWatcher->deleteLater();
    }
    m_pOwnerWatcher = new QDBusServiceWatcher(kNotifyService, QDBusConnection(m_connectionName),
                                              QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(m_pOwnerWatcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &oldOwner, const QString &newOwner) {
                riskBoxOwnerChanged(oldOwner, newOwner);
            });
}

void CVirusDbusMiddle::createNotifyInterface()
{
    m_pNotifyInterface =
        new QDBusInterface(kNotifyService, kNotifyPath, kNotifyInterface, QDBusConnection(m_connectionName));
}

bool CVirusDbusMiddle::reConnectionDBus()
{
    if (m_pNotifyInterface) {
        if (hasResultSignal())
            disconnect(m_pNotifyInterface, kResultSignal, this, kResultSlot);
        delete m_pNotifyInterface;
        m_pNotifyInterface = nullptr;
    }
    QDBusConnection::disconnectFromBus(m_connectionName);
    QDBusConnection::connectToBus(QDBusConnection::SystemBus, m_connectionName);
    watchRiskBoxOwner();
    createNotifyInterface();
    if (!m_pNotifyInterface->isValid()) {
        // The invalid interface stays in place: the next box tries again.
        CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan, 1,
                                             QStringLiteral("CVirusDbusMiddle reConnectionDBus failed: %1")
                                                 .arg(m_pNotifyInterface->lastError().message()),
                                             CVornGenLog::Failure);
        return false;
    }
    checkConnected(connect(m_pNotifyInterface, kResultSignal, this, kResultSlot), "signalResult");
    return true;
}

int CVirusDbusMiddle::callNotifyMethod(QList<QVariant> &replyArgs, const QString &method,
                                       const QList<QVariant> &args)
{
    const QDBusMessage response = m_pNotifyInterface->callWithArgumentList(QDBus::AutoDetect, method, args);
    if (response.type() != QDBusMessage::ReplyMessage) {
        std::printf("method:%s  调用失败：response.type():%d \n", method.toLocal8Bit().constData(),
                    int(response.type()));
        return -1;
    }
    replyArgs = response.arguments();
    return 0;
}

int CVirusDbusMiddle::get_protectDate()
{
    return m_pVirusInterface->get_protectDate().value();
}

int CVirusDbusMiddle::get_scanStatus()
{
    return m_pVirusInterface->get_scanStatus().value();
}

int CVirusDbusMiddle::begin_scan(int type, const QStringList &paths)
{
    return m_pVirusInterface->begin_scan(type, paths).value() == 0 ? 0 : -1;
}

int CVirusDbusMiddle::set_scanStatus(int status)
{
    return m_pVirusInterface->set_scanStatus(status).value() == 0 ? 0 : -1;
}

int CVirusDbusMiddle::set_scanEngine(const QString &engine)
{
    return m_pVirusInterface->set_scanEngine(engine).value() == 0 ? 0 : -1;
}

int CVirusDbusMiddle::get_scanMode()
{
    return m_pVirusInterface->get_scanMode().value();
}

int CVirusDbusMiddle::set_scanMode(int mode)
{
    return m_pVirusInterface->set_scanMode(mode).value() == 0 ? 0 : -1;
}

int CVirusDbusMiddle::set_scanConfig(int configType, int configParameters)
{
    return m_pVirusInterface->set_scanConfig(configType, configParameters).value() == 0 ? 0 : -1;
}

int CVirusDbusMiddle::get_quarantineSize()
{
    return m_pVirusInterface->get_quarantineSize().value();
}

int CVirusDbusMiddle::add_quarantineFile(const SQuarantineFileInfoList &fileList)
{
    const int notProcessed = dealThreats(fileList);
    if (notProcessed != -1)
        emit signal_dealFinish(notProcessed);
    return notProcessed;
}

int CVirusDbusMiddle::get_allScanConfig(SScanConfigInfo &configInfo)
{
    return m_pVirusInterface->get_allScanConfig(configInfo).value() == 0 ? 0 : -1;
}

int CVirusDbusMiddle::get_allEngineInfoList(SEngineInfoList &infoList)
{
    return m_pVirusInterface->get_allEngineInfoList(infoList).value() == 0 ? 0 : -1;
}

int CVirusDbusMiddle::get_quarantineFileList(SIsolateFileInfoList &infoList)
{
    return m_pVirusInterface->get_quarantineFileList(infoList).value() == 0 ? 0 : -1;
}

int CVirusDbusMiddle::get_trustExtensionList(SExtensionInfoList &infoList)
{
    return m_pVirusInterface->get_trustExtensionList(infoList).value() == 0 ? 0 : -1;
}

int CVirusDbusMiddle::get_trustFileList(STrustFileInfoList &infoList)
{
    return m_pVirusInterface->get_trustFileList(infoList).value() == 0 ? 0 : -1;
}

int CVirusDbusMiddle::pendingThreats() const
{
    return m_pAuthDialogThread->pendingCount();
}

void CVirusDbusMiddle::logEvent(const QString &message, const QString &title, int level)
{
    CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan, message, title, level);
}

void CVirusDbusMiddle::logFailure(const QString &message)
{
    CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan, 1, message, CVornGenLog::Failure);
}
