#ifndef CAUTHDIALOGTHREAD_H
#define CAUTHDIALOGTHREAD_H

#include "virusrecords.h"

#include <QMutex>
#include <QThread>

#include <atomic>

// Turns bursts of threat announcements into one request at a time: once a second, while the
// bridge is ready, the oldest queued threat is handed to the bridge on the GUI thread.
class CAuthDialogThread : public QThread
{
    Q_OBJECT

public:
    CAuthDialogThread();
    ~CAuthDialogThread() override;

    // Called on the GUI thread for every threat the daemon announces.
    void addVirusInfo(const SVirusInfo &info);
    // Called by the bridge once the threat handed out last has been shown to the user.
    void setReady();
    // How many threats wait in the queue.
    int pendingCount() const;

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

#endif // CAUTHDIALOGTHREAD_H
