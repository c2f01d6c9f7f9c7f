#ifndef HARNESS_H
#define HARNESS_H

// What every test of the agent stands on: the event log the stand-in library writes, the stand-in
// daemon and risk-box service on the test's private bus, fault injection in one short notation,
// and, for tests that link the agent, the bridge with its boxes, answers and message boxes.
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>
#include <unistd.h>

inline QString compact(const QJsonValue &value)
{
    return QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact).mid(1).chopped(1);
}

// Event shorthands: "@text" an event of "Dealing with threats", "!text" a failure line, "ok:text" a
// success line, "$P,N" the processing summary, "+PATH WORD" a trust-zone record; anything else as it
// stands.
inline QString expand(const QString &event)
{
    const QString rest = event.mid(1);
    if (event.startsWith("ok:"))
        return event.mid(3) + "|operation successful|3";
    if (event.startsWith('!'))
        return rest + "|operation failed|1";
    if (event.startsWith('@'))
        return "Dealing with threats|" + rest + "|3";
    if (event.startsWith('$'))
        return QStringLiteral("Dealing with threats|Processing completed, %1 item(s) processed, %2 item(s) "
                              "not processed.|2")
            .arg(rest.section(',', 0, 0), rest.section(',', 1));
    if (event.startsWith('+'))
        return QStringLiteral("Add file to trust zone|Add file %1 to trust zone %2|3")
            .arg(rest.section(' ', 0, -2), rest.section(' ', -1));
    return event;
}

// The file the stand-in libhalvo_log writes (HALVO_LOG_FILE), one JSON object a line.
class EventLog
{
public:
    EventLog() { qputenv("HALVO_LOG_FILE", m_dir.filePath("events.jsonl").toUtf8()); }
    QList<QByteArray> lines() const
    {
        QFile file(m_dir.filePath("events.jsonl"));
        QList<QByteArray> lines =
            file.open(QIODevice::ReadOnly) ? file.readAll().split('\n') : QList<QByteArray>();
        lines.removeAll(QByteArray());
        return lines;
    }
    // Each event as "operation|result|level", level "-" for the plain entry point.
    QStringList summary() const
    {
        QStringList result;
        for (const QByteArray &line : lines()) {
            const QJsonObject e = QJsonDocument::fromJson(line).object();
            result << e["operation"].toString() + '|' + e["result"].toString() + '|' +
                          (e.contains("level") ? QString::number(e["level"].toInt()) : "-");
        }
        return result;
    }
    void clear() { QFile::remove(m_dir.filePath("events.jsonl")); }

private:
    QTemporaryDir m_dir;
};

// One stand-in peer in a process of its own: served on the test's thread, it would deadlock the
// agent's blocking calls.
class Peer
{
public:
    Peer(const char *program, const char *service, const QStringList &arguments)
        : m_program(program), m_service(service), m_arguments(arguments)
    {}
    ~Peer() { stop(); }
    // Started means running and owning the name itself: the bus may still show the name held by
    // an earlier instance, and the name may be owned before QProcess has seen the start.
    bool start()
    {
        if (m_process.state() == QProcess::Running)
            return true;
        m_process.start(m_program, m_arguments);
        if (!m_process.waitForStarted())
            return false;
        bool owned = false;
        return QTest::qWaitFor(
                   [this, &owned] {
                       owned = QDBusConnection::systemBus().interface()->servicePid(m_service).value() ==
                               quint64(m_process.processId());
                       return owned || m_process.state() == QProcess::NotRunning;
                   },
                   10000) &&
               owned;
    }
    void stop()
    {
        m_process.terminate();
        if (!m_process.waitForFinished(5000)) {
            m_process.kill();
            m_process.waitForFinished();
        }
    }
    QDBusMessage control(const QString &method, const QVariantList &arguments = {}) const
    {
        QDBusMessage call =
            QDBusMessage::createMethodCall(m_service, "/control", "com.vorn.standin.Control", method);
        call.setArguments(arguments);
        return QDBusConnection::systemBus().call(call);
    }
    QList<QJsonObject> json(const QString &method) const
    {
        QList<QJsonObject> result;
        for (const QString &line : control(method).arguments().value(0).toStringList())
            result << QJsonDocument::fromJson(line.toUtf8()).object();
        return result;
    }
    // The calls that reached the peer as "method signature [args as JSON]", oldest first.
    QStringList calls() const
    {
        QStringList lines;
        for (const QJsonObject &c : json("Calls"))
            lines << c["method"].toString() + ' ' + c["signature"].toString() + ' ' + compact(c["args"]);
        return lines;
    }

private:
    QProcess m_process;
    QString m_program, m_service;
    QStringList m_arguments;
};

class Peers
{
public:
    bool start() { return daemon.start() && riskbox.start(); }
    // Forgets calls, faults and events.
    void reset()
    {
        for (Peer *peer : {&daemon, &riskbox}) {
            peer->control("Reset", {QString()});
            peer->control("ClearCalls");
        }
        log.clear();
    }
    // Faults, space-separated: "d:" the daemon, "r:" the risk-box service, then METHOD=N (answers
    // N), METHOD! (an error reply), METHOD!N (an error after N good replies), METHOD? (a reply
    // without arguments), METHOD~ (no reply at all).
    void fault(const QString &faults)
    {
        for (const QString &token : faults.split(' ', Qt::SkipEmptyParts)) {
            const QRegularExpressionMatch m = QRegularExpression("^(.):(\\w+)([=!?~])(-?\\d*)$").match(token);
            const QString how = m.captured(3), n = m.captured(4);
            const QString call = how == "="    ? "Force"
                                 : how == "?"  ? "Empty"
                                 : how == "~"  ? "Hold"
                                 : n.isEmpty() ? "Fail"
                                               : "FailAfter";
            QVariantList args{m.captured(2)};
            if (call == "Fail")
                args << QString() << QString();
            else if (!n.isEmpty())
                args << n.toInt();
            const QDBusMessage reply = (m.captured(1) == "d" ? daemon : riskbox).control(call, args);
            QVERIFY2(m.hasMatch() && reply.type() == QDBusMessage::ReplyMessage, qPrintable(token));
        }
    }

    EventLog log;
    Peer daemon{VORN_STANDIN_DAEMON, "com.vorn.virus", {"--quiet"}};
    Peer riskbox{VORN_STANDIN_RISKBOX, "com.tarsel.secriskbox", {"--headless", "--quiet"}};
};

// What the code under test prints on standard output while the object lives.
class StdoutCapture
{
public:
    StdoutCapture()
    {
        m_file.open();
        std::fflush(stdout);
        m_saved = dup(STDOUT_FILENO);
        dup2(m_file.handle(), STDOUT_FILENO);
    }
    ~StdoutCapture()
    {
        text();
        close(m_saved);
    }
    // Restores standard output (QtTest reports there) and returns what was printed.
    QString text()
    {
        std::fflush(stdout);
        dup2(m_saved, STDOUT_FILENO);
        return m_file.seek(0) ? QString::fromLocal8Bit(m_file.readAll()) : QString();
    }

private:
    QTemporaryFile m_file;
    int m_saved = -1;
};

// The rest is for tests that link the agent, whose include path has the bridge.
#if __has_include("cvirusdbusmiddle.h")
#include "cvirusdbusmiddle.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>

// Notes each message box the agent shows as a person would see it, and presses its first button.
class ModalCloser : public QObject
{
public:
    ModalCloser()
    {
        connect(&m_timer, &QTimer::timeout, this, [this] {
            for (QWidget *widget : QApplication::topLevelWidgets()) {
                auto *box = qobject_cast<QMessageBox *>(widget);
                if (!box || !box->isVisible() || box->buttons().isEmpty())
                    continue;
                QStringList seenBox{box->objectName(), box->accessibleName(), box->accessibleDescription()};
                seenBox << box->windowTitle() << box->text() << QString::number(box->icon());
                for (QAbstractButton *button : box->buttons())
                    seenBox << button->text() + '/' + QString::number(box->buttonRole(button));
                seen << (seenBox << (box->testAttribute(Qt::WA_QuitOnClose) ? "quits" : "stays"));
                box->buttons().first()->click();
            }
        });
        m_timer.start(20);
    }
    // Object name, accessible name and description, title, text, icon, each button/role, quit on close.
    QList<QStringList> seen;

private:
    QTimer m_timer;
};

// The bridge of the test process beside the two stand-ins.
class BridgeTest : public Peers
{
public:
    bool start()
    {
        bridge = Peers::start() ? CVirusDbusMiddle::getInstance() : nullptr;
        return bridge;
    }
    QList<QJsonObject> boxes() const { return riskbox.json("Boxes"); }
    int lastId() const
    {
        const auto all = boxes();
        return all.isEmpty() ? 0 : all.last()["id"].toInt();
    }
    // A box as one line: "type: line / line [text=key, ...] fold F timeout T", "(not shown)" if so.
    static QString describe(const QJsonObject &box)
    {
        QStringList lines, buttons;
        for (const QJsonValue &line : box["contents"].toArray())
            lines << line.toString();
        for (const QJsonValue &pair : box["buttons"].toArray())
            buttons << pair[0].toString() + '=' + pair[1].toString();
        QString text =
            QString::number(box["type"].toInt()) + ": " + lines.join(" / ") + " [" + buttons.join(", ") + ']';
        for (const char *key : {"fold", "timeout"})
            text += box[key].toInt() ? QStringLiteral(" %1 %2").arg(key).arg(box[key].toInt()) : "";
        return box["shown"].toBool() ? text : text + " (not shown)";
    }
    // Raises a box through its builder: kinds 0 to 2 for the file, kind 3 for a threat at that path.
    int raise(int kind, const QString &file, const QString &name = "EICAR",
              const QString &detail = "detail") const
    {
        switch (kind) {
        case 0: return bridge->slot_sysPop(file);
        case 1: return bridge->show_selectVirusBoxNotify(file);
        case 2: return bridge->show_retryVirusBoxNotify(file);
        default: return bridge->get_signalResult(SVirusInfo{name, detail, file, true});
        }
    }
    // Answers a box through the stand-in, as the service does when a person presses a button.
    void answer(int id, int state) const { riskbox.control("Result", {id, state, QString()}); }
    // Once this returns, every answer sent before has been handled: a call to the risk-box
    // stand-in on the bridge's own connection comes back behind them, and the event loop then
    // delivers them (the handling makes only blocking calls).
    void settle() const
    {
        QDBusConnection(QStringLiteral("virus_dialog_conn_%1").arg(QCoreApplication::applicationPid()))
            .call(QDBusMessage::createMethodCall("com.tarsel.secriskbox", "/control",
                                                 "com.vorn.standin.Control", "Calls"));
        QCoreApplication::processEvents();
    }
    // Closes every open box with state 9, which no kind of box acts on, so that no threat box
    // times out later in the test; then forgets calls, faults and events.
    void reset()
    {
        for (const QJsonObject &box : boxes())
            if (box["shown"].toBool() && !box["closed"].toBool())
                answer(box["id"].toInt(), 9);
        settle();
        Peers::reset();
    }

    CVirusDbusMiddle *bridge = nullptr;
};
#endif

#endif // HARNESS_H
