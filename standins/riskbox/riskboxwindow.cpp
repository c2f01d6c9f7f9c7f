#include "riskboxwindow.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>

#include <utility>

RiskBoxWindow::RiskBoxWindow(const RiskBox &box, QWidget *parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint),
      m_hasBodyAction(!box.defaultAction().isEmpty())
{
    // The service outlives its boxes.
    setAttribute(Qt::WA_QuitOnClose, false);
    setAttribute(Qt::WA_DeleteOnClose);
    setObjectName(QStringLiteral("riskBox%1").arg(box.id));
    setWindowTitle(box.title);
    setFixedWidth(360);
    setAutoFillBackground(true);
    setStyleSheet(QStringLiteral("RiskBoxWindow { border: 1px solid #8a8a8a; }"));

    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(16, 12, 16, 12);
    auto *title = new QLabel(box.title, this);
    title->setTextFormat(Qt::PlainText);
    QFont titleFont = title->font();
    titleFont.setBold(true);
    title->setFont(titleFont);
    column->addWidget(title);
    for (int i = 0; i < box.contents.size(); ++i) {
        // Texts come from the agent's peers: shown as plain text, never as markup.
        auto *line = new QLabel(box.contents.at(i), this);
        line->setTextFormat(Qt::PlainText);
        line->setWordWrap(true);
        column->addWidget(line);
        if (box.fold && i > 0) {
            line->hide();
            m_foldedLines.append(line);
        }
    }

    auto *row = new QHBoxLayout;
    row->addStretch();
    for (const auto &button : box.buttons) {
        if (button.second == QLatin1String("default"))
            continue;
        auto *push = new QPushButton(button.first, this);
        connect(push, &QPushButton::clicked, this, [this, label = button.first] { emit pressed(label); });
        m_buttons.append(push);
        row->addWidget(push);
    }
    column->addLayout(row);
    adjustSize();
}

void RiskBoxWindow::press(const QString &label)
{
    for (QPushButton *button : std::as_const(m_buttons)) {
        if (button->text() == label) {
            button->click();
            return;
        }
    }
}

void RiskBoxWindow::enterEvent(EnterEvent *event)
{
    unfold();
    QWidget::enterEvent(event);
}

void RiskBoxWindow::mousePressEvent(QMouseEvent *event)
{
    // A folded box opens on the first click; after that a click on the body runs its action.
    if (!m_foldedLines.isEmpty()) {
        unfold();
    } else if (m_hasBodyAction && event->button() == Qt::LeftButton) {
        emit bodyClicked();
    }
    QWidget::mousePressEvent(event);
}

void RiskBoxWindow::unfold()
{
    for (QLabel *line : std::as_const(m_foldedLines))
        line->show();
    m_foldedLines.clear();
    adjustSize();
}

void RiskBoxWindow::placeAbove(int bottom)
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect area = screen->availableGeometry();
    const int gap = 12;
    if (bottom < 0)
        bottom = area.bottom() - gap;
    move(area.right() - gap - width(), std::max(area.top() + gap, bottom - height()));
}
