#ifndef CHECKCONNECTED_H
#define CHECKCONNECTED_H

#include <QtGlobal>

// The agent's connections in the string form, by signature, are checked: a misspelt signature
// fails only at run time. A debug build stops at once; a release build says so and goes on.
inline bool checkConnected(bool connected, const char *what)
{
    Q_ASSERT_X(connected, "connect", what);
    if (!connected)
        qWarning("could not connect %s", what);
    return connected;
}

#endif // CHECKCONNECTED_H
