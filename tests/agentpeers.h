#ifndef AGENTPEERS_H
#define AGENTPEERS_H

#include "eventlogfile.h"
#include "standinprocess.h"

// The agent's surroundings for a test: the stand-in daemon and risk-box service on the private
// bus, and the event log the stand-in library writes.
class AgentPeers
{
public:
    explicit AgentPeers(const QStringList &riskBoxArguments = {QStringLiteral("--headless"),
                                                               QStringLiteral("--quiet")})
        : riskbox(QStringLiteral(VORN_STANDIN_RISKBOX), QStringLiteral("com.tarsel.secriskbox"),
                  riskBoxArguments)
    {}

    bool start() { return daemon.start() && riskbox.start(); }

    // Forgets calls, faults and events, so each test function starts clean.
    void reset()
    {
        for (StandInProcess *peer : {&daemon, &riskbox}) {
            peer->control(QStringLiteral("Reset"), {QString()});
            peer->control(QStringLiteral("ClearCalls"));
        }
        log.clear();
    }

    EventLogFile log;
    StandInProcess daemon{
        QStringLiteral(VORN_STANDIN_DAEMON), QStringLiteral("com.vorn.virus"), {QStringLiteral("--quiet")}};
    StandInProcess riskbox;
};

#endif // AGENTPEERS_H
