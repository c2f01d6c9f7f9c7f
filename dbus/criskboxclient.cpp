#include "criskboxclient.h"

#include "checkconnected.h"
#include "cvorngenlog.h"
#include "vorntext.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusServiceWatcher>

#include <cstdio>

namespace {

const QString kService = QStringLiteral("com.tarsel.secriskbox");
const QString kPath = QStringLiteral("/service");
const QString kInterface = QStringLiteral("com.tarsel.secriskbox");
const char *const kResultSignal = SIGNAL(signalResult(int, int, QString));

} // namespace

CRiskBoxClient::CRiskBoxClient(QObject *receiver, const char *resultSlot, QObject *parent)
    : QObject(parent), m_pReceiver(receiver), m_resultSlot(resultSlot),
      m_connectionName(QStringLiteral("virus_dialog_conn_%1").arg(QCoreApplication::applicationPid()))
{
    std::printf("m_connectionName :%s\n", m_connectionName.toLocal8Bit().constData());
    QDBusConnection::connectToBus(QDBusConnection::SystemBus, m_connectionName);
    watchOwner();
    createInterface();
    // An interface that could not introspect its peer has no signalResult to connect; the first
    // box reconnects, and connects it then.
    if (hasResultSignal())
        connectResult();
}

// The interface is not a child: it is replaced by reconnection, and goes with the client.
CRiskBoxClient::~CRiskBoxClient()
{
    delete m_pNotifyInterface;
}

bool CRiskBoxClient::isValid() const
{
    return m_pNotifyInterface->isValid();
}

bool CRiskBoxClient::isUsable() const
{
    return m_pNotifyInterface->isValid() && hasResultSignal();
}

bool CRiskBoxClient::hasResultSignal() const
{
    return m_pNotifyInterface->metaObject()->indexOfSignal("signalResult(int,int,QString)") >= 0;
}

void CRiskBoxClient::connectResult()
{
    checkConnected(connect(m_pNotifyInterface, kResultSignal, m_pReceiver, m_resultSlot), "signalResult");
}

void CRiskBoxClient::watchOwner()
{
    // Watched on the connection the answers arrive on, so that an owner's change is seen before
    // anything the next owner sends. A new connection of the same name gets a new watcher: one
    // told to move to a connection of its own connection's name stays where it was.
    // A reconnection may run inside the old watcher's own signal: it is let go, not deleted there.
    if (m_pOwnerWatcher) {
        m_pOwnerWatcher->disconnect(this);
        m_pOwnerWatcher->deleteLater();
    }
    m_pOwnerWatcher = new QDBusServiceWatcher(kService, QDBusConnection(m_connectionName),
                                              QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(m_pOwnerWatcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &oldOwner, const QString &newOwner) {
                emit ownerChanged(oldOwner, newOwner);
            });
}

void CRiskBoxClient::createInterface()
{
    m_pNotifyInterface = new QDBusInterface(kService, kPath, kInterface, QDBusConnection(m_connectionName));
}

bool CRiskBoxClient::reconnect()
{
    if (m_pNotifyInterface) {
        if (hasResultSignal())
            disconnect(m_pNotifyInterface, kResultSignal, m_pReceiver, m_resultSlot);
        delete m_pNotifyInterface;
        m_pNotifyInterface = nullptr;
    }
    QDBusConnection::disconnectFromBus(m_connectionName);
    QDBusConnection::connectToBus(QDBusConnection::SystemBus, m_connectionName);
    watchOwner();
    createInterface();
    if (!m_pNotifyInterface->isValid()) {
        CVornGenLog::getInstance()->writeLog(CVornGenLog::VirusScan, 1,
                                             QStringLiteral("CVirusDbusMiddle reConnectionDBus failed: %1")
                                                 .arg(m_pNotifyInterface->lastError().message()),
                                             CVornGenLog::Failure);
        return false;
    }
    connectResult();
    return true;
}

int CRiskBoxClient::call(QList<QVariant> &replyArgs, const QString &method, const QList<QVariant> &args)
{
    const QDBusMessage response = m_pNotifyInterface->callWithArgumentList(QDBus::AutoDetect, method, args);
    if (response.type() != QDBusMessage::ReplyMessage) {
        std::printf("method:%s  调用失败：response.type():%d \n", method.toLocal8Bit().constData(),
                    int(response.type()));
        return -1;
    }
    replyArgs = response.arguments();
    return 0;
}

QString CRiskBoxClient::owner() const
{
    // Asked of the bus: Qt 6.8 no longer names the sender of a reply.
    return m_pNotifyInterface->connection().interface()->serviceOwner(kService).value();
}

int CRiskBoxClient::create(int type, const QStringList &contents)
{
    // Only create checks the interface: the later calls for the same box use what it found or made.
    if (!isUsable()) {
        std::printf("DBus interface invalid, attempting to reConnectionDBus...\n");
        if (!reconnect()) {
            std::printf("Failed to reConnection DBus interface\n");
            return -1;
        }
    }
    QList<QVariant> reply;
    call(reply, QStringLiteral("create"),
         {type, QStringLiteral("vorn-defender"), vornText("Security Center")});
    // QtDBus pads a reply without arguments with one invalid value: that is no id either.
    if (reply.isEmpty() || !reply.first().isValid())
        return -1;
    const int id = reply.first().toInt();
    if (id >= 0) {
        for (const QString &line : contents) {
            QList<QVariant> ignored;
            const int status = call(ignored, QStringLiteral("addContent"), {id, line});
            if (status < 0)
                return status;
        }
    }
    return id;
}

int CRiskBoxClient::addButtons(int id, const QStringList &buttons)
{
    // Pairs of text and key; a trailing unpaired entry is never sent.
    int status = 0;
    for (int i = 0; i + 1 < buttons.size(); i += 2) {
        QList<QVariant> ignored;
        status = call(ignored, QStringLiteral("addButton"), {id, buttons.at(i), buttons.at(i + 1)});
        if (status < 0)
            return status;
    }
    return status;
}

int CRiskBoxClient::setFold(int id, int fold)
{
    QList<QVariant> ignored;
    return call(ignored, QStringLiteral("setNotifyFold"), {id, fold});
}

int CRiskBoxClient::setTimeout(int id, int timeout)
{
    QList<QVariant> ignored;
    return call(ignored, QStringLiteral("setTimeout"), {id, timeout});
}

int CRiskBoxClient::show(int id)
{
    QList<QVariant> ignored;
    return call(ignored, QStringLiteral("show"), {id});
}

CRiskBoxClient::Step CRiskBoxClient::draw(int type, const QStringList &contents, const QStringList &buttons,
                                          Finish finish, int &iId, int &ret)
{
    iId = create(type, contents);
    if (iId < 0) {
        std::printf("create_secRiskBox iId: %d\n", iId);
        ret = iId;
        return Step::Create;
    }
    ret = addButtons(iId, buttons);
    if (ret < 0) {
        std::printf("add_secRiskBoxAction iId:%d iRet: %d\n", iId, ret);
        return Step::AddButton;
    }
    if (finish == Finish::Fold) {
        ret = setFold(iId, 1);
        if (ret < 0) {
            std::printf("set_secRiskBoxFold iId:%d iRet: %d\n", iId, ret);
            return Step::Fold;
        }
    } else if (finish == Finish::Timeout) {
        ret = setTimeout(iId, 10);
        if (ret < 0) {
            std::printf("set_secRiskBoxTimeout iId:%d iRet: %d\n", iId, ret);
            return Step::Timeout;
        }
    }
    ret = show(iId);
    if (ret < 0) {
        // Two blanks before iRet, as the line has always read.
        std::printf("show_secRiskBox iId:%d  iRet: %d\n", iId, ret);
        return Step::Show;
    }
    return Step::None;
}
