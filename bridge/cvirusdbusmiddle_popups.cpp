// The bridge's risk boxes: the common box sequence, the four builders that expect an answer and
// the two notices raised after one.
#include "cvirusdbusmiddle.h"

#include "bridgelogging.h"
#include "cauthdialogthread.h"
#include "cvorngenlog.h"
#include "vorntext.h"

#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QRegularExpression>

#include <cstdio>
#include <utility>

namespace {

const QString kDefaultCommand = QStringLiteral("vorn-defender --virus-protect");
const QString kDefaultKey = QStringLiteral("default");

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

} // namespace

int CVirusDbusMiddle::showRiskBox(int createType, const QStringList &contents, const QStringList &buttons,
                                  BoxExtra extra, int &iId, BoxStep &failedStep)
{
    failedStep = BoxStep::None;
    iId = create_secRiskBox(createType, contents);
    if (iId < 0) {
        std::printf("create_secRiskBox iId: %d\n", iId);
        failedStep = BoxStep::Create;
        return iId;
    }
    int ret = add_secRiskBoxAction(iId, buttons);
    if (ret < 0) {
        std::printf("add_secRiskBoxAction iId:%d iRet: %d\n", iId, ret);
        failedStep = BoxStep::AddButton;
        return ret;
    }
    if (extra == BoxExtra::Fold) {
        ret = set_secRiskBoxFold(iId, 1);
        if (ret < 0) {
            std::printf("set_secRiskBoxFold iId:%d iRet: %d\n", iId, ret);
            failedStep = BoxStep::Fold;
            return ret;
        }
    } else if (extra == BoxExtra::Timeout) {
        ret = set_secRiskBoxTimeout(iId, 10);
        if (ret < 0) {
            std::printf("set_secRiskBoxTimeout iId:%d iRet: %d\n", iId, ret);
            failedStep = BoxStep::Timeout;
            return ret;
        }
    }
    ret = show_secRiskBox(iId);
    if (ret < 0) {
        std::printf("show_secRiskBox iId:%d  iRet: %d\n", iId, ret);
        failedStep = BoxStep::Show;
        return ret;
    }
    ++m_nBoxesShown;
    return ret;
}

int CVirusDbusMiddle::showAnsweredBox(int createType, const QStringList &contents, const QStringList &buttons,
                                      BoxExtra extra, const SVirusBoxInfo &entry)
{
    int iId = -1;
    BoxStep failedStep = BoxStep::None;
    const int ret = showRiskBox(createType, contents, buttons, extra, iId, failedStep);
    // A box that failed at any step is never remembered; one already created is not withdrawn.
    if (failedStep != BoxStep::None)
        return ret;
    // The instance that owns the name now drew it (Qt 6.8 no longer names the sender of a reply,
    // so the bus is asked). An earlier one has gone, even if its going has not been seen yet.
    const QString owner =
        m_pNotifyInterface->connection().interface()->serviceOwner(m_pNotifyInterface->service()).value();
    if (!virusMap.isEmpty() && virusMap.last().owner != owner)
        for (const SVirusBoxInfo &other : std::as_const(virusMap))
            if (other.owner != owner)
                ownerGone(other.owner);
    SVirusBoxInfo drawn = entry;
    drawn.owner = owner;
    virusMap.insert(iId, drawn);
    return ret;
}

int CVirusDbusMiddle::slot_sysPop(QString file)
{
    std::printf("slot_sysPop file:%s\n", file.toLocal8Bit().constData());
    SVirusBoxInfo entry;
    entry.iVirusType = 0;
    // Kind 0 keeps its argument as the name: it travels on to the trust confirmation as a path.
    entry.virusName = file;
    // The Trust key is empty on purpose: the service reports an empty key as state 1.
    return showAnsweredBox(
        1, {vornText("The virus has been cleared and backed up to the quarantine area"), nameLine(file)},
        {kDefaultCommand, kDefaultKey, vornText("Trust"), QString()}, BoxExtra::Fold, entry);
}

int CVirusDbusMiddle::show_selectVirusBoxNotify(const QString &strVirusName)
{
    logFailure(QStringLiteral("show_selectVirusBoxNotify strVirusName:%1").arg(strVirusName));
    std::printf("show_selectVirusBoxNotify strVirusName: %s\n", strVirusName.toLocal8Bit().constData());
    SVirusBoxInfo entry;
    entry.iVirusType = 1;
    // Kinds 1 and 2 keep their argument as the path to trust, and no name, on purpose.
    entry.virusPath = strVirusName;
    return showAnsweredBox(1, {vornText("Are you sure to move to the trust zone?"), nameLine(strVirusName)},
                           {kDefaultCommand, kDefaultKey, vornText("Cancel"), QStringLiteral("1"),
                            vornText("Confirm"), QStringLiteral("2")},
                           BoxExtra::Fold, entry);
}

int CVirusDbusMiddle::show_retryVirusBoxNotify(const QString &strVirusName)
{
    std::printf("show_retryVirusBoxNotify strVirusName: %s\n", strVirusName.toLocal8Bit().constData());
    SVirusBoxInfo entry;
    entry.iVirusType = 2;
    entry.virusPath = strVirusName;
    // As on kind 0, the Trust key is empty on purpose and comes back as state 1.
    return showAnsweredBox(1,
                           {vornText("Could not successfully move to the trust zone, please try again?"),
                            nameLine(strVirusName)},
                           {kDefaultCommand, kDefaultKey, vornText("Trust"), QString()}, BoxExtra::Fold,
                           entry);
}

int CVirusDbusMiddle::get_signalResult(const SVirusInfo &info)
{
    const SVirusBoxInfo entry{3,         info.virusName, info.virusDetail, info.virusPath, info.virusFlag,
                              QString(), false};
    // The threat-found box has no default action, and a timeout instead of a fold.
    const int ret =
        showAnsweredBox(0,
                        {vornText("Discover virus threat"), vornText("Virus name:%1").arg(info.virusName),
                         vornText("Virus Path:%1").arg(info.virusPath)},
                        {vornText("Clear Now"), QStringLiteral("1"), vornText("Not for the time being"),
                         QStringLiteral("2"), vornText("Trust"), QStringLiteral("3")},
                        BoxExtra::Timeout, entry);
    if (ret < 0)
        return ret;
    qCDebug(lcBridge, "get_signalResult   virusPath:%s   virusName:%s", qUtf8Printable(info.virusPath),
            qUtf8Printable(info.virusName));
    // Only a shown threat lets the dialog thread hand out the next one.
    m_pAuthDialogThread->setReady();
    m_threadWaiting = false;
    return ret;
}

int CVirusDbusMiddle::slot_ExecAuthDialog(SVirusInfo info)
{
    // A threat box that failed leaves the dialog thread waiting. If the service was away, the
    // threat is shown once it comes (back). One that was shown tells that the service is there.
    if (get_signalResult(info) < 0) {
        if (!notifyInterfaceUsable())
            m_unshown << info;
        m_threadWaiting = true;
        return 0;
    }
    queueRestored({}, true);
    showUnshown();
    return 0;
}

bool CVirusDbusMiddle::showNotice(const QString &headline, const QString &virusName, int id, int state)
{
    int iId = -1;
    BoxStep failedStep = BoxStep::None;
    const int ret = showRiskBox(1, {headline, nameLine(virusName)}, {kDefaultCommand, kDefaultKey},
                                BoxExtra::None, iId, failedStep);
    // The failure lines fill %1, %2, %4, %5, %6, %7 in that order; %3 is absent on purpose. One
    // multi-argument arg() fills them in a single pass.
    QString format;
    int code = ret;
    switch (failedStep) {
    case BoxStep::None: return true;
    case BoxStep::Create:
        format =
            QStringLiteral("create_secRiskBox   iId:%6  iRet: %7   id:%1 state:%2  iVirusType:%4 state:%5");
        code = 0;
        break;
    case BoxStep::AddButton:
        format = QStringLiteral(
            "add_secRiskBoxAction   iId:%6  iRet: %7   id:%1 state:%2  iVirusType:%4 state:%5");
        break;
    default:
        format =
            QStringLiteral("show_secRiskBox   iId:%6  iRet: %7   id:%1 state:%2  iVirusType:%4 state:%5");
        break;
    }
    logFailure(format.arg(QString::number(id), QString::number(state), QString::number(3),
                          QString::number(state), QString::number(iId), QString::number(code)));
    return false;
}
