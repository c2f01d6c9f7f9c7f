#ifndef RISKBOXCONTROL_H
#define RISKBOXCONTROL_H

#include "standincontrol.h"

#include <QString>
#include <QStringList>
#include <QVariantList>

class RiskBoxStandIn;

// The risk-box stand-in's orders on "/control", served through the adaptor generated from
// riskboxcontrol.xml: answers to boxes on demand, injected faults and a report of the boxes.
class RiskBoxControl : public StandInControl
{
    Q_OBJECT

public:
    explicit RiskBoxControl(RiskBoxStandIn &riskBox, QObject *parent = nullptr);

    // Control methods beyond the common ones, called by the generated adaptor.
    void Result(int id, int state, const QString &reserved);
    void EmitRaw(const QString &member, const QVariantList &args);
    void Press(int id, const QString &label);
    void FailAfter(const QString &method, int passing);
    void Force(const QString &method, int value);
    void Empty(const QString &method);
    QStringList Boxes();

private:
    RiskBoxStandIn &m_riskBox;
};

#endif // RISKBOXCONTROL_H
