// The dialog thread: one threat a tick at most, in order, only while the bridge is ready, none lost.
#include "cauthdialogthread.h"
#include "harness.h"

#include <QSemaphore>
#include <atomic>

class TestDialogThread : public QObject
{
    Q_OBJECT

private:
    EventLog m_log;
    // Hand-outs as the bridge receives them, on the GUI thread, re-arming the thread if told to.
    QStringList m_names;
    QList<qint64> m_times;
    bool m_rearm = true;
    // Shared with a receiver that runs on a dialog thread, which outlives the test function.
    std::atomic<int> m_handOuts{0};
    QSemaphore m_heldInside, m_releaseInside;

    static SVirusInfo threat(const QString &name) { return SVirusInfo{name, QString(), "/p/" + name, false}; }

private slots:
    void initTestCase() { registerDaemonMetaTypes(); }

    void oneAtATimeInOrderNoneLost()
    {
        // Never stopped or freed, like the agent's.
        auto *thread = new CAuthDialogThread;
        QElapsedTimer clock;
        clock.start();
        connect(thread, &CAuthDialogThread::signal_showDialog, this,
                [this, thread, clock](const SVirusInfo &info) {
                    m_names << info.virusName;
                    m_times << clock.elapsed();
                    if (m_rearm)
                        thread->setReady();
                });
        thread->start(QThread::InheritPriority);
        for (const char *name : {"first", "second", "third"})
            thread->addVirusInfo(threat(name));
        QTRY_COMPARE_WITH_TIMEOUT(m_names, (QStringList{"first", "second", "third"}), 10000);
        // Each comes a tick after the re-arming, never sooner. The times are taken on the GUI
        // thread, which a loaded machine may run late, hence the margin.
        for (int i = 1; i < 3; ++i)
            QVERIFY2(m_times.at(i) - m_times.at(i - 1) >= 700,
                     qPrintable(QString::number(m_times.at(i) - m_times.at(i - 1))));
        QTRY_COMPARE(m_log.summary().join('\n'),
                     QString("CVirusDbusMiddle: authDialog already exec|operation successful|3\n")
                         .repeated(3)
                         .chopped(1));

        // Not re-armed: the queue only grows, the same record twice included, and nothing comes
        // out over more than two ticks; re-armed, the oldest comes next.
        m_rearm = false;
        thread->addVirusInfo(threat("0"));
        QTRY_COMPARE_WITH_TIMEOUT(m_names.size(), 4, 5000);
        for (int i = 1; i <= 500; ++i)
            thread->addVirusInfo(threat(QString::number(i)));
        thread->addVirusInfo(threat("500"));
        QTest::qWait(2500);
        QCOMPARE(m_names.size(), 4);
        QCOMPARE(thread->pendingCount(), 501);
        thread->setReady();
        QTRY_COMPARE_WITH_TIMEOUT(m_names.size(), 5, 5000);
        QCOMPARE(m_names.last(), QStringLiteral("1"));
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
