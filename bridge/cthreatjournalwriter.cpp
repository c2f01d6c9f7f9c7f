#include "cthreatjournalwriter.h"

#include <QDBusConnection>

// The timer is this object's child, so that it moves along and ticks on the journal's thread.
CThreatJournalWriter::CThreatJournalWriter(const QString &directory)
    : m_journal(directory), m_takeOverTimer(this)
{
    m_thread.setObjectName(QStringLiteral("threat journal"));
    m_takeOverTimer.setInterval(1000);
    connect(&m_takeOverTimer, &QTimer::timeout, this, &CThreatJournalWriter::tryTakeOver);
}

CThreatJournalWriter::~CThreatJournalWriter()
{
    // The timer is stopped on the thread it ticks on, before that thread ends.
    if (m_thread.isRunning())
        QMetaObject::invokeMethod(this, [this] {
            m_takeOverTimer.stop();
            m_thread.quit();
        });
    m_thread.wait();
}

bool CThreatJournalWriter::start(const QDBusConnection &connection, const QString &service,
                                 const QString &path, const QString &interface)
{
    moveToThread(&m_thread);
    m_thread.start();
    if (m_journal.waitsForLock())
        QMetaObject::invokeMethod(this, [this] { m_takeOverTimer.start(); });
    return QDBusConnection(connection)
        .connect(service, path, interface, QStringLiteral("signal_showAuthDialog"), this,
                 SLOT(add(SVirusInfo)));
}

void CThreatJournalWriter::forget(const SVirusInfo &info)
{
    QMetaObject::invokeMethod(
        this,
        [this, info] {
            tryTakeOver();
            m_journal.remove(info);
        },
        Qt::QueuedConnection);
}

void CThreatJournalWriter::add(SVirusInfo info)
{
    // A journal its holder has left is taken over first: nothing waits in memory for the next tick.
    tryTakeOver();
    m_journal.add(info);
}

void CThreatJournalWriter::tryTakeOver()
{
    if (!m_journal.waitsForLock())
        return;
    m_journal.takeOver();
    // What was restored is handed on even if the take-over failed after reading: it is on disk.
    const SVirusInfoList restored = m_journal.takeRestored();
    if (!restored.isEmpty())
        emit restoredLater(restored);
    if (!m_journal.waitsForLock())
        m_takeOverTimer.stop();
}
