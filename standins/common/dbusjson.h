#ifndef DBUSJSON_H
#define DBUSJSON_H

#include <QDBusMessage>
#include <QJsonObject>
#include <QJsonValue>
#include <QVariant>

// D-Bus values as JSON, whatever their type: structures and arrays become JSON arrays, dicts
// objects. It lets a stand-in report exactly what reached it without knowing the records.
QJsonValue dbusToJson(const QVariant &value);

// {"method": member, "signature": signature, "args": [...]} for one received call.
QJsonObject callRecord(const QDBusMessage &message);

#endif // DBUSJSON_H
