#ifndef MODALCLOSER_H
#define MODALCLOSER_H

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QTimer>

// Finds the message boxes the agent shows, notes what a person would see, and presses their first
// button, so a modal box never blocks a test.
class ModalCloser : public QObject
{
    Q_OBJECT
public:
    struct Seen
    {
        QString objectName;
        QString accessibleName;
        QString title;
        QString text;
        QMessageBox::Icon icon = QMessageBox::NoIcon;
        QStringList buttons;
        QList<QMessageBox::ButtonRole> roles;
        bool quitOnClose = true;
    };

    ModalCloser()
    {
        connect(&m_timer, &QTimer::timeout, this, &ModalCloser::poll);
        m_timer.start(20);
    }

    QList<Seen> seen;

private:
    void poll()
    {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            auto *box = qobject_cast<QMessageBox *>(widget);
            if (!box || !box->isVisible())
                continue;
            Seen entry;
            entry.objectName = box->objectName();
            entry.accessibleName = box->accessibleName();
            entry.title = box->windowTitle();
            entry.text = box->text();
            entry.icon = box->icon();
            entry.quitOnClose = box->testAttribute(Qt::WA_QuitOnClose);
            for (QAbstractButton *button : box->buttons()) {
                entry.buttons.append(button->text());
                entry.roles.append(box->buttonRole(button));
            }
            seen.append(entry);
            if (!box->buttons().isEmpty())
                box->buttons().first()->click();
        }
    }

    QTimer m_timer;
};

#endif // MODALCLOSER_H
