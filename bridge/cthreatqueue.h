#ifndef CTHREATQUEUE_H
#define CTHREATQUEUE_H

#include "svirusboxinfo.h"
#include "virusrecords.h"

#include <QMap>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QString>
#include <QThread>

#include <atomic>
#include <functional>

class CThreatJournalWriter;
class QDBusConnection;

// Turns bursts of threat announcements into one request at a time: once a second, while the
// bridge is ready, the oldest queued threat is handed to the bridge on the GUI thread. It lives
// here, with the queue it serves, so that a threat's way through the agent crosses one file for it.
class CAuthDialogThread : public QThread
{
    Q_OBJECT

public:
    CAuthDialogThread();
    ~CAuthDialogThread() override;

    // Called on the GUI thread for every threat to show.
    void addVirusInfo(const SVirusInfo &info);
    // Called by the bridge once the threat handed out last has been shown to the user.
    void setReady();
    // The threats that wait in the queue, oldest first.
    SVirusInfoList pending() const;

signals:
    void signal_showDialog(SVirusInfo info);

protected:
    void run() override;

private:
    SVirusInfoList m_virusList;
    QMutex *m_pMutex = nullptr;
    std::atomic<bool> m_bReady{true};
    // Whether another thread re-armed since the current hand-out began.
    std::atomic<bool> m_bReArmedElsewhere{false};
};

// The threats of this agent, from their announcement (or their restoring from a journal) until
// the answer to their box has been handled, and the risk boxes that wait for an answer. It owns
// the dialog thread and the journal, and asks its host (the bridge) to show a threat and what the
// daemon has quarantined or trusted. All of it runs on the GUI thread. Its rules:
//
// 1. Announced threats are handed out by the dialog thread one at a time, oldest first; the next
//    one only once the box of the one before has been shown (threatShown()).
// 2. Restored threats wait while the risk-box service is away. Once it is there, those whose files
//    the daemon has quarantined or trusted meanwhile are forgotten, the others queued.
// 3. A threat whose box failed while the service was away is shown again once it comes (back): at
//    once, when the dialog thread waits for that box, so that its success re-arms the thread. A box
//    that failed while the service was there is not tried again, and holds the queue.
// 4. The boxes a service instance drew go with it: their ids decide nothing from then on, and its
//    threat boxes that had no answer are shown again (rule 3). A box drawn by a new instance tells
//    that every other one has gone, even before the bus says so.
// 5. An answered box is forgotten, unless its handling could not be carried out: then it stays, as
//    answered, for another answer, and is not shown again when its service goes.
// 6. The journal forgets a threat only when its handling succeeded; whatever else happens, it
//    comes back at the next start.
class CThreatQueue : public QObject
{
    Q_OBJECT

public:
    // What the queue asks of its host.
    struct Host
    {
        // Shows a threat's box now; negative when it could not be shown.
        std::function<int(const SVirusInfo &)> showThreat;
        // The files the daemon has quarantined or trusted.
        std::function<QSet<QString>()> handledFiles;
        // Whether the risk-box service can be reached now.
        std::function<bool()> serviceUp;
    };

    explicit CThreatQueue(Host host, QObject *parent = nullptr);
    ~CThreatQueue() override;

    // The dialog thread, whose signal_showDialog(SVirusInfo) the host connects; then started.
    QObject *dialogThread() const;
    void startThread();
    // Opens the journal in directory and queues the threats it restored (rule 2).
    void openJournal(const QString &directory);
    // Whether restored threats wait for the service.
    bool restoredWaiting() const { return !m_restoredWaiting.isEmpty(); }
    // Lets the journal hear the daemon's announcements itself; false if it could not listen.
    bool listen(const QDBusConnection &connection, const QString &service, const QString &path,
                const QString &interface);

    void announced(const SVirusInfo &info);
    // Restored threats (rule 2); with none, those that waited are tried again.
    void restore(const SVirusInfoList &threats, bool serviceUp);
    // The dialog thread handed info out, and its box was shown or not (rules 1, 3).
    void handedOut(const SVirusInfo &info, bool shown);
    // A threat's box was shown: the dialog thread may hand out the next one.
    void threatShown();
    // The risk-box service's name changed hands (rule 4).
    void ownerChanged(const QString &oldOwner, const QString &newOwner);

    // A box that expects an answer was drawn by the service instance owner.
    void boxDrawn(int id, const SVirusBoxInfo &entry, const QString &owner);
    // The box an answer names, or nullptr when it is unknown or its service has gone.
    const SVirusBoxInfo *find(int id) const;
    // The answer to the box id, whose entry was entry, has been handled (rules 5, 6).
    void answered(int id, const SVirusBoxInfo &entry, bool carriedOut, bool done);

    QMap<int, SVirusBoxInfo> openBoxes() const { return m_boxes; }
    SVirusInfoList queued() const;

private:
    void ownerGone(const QString &owner);
    void showUnshown();

    Host m_host;
    CAuthDialogThread *m_pThread = nullptr;
    CThreatJournalWriter *m_pJournal = nullptr;
    // Restored threats waiting for the risk-box service.
    SVirusInfoList m_restoredWaiting;
    // Threats whose box vanished with its service, or failed while it was away, oldest first, and
    // whether the dialog thread waits for a box that failed.
    SVirusInfoList m_unshown;
    bool m_threadWaiting = false;
    QMap<int, SVirusBoxInfo> m_boxes;
    // The service instances that have left the name (a unique name never returns).
    QSet<QString> m_goneOwners;
};

#endif // CTHREATQUEUE_H
