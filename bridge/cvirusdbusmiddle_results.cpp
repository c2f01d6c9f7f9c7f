// What the bridge does with the user's answer to a risk box.
#include "cvirusdbusmiddle.h"

#include "cthreatjournalwriter.h"
#include "vorntext.h"

namespace {

QString number(int value)
{
    return QString::number(value);
}

} // namespace

void CVirusDbusMiddle::slot_ResultSignal(int id, int state, QString reserved)
{
    Q_UNUSED(reserved)
    const auto found = virusMap.constFind(id);
    // An id drawn by a service instance that has gone names another box now, perhaps somebody
    // else's: it decides nothing, as an unknown id does.
    if (found == virusMap.constEnd() || m_goneOwners.contains(found->owner)) {
        // Two blanks after the slot name, as the security log has always had them.
        logFailure(QStringLiteral("slot_ResultSignal  virusMap is err! id:%1 state:%2")
                       .arg(number(id), number(state)));
        return;
    }
    ++m_nAnswersHandled;
    // A copy: the boxes raised below may add entries to the map.
    const SVirusBoxInfo entry = found.value();
    logEvent(QStringLiteral("slot_ResultSignal start! id:%1 state:%2").arg(number(id), number(state)));

    bool remove = true;
    // Only a handling that succeeded forgets the threat: what was not done comes back at the next
    // start, even where the answer counts as handled here.
    bool done = false;
    switch (entry.iVirusType) {
    case 0:
        // %3 is absent from this format on purpose; the values fill %1, %2, %4, %5.
        logEvent(QStringLiteral("slot_ResultSignal id:%1 state:%2  iVirusType:%4 state:%5")
                     .arg(number(id), number(state), number(0), number(state)));
        if (state == 1)
            show_selectVirusBoxNotify(entry.virusName);
        break;
    case 1:
        if (state == 2)
            trustProcedure(id, state, entry);
        break;
    case 2:
        if (state == 1)
            trustProcedure(id, state, entry);
        break;
    case 3:
        logEvent(QStringLiteral("iVirusType == 3  id:%1 state:%2  iVirusType:%4 state:%5")
                     .arg(number(id), number(state), number(3), number(state)));
        // -1 (the box timed out) is handled like Clear Now.
        if (state == 1 || state == -1) {
            remove = clearProcedure(id, state, entry, done);
        } else if (state == 3) {
            remove = trustFromThreatProcedure(id, entry, done);
        } else if (state == 2) {
            logEvent(QStringLiteral("CAuthDialog: Click not to process"));
            logEvent(QStringLiteral("Not for the time being"));
            done = true;
        }
        break;
    default: break;
    }
    // The boxes raised meanwhile may have drawn this id again, from a service that restarted.
    const auto kept = virusMap.find(id);
    if (kept != virusMap.end() && kept->owner == entry.owner) {
        if (remove)
            virusMap.erase(kept);
        else
            kept->answered = true;
    }
    if (done)
        m_pJournal->forget(SVirusInfo{entry.virusName, entry.virusDetail, entry.virusPath, entry.virusFlag});
}

void CVirusDbusMiddle::trustProcedure(int id, int state, const SVirusBoxInfo &entry)
{
    const QStringList files{entry.virusPath};
    const int ret = addTrustFiles(files);
    logEvent(QStringLiteral("slot_ResultSignal id:%1 state:%2  iVirusType:%4 state:%5 ret:%6")
                 .arg(number(id), number(state), number(entry.iVirusType), number(state), number(ret)));
    if (ret != 0) {
        logFailure(QStringLiteral("Failed to add file to trust zone."));
        // The name of a kind-1 entry is empty, so the retry box carries an empty name: required as
        // it stands. A failure on a retry box raises nothing further.
        if (entry.iVirusType == 1)
            show_retryVirusBoxNotify(entry.virusName);
    }
    // Whether or not the trust add worked, the file comes back out of quarantine.
    restoreQuarantineFiles(files, 1);
}

bool CVirusDbusMiddle::clearProcedure(int id, int state, const SVirusBoxInfo &entry, bool &done)
{
    logEvent(QStringLiteral("CAuthDialog: Click deal right now"));
    const int notProcessed = dealThreats({SQuarantineFileInfo{entry.virusPath, entry.virusName}}, &done);
    if (!showNotice(vornText("The virus has been cleared and backed up to the quarantine area"),
                    entry.virusName, id, state))
        return false;
    // A refused quarantine keeps the entry, so a later answer for the same box can try again.
    return notProcessed != -1;
}

bool CVirusDbusMiddle::trustFromThreatProcedure(int id, const SVirusBoxInfo &entry, bool &done)
{
    logEvent(QStringLiteral("CAuthDialog: Click trust"));
    const QStringList files{entry.virusPath};
    const int ret = addTrustFiles(files, &done);
    // The notice is raised whatever the trust add gave.
    if (!showNotice(vornText("Moved to trust zone"), entry.virusName, id, 3))
        return false;
    if (ret != 0)
        return false;
    // The result word follows the blank without a separator.
    for (const QString &file : files)
        logEvent(QStringLiteral("Add file ") + file + QStringLiteral(" to trust zone ") +
                     QStringLiteral("Successfully"),
                 QStringLiteral("Add file to trust zone"));
    return true;
}
