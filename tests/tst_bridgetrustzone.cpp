// Trust zone and quarantine operations with their events and failure boxes, the scan relay, the
// "scanning" warning and the daemon convenience operations.
#include "bridgetest.h"
#include "modalcloser.h"

#include <QSignalSpy>

class TestBridgeTrustZone : public QObject
{
    Q_OBJECT

private:
    BridgeTest m_test;

    void forceDaemon(const QString &method, int value)
    {
        m_test.peers.daemon.control("Force", {method, value});
    }

private slots:
    void initTestCase() { QVERIFY(m_test.start()); }
    void init() { m_test.peers.reset(); }

    void addTrustFiles_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<int>("reply"); // -100: the stand-in's own answer
        QTest::addColumn<int>("result");
        QTest::addColumn<QString>("word");
        QTest::addColumn<QString>("boxName");
        QTest::addColumn<QString>("boxText");

        QTest::newRow("empty list") << QStringList() << -100 << 0 << QString() << QString() << QString();
        QTest::newRow("all added") << QStringList{"/t/1", "/t/2"} << -100 << 0 << "Successfully" << QString()
                                   << QString();
        QTest::newRow("empty list, refused") << QStringList() << 2 << -1 << QString() << "msgFail"
                                             << "Failed to add some files to the trust zone";
        QTest::newRow("one of three failed") << QStringList{"/t/a", "/t/b", "/t/c"} << 1 << -1 << "failed"
                                             << "msgFail"
                                             << "Failed to add some files to the trust zone";
        QTest::newRow("all three failed") << QStringList{"/t/a", "/t/b", "/t/c"} << 3 << -1 << "failed"
                                          << "msg"
                                          << "Failed to add to trust zone";
    }

    void addTrustFiles()
    {
        QFETCH(QStringList, files);
        QFETCH(int, reply);
        QFETCH(int, result);
        QFETCH(QString, word);
        QFETCH(QString, boxName);
        QFETCH(QString, boxText);

        if (reply != -100)
            forceDaemon("add_trustFile", reply);
        QSignalSpy lastWindowClosed(qApp, &QGuiApplication::lastWindowClosed);
        ModalCloser closer;
        QCOMPARE(m_test.bridge->addTrustFiles(files), result);

        QStringList expected;
        for (const QString &file : files)
            expected << "Add file to trust zone|Add file " + file + " to trust zone " + word + "|3";
        QCOMPARE(m_test.events(), expected);
        QCOMPARE(m_test.peers.daemon.callLines(),
                 QStringList{"add_trustFile " +
                             QString::fromUtf8(QJsonDocument(QJsonArray{QJsonArray::fromStringList(files)})
                                                   .toJson(QJsonDocument::Compact))});
        if (boxName.isEmpty()) {
            QVERIFY(closer.seen.isEmpty());
            return;
        }
        QCOMPARE(closer.seen.size(), 1);
        const ModalCloser::Seen box = closer.seen.first();
        const QString program = QFileInfo(QCoreApplication::arguments().first()).fileName();
        const QString name = program + "_CVirusDbusMiddle_QMessageBox_" + boxName + "_vorn-virus-scan";
        QCOMPARE(box.objectName, name);
        QCOMPARE(box.accessibleName, name);
        QCOMPARE(box.text, boxText);
        QCOMPARE(box.icon, QMessageBox::Critical);
        QCOMPARE(box.buttons, QStringList{"Confirm"});
        QCOMPARE(box.roles, QList<QMessageBox::ButtonRole>{QMessageBox::YesRole});
        // Closing the box must not end the agent, and the policy itself is left alone.
        QVERIFY(!box.quitOnClose);
        QCOMPARE(lastWindowClosed.count(), 0);
        QVERIFY(QGuiApplication::quitOnLastWindowClosed());
        // The event loop still serves the next answer.
        QVERIFY(m_test.settle());
    }

    void listOperations()
    {
        const QStringList two{"/a", "/b"};
        QCOMPARE(m_test.bridge->deleteTrustFiles(two), 2); // neither was trusted
        m_test.bridge->addTrustFiles(two);
        m_test.peers.log.clear();
        QCOMPARE(m_test.bridge->deleteTrustFiles(two), 0);
        QCOMPARE(m_test.bridge->addTrustExtensions({".exe", ".bat"}), 0);
        forceDaemon("add_trustExtension", 1);
        QCOMPARE(m_test.bridge->addTrustExtensions({".sh"}), 1);
        QCOMPARE(m_test.bridge->deleteTrustExtensions({".exe"}), 0);
        QCOMPARE(m_test.bridge->deleteTrustExtensions({".none"}), 1);
        m_test.peers.daemon.control("Emit", {"signal_sysPop", QStringList{"/q/old"}});
        QTRY_VERIFY(!m_test.peers.daemon.state().value("quarantine").toArray().isEmpty());
        QCOMPARE(m_test.bridge->deleteQuarantineFiles({"/q/old"}), 0);
        forceDaemon("delete_quarantineFile", -1);
        QCOMPARE(m_test.bridge->deleteQuarantineFiles({"/q/x", "/q/y"}), -1);

        QCOMPARE(m_test.events(),
                 (QStringList{"Delete trust zone file|Delete file/a in the trust zone Successfully|3",
                              "Delete trust zone file|Delete file/b in the trust zone Successfully|3",
                              "Add file extension .exe to trust zone.|operation successful|3",
                              "Add file extension .bat to trust zone.|operation successful|3",
                              "Add file extension .sh to trust zone.|operation failed|1",
                              "Delete the file extension of the trust zone:  .exe|operation successful|3",
                              "Delete the file extension of the trust zone:  .none|operation failed|1",
                              "Delete quarantine file:  /q/old|operation successful|3",
                              "Delete quarantine file:  /q/x|operation failed|1",
                              "Delete quarantine file:  /q/y|operation failed|1"}));
        m_test.peers.log.clear();
        QCOMPARE(m_test.bridge->deleteTrustFiles({"/c"}), 1);
        QCOMPARE(m_test.events(),
                 QStringList{"Delete trust zone file|Delete file/c in the trust zone failed|3"});
    }

    void quarantineAndRestore()
    {
        QSignalSpy dealFinish(m_test.bridge, SIGNAL(signal_dealFinish(int)));
        QCOMPARE(m_test.bridge->add_quarantineFile({{"/q/1", "V1"}, {"/q/2", "V2"}, {"", "V3"}}), 1);
        QCOMPARE(dealFinish.count(), 1);
        QCOMPARE(dealFinish.first().first().toInt(), 1);
        forceDaemon("add_quarantineFile", -1);
        QCOMPARE(m_test.bridge->add_quarantineFile({{"/q/3", "V"}}), -1);
        QCOMPARE(dealFinish.count(), 1);
        QCOMPARE(
            m_test.events(),
            (QStringList{
                "Dealing with threats|Processing completed, 2 item(s) processed, 1 item(s) not processed.|2",
                "Dealing with threats|Processing completed, 2 item(s) processed, -1 item(s) not "
                "processed.|2"}));
        // A failed call reads as nothing left unprocessed.
        m_test.peers.daemon.control("Fail", {"add_quarantineFile", "", ""});
        QCOMPARE(m_test.bridge->dealThreats({{"/q/4", "V"}}), 0);
        m_test.peers.daemon.control("Reset", {""});
        QCOMPARE(m_test.bridge->restoreQuarantineFiles({"/q/1", "/q/none"}, 1), 1);
        QCOMPARE(m_test.peers.daemon.callLines().last(),
                 QStringLiteral(R"(restore_quarantineFile [["/q/1","/q/none"],1])"));
    }

    void relayAndWarning()
    {
        CVirusDbusMiddle *bridge = m_test.bridge;
        QSignalSpy fast(bridge, SIGNAL(signal_fastItemChanged(int)));
        QSignalSpy custom(bridge, SIGNAL(signal_customItemStartScan(QString)));
        QSignalSpy itemEnd(bridge, SIGNAL(signal_fasetItemEnd(SScanItemVirusInfo)));
        QSignalSpy scanEnd(bridge, SIGNAL(signal_scanEnd(SVirusInfoList)));
        QSignalSpy deal(bridge, SIGNAL(signal_dealFinish(int)));
        QSignalSpy detail(bridge, SIGNAL(signal_scanDetailInfo(SScaningInfo)));
        QSignalSpy right(bridge, SIGNAL(signal_rightBeginScanMiddle(QString)));
        bridge->slot_scanItemBegin(4);
        bridge->slot_customItemBegin("/scan/me");
        bridge->slot_scanItemEnd(SScanItemVirusInfo{1, 2, "t"});
        bridge->slot_scanFinished(SVirusInfoList{{"n", "d", "p", true}});
        bridge->slot_dealFinished(2);
        bridge->slot_scanDetailInfo(SScaningInfo{"s", 5, 6});
        bridge->slot_rightScanBegin("/right");
        QCOMPARE(fast.takeFirst().first().toInt(), 4);
        QCOMPARE(custom.takeFirst().first().toString(), QStringLiteral("/scan/me"));
        QCOMPARE(itemEnd.takeFirst().first().value<SScanItemVirusInfo>().text, QStringLiteral("t"));
        QCOMPARE(scanEnd.takeFirst().first().value<SVirusInfoList>().first().virusPath, QStringLiteral("p"));
        QCOMPARE(deal.takeFirst().first().toInt(), 2);
        QCOMPARE(detail.takeFirst().first().value<SScaningInfo>().number2, 6);
        QCOMPARE(right.takeFirst().first().toString(), QStringLiteral("/right"));
        for (QSignalSpy *spy : {&fast, &custom, &itemEnd, &scanEnd, &deal, &detail, &right})
            QVERIFY(spy->isEmpty());
        QVERIFY(m_test.events().isEmpty());
        QVERIFY(m_test.peers.daemon.calls().isEmpty());

        QSignalSpy lastWindowClosed(qApp, &QGuiApplication::lastWindowClosed);
        ModalCloser closer;
        bridge->slot_rightClicked();
        QCOMPARE(closer.seen.size(), 1);
        QCOMPARE(closer.seen.first().title, QStringLiteral("Warning"));
        QCOMPARE(closer.seen.first().text, QStringLiteral("Scanning in progress, please try again later."));
        QCOMPARE(closer.seen.first().icon, QMessageBox::Warning);
        QCOMPARE(closer.seen.first().buttons, QStringList{"OK"});
        QVERIFY(!closer.seen.first().quitOnClose);
        QCOMPARE(lastWindowClosed.count(), 0);
    }

    void daemonOperations()
    {
        CVirusDbusMiddle *bridge = m_test.bridge;
        QCOMPARE(bridge->get_protectDate(), 30);
        QCOMPARE(bridge->set_scanMode(3), 0);
        QCOMPARE(bridge->get_scanMode(), 3);
        QCOMPARE(bridge->set_scanStatus(1), 0);
        QCOMPARE(bridge->get_scanStatus(), 1);
        QCOMPARE(bridge->set_scanEngine("heuristic"), 0);
        QCOMPARE(bridge->set_scanEngine("nonesuch"), -1);
        QCOMPARE(bridge->set_scanConfig(2, 9), 0);
        QCOMPARE(bridge->set_scanConfig(11, 9), -1);
        QCOMPARE(bridge->begin_scan(1, {"/home"}), 0);
        forceDaemon("begin_scan", 7);
        QCOMPARE(bridge->begin_scan(1, {"/home"}), -1);
        QCOMPARE(bridge->get_quarantineSize(),
                 m_test.peers.daemon.state().value("quarantine").toArray().size());

        SScanConfigInfo config;
        QCOMPARE(bridge->get_allScanConfig(config), 0);
        QCOMPARE(config.value2, 9);
        SEngineInfoList engines;
        QCOMPARE(bridge->get_allEngineInfoList(engines), 0);
        QCOMPARE(engines.size(), 2);
        bridge->addTrustExtensions({".iso"});
        SExtensionInfoList extensions;
        QCOMPARE(bridge->get_trustExtensionList(extensions), 0);
        QVERIFY(std::any_of(extensions.cbegin(), extensions.cend(),
                            [](const SExtensionInfo &e) { return e.text1 == ".iso"; }));

        // A non-zero answer is -1; a transport error reads as 0 with the target untouched.
        STrustFileInfoList trusted;
        forceDaemon("get_trustFileList", 4);
        QCOMPARE(bridge->get_trustFileList(trusted), -1);
        trusted = {{"keep", "", 0, false}};
        m_test.peers.daemon.control("Fail", {"get_trustFileList", "", ""});
        QCOMPARE(bridge->get_trustFileList(trusted), 0);
        QCOMPARE(trusted.size(), 1);
        QCOMPARE(trusted.first().text1, QStringLiteral("keep"));
        SIsolateFileInfoList isolated;
        QCOMPARE(bridge->get_quarantineFileList(isolated), 0);
    }
};

QTEST_MAIN(TestBridgeTrustZone)
#include "tst_bridgetrustzone.moc"
