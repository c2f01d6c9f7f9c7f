#include "virusdaemonstandin.h"

#include "daemonadaptor.h"
#include "dbusjson.h"
#include "rawsignal.h"
#include "transcript.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

#include <utility>

namespace {

const QStringList kMethods{"add_quarantineFile",
                           "add_trustExtension",
                           "add_trustFile",
                           "begin_scan",
                           "delete_quarantineFile",
                           "delete_trustExtension",
                           "delete_trustFile",
                           "get_allEngineInfoList",
                           "get_allScanConfig",
                           "get_protectDate",
                           "get_quarantineFileList",
                           "get_quarantineSize",
                           "get_scanMode",
                           "get_scanStatus",
                           "get_trustExtensionList",
                           "get_trustFileList",
                           "restore_quarantineFile",
                           "set_scanConfig",
                           "set_scanEngine",
                           "set_scanMode",
                           "set_scanStatus",
                           "special_scan",
                           "test"};

QString now()
{
    return QDateTime::currentDateTime().toString(Qt::ISODate);
}

bool toInt(const QString &text, int &value)
{
    bool ok = false;
    value = text.toInt(&ok);
    return ok;
}

bool toBool(const QString &text, bool &value)
{
    if (text == QLatin1String("true") || text == QLatin1String("1")) {
        value = true;
        return true;
    }
    if (text == QLatin1String("false") || text == QLatin1String("0")) {
        value = false;
        return true;
    }
    return false;
}

template <typename Map> QStringList sortedKeys(const Map &map)
{
    QStringList keys = map.keys();
    keys.sort();
    return keys;
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

bool VirusDaemonStandIn::controlError(const QString &text)
{
    sendErrorReply(QDBusError::InvalidArgs, text);
    return false;
}

bool VirusDaemonStandIn::knownMethod(const QString &method)
{
    if (kMethods.contains(method))
        return true;
    return controlError(QStringLiteral("unknown daemon method '%1'; the methods are: %2")
                            .arg(method, kMethods.join(QLatin1Char(' '))));
}

void VirusDaemonStandIn::Emit(const QString &signal, const QStringList &args)
{
    // What each signal takes on the command line; -4 means any number of groups of four.
    static const QHash<QString, QPair<int, QString>> usage{
        {"signal_customScanItemBegin", {1, "NAME"}},
        {"signal_dealFinished", {1, "FAIL-COUNT"}},
        {"signal_rightBeginScan", {1, "FILE"}},
        {"signal_rightClicked", {0, "no arguments"}},
        {"signal_scanDetailInfo", {3, "TEXT N1 N2"}},
        {"signal_scanFinished", {-4, "groups of NAME DETAIL PATH FLAG"}},
        {"signal_scanItemBegin", {1, "MODE"}},
        {"signal_scanItemEnd", {3, "N1 N2 TEXT"}},
        {"signal_showAuthDialog", {4, "NAME DETAIL PATH FLAG"}},
        {"signal_sysPop", {1, "FILE"}},
    };
    const auto found = usage.constFind(signal);
    if (found == usage.constEnd()) {
        controlError(QStringLiteral("unknown daemon signal '%1'; the signals are: %2")
                         .arg(signal, sortedKeys(usage).join(QLatin1Char(' '))));
        return;
    }
    const int count = found.value().first;
    if (count >= 0 ? args.size() != count : args.size() % 4 != 0) {
        controlError(QStringLiteral("%1 takes %2, got %3 argument(s)")
                         .arg(signal, found.value().second)
                         .arg(args.size()));
        return;
    }

    // Numbers and flags are checked before anything is sent, so a bad call changes nothing.
    QList<int> numbers;
    QList<bool> flags;
    for (int i = 0; i < args.size(); ++i) {
        const bool numeric = (signal == QLatin1String("signal_dealFinished") ||
                              signal == QLatin1String("signal_scanItemBegin")) ||
                             (signal == QLatin1String("signal_scanDetailInfo") && i > 0) ||
                             (signal == QLatin1String("signal_scanItemEnd") && i < 2);
        const bool isFlag = (signal == QLatin1String("signal_showAuthDialog") ||
                             signal == QLatin1String("signal_scanFinished")) &&
                            i % 4 == 3;
        int number = 0;
        bool flag = false;
        if (numeric && !toInt(args.at(i), number)) {
            controlError(
                QStringLiteral("argument %1 of %2 is not a number: '%3'").arg(i + 1).arg(signal, args.at(i)));
            return;
        }
        if (isFlag && !toBool(args.at(i), flag)) {
            controlError(QStringLiteral("argument %1 of %2 is not true or false: '%3'")
                             .arg(i + 1)
                             .arg(signal, args.at(i)));
            return;
        }
        numbers.append(number);
        flags.append(flag);
    }

    if (signal == QLatin1String("signal_customScanItemBegin")) {
        emit m_adaptor->signal_customScanItemBegin(args.at(0));
    } else if (signal == QLatin1String("signal_dealFinished")) {
        emit m_adaptor->signal_dealFinished(numbers.at(0));
    } else if (signal == QLatin1String("signal_rightBeginScan")) {
        emit m_adaptor->signal_rightBeginScan(args.at(0));
    } else if (signal == QLatin1String("signal_rightClicked")) {
        emit m_adaptor->signal_rightClicked();
    } else if (signal == QLatin1String("signal_scanDetailInfo")) {
        emit m_adaptor->signal_scanDetailInfo(SScaningInfo{args.at(0), numbers.at(1), numbers.at(2)});
    } else if (signal == QLatin1String("signal_scanFinished")) {
        SVirusInfoList list;
        for (int i = 0; i < args.size(); i += 4)
            list.append({args.at(i), args.at(i + 1), args.at(i + 2), flags.at(i + 3)});
        emit m_adaptor->signal_scanFinished(list);
    } else if (signal == QLatin1String("signal_scanItemBegin")) {
        emit m_adaptor->signal_scanItemBegin(numbers.at(0));
    } else if (signal == QLatin1String("signal_scanItemEnd")) {
        emit m_adaptor->signal_scanItemEnd(SScanItemVirusInfo{numbers.at(0), numbers.at(1), args.at(2)});
    } else if (signal == QLatin1String("signal_showAuthDialog")) {
        emit m_adaptor->signal_showAuthDialog(SVirusInfo{args.at(0), args.at(1), args.at(2), flags.at(3)});
    } else {
        // The daemon announces a file it has just cleared and backed up, so it is in quarantine.
        quarantine(args.at(0), QString());
        emit m_adaptor->signal_sysPop(args.at(0));
    }
    if (!m_quiet)
        printTranscript(QStringLiteral("daemon: emitted %1 %2").arg(signal, args.join(QLatin1Char(' '))));
}

void VirusDaemonStandIn::EmitMany(const QString &signal, const QStringList &args, int count)
{
    if (count < 1 || count > 1000000) {
        controlError(QStringLiteral("the count is 1 to 1000000, not %1").arg(count));
        return;
    }
    // The first emission validates the arguments; a refused one sends the error and stops here.
    // "{n}" in an argument becomes the emission's number, counted from 0.
    for (int i = 0; i < count && !isDelayedReply(); ++i)
        Emit(signal, QStringList(args).replaceInStrings(QStringLiteral("{n}"), QString::number(i)));
}

void VirusDaemonStandIn::EmitRaw(const QString &member, const QVariantList &args)
{
    const QString signature = sendRawSignal(connection(), QStringLiteral("/daemon"),
                                            QStringLiteral("com.vorn.virus.daemon"), member, args);
    if (!m_quiet)
        printTranscript(QStringLiteral("daemon: emitted %1 with signature '%2'").arg(member, signature));
}

void VirusDaemonStandIn::Fail(const QString &method, const QString &errorName, const QString &message)
{
    if (knownMethod(method))
        m_faults.fail(method, errorName, message);
}

void VirusDaemonStandIn::Force(const QString &method, int value)
{
    if (knownMethod(method))
        m_faults.force(method, value);
}

void VirusDaemonStandIn::Short(const QString &method, int value)
{
    if (knownMethod(method))
        m_faults.shortReply(method, value);
}

void VirusDaemonStandIn::Hold(const QString &method)
{
    if (knownMethod(method))
        m_faults.hold(method);
}

void VirusDaemonStandIn::Reset(const QString &method)
{
    if (method.isEmpty() || knownMethod(method))
        m_faults.reset(method);
}

QStringList VirusDaemonStandIn::Calls()
{
    return jsonLines(m_calls);
}

void VirusDaemonStandIn::ClearCalls()
{
    m_calls = QJsonArray();
}

QString VirusDaemonStandIn::State()
{
    QJsonArray quarantine;
    for (const SIsolateFileInfo &entry : std::as_const(m_quarantine))
        quarantine.append(
            QJsonObject{{"path", entry.text1}, {"virusName", entry.text2}, {"since", entry.text3}});
    QJsonArray trustFiles;
    for (const STrustFileInfo &entry : std::as_const(m_trustFiles))
        trustFiles.append(entry.text1);
    QJsonArray trustExtensions;
    for (const SExtensionInfo &entry : std::as_const(m_trustExtensions))
        trustExtensions.append(entry.text1);
    const QJsonObject state{{"quarantine", quarantine},           {"trustFiles", trustFiles},
                            {"trustExtensions", trustExtensions}, {"scanMode", m_scanMode},
                            {"scanStatus", m_scanStatus},         {"engine", m_engine}};
    return QString::fromUtf8(QJsonDocument(state).toJson(QJsonDocument::Compact));
}
