#include "cauthdialog.h"

#include "accessibleinfo.h"
#include "checkconnected.h"
#include "cvirusdbusmiddle.h"
#include "cvorngenlog.h"
#include "dialoglogging.h"
#include "fixbutton.h"
#include "fixlabel.h"
#include "vorntext.h"

#include <QApplication>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QScreen>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

Q_LOGGING_CATEGORY(lcDialog, "vorn.dialog", QtInfoMsg)

namespace {

const QString kClassText = QStringLiteral("CAuthDialog");
const QString kAppText = QStringLiteral("vorn-virus-scan");

void logCoded(const QString &message)
{
    CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan, 0, message, CVornGenLog::Info);
}

template <typename Widget> void name(Widget *widget, const QString &objectName)
{
    setAccessibleInfo(widget, objectName, kClassText, kAppText, QString());
}

} // namespace

CAuthDialog::CAuthDialog(const SVirusInfo &info, QWidget *parent)
    : QDialog(parent, Qt::WindowFlags()), m_pMiddle(CVirusDbusMiddle::getInstance()),
      m_virusName(info.virusName), m_virusPath(info.virusPath)
{
    // The dialog is a parentless window: under Qt's default quit policy, deleting it while it is
    // the last visible one would end the agent's event loop.
    setAttribute(Qt::WA_QuitOnClose, false);
    m_dealList = {SQuarantineFileInfo{m_virusPath, m_virusName}};
    m_trustList = QStringList{m_virusPath};

    setWindowTitle(vornText("Tarsel security authorization certification"));
    setFixedSize(424, 197);
    buildContent();
    centre();

    // Deliberately without a parent, and never freed: the countdown starts at construction.
    m_pTimer = new QTimer;
    m_pTimer->setInterval(1000);
    checkConnected(connect(m_pTimer, SIGNAL(timeout()), this, SLOT(onTimeOut())), "the countdown");
    m_pTimer->start();
}

CAuthDialog::~CAuthDialog() = default;

void CAuthDialog::buildContent()
{
    auto *title = new QLabel(this);
    QFont titleFont;
    titleFont.setPixelSize(18);
    titleFont.setWeight(QFont::Bold);
    title->setFont(titleFont);
    name(title, QStringLiteral("pTitleName"));
    title->setText(vornText("Discover virus threat"));

    // The path and the threat name come from outside: shown as plain text, never as markup.
    auto *file = new FixLabel(this);
    name(file, QStringLiteral("pFileName"));
    file->setTextFormat(Qt::PlainText);
    file->setText(vornText("File:") + m_virusPath);

    auto *virus = new FixLabel(this);
    name(virus, QStringLiteral("pVirusName"));
    virus->setTextFormat(Qt::PlainText);
    virus->setText(vornText("Viruses:") + m_virusName);

    auto *trust = new QPushButton(vornText("trust"), this);
    name(trust, QStringLiteral("pTrustBtn"));
    trust->setFixedSize(96, 36);

    m_pNoDealBtn = new FixButton(this);
    name(m_pNoDealBtn, QStringLiteral("m_pNoDealBtn"));
    m_pNoDealBtn->setText(vornText("Not for the time being"));
    m_pNoDealBtn->setMinimumSize(96, 36);

    m_pDealBtn = new FixButton(this);
    name(m_pDealBtn, QStringLiteral("m_pDealBtn"));
    m_pDealBtn->setText(vornText("Immediate processing(5)"));
    m_pDealBtn->setMinimumSize(132, 36);

    checkConnected(connect(m_pDealBtn, SIGNAL(clicked(bool)), this, SLOT(slot_dealClicked())), "m_pDealBtn");
    checkConnected(connect(trust, SIGNAL(clicked(bool)), this, SLOT(slot_trustClicked())), "pTrustBtn");
    checkConnected(connect(m_pNoDealBtn, SIGNAL(clicked(bool)), this, SLOT(slot_noDealClicked())),
                   "m_pNoDealBtn");

    auto *buttons = new QHBoxLayout;
    buttons->addStretch(0);
    buttons->addWidget(trust);
    buttons->addWidget(m_pNoDealBtn);
    buttons->addWidget(m_pDealBtn);
    buttons->setContentsMargins(0, 0, 0, 0);

    auto *column = new QVBoxLayout;
    column->addSpacing(5);
    column->addWidget(title);
    column->addWidget(file);
    column->addWidget(virus);
    column->addStretch(0);
    column->addLayout(buttons);
    column->setContentsMargins(24, 16, 24, 24);
    setLayout(column);
}

void CAuthDialog::centre()
{
    const QWidget *active = QApplication::activeWindow();
    // The whole desktop, all screens together (what Qt 5's desktop widget spanned).
    const QRect ref = active ? active->geometry() : QGuiApplication::primaryScreen()->virtualGeometry();
    const QRect own = geometry();
    // Right and bottom are inclusive on both sides, so the off-by-one cancels out.
    move(ref.left() + ((ref.right() - ref.left()) - (own.right() - own.left())) / 2,
         ref.top() + ((ref.bottom() - ref.top()) - (own.bottom() - own.top())) / 2);
}

void CAuthDialog::onTimeOut()
{
    m_pDealBtn->setText(vornText("Immediate processing(%1)").arg(m_nCountdown));
    --m_nCountdown;
    if (m_nCountdown >= 0)
        return;
    // The fifth tick: the button reads 0 and the threat is processed for the user.
    logCoded(QStringLiteral("CAuthDialog: countdown completed (5S)"));
    m_pTimer->stop();
    qCDebug(lcDialog) << "强制立即处理";
    deal();
}

void CAuthDialog::slot_toolBtnChanged(QAction *action)
{
    Q_UNUSED(action)
}

void CAuthDialog::slot_dealClicked()
{
    logCoded(QStringLiteral("CAuthDialog: Click deal right now"));
    // The timer is not stopped here: deleting the dialog ends the countdown.
    deal();
}

void CAuthDialog::deal()
{
    const int notDone = m_pMiddle->dealThreats(m_dealList);
    // dealThreats has written this event for its call already: the dialog writes its own as well,
    // and the security log has always had both.
    CVirusDbusMiddle::logThreatsDealt(m_dealList.size(), notDone);
    finish();
}

void CAuthDialog::slot_trustClicked()
{
    logCoded(QStringLiteral("CAuthDialog: Click trust"));
    m_pTimer->stop();
    const int result = m_pMiddle->addTrustFiles(m_trustList);
    CVirusDbusMiddle::logTrustAdded(m_trustList,
                                    result != 0 ? QStringLiteral("failed") : QStringLiteral("Successfully"));
    finish();
}

void CAuthDialog::slot_noDealClicked()
{
    logCoded(QStringLiteral("CAuthDialog: Click not to process"));
    finish();
}

void CAuthDialog::slot_toolBtnClicked()
{
    logCoded(QStringLiteral("CAuthDialog: Click deal right now"));
    const auto *button = qobject_cast<QToolButton *>(sender());
    const QString text = button ? button->text() : QString();
    // "trust" does nothing more: that gap in the tool-button variant is deliberate.
    if (text == QLatin1String("trust"))
        return;
    if (text == QLatin1String("Not for the time being")) {
        logCoded(QStringLiteral("CAuthDialog: Click not to process"));
        finish();
        return;
    }
    m_pTimer->stop();
    finish();
    qCDebug(lcDialog) << "直接点击toolbtn--立即处理";
    // The deal path reuses the trust-zone wording, and only on success: intended as it stands.
    if (m_pMiddle->dealThreats(m_dealList) == 0)
        CVirusDbusMiddle::logTrustAdded(m_trustList, QStringLiteral("Successfully"));
}

void CAuthDialog::closeEvent(QCloseEvent *event)
{
    // Closed by the window manager: gone without processing and without a log record.
    event->ignore();
    finish();
}

void CAuthDialog::finish()
{
    // Every way out ends here once. The timer outlives the dialog and may keep ticking; it no
    // longer reaches a dialog that is finishing, so no second way out can follow the first.
    m_pTimer->disconnect(this);
    deleteLater();
}
