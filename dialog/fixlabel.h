#ifndef FIXLABEL_H
#define FIXLABEL_H

#include <QLabel>

// A label that keeps the whole text it was given and, at every paint, shows it whole or
// right-elided to its current width, with the whole text as tool tip when it had to cut.
class FixLabel : public QLabel
{
    Q_OBJECT

public:
    explicit FixLabel(QWidget *parent = nullptr);
    ~FixLabel() override;

    // Hides QLabel::setText on purpose: only this setter keeps the whole text.
    void setText(const QString &text);
    void setShowToolTip(bool show);
    QString fullText() const;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    bool m_bShowToolTip = true;
    QString m_strFullText;
};

#endif // FIXLABEL_H
