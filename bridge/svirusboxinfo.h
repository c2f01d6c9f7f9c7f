#ifndef SVIRUSBOXINFO_H
#define SVIRUSBOXINFO_H

#include <QString>

// What the bridge remembers about one shown risk box until its answer has been handled. Never sent
// on the bus.
struct SVirusBoxInfo
{
    // 0 quarantined notice, 1 trust confirmation, 2 trust retry, 3 threat found.
    int iVirusType = 0;
    // Filled for kinds 0 and 3 only. Kinds 1 and 2 keep their argument in virusPath instead: the
    // result handling reads the fields by these positions, so the asymmetry is deliberate.
    QString virusName;
    QString virusDetail;
    QString virusPath;
    bool virusFlag = false;
    // Not in the record of the box as such: the unique bus name of the risk-box service instance
    // that drew it (its ids name another box once the service has restarted), and whether an
    // answer was handled while the entry stayed.
    QString owner;
    bool answered = false;
};

#endif // SVIRUSBOXINFO_H
