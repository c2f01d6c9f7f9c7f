// The elided widgets and the authorization dialog: eliding to the pixel, every way out of the dialog
// with its events and daemon calls, its fixed look, and a screenshot for people to check.
#include "cauthdialog.h"
#include "fixbutton.h"
#include "fixlabel.h"
#include "harness.h"

#include <QLayout>
#include <QPointer>
#include <QScreen>
#include <QTextDocument>

// What ends the dialog, a daemon fault -> events, daemon calls, message box.
using WayOut = std::tuple<QString, QString, QStringList, QStringList, QString>;
Q_DECLARE_METATYPE(WayOut)

class TestAuthDialog : public QObject
{
    Q_OBJECT

private:
    BridgeTest m_test;

    template <typename Widget = QPushButton> static Widget *part(QWidget *dialog, const QString &name)
    {
        return dialog->findChildren<Widget *>(QRegularExpression("_" + name + "_")).value(0);
    }
    static QPointer<CAuthDialog> open(const QString &name, const QString &path)
    {
        auto *dialog = new CAuthDialog(SVirusInfo{name, "detail", path, true});
        dialog->show();
        return dialog;
    }
    // A widget that cuts a text to its width less an allowance, at every width up to the text's
    // own: cut to the pixel with the whole text as tool tip, whole once it fits; a caller's tool tip
    // survives without its own.
    template <typename Widget> static void elides(Widget &widget, const QString &text, int allowance)
    {
        const QFontMetrics metrics(widget.font());
        const int whole = metrics.horizontalAdvance(text);
        QStringList shown, expected;
        widget.setText(text);
        for (int width = whole - 40; width <= whole; ++width) {
            widget.setFixedWidth(width);
            widget.grab();
            shown << widget.text() + '|' + widget.toolTip();
            expected << (width < whole
                             ? metrics.elidedText(text, Qt::ElideRight, width - allowance) + '|' + text
                             : text + '|');
        }
        QCOMPARE(shown, expected);
        widget.setToolTip("mine");
        widget.setShowToolTip(false);
        widget.setFixedWidth(whole - 1);
        widget.grab();
        QCOMPARE(widget.toolTip(), "mine");
    }

private slots:
    void initTestCase() { QVERIFY(m_test.start()); }
    void init() { m_test.reset(); }

    void looksAsItShould()
    {
        FixLabel label;
        FixButton button;
        elides(label, "File:/home/user/Downloads/a rather long file name.exe", 0);
        elides(button, "Immediate processing(5)", 25); // room for the button's frame

        // The path and the name come from outside: shown as plain text, and cut when long.
        const QString path = "/home/u/" + QString("very-long-directory-name/").repeated(20) + "x.exe",
                      name = "<b>Bold</b><br><img src=\"/etc/x.png\">" + QString(" Trojan").repeated(60);
        QPointer<CAuthDialog> dialog = open(name, path);
        QVERIFY(QTest::qWaitForWindowExposed(dialog.data()));
        // Centred on the desktop, as no window of the agent is active; each part named, with its
        // least size and its whole text: a cut text's tool tip as a person reads it, markup from
        // outside still text. Margins 24 at the sides and bottom, 16 above; an 18-pixel bold title.
        const QRect desktop = QGuiApplication::primaryScreen()->virtualGeometry();
        const QString program = QFileInfo(QCoreApplication::arguments().first()).fileName();
        QStringList look{dialog->windowTitle(), QStringLiteral("%1x%2+%3+%4")
                                                    .arg(dialog->maximumWidth())
                                                    .arg(dialog->minimumHeight())
                                                    .arg(dialog->x() - (desktop.width() - 424) / 2)
                                                    .arg(dialog->y() - (desktop.height() - 197) / 2)};
        for (QWidget *child : dialog->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly)) {
            QTextDocument tip;
            tip.setHtml(child->toolTip());
            look << QStringLiteral("%1 %2x%3 %4")
                        .arg(child->objectName().remove(program + "_CAuthDialog_").remove("_vorn-virus-scan"))
                        .arg(child->minimumWidth())
                        .arg(child->minimumHeight())
                        .arg(child->toolTip().isEmpty() ? child->property("text").toString()
                                                        : tip.toPlainText().simplified());
        }
        // clang-format off
        QCOMPARE(look, (QStringList{"Tarsel security authorization certification", "424x197+0+0",
                                    "QLabel_pTitleName 0x0 Discover virus threat",
                                    "FixLabel_pFileName 0x0 File:" + path,
                                    "FixLabel_pVirusName 0x0 Viruses:" + name,
                                    "QPushButton_pTrustBtn 96x36 trust",
                                    "FixButton_m_pNoDealBtn 96x36 Not for the time being",
                                    "FixButton_m_pDealBtn 132x36 Immediate processing(5)"}));
        // clang-format on
        // The name is cut, so its whole text, as tool tip, is in the look.
        QVERIFY(part<FixLabel>(dialog, "pVirusName")->text().endsWith(QChar(0x2026)));
        QCOMPARE(dialog->layout()->contentsMargins(), QMargins(24, 16, 24, 24));
        const QFont title = part<QLabel>(dialog, "pTitleName")->font();
        QCOMPARE(QStringLiteral("%1px %2").arg(title.pixelSize()).arg(title.weight()),
                 QStringLiteral("18px %1").arg(QFont::Bold));
        QCOMPARE(part<FixLabel>(dialog, "pFileName")->textFormat() +
                     part<FixLabel>(dialog, "pVirusName")->textFormat(),
                 2 * Qt::PlainText);

        // For people: the dialog as it looks, in the build tree.
        QVERIFY(dialog->grab().save(QDir::current().filePath("authdialog.png")));
        dialog->close();
        QTRY_VERIFY(dialog.isNull());
    }

    void waysOut_data()
    {
        const QString quarantine = R"(add_quarantineFile a(ss) [[["/h/way","EICAR"]]])",
                      trust = R"(add_trustFile as [["/h/way"]])";
        // What ends the dialog (a button, the window closed, five ticks by hand, the countdown left
        // alone), a daemon fault -> events, daemon calls, message box. The countdown left alone comes
        // last: the timers the dialogs before it abandoned (never freed) tick meanwhile, and no tick
        // of theirs may reach anything.
        QTest::addColumn<WayOut>("row");
        // clang-format off
        QTest::newRow("not now") << WayOut{"m_pNoDealBtn", "", {"ok:CAuthDialog: Click not to process"}, {}, ""};
        QTest::newRow("deal") << WayOut{"m_pDealBtn", "", {"ok:CAuthDialog: Click deal right now", "$1,0", "$1,0"}, {quarantine}, ""};
        QTest::newRow("deal returns 1") << WayOut{"m_pDealBtn", "d:add_quarantineFile=1", {"ok:CAuthDialog: Click deal right now", "$0,1", "$0,1"}, {quarantine}, ""};
        QTest::newRow("trust") << WayOut{"pTrustBtn", "", {"ok:CAuthDialog: Click trust", "+/h/way Successfully", "+/h/way Successfully"}, {trust}, ""};
        QTest::newRow("trust refused") << WayOut{"pTrustBtn", "d:add_trustFile=1", {"ok:CAuthDialog: Click trust", "+/h/way failed", "+/h/way failed"}, {trust}, "Failed to add to trust zone"};
        QTest::newRow("window closed") << WayOut{"close", "", {}, {}, ""};
        QTest::newRow("five ticks") << WayOut{"ticks", "", {"ok:CAuthDialog: countdown completed (5S)", "$1,0", "$1,0"}, {quarantine}, ""};
        QTest::newRow("countdown alone") << WayOut{"alone", "", {"ok:CAuthDialog: countdown completed (5S)", "$1,0", "$1,0"}, {quarantine}, ""};
        // clang-format on
    }
    void waysOut()
    {
        QFETCH(WayOut, row);
        const auto &[action, fault, expectedEvents, expectedCalls, modal] = row;
        // A path of its own: the stand-in daemon refuses to quarantine a file twice.
        static int rows = 0;
        const QString path = QStringLiteral("/h/way%1").arg(++rows);
        QStringList events;
        for (const QString &event : expectedEvents)
            events << expand(QString(event).replace("/h/way", path));
        m_test.fault(fault);
        QElapsedTimer clock;
        clock.start();
        QPointer<CAuthDialog> dialog = open("EICAR", path);
        ModalCloser closer;
        QStringList shown{part(dialog, "m_pDealBtn")->text()};
        for (int tick = 0; action == "ticks" && tick < 5; ++tick) {
            dialog->onTimeOut();
            shown << part(dialog, "m_pDealBtn")->text().mid(20);
        }
        if (action == "ticks")
            QCOMPARE(shown.join(' '), QStringLiteral("Immediate processing(5) (4) (3) (2) (1) (0)"));
        else if (action == "close")
            dialog->close();
        else if (action != "alone")
            part(dialog, action)->click();
        QTRY_VERIFY_WITH_TIMEOUT(dialog.isNull(), 30000);
        // Five ticks of a coarse timer, which Qt may fire up to 5% early.
        QVERIFY(action != "alone" || clock.elapsed() >= 4750);
        QVERIFY2(m_test.log.summary() == events, qPrintable(action + ": " + m_test.log.summary().join('\n')));
        QCOMPARE(m_test.daemon.calls(), QStringList(expectedCalls).replaceInStrings("/h/way", path));
        QCOMPARE(closer.seen.value(0).value(4), modal);
    }
};

QTEST_MAIN(TestAuthDialog)
#include "tst_authdialog.moc"
