// The dialog thread: one threat a tick at most, in order, only while the bridge is ready, none lost.
#include "cauthdialogthread.h"
#include "eventlogfile.h"

#include <QElapsedTimer>
#include <QSemaphore>
#include <QtTest>

#include <atomic>

// Receives hand-outs on the GUI thread, as the bridge does, and re-arms the thread if told to.
class HandOutRecorder : public QObject
{
    Q_OBJECT
public:
    explicit HandOutRecorder(CAuthDialogThread *thread) : m_thread(thread) { m_clock.start(); }

    bool rearm = true;
    QStringList names;
    QList<qint64> times;

public slots:
    void onShowDialog(SVirusInfo info)
    {
        names.append(info.virusName);
        times.append(m_clock.elapsed());
        if (rearm)
            m_thread->setReady();
    }

private:
    CAuthDialogThread *m_thread;
    QElapsedTimer m_clock;
};

class TestDialogThread : public QObject
{
    Q_OBJECT

private:
    EventLogFile m_log;
    // Shared with a receiver that runs on the dialog thread, which outlives the test function.
    std::atomic<int> m_handOuts{0};
    QSemaphore m_heldInside;
    QSemaphore m_releaseInside;

    static SVirusInfo threat(const QString &name) { return SVirusInfo{name, QString(), "/p/" + name, false}; }

    // The thread runs for the life of the process, like the agent's: it is never stopped or freed.
    static CAuthDialogThread *startThread(HandOutRecorder *&recorder)
    {
        auto *thread = new CAuthDialogThread;
        recorder = new HandOutRecorder(thread);
        connect(thread, SIGNAL(signal_showDialog(SVirusInfo)), recorder, SLOT(onShowDialog(SVirusInfo)));
        thread->start(QThread::InheritPriority);
        return thread;
    }

private slots:
    void initTestCase() { registerDaemonMetaTypes(); }

    void handsOutInOrderOnePerTick()
    {
        HandOutRecorder *recorder = nullptr;
        CAuthDialogThread *thread = startThread(recorder);
        for (const char *name : {"first", "second", "third"})
            thread->addVirusInfo(threat(QLatin1String(name)));

        QTRY_COMPARE_WITH_TIMEOUT(recorder->names.size(), 3, 10000);
        QCOMPARE(recorder->names, (QStringList{"first", "second", "third"}));
        // Each comes a tick after the re-arming, never sooner. The times are taken on the GUI
        // thread, which a loaded machine may run late, hence the margin; how late a hand-out may
        // come is a speed figure, not something this test can bound.
        for (int i = 1; i < 3; ++i)
            QVERIFY2(recorder->times.at(i) - recorder->times.at(i - 1) >= 700,
                     qPrintable(QString::number(recorder->times.at(i) - recorder->times.at(i - 1))));
        QCOMPARE(thread->pendingCount(), 0);
        QTRY_COMPARE(m_log.operations().count("CVirusDbusMiddle: authDialog already exec"), 3);
    }

    void waitsWhileBusyAndLosesNothing()
    {
        HandOutRecorder *recorder = nullptr;
        CAuthDialogThread *thread = startThread(recorder);
        recorder->rearm = false;
        thread->addVirusInfo(threat("0"));
        QTRY_COMPARE_WITH_TIMEOUT(recorder->names.size(), 1, 5000);

        // Busy: the queue only grows, the same record twice included, and nothing comes out over
        // more than two ticks.
        for (int i = 1; i <= 500; ++i)
            thread->addVirusInfo(threat(QString::number(i)));
        thread->addVirusInfo(threat("500"));
        QTest::qWait(2500);
        QCOMPARE(recorder->names.size(), 1);
        QCOMPARE(thread->pendingCount(), 501);

        // Re-armed, the oldest comes next.
        thread->setReady();
        QTRY_COMPARE_WITH_TIMEOUT(recorder->names.size(), 2, 5000);
        QCOMPARE(recorder->names.last(), QStringLiteral("1"));
        QCOMPARE(thread->pendingCount(), 500);
    }

    void reArmingDuringTheHandOut()
    {
        auto *thread = new CAuthDialogThread;
        connect(
            thread, &CAuthDialogThread::signal_showDialog, thread,
            [this, thread](const SVirusInfo &) {
                const int handOut = ++m_handOuts;
                if (handOut == 1) {
                    thread->setReady();
                } else if (handOut == 2) {
                    m_heldInside.release();
                    m_releaseInside.acquire();
                }
            },
            Qt::DirectConnection);
        for (const char *name : {"a", "b", "c"})
            thread->addVirusInfo(threat(QLatin1String(name)));
        thread->start(QThread::InheritPriority);

        // A receiver connected directly re-arms inside the emission: the clear that follows
        // overrules it, and nothing comes out over two more ticks.
        QTRY_COMPARE_WITH_TIMEOUT(m_handOuts.load(), 1, 5000);
        QTest::qWait(2500);
        QCOMPARE(m_handOuts.load(), 1);
        QCOMPARE(thread->pendingCount(), 2);

        // The GUI thread re-arms while the thread is still inside the emission, as the bridge does
        // when it shows the box before the thread gets to run again: that re-arm is kept.
        thread->setReady();
        QVERIFY(m_heldInside.tryAcquire(1, 5000));
        thread->setReady();
        m_releaseInside.release();
        QTRY_COMPARE_WITH_TIMEOUT(m_handOuts.load(), 3, 5000);
        QCOMPARE(thread->pendingCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TestDialogThread)
#include "tst_dialogthread.moc"
