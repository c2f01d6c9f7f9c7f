#ifndef VORNTEXT_H
#define VORNTEXT_H

#include <QString>

#include <libintl.h>

// The one place user-visible texts are translated: the English text is the message id in the
// "vorn-defender" domain, so xgettext needs the single keyword vornText.
inline QString vornText(const char *messageId)
{
    return QString::fromUtf8(dgettext("vorn-defender", messageId));
}

#endif // VORNTEXT_H
