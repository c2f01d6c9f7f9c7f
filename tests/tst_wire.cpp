// The one record the agent reads from the daemon, as a peer sees it on the bus. (What the agent sends
// the daemon is checked, signatures included, where it sends it; the other records only complete the
// proxy's signatures.)
#include "dbusjson.h"
#include "harness.h"
#include "virusrecords.h"

#include <QDBusArgument>

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

    // A threat as the daemon sends it, a peer that does not share this code reads it (the agent and
    // the stand-in daemon would agree on any field order), and the agent reads it back: sent again,
    // the same wire content.
    void threatRoundTrip()
    {
        const QString onWire = R"((sssb) [["EICAR-Test","detail 'x'","/home/u/文件.exe",true]])";
        const QDBusMessage sent = carry(QVariant::fromValue(
            SVirusInfo{"EICAR-Test", "detail 'x'", QStringLiteral("/home/u/\u6587\u4ef6.exe"), true}));
        SVirusInfo back;
        sent.arguments().value(0).value<QDBusArgument>() >> back;
        QCOMPARE(wire(sent) + " / " + wire(carry(QVariant::fromValue(back))), onWire + " / " + onWire);
    }
};

QTEST_GUILESS_MAIN(TestWire)
#include "tst_wire.moc"
