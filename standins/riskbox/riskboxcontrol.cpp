#include "riskboxcontrol.h"

#include "rawsignal.h"
#include "riskboxadaptor.h"
#include "riskboxcontroladaptor.h"
#include "riskboxstandin.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <utility>

namespace {

const QStringList kMethods{"create", "addContent", "addButton", "setNotifyFold", "setTimeout", "show"};

} // namespace

RiskBoxControl::RiskBoxControl(RiskBoxStandIn &riskBox, QObject *parent)
    : StandInControl(QStringLiteral("risk-box"), kMethods, riskBox.m_faults, riskBox.m_calls, parent),
      m_riskBox(riskBox)
{
    new RiskBoxControlAdaptor(this); // a child: it serves this object's control methods
}

void RiskBoxControl::Result(int id, int state, const QString &reserved)
{
    // Sent as asked, for any id: the way to test answers for boxes that were never raised.
    m_riskBox.close(id);
    m_riskBox.print(QStringLiteral("riskbox: signalResult(%1, %2, \"%3\") sent on request")
                        .arg(id)
                        .arg(state)
                        .arg(RiskBoxStandIn::printable(reserved)));
    emit m_riskBox.m_adaptor->signalResult(id, state, reserved);
}

void RiskBoxControl::EmitRaw(const QString &member, const QVariantList &args)
{
    const QString signature = sendRawSignal(connection(), QStringLiteral("/service"),
                                            QStringLiteral("com.tarsel.secriskbox"), member, args);
    m_riskBox.print(
        QStringLiteral("riskbox: emitted %1 with signature '%2' on request").arg(member, signature));
}

void RiskBoxControl::Press(int id, const QString &label)
{
    const auto found = m_riskBox.m_boxes.constFind(id);
    if (found == m_riskBox.m_boxes.constEnd() || !found->shown || found->closed) {
        sendErrorReply(RiskBoxStandIn::unknownBoxError(),
                       QStringLiteral("no open, shown box with id %1").arg(id));
        return;
    }
    if (!m_riskBox.press(id, label))
        refuse(QStringLiteral("box %1 has no button \"%2\"").arg(id).arg(label));
}

void RiskBoxControl::FailAfter(const QString &method, int passing)
{
    if (knownMethod(method))
        m_faults.fail(method, QString(), QString(), passing);
}

void RiskBoxControl::Force(const QString &method, int value)
{
    if (method != QLatin1String("create")) {
        refuse(QStringLiteral("only create answers a value that can be forced"));
        return;
    }
    m_faults.force(method, value);
}

void RiskBoxControl::Empty(const QString &method)
{
    if (knownMethod(method))
        m_faults.emptyReply(method);
}

QStringList RiskBoxControl::Boxes()
{
    QStringList lines;
    for (const RiskBox &box : std::as_const(m_riskBox.m_boxes)) {
        QJsonArray buttons;
        for (const auto &button : box.buttons)
            buttons.append(QJsonArray{button.first, button.second});
        const QJsonObject object{{"id", box.id},
                                 {"type", box.type},
                                 {"appName", box.appName},
                                 {"title", box.title},
                                 {"contents", QJsonArray::fromStringList(box.contents)},
                                 {"buttons", buttons},
                                 {"fold", box.fold},
                                 {"timeout", box.timeout},
                                 {"shown", box.shown},
                                 {"closed", box.closed}};
        lines.append(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
    }
    return lines;
}
