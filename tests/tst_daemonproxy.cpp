// The generated daemon proxy against the stand-in daemon: its meta-object, every method on the
// wire, the blocking overloads, and which signals it lets through.
#include "standinprocess.h"
#include "virusscaninterface.h"

#include <QJsonArray>
#include <QSignalSpy>

namespace {
const QString kService = QStringLiteral("com.vorn.virus");
const QString kPath = QStringLiteral("/daemon");

QJsonArray json(const char *text)
{
    return QJsonDocument::fromJson(text).array();
}
} // namespace

// Counts threats through a direct connection, which needs no registered meta-type of its own.
class ThreatCounter : public QObject
{
    Q_OBJECT
public:
    int count = 0;
public slots:
    void onThreat(const SVirusInfo &) { ++count; }
};

class TestDaemonProxy : public QObject
{
    Q_OBJECT

private:
    StandInProcess m_daemon{QStringLiteral(VORN_STANDIN_DAEMON), kService, {QStringLiteral("--quiet")}};

private slots:
    // Runs first, while the records are still unknown to the process: a proxy connected before
    // registration never hears the signal, one connected after does.
    void recordsMustBeRegisteredBeforeConnecting()
    {
        QVERIFY(m_daemon.start());
        QVERIFY(QMetaType::type("SVirusInfo") == QMetaType::UnknownType);
        VirusScanInterface early(kService, kPath, QDBusConnection::systemBus());
        ThreatCounter earlyCounter;
        QVERIFY(connect(&early, SIGNAL(signal_showAuthDialog(SVirusInfo)), &earlyCounter,
                        SLOT(onThreat(SVirusInfo)), Qt::DirectConnection));

        registerDaemonMetaTypes();
        VirusScanInterface late(kService, kPath, QDBusConnection::systemBus());
        ThreatCounter lateCounter;
        QVERIFY(connect(&late, SIGNAL(signal_showAuthDialog(SVirusInfo)), &lateCounter,
                        SLOT(onThreat(SVirusInfo)), Qt::DirectConnection));

        m_daemon.control(QStringLiteral("Emit"),
                         {QStringLiteral("signal_showAuthDialog"), QStringList{"n", "d", "/p", "true"}});
        QTRY_COMPARE(lateCounter.count, 1);
        QCOMPARE(earlyCounter.count, 0);
    }

    void metaObjectTable()
    {
        struct Member
        {
            QMetaMethod::MethodType type;
            const char *returnType;
            const char *signature;
            QList<QByteArray> names;
        };
        const QList<Member> table{
            {QMetaMethod::Signal, "void", "signal_customScanItemBegin(QString)", {"name"}},
            {QMetaMethod::Signal, "void", "signal_dealFinished(int)", {"failNum"}},
            {QMetaMethod::Signal, "void", "signal_rightBeginScan(QString)", {"file"}},
            {QMetaMethod::Signal, "void", "signal_rightClicked()", {}},
            {QMetaMethod::Signal, "void", "signal_scanDetailInfo(SScaningInfo)", {"info"}},
            {QMetaMethod::Signal, "void", "signal_scanFinished(SVirusInfoList)", {"infolist"}},
            {QMetaMethod::Signal, "void", "signal_scanItemBegin(int)", {"mode"}},
            {QMetaMethod::Signal, "void", "signal_scanItemEnd(SScanItemVirusInfo)", {"info"}},
            {QMetaMethod::Signal, "void", "signal_showAuthDialog(SVirusInfo)", {"info"}},
            {QMetaMethod::Signal, "void", "signal_sysPop(QString)", {"file"}},
            {QMetaMethod::Slot,
             "QDBusPendingReply<int>",
             "add_quarantineFile(SQuarantineFileInfoList)",
             {"fileList"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int>", "add_trustExtension(QStringList)", {"fileList"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int>", "add_trustFile(QStringList)", {"fileList"}},
            {QMetaMethod::Slot,
             "QDBusPendingReply<int>",
             "begin_scan(int,QStringList)",
             {"scanType", "filePath"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int>", "delete_quarantineFile(QStringList)", {"fileList"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int>", "delete_trustExtension(QStringList)", {"fileList"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int>", "delete_trustFile(QStringList)", {"fileList"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int,SEngineInfoList>", "get_allEngineInfoList()", {}},
            {QMetaMethod::Slot, "QDBusReply<int>", "get_allEngineInfoList(SEngineInfoList&)", {"infoList"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int,SScanConfigInfo>", "get_allScanConfig()", {}},
            {QMetaMethod::Slot, "QDBusReply<int>", "get_allScanConfig(SScanConfigInfo&)", {"configInfo"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int>", "get_protectDate()", {}},
            {QMetaMethod::Slot,
             "QDBusPendingReply<int,SIsolateFileInfoList>",
             "get_quarantineFileList()",
             {}},
            {QMetaMethod::Slot,
             "QDBusReply<int>",
             "get_quarantineFileList(SIsolateFileInfoList&)",
             {"infoList"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int>", "get_quarantineSize()", {}},
            {QMetaMethod::Slot, "QDBusPendingReply<int>", "get_scanMode()", {}},
            {QMetaMethod::Slot, "QDBusPendingReply<int>", "get_scanStatus()", {}},
            {QMetaMethod::Slot, "QDBusPendingReply<int,SExtensionInfoList>", "get_trustExtensionList()", {}},
            {QMetaMethod::Slot,
             "QDBusReply<int>",
             "get_trustExtensionList(SExtensionInfoList&)",
             {"infoList"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int,STrustFileInfoList>", "get_trustFileList()", {}},
            {QMetaMethod::Slot, "QDBusReply<int>", "get_trustFileList(STrustFileInfoList&)", {"infoList"}},
            {QMetaMethod::Slot,
             "QDBusPendingReply<int>",
             "restore_quarantineFile(QStringList,int)",
             {"fileList", "dealMode"}},
            {QMetaMethod::Slot,
             "QDBusPendingReply<int>",
             "set_scanConfig(int,int)",
             {"configType", "configParameters"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int>", "set_scanEngine(QString)", {"engineName"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int>", "set_scanMode(int)", {"mode"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int>", "set_scanStatus(int)", {"status"}},
            {QMetaMethod::Slot,
             "QDBusPendingReply<int>",
             "special_scan(int,QStringList)",
             {"scanType", "filePath"}},
            {QMetaMethod::Slot, "QDBusPendingReply<int>", "test(int)", {"status"}},
        };
        const QMetaObject &meta = VirusScanInterface::staticMetaObject;
        QCOMPARE(meta.className(), "VirusScanInterface");
        QCOMPARE(VirusScanInterface::staticInterfaceName(), "com.vorn.virus.daemon");
        QCOMPARE(meta.methodCount() - meta.methodOffset(), table.size());
        for (int i = 0; i < table.size(); ++i) {
            const QMetaMethod method = meta.method(meta.methodOffset() + i);
            const QByteArray where = QByteArray::number(i) + ": " + table.at(i).signature;
            QVERIFY2(method.methodSignature() == table.at(i).signature,
                     where + " is " + method.methodSignature());
            QVERIFY2(method.methodType() == table.at(i).type, where);
            QVERIFY2(QByteArray(method.typeName()) == table.at(i).returnType,
                     where + " returns " + method.typeName());
            QVERIFY2(method.parameterNames() == table.at(i).names, where);
            QVERIFY2(method.access() == QMetaMethod::Public, where);
        }
    }

    void everyMethodOnTheWire_data()
    {
        QTest::addColumn<QString>("method");
        QTest::addColumn<QString>("signature");
        QTest::addColumn<QJsonArray>("args");
        QTest::addColumn<int>("reply");

        QTest::newRow("add_quarantineFile") << "add_quarantineFile"
                                            << "a(ss)" << json(R"([[["/q/a","EICAR"],["",""]]])") << 1;
        QTest::newRow("add_trustExtension") << "add_trustExtension"
                                            << "as" << json(R"([[".exe"]])") << 0;
        QTest::newRow("add_trustFile") << "add_trustFile"
                                       << "as" << json(R"([["/t/a",""]])") << 1;
        QTest::newRow("begin_scan") << "begin_scan"
                                    << "ias" << json(R"([2,["/home"]])") << 0;
        QTest::newRow("delete_quarantineFile") << "delete_quarantineFile"
                                               << "as" << json(R"([["/q/a","/none"]])") << 1;
        QTest::newRow("delete_trustExtension") << "delete_trustExtension"
                                               << "as" << json(R"([[".exe"]])") << 0;
        QTest::newRow("delete_trustFile") << "delete_trustFile"
                                          << "as" << json(R"([["/t/a"]])") << 0;
        QTest::newRow("get_allEngineInfoList") << "get_allEngineInfoList"
                                               << "" << json("[]") << 0;
        QTest::newRow("get_allScanConfig") << "get_allScanConfig"
                                           << "" << json("[]") << 0;
        QTest::newRow("get_protectDate") << "get_protectDate"
                                         << "" << json("[]") << 30;
        QTest::newRow("get_quarantineFileList") << "get_quarantineFileList"
                                                << "" << json("[]") << 0;
        QTest::newRow("get_quarantineSize") << "get_quarantineSize"
                                            << "" << json("[]") << 0;
        QTest::newRow("get_scanMode") << "get_scanMode"
                                      << "" << json("[]") << 0;
        QTest::newRow("get_scanStatus") << "get_scanStatus"
                                        << "" << json("[]") << 0;
        QTest::newRow("get_trustExtensionList") << "get_trustExtensionList"
                                                << "" << json("[]") << 0;
        QTest::newRow("get_trustFileList") << "get_trustFileList"
                                           << "" << json("[]") << 0;
        QTest::newRow("restore_quarantineFile") << "restore_quarantineFile"
                                                << "asi" << json(R"([["/none"],1])") << 1;
        QTest::newRow("set_scanConfig") << "set_scanConfig"
                                        << "ii" << json("[3,7]") << 0;
        QTest::newRow("set_scanEngine") << "set_scanEngine"
                                        << "s" << json(R"(["heuristic"])") << 0;
        QTest::newRow("set_scanMode") << "set_scanMode"
                                      << "i" << json("[2]") << 0;
        QTest::newRow("set_scanStatus") << "set_scanStatus"
                                        << "i" << json("[1]") << 0;
        QTest::newRow("special_scan") << "special_scan"
                                      << "ias" << json(R"([1,["/x"]])") << 0;
        QTest::newRow("test") << "test"
                              << "i" << json("[5]") << 5;
    }

    void everyMethodOnTheWire()
    {
        QFETCH(QString, method);
        QFETCH(QString, signature);
        QFETCH(QJsonArray, args);
        QFETCH(int, reply);

        VirusScanInterface proxy(kService, kPath, QDBusConnection::systemBus());
        m_daemon.control(QStringLiteral("ClearCalls"));
        QDBusPendingReply<int> pending;
        if (method == "add_quarantineFile")
            pending = proxy.add_quarantineFile({{"/q/a", "EICAR"}, {"", ""}});
        else if (method == "add_trustExtension")
            pending = proxy.add_trustExtension({".exe"});
        else if (method == "add_trustFile")
            pending = proxy.add_trustFile({"/t/a", ""});
        else if (method == "begin_scan")
            pending = proxy.begin_scan(2, {"/home"});
        else if (method == "delete_quarantineFile")
            pending = proxy.delete_quarantineFile({"/q/a", "/none"});
        else if (method == "delete_trustExtension")
            pending = proxy.delete_trustExtension({".exe"});
        else if (method == "delete_trustFile")
            pending = proxy.delete_trustFile({"/t/a"});
        else if (method == "get_allEngineInfoList")
            pending = proxy.get_allEngineInfoList();
        else if (method == "get_allScanConfig")
            pending = proxy.get_allScanConfig();
        else if (method == "get_protectDate")
            pending = proxy.get_protectDate();
        else if (method == "get_quarantineFileList")
            pending = proxy.get_quarantineFileList();
        else if (method == "get_quarantineSize")
            pending = proxy.get_quarantineSize();
        else if (method == "get_scanMode")
            pending = proxy.get_scanMode();
        else if (method == "get_scanStatus")
            pending = proxy.get_scanStatus();
        else if (method == "get_trustExtensionList")
            pending = proxy.get_trustExtensionList();
        else if (method == "get_trustFileList")
            pending = proxy.get_trustFileList();
        else if (method == "restore_quarantineFile")
            pending = proxy.restore_quarantineFile({"/none"}, 1);
        else if (method == "set_scanConfig")
            pending = proxy.set_scanConfig(3, 7);
        else if (method == "set_scanEngine")
            pending = proxy.set_scanEngine("heuristic");
        else if (method == "set_scanMode")
            pending = proxy.set_scanMode(2);
        else if (method == "set_scanStatus")
            pending = proxy.set_scanStatus(1);
        else if (method == "special_scan")
            pending = proxy.special_scan(1, {"/x"});
        else if (method == "test")
            pending = proxy.test(5);
        pending.waitForFinished();
        QVERIFY2(!pending.isError(), qPrintable(pending.error().message()));
        QCOMPARE(pending.argumentAt<0>(), reply);

        const QList<QJsonObject> calls = m_daemon.calls();
        QCOMPARE(calls.size(), 1);
        QCOMPARE(calls.first().value("method").toString(), method);
        QCOMPARE(calls.first().value("signature").toString(), signature);
        QCOMPARE(calls.first().value("args").toArray(), args);
    }

    void recordReplies()
    {
        VirusScanInterface proxy(kService, kPath, QDBusConnection::systemBus());
        QDBusPendingReply<int, SScanConfigInfo> config = proxy.get_allScanConfig();
        config.waitForFinished();
        QCOMPARE(config.argumentAt<0>(), 0);
        QCOMPARE(config.argumentAt<1>().value4, 1);
        QCOMPARE(config.argumentAt<1>().value6, 100);

        proxy.add_quarantineFile({{"/q/listed", "Worm"}}).waitForFinished();
        SIsolateFileInfoList listed;
        QDBusReply<int> reply = proxy.get_quarantineFileList(listed);
        QCOMPARE(reply.value(), 0);
        QCOMPARE(listed.size(), 1);
        QCOMPARE(listed.first().text1, QStringLiteral("/q/listed"));
        QCOMPARE(listed.first().text2, QStringLiteral("Worm"));

        SEngineInfoList engines;
        QCOMPARE(proxy.get_allEngineInfoList(engines).value(), 0);
        QCOMPARE(engines.size(), 2);
        QCOMPARE(engines.at(1).text1, QStringLiteral("heuristic"));
    }

    void blockingOverloadsLeaveTargetOnShortOrErrorReply()
    {
        VirusScanInterface proxy(kService, kPath, QDBusConnection::systemBus());
        const STrustFileInfoList untouched{{"keep", "me", 1, true}};

        m_daemon.control(QStringLiteral("Short"), {QStringLiteral("get_trustFileList"), 4});
        STrustFileInfoList list = untouched;
        QDBusReply<int> reply = proxy.get_trustFileList(list);
        QVERIFY(reply.isValid());
        QCOMPARE(reply.value(), 4);
        QCOMPARE(list.size(), 1);
        QCOMPARE(list.first().text1, QStringLiteral("keep"));

        m_daemon.control(QStringLiteral("Fail"), {QStringLiteral("get_trustFileList"), QString(), QString()});
        reply = proxy.get_trustFileList(list);
        QVERIFY(!reply.isValid());
        QCOMPARE(reply.value(), 0);
        QCOMPARE(list.first().text1, QStringLiteral("keep"));

        m_daemon.control(QStringLiteral("Reset"), {QString()});
        proxy.add_trustFile({"/t/full"}).waitForFinished();
        reply = proxy.get_trustFileList(list);
        QCOMPARE(reply.value(), 0);
        QCOMPARE(list.size(), 1);
        QCOMPARE(list.first().text1, QStringLiteral("/t/full"));

        // The same for a record out-parameter.
        SScanConfigInfo config;
        config.value1 = 99;
        m_daemon.control(QStringLiteral("Fail"), {QStringLiteral("get_allScanConfig"), QString(), QString()});
        QCOMPARE(proxy.get_allScanConfig(config).value(), 0);
        QCOMPARE(config.value1, 99);
        m_daemon.control(QStringLiteral("Reset"), {QString()});
    }

    void signalsOnlyWithTheirSignatureAndFromTheOwner()
    {
        VirusScanInterface proxy(kService, kPath, QDBusConnection::systemBus());
        QSignalSpy spy(&proxy, SIGNAL(signal_showAuthDialog(SVirusInfo)));

        // Wrong signature from the owner, then a stranger on the same path and member.
        m_daemon.control(QStringLiteral("EmitRaw"),
                         {QStringLiteral("signal_showAuthDialog"),
                          QVariantList{QVariant::fromValue(QDBusVariant(QStringLiteral("only"))),
                                       QVariant::fromValue(QDBusVariant(QStringLiteral("strings")))}});
        QDBusConnection stranger = QDBusConnection::connectToBus(QDBusConnection::SystemBus, "stranger");
        QDBusMessage spoof =
            QDBusMessage::createSignal(kPath, "com.vorn.virus.daemon", "signal_showAuthDialog");
        spoof << QVariant::fromValue(SVirusInfo{"spoofed", "x", "/etc/passwd", false});
        QVERIFY(stranger.send(spoof));
        // A round trip with the bus makes sure the spoof was routed before the real signal is sent.
        QVERIFY(stranger.interface()->isServiceRegistered(kService).value());

        m_daemon.control(QStringLiteral("Emit"), {QStringLiteral("signal_showAuthDialog"),
                                                  QStringList{"EICAR", "detail", "/home/u/x", "true"}});
        // Had either bad signal come through, it would have come first.
        QTRY_COMPARE(spy.count(), 1);
        const SVirusInfo info = spy.first().first().value<SVirusInfo>();
        QCOMPARE(info.virusName, QStringLiteral("EICAR"));
        QCOMPARE(info.virusDetail, QStringLiteral("detail"));
        QCOMPARE(info.virusPath, QStringLiteral("/home/u/x"));
        QCOMPARE(info.virusFlag, true);
        QDBusConnection::disconnectFromBus("stranger");
    }

    void standInRefusesBadControlInput()
    {
        const QList<QVariantList> bad{
            {QStringLiteral("signal_showAuthDialog"), QStringList{"only", "three", "args"}},
            {QStringLiteral("signal_nope"), QStringList{}},
            {QStringLiteral("signal_dealFinished"), QStringList{"many"}},
            {QStringLiteral("signal_showAuthDialog"), QStringList{"n", "d", "p", "maybe"}},
        };
        for (const QVariantList &args : bad) {
            const QDBusMessage reply = m_daemon.control(QStringLiteral("Emit"), args);
            QCOMPARE(reply.type(), QDBusMessage::ErrorMessage);
            QCOMPARE(reply.errorName(), QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"));
        }
        QCOMPARE(m_daemon.control(QStringLiteral("Force"), {QStringLiteral("no_such_method"), 1}).type(),
                 QDBusMessage::ErrorMessage);
        const QJsonObject before = m_daemon.state();
        QCOMPARE(
            m_daemon.control(QStringLiteral("Emit"), {QStringLiteral("signal_sysPop"), QStringList{}}).type(),
            QDBusMessage::ErrorMessage);
        QCOMPARE(m_daemon.state(), before);

        // A call with the wrong signature is refused by the generated adaptor.
        QDBusMessage call =
            QDBusMessage::createMethodCall(kService, kPath, "com.vorn.virus.daemon", "add_trustFile");
        call << QStringLiteral("/not/a/list");
        QCOMPARE(QDBusConnection::systemBus().call(call).errorName(),
                 QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"));
    }

    void commandLineClient()
    {
        auto run = [](const QStringList &args, QString *output = nullptr) {
            QProcess ctl;
            ctl.setProcessChannelMode(QProcess::MergedChannels);
            ctl.start(QStringLiteral(VORN_STANDIN_CTL), args);
            ctl.waitForFinished(10000);
            if (output)
                *output = QString::fromUtf8(ctl.readAll());
            return ctl.exitCode();
        };
        QString output;
        QCOMPARE(run({"daemon", "emit", "signal_sysPop", "/q/from-shell"}), 0);
        QCOMPARE(m_daemon.state().value("quarantine").toArray().last().toObject().value("path").toString(),
                 QStringLiteral("/q/from-shell"));

        QCOMPARE(run({"daemon", "emit", "signal_showAuthDialog", "only-a-name"}, &output), 2);
        QVERIFY2(output.contains("signal_showAuthDialog takes NAME DETAIL PATH FLAG, got 1 argument(s)"),
                 qPrintable(output));
        QCOMPARE(run({"daemon", "explode"}, &output), 2);
        QVERIFY2(output.contains("unknown daemon command 'explode'"), qPrintable(output));
        QCOMPARE(run({"daemon", "force", "add_trustFile"}, &output), 2);
        QVERIFY2(output.contains("wrong number of arguments"), qPrintable(output));

        QCOMPARE(run({"daemon", "force", "add_trustFile", "3"}), 0);
        VirusScanInterface proxy(kService, kPath, QDBusConnection::systemBus());
        QCOMPARE(proxy.add_trustFile({"/x"}).argumentAt<0>(), 3);
        QCOMPARE(run({"daemon", "reset"}), 0);
        QCOMPARE(proxy.add_trustFile({"/x"}).argumentAt<0>(), 0);
        QCOMPARE(run({"daemon", "calls"}, &output), 0);
        QVERIFY(output.trimmed().endsWith(R"({"args":[["/x"]],"method":"add_trustFile","signature":"as"})"));
    }
};

QTEST_GUILESS_MAIN(TestDaemonProxy)
#include "tst_daemonproxy.moc"
