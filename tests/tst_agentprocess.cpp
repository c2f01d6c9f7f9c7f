// vorn-virus-agent as a process: its five quiet seconds, its start-up log without the risk-box
// service, its private connection name, arguments that change nothing, and threats that outlive it
// whatever it was waiting for, a late risk-box service, a second login and a closed output pipe.
// Restored threats that the daemon has dealt with meanwhile are not shown.
#include "harness.h"

#include "virusrecords.h"

#include <fcntl.h>

// An agent that ends with the test that started it.
struct Agent : QProcess
{
    ~Agent() override
    {
        kill();
        waitForFinished();
    }
};

class TestAgentProcess : public QObject
{
    Q_OBJECT

private:
    Peers m_peers;
    const QString m_folder = qEnvironmentVariable("XDG_STATE_HOME") + "/vorn-defender";
    const QString m_journal = m_folder + "/journal2-" + QSysInfo::machineUniqueId() + "-1";

    // Starts an agent and waits until it has said `said` and connected.
    bool started(QProcess &agent, const char *said)
    {
        m_peers.daemon.control("ClearCalls");
        agent.start(VORN_AGENT, QStringList());
        QByteArray out;
        return QTest::qWaitFor([&] { return (out += agent.readAllStandardOutput()).contains(said); },
                               15000) &&
               QTest::qWaitFor([&] { return !m_peers.daemon.calls().isEmpty(); }, 5000);
    }
    // Threats recorded in the journals of all agents.
    int journaled() const
    {
        int count = 0;
        for (const QFileInfo &journal : QDir(m_folder).entryInfoList({"journal2-*"})) {
            QFile file(journal.filePath());
            count += file.open(QIODevice::ReadOnly) ? int(("\n" + file.readAll()).count("\nA ")) : 0;
        }
        return count;
    }
    void announce(const char *name, int count = 1)
    {
        m_peers.daemon.control("EmitMany",
                               {"signal_showAuthDialog", QStringList{name, "", "/f", "false"}, count});
    }
    // Closes the boxes shown with state 9, which no box acts on: their threats stay undecided, and
    // none times out into a quarantine on a slow machine.
    void closeBoxes() const
    {
        for (const QJsonObject &box : m_peers.riskbox.json("Boxes"))
            if (box["shown"].toBool() && !box["closed"].toBool())
                m_peers.riskbox.control("Result", {box["id"].toInt(), 9, QString()});
    }
    // The threats of the boxes shown.
    QStringList shown() const
    {
        QStringList names;
        for (const QJsonObject &box : m_peers.riskbox.json("Boxes"))
            names << (box["shown"].toBool() ? box["contents"][1].toString().mid(11) : "");
        return names;
    }

private slots:
    void initTestCase() { QVERIFY(m_peers.daemon.start()); }
    void init() { m_peers.reset(); }

    void startsQuietlyThenConnects()
    {
        // Two agents without the risk-box service, one with arguments of its own (with the service,
        // the bridge test starts one).
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
        // Each keeps its own journal; the later one, at least, knows of the other.
        const QString another = "; another agent of this user keeps its own in the same folder, and this one "
                                "takes them over when it ends";
        QCOMPARE(said.filter(QRegularExpression("^threat journal: restored 0 undecided threats from " +
                                                folder + "/journal2-\\w+-[12](" + another + ")?\n$"))
                     .size(),
                 2);
        QVERIFY(!said.filter(another).isEmpty());
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
            // A start that restored threats asks the daemon's lists first.
            QTRY_VERIFY_WITH_TIMEOUT(m_peers.daemon.calls().contains("get_scanMode  []"), 15000);
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
        const QString journal = m_journal;
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

    void lateRiskBoxServiceLeavesNoSessionSilent()
    {
        // Three threats left undecided by an agent without the risk-box service; meanwhile the second
        // file is trusted and the third quarantined. The next agent starts without the service too,
        // and restored threats are not handed out before it comes: its ticks cost no failed box. A
        // new threat is: it fails, and the dialog thread waits. Once the service comes, the new
        // threat and the restored one that still needs a decision are shown; those dealt with are
        // forgotten without a box.
        QDir(m_folder).removeRecursively();
        m_peers.riskbox.stop();
        Agent agent;
        QVERIFY(started(agent, "restored 0"));
        m_peers.daemon.control("EmitMany",
                               {"signal_showAuthDialog", QStringList{"R{n}", "", "/r{n}", "false"}, 3});
        QTRY_COMPARE(journaled(), 3);
        agent.kill();
        agent.waitForFinished();
        const auto daemonCall = [](const QString &method, const QVariant &argument) {
            QDBusMessage call =
                QDBusMessage::createMethodCall("com.vorn.virus", "/daemon", "com.vorn.virus.daemon", method);
            return QDBusConnection::systemBus().call(call << argument).type() == QDBusMessage::ReplyMessage;
        };
        registerDaemonMetaTypes();
        QVERIFY(
            daemonCall("add_trustFile", QStringList{"/r1"}) &&
            daemonCall("add_quarantineFile", QVariant::fromValue(SQuarantineFileInfoList{{"/r2", "R2"}})));
        QVERIFY(started(agent, "restored 3"));
        QTest::qWait(2500);
        QCOMPARE(m_peers.log.summary().filter("reConnectionDBus failed"), QStringList());
        announce("N");
        QByteArray out;
        QTRY_VERIFY_WITH_TIMEOUT((out += agent.readAllStandardOutput()).contains("Failed to reConnection"),
                                 15000);
        m_peers.daemon.control("ClearCalls");
        QVERIFY(m_peers.riskbox.start());
        QTRY_COMPARE_WITH_TIMEOUT(shown(), (QStringList{"N", "R0"}), 15000);
        QCOMPARE(m_peers.daemon.calls(),
                 (QStringList{"get_quarantineFileList  []", "get_trustFileList  []"}));
        closeBoxes();
        agent.kill();
        agent.waitForFinished();
        QVERIFY(started(agent, "restored 2"));
    }

    void threatsAnnouncedWhileTheAgentWaitsAreKept()
    {
        // The risk-box service hangs in the first threat's create; two more are announced then. All
        // three are on disk, and the agent's logout loses none.
        QDir(m_folder).removeRecursively();
        Agent agent;
        m_peers.fault("r:create~");
        QVERIFY(started(agent, "restored 0"));
        announce("H");
        QTRY_VERIFY(!m_peers.riskbox.calls().filter(QRegularExpression("^create ")).isEmpty());
        announce("W{n}", 2);
        QTRY_COMPARE(journaled(), 3);
        agent.terminate();
        QVERIFY(agent.waitForFinished());
        m_peers.reset();
        QVERIFY(started(agent, "restored 3"));
    }

    void secondLoginTakesTheJournalOver()
    {
        // Both agents show X, and each writes it down at once; the first ends, and the second takes
        // its journal over without showing X again. A third agent starts later; both show Y, and
        // the third is killed: the second, which was there first, takes its journal over too. It is
        // killed in turn, and the next agent restores X and Y, once each.
        QDir(m_folder).removeRecursively();
        QVERIFY(m_peers.riskbox.start());
        Agent agents[3];
        const char *another = "takes them over when it ends";
        QVERIFY(started(agents[0], "restored 0"));
        QVERIFY(started(agents[1], another));
        announce("X");
        QTRY_COMPARE_WITH_TIMEOUT(shown().count("X"), 2, 15000);
        QCOMPARE(journaled(), 2);
        closeBoxes();
        const auto tookOver = [](Agent &agent) {
            QByteArray out;
            return QTest::qWaitFor(
                [&] {
                    return (out += agent.readAllStandardOutput())
                        .contains("took over 1 journals of agents that have ended: 0 ");
                },
                15000);
        };
        agents[0].terminate();
        QVERIFY(agents[0].waitForFinished() && tookOver(agents[1]));
        QVERIFY(started(agents[2], another));
        announce("Y");
        QTRY_COMPARE_WITH_TIMEOUT(shown().count("Y"), 2, 15000);
        closeBoxes();
        agents[2].kill();
        QVERIFY(tookOver(agents[1]));
        QCOMPARE(journaled(), 2);
        agents[1].kill();
        QVERIFY2(started(agents[0], "restored 2"), agents[0].readAllStandardOutput().constData());
    }

    void closedOutputPipeDoesNotEndTheAgent()
    {
        // Its standard output is a pipe whose reader has gone before the agent's first line.
        QDir(m_folder).removeRecursively();
        int pipeEnds[2];
        QVERIFY(pipe2(pipeEnds, O_CLOEXEC) == 0);
        const int saved = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
        dup2(pipeEnds[1], STDOUT_FILENO);
        m_peers.daemon.control("ClearCalls");
        Agent agent;
        agent.setProcessChannelMode(QProcess::ForwardedOutputChannel);
        agent.start(VORN_AGENT, QStringList());
        dup2(saved, STDOUT_FILENO);
        for (int fd : {saved, pipeEnds[0], pipeEnds[1]})
            close(fd);
        QTRY_COMPARE_WITH_TIMEOUT(m_peers.daemon.calls(), QStringList{"get_scanMode  []"}, 15000);
        QCOMPARE(agent.state(), QProcess::Running);
    }
};

QTEST_GUILESS_MAIN(TestAgentProcess)
#include "tst_agentprocess.moc"
