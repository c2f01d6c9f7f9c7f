#include "fixbutton.h"

#include "elidedtext.h"

namespace {

// Room for the button's frame and margins, kept out of an elided caption.
constexpr int kFrameAllowance = 25;

} // namespace

FixButton::FixButton(QWidget *parent) : QPushButton(parent) {}

FixButton::~FixButton() = default;

void FixButton::setText(const QString &text)
{
    m_strFullText = text;
    QAbstractButton::setText(m_strFullText);
}

void FixButton::setShowToolTip(bool show)
{
    m_bShowToolTip = show;
    if (!m_strFullText.isEmpty())
        QAbstractButton::setText(m_strFullText);
}

void FixButton::paintEvent(QPaintEvent *event)
{
    const QString text = m_strFullText.isEmpty() ? QAbstractButton::text() : m_strFullText;
    // The fit is judged on the whole width, the cut on the width less the frame allowance.
    const ElidedText fitted = ElidedText::fit(QFontMetrics(font()), text, width(), width() - kFrameAllowance);
    QAbstractButton::setText(fitted.shown);
    if (m_bShowToolTip)
        setToolTip(fitted.toolTip);
    QPushButton::paintEvent(event);
}
