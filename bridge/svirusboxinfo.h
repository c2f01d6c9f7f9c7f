#ifndef SVIRUSBOXINFO_H
#define SVIRUSBOXINFO_H

#include "virusrecords.h"

#include <QString>

// The kinds of risk box that expect an answer; the number is the one the security log shows.
enum class BoxKind
{
    QuarantinedNotice = 0,
    TrustConfirmation = 1,
    TrustRetry = 2,
    ThreatFound = 3
};

// The answers the risk-box service reports as the state: the keys the boxes' buttons were drawn
// with. The Trust buttons of the quarantined notice and the retry box have an empty key on
// purpose, which the service reports as 1.
enum class BoxAnswer
{
    TimedOut = -1,
    Trust = 1,
    Cancel = 1,
    Confirm = 2,
    ClearNow = 1,
    NotNow = 2,
    TrustThreat = 3
};

// What the bridge remembers about one shown risk box until its answer has been handled. Never sent
// on the bus.
struct SVirusBoxInfo
{
    BoxKind iVirusType = BoxKind::QuarantinedNotice;
    // Filled for the quarantined notice and the threat only. The trust confirmation and retry keep
    // their argument in virusPath instead: the answer handling reads the fields by these positions,
    // so the asymmetry is deliberate.
    QString virusName;
    QString virusDetail;
    QString virusPath;
    bool virusFlag = false;
    // Not in the record of the box as such: the unique bus name of the risk-box service instance
    // that drew it (its ids name another box once the service has restarted), and whether an
    // answer was handled while the entry stayed.
    QString owner;
    bool answered = false;

    // The threat a threat box stands for.
    SVirusInfo threat() const { return SVirusInfo{virusName, virusDetail, virusPath, virusFlag}; }
};

#endif // SVIRUSBOXINFO_H
