#include "virusrecords.h"

#include <QDBusMetaType>

namespace {

template <typename Record> QDBusArgument &writeList(QDBusArgument &argument, const QList<Record> &list)
{
    const int elementType = qMetaTypeId<Record>();
    argument.beginArray(elementType);
    for (const Record &record : list)
        argument << record;
    argument.endArray();
    return argument;
}

template <typename Record> const QDBusArgument &readList(const QDBusArgument &argument, QList<Record> &list)
{
    argument.beginArray();
    // The result holds only what was received, whatever the target held before.
    list.clear();
    while (!argument.atEnd()) {
        Record record;
        argument >> record;
        list.append(record);
    }
    argument.endArray();
    return argument;
}

template <typename T> void registerType(const char *name)
{
    qRegisterMetaType<T>(name);
    qDBusRegisterMetaType<T>();
}

} // namespace

QDBusArgument &operator<<(QDBusArgument &argument, const SVirusInfo &info)
{
    argument.beginStructure();
    argument << info.virusName << info.virusDetail << info.virusPath << info.virusFlag;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SVirusInfo &info)
{
    argument.beginStructure();
    argument >> info.virusName >> info.virusDetail >> info.virusPath >> info.virusFlag;
    argument.endStructure();
    return argument;
}

QDBusArgument &operator<<(QDBusArgument &argument, const SQuarantineFileInfo &info)
{
    argument.beginStructure();
    argument << info.filePath << info.virusName;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SQuarantineFileInfo &info)
{
    argument.beginStructure();
    argument >> info.filePath >> info.virusName;
    argument.endStructure();
    return argument;
}

QDBusArgument &operator<<(QDBusArgument &argument, const SScanItemVirusInfo &info)
{
    argument.beginStructure();
    argument << info.number1 << info.number2 << info.text;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SScanItemVirusInfo &info)
{
    argument.beginStructure();
    argument >> info.number1 >> info.number2 >> info.text;
    argument.endStructure();
    return argument;
}

QDBusArgument &operator<<(QDBusArgument &argument, const SScaningInfo &info)
{
    argument.beginStructure();
    argument << info.text << info.number1 << info.number2;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SScaningInfo &info)
{
    argument.beginStructure();
    argument >> info.text >> info.number1 >> info.number2;
    argument.endStructure();
    return argument;
}

QDBusArgument &operator<<(QDBusArgument &argument, const SIsolateFileInfo &info)
{
    argument.beginStructure();
    argument << info.text1 << info.text2 << info.text3 << info.flag;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SIsolateFileInfo &info)
{
    argument.beginStructure();
    argument >> info.text1 >> info.text2 >> info.text3 >> info.flag;
    argument.endStructure();
    return argument;
}

QDBusArgument &operator<<(QDBusArgument &argument, const STrustFileInfo &info)
{
    argument.beginStructure();
    argument << info.text1 << info.text2 << info.number << info.flag;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, STrustFileInfo &info)
{
    argument.beginStructure();
    argument >> info.text1 >> info.text2 >> info.number >> info.flag;
    argument.endStructure();
    return argument;
}

QDBusArgument &operator<<(QDBusArgument &argument, const SExtensionInfo &info)
{
    argument.beginStructure();
    argument << info.text1 << info.text2 << info.flag;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SExtensionInfo &info)
{
    argument.beginStructure();
    argument >> info.text1 >> info.text2 >> info.flag;
    argument.endStructure();
    return argument;
}

// localNumber is skipped in both directions on purpose: five wire fields for six members.
QDBusArgument &operator<<(QDBusArgument &argument, const SEngineInfo &info)
{
    argument.beginStructure();
    argument << info.text1 << info.text2 << info.text3 << info.text4 << info.flag;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SEngineInfo &info)
{
    argument.beginStructure();
    argument >> info.text1 >> info.text2 >> info.text3 >> info.text4 >> info.flag;
    argument.endStructure();
    return argument;
}

QDBusArgument &operator<<(QDBusArgument &argument, const SScanConfigInfo &info)
{
    argument.beginStructure();
    argument << info.value1 << info.value2 << info.value3 << info.value4 << info.value5 << info.value6
             << info.value7 << info.value8 << info.value9 << info.value10;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SScanConfigInfo &info)
{
    argument.beginStructure();
    argument >> info.value1 >> info.value2 >> info.value3 >> info.value4 >> info.value5 >> info.value6 >>
        info.value7 >> info.value8 >> info.value9 >> info.value10;
    argument.endStructure();
    return argument;
}

QDBusArgument &operator<<(QDBusArgument &argument, const SVirusInfoList &list)
{
    return writeList(argument, list);
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SVirusInfoList &list)
{
    return readList(argument, list);
}

QDBusArgument &operator<<(QDBusArgument &argument, const SQuarantineFileInfoList &list)
{
    return writeList(argument, list);
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SQuarantineFileInfoList &list)
{
    return readList(argument, list);
}

QDBusArgument &operator<<(QDBusArgument &argument, const SIsolateFileInfoList &list)
{
    return writeList(argument, list);
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SIsolateFileInfoList &list)
{
    return readList(argument, list);
}

QDBusArgument &operator<<(QDBusArgument &argument, const STrustFileInfoList &list)
{
    return writeList(argument, list);
}

const QDBusArgument &operator>>(const QDBusArgument &argument, STrustFileInfoList &list)
{
    return readList(argument, list);
}

QDBusArgument &operator<<(QDBusArgument &argument, const SExtensionInfoList &list)
{
    return writeList(argument, list);
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SExtensionInfoList &list)
{
    return readList(argument, list);
}

QDBusArgument &operator<<(QDBusArgument &argument, const SEngineInfoList &list)
{
    return writeList(argument, list);
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SEngineInfoList &list)
{
    return readList(argument, list);
}

void registerDaemonMetaTypes()
{
    registerType<SEngineInfo>("SEngineInfo");
    registerType<SEngineInfoList>("SEngineInfoList");
    registerType<SScanConfigInfo>("SScanConfigInfo");
    registerType<SIsolateFileInfo>("SIsolateFileInfo");
    registerType<SIsolateFileInfoList>("SIsolateFileInfoList");
    registerType<STrustFileInfo>("STrustFileInfo");
    registerType<STrustFileInfoList>("STrustFileInfoList");
    registerType<SExtensionInfo>("SExtensionInfo");
    registerType<SExtensionInfoList>("SExtensionInfoList");
    registerType<SScanItemVirusInfo>("SScanItemVirusInfo");
    registerType<SVirusInfo>("SVirusInfo");
    registerType<SVirusInfoList>("SVirusInfoList");
    registerType<SScaningInfo>("SScaningInfo");
    registerType<SQuarantineFileInfo>("SQuarantineFileInfo");
    registerType<SQuarantineFileInfoList>("SQuarantineFileInfoList");
}
