// The user's answers: every row of the result table, driven by a real signalResult from the
// risk-box stand-in, with what reached the daemon, the boxes drawn, the map and the exact events.
#include "bridgetest.h"
#include "modalcloser.h"

namespace {

// One answer to one box. Templates: {id} is the answered box, {next} the box raised after it.
struct Row
{
    const char *name;
    int kind;                 // the box answered: 0 quarantined, 1 confirm, 2 retry, 3 threat
    QString argument;         // the file (kinds 0 to 2) or the threat's path (kind 3, name "EICAR")
    QStringList daemonFaults; // "method=value": the daemon answers that value
    QStringList boxFaults;    // control calls on the risk-box stand-in after the box is up
    int state;
    QStringList daemonCalls;
    QStringList events;
    bool kept;
    QStringList nextBox; // content of the box raised after the answer, if any
    QString modal;       // text of the message box shown while handling it, if any
};

const QString kNameLine = QStringLiteral("Virus name:% 1, click to view details");
const QString kCleared = QStringLiteral("The virus has been cleared and backed up to the quarantine area");
const QString kStart = QStringLiteral("Dealing with threats|slot_ResultSignal start! id:{id} state:%1|3");
const QString kThreat =
    QStringLiteral("Dealing with threats|iVirusType == 3  id:{id} state:%1  iVirusType:3 state:%1|3");

QList<Row> rows()
{
    return {
        {"kind 0, Trust",
         0,
         "/home/u/old.exe",
         {},
         {},
         1,
         {},
         {kStart.arg(1), "Dealing with threats|slot_ResultSignal id:{id} state:1  iVirusType:0 state:1|3",
          "show_selectVirusBoxNotify strVirusName:/home/u/old.exe|operation failed|1"},
         false,
         {"Are you sure to move to the trust zone?", kNameLine},
         {}},
        {"kind 0, body clicked",
         0,
         "/home/u/old.exe",
         {},
         {},
         0,
         {},
         {kStart.arg(0), "Dealing with threats|slot_ResultSignal id:{id} state:0  iVirusType:0 state:0|3"},
         false,
         {},
         {}},
        {"kind 1, Confirm, trusted",
         1,
         "/q/f",
         {},
         {},
         2,
         {R"(add_trustFile [["/q/f"]])", R"(restore_quarantineFile [["/q/f"],1])"},
         {kStart.arg(2), "Add file to trust zone|Add file /q/f to trust zone Successfully|3",
          "Dealing with threats|slot_ResultSignal id:{id} state:2  iVirusType:1 state:2 ret:0|3"},
         false,
         {},
         {}},
        {"kind 1, Confirm, trust fails",
         1,
         "/q/f",
         {"add_trustFile=1"},
         {},
         2,
         {R"(add_trustFile [["/q/f"]])", R"(restore_quarantineFile [["/q/f"],1])"},
         {kStart.arg(2), "Add file to trust zone|Add file /q/f to trust zone failed|3",
          "Dealing with threats|slot_ResultSignal id:{id} state:2  iVirusType:1 state:2 ret:-1|3",
          "Failed to add file to trust zone.|operation failed|1"},
         false,
         {"Could not successfully move to the trust zone, please try again?", kNameLine},
         "Failed to add to trust zone"},
        {"kind 1, Cancel", 1, "/q/f", {}, {}, 1, {}, {kStart.arg(1)}, false, {}, {}},
        {"kind 2, Trust",
         2,
         "/q/r",
         {},
         {},
         1,
         {R"(add_trustFile [["/q/r"]])", R"(restore_quarantineFile [["/q/r"],1])"},
         {kStart.arg(1), "Add file to trust zone|Add file /q/r to trust zone Successfully|3",
          "Dealing with threats|slot_ResultSignal id:{id} state:1  iVirusType:2 state:1 ret:0|3"},
         false,
         {},
         {}},
        {"kind 2, Trust fails: no further box",
         2,
         "/q/r",
         {"add_trustFile=1"},
         {},
         1,
         {R"(add_trustFile [["/q/r"]])", R"(restore_quarantineFile [["/q/r"],1])"},
         {kStart.arg(1), "Add file to trust zone|Add file /q/r to trust zone failed|3",
          "Dealing with threats|slot_ResultSignal id:{id} state:1  iVirusType:2 state:1 ret:-1|3",
          "Failed to add file to trust zone.|operation failed|1"},
         false,
         {},
         "Failed to add to trust zone"},
        {"kind 2, other", 2, "/q/r", {}, {}, 2, {}, {kStart.arg(2)}, false, {}, {}},
        {"kind 3, Clear Now",
         3,
         "/h/e",
         {},
         {},
         1,
         {R"(add_quarantineFile [[["/h/e","EICAR"]]])"},
         {kStart.arg(1), kThreat.arg(1), "Dealing with threats|CAuthDialog: Click deal right now|3",
          "Dealing with threats|Processing completed, 1 item(s) processed, 0 item(s) not processed.|2"},
         false,
         {kCleared, kNameLine},
         {}},
        {"kind 3, timed out",
         3,
         "/h/t",
         {},
         {},
         -1,
         {R"(add_quarantineFile [[["/h/t","EICAR"]]])"},
         {kStart.arg(-1), kThreat.arg(-1), "Dealing with threats|CAuthDialog: Click deal right now|3",
          "Dealing with threats|Processing completed, 1 item(s) processed, 0 item(s) not processed.|2"},
         false,
         {kCleared, kNameLine},
         {}},
        {"kind 3, Clear Now refused with -1",
         3,
         "/h/e",
         {"add_quarantineFile=-1"},
         {},
         1,
         {R"(add_quarantineFile [[["/h/e","EICAR"]]])"},
         {kStart.arg(1), kThreat.arg(1), "Dealing with threats|CAuthDialog: Click deal right now|3",
          "Dealing with threats|Processing completed, 2 item(s) processed, -1 item(s) not processed.|2"},
         true,
         {kCleared, kNameLine},
         {}},
        {"kind 3, Clear Now, notice not created",
         3,
         "/h/n",
         {},
         {"Force:create:-1"},
         1,
         {R"(add_quarantineFile [[["/h/n","EICAR"]]])"},
         {kStart.arg(1), kThreat.arg(1), "Dealing with threats|CAuthDialog: Click deal right now|3",
          "Dealing with threats|Processing completed, 1 item(s) processed, 0 item(s) not processed.|2",
          "create_secRiskBox   iId:-1  iRet: 0   id:{id} state:1  iVirusType:3 state:1|operation failed|1"},
         true,
         {},
         {}},
        {"kind 3, Not for the time being",
         3,
         "/h/e",
         {},
         {},
         2,
         {},
         {kStart.arg(2), kThreat.arg(2), "Dealing with threats|CAuthDialog: Click not to process|3",
          "Dealing with threats|Not for the time being|3"},
         false,
         {},
         {}},
        {"kind 3, Trust",
         3,
         "/h/e",
         {},
         {},
         3,
         {R"(add_trustFile [["/h/e"]])"},
         {kStart.arg(3), kThreat.arg(3), "Dealing with threats|CAuthDialog: Click trust|3",
          "Add file to trust zone|Add file /h/e to trust zone Successfully|3",
          "Add file to trust zone|Add file /h/e to trust zone Successfully|3"},
         false,
         {"Moved to trust zone", kNameLine},
         {}},
        {"kind 3, Trust fails",
         3,
         "/h/e",
         {"add_trustFile=1"},
         {},
         3,
         {R"(add_trustFile [["/h/e"]])"},
         {kStart.arg(3), kThreat.arg(3), "Dealing with threats|CAuthDialog: Click trust|3",
          "Add file to trust zone|Add file /h/e to trust zone failed|3"},
         true,
         {"Moved to trust zone", kNameLine},
         "Failed to add to trust zone"},
        {"kind 3, Trust, notice not shown",
         3,
         "/h/e",
         {},
         {"Fail:show"},
         3,
         {R"(add_trustFile [["/h/e"]])"},
         {kStart.arg(3), kThreat.arg(3), "Dealing with threats|CAuthDialog: Click trust|3",
          "Add file to trust zone|Add file /h/e to trust zone Successfully|3",
          "show_secRiskBox   iId:{next}  iRet: -1   id:{id} state:3  iVirusType:3 state:3|operation "
          "failed|1"},
         true,
         {},
         {}},
        {"kind 3, other", 3, "/h/e", {}, {}, 9, {}, {kStart.arg(9), kThreat.arg(9)}, false, {}, {}},
    };
}

} // namespace

class TestBridgeResults : public QObject
{
    Q_OBJECT

private:
    BridgeTest m_test;

private slots:
    void initTestCase() { QVERIFY(m_test.start()); }

    void transitionTable()
    {
        for (const Row &row : rows()) {
            const QByteArray where = QByteArray("row \"") + row.name + "\": ";
            m_test.peers.reset();
            QCOMPARE(m_test.raise(row.kind, row.argument), 0);
            const int id = m_test.lastBox().value("id").toInt();
            const SVirusBoxInfo before = m_test.bridge->pendingBoxes().value(id);
            QVERIFY2(m_test.bridge->pendingBoxes().contains(id), where + "box not remembered");
            m_test.peers.reset();
            for (const QString &fault : row.daemonFaults)
                m_test.peers.daemon.control("Force",
                                            {fault.section('=', 0, 0), fault.section('=', 1).toInt()});
            for (const QString &fault : row.boxFaults) {
                const QStringList parts = fault.split(':');
                m_test.peers.riskbox.control(
                    parts.at(0), parts.at(0) == "Force" ? QVariantList{parts.at(1), parts.at(2).toInt()}
                                                        : QVariantList{parts.at(1), QString(), QString()});
            }
            const int boxesBefore = m_test.boxes().size();

            ModalCloser closer;
            m_test.answer(id, row.state);
            if (!row.modal.isEmpty())
                QTRY_COMPARE(closer.seen.size(), 1);
            QVERIFY2(m_test.settle(), where + "the answer was not handled");

            QStringList events = row.events;
            events.replaceInStrings("{id}", QString::number(id));
            events.replaceInStrings("{next}", QString::number(id + 1));
            QVERIFY2(m_test.events() == events, where + m_test.events().join("\n   ").toUtf8());
            QVERIFY2(m_test.peers.daemon.callLines() == row.daemonCalls,
                     where + m_test.peers.daemon.callLines().join(", ").toUtf8());
            QVERIFY2(m_test.bridge->pendingBoxes().contains(id) == row.kept,
                     where + "entry kept or removed wrongly");

            const QList<QJsonObject> boxes = m_test.boxes();
            if (row.nextBox.isEmpty()) {
                QVERIFY2(boxes.size() == boxesBefore || !boxes.last().value("shown").toBool(),
                         where + "a box too many");
            } else {
                QVERIFY2(boxes.size() == boxesBefore + 1, where + "no box raised");
                QVERIFY2(BridgeTest::contents(boxes.last()) == row.nextBox,
                         where + BridgeTest::contents(boxes.last()).join(" / ").toUtf8());
                QVERIFY2(boxes.last().value("shown").toBool(), where + "the box was not shown");
            }
            if (row.modal.isEmpty()) {
                QVERIFY2(closer.seen.isEmpty(), where + "an unexpected message box");
            } else {
                QCOMPARE(closer.seen.first().text, row.modal);
                QVERIFY2(!closer.seen.first().quitOnClose, where + "closing the box would end the agent");
            }
            if (row.kind == 3 && row.kept) {
                const SVirusBoxInfo after = m_test.bridge->pendingBoxes().value(id);
                QCOMPARE(after.virusPath, before.virusPath);
                QCOMPARE(after.virusDetail, QStringLiteral("detail"));
            }
        }
    }

    void chainedBoxesCarryTheFileAsPath()
    {
        // Kind 0 for name N, Trust: the confirmation's entry has no name and N as its path; that
        // confirmation, failing, raises a retry box whose entry carries an empty path.
        m_test.peers.reset();
        m_test.bridge->slot_sysPop(QStringLiteral("/q/chain.exe"));
        const int notice = m_test.lastBox().value("id").toInt();
        m_test.answer(notice, 1);
        QVERIFY(m_test.settle());
        const int confirm = m_test.lastBox().value("id").toInt();
        const SVirusBoxInfo entry = m_test.bridge->pendingBoxes().value(confirm);
        QCOMPARE(entry.iVirusType, 1);
        QVERIFY(entry.virusName.isEmpty());
        QCOMPARE(entry.virusPath, QStringLiteral("/q/chain.exe"));

        m_test.peers.daemon.control("Force", {"add_trustFile", 1});
        ModalCloser closer;
        m_test.answer(confirm, 2);
        QTRY_COMPARE(closer.seen.size(), 1);
        QVERIFY(m_test.settle());
        const int retry = m_test.lastBox().value("id").toInt();
        QCOMPARE(m_test.bridge->pendingBoxes().value(retry).iVirusType, 2);
        QVERIFY(m_test.bridge->pendingBoxes().value(retry).virusPath.isEmpty());
    }

    void unknownAndRepeatedAnswers()
    {
        m_test.peers.reset();
        const QMap<int, SVirusBoxInfo> before = m_test.bridge->pendingBoxes();
        m_test.answer(7, 1);
        QVERIFY(m_test.settle());
        QCOMPARE(m_test.events(),
                 QStringList{"slot_ResultSignal  virusMap is err! id:7 state:1|operation failed|1"});
        QCOMPARE(m_test.bridge->pendingBoxes().keys(), before.keys());

        // The same answer twice: handled once, then unknown.
        m_test.bridge->get_signalResult(SVirusInfo{"EICAR", "", "/h/twice", false});
        const int id = m_test.lastBox().value("id").toInt();
        m_test.peers.reset();
        m_test.answer(id, 2);
        m_test.answer(id, 2);
        QVERIFY(m_test.settle());
        const QStringList events = m_test.events();
        QCOMPARE(events.size(), 5);
        QCOMPARE(
            events.last(),
            QStringLiteral("slot_ResultSignal  virusMap is err! id:%1 state:2|operation failed|1").arg(id));
        QVERIFY(m_test.peers.daemon.calls().isEmpty());
    }

    void valuesAreNeverTakenForPlaceholders()
    {
        m_test.peers.reset();
        const QString file = QStringLiteral("/tmp/%1 %2 %3 %4%5 evil");
        m_test.bridge->slot_sysPop(file);
        const int notice = m_test.lastBox().value("id").toInt();
        m_test.answer(notice, 1);
        QVERIFY(m_test.settle());
        QVERIFY(m_test.events().contains("show_selectVirusBoxNotify strVirusName:" + file +
                                         "|operation failed|1"));
        const int confirm = m_test.lastBox().value("id").toInt();
        m_test.answer(confirm, 2);
        QVERIFY(m_test.settle());
        QVERIFY(m_test.events().contains("Add file to trust zone|Add file " + file +
                                         " to trust zone Successfully|3"));

        m_test.peers.reset();
        m_test.bridge->get_signalResult(SVirusInfo{"%2%1", "", "/p/%1", false});
        QCOMPARE(BridgeTest::contents(m_test.lastBox()),
                 (QStringList{"Discover virus threat", "Virus name:%2%1", "Virus Path:/p/%1"}));
        m_test.answer(m_test.lastBox().value("id").toInt(), 3);
        QVERIFY(m_test.settle());
        QCOMPARE(m_test.events().last(),
                 QStringLiteral("Add file to trust zone|Add file /p/%1 to trust zone Successfully|3"));
    }
};

QTEST_MAIN(TestBridgeResults)
#include "tst_bridgeresults.moc"
