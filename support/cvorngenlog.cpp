#include "cvorngenlog.h"

#include "halvolog.h"

namespace {

// Every event of this wrapper carries the same type code.
constexpr int kLogType = 13;

} // namespace

CVornGenLog::~CVornGenLog() = default;

CVornGenLog *CVornGenLog::getInstance()
{
    // Never freed: the dialog thread may still log while the process exits.
    static CVornGenLog *instance = new CVornGenLog;
    return instance;
}

int CVornGenLog::writeLog(int module, int result, const QString &message, int level)
{
    write(level, moduleName(module), message, resultName(result));
    return 0;
}

int CVornGenLog::writeLog(int module, const QString &result, const QString &operation, int level)
{
    write(level, moduleName(module), operation, result);
    return 0;
}

void CVornGenLog::write(int level, const QString &module, const QString &operation,
                        const QString &result) const
{
    const QByteArray moduleText = module.toUtf8();
    const QByteArray operationText = operation.toUtf8();
    const QByteArray resultText = result.toUtf8();
    if (level == PlainEntry)
        halvo_log(kLogType, moduleText.constData(), operationText.constData(), resultText.constData());
    else
        halvo_log_v2(level, kLogType, moduleText.constData(), operationText.constData(),
                     resultText.constData());
}

QString CVornGenLog::moduleName(int module) const
{
    static const char *const names[] = {
        "safety check",
        "password strength",
        "account lock",
        "firewall",
        "net control",
        "virus scan",
        "app source check",
        "system start control",
        "app exec control",
        "app permission control",
        "app protect control",
        "app protect control ppro",
        "app protect control fpro",
        "app protect control kmod",
        "peripheral control",
        "vulnerability repair",
        "privacy security",
        "trust measure",
    };
    if (module < 0 || module >= int(sizeof names / sizeof names[0]))
        return QString();
    return QString::fromLatin1(names[module]);
}

QString CVornGenLog::resultName(int result) const
{
    switch (result) {
    case 0: return QStringLiteral("operation successful");
    case 1: return QStringLiteral("operation failed");
    default: return QStringLiteral("none");
    }
}

int CVornGenLog::deviceTypeName(int code, QString &name) const
{
    switch (code) {
    case 1: name = QStringLiteral("usb"); break;
    case 5: name = QStringLiteral("cdrom"); break;
    case 6: name = QStringLiteral("printer"); break;
    case 7: name = QStringLiteral("wireless"); break;
    case 8: name = QStringLiteral("ethernet"); break;
    case 9: name = QStringLiteral("bluetooth"); break;
    case 10: name = QStringLiteral("camera"); break;
    case 19: name = QStringLiteral("HDMI"); break;
    case 44: name = QStringLiteral("microphone"); break;
    default: name.clear(); break;
    }
    return 0;
}

int CVornGenLog::deviceName(int code, QString &name) const
{
    switch (code) {
    case 1: name = QStringLiteral("hard drive"); break;
    case 2: name = QStringLiteral("usb cdrom"); break;
    case 3: name = QStringLiteral("usb printer"); break;
    case 4: name = QStringLiteral("usb camera"); break;
    case 5: name = QStringLiteral("usb bluetooth"); break;
    case 6: name = QStringLiteral("usb storage"); break;
    // 7 has no name in the shared vocabulary, although its neighbours do.
    case 8: name = QStringLiteral("usb microphone"); break;
    default: name.clear(); break;
    }
    return 0;
}
