#include "cthreatqueue.h"

#include "cthreatjournalwriter.h"
#include "cvorngenlog.h"

#include <utility>

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

SVirusInfoList CAuthDialogThread::pending() const
{
    QMutexLocker locker(m_pMutex);
    return m_virusList;
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

CThreatQueue::CThreatQueue(Host host, QObject *parent)
    : QObject(parent), m_host(std::move(host)), m_pThread(new CAuthDialogThread)
{}

CThreatQueue::~CThreatQueue()
{
    delete m_pJournal;
    // A thread that was started is never stopped: it lives until the process ends.
    if (!m_pThread->isRunning())
        delete m_pThread;
}

QObject *CThreatQueue::dialogThread() const
{
    return m_pThread;
}

void CThreatQueue::startThread()
{
    m_pThread->start(QThread::InheritPriority);
}

void CThreatQueue::openJournal(const QString &directory)
{
    m_pJournal = new CThreatJournalWriter(directory);
    connect(m_pJournal, &CThreatJournalWriter::restoredLater, this,
            [this](const SVirusInfoList &threats) { restore(threats, m_host.serviceUp()); });
    restore(m_pJournal->takeRestored(), m_host.serviceUp());
}

bool CThreatQueue::listen(const QDBusConnection &connection, const QString &service, const QString &path,
                          const QString &interface)
{
    return m_pJournal->start(connection, service, path, interface);
}

void CThreatQueue::announced(const SVirusInfo &info)
{
    // The journal has it too: QtDBus posted the same announcement to the journal's thread.
    m_pThread->addVirusInfo(info);
}

void CThreatQueue::restore(const SVirusInfoList &threats, bool serviceUp)
{
    m_restoredWaiting += threats;
    // A threat box that cannot be shown holds the queue: restored threats wait for a service that
    // is away, so that a session whose service starts late is not left silent.
    if (m_restoredWaiting.isEmpty() || !serviceUp)
        return;
    // Another session, or the user in the security centre, may have quarantined or trusted a file
    // while no agent ran: its threat is not asked about again.
    const QSet<QString> handled = m_host.handledFiles();
    for (const SVirusInfo &info : std::exchange(m_restoredWaiting, SVirusInfoList())) {
        if (handled.contains(info.virusPath))
            m_pJournal->forget(info);
        else
            m_pThread->addVirusInfo(info);
    }
}

void CThreatQueue::handedOut(const SVirusInfo &info, bool shown)
{
    // A threat box that failed leaves the dialog thread waiting. If the service was away, the
    // threat is shown once it comes (back). One that was shown tells that the service is there.
    if (!shown) {
        if (!m_host.serviceUp())
            m_unshown << info;
        m_threadWaiting = true;
        return;
    }
    restore({}, true);
    showUnshown();
}

void CThreatQueue::threatShown()
{
    // Only a shown threat lets the dialog thread hand out the next one.
    m_pThread->setReady();
    m_threadWaiting = false;
}

void CThreatQueue::ownerChanged(const QString &oldOwner, const QString &newOwner)
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
            restore({}, true);
            showUnshown();
        },
        Qt::QueuedConnection);
}

void CThreatQueue::ownerGone(const QString &owner)
{
    if (owner.isEmpty() || m_goneOwners.contains(owner))
        return;
    m_goneOwners.insert(owner);
    for (const SVirusBoxInfo &entry : std::as_const(m_boxes))
        if (entry.owner == owner && entry.iVirusType == BoxKind::ThreatFound && !entry.answered)
            m_unshown << entry.threat();
}

void CThreatQueue::showUnshown()
{
    if (m_unshown.isEmpty())
        return;
    // The ready flag is set only by a threat box that was shown: the queue has one shown itself.
    if (m_threadWaiting) {
        const SVirusInfo oldest = m_unshown.takeFirst();
        if (m_host.showThreat(oldest) < 0) {
            m_unshown.prepend(oldest);
            return;
        }
    }
    for (const SVirusInfo &info : std::exchange(m_unshown, SVirusInfoList()))
        m_pThread->addVirusInfo(info);
}

void CThreatQueue::boxDrawn(int id, const SVirusBoxInfo &entry, const QString &owner)
{
    // The instance that owns the name now drew it. An earlier one has gone, even if its going has
    // not been seen yet.
    if (!m_boxes.isEmpty() && m_boxes.last().owner != owner)
        for (const SVirusBoxInfo &other : std::as_const(m_boxes))
            if (other.owner != owner)
                ownerGone(other.owner);
    SVirusBoxInfo drawn = entry;
    drawn.owner = owner;
    m_boxes.insert(id, drawn);
}

const SVirusBoxInfo *CThreatQueue::find(int id) const
{
    const auto found = m_boxes.constFind(id);
    // An id drawn by a service instance that has gone names another box now, perhaps somebody
    // else's: it decides nothing, as an unknown id does.
    if (found == m_boxes.constEnd() || m_goneOwners.contains(found->owner))
        return nullptr;
    return &found.value();
}

void CThreatQueue::answered(int id, const SVirusBoxInfo &entry, bool carriedOut, bool done)
{
    // First, while entry may still be the kept one itself.
    if (done)
        m_pJournal->forget(entry.threat());
    // The boxes raised meanwhile may have drawn this id again, from a service that restarted.
    const auto kept = m_boxes.find(id);
    if (kept != m_boxes.end() && kept->owner == entry.owner) {
        if (carriedOut)
            m_boxes.erase(kept);
        else
            kept->answered = true;
    }
}

SVirusInfoList CThreatQueue::queued() const
{
    return m_pThread->pending();
}
