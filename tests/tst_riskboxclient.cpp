// The bridge's risk-box client against the stand-in service: what goes on the wire, what comes
// back on failure, and the reconnection when the service was away.
#include "agentpeers.h"
#include "cvirusdbusmiddle.h"
#include "stdoutcapture.h"

class TestRiskBoxClient : public QObject
{
    Q_OBJECT

private:
    AgentPeers m_peers;
    CVirusDbusMiddle *m_bridge = nullptr;

    QDBusMessage riskbox(const QString &method, const QVariantList &args = {})
    {
        return m_peers.riskbox.control(method, args);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_peers.start());
        m_bridge = CVirusDbusMiddle::getInstance();
        QVERIFY(m_bridge);
    }

    void init() { m_peers.reset(); }

    void callNotifyMethodLeavesRepliesAloneOnError()
    {
        riskbox("Fail", {"show", QString(), QString()});
        QList<QVariant> reply{42};
        StdoutCapture out;
        const int status = m_bridge->callNotifyMethod(reply, QStringLiteral("show"), {1});
        const QString printed = out.text();
        out.restore();
        QCOMPARE(status, -1);
        QCOMPARE(reply, QList<QVariant>{42});
        QCOMPARE(printed, QStringLiteral("method:show  调用失败：response.type():3 \n"));

        QCOMPARE(m_bridge->callNotifyMethod(reply, QStringLiteral("create"), {1, "app", "title"}), 0);
        QCOMPARE(reply.size(), 1);
        QVERIFY(reply.first().toInt() >= 1);
    }

    void create_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QVariantList>("faultArgs");
        QTest::addColumn<QStringList>("contents");
        QTest::addColumn<int>("result"); // 1: the id handed out
        QTest::addColumn<QStringList>("methods");

        QTest::newRow("all lines") << QString() << QVariantList() << QStringList{"a", "b"} << 1
                                   << QStringList{"create", "addContent", "addContent"};
        QTest::newRow("no contents") << QString() << QVariantList() << QStringList() << 1
                                     << QStringList{"create"};
        QTest::newRow("reply without arguments")
            << "Empty" << QVariantList{"create"} << QStringList{"a"} << -1 << QStringList{"create"};
        QTest::newRow("create fails") << "Fail" << QVariantList{"create", QString(), QString()}
                                      << QStringList{"a"} << -1 << QStringList{"create"};
        QTest::newRow("negative id") << "Force" << QVariantList{"create", -5} << QStringList{"a"} << -5
                                     << QStringList{"create"};
        QTest::newRow("second of three lines fails")
            << "FailAfter" << QVariantList{"addContent", 1} << QStringList{"a", "b", "c"} << -1
            << QStringList{"create", "addContent", "addContent"};
    }

    void create()
    {
        QFETCH(QString, fault);
        QFETCH(QVariantList, faultArgs);
        QFETCH(QStringList, contents);
        QFETCH(int, result);
        QFETCH(QStringList, methods);

        if (!fault.isEmpty())
            QCOMPARE(riskbox(fault, faultArgs).type(), QDBusMessage::ReplyMessage);
        const int id = m_bridge->create_secRiskBox(0, contents);
        if (result == 1)
            QVERIFY(id >= 1);
        else
            QCOMPARE(id, result);
        QCOMPARE(m_peers.riskbox.callNames(), methods);
        const QStringList lines = m_peers.riskbox.callLines();
        QCOMPARE(lines.first(), QStringLiteral("create [0,\"vorn-defender\",\"Security Center\"]"));
        // Each line goes to the box just created, in order (a failed box's id is not known here).
        for (int i = 1; i < lines.size(); ++i) {
            const QRegularExpression line(
                QStringLiteral("^addContent \\[(\\d+),\"%1\"\\]$").arg(contents.at(i - 1)));
            const QRegularExpressionMatch match = line.match(lines.at(i));
            QVERIFY2(match.hasMatch(), qPrintable(lines.at(i)));
            if (id >= 1)
                QCOMPARE(match.captured(1).toInt(), id);
        }
    }

    void buttonsFoldTimeoutShow()
    {
        const int id = m_bridge->create_secRiskBox(1, {});
        QVERIFY(id >= 1);
        m_peers.reset();
        QCOMPARE(m_bridge->add_secRiskBoxAction(id, {}), 0);
        QVERIFY(m_peers.riskbox.calls().isEmpty());

        // Pairs of text and key; an unpaired last entry is never sent.
        QCOMPARE(m_bridge->add_secRiskBoxAction(id, {"cmd", "default", "Trust", "", "odd"}), 0);
        QCOMPARE(m_bridge->set_secRiskBoxFold(id, 1), 0);
        QCOMPARE(m_bridge->set_secRiskBoxTimeout(id, 10), 0);
        QCOMPARE(m_bridge->show_secRiskBox(id), 0);
        const QString n = QString::number(id);
        QCOMPARE(
            m_peers.riskbox.callLines(),
            (QStringList{"addButton [" + n + ",\"cmd\",\"default\"]", "addButton [" + n + ",\"Trust\",\"\"]",
                         "setNotifyFold [" + n + ",1]", "setTimeout [" + n + ",10]", "show [" + n + "]"}));

        // The second of three buttons failing stops there; each other step fails on its own.
        const int second = m_bridge->create_secRiskBox(1, {});
        m_peers.reset();
        riskbox("FailAfter", {"addButton", 1});
        QCOMPARE(m_bridge->add_secRiskBoxAction(second, {"a", "1", "b", "2", "c", "3"}), -1);
        QCOMPARE(m_peers.riskbox.callNames(), (QStringList{"addButton", "addButton"}));
        for (const char *method : {"setNotifyFold", "setTimeout", "show"})
            riskbox("Fail", {QLatin1String(method), QString(), QString()});
        QCOMPARE(m_bridge->set_secRiskBoxFold(second, 1), -1);
        QCOMPARE(m_bridge->set_secRiskBoxTimeout(second, 10), -1);
        QCOMPARE(m_bridge->show_secRiskBox(second), -1);
    }

    // Runs last: it takes the service away and brings it back.
    void reconnectsWhenTheServiceReturns()
    {
        m_peers.riskbox.stop();
        // The bridge hears that the service left as a signal on its private connection: a round
        // trip there puts that signal ahead, and the event loop then delivers it.
        QDBusConnection privateConnection(
            QStringLiteral("virus_dialog_conn_%1").arg(QCoreApplication::applicationPid()));
        QVERIFY(!privateConnection.interface()
                     ->isServiceRegistered(QStringLiteral("com.tarsel.secriskbox"))
                     .value());
        QCoreApplication::processEvents();
        StdoutCapture out;
        const int first = m_bridge->create_secRiskBox(0, {"x"});
        const int second = m_bridge->create_secRiskBox(0, {"x"});
        const QString printed = out.text();
        out.restore();
        QCOMPARE(first, -1);
        QCOMPARE(second, -1);
        QCOMPARE(printed, QStringLiteral("DBus interface invalid, attempting to reConnectionDBus...\n"
                                         "Failed to reConnection DBus interface\n")
                              .repeated(2));
        // Each failed attempt is logged once; the interface stays invalid and the next box tries again.
        const QList<QJsonObject> events = m_peers.log.events();
        QCOMPARE(events.size(), 2);
        for (const QJsonObject &event : events) {
            QVERIFY(
                event.value("operation").toString().startsWith("CVirusDbusMiddle reConnectionDBus failed: "));
            QVERIFY(event.value("operation").toString().size() > 45);
            QCOMPARE(event.value("level").toInt(), 1);
            QCOMPARE(event.value("result").toString(), QStringLiteral("operation failed"));
        }

        QVERIFY(m_peers.riskbox.start());
        // Let the bridge see the service come back first: its interface, made while the service was
        // away, then turns valid but still has no signalResult, and must be rebuilt all the same.
        QVERIFY(privateConnection.interface()
                    ->isServiceRegistered(QStringLiteral("com.tarsel.secriskbox"))
                    .value());
        QCoreApplication::processEvents();
        m_peers.log.clear();
        const int id = m_bridge->create_secRiskBox(0, {"back"});
        QCOMPARE(id, 1);
        QCOMPARE(m_bridge->add_secRiskBoxAction(id, {"OK", "7"}), 0);
        QCOMPARE(m_bridge->show_secRiskBox(id), 0);
        // The answer reaches the bridge again: with no threat behind the box, it says so in the log.
        riskbox("Press", {id, "OK"});
        QTRY_COMPARE(m_peers.log.operations(),
                     QStringList{QStringLiteral("slot_ResultSignal  virusMap is err! id:1 state:7")});
    }
};

QTEST_MAIN(TestRiskBoxClient)
#include "tst_riskboxclient.moc"
