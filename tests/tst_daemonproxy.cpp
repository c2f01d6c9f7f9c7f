// The generated daemon proxy against the stand-in daemon: its meta-object, every method on the
// wire, the blocking overloads, and which signals it lets through.
#include "standinprocess.h"
#include "virusscaninterface.h"

#include <QJsonArray>
#include <QSignalSpy>

#include <functional>

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

    void everyMethodOnTheWire()
    {
        using Call = std::function<QDBusPendingCall(VirusScanInterface &)>;
        struct Case
        {
            const char *method;
            Call call;
            const char *signature;
            const char *args;
            int reply;
        };
        const QList<Case> table{
            {"add_quarantineFile",
             [](auto &p) {
                 return p.add_quarantineFile({{"/q/a", "EICAR"}, {"", ""}});
             },
             "a(ss)", R"([[["/q/a","EICAR"],["",""]]])", 1},
            {"add_trustExtension", [](auto &p) { return p.add_trustExtension({".exe"}); }, "as",
             R"([[".exe"]])", 0},
            {"add_trustFile",
             [](auto &p) {
                 return p.add_trustFile({"/t/a", ""});
             },
             "as", R"([["/t/a",""]])", 1},
            {"begin_scan", [](auto &p) { return p.begin_scan(2, {"/home"}); }, "ias", R"([2,["/home"]])", 0},
            {"delete_quarantineFile",
             [](auto &p) {
                 return p.delete_quarantineFile({"/q/a", "/none"});
             },
             "as", R"([["/q/a","/none"]])", 1},
            {"delete_trustExtension", [](auto &p) { return p.delete_trustExtension({".exe"}); }, "as",
             R"([[".exe"]])", 0},
            {"delete_trustFile", [](auto &p) { return p.delete_trustFile({"/t/a"}); }, "as", R"([["/t/a"]])",
             0},
            {"get_allEngineInfoList", [](auto &p) { return p.get_allEngineInfoList(); }, "", "[]", 0},
            {"get_allScanConfig", [](auto &p) { return p.get_allScanConfig(); }, "", "[]", 0},
            {"get_protectDate", [](auto &p) { return p.get_protectDate(); }, "", "[]", 30},
            {"get_quarantineFileList", [](auto &p) { return p.get_quarantineFileList(); }, "", "[]", 0},
            {"get_quarantineSize", [](auto &p) { return p.get_quarantineSize(); }, "", "[]", 0},
            {"get_scanMode", [](auto &p) { return p.get_scanMode(); }, "", "[]", 0},
            {"get_scanStatus", [](auto &p) { return p.get_scanStatus(); }, "", "[]", 0},
            {"get_trustExtensionList", [](auto &p) { return p.get_trustExtensionList(); }, "", "[]", 0},
            {"get_trustFileList", [](auto &p) { return p.get_trustFileList(); }, "", "[]", 0},
            {"restore_quarantineFile", [](auto &p) { return p.restore_quarantineFile({"/none"}, 1); }, "asi",
             R"([["/none"],1])", 1},
            {"set_scanConfig", [](auto &p) { return p.set_scanConfig(3, 7); }, "ii", "[3,7]", 0},
            {"set_scanEngine", [](auto &p) { return p.set_scanEngine("heuristic"); }, "s", R"(["heuristic"])",
             0},
            {"set_scanMode", [](auto &p) { return p.set_scanMode(2); }, "i", "[2]", 0},
            {"set_scanStatus", [](auto &p) { return p.set_scanStatus(1); }, "i", "[1]", 0},
            {"special_scan", [](auto &p) { return p.special_scan(1, {"/x"}); }, "ias", R"([1,["/x"]])", 0},
            {"test", [](auto &p) { return p.test(5); }, "i", "[5]", 5},
        };

        // Each call as "method signature args -> reply", as the stand-in received and answered it.
        VirusScanInterface proxy(kService, kPath, QDBusConnection::systemBus());
        QStringList expected;
        QStringList actual;
        for (const Case &row : table) {
            m_daemon.control(QStringLiteral("ClearCalls"));
            QDBusPendingReply<int> pending = row.call(proxy);
            pending.waitForFinished();
            expected << QStringLiteral("%1 %2 %3 -> %4")
                            .arg(row.method, row.signature,
                                 QString::fromUtf8(
                                     QJsonDocument(json(row.args)).toJson(QJsonDocument::Compact)))
                            .arg(row.reply);
            const QList<QJsonObject> calls = m_daemon.calls();
            QString line = QStringLiteral("%1 call(s)").arg(calls.size());
            if (calls.size() == 1)
                line = QStringLiteral("%1 %2 %3")
                           .arg(calls.first().value("method").toString(),
                                calls.first().value("signature").toString(),
                                QString::fromUtf8(QJsonDocument(calls.first().value("args").toArray())
                                                      .toJson(QJsonDocument::Compact)));
            actual << line + " -> " +
                          (pending.isError() ? pending.error().message()
                                             : QString::number(pending.argumentAt<0>()));
        }
        QCOMPARE(actual, expected);
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
