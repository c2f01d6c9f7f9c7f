#ifndef DBUSJSON_H
#define DBUSJSON_H

#include <QDBusMessage>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QStringList>
#include <QVariant>

// D-Bus values as JSON, whatever their type: structures and arrays become JSON arrays, dicts
// objects. It lets a stand-in report exactly what reached it without knowing the records.
QJsonValue dbusToJson(const QVariant &value);

// {"method": member, "signature": signature, "args": [...]} for one received call.
QJsonObject callRecord(const QDBusMessage &message);

// Each object of the array as one line of compact JSON.
QStringList jsonLines(const QJsonArray &array);

#endif // DBUSJSON_H
