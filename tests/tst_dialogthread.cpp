// The dialog thread: one threat a tick at most, in order, only while the bridge is ready.
#include "cthreatqueue.h"
#include "harness.h"

#include <QSemaphore>
#include <atomic>

class TestDialogThread : public QObject
{
    Q_OBJECT

private:
    EventLog m_log;
    // Hand-outs as the bridge receives them, on the GUI thread, re-arming the thread.
    QStringList m_names;
    // When each was handed out, taken on the dialog thread itself: the GUI thread of a loaded
    // machine may receive one late and the next on time.
    QMutex m_timesMutex;
    QList<qint64> m_times;
    // Shared with a receiver that runs on a dialog thread, which outlives the test function.
    std::atomic<int> m_handOuts{0};
    QSemaphore m_heldInside, m_releaseInside;

    static SVirusInfo threat(const QString &name) { return SVirusInfo{name, QString(), "/p/" + name, false}; }

private slots:
    void initTestCase() { registerDaemonMetaTypes(); }

    void oneATickInOrder()
    {
        // Never stopped or freed, like the agent's.
        auto *thread = new CAuthDialogThread;
        QElapsedTimer clock;
        clock.start();
        connect(
            thread, &CAuthDialogThread::signal_showDialog, thread,
            [this, clock](const SVirusInfo &) {
                QMutexLocker locker(&m_timesMutex);
                m_times << clock.elapsed();
            },
            Qt::DirectConnection);
        connect(thread, &CAuthDialogThread::signal_showDialog, this, [this, thread](const SVirusInfo &info) {
            m_names << info.virusName;
            thread->setReady();
        });
        thread->start(QThread::InheritPriority);
        for (const char *name : {"first", "second", "third"})
            thread->addVirusInfo(threat(name));
        QTRY_COMPARE_WITH_TIMEOUT(m_names, (QStringList{"first", "second", "third"}), 10000);
        // Each comes a tick after the one before, never sooner (the clock counts whole milliseconds).
        QMutexLocker locker(&m_timesMutex);
        for (int i = 1; i < 3; ++i)
            QVERIFY2(m_times.at(i) - m_times.at(i - 1) >= 999,
                     qPrintable(QString::number(m_times.at(i) - m_times.at(i - 1))));
        QTRY_COMPARE(
            m_log.summary().count("CVirusDbusMiddle: authDialog already exec|operation successful|3"), 3);
    }

    void reArmingDuringTheHandOut()
    {
        auto *thread = new CAuthDialogThread;
        connect(
            thread, &CAuthDialogThread::signal_showDialog, thread,
            [this, thread](const SVirusInfo &) {
                if (++m_handOuts == 1) {
                    thread->setReady();
                } else if (m_handOuts == 2) {
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
        QCOMPARE(thread->pending().size(), 2);

        // The GUI thread re-arms while the thread is still inside the emission, as the bridge does
        // when it shows the box before the thread gets to run again: that re-arm is kept.
        thread->setReady();
        QVERIFY(m_heldInside.tryAcquire(1, 5000));
        thread->setReady();
        m_releaseInside.release();
        QTRY_COMPARE_WITH_TIMEOUT(m_handOuts.load(), 3, 5000);
        QCOMPARE(thread->pending().size(), 0);
    }
};

QTEST_GUILESS_MAIN(TestDialogThread)
#include "tst_dialogthread.moc"
