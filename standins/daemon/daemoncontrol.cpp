#include "daemoncontrol.h"

#include "daemonadaptor.h"
#include "daemoncontroladaptor.h"
#include "rawsignal.h"
#include "transcript.h"
#include "virusdaemonstandin.h"

#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPair>

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

} // namespace

DaemonControl::DaemonControl(VirusDaemonStandIn &daemon, QObject *parent)
    : StandInControl(QStringLiteral("daemon"), kMethods, daemon.m_faults, daemon.m_calls, parent),
      m_daemon(daemon)
{
    new DaemonControlAdaptor(this); // a child: it serves this object's control methods
}

void DaemonControl::Emit(const QString &signal, const QStringList &args)
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
        refuse(QStringLiteral("unknown daemon signal '%1'; the signals are: %2")
                   .arg(signal, sortedKeys(usage).join(QLatin1Char(' '))));
        return;
    }
    const int count = found.value().first;
    if (count >= 0 ? args.size() != count : args.size() % 4 != 0) {
        refuse(QStringLiteral("%1 takes %2, got %3 argument(s)")
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
            refuse(
                QStringLiteral("argument %1 of %2 is not a number: '%3'").arg(i + 1).arg(signal, args.at(i)));
            return;
        }
        if (isFlag && !toBool(args.at(i), flag)) {
            refuse(QStringLiteral("argument %1 of %2 is not true or false: '%3'")
                       .arg(i + 1)
                       .arg(signal, args.at(i)));
            return;
        }
        numbers.append(number);
        flags.append(flag);
    }

    DaemonAdaptor *const adaptor = m_daemon.m_adaptor;
    if (signal == QLatin1String("signal_customScanItemBegin")) {
        emit adaptor->signal_customScanItemBegin(args.at(0));
    } else if (signal == QLatin1String("signal_dealFinished")) {
        emit adaptor->signal_dealFinished(numbers.at(0));
    } else if (signal == QLatin1String("signal_rightBeginScan")) {
        emit adaptor->signal_rightBeginScan(args.at(0));
    } else if (signal == QLatin1String("signal_rightClicked")) {
        emit adaptor->signal_rightClicked();
    } else if (signal == QLatin1String("signal_scanDetailInfo")) {
        emit adaptor->signal_scanDetailInfo(SScaningInfo{args.at(0), numbers.at(1), numbers.at(2)});
    } else if (signal == QLatin1String("signal_scanFinished")) {
        SVirusInfoList list;
        for (int i = 0; i < args.size(); i += 4)
            list.append({args.at(i), args.at(i + 1), args.at(i + 2), flags.at(i + 3)});
        emit adaptor->signal_scanFinished(list);
    } else if (signal == QLatin1String("signal_scanItemBegin")) {
        emit adaptor->signal_scanItemBegin(numbers.at(0));
    } else if (signal == QLatin1String("signal_scanItemEnd")) {
        emit adaptor->signal_scanItemEnd(SScanItemVirusInfo{numbers.at(0), numbers.at(1), args.at(2)});
    } else if (signal == QLatin1String("signal_showAuthDialog")) {
        emit adaptor->signal_showAuthDialog(SVirusInfo{args.at(0), args.at(1), args.at(2), flags.at(3)});
    } else {
        // The daemon announces a file it has just cleared and backed up, so it is in quarantine.
        m_daemon.quarantine(args.at(0), QString());
        emit adaptor->signal_sysPop(args.at(0));
    }
    if (!m_daemon.m_quiet)
        printTranscript(QStringLiteral("daemon: emitted %1 %2").arg(signal, args.join(QLatin1Char(' '))));
}

void DaemonControl::EmitMany(const QString &signal, const QStringList &args, int count)
{
    if (count < 1 || count > 1000000) {
        refuse(QStringLiteral("the count is 1 to 1000000, not %1").arg(count));
        return;
    }
    // The first emission validates the arguments; a refused one sends the error and stops here.
    // "{n}" in an argument becomes the emission's number, counted from 0.
    for (int i = 0; i < count && !isDelayedReply(); ++i)
        Emit(signal, QStringList(args).replaceInStrings(QStringLiteral("{n}"), QString::number(i)));
}

void DaemonControl::EmitRaw(const QString &member, const QVariantList &args)
{
    const QString signature = sendRawSignal(connection(), QStringLiteral("/daemon"),
                                            QStringLiteral("com.vorn.virus.daemon"), member, args);
    if (!m_daemon.m_quiet)
        printTranscript(QStringLiteral("daemon: emitted %1 with signature '%2'").arg(member, signature));
}

void DaemonControl::Force(const QString &method, int value)
{
    if (knownMethod(method))
        m_faults.force(method, value);
}

void DaemonControl::Short(const QString &method, int value)
{
    if (knownMethod(method))
        m_faults.shortReply(method, value);
}

QString DaemonControl::State()
{
    QJsonArray quarantine;
    for (const SIsolateFileInfo &entry : std::as_const(m_daemon.m_quarantine))
        quarantine.append(
            QJsonObject{{"path", entry.text1}, {"virusName", entry.text2}, {"since", entry.text3}});
    QJsonArray trustFiles;
    for (const STrustFileInfo &entry : std::as_const(m_daemon.m_trustFiles))
        trustFiles.append(entry.text1);
    QJsonArray trustExtensions;
    for (const SExtensionInfo &entry : std::as_const(m_daemon.m_trustExtensions))
        trustExtensions.append(entry.text1);
    const QJsonObject state{{"quarantine", quarantine},
                            {"trustFiles", trustFiles},
                            {"trustExtensions", trustExtensions},
                            {"scanMode", m_daemon.m_scanMode},
                            {"scanStatus", m_daemon.m_scanStatus},
                            {"engine", m_daemon.m_engine}};
    return QString::fromUtf8(QJsonDocument(state).toJson(QJsonDocument::Compact));
}
