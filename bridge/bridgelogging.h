#ifndef BRIDGELOGGING_H
#define BRIDGELOGGING_H

#include <QLoggingCategory>

// Extra diagnostics of the bridge; silent unless enabled with QT_LOGGING_RULES="vorn.bridge.debug=true".
Q_DECLARE_LOGGING_CATEGORY(lcBridge)

#endif // BRIDGELOGGING_H
