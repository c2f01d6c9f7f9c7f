#ifndef ELIDEDTEXT_H
#define ELIDEDTEXT_H

#include <QFontMetrics>
#include <QString>
#include <QTextDocument>

// What an eliding widget shows for a text at a width, and the tool tip that goes with it.
struct ElidedText
{
    QString shown;
    QString toolTip;
    bool cut = false;

    // fitWidth decides whether the text fits (inclusive); elideWidth is what a cut text may take.
    static ElidedText fit(const QFontMetrics &metrics, const QString &text, int fitWidth, int elideWidth)
    {
        if (metrics.horizontalAdvance(text) <= fitWidth)
            return ElidedText{text, QString(), false};
        // A tool tip renders markup; a path or a threat name that looks like markup is shown as
        // the text it is.
        const QString toolTip =
            Qt::mightBeRichText(text) ? Qt::convertFromPlainText(text, Qt::WhiteSpaceNormal) : text;
        return ElidedText{metrics.elidedText(text, Qt::ElideRight, elideWidth, 0), toolTip, true};
    }
};

#endif // ELIDEDTEXT_H
