#ifndef SVIRUSBOXINFO_H
#define SVIRUSBOXINFO_H

#include <QString>
#include <QtGlobal>

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
    // Kind 3 only: the threat's number in the journal of undecided threats, 0 when it has none.
    quint64 journalNumber = 0;
};

#endif // SVIRUSBOXINFO_H
