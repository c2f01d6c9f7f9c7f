#ifndef DIALOGLOGGING_H
#define DIALOGLOGGING_H

#include <QLoggingCategory>

// Extra diagnostics of the dialogs; silent unless enabled with QT_LOGGING_RULES="vorn.dialog.debug=true".
Q_DECLARE_LOGGING_CATEGORY(lcDialog)

#endif // DIALOGLOGGING_H
