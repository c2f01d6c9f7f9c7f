// The elided widgets and the authorization dialog: eliding and tool tips, every way out of the
// dialog with its events and daemon calls, its fixed look, and a screenshot for people to check.
#include "bridgetest.h"
#include "cauthdialog.h"
#include "fixbutton.h"
#include "fixlabel.h"
#include "modalcloser.h"

#include <QPointer>
#include <QSignalSpy>
#include <QTextDocument>
#include <QToolButton>

class TestAuthDialog : public QObject
{
    Q_OBJECT

private:
    BridgeTest m_test;

    template <typename Widget> static Widget *part(QWidget *dialog, const char *objectName)
    {
        return dialog
            ->findChildren<Widget *>(
                QRegularExpression(QStringLiteral("_%1_").arg(QLatin1String(objectName))))
            .value(0);
    }

    QPointer<CAuthDialog> showDialog(const QString &name, const QString &path)
    {
        auto *dialog = new CAuthDialog(SVirusInfo{name, "detail", path, true});
        dialog->show();
        return dialog;
    }

    static QString coded(const char *message)
    {
        return QLatin1String(message) + QStringLiteral("|operation successful|3");
    }

private slots:
    void initTestCase() { QVERIFY(m_test.start()); }
    void init() { m_test.peers.reset(); }

    void labelElides()
    {
        FixLabel label;
        const QString text = QStringLiteral("File:/home/user/Downloads/a rather long file name.exe");
        const int whole = QFontMetrics(label.font()).horizontalAdvance(text);
        label.setText(text);
        label.setFixedWidth(whole);
        label.grab();
        QCOMPARE(label.text(), text); // exactly as wide fits
        QVERIFY(label.toolTip().isEmpty());

        label.setFixedWidth(whole - 1);
        label.grab();
        QCOMPARE(label.text(), QFontMetrics(label.font()).elidedText(text, Qt::ElideRight, whole - 1));
        QVERIFY(label.text() != text);
        QCOMPARE(label.toolTip(), text);
        QCOMPARE(label.fullText(), text);

        label.setFixedWidth(whole + 40);
        label.grab();
        QCOMPARE(label.text(), text);
        QVERIFY(label.toolTip().isEmpty());

        // Without its own tool tip handling, the caller's tool tip survives painting.
        label.setToolTip(QStringLiteral("mine"));
        label.setShowToolTip(false);
        label.setFixedWidth(whole / 2);
        label.grab();
        QCOMPARE(label.toolTip(), QStringLiteral("mine"));

        // Text set through the base setter is fitted, but the next paint takes the elided form as
        // the whole text and clears the tool tip again.
        FixLabel base;
        static_cast<QLabel &>(base).setText(text);
        base.setFixedWidth(whole / 2);
        base.grab();
        QVERIFY(base.text().endsWith(QChar(0x2026)));
        QCOMPARE(base.toolTip(), text);
        base.grab();
        QVERIFY(base.toolTip().isEmpty());
        QVERIFY(base.fullText().isEmpty());

        // Markup in a cut text is shown as text in the tool tip too.
        FixLabel hostile;
        hostile.setText(QStringLiteral("<b>bold</b><img src=\"/etc/x.png\"> and more and more and more"));
        hostile.setFixedWidth(40);
        hostile.grab();
        QTextDocument tip;
        tip.setHtml(hostile.toolTip());
        QCOMPARE(tip.toPlainText().simplified(), hostile.fullText());
    }

    void buttonElidesWithFrameAllowance()
    {
        FixButton button;
        const QString text = QStringLiteral("Immediate processing(5)");
        const QFontMetrics metrics(button.font());
        const int whole = metrics.horizontalAdvance(text);
        button.setText(text);
        button.setFixedWidth(whole);
        button.grab();
        QCOMPARE(button.text(), text);
        QVERIFY(button.toolTip().isEmpty());

        // One pixel too wide: cut to fit 25 pixels less than the button.
        button.setFixedWidth(whole - 1);
        button.grab();
        QCOMPARE(button.text(), metrics.elidedText(text, Qt::ElideRight, whole - 26));
        QVERIFY(metrics.horizontalAdvance(button.text()) <= whole - 26);
        QCOMPARE(button.toolTip(), text);

        button.setToolTip(QStringLiteral("kept"));
        button.setShowToolTip(false);
        button.grab();
        QCOMPARE(button.toolTip(), QStringLiteral("kept"));
    }

    void looksAsSpecifiedAndIsNamed()
    {
        QPointer<CAuthDialog> dialog = showDialog("EICAR", "/home/u/eicar.com");
        QVERIFY(QTest::qWaitForWindowExposed(dialog.data()));
        QCOMPARE(dialog->size(), QSize(424, 197));
        QCOMPARE(dialog->minimumSize(), dialog->maximumSize());
        QCOMPARE(dialog->windowTitle(), QStringLiteral("Tarsel security authorization certification"));

        const QString program = QFileInfo(QCoreApplication::arguments().first()).fileName();
        const QStringList expected{"QLabel_pTitleName",     "FixLabel_pFileName",     "FixLabel_pVirusName",
                                   "QPushButton_pTrustBtn", "FixButton_m_pNoDealBtn", "FixButton_m_pDealBtn"};
        QStringList names;
        for (QWidget *child : dialog->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly))
            names << child->objectName();
        QStringList wanted;
        for (const QString &name : expected)
            wanted << program + "_CAuthDialog_" + name + "_vorn-virus-scan";
        QCOMPARE(names, wanted);
        QCOMPARE(part<QWidget>(dialog, "pTrustBtn")->accessibleDescription(),
                 QStringLiteral("[pTrustBtn] is [QPushButton] type in process:[%1]").arg(program));

        auto *title = part<QLabel>(dialog, "pTitleName");
        QCOMPARE(title->text(), QStringLiteral("Discover virus threat"));
        QCOMPARE(title->font().pixelSize(), 18);
        QCOMPARE(part<FixLabel>(dialog, "pFileName")->fullText(), QStringLiteral("File:/home/u/eicar.com"));
        QCOMPARE(part<FixLabel>(dialog, "pVirusName")->fullText(), QStringLiteral("Viruses:EICAR"));
        QCOMPARE(part<QPushButton>(dialog, "pTrustBtn")->text(), QStringLiteral("trust"));
        QCOMPARE(part<QPushButton>(dialog, "pTrustBtn")->size(), QSize(96, 36));
        QVERIFY(part<QPushButton>(dialog, "m_pDealBtn")->width() >= 132);

        // For people: the dialog as it looks, in the build tree.
        const QImage shot = dialog->grab().toImage();
        QCOMPARE(shot.size(), QSize(424, 197));
        QVERIFY(shot.save(QDir::current().filePath("authdialog.png")));
        QVERIFY(title->isVisible());
        const QRect titleArea = title->geometry();
        const QRgb background = shot.pixel(2, 2);
        bool drawn = false;
        for (int x = titleArea.left(); x <= titleArea.right() && !drawn; ++x)
            for (int y = titleArea.top(); y <= titleArea.bottom() && !drawn; ++y)
                drawn = shot.pixel(x, y) != background;
        QVERIFY2(drawn, "the title is not visible in the screenshot");
        dialog->close();
        QTRY_VERIFY(dialog.isNull());
    }

    void untrustedTextsAreElidedAndLiteral()
    {
        const QString longPath = "/home/u/" + QString("very-long-directory-name/").repeated(20) + "x.exe";
        QPointer<CAuthDialog> dialog = showDialog("<b>Bold</b><br>Trojan", longPath);
        QVERIFY(QTest::qWaitForWindowExposed(dialog.data()));
        dialog->grab();
        QCOMPARE(dialog->size(), QSize(424, 197));
        auto *file = part<FixLabel>(dialog, "pFileName");
        QVERIFY(file->width() < 424);
        QVERIFY(file->text().endsWith(QChar(0x2026)));
        QCOMPARE(file->toolTip(), "File:" + longPath);
        auto *virus = part<FixLabel>(dialog, "pVirusName");
        QCOMPARE(virus->textFormat(), Qt::PlainText);
        QCOMPARE(file->textFormat(), Qt::PlainText);
        QCOMPARE(virus->fullText(), QStringLiteral("Viruses:<b>Bold</b><br>Trojan"));
        dialog->close();
        QTRY_VERIFY(dialog.isNull());
    }

    void countdownTicksThenProcesses()
    {
        QPointer<CAuthDialog> dialog = showDialog("EICAR", "/h/count");
        auto *deal = part<QPushButton>(dialog, "m_pDealBtn");
        QCOMPARE(deal->text(), QStringLiteral("Immediate processing(5)"));
        for (int shown = 4; shown >= 1; --shown) {
            dialog->onTimeOut();
            QCOMPARE(deal->text(), QStringLiteral("Immediate processing(%1)").arg(shown));
        }
        QVERIFY(m_test.events().isEmpty());
        QSignalSpy lastWindowClosed(qApp, &QGuiApplication::lastWindowClosed);
        dialog->onTimeOut();
        QCOMPARE(deal->text(), QStringLiteral("Immediate processing(0)"));
        QTRY_VERIFY(dialog.isNull());
        QCOMPARE(
            m_test.events(),
            (QStringList{
                coded("CAuthDialog: countdown completed (5S)"),
                "Dealing with threats|Processing completed, 1 item(s) processed, 0 item(s) not processed.|2",
                "Dealing with threats|Processing completed, 1 item(s) processed, 0 item(s) not "
                "processed.|2"}));
        QCOMPARE(m_test.peers.daemon.callLines(),
                 QStringList{R"(add_quarantineFile [[["/h/count","EICAR"]]])"});
        QCOMPARE(lastWindowClosed.count(), 0);
        QVERIFY(m_test.settle()); // the event loop still serves answers
    }

    void leftAloneProcessesAfterFiveSeconds()
    {
        QElapsedTimer clock;
        clock.start();
        QPointer<CAuthDialog> dialog = showDialog("EICAR", "/h/alone");
        QTRY_VERIFY_WITH_TIMEOUT(dialog.isNull(), 8000);
        // Five ticks of a coarse one-second timer, which Qt may fire up to 5% early.
        QVERIFY2(clock.elapsed() >= 4750, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(m_test.events().first(), coded("CAuthDialog: countdown completed (5S)"));
        QCOMPARE(m_test.peers.daemon.callNames(), QStringList{"add_quarantineFile"});
    }

    void waysOut_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("daemonForce"); // "method=value"
        QTest::addColumn<QStringList>("events");
        QTest::addColumn<QStringList>("daemonCalls");
        QTest::addColumn<QString>("modal");

        QTest::newRow("not for the time being")
            << "m_pNoDealBtn" << QString() << QStringList{coded("CAuthDialog: Click not to process")}
            << QStringList() << QString();
        QTest::newRow("process now") << "m_pDealBtn" << QString()
                                     << QStringList{coded("CAuthDialog: Click deal right now"),
                                                    "Dealing with threats|Processing completed, 1 item(s) "
                                                    "processed, 0 item(s) not processed.|2",
                                                    "Dealing with threats|Processing completed, 1 item(s) "
                                                    "processed, 0 item(s) not processed.|2"}
                                     << QStringList{R"(add_quarantineFile [[["/h/way","EICAR"]]])"}
                                     << QString();
        QTest::newRow("process now, one not processed")
            << "m_pDealBtn"
            << "add_quarantineFile=1"
            << QStringList{coded("CAuthDialog: Click deal right now"),
                           "Dealing with threats|Processing completed, 0 item(s) processed, 1 item(s) not "
                           "processed.|2",
                           "Dealing with threats|Processing completed, 0 item(s) processed, 1 item(s) not "
                           "processed.|2"}
            << QStringList{R"(add_quarantineFile [[["/h/way","EICAR"]]])"} << QString();
        QTest::newRow("trust")
            << "pTrustBtn" << QString()
            << QStringList{coded("CAuthDialog: Click trust"),
                           "Add file to trust zone|Add file /h/way to trust zone Successfully|3",
                           "Add file to trust zone|Add file /h/way to trust zone Successfully|3"}
            << QStringList{R"(add_trustFile [["/h/way"]])"} << QString();
        QTest::newRow("trust fails")
            << "pTrustBtn"
            << "add_trustFile=1"
            << QStringList{coded("CAuthDialog: Click trust"),
                           "Add file to trust zone|Add file /h/way to trust zone failed|3",
                           "Add file to trust zone|Add file /h/way to trust zone failed|3"}
            << QStringList{R"(add_trustFile [["/h/way"]])"} << "Failed to add to trust zone";
        QTest::newRow("window closed") << "close" << QString() << QStringList() << QStringList() << QString();
    }

    void waysOut()
    {
        QFETCH(QString, action);
        QFETCH(QString, daemonForce);
        QFETCH(QStringList, events);
        QFETCH(QStringList, daemonCalls);
        QFETCH(QString, modal);

        if (!daemonForce.isEmpty())
            m_test.peers.daemon.control(
                "Force", {daemonForce.section('=', 0, 0), daemonForce.section('=', 1).toInt()});
        QPointer<CAuthDialog> dialog = showDialog("EICAR", "/h/way");
        QVERIFY(QTest::qWaitForWindowExposed(dialog.data()));
        QSignalSpy lastWindowClosed(qApp, &QGuiApplication::lastWindowClosed);
        ModalCloser closer;
        if (action == "close")
            dialog->close();
        else
            part<QPushButton>(dialog, action.toLatin1().constData())->click();
        QTRY_VERIFY(dialog.isNull());
        // No tick of the abandoned timer reaches anything: wait past one.
        QTest::qWait(1300);
        QCOMPARE(m_test.events(), events);
        QCOMPARE(m_test.peers.daemon.callLines(), daemonCalls);
        QCOMPARE(closer.seen.size(), modal.isEmpty() ? 0 : 1);
        if (!modal.isEmpty())
            QCOMPARE(closer.seen.first().text, modal);
        QCOMPARE(lastWindowClosed.count(), 0);
        QVERIFY(m_test.settle());
    }

    void toolButtonDispatcher()
    {
        // Nothing connects it in the dialog; a tool-button variant would. "trust" deliberately
        // does nothing more than the first record.
        QPointer<CAuthDialog> dialog = showDialog("EICAR", "/h/tool");
        QToolButton trust;
        trust.setText("trust");
        connect(&trust, SIGNAL(clicked()), dialog, SLOT(slot_toolBtnClicked()));
        trust.click();
        QCOMPARE(m_test.events(), QStringList{coded("CAuthDialog: Click deal right now")});
        QVERIFY(!dialog.isNull());

        QToolButton other;
        other.setText("process");
        connect(&other, SIGNAL(clicked()), dialog, SLOT(slot_toolBtnClicked()));
        other.click();
        QTRY_VERIFY(dialog.isNull());
        QCOMPARE(
            m_test.events().mid(1),
            (QStringList{
                coded("CAuthDialog: Click deal right now"),
                "Dealing with threats|Processing completed, 1 item(s) processed, 0 item(s) not processed.|2",
                "Add file to trust zone|Add file /h/tool to trust zone Successfully|3"}));
        QCOMPARE(m_test.peers.daemon.callNames(), QStringList{"add_quarantineFile"});
    }
};

QTEST_MAIN(TestAuthDialog)
#include "tst_authdialog.moc"
