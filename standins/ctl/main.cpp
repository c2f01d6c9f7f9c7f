// vorn-standin-ctl: drives the stand-in daemon and the stand-in risk-box service from a shell.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QStringList>

#include <cstdio>

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

struct Command
{
    const char *name;
    const char *method;
    int minArgs;
    int maxArgs; // -1: any number, passed on as a string list
};

int fail(const QString &text)
{
    std::fprintf(stderr, "vorn-standin-ctl: %s\n", qPrintable(text));
    return 2;
}

bool toInt(const QString &text, int &value)
{
    bool ok = false;
    value = text.toInt(&ok);
    return ok;
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

    // clang-format off
    static const Command daemonCommands[] = {
        {"emit", "Emit", 1, -1},  {"emit-many", "EmitMany", 2, -1},
        {"fail", "Fail", 1, 3},   {"force", "Force", 2, 2},
        {"short", "Short", 2, 2}, {"reset", "Reset", 0, 1},
        {"hold", "Hold", 1, 1},   {"state", "State", 0, 0},
        {"calls", "Calls", 0, 0}, {"clear-calls", "ClearCalls", 0, 0},
    };
    static const Command riskboxCommands[] = {
        {"result", "Result", 2, 3}, {"press", "Press", 2, 2},
        {"fail", "Fail", 1, 3},     {"fail-after", "FailAfter", 2, 2},
        {"empty", "Empty", 1, 1},   {"force", "Force", 2, 2},
        {"reset", "Reset", 0, 1},   {"boxes", "Boxes", 0, 0},
        {"hold", "Hold", 1, 1},     {"calls", "Calls", 0, 0},
        {"clear-calls", "ClearCalls", 0, 0},
    };
    // clang-format on

    QString service;
    const Command *begin = nullptr;
    const Command *end = nullptr;
    if (target == QLatin1String("daemon")) {
        service = QStringLiteral("com.vorn.virus");
        begin = std::begin(daemonCommands);
        end = std::end(daemonCommands);
    } else if (target == QLatin1String("riskbox")) {
        service = QStringLiteral("com.tarsel.secriskbox");
        begin = std::begin(riskboxCommands);
        end = std::end(riskboxCommands);
    } else {
        return fail(QStringLiteral("unknown stand-in '%1' (daemon or riskbox)").arg(target));
    }
    const Command *found =
        std::find_if(begin, end, [&](const Command &c) { return command == QLatin1String(c.name); });
    if (found == end)
        return fail(QStringLiteral("unknown %1 command '%2'; see --help").arg(target, command));
    if (args.size() < found->minArgs || (found->maxArgs >= 0 && args.size() > found->maxArgs))
        return fail(QStringLiteral("wrong number of arguments for '%1 %2'; see --help").arg(target, command));

    // Build the call's arguments in the control interface's types.
    QVariantList callArgs;
    const QString method = QLatin1String(found->method);
    int number = 0;
    if (method == QLatin1String("Emit")) {
        callArgs << args.first() << QStringList(args.mid(1));
    } else if (method == QLatin1String("EmitMany")) {
        if (!toInt(args.at(0), number))
            return fail(QStringLiteral("not a count: '%1'").arg(args.at(0)));
        callArgs << args.at(1) << QStringList(args.mid(2)) << number;
    } else if (method == QLatin1String("Fail")) {
        callArgs << args.value(0) << args.value(1) << args.value(2);
    } else if (method == QLatin1String("Force") || method == QLatin1String("Short") ||
               method == QLatin1String("FailAfter")) {
        if (!toInt(args.at(1), number))
            return fail(QStringLiteral("not a number: '%1'").arg(args.at(1)));
        callArgs << args.at(0) << number;
    } else if (method == QLatin1String("Reset") || method == QLatin1String("Empty") ||
               method == QLatin1String("Hold")) {
        callArgs << args.value(0);
    } else if (method == QLatin1String("Result") || method == QLatin1String("Press")) {
        int id = 0;
        if (!toInt(args.at(0), id))
            return fail(QStringLiteral("not a box id: '%1'").arg(args.at(0)));
        callArgs << id;
        if (method == QLatin1String("Press")) {
            callArgs << args.at(1);
        } else {
            if (!toInt(args.at(1), number))
                return fail(QStringLiteral("not a state: '%1'").arg(args.at(1)));
            callArgs << number << args.value(2);
        }
    }

    QDBusInterface control(service, QStringLiteral("/control"), QStringLiteral("com.vorn.standin.Control"),
                           QDBusConnection::systemBus());
    const QDBusMessage reply = control.callWithArgumentList(QDBus::Block, method, callArgs);
    if (reply.type() != QDBusMessage::ReplyMessage)
        return fail(reply.errorMessage().isEmpty() ? QStringLiteral("no answer from %1").arg(service)
                                                   : reply.errorMessage());
    for (const QVariant &value : reply.arguments()) {
        // QtDBus pads a reply without values with one invalid value: nothing to print.
        if (!value.isValid())
            continue;
        const QStringList lines =
            value.userType() == QMetaType::QStringList ? value.toStringList() : QStringList{value.toString()};
        for (const QString &line : lines)
            std::printf("%s\n", qPrintable(line));
    }
    return 0;
}
