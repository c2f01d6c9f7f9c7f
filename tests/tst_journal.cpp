// The journal of undecided threats: what a restart gets back (in order, byte for byte, after a
// torn or garbled end), what it refuses to read, a failing disk, compaction.
#include "harness.h"

#include "cthreatjournal.h"

#include <csignal>
#include <sys/resource.h>

using Numbers = QList<quint64>;

class TestJournal : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_home;
    QString m_dir, m_path;

    static Numbers takeAll(CThreatJournal &journal)
    {
        Numbers numbers;
        while (quint64 number = journal.takeNext())
            numbers << number;
        return numbers;
    }
    // Opens the journal as a starting agent does: the threats restored as "name|detail|path|flag",
    // and what it said.
    QStringList reopen(QString *said = nullptr)
    {
        StdoutCapture out;
        CThreatJournal journal(m_dir);
        if (said)
            *said = out.text();
        QStringList threats;
        for (const SVirusInfo &t : journal.restored())
            threats << QStringList{t.virusName, t.virusDetail, t.virusPath, t.virusFlag ? "1" : "0"}.join(
                '|');
        return threats;
    }
    QByteArray bytes() const
    {
        QFile file(m_path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)");
    }

private slots:
    void init()
    {
        static int run = 0;
        m_dir = m_home.filePath(QString::number(++run)) + "/vorn-defender";
        m_path = m_dir + "/journal";
    }

    void undecidedThreatsComeBackInOrderByteForByte()
    {
        {
            CThreatJournal journal(m_dir);
            journal.add({"line\nbreak", "<b>markup</b> %1", "/tmp/a b\n/c", true});
            journal.add({"decided", "", "/d", false});
            journal.add({"%1 %2 \\ %20", QString(65536, 'x'), "/e%20f", false});
            journal.add({"病毒", "", QString(), true});
            QCOMPARE(takeAll(journal).mid(0, 2), (Numbers{1, 2}));
            journal.remove(2);
        }
        // rwx------ and rw-------, as owner and as user.
        QCOMPARE(QString::number(QFile::permissions(m_dir) | QFile::permissions(m_path) << 16, 16),
                 "66007700");
        QString said;
        QCOMPARE(reopen(&said),
                 (QStringList{"line\nbreak|<b>markup</b> %1|/tmp/a b\n/c|1",
                              "%1 %2 \\ %20|" + QString(65536, 'x') + "|/e%20f|0", "病毒|||1"}));
        QCOMPARE(said, "threat journal: restored 3 undecided threats from " + m_path + "\n");
        // Numbers go on after the last one; the restored threats are handed out first.
        CThreatJournal journal(m_dir);
        QCOMPARE(journal.add({}), quint64(5));
        journal.remove(7);
        journal.remove(0);
        QCOMPARE(takeAll(journal), (Numbers{1, 3, 4, 5}));
    }

    void damagedEndIsSkipped_data()
    {
        QTest::addColumn<QByteArray>("from");
        QTest::addColumn<QByteArray>("to");
        QTest::addColumn<QStringList>("restored");
        QTest::newRow("torn") << QByteArray() << QByteArray("A 4 0 torn") << QStringList{"a", "b", "c"};
        QTest::newRow("garbled") << QByteArray("A 2 0 b") << QByteArray("A 2 0 B") << QStringList{"a"};
        QTest::newRow("junk") << QByteArray("A 1 0 a") << QByteArray(200000, '\n') << QStringList{};
    }
    void damagedEndIsSkipped()
    {
        QFETCH(QByteArray, from);
        QFETCH(QByteArray, to);
        QFETCH(QStringList, restored);
        {
            CThreatJournal journal(m_dir);
            for (const char *name : {"a", "b", "c"})
                journal.add({name, "", "/", false});
        }
        QByteArray content = bytes();
        const int at = from.isEmpty() ? content.size() : content.indexOf(from);
        QFile file(m_path);
        QVERIFY(file.open(QIODevice::WriteOnly) &&
                file.write(from.isEmpty() ? content + to : content.replace(from, to)));
        file.close();
        const QString said =
            from.isEmpty()
                ? "skipped a torn last record of 10 bytes"
                : QStringLiteral("the record at byte %1 is not valid; the %2 bytes from there on are ignored")
                      .arg(at)
                      .arg(content.size() - at);
        QString text;
        restored.replaceInStrings(QRegularExpression("$"), "||/|0");
        QCOMPARE(reopen(&text), restored);
        QCOMPARE(text.section('\n', 0, 0), "threat journal: " + said);
        // The next start reads what was valid, and says nothing more about the rest.
        QCOMPARE(reopen(&text), restored);
        QCOMPARE(text.count('\n'), 1);
    }

    void unsafeJournalIsNeitherReadNorWritten_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("said");
        const QString untouched = "; it is neither read nor written";
        QTest::newRow("group-writable") << "chmod 0620 vorn-defender/journal"
                                        << "vorn-defender/journal is writable by group or others" + untouched;
        QTest::newRow("open folder") << "chmod 0777 vorn-defender"
                                     << "vorn-defender is writable by group or others" + untouched;
        QTest::newRow("stranger's") << "chown 4242 vorn-defender/journal"
                                    << "vorn-defender/journal is not owned by this user" + untouched;
        QTest::newRow("link") << "cd vorn-defender && mv journal j && ln -s j journal"
                              << "vorn-defender/journal: Too many levels of symbolic links";
        QTest::newRow("not a folder") << "rm -r vorn-defender && touch vorn-defender"
                                      << "vorn-defender is not a folder";
        QTest::newRow("folder cannot be made") << "p=$PWD && rm -r \"$p\" && touch \"$p\""
                                               << "vorn-defender: Not a directory";
    }
    void unsafeJournalIsNeitherReadNorWritten()
    {
        QFETCH(QString, command);
        QFETCH(QString, said);
        if (command.startsWith("chown") && geteuid() != 0)
            QSKIP("only root can give a file away");
        CThreatJournal(m_dir).add({"kept", "", "/", false});
        const QByteArray before = bytes();
        QCOMPARE(QProcess::execute("sh", {"-c", "cd \"$0\" && " + command, QFileInfo(m_dir).path()}), 0);
        QString text;
        QCOMPARE(reopen(&text), QStringList());
        QCOMPARE(text, "threat journal: threats are not being kept: " + QFileInfo(m_dir).path() + '/' + said +
                           '\n');
        if (!command.contains("rm"))
            QCOMPARE(bytes(), before);
    }

    void fullDiskIsSaidOnceAndLosesNothingWritten()
    {
        int added = 0;
        {
            CThreatJournal journal(m_dir);
            StdoutCapture out;
            // Files may grow to 4 KiB: the fifth record of 1 KiB does not fit.
            std::signal(SIGXFSZ, SIG_IGN);
            rlimit saved{}, limit{4096, RLIM_INFINITY};
            getrlimit(RLIMIT_FSIZE, &saved);
            limit.rlim_max = saved.rlim_max;
            setrlimit(RLIMIT_FSIZE, &limit);
            for (int i = 0; i < 8; ++i)
                added += journal.add({QString::number(i), "", QString(1000, 'p'), false}) != 0;
            journal.remove(1);
            setrlimit(RLIMIT_FSIZE, &saved);
            QCOMPARE(out.text(),
                     QStringLiteral("threat journal: threats are not being kept: No space left on device\n"));
        }
        QCOMPARE(added, 4);
        QString text;
        QCOMPARE(reopen(&text).replaceInStrings(QRegularExpression("\\|.*"), ""),
                 (QStringList{"0", "1", "2", "3"}));
        QCOMPARE(text.count('\n'), 1);
    }

    void compactionFollowsTheUndecided()
    {
        const int count = 10000;
        {
            CThreatJournal journal(m_dir);
            for (int i = 0; i < count; ++i)
                journal.add({QString::number(i), "", "/", false});
            for (quint64 number : takeAll(journal).mid(0, count - 3))
                journal.remove(number);
            QVERIFY2(journal.size() < 64 * 1024 * 2, qPrintable(QString::number(journal.size())));
        }
        QCOMPARE(reopen(), (QStringList{"9997||/|0", "9998||/|0", "9999||/|0"}));
        CThreatJournal journal(m_dir);
        for (quint64 number : takeAll(journal))
            journal.remove(number);
        QCOMPARE(QFileInfo(m_path).size(), 0);
        QVERIFY(!QFileInfo::exists(m_path + ".new"));
    }
};

QTEST_GUILESS_MAIN(TestJournal)
#include "tst_journal.moc"
