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
    // Noted before the flag is set, so that run() sees at least one of the two (see there).
    if (QThread::currentThread() != this)
        m_bReArmedElsewhere = true;
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
        m_bReArmedElsewhere = false;
        emit signal_showDialog(info);
        // Cleared after the emit, in this order: a receiver connected directly runs inside the
        // emit, on this thread, and its re-arm is overruled here. The bridge re-arms from the GUI
        // thread once the box is up, and on a loaded machine that can happen before this thread
        // reaches the clear; such a re-arm is put back, or no threat would ever be shown again.
        m_bReady = false;
        if (m_bReArmedElsewhere)
            m_bReady = true;
        CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan, 0,
                                             QStringLiteral("CVirusDbusMiddle: authDialog already exec"),
                                             CVornGenLog::Info);
    }
}
