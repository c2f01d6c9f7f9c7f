// The risk boxes the bridge raises: each builder's exact box, failure at each step of the box
// sequence, and threats from the daemon reaching the user one at a time.
#include "bridgetest.h"
#include "stdoutcapture.h"

namespace {
const QString kCommand = QStringLiteral("vorn-defender --virus-protect");
const QString kNameLine = QStringLiteral("Virus name:% 1, click to view details");
} // namespace

class TestBridgePopups : public QObject
{
    Q_OBJECT

private:
    BridgeTest m_test;

private slots:
    void initTestCase() { QVERIFY(m_test.start()); }
    void init() { m_test.peers.reset(); }

    void eachBuilderDrawsItsBox_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<int>("createType");
        QTest::addColumn<QStringList>("contents");
        QTest::addColumn<QStringList>("buttons");
        QTest::addColumn<int>("fold");
        QTest::addColumn<int>("timeout");

        QTest::newRow("kind 0")
            << 0 << 1
            << QStringList{"The virus has been cleared and backed up to the quarantine area", kNameLine}
            << QStringList{kCommand, "default", "Trust", ""} << 1 << 0;
        QTest::newRow("kind 1") << 1 << 1 << QStringList{"Are you sure to move to the trust zone?", kNameLine}
                                << QStringList{kCommand, "default", "Cancel", "1", "Confirm", "2"} << 1 << 0;
        QTest::newRow("kind 2")
            << 2 << 1
            << QStringList{"Could not successfully move to the trust zone, please try again?", kNameLine}
            << QStringList{kCommand, "default", "Trust", ""} << 1 << 0;
        QTest::newRow("kind 3") << 3 << 0
                                << QStringList{"Discover virus threat", "Virus name:Trojan.Y",
                                               "Virus Path:/home/u/f"}
                                << QStringList{"Clear Now", "1", "Not for the time being", "2", "Trust", "3"}
                                << 0 << 10;
    }

    void eachBuilderDrawsItsBox()
    {
        QFETCH(int, kind);
        QFETCH(int, createType);
        QFETCH(QStringList, contents);
        QFETCH(QStringList, buttons);
        QFETCH(int, fold);
        QFETCH(int, timeout);

        QCOMPARE(m_test.raise(kind, QStringLiteral("/home/u/f"), "Trojan.Y", "the detail"), 0);
        const QJsonObject box = m_test.lastBox();
        QCOMPARE(box.value("type").toInt(), createType);
        QCOMPARE(box.value("appName").toString(), QStringLiteral("vorn-defender"));
        QCOMPARE(box.value("title").toString(), QStringLiteral("Security Center"));
        QCOMPARE(BridgeTest::contents(box), contents);
        QCOMPARE(BridgeTest::buttons(box), buttons);
        QCOMPARE(box.value("fold").toInt(), fold);
        QCOMPARE(box.value("timeout").toInt(), timeout);
        QVERIFY(box.value("shown").toBool());
        // In this order, and nothing else: the decoration comes before show.
        QStringList expected{"create"};
        for (int i = 0; i < contents.size(); ++i)
            expected << "addContent";
        for (int i = 0; i < buttons.size(); i += 2)
            expected << "addButton";
        expected << (kind == 3 ? "setTimeout" : "setNotifyFold") << "show";
        QCOMPARE(m_test.peers.riskbox.callNames(), expected);

        // The entry keeps the argument where the result handling looks for it.
        const SVirusBoxInfo entry = m_test.bridge->pendingBoxes().value(box.value("id").toInt());
        QCOMPARE(entry.iVirusType, kind);
        QCOMPARE(entry.virusName, kind == 0   ? QStringLiteral("/home/u/f")
                                  : kind == 3 ? QStringLiteral("Trojan.Y")
                                              : QString());
        QCOMPARE(entry.virusPath, kind == 0 ? QString() : QStringLiteral("/home/u/f"));
        QCOMPARE(entry.virusDetail, kind == 3 ? QStringLiteral("the detail") : QString());
        QCOMPARE(entry.virusFlag, kind == 3);
    }

    void failureAtEachStep_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("control");
        QTest::addColumn<QVariantList>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("printed"); // {id}: the box created

        const QString createFailed =
            "method:create  调用失败：response.type():3 \ncreate_secRiskBox iId: -1\n";
        for (int kind = 0; kind <= 3; ++kind) {
            const QByteArray k = "kind " + QByteArray::number(kind) + ", ";
            QTest::newRow(k + "create answers -1")
                << kind << "Force" << QVariantList{"create", -1} << -1 << "create_secRiskBox iId: -1\n";
            QTest::newRow(k + "create answers -7")
                << kind << "Force" << QVariantList{"create", -7} << -7 << "create_secRiskBox iId: -7\n";
            QTest::newRow(k + "create fails")
                << kind << "Fail" << QVariantList{"create", "", ""} << -1 << createFailed;
            QTest::newRow(k + "addButton fails")
                << kind << "Fail" << QVariantList{"addButton", "", ""} << -1
                << "method:addButton  调用失败：response.type():3 \nadd_secRiskBoxAction iId:{id} iRet: -1\n";
            if (kind == 3)
                QTest::newRow(k + "setTimeout fails")
                    << kind << "Fail" << QVariantList{"setTimeout", "", ""} << -1
                    << "method:setTimeout  调用失败：response.type():3 \nset_secRiskBoxTimeout iId:{id} "
                       "iRet: -1\n";
            else
                QTest::newRow(k + "setNotifyFold fails")
                    << kind << "Fail" << QVariantList{"setNotifyFold", "", ""} << -1
                    << "method:setNotifyFold  调用失败：response.type():3 \nset_secRiskBoxFold iId:{id} "
                       "iRet: -1\n";
            QTest::newRow(k + "show fails")
                << kind << "Fail" << QVariantList{"show", "", ""} << -1
                << "method:show  调用失败：response.type():3 \nshow_secRiskBox iId:{id}  iRet: -1\n";
        }
    }

    void failureAtEachStep()
    {
        QFETCH(int, kind);
        QFETCH(QString, control);
        QFETCH(QVariantList, args);
        QFETCH(int, code);
        QFETCH(QString, printed);

        const QMap<int, SVirusBoxInfo> before = m_test.bridge->pendingBoxes();
        const int boxes = m_test.boxes().size();
        m_test.peers.riskbox.control(control, args);
        StdoutCapture out;
        const int result = m_test.raise(kind, QStringLiteral("/f"), "Trojan.Y", "the detail");
        const QString text = out.text();
        out.restore();

        QCOMPARE(result, code);
        const int id = m_test.boxes().size() > boxes ? m_test.lastBox().value("id").toInt() : -1;
        const QStringList prefix{"slot_sysPop file:/f\n", "show_selectVirusBoxNotify strVirusName: /f\n",
                                 "show_retryVirusBoxNotify strVirusName: /f\n", ""};
        QCOMPARE(text, prefix.at(kind) + QString(printed).replace("{id}", QString::number(id)));
        QCOMPARE(m_test.bridge->pendingBoxes().keys(), before.keys());
        // Nothing of a failed box goes to the security log (kind 1 logs its request first).
        QCOMPARE(m_test.events().size(), kind == 1 ? 1 : 0);
    }

    // Runs after the failures above: a failed threat box left the thread waiting, and the next
    // threat stays queued until a threat box is shown again.
    void threatsFromTheDaemonComeOneAtATime()
    {
        m_test.peers.riskbox.control("Fail", {"show", "", ""});
        m_test.peers.daemon.control("Emit", {"signal_showAuthDialog", QStringList{"A", "", "/a", "false"}});
        QTRY_COMPARE_WITH_TIMEOUT(m_test.peers.riskbox.callNames().count("show"), 1, 5000);
        m_test.peers.reset();
        for (const char *name : {"B", "C", "D"})
            m_test.peers.daemon.control("Emit",
                                        {"signal_showAuthDialog", QStringList{name, "", "/x", "false"}});
        QTest::qWait(2500);
        QVERIFY(m_test.peers.riskbox.calls().isEmpty());

        // A threat box shown by hand re-arms the thread; the three then follow in order.
        // Only threat boxes count: an earlier threat box timing out meanwhile raises a notice.
        auto threatNames = [this](int from) {
            QStringList names;
            for (const QJsonObject &box : m_test.boxes().mid(from))
                if (BridgeTest::contents(box).value(0) == QLatin1String("Discover virus threat"))
                    names << BridgeTest::contents(box).value(1);
            return names;
        };
        const int before = m_test.boxes().size();
        QCOMPARE(m_test.bridge->get_signalResult(SVirusInfo{"manual", "", "/m", false}), 0);
        QTRY_COMPARE_WITH_TIMEOUT(threatNames(before).size(), 4, 8000);
        QCOMPARE(threatNames(before),
                 (QStringList{"Virus name:manual", "Virus name:B", "Virus name:C", "Virus name:D"}));
        // Each box was shown before the next one was created.
        bool unshown = false;
        for (const QString &call : m_test.peers.riskbox.callNames()) {
            if (call == "create") {
                QVERIFY(!unshown);
                unshown = true;
            } else if (call == "show") {
                unshown = false;
            }
        }
        QCOMPARE(m_test.peers.log.operations().count("CVirusDbusMiddle: authDialog already exec"), 3);
    }
};

QTEST_MAIN(TestBridgePopups)
#include "tst_bridgepopups.moc"
