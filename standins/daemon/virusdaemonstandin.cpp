#include "virusdaemonstandin.h"

#include "daemonadaptor.h"
#include "dbusjson.h"
#include "transcript.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace {

QString now()
{
    return QDateTime::currentDateTime().toString(Qt::ISODate);
}

// Adds each key that is not listed yet, made into an entry; an empty key cannot be added. Returns
// how many keys could not be added.
template <typename List, typename Make> int addKeys(List &list, const QStringList &keys, Make make)
{
    int failed = 0;
    for (const QString &key : keys) {
        const bool known =
            std::any_of(list.cbegin(), list.cend(), [&](const auto &entry) { return entry.text1 == key; });
        if (key.isEmpty())
            ++failed;
        else if (!known)
            list.append(make(key));
    }
    return failed;
}

// Removes the entry of each key; returns how many keys had none.
template <typename List> int removeKeys(List &list, const QStringList &keys)
{
    int missing = 0;
    for (const QString &key : keys) {
        const auto it =
            std::find_if(list.begin(), list.end(), [&](const auto &entry) { return entry.text1 == key; });
        if (it == list.end())
            ++missing;
        else
            list.erase(it);
    }
    return missing;
}

int indexOfPath(const SIsolateFileInfoList &list, const QString &path)
{
    for (int i = 0; i < list.size(); ++i)
        if (list.at(i).text1 == path)
            return i;
    return -1;
}

} // namespace

VirusDaemonStandIn::VirusDaemonStandIn(bool quiet, QObject *parent)
    : QObject(parent), m_adaptor(new DaemonAdaptor(this)), m_quiet(quiet)
{
    m_engines = {{QStringLiteral("vorn"), QStringLiteral("Vorn engine"), QStringLiteral("3.2.1"),
                  QStringLiteral("2026-11-01"), 0, true},
                 {QStringLiteral("heuristic"), QStringLiteral("Heuristic engine"), QStringLiteral("1.4.0"),
                  QStringLiteral("2026-10-15"), 0, false}};
    m_engine = m_engines.first().text1;
    m_config = SScanConfigInfo{1, 0, 1, 1, 0, 100, 0, 1, 0, 0};
}

bool VirusDaemonStandIn::intercept(int &value, QString &outcome)
{
    const QJsonObject record = callRecord(message());
    m_calls.append(record);
    if (!m_quiet)
        printTranscript(
            QStringLiteral("daemon: call %1 %2")
                .arg(record.value("method").toString(),
                     QString::fromUtf8(
                         QJsonDocument(record.value("args").toArray()).toJson(QJsonDocument::Compact))));
    return m_faults.apply(*this, value, outcome);
}

template <typename Body> int VirusDaemonStandIn::serve(Body body)
{
    int value = 0;
    QString outcome;
    if (!intercept(value, outcome)) {
        value = body();
        outcome = QString::number(value);
    }
    if (!m_quiet)
        printTranscript(QStringLiteral("daemon: reply %1 -> %2").arg(message().member(), outcome));
    return value;
}

bool VirusDaemonStandIn::quarantine(const QString &path, const QString &virusName)
{
    if (path.isEmpty() || indexOfPath(m_quarantine, path) >= 0)
        return false;
    m_quarantine.append({path, virusName, now(), false});
    return true;
}

int VirusDaemonStandIn::add_quarantineFile(const SQuarantineFileInfoList &fileList)
{
    return serve([&] {
        int notProcessed = 0;
        for (const SQuarantineFileInfo &item : fileList)
            notProcessed += quarantine(item.filePath, item.virusName) ? 0 : 1;
        return notProcessed;
    });
}

int VirusDaemonStandIn::add_trustExtension(const QStringList &fileList)
{
    return serve([&] {
        return addKeys(m_trustExtensions, fileList, [](const QString &key) {
            return SExtensionInfo{key, now(), true};
        });
    });
}

int VirusDaemonStandIn::add_trustFile(const QStringList &fileList)
{
    return serve([&] {
        return addKeys(m_trustFiles, fileList, [](const QString &key) {
            return STrustFileInfo{key, now(), 0, true};
        });
    });
}

int VirusDaemonStandIn::begin_scan(int, const QStringList &)
{
    return serve([] { return 0; });
}

int VirusDaemonStandIn::delete_quarantineFile(const QStringList &fileList)
{
    return serve([&] { return removeKeys(m_quarantine, fileList); });
}

int VirusDaemonStandIn::delete_trustExtension(const QStringList &fileList)
{
    return serve([&] { return removeKeys(m_trustExtensions, fileList); });
}

int VirusDaemonStandIn::delete_trustFile(const QStringList &fileList)
{
    return serve([&] { return removeKeys(m_trustFiles, fileList); });
}

int VirusDaemonStandIn::get_allEngineInfoList(SEngineInfoList &infoList)
{
    return serve([&] {
        infoList = m_engines;
        return 0;
    });
}

int VirusDaemonStandIn::get_allScanConfig(SScanConfigInfo &configInfo)
{
    return serve([&] {
        configInfo = m_config;
        return 0;
    });
}

int VirusDaemonStandIn::get_protectDate()
{
    return serve([&] { return m_protectDate; });
}

int VirusDaemonStandIn::get_quarantineFileList(SIsolateFileInfoList &infoList)
{
    return serve([&] {
        infoList = m_quarantine;
        return 0;
    });
}

int VirusDaemonStandIn::get_quarantineSize()
{
    return serve([&] { return m_quarantine.size(); });
}

int VirusDaemonStandIn::get_scanMode()
{
    return serve([&] { return m_scanMode; });
}

int VirusDaemonStandIn::get_scanStatus()
{
    return serve([&] { return m_scanStatus; });
}

int VirusDaemonStandIn::get_trustExtensionList(SExtensionInfoList &infoList)
{
    return serve([&] {
        infoList = m_trustExtensions;
        return 0;
    });
}

int VirusDaemonStandIn::get_trustFileList(STrustFileInfoList &infoList)
{
    return serve([&] {
        infoList = m_trustFiles;
        return 0;
    });
}

int VirusDaemonStandIn::restore_quarantineFile(const QStringList &fileList, int)
{
    // Restoring gives the file back to its place: it leaves the quarantine area.
    return serve([&] { return removeKeys(m_quarantine, fileList); });
}

int VirusDaemonStandIn::set_scanConfig(int configType, int configParameters)
{
    return serve([&] {
        int *const values[] = {&m_config.value1, &m_config.value2, &m_config.value3, &m_config.value4,
                               &m_config.value5, &m_config.value6, &m_config.value7, &m_config.value8,
                               &m_config.value9, &m_config.value10};
        if (configType < 1 || configType > 10)
            return 1;
        *values[configType - 1] = configParameters;
        return 0;
    });
}

int VirusDaemonStandIn::set_scanEngine(const QString &engineName)
{
    return serve([&] {
        const bool known = std::any_of(m_engines.cbegin(), m_engines.cend(),
                                       [&](const SEngineInfo &engine) { return engine.text1 == engineName; });
        if (!known)
            return 1;
        m_engine = engineName;
        return 0;
    });
}

int VirusDaemonStandIn::set_scanMode(int mode)
{
    return serve([&] {
        m_scanMode = mode;
        return 0;
    });
}

int VirusDaemonStandIn::set_scanStatus(int status)
{
    return serve([&] {
        m_scanStatus = status;
        return 0;
    });
}

int VirusDaemonStandIn::special_scan(int, const QStringList &)
{
    return serve([] { return 0; });
}

int VirusDaemonStandIn::test(int status)
{
    return serve([&] { return status; });
}
