#ifndef BRIDGETEST_H
#define BRIDGETEST_H

#include "agentpeers.h"
#include "cvirusdbusmiddle.h"

#include <QJsonArray>

// The bridge of this test process beside the two stand-ins, with the helpers every bridge test
// uses: the boxes drawn, and a way to know that every answer sent so far has been handled.
class BridgeTest
{
public:
    bool start()
    {
        if (!peers.start())
            return false;
        bridge = CVirusDbusMiddle::getInstance();
        return bridge != nullptr;
    }

    // Every box the risk-box stand-in has drawn, oldest first.
    QList<QJsonObject> boxes() const
    {
        QList<QJsonObject> result;
        const QDBusMessage reply = peers.riskbox.control(QStringLiteral("Boxes"));
        for (const QString &line : reply.arguments().value(0).toStringList())
            result.append(QJsonDocument::fromJson(line.toUtf8()).object());
        return result;
    }

    QJsonObject lastBox() const
    {
        const QList<QJsonObject> all = boxes();
        return all.isEmpty() ? QJsonObject() : all.last();
    }

    static QStringList contents(const QJsonObject &box)
    {
        QStringList lines;
        for (const QJsonValue &line : box.value(QStringLiteral("contents")).toArray())
            lines.append(line.toString());
        return lines;
    }

    static QStringList buttons(const QJsonObject &box)
    {
        QStringList flat;
        for (const QJsonValue &pair : box.value(QStringLiteral("buttons")).toArray())
            flat << pair.toArray().at(0).toString() << pair.toArray().at(1).toString();
        return flat;
    }

    // Raises a box of the kind through its builder: the argument is the file (kinds 0 to 2) or the
    // threat's path (kind 3, whose name and detail are given).
    int raise(int kind, const QString &argument, const QString &threatName = QStringLiteral("EICAR"),
              const QString &detail = QStringLiteral("detail")) const
    {
        switch (kind) {
        case 0: return bridge->slot_sysPop(argument);
        case 1: return bridge->show_selectVirusBoxNotify(argument);
        case 2: return bridge->show_retryVirusBoxNotify(argument);
        default: return bridge->get_signalResult(SVirusInfo{threatName, detail, argument, true});
        }
    }

    // Answers a box through the stand-in, as the service does when a person presses a button.
    void answer(int id, int state) const
    {
        peers.riskbox.control(QStringLiteral("Result"), {id, state, QString()});
    }

    // Sends an answer for a box nobody raised and waits for the bridge to log it: by then every
    // answer sent before has been handled to the end. The sentinel line is taken out of the log.
    bool settle()
    {
        static int sentinel = 900000;
        ++sentinel;
        const QString line =
            QStringLiteral("slot_ResultSignal  virusMap is err! id:%1 state:0|operation failed|1")
                .arg(sentinel);
        answer(sentinel, 0);
        QElapsedTimer timer;
        timer.start();
        while (!peers.log.summary().contains(line)) {
            if (timer.hasExpired(10000))
                return false;
            QTest::qWait(10);
        }
        m_sentinels.append(line);
        return true;
    }

    // The log without the sentinel lines.
    QStringList events() const
    {
        QStringList result = peers.log.summary();
        for (const QString &line : m_sentinels)
            result.removeAll(line);
        return result;
    }

    AgentPeers peers;
    CVirusDbusMiddle *bridge = nullptr;

private:
    QStringList m_sentinels;
};

#endif // BRIDGETEST_H
