#include "dbusjson.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusVariant>
#include <QJsonArray>
#include <QJsonDocument>

namespace {

QJsonValue readArgument(const QDBusArgument &argument);

QJsonValue readBasic(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::Bool: return value.toBool();
    case QMetaType::QString: return value.toString();
    case QMetaType::QStringList: return QJsonArray::fromStringList(value.toStringList());
    case QMetaType::QByteArray: return QString::fromLatin1(value.toByteArray().toBase64());
    default: break;
    }
    if (value.userType() == qMetaTypeId<QDBusObjectPath>())
        return value.value<QDBusObjectPath>().path();
    if (value.userType() == qMetaTypeId<QDBusSignature>())
        return value.value<QDBusSignature>().signature();
    if (value.userType() == qMetaTypeId<QDBusVariant>())
        return dbusToJson(value.value<QDBusVariant>().variant());
    if (value.userType() == qMetaTypeId<QDBusArgument>())
        return readArgument(value.value<QDBusArgument>());
    if (value.canConvert<double>())
        return value.toDouble();
    return value.toString();
}

QJsonValue readArgument(const QDBusArgument &argument)
{
    switch (argument.currentType()) {
    case QDBusArgument::BasicType:
    case QDBusArgument::VariantType: return readBasic(argument.asVariant());
    case QDBusArgument::StructureType: {
        QJsonArray fields;
        argument.beginStructure();
        while (!argument.atEnd())
            fields.append(readArgument(argument));
        argument.endStructure();
        return fields;
    }
    case QDBusArgument::ArrayType: {
        QJsonArray items;
        argument.beginArray();
        while (!argument.atEnd())
            items.append(readArgument(argument));
        argument.endArray();
        return items;
    }
    case QDBusArgument::MapType: {
        QJsonObject map;
        argument.beginMap();
        while (!argument.atEnd()) {
            argument.beginMapEntry();
            const QJsonValue key = readArgument(argument);
            map.insert(key.isString() ? key.toString() : QString::number(key.toDouble()),
                       readArgument(argument));
            argument.endMapEntry();
        }
        argument.endMap();
        return map;
    }
    case QDBusArgument::MapEntryType:
    case QDBusArgument::UnknownType: break;
    }
    return QJsonValue();
}

} // namespace

QJsonValue dbusToJson(const QVariant &value)
{
    return readBasic(value);
}

QJsonObject callRecord(const QDBusMessage &message)
{
    QJsonArray args;
    for (const QVariant &argument : message.arguments())
        args.append(dbusToJson(argument));
    return QJsonObject{{QStringLiteral("method"), message.member()},
                       {QStringLiteral("signature"), message.signature()},
                       {QStringLiteral("args"), args}};
}

QStringList jsonLines(const QJsonArray &array)
{
    QStringList lines;
    for (const QJsonValue &value : array)
        lines.append(QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact)));
    return lines;
}
