// vorn-virus-agent as a process: its five quiet seconds, its start-up log with and without the
// risk-box service, its private connection name, and arguments that change nothing.
#include "agentpeers.h"

#include <QDBusReply>
#include <QElapsedTimer>

// Notes when each new connection appears on the bus, and whose process it is.
class ConnectionWatcher : public QObject
{
    Q_OBJECT
public:
    ConnectionWatcher()
    {
        m_clock.start();
        QDBusConnection::systemBus().connect("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                             "org.freedesktop.DBus", "NameOwnerChanged", this,
                                             SLOT(onOwnerChanged(QString, QString, QString)));
    }

    // Milliseconds from the watcher's start to the first connection of the process, or -1.
    qint64 firstConnection(qint64 pid) const { return m_firstByPid.value(pid, -1); }

public slots:
    void onOwnerChanged(const QString &name, const QString &oldOwner, const QString &newOwner)
    {
        if (!name.startsWith(':') || !oldOwner.isEmpty() || newOwner.isEmpty())
            return;
        const qint64 when = m_clock.elapsed();
        const QDBusReply<uint> pid = QDBusConnection::systemBus().interface()->servicePid(name);
        if (pid.isValid() && !m_firstByPid.contains(pid.value()))
            m_firstByPid.insert(pid.value(), when);
    }

private:
    QElapsedTimer m_clock;
    QHash<qint64, qint64> m_firstByPid;
};

class TestAgentProcess : public QObject
{
    Q_OBJECT

private:
    AgentPeers m_peers;

    static QJsonObject event(int level, const char *operation, const char *result)
    {
        return QJsonObject{{"entry", "halvo_log_v2"}, {"level", level},         {"type", 13},
                           {"module", "virus scan"},  {"operation", operation}, {"result", result}};
    }

private slots:
    void startsQuietlyWithoutTheRiskBoxService()
    {
        QVERIFY(m_peers.daemon.start());
        ConnectionWatcher watcher;
        QProcess plain;
        QProcess withArguments;
        for (QProcess *agent : {&plain, &withArguments})
            agent->setProcessChannelMode(QProcess::MergedChannels);
        plain.start(QStringLiteral(VORN_AGENT), QStringList());
        withArguments.start(QStringLiteral(VORN_AGENT),
                            {"--virus-protect", "-x", "/etc/passwd", "--", "extra"});
        QVERIFY(plain.waitForStarted());
        QVERIFY(withArguments.waitForStarted());

        QTRY_COMPARE_WITH_TIMEOUT(
            m_peers.log.events().count(
                event(3, "CVirusDbusMiddle: all signal have been connected", "operation successful")),
            2, 15000);
        // Nothing of either agent reached the bus in its first five seconds.
        for (QProcess *agent : {&plain, &withArguments}) {
            QTRY_VERIFY(watcher.firstConnection(agent->processId()) >= 0);
            QVERIFY2(watcher.firstConnection(agent->processId()) >= 5000,
                     qPrintable(QString::number(watcher.firstConnection(agent->processId()))));
        }
        // Both logged the missing service, then the connected signals; nothing else.
        const QJsonObject missing =
            event(1, "CVirusDbusMiddle m_pNotifyInterface is false", "operation failed");
        const QList<QJsonObject> events = m_peers.log.events();
        QCOMPARE(events.size(), 4);
        QCOMPARE(events.count(missing), 2);
        QVERIFY(events.indexOf(missing) < 2);

        // Each fired one get_scanMode and nothing else.
        QTRY_COMPARE(m_peers.daemon.callNames(), (QStringList{"get_scanMode", "get_scanMode"}));

        // Private connection names carry each process id.
        for (QProcess *agent : {&plain, &withArguments}) {
            QTRY_VERIFY(agent->bytesAvailable() > 0);
            const QString output = QString::fromLocal8Bit(agent->readAll());
            QCOMPARE(output,
                     QStringLiteral("m_connectionName :virus_dialog_conn_%1\n").arg(agent->processId()));
            QCOMPARE(agent->state(), QProcess::Running);
            agent->terminate();
            QVERIFY(agent->waitForFinished());
        }
    }

    void startsWithTheRiskBoxService()
    {
        m_peers.reset();
        QVERIFY(m_peers.riskbox.start());
        QProcess agent;
        agent.start(QStringLiteral(VORN_AGENT), QStringList());
        QTRY_COMPARE_WITH_TIMEOUT(m_peers.log.events().size(), 1, 15000);
        QCOMPARE(m_peers.log.events().first(),
                 event(3, "CVirusDbusMiddle: all signal have been connected", "operation successful"));
        QTRY_COMPARE(m_peers.daemon.callNames(), QStringList{"get_scanMode"});
        // Start-up draws nothing.
        QVERIFY(m_peers.riskbox.calls().isEmpty());
        agent.terminate();
        QVERIFY(agent.waitForFinished());
    }
};

QTEST_GUILESS_MAIN(TestAgentProcess)
#include "tst_agentprocess.moc"
