// vorn-virus-agent as a process: its five quiet seconds, its start-up log without the risk-box
// service, its private connection name, arguments that change nothing, and threats that outlive it.
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

        // Each private connection name carries its process id, on a line that reaches a pipe at once;
        // one agent keeps the threats of this user, the other says it does not.
        const QString folder = qEnvironmentVariable("XDG_STATE_HOME") + "/vorn-defender";
        QStringList said;
        for (QProcess &agent : agents) {
            QTRY_VERIFY(agent.canReadLine());
            QCOMPARE(QString::fromLocal8Bit(agent.readLine()),
                     QStringLiteral("m_connectionName :virus_dialog_conn_%1\n").arg(agent.processId()));
            said << QString::fromLocal8Bit(agent.readAllStandardOutput());
            QCOMPARE(agent.state(), QProcess::Running);
            agent.terminate();
            QVERIFY(agent.waitForFinished());
        }
        said.sort();
        QCOMPARE(said,
                 (QStringList{"threat journal: restored 0 undecided threats from " + folder + "/journal\n",
                              "threat journal: threats are not being kept: another agent of this user "
                              "keeps them in " +
                                  folder + '\n'}));
    }

    void killedAgentLosesNoThreat()
    {
        // Five threats in a burst; two answered; the agent killed while the third one's box is up.
        // The next agent shows the last three, the third a second time; the one after shows none.
        QVERIFY(m_peers.riskbox.start());
        QProcess agent;
        const auto start = [&] {
            m_peers.daemon.control("ClearCalls");
            agent.start(VORN_AGENT, QStringList());
            QTRY_COMPARE_WITH_TIMEOUT(m_peers.daemon.calls(), QStringList{"get_scanMode  []"}, 15000);
        };
        QStringList shown;
        const auto answerUpTo = [&](const QString &last) {
            QVERIFY(waitFor(
                [&] {
                    const QList<QJsonObject> boxes = m_peers.riskbox.json("Boxes");
                    const QJsonObject box = boxes.value(shown.size());
                    if (box["shown"].toBool()) {
                        shown << box["contents"][1].toString().mid(11);
                        if (shown.last() != last)
                            m_peers.riskbox.control("Press", {box["id"].toInt(), "Not for the time being"});
                    }
                    return !shown.isEmpty() && shown.last() == last;
                },
                15000));
        };
        start();
        m_peers.daemon.control("EmitMany",
                               {"signal_showAuthDialog", QStringList{"T{n}", "", "/t{n}", "false"}, 5});
        answerUpTo("T2");
        // The second decision is on disk (the event comes just before it) when the agent dies.
        const QString journal = qEnvironmentVariable("XDG_STATE_HOME") + "/vorn-defender/journal";
        const auto journalHas = [&](const QByteArray &text) {
            QFile file(journal);
            return file.open(QIODevice::ReadOnly) && file.readAll().contains(text);
        };
        QTRY_VERIFY(journalHas("\nD 2 "));
        agent.kill();
        QVERIFY(agent.waitForFinished());
        start();
        QVERIFY(agent.readAllStandardOutput().contains("restored 3 undecided threats"));
        m_peers.riskbox.control("Press", {shown.size(), "Not for the time being"});
        answerUpTo("T4");
        QCOMPARE(shown, (QStringList{"T0", "T1", "T2", "T2", "T3", "T4"}));
        m_peers.riskbox.control("Press", {shown.size(), "Not for the time being"});
        // All decided: the journal is back to nothing.
        QTRY_COMPARE(m_peers.log.summary().count("Dealing with threats|Not for the time being|3"), 5);
        QTRY_COMPARE(QFileInfo(journal).size(), 0);
        agent.terminate();
        QVERIFY(agent.waitForFinished());
        start();
        QVERIFY(agent.readAllStandardOutput().contains("restored 0 undecided threats"));
        agent.terminate();
        QVERIFY(agent.waitForFinished());
    }
};

QTEST_GUILESS_MAIN(TestAgentProcess)
#include "tst_agentprocess.moc"
