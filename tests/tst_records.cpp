// Every record and list crosses a real bus between two connections; the test checks the signature
// seen on the wire and what the read operators make of it.
#include "dbusjson.h"
#include "messagesink.h"
#include "virusrecords.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QJsonDocument>
#include <QtTest>

#include <functional>

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
    QDBusMessage carry(const QVariant &value)
    {
        QDBusMessage signal = QDBusMessage::createSignal(kPath, kInterface, kMember);
        signal << value;
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

    template <typename T> static std::function<QVariant(const QDBusMessage &)> readAs()
    {
        return [](const QDBusMessage &message) { return QVariant::fromValue(read<T>(message)); };
    }

    // The message's arguments as compact JSON, fields in wire order.
    static QString wire(const QDBusMessage &message)
    {
        QJsonArray arguments;
        for (const QVariant &argument : message.arguments())
            arguments.append(dbusToJson(argument));
        return QString::fromUtf8(QJsonDocument(arguments).toJson(QJsonDocument::Compact));
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

    // Every record and list: the signature on the wire, its fields in order, and what the read
    // operators make of them (the value read back, sent again, must give the same wire content).
    void everyRecordRoundTrips()
    {
        struct Case
        {
            const char *name;
            QVariant value;
            std::function<QVariant(const QDBusMessage &)> readBack;
            const char *signature;
            const char *wire;
        };
        const SVirusInfo virus{"EICAR-Test", "detail 'x'", QStringLiteral("/home/u/\u6587\u4ef6.exe"), true};
        const SQuarantineFileInfo item{"/tmp/a", "Trojan.X"};
        const QList<Case> table{
            {"SVirusInfo", QVariant::fromValue(virus), readAs<SVirusInfo>(), "(sssb)",
             R"([["EICAR-Test","detail 'x'","/home/u/文件.exe",true]])"},
            {"SQuarantineFileInfo", QVariant::fromValue(item), readAs<SQuarantineFileInfo>(), "(ss)",
             R"([["/tmp/a","Trojan.X"]])"},
            // Handing in and listing the quarantine use different records on purpose.
            {"SQuarantineFileInfoList", QVariant::fromValue(SQuarantineFileInfoList{item, {"/tmp/b", "W"}}),
             readAs<SQuarantineFileInfoList>(), "a(ss)", R"([[["/tmp/a","Trojan.X"],["/tmp/b","W"]]])"},
            {"SVirusInfoList", QVariant::fromValue(SVirusInfoList{virus, {"n2", QString(), "p2", false}}),
             readAs<SVirusInfoList>(), "a(sssb)",
             R"([[["EICAR-Test","detail 'x'","/home/u/文件.exe",true],["n2","","p2",false]]])"},
            {"SScanItemVirusInfo", QVariant::fromValue(SScanItemVirusInfo{7, -3, "item"}),
             readAs<SScanItemVirusInfo>(), "(iis)", R"([[7,-3,"item"]])"},
            {"SScaningInfo", QVariant::fromValue(SScaningInfo{"scanning", 11, 12}), readAs<SScaningInfo>(),
             "(sii)", R"([["scanning",11,12]])"},
            {"SIsolateFileInfoList", QVariant::fromValue(SIsolateFileInfoList{{"a", "b", "c", true}}),
             readAs<SIsolateFileInfoList>(), "a(sssb)", R"([[["a","b","c",true]]])"},
            {"STrustFileInfoList", QVariant::fromValue(STrustFileInfoList{{"t1", "t2", 99, true}}),
             readAs<STrustFileInfoList>(), "a(ssib)", R"([[["t1","t2",99,true]]])"},
            {"SExtensionInfoList",
             QVariant::fromValue(SExtensionInfoList{{".exe", "x", true}, {".bat", QString(), false}}),
             readAs<SExtensionInfoList>(), "a(ssb)", R"([[[".exe","x",true],[".bat","",false]]])"},
            {"SEngineInfoList", QVariant::fromValue(SEngineInfoList{{"e1", "e2", "e3", "e4", 42, true}}),
             readAs<SEngineInfoList>(), "a(ssssb)", R"([[["e1","e2","e3","e4",true]]])"},
            {"SScanConfigInfo", QVariant::fromValue(SScanConfigInfo{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}),
             readAs<SScanConfigInfo>(), "(iiiiiiiiii)", "[[1,2,3,4,5,6,7,8,9,10]]"},
        };
        QStringList expected;
        QStringList actual;
        for (const Case &row : table) {
            const QDBusMessage sent = carry(row.value);
            const QDBusMessage again = carry(row.readBack(sent));
            expected << QStringLiteral("%1 %2 %3 read back %3").arg(row.name, row.signature, row.wire);
            actual << QStringLiteral("%1 %2 %3 read back %4")
                          .arg(row.name, sent.signature(), wire(sent), wire(again));
        }
        QCOMPARE(actual, expected);
    }

    void emptyListReplacesTarget()
    {
        const QDBusMessage message = carry(QVariant::fromValue(SVirusInfoList()));
        QCOMPARE(message.signature(), QStringLiteral("a(sssb)"));
        SVirusInfoList target{{QStringLiteral("stale"), {}, {}, true}};
        const SVirusInfoList got = read<SVirusInfoList>(message, target);
        QVERIFY(got.isEmpty());
    }

    void engineKeepsLocalNumberOffTheWire()
    {
        SEngineInfo engine{
            QStringLiteral("e1"), QStringLiteral("e2"), QStringLiteral("e3"), QStringLiteral("e4"), 42, true};
        const SEngineInfo copy = engine;
        QCOMPARE(copy.localNumber, 42);

        const QDBusMessage message = carry(QVariant::fromValue(engine));
        QCOMPARE(message.signature(), QStringLiteral("(ssssb)"));
        SEngineInfo target;
        target.localNumber = 7;
        const SEngineInfo got = read<SEngineInfo>(message, target);
        QCOMPARE(got.text1, QStringLiteral("e1"));
        QCOMPARE(got.text4, QStringLiteral("e4"));
        QCOMPARE(got.flag, true);
        QCOMPARE(got.localNumber, 7);
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
