#ifndef CTHREATJOURNALWRITER_H
#define CTHREATJOURNALWRITER_H

#include "cthreatjournal.h"

#include <QObject>
#include <QThread>
#include <QTimer>

class QDBusConnection;

// Keeps the journal on a thread of its own. It hears the daemon's announcements itself, on the
// bridge's connection, so that QtDBus delivers each one here at once, whatever the GUI thread is
// waiting for: a blocking call to the daemon or the risk-box service can take many seconds, and a
// logout in that time must not lose what was announced meanwhile. Decisions reach it queued from
// the bridge. While another agent of the user holds the journal, it tries once a second to take it
// over, and hands the threats it then restores to the bridge.
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
    // Threats restored from a journal taken over from another agent of the user.
    void restoredLater(SVirusInfoList threats);

private slots:
    void add(SVirusInfo info);

private:
    void tryTakeOver();

    CThreatJournal m_journal;
    QThread m_thread;
    QTimer m_takeOverTimer;
};

#endif // CTHREATJOURNALWRITER_H
