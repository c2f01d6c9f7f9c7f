// vorn-virus-agent as a process: its five quiet seconds, its start-up log without the risk-box
// service, its private connection name, and arguments that change nothing.
#include "harness.h"

class TestAgentProcess : public QObject
{
    Q_OBJECT

private:
    Peers m_peers;

private slots:
    void startsQuietlyThenConnects()
    {
        // Two agents without the risk-box service, one with arguments of its own (with the service,
        // the bridge test starts one).
        QVERIFY(m_peers.daemon.start());
        QProcess agents[2];
        QElapsedTimer clock;
        clock.start();
        agents[0].start(VORN_AGENT, QStringList());
        agents[1].start(VORN_AGENT, {"--virus-protect", "-x", "/etc/passwd", "--", "extra"});
        const QString missing = "CVirusDbusMiddle m_pNotifyInterface is false|operation failed|1";
        const QString connected = "CVirusDbusMiddle: all signal have been connected|operation successful|3";
        // Each waited five seconds, logged the missing service, then the connected signals, and
        // fired one get_scanMode.
        QTRY_COMPARE_WITH_TIMEOUT(m_peers.log.summary().count(connected), 2, 15000);
        QVERIFY2(clock.elapsed() >= 5000, qPrintable(QString::number(clock.elapsed())));
        QStringList events = m_peers.log.summary();
        events.sort(); // the two agents' events may interleave
        QCOMPARE(events, (QStringList{missing, missing, connected, connected}));
        QTRY_COMPARE(m_peers.daemon.calls(), (QStringList{"get_scanMode  []", "get_scanMode  []"}));

        // Each private connection name carries its process id, on a line that reaches a pipe at once.
        for (QProcess &agent : agents) {
            QTRY_VERIFY(agent.bytesAvailable() > 0);
            QCOMPARE(QString::fromLocal8Bit(agent.readAllStandardOutput()),
                     QStringLiteral("m_connectionName :virus_dialog_conn_%1\n").arg(agent.processId()));
            QCOMPARE(agent.state(), QProcess::Running);
            agent.terminate();
            QVERIFY(agent.waitForFinished());
        }
    }
};

QTEST_GUILESS_MAIN(TestAgentProcess)
#include "tst_agentprocess.moc"
