// Every record and list crosses a real bus between two connections; the test checks the signature
// seen on the wire and what the read operators make of it.
#include "messagesink.h"
#include "virusrecords.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QtTest>

namespace {
const QString kPath = QStringLiteral("/records");
const QString kInterface = QStringLiteral("com.vorn.test.Records");
const QString kMember = QStringLiteral("carry");
} // namespace

class TestRecords : public QObject
{
    Q_OBJECT

private:
    QDBusConnection m_sender = QDBusConnection(QString());
    QDBusConnection m_receiver = QDBusConnection(QString());
    MessageSink m_sink;

    // Sends the value from one connection and returns the message as the other connection got it.
    template <typename T> QDBusMessage carry(const T &value)
    {
        QDBusMessage signal = QDBusMessage::createSignal(kPath, kInterface, kMember);
        signal << QVariant::fromValue(value);
        const int before = m_sink.messages.size();
        if (!m_sender.send(signal))
            return QDBusMessage();
        for (int i = 0; i < 500 && m_sink.messages.size() == before; ++i)
            QTest::qWait(10);
        return m_sink.messages.size() > before ? m_sink.messages.last() : QDBusMessage();
    }

    template <typename T> static T read(const QDBusMessage &message, T into = T())
    {
        if (message.arguments().size() == 1)
            message.arguments().first().value<QDBusArgument>() >> into;
        return into;
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(qEnvironmentVariableIsSet("DBUS_SYSTEM_BUS_ADDRESS"), "run through run-with-bus.sh");
        registerDaemonMetaTypes();
        m_sender = QDBusConnection::connectToBus(QDBusConnection::SystemBus, QStringLiteral("sender"));
        m_receiver = QDBusConnection::connectToBus(QDBusConnection::SystemBus, QStringLiteral("receiver"));
        QVERIFY(m_sender.isConnected());
        QVERIFY(m_receiver.isConnected());
        QVERIFY(m_sink.subscribe(m_receiver, m_sender.baseService(), kPath, kInterface, kMember));
    }

    void threatRecords()
    {
        const SVirusInfo virus{QStringLiteral("EICAR-Test"), QStringLiteral("detail \"x\""),
                               QStringLiteral("/home/u/\u6587\u4ef6.exe"), true};
        QDBusMessage message = carry(virus);
        QCOMPARE(message.signature(), QStringLiteral("(sssb)"));
        const SVirusInfo got = read<SVirusInfo>(message);
        QCOMPARE(got.virusName, virus.virusName);
        QCOMPARE(got.virusDetail, virus.virusDetail);
        QCOMPARE(got.virusPath, virus.virusPath);
        QCOMPARE(got.virusFlag, true);

        const SQuarantineFileInfo item{QStringLiteral("/tmp/a"), QStringLiteral("Trojan.X")};
        message = carry(item);
        QCOMPARE(message.signature(), QStringLiteral("(ss)"));
        QCOMPARE(read<SQuarantineFileInfo>(message).filePath, item.filePath);
        QCOMPARE(read<SQuarantineFileInfo>(message).virusName, item.virusName);

        // Handing in and listing the quarantine use different records on purpose.
        message = carry(SQuarantineFileInfoList{item, {QStringLiteral("/tmp/b"), QStringLiteral("W")}});
        QCOMPARE(message.signature(), QStringLiteral("a(ss)"));
        const SQuarantineFileInfoList items = read<SQuarantineFileInfoList>(message);
        QCOMPARE(items.size(), 2);
        QCOMPARE(items.at(1).filePath, QStringLiteral("/tmp/b"));

        message =
            carry(SVirusInfoList{virus, {QStringLiteral("n2"), QString(), QStringLiteral("p2"), false}});
        QCOMPARE(message.signature(), QStringLiteral("a(sssb)"));
        const SVirusInfoList threats = read<SVirusInfoList>(message);
        QCOMPARE(threats.size(), 2);
        QCOMPARE(threats.at(0).virusPath, virus.virusPath);
        QCOMPARE(threats.at(1).virusName, QStringLiteral("n2"));
        QCOMPARE(threats.at(1).virusFlag, false);
    }

    void emptyListReplacesTarget()
    {
        const QDBusMessage message = carry(SVirusInfoList());
        QCOMPARE(message.signature(), QStringLiteral("a(sssb)"));
        SVirusInfoList target{{QStringLiteral("stale"), {}, {}, true}};
        const SVirusInfoList got = read<SVirusInfoList>(message, target);
        QVERIFY(got.isEmpty());
    }

    void relayedAndListedRecords()
    {
        QDBusMessage message = carry(SScanItemVirusInfo{7, -3, QStringLiteral("item")});
        QCOMPARE(message.signature(), QStringLiteral("(iis)"));
        const SScanItemVirusInfo item = read<SScanItemVirusInfo>(message);
        QCOMPARE(item.number1, 7);
        QCOMPARE(item.number2, -3);
        QCOMPARE(item.text, QStringLiteral("item"));

        message = carry(SScaningInfo{QStringLiteral("scanning"), 11, 12});
        QCOMPARE(message.signature(), QStringLiteral("(sii)"));
        const SScaningInfo scanning = read<SScaningInfo>(message);
        QCOMPARE(scanning.text, QStringLiteral("scanning"));
        QCOMPARE(scanning.number1, 11);
        QCOMPARE(scanning.number2, 12);

        message = carry(
            SIsolateFileInfoList{{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"), true}});
        QCOMPARE(message.signature(), QStringLiteral("a(sssb)"));
        const SIsolateFileInfoList isolated = read<SIsolateFileInfoList>(message);
        QCOMPARE(isolated.size(), 1);
        QCOMPARE(isolated.at(0).text3, QStringLiteral("c"));
        QCOMPARE(isolated.at(0).flag, true);

        message = carry(STrustFileInfoList{{QStringLiteral("t1"), QStringLiteral("t2"), 99, true}});
        QCOMPARE(message.signature(), QStringLiteral("a(ssib)"));
        const STrustFileInfoList trusted = read<STrustFileInfoList>(message);
        QCOMPARE(trusted.size(), 1);
        QCOMPARE(trusted.at(0).text2, QStringLiteral("t2"));
        QCOMPARE(trusted.at(0).number, 99);
        QCOMPARE(trusted.at(0).flag, true);

        message = carry(SExtensionInfoList{{QStringLiteral(".exe"), QStringLiteral("x"), true},
                                           {QStringLiteral(".bat"), QString(), false}});
        QCOMPARE(message.signature(), QStringLiteral("a(ssb)"));
        const SExtensionInfoList extensions = read<SExtensionInfoList>(message);
        QCOMPARE(extensions.size(), 2);
        QCOMPARE(extensions.at(1).text1, QStringLiteral(".bat"));
        QCOMPARE(extensions.at(0).flag, true);
    }

    void engineKeepsLocalNumberOffTheWire()
    {
        SEngineInfo engine{
            QStringLiteral("e1"), QStringLiteral("e2"), QStringLiteral("e3"), QStringLiteral("e4"), 42, true};
        const SEngineInfo copy = engine;
        QCOMPARE(copy.localNumber, 42);

        QDBusMessage message = carry(engine);
        QCOMPARE(message.signature(), QStringLiteral("(ssssb)"));
        SEngineInfo target;
        target.localNumber = 7;
        const SEngineInfo got = read<SEngineInfo>(message, target);
        QCOMPARE(got.text1, QStringLiteral("e1"));
        QCOMPARE(got.text4, QStringLiteral("e4"));
        QCOMPARE(got.flag, true);
        QCOMPARE(got.localNumber, 7);

        message = carry(SEngineInfoList{engine, engine});
        QCOMPARE(message.signature(), QStringLiteral("a(ssssb)"));
        QCOMPARE(read<SEngineInfoList>(message).size(), 2);
    }

    void scanConfigKeepsValueOrder()
    {
        const SScanConfigInfo config{1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
        const QDBusMessage message = carry(config);
        QCOMPARE(message.signature(), QStringLiteral("(iiiiiiiiii)"));
        const SScanConfigInfo got = read<SScanConfigInfo>(message);
        const QVector<int> values{got.value1, got.value2, got.value3, got.value4, got.value5,
                                  got.value6, got.value7, got.value8, got.value9, got.value10};
        QCOMPARE(values, (QVector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    }

    void registeredUnderOwnNames()
    {
        const char *const names[] = {
            "SVirusInfo",         "SQuarantineFileInfo", "SScanItemVirusInfo",      "SScaningInfo",
            "SIsolateFileInfo",   "STrustFileInfo",      "SExtensionInfo",          "SEngineInfo",
            "SScanConfigInfo",    "SVirusInfoList",      "SQuarantineFileInfoList", "SIsolateFileInfoList",
            "STrustFileInfoList", "SExtensionInfoList",  "SEngineInfoList"};
        for (const char *name : names) {
            const int id = QMetaType::type(name);
            QVERIFY2(id != QMetaType::UnknownType, name);
            QVERIFY2(QDBusMetaType::typeToSignature(id) != nullptr, name);
        }
        // A second registration keeps the identifiers of the first.
        const int before = qMetaTypeId<SVirusInfo>();
        registerDaemonMetaTypes();
        QCOMPARE(qMetaTypeId<SVirusInfo>(), before);
        QVERIFY(!(QMetaType::typeFlags(qMetaTypeId<SScanConfigInfo>()) & QMetaType::NeedsConstruction));
        QVERIFY(QMetaType::hasRegisteredConverterFunction(
            qMetaTypeId<SVirusInfoList>(), qMetaTypeId<QtMetaTypePrivate::QSequentialIterableImpl>()));
    }
};

QTEST_GUILESS_MAIN(TestRecords)
#include "tst_records.moc"
