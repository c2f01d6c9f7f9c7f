#ifndef RISKBOXWINDOW_H
#define RISKBOXWINDOW_H

#include "riskbox.h"

#include <QEnterEvent>
#include <QList>
#include <QWidget>

class QLabel;
class QPushButton;

// A shown risk box as a small frameless window near the bottom-right corner of the screen: the
// title, the content lines and a button per label. A folded box shows its first line only until
// it is hovered or clicked.
class RiskBoxWindow : public QWidget
{
    Q_OBJECT

public:
    RiskBoxWindow(const RiskBox &box, QWidget *parent = nullptr);

    // Puts the window at the right edge of the screen with its bottom edge just above bottom, or
    // above the screen's bottom-right corner when bottom is negative.
    void placeAbove(int bottom);

    // Clicks the button with this label, as a person would.
    void press(const QString &label);

signals:
    void pressed(const QString &label);
    void bodyClicked();

protected:
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    using EnterEvent = QEnterEvent; // Qt 6 hands the entering over with the pointer's position
#else
    using EnterEvent = QEvent;
#endif
    void enterEvent(EnterEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    void unfold();

    QList<QLabel *> m_foldedLines;
    QList<QPushButton *> m_buttons;
    bool m_hasBodyAction = false;
};

#endif // RISKBOXWINDOW_H
