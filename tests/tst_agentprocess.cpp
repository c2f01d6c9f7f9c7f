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
            QString out;
            QTRY_COMPARE((out += QString::fromLocal8Bit(agent.readAllStandardOutput())).count('\n'), 2);
            QCOMPARE(out.section('\n', 0, 0),
                     QStringLiteral("m_connectionName :virus_dialog_conn_%1").arg(agent.processId()));
            said << out.section('\n', 1);
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
        // Five threats in a burst; two decided; the agent killed while the third one's box is up. The
        // next agent shows the last three, the third a second time; once they are decided, the one
        // after restores none.
        QVERIFY(m_peers.riskbox.start());
        QProcess agent;
        const auto restart = [&](const char *said) {
            agent.kill();
            agent.waitForFinished();
            m_peers.daemon.control("ClearCalls");
            agent.start(VORN_AGENT, QStringList());
            QTRY_COMPARE_WITH_TIMEOUT(m_peers.daemon.calls(), QStringList{"get_scanMode  []"}, 15000);
            QByteArray out;
            QTRY_VERIFY((out += agent.readAllStandardOutput()).contains(said));
        };
        QStringList shown;
        const auto decideUpTo = [&](int count, bool last) {
            QVERIFY(QTest::qWaitFor(
                [&] {
                    const QJsonObject box = m_peers.riskbox.json("Boxes").value(shown.size());
                    if (box["shown"].toBool()) {
                        shown << box["contents"][1].toString().mid(11);
                        if (shown.size() < count || last)
                            m_peers.riskbox.control("Press", {box["id"].toInt(), "Not for the time being"});
                    }
                    return shown.size() == count;
                },
                15000));
        };
        const QString journal = qEnvironmentVariable("XDG_STATE_HOME") + "/vorn-defender/journal";
        restart("restored 0 undecided threats");
        m_peers.daemon.control("EmitMany",
                               {"signal_showAuthDialog", QStringList{"T{n}", "", "/t{n}", "false"}, 5});
        decideUpTo(3, false);
        // The second decision is on disk (its event comes just before it) when the agent dies.
        QTRY_VERIFY([&] {
            QFile file(journal);
            return file.open(QIODevice::ReadOnly) && file.readAll().contains("\nD 2 ");
        }());
        restart("restored 3 undecided threats");
        decideUpTo(6, true);
        QCOMPARE(shown, (QStringList{"T0", "T1", "T2", "T2", "T3", "T4"}));
        QTRY_COMPARE(QFileInfo(journal).size(), 0);
        restart("restored 0 undecided threats");
        agent.kill();
        agent.waitForFinished();
    }
};

QTEST_GUILESS_MAIN(TestAgentProcess)
#include "tst_agentprocess.moc"
