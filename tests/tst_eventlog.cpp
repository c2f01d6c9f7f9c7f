// The event-log wrapper through the stand-in library: the exact JSON line each call leaves.
#include "cvorngenlog.h"
#include "eventlogfile.h"

#include <QProcess>
#include <QSet>
#include <QThread>
#include <QtTest>

class TestEventLog : public QObject
{
    Q_OBJECT

private:
    EventLogFile m_log;

private slots:
    void init() { m_log.clear(); }

    void lineForEachForm_data()
    {
        QTest::addColumn<bool>("coded");
        QTest::addColumn<int>("module");
        QTest::addColumn<int>("result");
        QTest::addColumn<QString>("resultText");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("level");
        QTest::addColumn<QByteArray>("line");

        QTest::newRow("success, level 3")
            << true << 5 << 0 << QString() << "CVirusDbusMiddle: all signal have been connected" << 3
            << QByteArray(
                   R"({"entry":"halvo_log_v2","level":3,"type":13,"module":"virus scan","operation":"CVirusDbusMiddle: all signal have been connected","result":"operation successful"})");
        QTest::newRow("failure, level 1")
            << true << 5 << 1 << QString() << "CVirusDbusMiddle m_pNotifyInterface is false" << 1
            << QByteArray(
                   R"({"entry":"halvo_log_v2","level":1,"type":13,"module":"virus scan","operation":"CVirusDbusMiddle m_pNotifyInterface is false","result":"operation failed"})");
        QTest::newRow("module 18, result 2")
            << true << 18 << 2 << QString() << "m" << 3
            << QByteArray(
                   R"({"entry":"halvo_log_v2","level":3,"type":13,"module":"","operation":"m","result":"none"})");
        QTest::newRow("module -1, level 0")
            << true << -1 << 0 << QString() << "m" << 0
            << QByteArray(
                   R"({"entry":"halvo_log_v2","level":0,"type":13,"module":"","operation":"m","result":"operation successful"})");
        QTest::newRow("first and last module")
            << true << 0 << -7 << QString() << "m" << 3
            << QByteArray(
                   R"({"entry":"halvo_log_v2","level":3,"type":13,"module":"safety check","operation":"m","result":"none"})");
        QTest::newRow("module 17")
            << true << 17 << 0 << QString() << "m" << 3
            << QByteArray(
                   R"({"entry":"halvo_log_v2","level":3,"type":13,"module":"trust measure","operation":"m","result":"operation successful"})");
        QTest::newRow("level -1, plain entry")
            << true << 5 << 1 << QString() << "slot_ResultSignal  virusMap is err! id:7 state:1" << -1
            << QByteArray(
                   R"({"entry":"halvo_log","type":13,"module":"virus scan","operation":"slot_ResultSignal  virusMap is err! id:7 state:1","result":"operation failed"})");
        QTest::newRow("free text, level 2")
            << false << 5 << 0 << "Processing completed, 1 item(s) processed, 0 item(s) not processed."
            << "Dealing with threats" << 2
            << QByteArray(
                   R"({"entry":"halvo_log_v2","level":2,"type":13,"module":"virus scan","operation":"Dealing with threats","result":"Processing completed, 1 item(s) processed, 0 item(s) not processed."})");
        QTest::newRow("free text, level -1")
            << false << 14 << 0 << "r"
            << "op" << -1
            << QByteArray(
                   R"({"entry":"halvo_log","type":13,"module":"peripheral control","operation":"op","result":"r"})");
    }

    void lineForEachForm()
    {
        QFETCH(bool, coded);
        QFETCH(int, module);
        QFETCH(int, result);
        QFETCH(QString, resultText);
        QFETCH(QString, message);
        QFETCH(int, level);
        QFETCH(QByteArray, line);

        CVornGenLog *log = CVornGenLog::getInstance();
        QCOMPARE(log, CVornGenLog::getInstance());
        const int status = coded ? log->writeLog(module, result, message, level)
                                 : log->writeLog(module, resultText, message, level);
        QCOMPARE(status, 0);
        QCOMPARE(m_log.lines(), QList<QByteArray>{line});
    }

    void hostileTextsComeBackOnOneLine()
    {
        const QStringList texts{
            QStringLiteral("quote \" and backslash \\ and slash /"),
            QStringLiteral("line one\nline two\r\n{\"entry\":\"forged\"}"),
            QString::fromUtf8("tab\tbell\x07 esc\x1b unit\x1f del\x7f"),
            QString::fromUtf8("\xe7\x97\x85\xe6\xaf\x92 \xf0\x9f\x90\x9b caf\xc3\xa9"),
            QStringLiteral("%1 %2 %3"),
            QString(),
        };
        for (const QString &text : texts)
            CVornGenLog::getInstance()->writeLog(5, text, text, 3);

        const QList<QJsonObject> events = m_log.events();
        QCOMPARE(events.size(), texts.size());
        for (int i = 0; i < texts.size(); ++i) {
            QCOMPARE(events.at(i).value("operation").toString(), texts.at(i));
            QCOMPARE(events.at(i).value("result").toString(), texts.at(i));
        }
        // Non-ASCII leaves as UTF-8, not as escapes.
        QVERIFY(m_log.lines().at(3).contains("\xe7\x97\x85\xe6\xaf\x92"));
    }

    void concurrentWritersLoseNothing()
    {
        const int perWriter = 2000;
        auto writer = [perWriter](const QString &tag) {
            return QThread::create([perWriter, tag] {
                for (int i = 0; i < perWriter; ++i)
                    CVornGenLog::getInstance()->writeLog(
                        5, QStringLiteral("a result long enough to see tearing"),
                        QStringLiteral("%1 %2").arg(tag).arg(i), 3);
            });
        };
        QScopedPointer<QThread> first(writer(QStringLiteral("thread-a")));
        QScopedPointer<QThread> second(writer(QStringLiteral("thread-b")));
        QProcess other;
        other.start(QFINDTESTDATA("halvo-log-writer"),
                    {QString::number(perWriter), QStringLiteral("process")});
        first->start();
        second->start();
        QVERIFY(first->wait(60000));
        QVERIFY(second->wait(60000));
        QVERIFY(other.waitForFinished(60000));
        QCOMPARE(other.exitCode(), 0);

        QSet<QString> seen;
        const QList<QJsonObject> events = m_log.events();
        for (const QJsonObject &event : events) {
            QVERIFY2(!event.isEmpty(), "a torn or interleaved line");
            seen.insert(event.value("operation").toString());
        }
        QCOMPARE(events.size(), 3 * perWriter);
        for (const char *tag : {"thread-a", "thread-b", "process"})
            for (int i = 0; i < perWriter; i += 499)
                QVERIFY(seen.contains(QStringLiteral("%1 %2").arg(QLatin1String(tag)).arg(i)));
        QCOMPARE(seen.size(), 3 * perWriter);
    }

    void deviceVocabulary()
    {
        // Kind 7 has no name although its neighbours do; a lookup always replaces the name.
        QString name = QStringLiteral("stale");
        CVornGenLog::getInstance()->deviceName(7, name);
        QVERIFY(name.isEmpty());
        CVornGenLog::getInstance()->deviceTypeName(2, name = QStringLiteral("stale"));
        QVERIFY(name.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestEventLog)
#include "tst_eventlog.moc"
