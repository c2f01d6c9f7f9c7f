// The journal of undecided threats: what a restart gets back (in order, byte for byte, around
// damaged records), what it refuses to read, a failing disk, a second agent and another machine,
// a termination signal, compaction.
#include "harness.h"

#include "cthreatjournal.h"
#include "journalpromises.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>

#include "cthreatjournalwriter.h"

class TestJournal : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_home;
    QString m_dir, m_path;
    const QString m_slot = "/journal2-" + QSysInfo::machineUniqueId() + "-";

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
    QByteArray bytes(const QString &path = QString()) const
    {
        QFile file(path.isEmpty() ? m_path : path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)");
    }

private slots:
    void init()
    {
        static int run = 0;
        m_dir = m_home.filePath(QString::number(++run)) + "/vorn-defender";
        m_path = m_dir + m_slot + "1";
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
        QVERIFY(journal.flush() && bytes().endsWith('\n' + CThreatJournal::decisionRecord(4)));
    }

    void agentsOfOneHomeEachKeepTheirOwn()
    {
        // Two agents of this machine hear X and Y, the second also Z, and the second decides Y; an
        // agent of another machine hears E. Each writes at once. The first ends: the second takes
        // its journal over and restores nothing. E stays with its machine, and 1.1.0's journal is
        // taken over too, each threat once.
        auto *first = new CThreatJournal(m_dir);
        CThreatJournal second(m_dir);
        CThreatJournal(m_dir, "elsewhere").add({"E", "", "/", false});
        QVERIFY(second.othersRunning() && !second.takeOver());
        for (const char *name : {"X", "Y"})
            first->add({name, "", "/", false});
        for (const char *name : {"X", "Y", "Z"})
            second.add({name, "", "/", false});
        second.remove({"Y", "", "/", false});
        QVERIFY(first->flush() && second.flush());
        QCOMPARE(
            threatTexts(CThreatJournal::parse(bytes(second.path()), bytes(second.path()).size()).threats),
            (QStringList{"X||/|0", "Z||/|0"}));
        delete first;
        QVERIFY(second.takeOver() && !second.othersRunning() && !QFile::exists(m_path));
        QCOMPARE(threatTexts(second.takeRestored()), QStringList());
        QFile legacy(m_dir + "/journal");
        QVERIFY(legacy.open(QIODevice::WriteOnly));
        legacy.write(CThreatJournal::threatRecord(7, {"Z", "", "/", false}) +
                     CThreatJournal::threatRecord(8, {"V", "", "/", false}));
        legacy.close();
        QVERIFY(second.takeOver() && !legacy.exists());
        QCOMPARE(threatTexts(second.takeRestored()), QStringList{"V||/|0"});
        QCOMPARE(threatTexts(CThreatJournal(m_dir, "elsewhere").takeRestored()), QStringList{"E||/|0"});
    }

    void terminationSignalWritesWhatIsQueued()
    {
        // A child holds the journal's thread busy, queues three threats to it and is sent SIGTERM:
        // it writes the three, then ends by the signal.
        if (qEnvironmentVariableIsSet("VORN_DRAIN_CHILD")) {
            registerDaemonMetaTypes();
            CThreatJournalWriter writer(qEnvironmentVariable("VORN_DRAIN_CHILD"));
            writer.start(QDBusConnection::systemBus(), "none", "/", "none");
            QSemaphore busy;
            QMetaObject::invokeMethod(&writer, [&busy] { busy.acquire(); });
            for (const char *name : {"a", "b", "c"})
                QMetaObject::invokeMethod(&writer, "add",
                                          Q_ARG(SVirusInfo, SVirusInfo({name, "", "/", false})));
            ::kill(getpid(), SIGTERM);
            busy.release();
            QTest::qWait(10000);
            return;
        }
        QProcess child;
        qputenv("VORN_DRAIN_CHILD", m_dir.toUtf8());
        child.start(QCoreApplication::applicationFilePath(), {"terminationSignalWritesWhatIsQueued"});
        qunsetenv("VORN_DRAIN_CHILD");
        QVERIFY(child.waitForFinished());
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        QCOMPARE(reopen(), (QStringList{"a||/|0", "b||/|0", "c||/|0"}));
    }

    void journalAsFoundAtStart_data()
    {
        // A shell command run in the folder, the threats read then, and the first line said.
        QTest::addColumn<QString>("command");
        QTest::addColumn<QStringList>("restored");
        QTest::addColumn<QString>("said");
        const QString unused = "threats are not being kept: .*/",
                      untouched = "; it is neither read nor written";
        const QString aside = " in .*; its bytes are set aside in .*/damaged";
        // clang-format off
        QTest::newRow("torn") << "printf 'A 4 0 torn' >> $J" << QStringList{"a", "b", "c"} << "skipped a torn last record of 10 bytes" + aside;
        QTest::newRow("garbled") << "sed -i 's/A 2 0 b/A 2 0 B/' $J" << QStringList{"a", "c"} << "the record at byte 16 is not valid" + aside;
        QTest::newRow("line break lost") << "perl -0pi -e 's/\\n/ /' $J" << QStringList{"b", "c"} << "the record at byte 0 is not valid" + aside;
        QTest::newRow("junk") << "head -c 99999 /dev/zero >> $J && sed -i 1s/^/x/ $J" << QStringList{"a", "b", "c"} << "2 records are not valid, the first at byte 0" + aside;
        QTest::newRow("too much junk") << "head -c 2000000 /dev/zero | tr '\\0' x >> $J && echo >> $J" << QStringList{"a", "b", "c"} << "the record at byte \\d+ is not valid in .*; 2000001 of its bytes could not be set aside in .*/damaged and are dropped";
        QTest::newRow("later version") << "touch journal3-x-1" << QStringList{"a", "b", "c"} << ".*/journal3-x-1 is a journal of another version of the agent; it is left as it is";
        QTest::newRow("group-writable") << "chmod 0620 $J" << QStringList{} << ".*journal2-.*-1 is writable by group or others" + untouched;
        QTest::newRow("stranger's") << "chown 4242 $J" << QStringList{} << ".*journal2-.*-1 is not owned by this user" + untouched;
        QTest::newRow("open folder") << "chmod 0777 ." << QStringList{} << unused + "vorn-defender is writable by group or others" + untouched;
        QTest::newRow("link") << "mv $J j && ln -s j $J" << QStringList{} << unused + "journal2-.*-1: Too many levels of symbolic links";
        QTest::newRow("not a folder") << "cd .. && rm -r vorn-defender && touch vorn-defender" << QStringList{} << unused + "vorn-defender is not a folder";
        QTest::newRow("folder cannot be made") << "cd .. && p=$PWD && rm -r \"$p\" && touch \"$p\"" << QStringList{} << unused + "vorn-defender: Not a directory";
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
        QCOMPARE(QProcess::execute(
                     "sh", {"-c", "cd \"$0\" && J=" + m_path.section('/', -1) + " && " + command, m_dir}),
                 0);
        QString text;
        QCOMPARE(reopen(&text), restored.replaceInStrings(QRegularExpression("$"), "||/|0"));
        QVERIFY2(QRegularExpression("^threat journal: " + said + '\n').match(text).hasMatch(),
                 qPrintable(text));
        if (said.contains("neither") || said.contains("left as it is")) {
            // What cannot be used safely is left as it was.
            QVERIFY(command.contains("rm") || bytes() == before);
        } else {
            // What was valid is read again at the next start, and nothing more is said about the rest.
            QCOMPARE(reopen(&text), restored);
            QCOMPARE(text.count('\n'), 1);
            QCOMPARE(QFileInfo(m_dir + "/damaged").size() > 0, said.contains("are set aside"));
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

    void writingResumesOnceTheDiskHasRoom()
    {
        // Files may grow to 4 KiB: the fifth record of 1 KiB does not fit, nor any after it, until
        // the limit is lifted. Nothing torn is left meanwhile, nothing is lost, and both are said.
        StdoutCapture out;
        CThreatJournal journal(m_dir);
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit saved{};
        getrlimit(RLIMIT_FSIZE, &saved);
        const rlimit limit{4096, saved.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        for (int i = 0; i < 8; ++i) {
            journal.add({QString::number(i), "", QString(1000, 'p'), false});
            journal.flush();
        }
        journal.remove({"1", "", QString(1000, 'p'), false});
        QVERIFY(!journal.flush() && journal.writeFailing());
        const CThreatJournal::Contents written = CThreatJournal::parse(bytes(), bytes().size());
        QVERIFY(written.damage.empty() && written.threats.size() == 4);
        setrlimit(RLIMIT_FSIZE, &saved);
        QVERIFY(journal.flush() && !journal.writeFailing());
        QCOMPARE(out.text().remove(m_path),
                 "threat journal: restored 0 undecided threats from \n"
                 "threat journal: cannot write to : No space left on device; what is not written is kept in "
                 "memory and written once writing works again\n"
                 "threat journal: writing to  works again; nothing waits in memory\n");
        QCOMPARE(threatTexts(CThreatJournal::parse(bytes(), bytes().size()).threats)
                     .replaceInStrings(QRegularExpression("\\|.*"), ""),
                 (QStringList{"0", "2", "3", "4", "5", "6", "7"}));
    }

    void aFailedWriteIsTriedAgainOnItsOwn()
    {
        // No file may grow: the threat's write fails. Once files may grow again, it is written
        // with nothing else announced.
        registerDaemonMetaTypes();
        CThreatJournalWriter writer(m_dir);
        writer.start(QDBusConnection::systemBus(), "none", "/", "none");
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit saved{};
        getrlimit(RLIMIT_FSIZE, &saved);
        const rlimit limit{0, saved.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        QMetaObject::invokeMethod(&writer, "add", Q_ARG(SVirusInfo, SVirusInfo({"a", "", "/", false})));
        // Two calls behind it: the add, then the write it asked for, have been done.
        for (int i = 0; i < 2; ++i)
            QMetaObject::invokeMethod(
                &writer, [] {}, Qt::BlockingQueuedConnection);
        setrlimit(RLIMIT_FSIZE, &saved);
        QCOMPARE(bytes(), QByteArray());
        QTRY_COMPARE_WITH_TIMEOUT(threatTexts(CThreatJournal::parse(bytes(), bytes().size()).threats),
                                  QStringList{"a||/|0"}, 10000);
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
            for (int i = 0; i < count - 3; ++i) {
                journal.remove({QString::number(i), "", "/", false});
                journal.flush();
            }
            QVERIFY2(journal.size() < 64 * 1024 * 2, qPrintable(QString::number(journal.size())));
        }
        QCOMPARE(reopen(), (QStringList{"9997||/|0", "9998||/|0", "9999||/|0"}));
        CThreatJournal journal(m_dir);
        for (const SVirusInfo &threat : journal.takeRestored())
            journal.remove(threat);
        QVERIFY(journal.flush() && journal.syncs() == 0);
        QCOMPARE(QFileInfo(m_path).size(), 0);
        QVERIFY(!QFileInfo::exists(m_path + ".new"));
    }
};

QTEST_GUILESS_MAIN(TestJournal)
#include "tst_journal.moc"
