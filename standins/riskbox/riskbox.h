#ifndef RISKBOX_H
#define RISKBOX_H

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

// One box as the risk-box stand-in collected it from the calls that built it.
struct RiskBox
{
    int id = 0;
    int type = 0;
    QString appName;
    QString title;
    QStringList contents;
    QList<QPair<QString, QString>> buttons; // text, key; the key "default" marks the body action
    int fold = 0;
    int timeout = 0;
    bool shown = false;
    bool closed = false;

    // The command of the body action, or empty when the box has none.
    QString defaultAction() const
    {
        for (const auto &button : buttons)
            if (button.second == QLatin1String("default"))
                return button.first;
        return QString();
    }

    // The state a press on a button with this key reports: the key as a number, 1 for an empty key.
    static int stateForKey(const QString &key) { return key.isEmpty() ? 1 : key.toInt(); }
};

#endif // RISKBOX_H
