#ifndef CTHREATJOURNALWRITER_H
#define CTHREATJOURNALWRITER_H

#include "cthreatjournal.h"

#include <QDBusConnection>
#include <QFileSystemWatcher>
#include <QObject>
#include <QThread>
#include <QTimer>

class QSocketNotifier;

// Keeps the journal on a thread of its own. It hears the daemon's announcements itself, on the
// bridge's connection, so that QtDBus delivers each one here at once, whatever the GUI thread is
// waiting for: a blocking call to the daemon or the risk-box service can take many seconds, and a
// logout in that time must not lose what was announced meanwhile. Decisions reach it queued from
// the bridge.
//
// What reaches it is written, and synced, once the events already queued to it are handled: a
// burst of announcements shares a few syncs, and the sync never delays a box, which the GUI thread
// shows meanwhile. Nothing ticks while all is written and no other agent keeps a journal: a timer
// tries a failed write again, another takes over the journals of agents that end. Another agent's
// journal appearing in the folder is noticed without a timer (inotify).
//
// SIGTERM, SIGINT and SIGHUP first let it write everything queued to it; then the signal ends the
// process as it would have, so the session manager still sees a clean stop.
class CThreatJournalWriter : public QObject
{
    Q_OBJECT

public:
    // Opens the journal on the calling thread, so that its threats are known before any is announced.
    explicit CThreatJournalWriter(const QString &directory);
    ~CThreatJournalWriter() override;

    // The threats the journal restored at opening; handed over once, before start().
    SVirusInfoList takeRestored() { return m_journal.takeRestored(); }
    // Moves to its thread and hears the daemon's threats on connection; false if it could not listen.
    bool start(const QDBusConnection &connection, const QString &service, const QString &path,
               const QString &interface);
    // Forgets a threat whose handling succeeded. Called on any thread; done on the journal's.
    void forget(const SVirusInfo &info);

signals:
    // Threats restored from the journals of agents of the user that have ended.
    void restoredLater(SVirusInfoList threats);

private slots:
    void add(SVirusInfo info);

private:
    void flushSoon();
    void flush();
    void tryTakeOver();
    // Hands on what the journal restored since, and runs the timers that are needed now.
    void restoredAndTimers();
    // Writes what is queued, then lets the signal end the process.
    void drain(int signalNumber);
    static void onTerminationSignal(int signalNumber);

    CThreatJournal m_journal;
    QThread m_thread;
    QTimer m_takeOverTimer;
    QTimer m_retryTimer;
    QFileSystemWatcher m_folderWatcher;
    QDBusConnection m_connection{QString()};
    QSocketNotifier *m_pSignalNotifier = nullptr;
    bool m_flushQueued = false;
};

#endif // CTHREATJOURNALWRITER_H
