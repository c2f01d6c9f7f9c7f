#include "cvirusdbusmiddle.h"

#include "accessibleinfo.h"
#include "bridgelogging.h"
#include "checkconnected.h"
#include "cthreatjournal.h"
#include "cthreatqueue.h"
#include "cvorngenlog.h"
#include "virusscaninterface.h"
#include "vorntext.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingReply>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QThread>

#include <cstdio>
#include <utility>

Q_LOGGING_CATEGORY(lcBridge, "vorn.bridge", QtInfoMsg)

namespace {

const QString kDefaultCommand = QStringLiteral("vorn-defender --virus-protect");
const QString kDefaultKey = QStringLiteral("default");

QString number(int value)
{
    return QString::number(value);
}

bool is(int state, BoxAnswer answer)
{
    return state == int(answer);
}

// A button's key: the answer the service reports when it is pressed.
QString key(BoxAnswer answer)
{
    return QString::number(int(answer));
}

// "Virus name:% 1, click to view details" is the message id as it stands: the English text has no
// placeholder (the blank is deliberate) and is shown unchanged, while a translation with a proper
// first placeholder shows the name. The check also keeps QString::arg from warning about the
// missing placeholder.
QString nameLine(const QString &virusName)
{
    static const QRegularExpression placeholder(QStringLiteral("%[0-9]"));
    const QString text = vornText("Virus name:% 1, click to view details");
    return text.contains(placeholder) ? text.arg(virusName) : text;
}

// Every window the agent shows is parentless, and under Qt's default quit policy closing the last
// visible one would end the agent for the rest of the session. The application's policy stays as
// it is; the windows simply do not count.
void keepAgentRunning(QWidget *window)
{
    window->setAttribute(Qt::WA_QuitOnClose, false);
}

// One record per item, in list order: a result of 0 is success, anything else failure.
void logPlainPerItem(const QStringList &items, int result, const QString &prefix,
                     const QString &suffix = QString())
{
    for (const QString &item : items) {
        const QString message = prefix + item + suffix;
        if (result == 0)
            CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan, 0, message, CVornGenLog::Info);
        else
            CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan, 1, message, CVornGenLog::Failure);
    }
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
    m_pRiskBox = new CRiskBoxClient(this, SLOT(slot_ResultSignal(int, int, QString)), this);
    if (!m_pRiskBox->isValid())
        logFailure(QStringLiteral("CVirusDbusMiddle m_pNotifyInterface is false"));

    // Registered before any thread or queued connection can carry a record: Qt 5 marks a queued
    // connection that meets an unregistered type unusable for good.
    registerDaemonMetaTypes();
    CThreatQueue::Host host;
    host.showThreat = [this](const SVirusInfo &info) { return get_signalResult(info); };
    host.handledFiles = [this] {
        // The lists name the file first.
        SIsolateFileInfoList quarantined;
        STrustFileInfoList trusted;
        get_quarantineFileList(quarantined);
        get_trustFileList(trusted);
        QSet<QString> handled;
        for (const SIsolateFileInfo &file : std::as_const(quarantined))
            handled << file.text1;
        for (const STrustFileInfo &file : std::as_const(trusted))
            handled << file.text1;
        return handled;
    };
    host.serviceUp = [this] { return m_pRiskBox->isUsable(); };
    m_pQueue = new CThreatQueue(std::move(host), this);
    connect(m_pRiskBox, &CRiskBoxClient::ownerChanged, m_pQueue, &CThreatQueue::ownerChanged);
    checkConnected(connect(m_pQueue->dialogThread(), SIGNAL(signal_showDialog(SVirusInfo)), this,
                           SLOT(slot_ExecAuthDialog(SVirusInfo))),
                   "signal_showDialog");
    m_pQueue->startThread();

    m_pVirusInterface = new VirusScanInterface(QStringLiteral("com.vorn.virus"), QStringLiteral("/daemon"),
                                               QDBusConnection::systemBus(), this);
    // Threats an earlier run left undecided go first, before the daemon can announce new ones.
    m_pQueue->openJournal(CThreatJournal::defaultDirectory());
    // The service may have come while the journal was read, before the watcher could see it.
    if (m_pQueue->restoredWaiting() && QDBusConnection::systemBus()
                                           .interface()
                                           ->isServiceRegistered(QStringLiteral("com.tarsel.secriskbox"))
                                           .value())
        m_pQueue->restore({}, true);

    // The journal's match is registered first, so it hears every threat the bridge hears (and a
    // first few more, which it keeps for the next start). QtDBus posts a threat to both in one pass,
    // before any answer that could decide it, so a decision never overtakes the threat's record.
    checkConnected(m_pQueue->listen(m_pVirusInterface->connection(), m_pVirusInterface->service(),
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
}

// The way of a threat: the daemon announces it, the queue hands it back through the dialog thread,
// its box is drawn, and the answer becomes a daemon call.

void CVirusDbusMiddle::slot_addAuthDialog(SVirusInfo info)
{
    m_pQueue->announced(info);
}

int CVirusDbusMiddle::slot_ExecAuthDialog(SVirusInfo info)
{
    m_pQueue->handedOut(info, get_signalResult(info) >= 0);
    return 0;
}

int CVirusDbusMiddle::get_signalResult(const SVirusInfo &info)
{
    const SVirusBoxInfo entry{BoxKind::ThreatFound,
                              info.virusName,
                              info.virusDetail,
                              info.virusPath,
                              info.virusFlag,
                              QString(),
                              false};
    // The threat-found box has no default action, and a timeout instead of a fold.
    const int ret =
        showAnsweredBox(0,
                        {vornText("Discover virus threat"), vornText("Virus name:%1").arg(info.virusName),
                         vornText("Virus Path:%1").arg(info.virusPath)},
                        {vornText("Clear Now"), key(BoxAnswer::ClearNow), vornText("Not for the time being"),
                         key(BoxAnswer::NotNow), vornText("Trust"), key(BoxAnswer::TrustThreat)},
                        CRiskBoxClient::Finish::Timeout, entry);
    if (ret < 0)
        return ret;
    qCDebug(lcBridge, "get_signalResult   virusPath:%s   virusName:%s", qUtf8Printable(info.virusPath),
            qUtf8Printable(info.virusName));
    m_pQueue->threatShown();
    return ret;
}

int CVirusDbusMiddle::slot_sysPop(QString file)
{
    std::printf("slot_sysPop file:%s\n", file.toLocal8Bit().constData());
    SVirusBoxInfo entry;
    entry.iVirusType = BoxKind::QuarantinedNotice;
    // The notice keeps its argument as the name: it travels on to the trust confirmation as a path.
    entry.virusName = file;
    // The Trust key is empty on purpose: the service reports an empty key as state 1.
    return showAnsweredBox(
        1, {vornText("The virus has been cleared and backed up to the quarantine area"), nameLine(file)},
        {kDefaultCommand, kDefaultKey, vornText("Trust"), QString()}, CRiskBoxClient::Finish::Fold, entry);
}

int CVirusDbusMiddle::show_selectVirusBoxNotify(const QString &strVirusName)
{
    logFailure(QStringLiteral("show_selectVirusBoxNotify strVirusName:%1").arg(strVirusName));
    std::printf("show_selectVirusBoxNotify strVirusName: %s\n", strVirusName.toLocal8Bit().constData());
    SVirusBoxInfo entry;
    entry.iVirusType = BoxKind::TrustConfirmation;
    // The confirmation and the retry keep their argument as the path to trust, and no name, on purpose.
    entry.virusPath = strVirusName;
    return showAnsweredBox(1, {vornText("Are you sure to move to the trust zone?"), nameLine(strVirusName)},
                           {kDefaultCommand, kDefaultKey, vornText("Cancel"), key(BoxAnswer::Cancel),
                            vornText("Confirm"), key(BoxAnswer::Confirm)},
                           CRiskBoxClient::Finish::Fold, entry);
}

int CVirusDbusMiddle::show_retryVirusBoxNotify(const QString &strVirusName)
{
    std::printf("show_retryVirusBoxNotify strVirusName: %s\n", strVirusName.toLocal8Bit().constData());
    SVirusBoxInfo entry;
    entry.iVirusType = BoxKind::TrustRetry;
    entry.virusPath = strVirusName;
    // As on the quarantined notice, the Trust key is empty on purpose and comes back as state 1.
    return showAnsweredBox(1,
                           {vornText("Could not successfully move to the trust zone, please try again?"),
                            nameLine(strVirusName)},
                           {kDefaultCommand, kDefaultKey, vornText("Trust"), QString()},
                           CRiskBoxClient::Finish::Fold, entry);
}

CRiskBoxClient::Step CVirusDbusMiddle::drawBox(int createType, const QStringList &contents,
                                               const QStringList &buttons, CRiskBoxClient::Finish finish,
                                               int &iId, int &ret)
{
    const CRiskBoxClient::Step failed = m_pRiskBox->draw(createType, contents, buttons, finish, iId, ret);
    if (failed == CRiskBoxClient::Step::None)
        ++m_nBoxesShown;
    return failed;
}

int CVirusDbusMiddle::showAnsweredBox(int createType, const QStringList &contents, const QStringList &buttons,
                                      CRiskBoxClient::Finish finish, const SVirusBoxInfo &entry)
{
    int iId = -1;
    int ret = -1;
    // A box that failed at any step is never remembered; one already created is not withdrawn.
    if (drawBox(createType, contents, buttons, finish, iId, ret) != CRiskBoxClient::Step::None)
        return ret;
    m_pQueue->boxDrawn(iId, entry, m_pRiskBox->owner());
    return ret;
}

bool CVirusDbusMiddle::showNotice(const QString &headline, const QString &virusName, int id, int state)
{
    int iId = -1;
    int ret = -1;
    const CRiskBoxClient::Step failed =
        drawBox(1, {headline, nameLine(virusName)}, {kDefaultCommand, kDefaultKey},
                CRiskBoxClient::Finish::None, iId, ret);
    // The failure lines fill %1, %2, %4, %5, %6, %7 in that order; %3 is absent on purpose. One
    // multi-argument arg() fills them in a single pass.
    QString format;
    int code = ret;
    switch (failed) {
    case CRiskBoxClient::Step::None: return true;
    case CRiskBoxClient::Step::Create:
        format =
            QStringLiteral("create_secRiskBox   iId:%6  iRet: %7   id:%1 state:%2  iVirusType:%4 state:%5");
        code = 0;
        break;
    case CRiskBoxClient::Step::AddButton:
        format = QStringLiteral(
            "add_secRiskBoxAction   iId:%6  iRet: %7   id:%1 state:%2  iVirusType:%4 state:%5");
        break;
    default:
        format =
            QStringLiteral("show_secRiskBox   iId:%6  iRet: %7   id:%1 state:%2  iVirusType:%4 state:%5");
        break;
    }
    logFailure(format.arg(number(id), number(state), number(int(BoxKind::ThreatFound)), number(state),
                          number(iId), number(code)));
    return false;
}

void CVirusDbusMiddle::slot_ResultSignal(int id, int state, QString reserved)
{
    Q_UNUSED(reserved)
    const SVirusBoxInfo *found = m_pQueue->find(id);
    if (!found) {
        // Two blanks after the slot name, as the security log has always had them.
        logFailure(QStringLiteral("slot_ResultSignal  virusMap is err! id:%1 state:%2")
                       .arg(number(id), number(state)));
        return;
    }
    ++m_nAnswersHandled;
    // A copy: the boxes raised below may add entries.
    const SVirusBoxInfo entry = *found;
    logEvent(QStringLiteral("slot_ResultSignal start! id:%1 state:%2").arg(number(id), number(state)));

    bool carriedOut = true;
    // Only a handling that succeeded forgets the threat: what was not done comes back at the next
    // start, even where the answer counts as handled here.
    bool done = false;
    switch (entry.iVirusType) {
    case BoxKind::QuarantinedNotice:
        // %3 is absent from this format on purpose; the values fill %1, %2, %4, %5.
        logEvent(QStringLiteral("slot_ResultSignal id:%1 state:%2  iVirusType:%4 state:%5")
                     .arg(number(id), number(state), number(int(entry.iVirusType)), number(state)));
        if (is(state, BoxAnswer::Trust))
            show_selectVirusBoxNotify(entry.virusName);
        break;
    case BoxKind::TrustConfirmation:
        if (is(state, BoxAnswer::Confirm))
            trustProcedure(id, state, entry);
        break;
    case BoxKind::TrustRetry:
        if (is(state, BoxAnswer::Trust))
            trustProcedure(id, state, entry);
        break;
    case BoxKind::ThreatFound:
        logEvent(QStringLiteral("iVirusType == 3  id:%1 state:%2  iVirusType:%4 state:%5")
                     .arg(number(id), number(state), number(int(entry.iVirusType)), number(state)));
        // A box that timed out is handled like Clear Now.
        if (is(state, BoxAnswer::ClearNow) || is(state, BoxAnswer::TimedOut)) {
            carriedOut = clearProcedure(id, state, entry, done);
        } else if (is(state, BoxAnswer::TrustThreat)) {
            carriedOut = trustFromThreatProcedure(id, entry, done);
        } else if (is(state, BoxAnswer::NotNow)) {
            logEvent(QStringLiteral("CAuthDialog: Click not to process"));
            logEvent(QStringLiteral("Not for the time being"));
            done = true;
        }
        break;
    }
    m_pQueue->answered(id, entry, carriedOut, done);
}

void CVirusDbusMiddle::trustProcedure(int id, int state, const SVirusBoxInfo &entry)
{
    const QStringList files{entry.virusPath};
    const int ret = addTrustFiles(files);
    logEvent(QStringLiteral("slot_ResultSignal id:%1 state:%2  iVirusType:%4 state:%5 ret:%6")
                 .arg(number(id), number(state), number(int(entry.iVirusType)), number(state), number(ret)));
    if (ret != 0) {
        logFailure(QStringLiteral("Failed to add file to trust zone."));
        // The name of a confirmation's entry is empty, so the retry box carries an empty name:
        // required as it stands. A failure on a retry box raises nothing further.
        if (entry.iVirusType == BoxKind::TrustConfirmation)
            show_retryVirusBoxNotify(entry.virusName);
    }
    // Whether or not the trust add worked, the file comes back out of quarantine.
    restoreQuarantineFiles(files, 1);
}

bool CVirusDbusMiddle::clearProcedure(int id, int state, const SVirusBoxInfo &entry, bool &done)
{
    logEvent(QStringLiteral("CAuthDialog: Click deal right now"));
    const int notProcessed = dealThreats({SQuarantineFileInfo{entry.virusPath, entry.virusName}}, &done);
    if (!showNotice(vornText("The virus has been cleared and backed up to the quarantine area"),
                    entry.virusName, id, state))
        return false;
    // A refused quarantine keeps the entry, so a later answer for the same box can try again.
    return notProcessed != -1;
}

bool CVirusDbusMiddle::trustFromThreatProcedure(int id, const SVirusBoxInfo &entry, bool &done)
{
    logEvent(QStringLiteral("CAuthDialog: Click trust"));
    const QStringList files{entry.virusPath};
    const int ret = addTrustFiles(files, &done);
    // The notice is raised whatever the trust add gave.
    if (!showNotice(vornText("Moved to trust zone"), entry.virusName, id, int(BoxAnswer::TrustThreat)))
        return false;
    if (ret != 0)
        return false;
    // Written a second time after the trust add's own records, as the security log has them.
    logTrustAdded(files, QStringLiteral("Successfully"));
    return true;
}

// Quarantine and trust zone.

int CVirusDbusMiddle::dealThreats(const SQuarantineFileInfoList &fileList, bool *done)
{
    // A failed call carries no int and reads as 0 items not processed.
    QDBusPendingReply<int> reply = m_pVirusInterface->add_quarantineFile(fileList);
    const int notProcessed = reply.value();
    if (done)
        *done = !reply.isError() && notProcessed == 0;
    logThreatsDealt(fileList.size(), notProcessed);
    return notProcessed;
}

void CVirusDbusMiddle::logThreatsDealt(int items, int notProcessed)
{
    CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan,
                                         QStringLiteral("Processing completed, ") +
                                             number(items - notProcessed) +
                                             QStringLiteral(" item(s) processed, ") + number(notProcessed) +
                                             QStringLiteral(" item(s) not processed."),
                                         QStringLiteral("Dealing with threats"), CVornGenLog::Summary);
}

void CVirusDbusMiddle::logTrustAdded(const QStringList &files, const QString &result)
{
    // The result word follows the blank without a separator.
    for (const QString &file : files)
        CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan,
                                             QStringLiteral("Add file ") + file +
                                                 QStringLiteral(" to trust zone ") + result,
                                             QStringLiteral("Add file to trust zone"), CVornGenLog::Info);
}

int CVirusDbusMiddle::restoreQuarantineFiles(const QStringList &files, int dealMode)
{
    return m_pVirusInterface->restore_quarantineFile(files, dealMode).value();
}

int CVirusDbusMiddle::addTrustFiles(const QStringList &files, bool *done)
{
    // The number of files the daemon could not add; a reply without an int counts as success.
    QDBusPendingReply<int> reply = m_pVirusInterface->add_trustFile(files);
    const int failed = reply.value();
    if (done)
        *done = !reply.isError() && failed == 0;
    // Every file of the list is reported with the one outcome, not only the failed ones.
    logTrustAdded(files, failed == 0 ? QStringLiteral("Successfully") : QStringLiteral("failed"));
    if (failed == 0)
        return 0;
    if (failed != files.size())
        return showTrustFailure(QStringLiteral("msgFail"),
                                vornText("Failed to add some files to the trust zone"));
    return showTrustFailure(QStringLiteral("msg"), vornText("Failed to add to trust zone"));
}

int CVirusDbusMiddle::showTrustFailure(const QString &objectName, const QString &text)
{
    QMessageBox box(QMessageBox::Critical, QString(), text, QMessageBox::NoButton);
    box.addButton(vornText("Confirm"), QMessageBox::YesRole);
    setAccessibleInfo(&box, objectName, QStringLiteral("CVirusDbusMiddle"), QStringLiteral("vorn-virus-scan"),
                      QString());
    keepAgentRunning(&box);
    box.exec();
    return -1;
}

int CVirusDbusMiddle::deleteTrustFiles(const QStringList &files)
{
    const int result = m_pVirusInterface->delete_trustFile(files).value();
    // No blank after "Delete file", as the security log has always had it.
    for (const QString &file : files)
        logEvent(QStringLiteral("Delete file") + file + QStringLiteral(" in the trust zone ") +
                     (result == 0 ? QStringLiteral("Successfully") : QStringLiteral("failed")),
                 QStringLiteral("Delete trust zone file"));
    return result;
}

int CVirusDbusMiddle::addTrustExtensions(const QStringList &extensions)
{
    const int result = m_pVirusInterface->add_trustExtension(extensions).value();
    logPlainPerItem(extensions, result, QStringLiteral("Add file extension "),
                    QStringLiteral(" to trust zone."));
    return result;
}

int CVirusDbusMiddle::deleteTrustExtensions(const QStringList &extensions)
{
    const int result = m_pVirusInterface->delete_trustExtension(extensions).value();
    logPlainPerItem(extensions, result, QStringLiteral("Delete the file extension of the trust zone:  "));
    return result;
}

int CVirusDbusMiddle::deleteQuarantineFiles(const QStringList &files)
{
    const int result = m_pVirusInterface->delete_quarantineFile(files).value();
    logPlainPerItem(files, result, QStringLiteral("Delete quarantine file:  "));
    return result;
}

// The risk-box client's operations, under the names the bridge has always had.

bool CVirusDbusMiddle::reConnectionDBus()
{
    return m_pRiskBox->reconnect();
}

int CVirusDbusMiddle::callNotifyMethod(QList<QVariant> &replyArgs, const QString &method,
                                       const QList<QVariant> &args)
{
    return m_pRiskBox->call(replyArgs, method, args);
}

int CVirusDbusMiddle::create_secRiskBox(int type, const QStringList &contents)
{
    return m_pRiskBox->create(type, contents);
}

int CVirusDbusMiddle::add_secRiskBoxAction(int id, const QStringList &buttons)
{
    return m_pRiskBox->addButtons(id, buttons);
}

int CVirusDbusMiddle::set_secRiskBoxFold(int id, int fold)
{
    return m_pRiskBox->setFold(id, fold);
}

int CVirusDbusMiddle::set_secRiskBoxTimeout(int id, int timeout)
{
    return m_pRiskBox->setTimeout(id, timeout);
}

int CVirusDbusMiddle::show_secRiskBox(int id)
{
    return m_pRiskBox->show(id);
}

// The daemon's other operations, and the scan relay: the bridge's surface for a host's window.

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

void CVirusDbusMiddle::slot_scanItemBegin(int type)
{
    emit signal_fastItemChanged(type);
}

void CVirusDbusMiddle::slot_customItemBegin(QString filePath)
{
    emit signal_customItemStartScan(filePath);
}

void CVirusDbusMiddle::slot_scanDetailInfo(SScaningInfo info)
{
    emit signal_scanDetailInfo(info);
}

void CVirusDbusMiddle::slot_scanItemEnd(SScanItemVirusInfo info)
{
    emit signal_fasetItemEnd(info);
}

void CVirusDbusMiddle::slot_scanFinished(SVirusInfoList infoList)
{
    QThread::usleep(500);
    emit signal_scanEnd(infoList);
}

void CVirusDbusMiddle::slot_dealFinished(int failNum)
{
    emit signal_dealFinish(failNum);
}

void CVirusDbusMiddle::slot_rightScanBegin(QString file)
{
    emit signal_rightBeginScanMiddle(file);
}

void CVirusDbusMiddle::slot_rightClicked()
{
    QMessageBox box(QMessageBox::Warning, vornText("Warning"),
                    vornText("Scanning in progress, please try again later."), QMessageBox::Ok);
    keepAgentRunning(&box);
    box.exec();
}

QMap<int, SVirusBoxInfo> CVirusDbusMiddle::pendingBoxes() const
{
    return m_pQueue->openBoxes();
}

int CVirusDbusMiddle::pendingThreats() const
{
    return m_pQueue->queued().size();
}

void CVirusDbusMiddle::logEvent(const QString &message, const QString &title, int level)
{
    CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan, message, title, level);
}

void CVirusDbusMiddle::logFailure(const QString &message)
{
    CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan, 1, message, CVornGenLog::Failure);
}
