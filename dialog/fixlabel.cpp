#include "fixlabel.h"

#include "elidedtext.h"

FixLabel::FixLabel(QWidget *parent) : QLabel(parent, Qt::WindowFlags()) {}

FixLabel::~FixLabel() = default;

void FixLabel::setText(const QString &text)
{
    m_strFullText = text;
    QLabel::setText(text);
}

void FixLabel::setShowToolTip(bool show)
{
    m_bShowToolTip = show;
    // The next paint decides afresh.
    if (!m_strFullText.isEmpty())
        QLabel::setText(m_strFullText);
}

QString FixLabel::fullText() const
{
    return m_strFullText;
}

void FixLabel::paintEvent(QPaintEvent *event)
{
    // Text set through QLabel::setText directly is fitted too; it then is the elided form, so the
    // next paint takes that as the whole text. Only this class's setText keeps the whole text.
    const QString text = m_strFullText.isEmpty() ? QLabel::text() : m_strFullText;
    const ElidedText fitted = ElidedText::fit(QFontMetrics(font()), text, width(), width());
    // QLabel::setText returns at once for an unchanged text, so this does not repaint for ever.
    QLabel::setText(fitted.shown);
    if (m_bShowToolTip)
        setToolTip(fitted.toolTip);
    QLabel::paintEvent(event);
}
