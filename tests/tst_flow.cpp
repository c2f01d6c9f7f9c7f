// Threats as the daemon announces them, through the dialog thread to the boxes: one at a time, in
// order, none lost; spoofed, malformed and hostile signals; what the journal forgets; a flood.
#include "harness.h"

#include "cthreatjournal.h"
#include "journalpromises.h"

#include <QDBusVariant>

class TestFlow : public QObject
{
    Q_OBJECT

private:
    BridgeTest m_test;

    void announce(const QString &name, const QString &path)
    {
        m_test.daemon.control("Emit", {"signal_showAuthDialog", QStringList{name, "detail", path, "false"}});
    }
    // The threat boxes drawn since box `from` as "id name" (boxes that time out raise notices).
    QStringList threats(int from) const
    {
        QStringList result;
        for (const QJsonObject &box : m_test.boxes().mid(from))
            if (box["contents"][0] == "Discover virus threat")
                result << QString::number(box["id"].toInt()) + ' ' + box["contents"][1].toString().mid(11);
        return result;
    }
    // Sent from another connection: routed by the bus before anything sent after this returns.
    static void sendAsStranger(const QString &path, const QString &interface, const QString &member,
                               const QVariantList &arguments)
    {
        QDBusMessage message = QDBusMessage::createSignal(path, interface, member);
        message.setArguments(arguments);
        QDBusConnection stranger = QDBusConnection::connectToBus(QDBusConnection::SystemBus, "stranger");
        QVERIFY(stranger.send(message) &&
                stranger.interface()->isServiceRegistered("org.freedesktop.DBus").value());
    }

private slots:
    void initTestCase() { QVERIFY(m_test.start()); }
    void init() { m_test.reset(); }

    void oneAtATimeInOrder()
    {
        // A threat box that could not be shown leaves the thread waiting: the next threats stay queued.
        m_test.fault("r:show!");
        for (const char *name : {"A", "B", "C", "D"})
            announce(name, "/x");
        QTRY_COMPARE_WITH_TIMEOUT(m_test.riskbox.calls().filter(QRegularExpression("^show ")).size(), 1,
                                  20000);
        // A has been taken: three queued means all of B, C and D have arrived. Then nothing more
        // over two ticks.
        QTRY_COMPARE_WITH_TIMEOUT(m_test.bridge->pendingThreats(), 3, 20000);
        QTest::qWait(2500);
        QCOMPARE(m_test.riskbox.calls().filter(QRegularExpression("^show ")).size(), 1);
        QCOMPARE(m_test.bridge->pendingThreats(), 3);
        // A threat box shown by hand re-arms the thread; the three follow in order, each box shown
        // before the next one is created.
        m_test.Peers::reset();
        const int from = m_test.boxes().size();
        QCOMPARE(m_test.raise(3, "/m", "manual"), 0);
        QTRY_COMPARE_WITH_TIMEOUT(threats(from).size(), 4, 30000);
        QCOMPARE(threats(from).join(',').remove(QRegularExpression("\\d+ ")), QStringLiteral("manual,B,C,D"));
        const QStringList calls = m_test.riskbox.calls().filter(QRegularExpression("^(create|show) "));
        QCOMPARE(calls.join(' ').remove(QRegularExpression(" i+s* \\[[^]]*\\]")),
                 QString("create show ").repeated(4).trimmed());
    }

    void onlyWellFormedSignalsOfTheOwnersAreHeard()
    {
        const int from = m_test.boxes().size();
        sendAsStranger("/daemon", "com.vorn.virus.daemon", "signal_showAuthDialog",
                       {QVariant::fromValue(SVirusInfo{"spoofed", "", "/etc/passwd", false})});
        sendAsStranger("/daemon", "com.vorn.virus.daemon", "signal_sysPop", {"/etc/shadow"});
        auto raw = [](const QVariantList &values) {
            QVariantList wrapped;
            for (const QVariant &value : values)
                wrapped << QVariant::fromValue(QDBusVariant(value));
            return wrapped;
        };
        for (const QVariantList &args : {raw({"only", "two"}), raw({})})
            m_test.daemon.control("EmitRaw", {"signal_showAuthDialog", args});
        for (const QVariantList &args : {raw({42}), raw({"/a", "/b"})})
            m_test.daemon.control("EmitRaw", {"signal_sysPop", args});
        for (const QVariantList &args : {raw({1, 2}), raw({"1", "2", "3"}), raw({})})
            m_test.riskbox.control("EmitRaw", {"signalResult", args});
        // The daemon's own cleared file and threat are: the notice at once, the threat at a tick.
        m_test.daemon.control("Emit", {"signal_sysPop", QStringList{"/q/real"}});
        announce("real", "/home/u/real");
        QTRY_COMPARE_WITH_TIMEOUT(m_test.boxes().size(), from + 2, 30000);
        const int id = m_test.lastId();
        QCOMPARE(threats(from), QStringList{QString::number(id) + " real"});
        QCOMPARE(m_test.boxes().value(from).value("contents")[0],
                 QJsonValue("The virus has been cleared and backed up to the quarantine area"));

        sendAsStranger("/service", "com.tarsel.secriskbox", "signalResult", {id, 3, QString()});
        m_test.settle();
        QVERIFY(m_test.log.summary().filter("slot_ResultSignal").isEmpty());
        m_test.answer(id, 2);
        m_test.settle();
        QVERIFY(!m_test.bridge->pendingBoxes().contains(id));
    }

    void hostileTextsArriveExactly()
    {
        // clang-format off
        const QList<QStringList> texts{
            {"", ""}, {"<b>Bold</b><img src=x>", "/home/u/<i>x</i>.exe"}, {"line\nforged {\"entry\":\"x\"}", "/tmp/a\r\nb"},
            {QString::fromUtf8("bell\x07 esc\x1b del\x7f"), QString::fromUtf8("/t/\x01\x1f")}, {"%1%2 %3", "/tmp/%1/%2 %9"},
            {"Big", "/" + QString('p').repeated(65536)}, {QString::fromUtf8("病毒 \xf0\x9f\x90\x9b"), QString::fromUtf8("/home/ü/文件.exe")}};
        // clang-format on
        for (const QStringList &text : texts) {
            m_test.reset();
            const int from = m_test.boxes().size();
            announce(text.at(0), text.at(1));
            QTRY_COMPARE_WITH_TIMEOUT(m_test.boxes().size(), from + 1, 30000);
            QCOMPARE(m_test.boxes().last()["contents"],
                     QJsonValue(QJsonArray{"Discover virus threat", "Virus name:" + text.at(0),
                                           "Virus Path:" + text.at(1)}));
            ModalCloser closer; // an empty path cannot be trusted: the failure box appears
            m_test.answer(m_test.lastId(), 3);
            m_test.settle();
            QCOMPARE(m_test.log.summary().filter("Add file to trust zone|").value(0),
                     "Add file to trust zone|Add file " + text.at(1) + " to trust zone " +
                         (text.at(1).isEmpty() ? "failed" : "Successfully") + "|3");
            QCOMPARE(m_test.daemon.calls(), QStringList{"add_trustFile as [[" + compact(text.at(1)) + "]]"});
        }
    }

    void onlyHandlingThatSucceededIsForgotten()
    {
        // Quarantines the daemon reports as not done (1) and as failed, a refused trust, then "Not
        // for the time being": the first three stay in the journal, though they count as handled.
        const int from = m_test.boxes().size();
        const QStringList names{"notdone", "failed", "untrusted", "later"};
        const QStringList faults{"d:add_quarantineFile=1", "d:add_quarantineFile!", "d:add_trustFile=1", ""};
        for (const QString &name : names)
            announce(name, "/j");
        ModalCloser closer;
        for (int i = 0; i < 4; ++i) {
            QTRY_COMPARE_WITH_TIMEOUT(threats(from).size(), i + 1, 30000);
            m_test.fault(faults.at(i));
            m_test.answer(threats(from).at(i).section(' ', 0, 0).toInt(), QList<int>{1, 1, 3, 2}.at(i));
            m_test.settle();
        }
        QTRY_COMPARE(undecidedIn(CThreatJournal::defaultDirectory()).filter("|/j|"),
                     (QStringList{"notdone|detail|/j|0", "failed|detail|/j|0", "untrusted|detail|/j|0"}));
    }

    // Last: the queue it leaves behind drains for hours.
    void floodIsQueuedInOrder()
    {
        const int count = 10000, from = m_test.boxes().size();
        m_test.daemon.control("EmitMany",
                              {"signal_showAuthDialog", QStringList{"{n}", "", "/f", "false"}, count});
        // Every threat is queued or handed out, none lost. A threat the thread has just taken is in
        // neither count until its box is up, so the sum is read until it adds up (not read again).
        int total = 0;
        QVERIFY2(
            QTest::qWaitFor(
                [&] { return (total = m_test.bridge->pendingThreats() + threats(from).size()) == count; },
                60000),
            qPrintable(QString::number(total)));
        QTRY_VERIFY_WITH_TIMEOUT(threats(from).size() >= 3, 30000);
        QCOMPARE(threats(from).mid(0, 3).join(',').remove(QRegularExpression("\\d+ ")),
                 QStringLiteral("0,1,2"));
    }
};

QTEST_MAIN(TestFlow)
#include "tst_flow.moc"
