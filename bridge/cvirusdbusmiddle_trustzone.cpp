// The bridge's scan relay, quarantine and trust-zone operations.
#include "cvirusdbusmiddle.h"

#include "accessibleinfo.h"
#include "cauthdialogthread.h"
#include "cvorngenlog.h"
#include "virusscaninterface.h"
#include "vorntext.h"

#include <QMessageBox>
#include <QPushButton>
#include <QThread>

namespace {

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

void CVirusDbusMiddle::slot_addAuthDialog(SVirusInfo info)
{
    // The journal has it too: QtDBus posted the same announcement to the journal's thread.
    m_pAuthDialogThread->addVirusInfo(info);
}

int CVirusDbusMiddle::dealThreats(const SQuarantineFileInfoList &fileList, bool *done)
{
    // A failed call carries no int and reads as 0 items not processed.
    QDBusPendingReply<int> reply = m_pVirusInterface->add_quarantineFile(fileList);
    const int notProcessed = reply.value();
    if (done)
        *done = !reply.isError() && notProcessed == 0;
    logEvent(QStringLiteral("Processing completed, ") + QString::number(fileList.size() - notProcessed) +
                 QStringLiteral(" item(s) processed, ") + QString::number(notProcessed) +
                 QStringLiteral(" item(s) not processed."),
             QStringLiteral("Dealing with threats"), CVornGenLog::Summary);
    return notProcessed;
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
    const QString result = failed == 0 ? QStringLiteral("Successfully") : QStringLiteral("failed");
    // Every file of the list is reported with the one outcome, not only the failed ones.
    for (const QString &file : files)
        logEvent(QStringLiteral("Add file ") + file + QStringLiteral(" to trust zone ") + result,
                 QStringLiteral("Add file to trust zone"));
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
