// The records the virus-scan daemon exchanges with the agent over D-Bus. Field order is wire
// order; each record travels as one STRUCT and each list as an ARRAY of it.
#ifndef VIRUSRECORDS_H
#define VIRUSRECORDS_H

#include <QDBusArgument>
#include <QList>
#include <QMetaType>
#include <QString>

// "(sssb)": one threat the daemon reports or asks a decision for.
struct SVirusInfo
{
    QString virusName;
    QString virusDetail;
    QString virusPath;
    bool virusFlag = false;
};

// "(ss)": one item handed to the daemon to quarantine. Deliberately not the four-field threat
// record: the daemon takes path and name only.
struct SQuarantineFileInfo
{
    QString filePath;
    QString virusName;
};

// "(iis)": scan progress of one item, only relayed.
struct SScanItemVirusInfo
{
    int number1 = 0;
    int number2 = 0;
    QString text;
};

// "(sii)": scan detail, only relayed. The misspelt name is the daemon's own and is kept on purpose.
struct SScaningInfo
{
    QString text;
    int number1 = 0;
    int number2 = 0;
};

// "(sssb)": one entry of the daemon's quarantine area as the daemon lists it.
struct SIsolateFileInfo
{
    QString text1;
    QString text2;
    QString text3;
    bool flag = false;
};

// "(ssib)": one entry of the trust zone (files).
struct STrustFileInfo
{
    QString text1;
    QString text2;
    int number = 0;
    bool flag = false;
};

// "(ssb)": one trusted file extension.
struct SExtensionInfo
{
    QString text1;
    QString text2;
    bool flag = false;
};

// "(ssssb)": one scan engine.
struct SEngineInfo
{
    QString text1;
    QString text2;
    QString text3;
    QString text4;
    // Deliberately not on the wire: it copies with the record but marshalling neither writes nor
    // reads it, so a received record keeps the value it held before.
    int localNumber = 0;
    bool flag = false;
};

// "(iiiiiiiiii)": the daemon's scan configuration, value1 first.
struct SScanConfigInfo
{
    int value1 = 0;
    int value2 = 0;
    int value3 = 0;
    int value4 = 0;
    int value5 = 0;
    int value6 = 0;
    int value7 = 0;
    int value8 = 0;
    int value9 = 0;
    int value10 = 0;
};
Q_DECLARE_TYPEINFO(SScanConfigInfo, Q_PRIMITIVE_TYPE);

using SVirusInfoList = QList<SVirusInfo>;
using SQuarantineFileInfoList = QList<SQuarantineFileInfo>;
using SIsolateFileInfoList = QList<SIsolateFileInfo>;
using STrustFileInfoList = QList<STrustFileInfo>;
using SExtensionInfoList = QList<SExtensionInfo>;
using SEngineInfoList = QList<SEngineInfo>;

Q_DECLARE_METATYPE(SVirusInfo)
Q_DECLARE_METATYPE(SQuarantineFileInfo)
Q_DECLARE_METATYPE(SScanItemVirusInfo)
Q_DECLARE_METATYPE(SScaningInfo)
Q_DECLARE_METATYPE(SIsolateFileInfo)
Q_DECLARE_METATYPE(STrustFileInfo)
Q_DECLARE_METATYPE(SExtensionInfo)
Q_DECLARE_METATYPE(SEngineInfo)
Q_DECLARE_METATYPE(SScanConfigInfo)
Q_DECLARE_METATYPE(SVirusInfoList)
Q_DECLARE_METATYPE(SQuarantineFileInfoList)
Q_DECLARE_METATYPE(SIsolateFileInfoList)
Q_DECLARE_METATYPE(STrustFileInfoList)
Q_DECLARE_METATYPE(SExtensionInfoList)
Q_DECLARE_METATYPE(SEngineInfoList)

QDBusArgument &operator<<(QDBusArgument &argument, const SVirusInfo &info);
const QDBusArgument &operator>>(const QDBusArgument &argument, SVirusInfo &info);
QDBusArgument &operator<<(QDBusArgument &argument, const SQuarantineFileInfo &info);
const QDBusArgument &operator>>(const QDBusArgument &argument, SQuarantineFileInfo &info);
QDBusArgument &operator<<(QDBusArgument &argument, const SScanItemVirusInfo &info);
const QDBusArgument &operator>>(const QDBusArgument &argument, SScanItemVirusInfo &info);
QDBusArgument &operator<<(QDBusArgument &argument, const SScaningInfo &info);
const QDBusArgument &operator>>(const QDBusArgument &argument, SScaningInfo &info);
QDBusArgument &operator<<(QDBusArgument &argument, const SIsolateFileInfo &info);
const QDBusArgument &operator>>(const QDBusArgument &argument, SIsolateFileInfo &info);
QDBusArgument &operator<<(QDBusArgument &argument, const STrustFileInfo &info);
const QDBusArgument &operator>>(const QDBusArgument &argument, STrustFileInfo &info);
QDBusArgument &operator<<(QDBusArgument &argument, const SExtensionInfo &info);
const QDBusArgument &operator>>(const QDBusArgument &argument, SExtensionInfo &info);
QDBusArgument &operator<<(QDBusArgument &argument, const SEngineInfo &info);
const QDBusArgument &operator>>(const QDBusArgument &argument, SEngineInfo &info);
QDBusArgument &operator<<(QDBusArgument &argument, const SScanConfigInfo &info);
const QDBusArgument &operator>>(const QDBusArgument &argument, SScanConfigInfo &info);

QDBusArgument &operator<<(QDBusArgument &argument, const SVirusInfoList &list);
const QDBusArgument &operator>>(const QDBusArgument &argument, SVirusInfoList &list);
QDBusArgument &operator<<(QDBusArgument &argument, const SQuarantineFileInfoList &list);
const QDBusArgument &operator>>(const QDBusArgument &argument, SQuarantineFileInfoList &list);
QDBusArgument &operator<<(QDBusArgument &argument, const SIsolateFileInfoList &list);
const QDBusArgument &operator>>(const QDBusArgument &argument, SIsolateFileInfoList &list);
QDBusArgument &operator<<(QDBusArgument &argument, const STrustFileInfoList &list);
const QDBusArgument &operator>>(const QDBusArgument &argument, STrustFileInfoList &list);
QDBusArgument &operator<<(QDBusArgument &argument, const SExtensionInfoList &list);
const QDBusArgument &operator>>(const QDBusArgument &argument, SExtensionInfoList &list);
QDBusArgument &operator<<(QDBusArgument &argument, const SEngineInfoList &list);
const QDBusArgument &operator>>(const QDBusArgument &argument, SEngineInfoList &list);

// Registers every record and list as a Qt meta-type under its own name and as a D-Bus type.
// Must run before the first daemon signal or reply carrying a record arrives: QtDBus drops a
// signal whose argument type it does not know without a word. Calling it again is harmless.
void registerDaemonMetaTypes();

#endif // VIRUSRECORDS_H
