// The bridge under spoofed, malformed and hostile input, a flood of threats, and a daemon that
// goes away and comes back.
#include "bridgetest.h"
#include "modalcloser.h"

#include <QDBusVariant>
#include <climits>

namespace {

QVariantList raw(const QVariantList &values)
{
    QVariantList wrapped;
    for (const QVariant &value : values)
        wrapped << QVariant::fromValue(QDBusVariant(value));
    return wrapped;
}

} // namespace

class TestRobustness : public QObject
{
    Q_OBJECT

private:
    BridgeTest m_test;

    void announce(const QString &name, const QString &path)
    {
        m_test.peers.daemon.control("Emit",
                                    {"signal_showAuthDialog", QStringList{name, "detail", path, "false"}});
    }

    // The threat-found boxes raised since `from`, by their name line: boxes that timed out
    // meanwhile raise notices, which do not count here.
    QList<QJsonObject> threatBoxes(int from) const
    {
        QList<QJsonObject> result;
        for (const QJsonObject &box : m_test.boxes().mid(from))
            if (BridgeTest::contents(box).value(0) == QLatin1String("Discover virus threat"))
                result << box;
        return result;
    }

    QStringList threatNames(int from) const
    {
        QStringList names;
        for (const QJsonObject &box : threatBoxes(from))
            names << BridgeTest::contents(box).value(1);
        return names;
    }

    QStringList newBoxLines(int from, int line) const
    {
        QStringList lines;
        for (const QJsonObject &box : m_test.boxes().mid(from))
            lines << BridgeTest::contents(box).value(line);
        return lines;
    }

    // A stranger's message is routed by the bus before anything sent after this returns.
    static void sendAsStranger(const QDBusMessage &message)
    {
        QDBusConnection stranger = QDBusConnection::connectToBus(QDBusConnection::SystemBus, "stranger");
        QVERIFY(stranger.send(message));
        QVERIFY(stranger.interface()->isServiceRegistered("org.freedesktop.DBus").value());
    }

private slots:
    void initTestCase() { QVERIFY(m_test.start()); }
    void init() { m_test.peers.reset(); }

    void signalsOnlyFromTheServiceOwners()
    {
        // A stranger announcing a threat and a cleared file on the daemon's path is not heard; the
        // daemon itself, right after, is.
        const int from = m_test.boxes().size();
        QDBusMessage threat =
            QDBusMessage::createSignal("/daemon", "com.vorn.virus.daemon", "signal_showAuthDialog");
        threat << QVariant::fromValue(SVirusInfo{"spoofed", "", "/etc/passwd", false});
        sendAsStranger(threat);
        QDBusMessage cleared =
            QDBusMessage::createSignal("/daemon", "com.vorn.virus.daemon", "signal_sysPop");
        cleared << QStringLiteral("/etc/shadow");
        sendAsStranger(cleared);
        announce("real", "/home/u/real");
        QTRY_COMPARE_WITH_TIMEOUT(threatNames(from).size(), 1, 10000);
        QCOMPARE(threatNames(from), QStringList{"Virus name:real"});
        // The spoofed cleared file raised no quarantine notice (the only box with an empty-keyed Trust).
        for (const QJsonObject &box : m_test.boxes().mid(from)) {
            const QStringList buttons = BridgeTest::buttons(box);
            for (int i = 0; i + 1 < buttons.size(); i += 2)
                QVERIFY(!(buttons.at(i) == "Trust" && buttons.at(i + 1).isEmpty()));
        }

        // A stranger answering a shown box changes nothing; the service's own answer does.
        const int id = threatBoxes(from).first().value("id").toInt();
        QDBusMessage answer = QDBusMessage::createSignal("/service", "com.tarsel.secriskbox", "signalResult");
        answer << id << 3 << QString();
        sendAsStranger(answer);
        QVERIFY(m_test.settle());
        QVERIFY(m_test.events().filter("slot_ResultSignal").isEmpty());
        QVERIFY(m_test.bridge->pendingBoxes().contains(id));
        m_test.answer(id, 2);
        QVERIFY(m_test.settle());
        QVERIFY(!m_test.bridge->pendingBoxes().contains(id));
        QDBusConnection::disconnectFromBus("stranger");
    }

    void malformedSignalsAreIgnored()
    {
        const int from = m_test.boxes().size();
        const int handled = m_test.bridge->answersHandled();
        m_test.peers.daemon.control("EmitRaw", {"signal_showAuthDialog", raw({"only", "two"})});
        m_test.peers.daemon.control("EmitRaw", {"signal_showAuthDialog", raw({})});
        m_test.peers.daemon.control("EmitRaw", {"signal_sysPop", raw({42})});
        m_test.peers.daemon.control("EmitRaw", {"signal_sysPop", raw({"/a", "/b"})});
        m_test.peers.riskbox.control("EmitRaw", {"signalResult", raw({1, 2})});
        m_test.peers.riskbox.control("EmitRaw", {"signalResult", raw({"1", "2", "3"})});
        m_test.peers.riskbox.control("EmitRaw", {"signalResult", raw({})});
        // The next good signal from the daemon is the first that shows.
        announce("after", "/after");
        QTRY_COMPARE_WITH_TIMEOUT(threatNames(from).size(), 1, 10000);
        QCOMPARE(threatNames(from), QStringList{"Virus name:after"});
        QVERIFY(m_test.settle());
        QCOMPARE(m_test.bridge->answersHandled(), handled);
        QVERIFY(m_test.events().filter("slot_ResultSignal").isEmpty());
    }

    void hostileTextsArriveExactly_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("path");
        QTest::newRow("empty") << QString() << QString();
        QTest::newRow("markup") << "<b>Bold</b><img src=x>"
                                << "/home/u/<i>x</i>.exe";
        QTest::newRow("newlines") << "line\nforged {\"entry\":\"x\"}"
                                  << "/tmp/a\r\nb";
        QTest::newRow("control characters")
            << QString::fromUtf8("bell\x07 esc\x1b del\x7f") << QString::fromUtf8("/t/\x01\x1f");
        QTest::newRow("placeholders") << "%1%2 %3"
                                      << "/tmp/%1/%2 %9";
        QTest::newRow("64 KiB path") << "Big"
                                     << "/" + QString(QLatin1Char('p')).repeated(65536);
        QTest::newRow("non-ASCII") << QString::fromUtf8("病毒 \xf0\x9f\x90\x9b")
                                   << QString::fromUtf8("/home/ü/文件.exe");
    }

    void hostileTextsArriveExactly()
    {
        QFETCH(QString, name);
        QFETCH(QString, path);
        const int from = m_test.boxes().size();
        announce(name, path);
        QTRY_COMPARE_WITH_TIMEOUT(threatBoxes(from).size(), 1, 10000);
        const QJsonObject box = threatBoxes(from).first();
        QCOMPARE(BridgeTest::contents(box),
                 (QStringList{"Discover virus threat", "Virus name:" + name, "Virus Path:" + path}));

        ModalCloser closer; // an empty path cannot be trusted: the failure box appears
        m_test.answer(box.value("id").toInt(), 3);
        QVERIFY(m_test.settle());
        // Exactly one line per event: nothing in a text can forge a second one.
        QCOMPARE(m_test.peers.log.lines().size(), m_test.peers.log.events().size());
        QCOMPARE(m_test.events().filter("Add file to trust zone|").first(),
                 "Add file to trust zone|Add file " + path + " to trust zone " +
                     (path.isEmpty() ? "failed" : "Successfully") + "|3");
        // This answer's trust call: an older threat box timing out meanwhile may call the daemon too.
        QString trusted = QStringLiteral("(no add_trustFile call)");
        for (const QJsonObject &call : m_test.peers.daemon.calls())
            if (call.value("method").toString() == QLatin1String("add_trustFile"))
                trusted = call.value("args").toArray().first().toArray().first().toString();
        QCOMPARE(trusted, path);
    }

    void answersForUnknownIds()
    {
        const QList<int> ids{0, -1, 123456, INT_MAX, INT_MIN};
        for (int id : ids)
            m_test.answer(id, id == 0 ? 1 : -7);
        QVERIFY(m_test.settle());
        QStringList expected;
        for (int id : ids)
            expected << QStringLiteral(
                            "slot_ResultSignal  virusMap is err! id:%1 state:%2|operation failed|1")
                            .arg(id)
                            .arg(id == 0 ? 1 : -7);
        QCOMPARE(m_test.events(), expected);
    }

    void daemonAwayAndBack()
    {
        const int from = m_test.boxes().size();
        announce("pending", "/h/pending");
        QTRY_COMPARE_WITH_TIMEOUT(threatNames(from), QStringList{"Virus name:pending"}, 10000);
        const int id = threatBoxes(from).first().value("id").toInt();

        // Gone while the answer is handled: the calls fail soft with their specified results.
        m_test.peers.daemon.stop();
        m_test.peers.log.clear();
        m_test.answer(id, 1);
        QVERIFY(m_test.settle());
        QVERIFY(m_test.events().contains(
            "Dealing with threats|Processing completed, 1 item(s) processed, 0 item(s) not processed.|2"));
        QVERIFY(!m_test.bridge->pendingBoxes().contains(id));
        QCOMPARE(m_test.bridge->get_protectDate(), 0);
        // As specified, an error reply reads as the value 0, which the mapping takes for success.
        QCOMPARE(m_test.bridge->begin_scan(0, {}), 0);

        // Back: its signals reach the agent again.
        QVERIFY(m_test.peers.daemon.start());
        const int again = m_test.boxes().size();
        announce("back", "/h/back");
        QTRY_COMPARE_WITH_TIMEOUT(threatNames(again), QStringList{"Virus name:back"}, 10000);
    }

    // Last: the queue it leaves behind drains for hours.
    void floodIsQueuedInOrder()
    {
        const int count = 10000;
        const int from = m_test.boxes().size();
        // Only this test's threat boxes count: earlier boxes timing out meanwhile raise notices.
        auto handedOut = [&] { return newBoxLines(from, 1).filter(QRegularExpression("^Virus name:\\d+$")); };
        for (int i = 0; i < count; ++i)
            m_test.peers.daemon.control(
                "Emit", {"signal_showAuthDialog", QStringList{QString::number(i), "", "/f", "false"}});
        // Every threat is either queued or already handed out, none lost, the same path repeated included.
        QTRY_COMPARE_WITH_TIMEOUT(m_test.bridge->pendingThreats() + handedOut().size(), count, 60000);
        QTRY_VERIFY_WITH_TIMEOUT(handedOut().size() >= 3, 10000);
        QCOMPARE(handedOut().mid(0, 3), (QStringList{"Virus name:0", "Virus name:1", "Virus name:2"}));
        // A threat the thread has just taken is in neither count until its box is up.
        QTRY_COMPARE_WITH_TIMEOUT(m_test.bridge->pendingThreats() + handedOut().size(), count, 10000);
    }
};

QTEST_MAIN(TestRobustness)
#include "tst_robustness.moc"
