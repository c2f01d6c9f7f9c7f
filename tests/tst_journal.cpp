// The journal of undecided threats: what a restart gets back (in order, byte for byte, after a
// torn or garbled end), what it refuses to read, a failing disk, compaction.
#include "harness.h"

#include "cthreatjournal.h"
#include "journalpromises.h"

#include <csignal>
#include <sys/resource.h>

class TestJournal : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_home;
    QString m_dir, m_path;

    // Opens the journal as a starting agent does: the threats restored as "name|detail|path|flag",
    // and what it said.
    QStringList reopen(QString *said = nullptr)
    {
        StdoutCapture out;
        CThreatJournal journal(m_dir);
        if (said)
            *said = out.text();
        return threatTexts(journal.takeRestored());
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
            journal.remove({"decided", "", "/d", false});
        }
        // rwx------ and rw-------, as owner and as user.
        QCOMPARE(QString::number(QFile::permissions(m_dir) | QFile::permissions(m_path) << 16, 16),
                 "66007700");
        QString said;
        QCOMPARE(reopen(&said),
                 (QStringList{"line\nbreak|<b>markup</b> %1|/tmp/a b\n/c|1",
                              "%1 %2 \\ %20|" + QString(65536, 'x') + "|/e%20f|0", "病毒|||1"}));
        QCOMPARE(said, "threat journal: restored 3 undecided threats from " + m_path + "\n");
        // Numbers go on after the last one; of two equal threats, the older one is forgotten.
        CThreatJournal journal(m_dir);
        QCOMPARE(journal.add({"病毒", "", QString(), true}), quint64(5));
        journal.remove({"病毒", "", QString(), true});
        QVERIFY(bytes().endsWith('\n' + CThreatJournal::decisionRecord(4)));
    }

    void secondLoginTakesOverWhatTheFirstLeft()
    {
        // The second agent waits for the lock; meanwhile both hear X and Y, the first also W and
        // the second also Z, and the second decides Y. Taking over, it restores only W.
        auto *first = new CThreatJournal(m_dir);
        CThreatJournal second(m_dir);
        QVERIFY(second.waitsForLock() && !second.takeOver());
        for (const char *name : {"X", "Y", "W"})
            first->add({name, "", "/", false});
        for (const char *name : {"X", "Y", "Z"})
            second.add({name, "", "/", false});
        second.remove({"Y", "", "/", false});
        delete first;
        QVERIFY(second.takeOver());
        QCOMPARE(threatTexts(second.takeRestored()), QStringList{"W||/|0"});
        QCOMPARE(threatTexts(CThreatJournal::parse(bytes(), bytes().size()).threats),
                 (QStringList{"X||/|0", "W||/|0", "Z||/|0"}));
    }

    void journalAsFoundAtStart_data()
    {
        // A shell command run beside the folder, the threats read then, and the first line said.
        QTest::addColumn<QString>("command");
        QTest::addColumn<QStringList>("restored");
        QTest::addColumn<QString>("said");
        const QString unused = "threats are not being kept: .*/";
        const QString untouched = "; it is neither read nor written";
        // clang-format off
        QTest::newRow("torn") << "printf 'A 4 0 torn' >> vorn-defender/journal" << QStringList{"a", "b", "c"} << "skipped a torn last record of 10 bytes";
        QTest::newRow("garbled") << "sed -i 's/A 2 0 b/A 2 0 B/' vorn-defender/journal" << QStringList{"a"} << "the record at byte 16 is not valid; the 31 bytes from there on are ignored";
        QTest::newRow("junk") << "head -c 99999 /dev/zero >> vorn-defender/journal && sed -i 1s/^/x/ vorn-defender/journal" << QStringList{} << "the record at byte 0 is not valid; the 100047 bytes from there on are ignored";
        QTest::newRow("group-writable") << "chmod 0620 vorn-defender/journal" << QStringList{} << unused + "vorn-defender/journal is writable by group or others" + untouched;
        QTest::newRow("open folder") << "chmod 0777 vorn-defender" << QStringList{} << unused + "vorn-defender is writable by group or others" + untouched;
        QTest::newRow("stranger's") << "chown 4242 vorn-defender/journal" << QStringList{} << unused + "vorn-defender/journal is not owned by this user" + untouched;
        QTest::newRow("link") << "cd vorn-defender && mv journal j && ln -s j journal" << QStringList{} << unused + "vorn-defender/journal: Too many levels of symbolic links";
        QTest::newRow("not a folder") << "rm -r vorn-defender && touch vorn-defender" << QStringList{} << unused + "vorn-defender is not a folder";
        QTest::newRow("folder cannot be made") << "p=$PWD && rm -r \"$p\" && touch \"$p\"" << QStringList{} << unused + "vorn-defender: Not a directory";
        // clang-format on
    }
    void journalAsFoundAtStart()
    {
        QFETCH(QString, command);
        QFETCH(QStringList, restored);
        QFETCH(QString, said);
        if (command.startsWith("chown") && geteuid() != 0)
            QSKIP("only root can give a file away");
        {
            CThreatJournal journal(m_dir);
            for (const char *name : {"a", "b", "c"})
                journal.add({name, "", "/", false});
        }
        const QByteArray before = bytes();
        QCOMPARE(QProcess::execute("sh", {"-c", "cd \"$0\" && " + command, QFileInfo(m_dir).path()}), 0);
        QString text;
        QCOMPARE(reopen(&text), restored.replaceInStrings(QRegularExpression("$"), "||/|0"));
        QVERIFY2(QRegularExpression("^threat journal: " + said + '\n').match(text).hasMatch(),
                 qPrintable(text));
        if (said.startsWith("threats are not being kept")) {
            // What cannot be used safely is left as it was.
            QVERIFY(command.contains("rm") || bytes() == before);
        } else {
            // What was valid is read again at the next start, and nothing more is said about the rest.
            QCOMPARE(reopen(&text), restored);
            QCOMPARE(text.count('\n'), 1);
        }
    }

    void largeJournalIsReadWholeAndLeftAsItIs()
    {
        // 68 MB of undecided threats with 4 KB paths.
        QVERIFY(QDir().mkpath(m_dir));
        QFile file(m_path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        const int count = 17000;
        for (int i = 1; i <= count; ++i)
            file.write(CThreatJournal::threatRecord(i, {QString::number(i), "", QString(4000, 'p'), false}));
        file.close();
        const QStringList restored = reopen();
        QCOMPARE(restored.size(), count);
        QCOMPARE(restored.last(), "17000||" + QString(4000, 'p') + "|0");
        QCOMPARE(QFileInfo(m_path).size(), file.size());
    }

    void fullDiskIsSaidOnceAndLosesNothingWritten()
    {
        {
            CThreatJournal journal(m_dir);
            StdoutCapture out;
            // Files may grow to 4 KiB: the fifth record of 1 KiB does not fit.
            std::signal(SIGXFSZ, SIG_IGN);
            rlimit saved{};
            getrlimit(RLIMIT_FSIZE, &saved);
            const rlimit limit{4096, saved.rlim_max};
            setrlimit(RLIMIT_FSIZE, &limit);
            for (int i = 0; i < 8; ++i)
                journal.add({QString::number(i), "", QString(1000, 'p'), false});
            journal.remove({"1", "", QString(1000, 'p'), false});
            setrlimit(RLIMIT_FSIZE, &saved);
            QCOMPARE(out.text(),
                     QStringLiteral("threat journal: threats are not being kept: No space left on device\n"));
        }
        QString text;
        QCOMPARE(reopen(&text).replaceInStrings(QRegularExpression("\\|.*"), ""),
                 (QStringList{"0", "1", "2", "3"}));
        QCOMPARE(text.count('\n'), 1);
    }

    // The fuzzer's seeds and every input that once broke a promise. The seeds are journals the
    // agent built with Qt 5 wrote: whichever Qt the suite runs on writes each undecided record of
    // them byte for byte again, so the Qt 5 and Qt 6 agents share a journal.
    void promisesHoldForTheFuzzCorpus_data()
    {
        QTest::addColumn<QString>("file");
        for (const char *folder : {"/corpus", "/regressions"})
            for (const QFileInfo &file : QDir(VORN_FUZZ_DIR + QString(folder)).entryInfoList(QDir::Files))
                QTest::newRow(qPrintable(file.fileName())) << file.filePath();
    }
    void promisesHoldForTheFuzzCorpus()
    {
        QFETCH(QString, file);
        QFile journal(file);
        QVERIFY(journal.open(QIODevice::ReadOnly));
        const QByteArray bytes = journal.readAll();
        QCOMPARE(brokenJournalPromise(bytes), QString());
        const CThreatJournal::Contents read = CThreatJournal::parse(bytes, bytes.size());
        for (size_t i = 0; file.contains("/corpus/") && i < read.records.size(); ++i)
            QCOMPARE(CThreatJournal::threatRecord(read.records[i].number, read.threats.at(int(i))),
                     bytes.mid(int(read.records[i].offset), int(read.records[i].length)));
    }

    void compactionFollowsTheUndecided()
    {
        const int count = 10000;
        {
            CThreatJournal journal(m_dir);
            for (int i = 0; i < count; ++i)
                journal.add({QString::number(i), "", "/", false});
            for (int i = 0; i < count - 3; ++i)
                journal.remove({QString::number(i), "", "/", false});
            QVERIFY2(journal.size() < 64 * 1024 * 2, qPrintable(QString::number(journal.size())));
        }
        QCOMPARE(reopen(), (QStringList{"9997||/|0", "9998||/|0", "9999||/|0"}));
        CThreatJournal journal(m_dir);
        for (const SVirusInfo &threat : journal.takeRestored())
            journal.remove(threat);
        QCOMPARE(QFileInfo(m_path).size(), 0);
        QVERIFY(!QFileInfo::exists(m_path + ".new"));
    }
};

QTEST_GUILESS_MAIN(TestJournal)
#include "tst_journal.moc"
