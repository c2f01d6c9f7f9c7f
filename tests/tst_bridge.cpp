// The bridge against the two stand-ins: the boxes it raises and their failures, the user's answers
// to each kind of box, the trust-zone and quarantine operations, the risk-box service going away and
// coming back, restarting under a threat's box, and the boxes in Chinese.
#include "harness.h"

#include <QDBusInterface>

#include <clocale>
#include <functional>
#include <libintl.h>

namespace {

const QString kNameLine = QStringLiteral("Virus name:% 1, click to view details");

// One answer to one box: the box (kind and file; threats are named EICAR), faults injected before
// the answer, the state answered, then what follows: the boxes shown (headline, and the entry
// remembered for an answer as "kind|name|detail|path|flag"), the message box, whether the box
// stays remembered, the daemon calls and the events after the start event (and, for threat boxes,
// the kind-3 event). {id} is the box answered, {next} the one after it.
struct Answer
{
    int kind;
    const char *file, *faults;
    int state;
    const char *shown, *modal;
    bool kept;
    const char *calls;
    QStringList events;
};

} // namespace

Q_DECLARE_METATYPE(Answer)
// A box's kind, the fault -> the builder's result, what it prints.
using Failure = std::tuple<int, const char *, int, QString>;
Q_DECLARE_METATYPE(Failure)
using Operation = std::tuple<const char *, std::function<int()>, int, QStringList, QString>;
Q_DECLARE_METATYPE(Operation)

class TestBridge : public QObject
{
    Q_OBJECT

private:
    BridgeTest m_test;

    // "kind|name|detail|path|flag" of the entry remembered for a box, empty if there is none.
    QString entry(int id) const
    {
        const QMap<int, SVirusBoxInfo> boxes = m_test.bridge->pendingBoxes();
        const SVirusBoxInfo e = boxes.value(id);
        const QString text = QStringLiteral("%1|%2|%3|%4|%5")
                                 .arg(int(e.iVirusType))
                                 .arg(e.virusName, e.virusDetail, e.virusPath);
        return boxes.contains(id) ? text.arg(e.virusFlag) : QString();
    }

private slots:
    void initTestCase()
    {
        // With both peers there, the bridge logs its connected signals, wakes the daemon, draws nothing.
        QVERIFY(m_test.start());
        QCOMPARE(m_test.log.summary(),
                 QStringList{"CVirusDbusMiddle: all signal have been connected|operation successful|3"});
        // The platform's library gets every event of the agent through its levelled entry point,
        // as type 13 of the module "virus scan" (the texts and levels are checked where written).
        const QJsonObject event = QJsonDocument::fromJson(m_test.log.lines().value(0)).object();
        QCOMPARE(QStringList({event["entry"].toString(), QString::number(event["type"].toInt()),
                              event["module"].toString()}),
                 (QStringList{"halvo_log_v2", "13", "virus scan"}));
        QTRY_COMPARE(m_test.daemon.calls() + m_test.riskbox.calls(), QStringList{"get_scanMode  []"});
    }
    void init() { m_test.reset(); }

    void eachBuilderDrawsItsBox()
    {
        // The box as drawn, then the entry remembered for its answer: kind 0 keeps its argument as
        // the name, kinds 1 and 2 as the path, and the answers rely on it.
        const QString title = "vorn-defender/Security Center ",
                      command = "[vorn-defender --virus-protect=default, ";
        // clang-format off
        const QStringList rows{
            "1: The virus has been cleared and backed up to the quarantine area / " + kNameLine + " " + command + "Trust=] fold 1 => 0|/home/u/f|||0",
            "1: Are you sure to move to the trust zone? / " + kNameLine + " " + command + "Cancel=1, Confirm=2] fold 1 => 1|||/home/u/f|0",
            "1: Could not successfully move to the trust zone, please try again? / " + kNameLine + " " + command + "Trust=] fold 1 => 2|||/home/u/f|0",
            "0: Discover virus threat / Virus name:Trojan.Y / Virus Path:/home/u/f [Clear Now=1, Not for the time being=2, Trust=3] timeout 10 => 3|Trojan.Y|the detail|/home/u/f|1"};
        // clang-format on
        for (int kind = 0; kind <= 3; ++kind) {
            QCOMPARE(m_test.raise(kind, "/home/u/f", "Trojan.Y", "the detail"), 0);
            const QJsonObject box = m_test.boxes().last();
            QCOMPARE(box["appName"].toString() + '/' + box["title"].toString() + ' ' +
                         BridgeTest::describe(box) + " => " + entry(box["id"].toInt()),
                     title + rows.at(kind));
        }
    }

    void failureAtEachStep_data()
    {
        // The box kind, the fault -> the builder's result, what it prints ({id}: the box created).
        QTest::addColumn<Failure>("row");
        const QString failed = "method:%1  调用失败：response.type():3 \n";
        // clang-format off
        QTest::newRow("cleared create -1") << Failure{0, "r:create=-1", -1, "slot_sysPop file:/f\ncreate_secRiskBox iId: -1\n"};
        QTest::newRow("threat create -7") << Failure{3, "r:create=-7", -7, "create_secRiskBox iId: -7\n"};
        QTest::newRow("confirm create error") << Failure{1, "r:create!", -1, "show_selectVirusBoxNotify strVirusName: /f\n" + failed.arg("create") + "create_secRiskBox iId: -1\n"};
        QTest::newRow("retry addButton error") << Failure{2, "r:addButton!", -1, "show_retryVirusBoxNotify strVirusName: /f\n" + failed.arg("addButton") + "add_secRiskBoxAction iId:{id} iRet: -1\n"};
        QTest::newRow("cleared fold error") << Failure{0, "r:setNotifyFold!", -1, "slot_sysPop file:/f\n" + failed.arg("setNotifyFold") + "set_secRiskBoxFold iId:{id} iRet: -1\n"};
        QTest::newRow("threat timeout error") << Failure{3, "r:setTimeout!", -1, failed.arg("setTimeout") + "set_secRiskBoxTimeout iId:{id} iRet: -1\n"};
        QTest::newRow("threat show error") << Failure{3, "r:show!", -1, failed.arg("show") + "show_secRiskBox iId:{id}  iRet: -1\n"};
        QTest::newRow("create without an id") << Failure{3, "r:create?", -1, "create_secRiskBox iId: -1\n"};
        QTest::newRow("box 0 gets its lines") << Failure{3, "r:create=0 r:addContent!", -1, failed.arg("addContent") + "create_secRiskBox iId: -1\n"};
        QTest::newRow("a failed line ends the box") << Failure{3, "r:addContent!1", -1, failed.arg("addContent") + "create_secRiskBox iId: -1\n"};
        // clang-format on
    }
    void failureAtEachStep()
    {
        QFETCH(Failure, row);
        const auto &[kind, fault, result, printed] = row;
        const auto before = m_test.bridge->pendingBoxes().keys();
        const int boxes = m_test.boxes().size();
        m_test.fault(fault);
        StdoutCapture out;
        QCOMPARE(m_test.raise(kind, "/f"), result);
        const int id = m_test.boxes().size() > boxes ? m_test.lastId() : -1;
        QCOMPARE(out.text(), QString(printed).replace("{id}", QString::number(id)));
        // A failed box is not remembered, and nothing of it reaches the security log (kind 1
        // logs its request first).
        QCOMPARE(m_test.bridge->pendingBoxes().keys(), before);
        QCOMPARE(m_test.log.summary().size(), kind == 1 ? 1 : 0);
    }

    void answers_data()
    {
        QTest::addColumn<Answer>("row");
        // clang-format off
        QTest::newRow("cleared trust") << Answer{0, "/q/o", "", 1, "Are you sure to move to the trust zone? 1|||/q/o|0", "", false, "", {"@slot_ResultSignal id:{id} state:1  iVirusType:0 state:1", "!show_selectVirusBoxNotify strVirusName:/q/o"}};
        QTest::newRow("cleared state 0") << Answer{0, "/q/o", "", 0, "", "", false, "", {"@slot_ResultSignal id:{id} state:0  iVirusType:0 state:0"}};
        QTest::newRow("cleared state 2") << Answer{0, "/q/o", "", 2, "", "", false, "", {"@slot_ResultSignal id:{id} state:2  iVirusType:0 state:2"}};
        QTest::newRow("confirm yes") << Answer{1, "/q/f", "", 2, "", "", false, R"(add_trustFile as [["/q/f"]]; restore_quarantineFile asi [["/q/f"],1])", {"+/q/f Successfully", "@slot_ResultSignal id:{id} state:2  iVirusType:1 state:2 ret:0"}};
        QTest::newRow("confirm yes refused") << Answer{1, "/q/f", "d:add_trustFile=1", 2, "Could not successfully move to the trust zone, please try again? 2||||0", "Failed to add to trust zone", false, R"(add_trustFile as [["/q/f"]]; restore_quarantineFile asi [["/q/f"],1])", {"+/q/f failed", "@slot_ResultSignal id:{id} state:2  iVirusType:1 state:2 ret:-1", "!Failed to add file to trust zone."}};
        QTest::newRow("confirm cancel") << Answer{1, "/q/f", "", 1, "", "", false, "", {}};
        QTest::newRow("confirm state 3") << Answer{1, "/q/f", "", 3, "", "", false, "", {}};
        QTest::newRow("retry trust") << Answer{2, "/q/r", "", 1, "", "", false, R"(add_trustFile as [["/q/r"]]; restore_quarantineFile asi [["/q/r"],1])", {"+/q/r Successfully", "@slot_ResultSignal id:{id} state:1  iVirusType:2 state:1 ret:0"}};
        QTest::newRow("retry trust refused") << Answer{2, "/q/r", "d:add_trustFile=1", 1, "", "Failed to add to trust zone", false, R"(add_trustFile as [["/q/r"]]; restore_quarantineFile asi [["/q/r"],1])", {"+/q/r failed", "@slot_ResultSignal id:{id} state:1  iVirusType:2 state:1 ret:-1", "!Failed to add file to trust zone."}};
        QTest::newRow("retry state 2") << Answer{2, "/q/r", "", 2, "", "", false, "", {}};
        QTest::newRow("retry state 0") << Answer{2, "/q/r", "", 0, "", "", false, "", {}};
        QTest::newRow("threat clear") << Answer{3, "/h/e", "", 1, "The virus has been cleared and backed up to the quarantine area", "", false, R"(add_quarantineFile a(ss) [[["/h/e","EICAR"]]])", {"@CAuthDialog: Click deal right now", "$1,0"}};
        QTest::newRow("threat timeout") << Answer{3, "/h/t", "", -1, "The virus has been cleared and backed up to the quarantine area", "", false, R"(add_quarantineFile a(ss) [[["/h/t","EICAR"]]])", {"@CAuthDialog: Click deal right now", "$1,0"}};
        QTest::newRow("threat clear fails") << Answer{3, "/h/r", "d:add_quarantineFile=-1", 1, "The virus has been cleared and backed up to the quarantine area", "", true, R"(add_quarantineFile a(ss) [[["/h/r","EICAR"]]])", {"@CAuthDialog: Click deal right now", "$2,-1"}};
        QTest::newRow("threat clear returns 1") << Answer{3, "/h/p", "d:add_quarantineFile=1", 1, "The virus has been cleared and backed up to the quarantine area", "", false, R"(add_quarantineFile a(ss) [[["/h/p","EICAR"]]])", {"@CAuthDialog: Click deal right now", "$0,1"}};
        QTest::newRow("threat clear no notice") << Answer{3, "/h/n", "r:create=-1", 1, "", "", true, R"(add_quarantineFile a(ss) [[["/h/n","EICAR"]]])", {"@CAuthDialog: Click deal right now", "$1,0", "!create_secRiskBox   iId:-1  iRet: 0   id:{id} state:1  iVirusType:3 state:1"}};
        QTest::newRow("threat clear no button") << Answer{3, "/h/b", "r:addButton!", 1, "", "", true, R"(add_quarantineFile a(ss) [[["/h/b","EICAR"]]])", {"@CAuthDialog: Click deal right now", "$1,0", "!add_secRiskBoxAction   iId:{next}  iRet: -1   id:{id} state:1  iVirusType:3 state:1"}};
        QTest::newRow("threat not now") << Answer{3, "/h/e", "", 2, "", "", false, "", {"@CAuthDialog: Click not to process", "@Not for the time being"}};
        QTest::newRow("threat trust") << Answer{3, "/h/e", "", 3, "Moved to trust zone", "", false, R"(add_trustFile as [["/h/e"]])", {"@CAuthDialog: Click trust", "+/h/e Successfully", "+/h/e Successfully"}};
        QTest::newRow("threat trust refused") << Answer{3, "/h/e", "d:add_trustFile=1", 3, "Moved to trust zone", "Failed to add to trust zone", true, R"(add_trustFile as [["/h/e"]])", {"@CAuthDialog: Click trust", "+/h/e failed"}};
        QTest::newRow("threat trust notice fails") << Answer{3, "/h/e", "r:show!", 3, "", "", true, R"(add_trustFile as [["/h/e"]])", {"@CAuthDialog: Click trust", "+/h/e Successfully", "!show_secRiskBox   iId:{next}  iRet: -1   id:{id} state:3  iVirusType:3 state:3"}};
        QTest::newRow("threat state 0") << Answer{3, "/h/e", "", 0, "", "", false, "", {}};
        QTest::newRow("threat state 9") << Answer{3, "/h/e", "", 9, "", "", false, "", {}};
        // clang-format on
    }
    void answers()
    {
        QFETCH(Answer, row);
        QCOMPARE(m_test.raise(row.kind, row.file), 0);
        const int id = m_test.lastId(), boxes = m_test.boxes().size();
        m_test.log.clear();
        m_test.fault(row.faults);
        ModalCloser closer;
        m_test.answer(id, row.state);
        m_test.settle();

        // What happened, against the row, as one text: the row and all its differences at once.
        QStringList events{QString("@slot_ResultSignal start! id:{id} state:%1").arg(row.state)}, shown;
        if (row.kind == 3)
            events << QString("@iVirusType == 3  id:{id} state:%1  iVirusType:3 state:%1").arg(row.state);
        for (QString &event : events << row.events)
            event =
                expand(event).replace("{id}", QString::number(id)).replace("{next}", QString::number(id + 1));
        for (const QJsonObject &box : m_test.boxes().mid(boxes))
            if (box["shown"].toBool())
                shown << (box["contents"][0].toString() + ' ' + entry(box["id"].toInt())).trimmed();
        // A message box must not end the agent when it is closed.
        const QString modal =
            closer.seen.isEmpty() ? "" : closer.seen.first().value(4) + ' ' + closer.seen.first().last();
        const QString format = "kind %1 state %2 %3\nshown: %4\nmodal: %5\nkept: %6\ncalls: %7\nevents:\n%8";
        QCOMPARE(format.arg(row.kind)
                     .arg(row.state)
                     .arg(row.faults, shown.join('/'), modal)
                     .arg(m_test.bridge->pendingBoxes().contains(id))
                     .arg(m_test.daemon.calls().join("; "), m_test.log.summary().join('\n')),
                 format.arg(row.kind)
                     .arg(row.state)
                     .arg(row.faults, row.shown, *row.modal ? QString(row.modal) + " stays" : "")
                     .arg(row.kept)
                     .arg(row.calls, events.join('\n')));
    }

    void operations_data()
    {
        // The operations the answers reach, on their own and as the answers call them: for one file
        // (nothing in the agent reaches the bridge's other daemon operations).
        // fault, operation -> its result, the events (shorthands of harness.h), the message box.
        QTest::addColumn<Operation>("row");
        const QString some = "msgFail:Failed to add some files to the trust zone",
                      all = "msg:Failed to add to trust zone";
        BridgeTest *t = &m_test;
        // clang-format off
        QTest::newRow("a box never raised") << Operation{"", [t] { t->answer(-7, 0); t->settle(); return 0; }, 0, {"!slot_ResultSignal  virusMap is err! id:-7 state:0"}, ""};
        QTest::newRow("failed trust call reads as success") << Operation{"d:add_trustFile!", [t] { return t->bridge->addTrustFiles({"/t/a"}); }, 0, {"+/t/a Successfully"}, ""};
        QTest::newRow("trust -1 of one file") << Operation{"d:add_trustFile=-1", [t] { return t->bridge->addTrustFiles({"/t/a"}); }, -1, {"+/t/a failed"}, some};
        QTest::newRow("trust 2 of one file") << Operation{"d:add_trustFile=2", [t] { return t->bridge->addTrustFiles({"/t/a"}); }, -1, {"+/t/a failed"}, some};
        QTest::newRow("trust 1 of one file") << Operation{"d:add_trustFile=1", [t] { return t->bridge->addTrustFiles({"/t/a"}); }, -1, {"+/t/a failed"}, all};
        QTest::newRow("failed quarantine call reads as 0") << Operation{"d:add_quarantineFile!", [t] { return t->bridge->dealThreats({{"/q/4", "V"}}); }, 0, {"$1,0"}, ""};
        // clang-format on
    }
    void operations()
    {
        QFETCH(Operation, row);
        const auto &[fault, operation, result, expectedEvents, box] = row;
        const QString program = QFileInfo(QCoreApplication::arguments().first()).fileName();
        m_test.fault(fault);
        ModalCloser closer;
        QCOMPARE(operation(), result);
        QStringList events;
        for (const QString &event : expectedEvents)
            events << expand(event);
        QCOMPARE(m_test.log.summary(), events);
        const QString object = box.section(':', 0, 0),
                      name = program + "_CVirusDbusMiddle_QMessageBox_" + object + "_vorn-virus-scan",
                      description = "[" + object + "] is [QMessageBox] type in process:[" + program + "]";
        QCOMPARE(closer.seen.size(), box.isEmpty() ? 0 : 1);
        QCOMPARE(closer.seen.value(0).join('|'), box.isEmpty()
                                                     ? ""
                                                     : QStringLiteral("%1|%1|%2||%3|%4|Confirm/%5|stays")
                                                           .arg(name, description, box.section(':', 1))
                                                           .arg(QMessageBox::Critical)
                                                           .arg(QMessageBox::YesRole));
    }

    // Last: takes the risk-box service away and brings it back.
    void reconnectsWhenTheServiceReturns()
    {
        m_test.riskbox.stop();
        // The bridge hears that the service left on its private connection: once the bus says so
        // there, that signal is ahead of the answer, and the event loop then delivers it. (The bus
        // learns of the departure on its own time, so it is asked until it knows.)
        QDBusConnection privateConnection(
            QStringLiteral("virus_dialog_conn_%1").arg(QCoreApplication::applicationPid()));
        QVERIFY(QTest::qWaitFor(
            [&] {
                return !privateConnection.interface()->isServiceRegistered("com.tarsel.secriskbox").value();
            },
            10000));
        QCoreApplication::processEvents();
        StdoutCapture out;
        QCOMPARE(m_test.bridge->create_secRiskBox(0, {"x"}) + m_test.bridge->create_secRiskBox(0, {"x"}), -2);
        QCOMPARE(out.text(), QStringLiteral("DBus interface invalid, attempting to reConnectionDBus...\n"
                                            "Failed to reConnection DBus interface\n")
                                 .repeated(2));
        // Each failed attempt is logged; the interface stays invalid and the next box tries again.
        const QRegularExpression failed(
            "^CVirusDbusMiddle reConnectionDBus failed: .{10,}\\|operation failed\\|1$");
        QCOMPARE(m_test.log.summary().replaceInStrings(failed, "failed"), (QStringList{"failed", "failed"}));

        // Seen back first, the interface made while the service was away turns valid but still has
        // no signalResult: it must be rebuilt all the same, and answers reach the bridge again.
        QVERIFY(m_test.riskbox.start());
        QVERIFY(privateConnection.interface()->isServiceRegistered("com.tarsel.secriskbox").value());
        QCoreApplication::processEvents();
        m_test.log.clear();
        QCOMPARE(m_test.raise(3, "/h/back"), 0);
        m_test.answer(1, 2);
        QVERIFY(QTest::qWaitFor([&] { return !m_test.bridge->pendingBoxes().contains(1); }, 10000));
    }

    void boxesVanishWithTheirService()
    {
        // X is shown; the service restarts and numbers its boxes from 1 again, and a stranger's box
        // gets X's number: its Clear Now decides nothing here. X is shown again, through the dialog
        // thread, and the answer to that box quarantines it.
        QCOMPARE(m_test.raise(3, "/h/x", "X"), 0);
        const int id = m_test.lastId();
        m_test.riskbox.stop();
        QVERIFY(m_test.riskbox.start());
        QDBusInterface service("com.tarsel.secriskbox", "/service", "com.tarsel.secriskbox",
                               QDBusConnection::systemBus());
        int stranger = 0;
        for (int i = 0; i < id && stranger < id; ++i)
            stranger = service.call("create", 1, "another agent", "box").arguments().value(0).toInt();
        QCOMPARE(stranger, id);
        m_test.log.clear();
        m_test.answer(id, 1);
        m_test.settle();
        QCOMPARE(m_test.log.summary(),
                 QStringList{expand("!slot_ResultSignal  virusMap is err! id:%1 state:1").arg(id)});
        QCOMPARE(m_test.daemon.calls(), QStringList());
        QTRY_COMPARE_WITH_TIMEOUT(m_test.boxes().last().value("contents").toArray().at(1).toString(),
                                  "Virus name:X", 10000);
        m_test.answer(m_test.lastId(), 1);
        m_test.settle();
        QCOMPARE(m_test.daemon.calls(), QStringList{R"(add_quarantineFile a(ss) [[["/h/x","X"]]])"});
    }

    // After the others: the same bridge in Simplified Chinese, from the build tree's catalogue.
    void boxesInChinese()
    {
        qputenv("LOCPATH", VORN_LOCALE_BUILD_DIR); // the build tree's zh_CN.UTF-8, on any machine
        QVERIFY(setlocale(LC_ALL, "zh_CN.UTF-8"));
        bindtextdomain("vorn-defender", VORN_LOCALE_BUILD_DIR);
        bind_textdomain_codeset("vorn-defender", "UTF-8");
        m_test.reset();
        QCOMPARE(m_test.raise(3, "/home/u/e.com"), 0);
        QCOMPARE(m_test.boxes().last()["title"].toString(), QStringLiteral("安全中心"));
        QCOMPARE(BridgeTest::describe(m_test.boxes().last()),
                 QStringLiteral("0: 发现病毒威胁 / 病毒名称：EICAR / 病毒路径：/home/u/e.com [立即清除=1, "
                                "暂不处理=2, 信任=3] timeout 10"));
        // The translated name line has a proper placeholder: the name reaches the notice. Keys, the
        // command and the log stay untranslated.
        m_test.answer(m_test.lastId(), 1);
        m_test.settle();
        QCOMPARE(BridgeTest::describe(m_test.boxes().last()),
                 QStringLiteral("1: 病毒已清除，并已备份到隔离区 / 病毒名称：EICAR，点击查看详情 "
                                "[vorn-defender --virus-protect=default]"));
        QVERIFY(m_test.log.summary().contains("Dealing with threats|CAuthDialog: Click deal right now|3"));
        m_test.bridge->slot_sysPop("/q/old.exe");
        QVERIFY(BridgeTest::describe(m_test.boxes().last())
                    .endsWith("[vorn-defender --virus-protect=default, 信任=] fold 1"));
    }
};

QTEST_MAIN(TestBridge)
#include "tst_bridge.moc"
