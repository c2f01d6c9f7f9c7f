// vorn-bench-baseline: the least a process like the agent can cost, for the benchmark to compare the
// agent with. A Qt Widgets application with the agent's two system-bus connections (the shared one
// for the daemon, a private one for the risk-box service) that makes the same calls as the agent
// does in the benchmark's rounds, as plain blocking QtDBus calls and nothing else: a cleared file's
// notice on signal_sysPop, the trust confirmation when that notice is answered 1, add_trustFile when
// the confirmation is answered 2. No journal, no event log, no translations. Prints "ready" once it
// listens.
#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QHash>
#include <QObject>
#include <QStringList>
#include <QVariant>

#include <cstdio>

namespace {

const QString kDaemonService = QStringLiteral("com.vorn.virus");
const QString kDaemonPath = QStringLiteral("/daemon");
const QString kDaemonInterface = QStringLiteral("com.vorn.virus.daemon");
const QString kRiskBoxService = QStringLiteral("com.tarsel.secriskbox");
const QString kRiskBoxPath = QStringLiteral("/service");
const QString kRiskBoxInterface = QStringLiteral("com.tarsel.secriskbox");

} // namespace

class Relay : public QObject
{
    Q_OBJECT
public:
    Relay(const QDBusConnection &shared, const QDBusConnection &privateConnection)
        : m_shared(shared), m_private(privateConnection)
    {}

    bool listen()
    {
        return m_shared.connect(kDaemonService, kDaemonPath, kDaemonInterface,
                                QStringLiteral("signal_sysPop"), this, SLOT(sysPop(QString))) &&
               m_private.connect(kRiskBoxService, kRiskBoxPath, kRiskBoxInterface,
                                 QStringLiteral("signalResult"), this, SLOT(result(int, int, QString)));
    }

public slots:
    void sysPop(const QString &file)
    {
        // The agent's texts, so that the messages are as long as its own.
        const int id =
            showBox({QStringLiteral("The virus has been cleared and backed up to the quarantine area"),
                     QStringLiteral("Virus name:% 1, click to view details")},
                    {QStringLiteral("vorn-defender --virus-protect"), QStringLiteral("default"),
                     QStringLiteral("Trust"), QString()});
        if (id >= 0)
            m_notices.insert(id, file);
    }

    void result(int id, int state, const QString &)
    {
        if (m_notices.contains(id)) {
            const QString file = m_notices.take(id);
            if (state != 1)
                return;
            const int confirmation =
                showBox({QStringLiteral("Are you sure to move to the trust zone?"),
                         QStringLiteral("Virus name:% 1, click to view details")},
                        {QStringLiteral("vorn-defender --virus-protect"), QStringLiteral("default"),
                         QStringLiteral("Cancel"), QStringLiteral("1"), QStringLiteral("Confirm"),
                         QStringLiteral("2")});
            if (confirmation >= 0)
                m_confirmations.insert(confirmation, file);
        } else if (m_confirmations.contains(id)) {
            const QString file = m_confirmations.take(id);
            if (state != 2)
                return;
            QDBusMessage call = QDBusMessage::createMethodCall(kDaemonService, kDaemonPath, kDaemonInterface,
                                                               QStringLiteral("add_trustFile"));
            call.setArguments({QStringList{file}});
            m_shared.call(call);
        }
    }

private:
    QVariant riskBox(const QString &method, const QVariantList &arguments)
    {
        QDBusMessage call =
            QDBusMessage::createMethodCall(kRiskBoxService, kRiskBoxPath, kRiskBoxInterface, method);
        call.setArguments(arguments);
        return m_private.call(call).arguments().value(0);
    }

    // The agent's sequence for a folded box: create, its lines, its buttons, fold, show.
    int showBox(const QStringList &lines, const QStringList &buttons)
    {
        const QVariant id = riskBox(QStringLiteral("create"),
                                    {1, QStringLiteral("vorn-defender"), QStringLiteral("Security Center")});
        if (!id.isValid() || id.toInt() < 0)
            return -1;
        for (const QString &line : lines)
            riskBox(QStringLiteral("addContent"), {id, line});
        for (int i = 0; i + 1 < buttons.size(); i += 2)
            riskBox(QStringLiteral("addButton"), {id, buttons.at(i), buttons.at(i + 1)});
        riskBox(QStringLiteral("setNotifyFold"), {id, 1});
        riskBox(QStringLiteral("show"), {id});
        return id.toInt();
    }

    QDBusConnection m_shared;
    QDBusConnection m_private;
    QHash<int, QString> m_notices;
    QHash<int, QString> m_confirmations;
};

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QDBusConnection shared = QDBusConnection::systemBus();
    QDBusConnection privateConnection =
        QDBusConnection::connectToBus(QDBusConnection::SystemBus, QStringLiteral("vorn_bench_baseline"));
    if (!shared.isConnected() || !privateConnection.isConnected())
        return 1;
    Relay relay(shared, privateConnection);
    if (!relay.listen())
        return 1;
    std::printf("ready\n");
    std::fflush(stdout);
    return app.exec();
}

#include "baseline.moc"
