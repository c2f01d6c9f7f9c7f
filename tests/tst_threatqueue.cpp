// The threat queue's rules, without a bus: what it queues on the dialog thread, what it asks its
// host to show, which boxes it keeps and what its journal forgets.
#include "cthreatjournal.h"
#include "cthreatqueue.h"
#include "journalpromises.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {

// The threats in the journal at start, the steps, and what they led to. A threat X is named X at
// the path /X. Steps: up / down (the risk-box service is there or not), ok / fail (whether the
// host can show a box), elsewhere:X (the daemon has quarantined or trusted /X), open (the journal
// is opened; every row opens it), restore (the bus says the service is there), a:X (announced), out:X (handed
// out by the dialog thread and shown by the host), box:ID:X@O and notice:ID@O (a threat box and a notice
// drawn by the service instance O), owner:O>P (the name changed hands), answer:ID (carried out and
// done), left:ID (carried out, not done), keep:ID (could not be carried out).
// Outcome: the threats queued on the dialog thread, those shown by the host (? when it failed),
// the boxes kept (! once answered), the answers to unknown boxes, the journal's threats.
struct Rule
{
    const char *journal, *steps, *outcome;
};

SVirusInfo threat(const QString &name)
{
    return SVirusInfo{name, QString(), '/' + name, false};
}

} // namespace

Q_DECLARE_METATYPE(Rule)

class TestThreatQueue : public QObject
{
    Q_OBJECT

private slots:
    void rules_data()
    {
        QTest::addColumn<Rule>("rule");
        // clang-format off
        QTest::newRow("announced, in order") << Rule{"", "open a:A a:B", "queued A,B | shown  | boxes  | unknown  | journal "};
        QTest::newRow("restored, service there") << Rule{"R,S", "up open a:A", "queued R,S,A | shown  | boxes  | unknown  | journal R,S"};
        QTest::newRow("restored, handled elsewhere") << Rule{"R,S", "up elsewhere:S open", "queued R | shown  | boxes  | unknown  | journal R"};
        QTest::newRow("restored wait for the service") << Rule{"R", "down open a:A", "queued A | shown  | boxes  | unknown  | journal R"};
        QTest::newRow("restored, the bus says it is there") << Rule{"R", "down open restore", "queued R | shown  | boxes  | unknown  | journal R"};
        QTest::newRow("restored, after a shown box") << Rule{"R", "down open ok out:A", "queued R | shown A | boxes  | unknown  | journal R"};
        QTest::newRow("restored, when the service comes") << Rule{"R", "down open owner:>p", "queued R | shown  | boxes  | unknown  | journal R"};
        QTest::newRow("failed while away, shown when it comes") << Rule{"", "open down fail out:A out:B up ok owner:>p", "queued B | shown A?,B?,A | boxes  | unknown  | journal "};
        QTest::newRow("failed while away, still away") << Rule{"", "open down fail out:A owner:>p", "queued  | shown A?,A? | boxes  | unknown  | journal "};
        QTest::newRow("failed while there, holds the queue") << Rule{"", "open up fail out:A ok owner:>p", "queued  | shown A? | boxes  | unknown  | journal "};
        QTest::newRow("failed while away, a shown box sends it on") << Rule{"", "open down fail out:A up ok out:B", "queued A | shown A?,B | boxes  | unknown  | journal "};
        QTest::newRow("box gone with its service") << Rule{"", "open box:1:A@o notice:2@o owner:o> answer:1 answer:2", "queued  | shown  | boxes 1:A@o,2:@o | unknown 1,2 | journal "};
        QTest::newRow("box gone, shown again") << Rule{"", "open box:1:A@o box:2:B@o answer:2 owner:o>p", "queued A | shown  | boxes 1:A@o | unknown  | journal "};
        QTest::newRow("box gone while waiting, shown first") << Rule{"", "open up fail out:C box:1:A@o ok owner:o>p", "queued  | shown C?,A | boxes 1:A@o | unknown  | journal "};
        QTest::newRow("an answered box is not shown again") << Rule{"", "open box:1:A@o keep:1 owner:o>p", "queued  | shown  | boxes 1:A@o! | unknown  | journal "};
        QTest::newRow("a new instance's box: the old one went") << Rule{"", "open box:1:A@o box:2:B@p answer:1 owner:o>p", "queued A | shown  | boxes 1:A@o,2:B@p | unknown 1 | journal "};
        QTest::newRow("done forgets") << Rule{"R,S", "up open box:1:R@o box:2:S@o answer:1 left:2", "queued R,S | shown  | boxes  | unknown  | journal S"};
        QTest::newRow("not carried out keeps") << Rule{"R", "up open box:1:R@o keep:1 keep:1", "queued R | shown  | boxes 1:R@o! | unknown  | journal R"};
        // clang-format on
    }
    void rules()
    {
        QFETCH(Rule, rule);
        QTemporaryDir directory;
        {
            CThreatJournal journal(directory.path());
            for (const QString &name : QString(rule.journal).split(',', Qt::SkipEmptyParts))
                journal.add(threat(name));
            QVERIFY(journal.flush());
        }
        bool up = true, ok = true;
        QSet<QString> handled;
        QStringList shown, unknown;
        CThreatQueue *queue = nullptr;
        const auto show = [&](const SVirusInfo &info) {
            shown << info.virusName + (ok ? "" : "?");
            if (ok)
                queue->threatShown();
            return ok ? 0 : -1;
        };
        CThreatQueue threats({show, [&] { return handled; }, [&] { return up; }});
        queue = &threats;

        for (const QString &step : QString(rule.steps).split(' ')) {
            const QString verb = step.section(':', 0, 0), what = step.section(':', 1);
            const int id = what.section(':', 0, 0).section('@', 0, 0).toInt();
            const QString name = what.section(':', 1).section('@', 0, 0), owner = what.section('@', 1);
            if (verb == "up" || verb == "down")
                up = verb == "up";
            else if (verb == "ok" || verb == "fail")
                ok = verb == "ok";
            else if (verb == "elsewhere")
                handled << '/' + what;
            else if (verb == "open")
                threats.openJournal(directory.path());
            else if (verb == "restore")
                threats.restore({}, true);
            else if (verb == "a")
                threats.announced(threat(what));
            else if (verb == "out")
                threats.handedOut(threat(what), show(threat(what)) >= 0);
            else if (verb == "box" || verb == "notice")
                threats.boxDrawn(id,
                                 {verb == "box" ? BoxKind::ThreatFound : BoxKind::QuarantinedNotice, name,
                                  QString(), '/' + name, false, QString(), false},
                                 owner);
            else if (verb == "owner")
                threats.ownerChanged(what.section('>', 0, 0), what.section('>', 1));
            else if (const SVirusBoxInfo *found = threats.find(id))
                threats.answered(id, *found, verb != "keep", verb == "answer");
            else
                unknown << QString::number(id);
            QCoreApplication::processEvents();
        }

        // The journal writes what it forgets in two queued steps, and each step above ran one round
        // of events: one more, and the file holds all of it.
        QCoreApplication::processEvents();
        const auto outcome = [&] {
            QStringList queued, boxes, journal;
            for (const SVirusInfo &info : threats.queued())
                queued << info.virusName;
            const QMap<int, SVirusBoxInfo> open = threats.openBoxes();
            for (auto box = open.cbegin(); box != open.cend(); ++box)
                boxes << QStringLiteral("%1:%2@%3%4")
                             .arg(box.key())
                             .arg(box->virusName, box->owner, box->answered ? "!" : "");
            for (const QString &text : undecidedIn(directory.path()))
                journal << text.section('|', 0, 0);
            return QStringLiteral("queued %1 | shown %2 | boxes %3 | unknown %4 | journal %5")
                .arg(queued.join(','), shown.join(','), boxes.join(','), unknown.join(','),
                     journal.join(','));
        };
        QCOMPARE(outcome(), QString(rule.outcome));
    }
};

QTEST_GUILESS_MAIN(TestThreatQueue)
#include "tst_threatqueue.moc"
