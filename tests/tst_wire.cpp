// What crosses the bus: every record and list as a peer sees it and as the agent reads it back, and
// every method of the generated daemon proxy as the stand-in daemon receives and answers it.
#include "dbusjson.h"
#include "harness.h"
#include "virusscaninterface.h"

#include <QDBusArgument>
#include <functional>

// Collects the test's own signals as they come off the bus, whatever their signature.
class Sink : public QObject
{
    Q_OBJECT
public:
    QList<QDBusMessage> messages;
public slots:
    void onMessage(const QDBusMessage &message) { messages << message; }
};

class TestWire : public QObject
{
    Q_OBJECT

private:
    Peer m_daemon{VORN_STANDIN_DAEMON, "com.vorn.virus", {"--quiet"}};
    QDBusConnection m_sender{QString()};
    Sink m_sink;

    // Sends the value from one connection and returns the message as another connection got it.
    QDBusMessage carry(const QVariant &value)
    {
        QDBusMessage signal = QDBusMessage::createSignal("/records", "com.vorn.test.Records", "carry");
        signal << value;
        const int before = m_sink.messages.size();
        m_sender.send(signal);
        waitFor([&] { return m_sink.messages.size() > before; }, 5000);
        return m_sink.messages.value(before);
    }
    template <typename T> static T read(const QDBusMessage &message, T into = T())
    {
        message.arguments().value(0).value<QDBusArgument>() >> into;
        return into;
    }
    template <typename T> static std::function<QVariant(const QDBusMessage &)> readAs()
    {
        return [](const QDBusMessage &message) { return QVariant::fromValue(read<T>(message)); };
    }
    static QString wire(const QDBusMessage &message)
    {
        QJsonArray arguments;
        for (const QVariant &argument : message.arguments())
            arguments << dbusToJson(argument);
        return message.signature() + ' ' + QJsonDocument(arguments).toJson(QJsonDocument::Compact);
    }

private slots:
    void initTestCase()
    {
        registerDaemonMetaTypes();
        QVERIFY(m_daemon.start());
        m_sender = QDBusConnection::connectToBus(QDBusConnection::SystemBus, "sender");
        QDBusConnection receiver = QDBusConnection::connectToBus(QDBusConnection::SystemBus, "receiver");
        QVERIFY(receiver.connect(m_sender.baseService(), "/records", "com.vorn.test.Records", "carry",
                                 &m_sink, SLOT(onMessage(QDBusMessage))));
    }

    // Each record and list: its signature and fields in wire order, and what the read operators make
    // of them (the value read back and sent again gives the same wire content).
    void everyRecordRoundTrips()
    {
        const SVirusInfo virus{"EICAR-Test", "detail 'x'", QStringLiteral("/home/u/\u6587\u4ef6.exe"), true};
        const SQuarantineFileInfo item{"/tmp/a", "Trojan.X"};
        // clang-format off
        const QList<std::tuple<QVariant, std::function<QVariant(const QDBusMessage &)>, const char *>> table{
            {QVariant::fromValue(virus), readAs<SVirusInfo>(), R"((sssb) [["EICAR-Test","detail 'x'","/home/u/文件.exe",true]])"},
            {QVariant::fromValue(SVirusInfoList{virus, {"n2", "", "p2", false}}), readAs<SVirusInfoList>(), R"(a(sssb) [[["EICAR-Test","detail 'x'","/home/u/文件.exe",true],["n2","","p2",false]]])"},
            // Handing in and listing the quarantine use different records on purpose.
            {QVariant::fromValue(SQuarantineFileInfoList{item, {"/tmp/b", "W"}}), readAs<SQuarantineFileInfoList>(), R"(a(ss) [[["/tmp/a","Trojan.X"],["/tmp/b","W"]]])"},
            {QVariant::fromValue(SScanItemVirusInfo{7, -3, "item"}), readAs<SScanItemVirusInfo>(), R"((iis) [[7,-3,"item"]])"},
            {QVariant::fromValue(SScaningInfo{"scanning", 11, 12}), readAs<SScaningInfo>(), R"((sii) [["scanning",11,12]])"},
            {QVariant::fromValue(SIsolateFileInfoList{{"a", "b", "c", true}}), readAs<SIsolateFileInfoList>(), R"(a(sssb) [[["a","b","c",true]]])"},
            {QVariant::fromValue(STrustFileInfoList{{"t1", "t2", 99, true}}), readAs<STrustFileInfoList>(), R"(a(ssib) [[["t1","t2",99,true]]])"},
            {QVariant::fromValue(SExtensionInfoList{{".exe", "x", true}, {".bat", "", false}}), readAs<SExtensionInfoList>(), R"(a(ssb) [[[".exe","x",true],[".bat","",false]]])"},
            {QVariant::fromValue(SEngineInfoList{{"e1", "e2", "e3", "e4", 42, true}}), readAs<SEngineInfoList>(), R"(a(ssssb) [[["e1","e2","e3","e4",true]]])"},
            {QVariant::fromValue(SScanConfigInfo{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}), readAs<SScanConfigInfo>(), "(iiiiiiiiii) [[1,2,3,4,5,6,7,8,9,10]]"}};
        // clang-format on
        QStringList expected, actual;
        for (const auto &[value, readBack, onWire] : table) {
            const QDBusMessage sent = carry(value);
            expected << QString::fromUtf8(onWire) + " / " + onWire;
            actual << wire(sent) + " / " + wire(carry(readBack(sent)));
        }
        QCOMPARE(actual, expected);

        // A list read replaces the target; an engine's local number stays off the wire and keeps the
        // target's value.
        QVERIFY(read(carry(QVariant::fromValue(SVirusInfoList())), SVirusInfoList{virus}).isEmpty());
        SEngineInfo target;
        target.localNumber = 7;
        QCOMPARE(
            read(carry(QVariant::fromValue(SEngineInfo{"a", "b", "c", "d", 42, true})), target).localNumber,
            7);
    }

    void everyMethodOnTheWire()
    {
        VirusScanInterface p("com.vorn.virus", "/daemon", QDBusConnection::systemBus());
        // clang-format off
        const QList<std::pair<QDBusPendingCall, const char *>> table{
            {p.add_quarantineFile({{"/q/a", "EICAR"}, {"", ""}}), R"(add_quarantineFile a(ss) [[["/q/a","EICAR"],["",""]]] -> 1)"},
            {p.add_trustExtension({".exe"}), R"(add_trustExtension as [[".exe"]] -> 0)"},
            {p.add_trustFile({"/t/a", ""}), R"(add_trustFile as [["/t/a",""]] -> 1)"},
            {p.begin_scan(2, {"/home"}), R"(begin_scan ias [2,["/home"]] -> 0)"},
            {p.delete_quarantineFile({"/q/a", "/none"}), R"(delete_quarantineFile as [["/q/a","/none"]] -> 1)"},
            {p.delete_trustExtension({".exe"}), R"(delete_trustExtension as [[".exe"]] -> 0)"},
            {p.delete_trustFile({"/t/a"}), R"(delete_trustFile as [["/t/a"]] -> 0)"},
            {p.get_allEngineInfoList(), "get_allEngineInfoList  [] -> 0"},
            {p.get_allScanConfig(), "get_allScanConfig  [] -> 0"},
            {p.get_protectDate(), "get_protectDate  [] -> 30"},
            {p.get_quarantineFileList(), "get_quarantineFileList  [] -> 0"},
            {p.get_quarantineSize(), "get_quarantineSize  [] -> 0"},
            {p.get_scanMode(), "get_scanMode  [] -> 0"},
            {p.get_scanStatus(), "get_scanStatus  [] -> 0"},
            {p.get_trustExtensionList(), "get_trustExtensionList  [] -> 0"},
            {p.get_trustFileList(), "get_trustFileList  [] -> 0"},
            {p.restore_quarantineFile({"/none"}, 1), R"(restore_quarantineFile asi [["/none"],1] -> 1)"},
            {p.set_scanConfig(3, 7), "set_scanConfig ii [3,7] -> 0"},
            {p.set_scanEngine("heuristic"), R"(set_scanEngine s ["heuristic"] -> 0)"},
            {p.set_scanMode(2), "set_scanMode i [2] -> 0"},
            {p.set_scanStatus(1), "set_scanStatus i [1] -> 0"},
            {p.special_scan(1, {"/x"}), R"(special_scan ias [1,["/x"]] -> 0)"},
            {p.test(5), "test i [5] -> 5"}};
        // clang-format on
        // The calls were made in this order: the stand-in's record of them, with each reply.
        QStringList expected, actual;
        const QList<QJsonObject> calls = m_daemon.json("Calls");
        for (int i = 0; i < table.size(); ++i) {
            QDBusPendingReply<int> reply = table.at(i).first;
            reply.waitForFinished();
            const QJsonObject call = calls.value(i);
            expected << table.at(i).second;
            actual << call["method"].toString() + ' ' + call["signature"].toString() + ' ' +
                          QJsonDocument(call["args"].toArray()).toJson(QJsonDocument::Compact) + " -> " +
                          (reply.isError() ? reply.error().message()
                                           : QString::number(reply.argumentAt<0>()));
        }
        QCOMPARE(actual, expected);
        QCOMPARE(calls.size(), table.size());
    }
};

QTEST_GUILESS_MAIN(TestWire)
#include "tst_wire.moc"
