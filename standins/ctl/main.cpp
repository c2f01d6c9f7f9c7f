// vorn-standin-ctl: drives the stand-in daemon and the stand-in risk-box service from a shell.
#include "daemoncontrolinterface.h"
#include "riskboxcontrolinterface.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <optional>
#include <vector>

namespace {

const char kUsage[] = R"(usage: vorn-standin-ctl daemon|riskbox COMMAND [ARG...]

daemon commands (service com.vorn.virus):
  emit SIGNAL [ARG...]             emit a daemon signal; see vorn-standin-daemon --help
  emit-many COUNT SIGNAL [ARG...]  the same, COUNT times in a row ({n} in an ARG: 0, 1, ...)
  fail METHOD [ERROR [MESSAGE]]    answer METHOD with a D-Bus error
  force METHOD VALUE               answer METHOD with VALUE
  short METHOD VALUE               answer METHOD with VALUE alone
  hold METHOD                      never answer METHOD (the caller waits for its timeout)
  reset [METHOD]                   undo fail/force/short/hold
  calls | clear-calls | state      what reached the daemon, forget it, the daemon's state

riskbox commands (service com.tarsel.secriskbox):
  result ID STATE [RESERVED]       emit signalResult(ID, STATE, RESERVED)
  press ID LABEL                   press the button LABEL of box ID, as a user would
  fail METHOD [ERROR [MESSAGE]]    answer METHOD with a D-Bus error
  fail-after METHOD PASSING        the same, after PASSING calls went through
  empty METHOD                     answer METHOD with a reply that carries no values
  force create ID                  make "create" hand out ID (negative ones too)
  hold METHOD                      never answer METHOD (the caller waits for its timeout)
  reset [METHOD]                   undo fail/force/hold
  boxes | calls | clear-calls      the boxes drawn, what reached the service, forget it
)";

// A call made to a stand-in's control object, or none when the command's arguments were refused.
using Call = std::optional<QDBusPendingCall>;
using Args = const QStringList &;

// A command of the command line and the call it makes through the proxy generated from the
// stand-in's control interface file, so that the method's name and argument types are the ones
// the stand-in's adaptor serves.
template <typename Proxy> struct Command
{
    const char *name = "";
    int minArgs = 0;
    int maxArgs = 0; // -1: any number, passed on as a string list
    std::function<Call(Proxy &, Args)> call;
};

int fail(const QString &text)
{
    std::fprintf(stderr, "vorn-standin-ctl: %s\n", qPrintable(text));
    return 2;
}

// Makes the call with the argument read as a number; when it is not one, says that it is not
// `what` and makes none.
template <typename Make> Call withNumber(const QString &text, const char *what, Make make)
{
    bool ok = false;
    const int value = text.toInt(&ok);
    if (!ok) {
        fail(QStringLiteral("not %1: '%2'").arg(QLatin1String(what), text));
        return std::nullopt;
    }
    return Call(make(value));
}

// The commands both stand-ins take, through the methods their control interfaces share.
template <typename Proxy> std::vector<Command<Proxy>> commonCommands()
{
    return {
        {"fail", 1, 3, [](Proxy &p, Args a) { return p.Fail(a.value(0), a.value(1), a.value(2)); }},
        {"hold", 1, 1, [](Proxy &p, Args a) { return p.Hold(a.value(0)); }},
        {"reset", 0, 1, [](Proxy &p, Args a) { return p.Reset(a.value(0)); }},
        {"calls", 0, 0, [](Proxy &p, Args) { return p.Calls(); }},
        {"clear-calls", 0, 0, [](Proxy &p, Args) { return p.ClearCalls(); }},
    };
}

std::vector<Command<DaemonControlInterface>> daemonCommands()
{
    using Daemon = DaemonControlInterface;
    std::vector<Command<Daemon>> commands = commonCommands<Daemon>();
    commands.insert(
        commands.end(),
        {
            {"emit", 1, -1, [](Daemon &d, Args a) { return d.Emit(a.first(), a.mid(1)); }},
            {"emit-many", 2, -1,
             [](Daemon &d, Args a) {
                 return withNumber(a.at(0), "a count",
                                   [&](int count) { return d.EmitMany(a.at(1), a.mid(2), count); });
             }},
            {"force", 2, 2,
             [](Daemon &d, Args a) {
                 return withNumber(a.at(1), "a number", [&](int value) { return d.Force(a.at(0), value); });
             }},
            {"short", 2, 2,
             [](Daemon &d, Args a) {
                 return withNumber(a.at(1), "a number", [&](int value) { return d.Short(a.at(0), value); });
             }},
            {"state", 0, 0, [](Daemon &d, Args) { return d.State(); }},
        });
    return commands;
}

std::vector<Command<RiskBoxControlInterface>> riskboxCommands()
{
    using RiskBox = RiskBoxControlInterface;
    std::vector<Command<RiskBox>> commands = commonCommands<RiskBox>();
    commands.insert(
        commands.end(),
        {
            {"result", 2, 3,
             [](RiskBox &r, Args a) {
                 return withNumber(a.at(0), "a box id", [&](int id) {
                     return withNumber(a.at(1), "a state",
                                       [&](int state) { return r.Result(id, state, a.value(2)); });
                 });
             }},
            {"press", 2, 2,
             [](RiskBox &r, Args a) {
                 return withNumber(a.at(0), "a box id", [&](int id) { return r.Press(id, a.at(1)); });
             }},
            {"fail-after", 2, 2,
             [](RiskBox &r, Args a) {
                 return withNumber(a.at(1), "a number",
                                   [&](int passing) { return r.FailAfter(a.at(0), passing); });
             }},
            {"empty", 1, 1, [](RiskBox &r, Args a) { return r.Empty(a.value(0)); }},
            {"force", 2, 2,
             [](RiskBox &r, Args a) {
                 return withNumber(a.at(1), "a number", [&](int value) { return r.Force(a.at(0), value); });
             }},
            {"boxes", 0, 0, [](RiskBox &r, Args) { return r.Boxes(); }},
        });
    return commands;
}

// Runs one command on the stand-in that owns service and prints the values of its reply, one line
// each, a list a line per item.
template <typename Proxy>
int run(const std::vector<Command<Proxy>> &commands, const QString &service, const QString &target,
        const QString &command, const QStringList &args)
{
    const auto found = std::find_if(commands.cbegin(), commands.cend(), [&](const Command<Proxy> &c) {
        return command == QLatin1String(c.name);
    });
    if (found == commands.cend())
        return fail(QStringLiteral("unknown %1 command '%2'; see --help").arg(target, command));
    if (args.size() < found->minArgs || (found->maxArgs >= 0 && args.size() > found->maxArgs))
        return fail(QStringLiteral("wrong number of arguments for '%1 %2'; see --help").arg(target, command));

    Proxy control(service, QStringLiteral("/control"), QDBusConnection::systemBus());
    Call call = found->call(control, args);
    if (!call)
        return 2;
    call->waitForFinished();
    const QDBusMessage reply = call->reply();
    if (reply.type() != QDBusMessage::ReplyMessage)
        return fail(reply.errorMessage().isEmpty() ? QStringLiteral("no answer from %1").arg(service)
                                                   : reply.errorMessage());
    for (const QVariant &value : reply.arguments()) {
        const QStringList lines =
            value.userType() == QMetaType::QStringList ? value.toStringList() : QStringList{value.toString()};
        for (const QString &line : lines)
            std::printf("%s\n", qPrintable(line));
    }
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    if (args.size() < 2 || args.first() == QLatin1String("--help") || args.first() == QLatin1String("-h")) {
        std::fputs(kUsage, args.size() < 2 && !args.contains(QStringLiteral("--help")) ? stderr : stdout);
        return args.contains(QStringLiteral("--help")) || args.contains(QStringLiteral("-h")) ? 0 : 2;
    }
    const QString target = args.takeFirst();
    const QString command = args.takeFirst();

    if (target == QLatin1String("daemon"))
        return run(daemonCommands(), QStringLiteral("com.vorn.virus"), target, command, args);
    if (target == QLatin1String("riskbox"))
        return run(riskboxCommands(), QStringLiteral("com.tarsel.secriskbox"), target, command, args);
    return fail(QStringLiteral("unknown stand-in '%1' (daemon or riskbox)").arg(target));
}
