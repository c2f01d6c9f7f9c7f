#ifndef ACCESSIBLEINFO_H
#define ACCESSIBLEINFO_H

#include <QCoreApplication>
#include <QFileInfo>
#include <QMetaObject>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

// Predictable object, accessible names and descriptions, so accessibility tools and desktop test
// robots can find a widget and tell which process it belongs to. Generic over the widget class;
// the run-time class name comes from the meta-object, so subclasses name themselves.

inline QString accessibleProgramName()
{
    const QStringList arguments = QCoreApplication::arguments();
    return arguments.isEmpty() ? QString() : QFileInfo(arguments.first()).fileName();
}

template <typename Widget>
QString buildAccessibleName(Widget *widget, const QString &objectName, const QString &className,
                            const QString &appName)
{
    if (!widget)
        return QString();
    QString name = accessibleProgramName() + QLatin1Char('_');
    if (!className.isEmpty())
        name += className + QLatin1Char('_');
    name += QLatin1String(widget->metaObject()->className()) + QLatin1Char('_');
    static const QRegularExpression stripped(QStringLiteral("[&*]"));
    name += QString(objectName).remove(stripped);
    if (!appName.isEmpty())
        name += QLatin1Char('_') + appName;
    return name;
}

template <typename Widget> QString buildAccessibleDescription(Widget *widget, const QString &objectName)
{
    if (!widget)
        return QString();
    return QStringLiteral("[%1] is [%2] type in process:[%3]")
        .arg(objectName, QLatin1String(widget->metaObject()->className()), accessibleProgramName());
}

template <typename Widget>
void setAccessibleInfo(Widget *widget, const QString &objectName, const QString &className,
                       const QString &appName, const QString &description)
{
    if (!widget)
        return;
    const QString accessibleName = buildAccessibleName(widget, objectName, className, appName);
    // A widget that already has an object name keeps it.
    if (widget->objectName().isEmpty())
        widget->setObjectName(accessibleName);
    widget->setAccessibleName(accessibleName);
    widget->setAccessibleDescription(description.isEmpty() ? buildAccessibleDescription(widget, objectName)
                                                           : description);
}

#endif // ACCESSIBLEINFO_H
