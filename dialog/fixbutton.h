#ifndef FIXBUTTON_H
#define FIXBUTTON_H

#include <QPushButton>

// A push button whose caption is right-elided at every paint to fit its width, less room for the
// frame, with the whole caption as tool tip when it had to cut.
class FixButton : public QPushButton
{
    Q_OBJECT

public:
    explicit FixButton(QWidget *parent = nullptr);
    ~FixButton() override;

    // Hides QAbstractButton::setText on purpose: only this setter keeps the whole text.
    void setText(const QString &text);
    void setShowToolTip(bool show);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    bool m_bShowToolTip = true;
    QString m_strFullText;
};

#endif // FIXBUTTON_H
