#include "cthreatjournalwriter.h"

#include "bridgelogging.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QFileInfo>
#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The termination signals: a handler may do nothing but note them, so it writes the signal's
// number to a pipe that the journal's thread watches.
const int kTerminationSignals[] = {SIGTERM, SIGINT, SIGHUP};
int signalPipe[2] = {-1, -1};

} // namespace

// The timers and the notifier are this object's children, so that they move along and run on the
// journal's thread.
CThreatJournalWriter::CThreatJournalWriter(const QString &directory)
    : m_journal(directory), m_takeOverTimer(this), m_retryTimer(this), m_folderWatcher(this)
{
    m_thread.setObjectName(QStringLiteral("threat journal"));
    m_takeOverTimer.setInterval(1000);
    m_retryTimer.setInterval(5000);
    connect(&m_takeOverTimer, &QTimer::timeout, this, &CThreatJournalWriter::tryTakeOver);
    connect(&m_retryTimer, &QTimer::timeout, this, &CThreatJournalWriter::flush);
    connect(&m_folderWatcher, &QFileSystemWatcher::directoryChanged, this,
            &CThreatJournalWriter::tryTakeOver);
    if (signalPipe[0] < 0 && ::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    m_pSignalNotifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, this);
    connect(m_pSignalNotifier, &QSocketNotifier::activated, this, [this] {
        char signalNumber = 0;
        if (::read(signalPipe[0], &signalNumber, 1) == 1)
            drain(signalNumber);
    });
}

CThreatJournalWriter::~CThreatJournalWriter()
{
    for (int signalNumber : kTerminationSignals)
        std::signal(signalNumber, SIG_DFL);
    // The timers are stopped on the thread they tick on, before that thread ends.
    if (m_thread.isRunning())
        QMetaObject::invokeMethod(this, [this] {
            m_takeOverTimer.stop();
            m_retryTimer.stop();
            m_folderWatcher.removePaths(m_folderWatcher.directories());
            delete m_pSignalNotifier;
            m_thread.quit();
        });
    m_thread.wait();
}

bool CThreatJournalWriter::start(const QDBusConnection &connection, const QString &service,
                                 const QString &path, const QString &interface)
{
    m_connection = connection;
    moveToThread(&m_thread);
    m_thread.start();
    QMetaObject::invokeMethod(this, [this] { restoredAndTimers(); });
    if (m_pSignalNotifier) {
        struct sigaction action = {};
        action.sa_handler = &CThreatJournalWriter::onTerminationSignal;
        action.sa_flags = SA_RESTART;
        for (int signalNumber : kTerminationSignals)
            ::sigaction(signalNumber, &action, nullptr);
    }
    return QDBusConnection(connection)
        .connect(service, path, interface, QStringLiteral("signal_showAuthDialog"), this,
                 SLOT(add(SVirusInfo)));
}

void CThreatJournalWriter::forget(const SVirusInfo &info)
{
    QMetaObject::invokeMethod(
        this,
        [this, info] {
            m_journal.remove(info);
            flushSoon();
        },
        Qt::QueuedConnection);
}

void CThreatJournalWriter::add(SVirusInfo info)
{
    m_journal.add(info);
    flushSoon();
}

void CThreatJournalWriter::flushSoon()
{
    // Behind the events queued already: what they bring is written, and synced, with this.
    if (!m_flushQueued)
        QMetaObject::invokeMethod(this, &CThreatJournalWriter::flush, Qt::QueuedConnection);
    m_flushQueued = true;
}

void CThreatJournalWriter::flush()
{
    m_flushQueued = false;
    if (m_journal.flush())
        qCDebug(lcBridge, "threat journal: written, %lld bytes on disk, %d syncs since start",
                m_journal.size(), m_journal.syncs());
    restoredAndTimers();
}

void CThreatJournalWriter::tryTakeOver()
{
    m_journal.takeOver();
    restoredAndTimers();
}

void CThreatJournalWriter::restoredAndTimers()
{
    // A journal opened late, or taken over, brings threats of its own.
    const SVirusInfoList restored = m_journal.takeRestored();
    if (!restored.isEmpty())
        emit restoredLater(restored);
    // The folder may only come to be once the disk takes writes again.
    if (m_folderWatcher.directories().isEmpty() && QFileInfo(m_journal.directory()).isDir())
        m_folderWatcher.addPath(m_journal.directory());
    if (!m_journal.othersRunning())
        m_takeOverTimer.stop();
    else if (!m_takeOverTimer.isActive())
        m_takeOverTimer.start();
    if (!m_journal.writeFailing())
        m_retryTimer.stop();
    else if (!m_retryTimer.isActive())
        m_retryTimer.start();
}

void CThreatJournalWriter::drain(int signalNumber)
{
    // Announcements Qt D-Bus has read but not yet handed on are handed on before the reply to a
    // call made now, which comes behind them; then what was posted here is handled, and written.
    m_connection.call(QDBusMessage::createMethodCall(
                          QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                          QStringLiteral("org.freedesktop.DBus.Peer"), QStringLiteral("Ping")),
                      QDBus::Block, 1000);
    QCoreApplication::sendPostedEvents(this);
    m_journal.flush();
    std::signal(signalNumber, SIG_DFL);
    ::raise(signalNumber);
}

void CThreatJournalWriter::onTerminationSignal(int signalNumber)
{
    const char number = char(signalNumber);
    // A pipe that cannot take it (it never fills: the first byte ends the process) ends it at once.
    if (::write(signalPipe[1], &number, 1) != 1) {
        std::signal(signalNumber, SIG_DFL);
        ::raise(signalNumber);
    }
}
