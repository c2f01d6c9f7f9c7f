// The records the agent exchanges with the daemon, as a peer sees them on the bus and as the agent
// reads them back. (The others only complete the proxy's signatures: nothing of the agent sends or
// reads them. What the agent sends the daemon is checked, signatures included, where it sends it.)
#include "dbusjson.h"
#include "harness.h"
#include "virusrecords.h"

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
    QDBusConnection m_sender{QString()};
    Sink m_sink;

    // Sends the value from one connection and returns the message as another connection got it.
    QDBusMessage carry(const QVariant &value)
    {
        QDBusMessage signal = QDBusMessage::createSignal("/records", "com.vorn.test.Records", "carry");
        signal << value;
        const int before = m_sink.messages.size();
        m_sender.send(signal);
        // A message that never came reads as an empty one, which no comparison takes.
        static_cast<void>(QTest::qWaitFor([&] { return m_sink.messages.size() > before; }, 30000));
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
    // The message's one argument as "signature [fields in wire order, as JSON]".
    static QString wire(const QDBusMessage &message)
    {
        return message.signature() + " [" + compact(dbusToJson(message.arguments().value(0))) + ']';
    }

private slots:
    void initTestCase()
    {
        registerDaemonMetaTypes();
        m_sender = QDBusConnection::connectToBus(QDBusConnection::SystemBus, "sender");
        QDBusConnection receiver = QDBusConnection::connectToBus(QDBusConnection::SystemBus, "receiver");
        QVERIFY(receiver.connect(m_sender.baseService(), "/records", "com.vorn.test.Records", "carry",
                                 &m_sink, SLOT(onMessage(QDBusMessage))));
    }

    // Each record and list: its signature and fields in wire order, and what the read operators make
    // of them (the value read back and sent again gives the same wire content).
    void recordsRoundTrip()
    {
        const SVirusInfo virus{"EICAR-Test", "detail 'x'", QStringLiteral("/home/u/\u6587\u4ef6.exe"), true};
        // clang-format off
        const QList<std::tuple<QVariant, std::function<QVariant(const QDBusMessage &)>, const char *>> table{
            {QVariant::fromValue(virus), readAs<SVirusInfo>(), R"((sssb) [["EICAR-Test","detail 'x'","/home/u/文件.exe",true]])"},
            {QVariant::fromValue(SVirusInfoList{virus, {"n2", "", "p2", false}}), readAs<SVirusInfoList>(), R"(a(sssb) [[["EICAR-Test","detail 'x'","/home/u/文件.exe",true],["n2","","p2",false]]])"},
            {QVariant::fromValue(SQuarantineFileInfoList{{"/tmp/a", "Trojan.X"}, {"/tmp/b", "W"}}), readAs<SQuarantineFileInfoList>(), R"(a(ss) [[["/tmp/a","Trojan.X"],["/tmp/b","W"]]])"}};
        // clang-format on
        QStringList expected, actual;
        for (const auto &[value, readBack, onWire] : table) {
            const QDBusMessage sent = carry(value);
            expected << QString::fromUtf8(onWire) + " / " + onWire;
            actual << wire(sent) + " / " + wire(carry(readBack(sent)));
        }
        QCOMPARE(actual, expected);

        // A list read replaces the target.
        QVERIFY(read(carry(QVariant::fromValue(SVirusInfoList())), SVirusInfoList{virus}).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestWire)
#include "tst_wire.moc"
