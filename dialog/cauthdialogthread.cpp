#include "cauthdialogthread.h"

#include "cvorngenlog.h"

CAuthDialogThread::CAuthDialogThread() : QThread(nullptr), m_pMutex(new QMutex) {}

// The mutex is deliberately never freed: the thread, like the bridge, lives until the process ends.
CAuthDialogThread::~CAuthDialogThread() = default;

void CAuthDialogThread::addVirusInfo(const SVirusInfo &info)
{
    QMutexLocker locker(m_pMutex);
    m_virusList.append(info);
}

void CAuthDialogThread::setReady()
{
    m_bReady = true;
}

int CAuthDialogThread::pendingCount() const
{
    QMutexLocker locker(m_pMutex);
    return m_virusList.size();
}

void CAuthDialogThread::run()
{
    for (;;) {
        QThread::sleep(1);
        if (!m_bReady)
            continue;
        SVirusInfo info;
        {
            // The emptiness test is made under the lock too: the GUI thread appends concurrently.
            QMutexLocker locker(m_pMutex);
            if (m_virusList.isEmpty())
                continue;
            info = m_virusList.takeFirst();
        }
        emit signal_showDialog(info);
        // Cleared after the emit, in this order: a bridge that re-armed in between is overruled
        // and waits for its next box, but never gets two threats at once.
        m_bReady = false;
        CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan, 0,
                                             QStringLiteral("CVirusDbusMiddle: authDialog already exec"),
                                             CVornGenLog::Info);
    }
}
