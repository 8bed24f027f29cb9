// DSDummyUser: an agent client that never talks to a network. Registrations
// succeed and are forgotten, queries find nothing. A broker that holds it
// finds every object through the activation daemon instead of an agent.
#ifndef KELVANOR_DSDUMMYUSER_H
#define KELVANOR_DSDUMMYUSER_H

#include <kelvanor/dsuser.h>

class DSDummyUser : public DSUser {
public:
    // Both names are ignored.
    DSDummyUser(const char* loginName, const char* thirdName);

    int inputReady(int fd) override;                 // 0
    void timerExpired(long sec, long usec) override;  // nothing

    void connect(int port) override;  // nothing
    int login() override;             // 1
    int sendAndWaitForReply(DSRequest* request, TBrtt& estimator, long seconds) override;  // 0
    void triggerService(DSReply* reply) override;    // nothing
    void receiveReq(DSRequest* request) override;    // nothing
    void receiveReply(DSReply* reply) override;      // nothing

    // All listings: null, status 0.
    DSSet* _allAgentAddresses(int& status) override;
    DSSet* _allProvidersRemote(DSName* name, int& status, const DSAddr& agent) override;
    DSSet* _allProviders(DSName* name, int& status) override;
    DSSet* _allNamesRemote(int& status, const DSAddr& agent) override;
    DSSet* _allNames(int& status) override;
    DSAddr* _getClientHandlerAddr(int& status, const DSAddr& agent) override;

    void error(const char* text) override;    // nothing
    void syserror(const char* text) override;  // nothing
    void verbose(int on) override;            // nothing

    // Null with STATUS_NO_PROVIDER, whatever the name.
    DSProvider* getProvider(DSName* name, int& status, long seconds) override;
    int trigger(DSName* name, DSTriggerHandler& handler) override;               // 0
    int removeTrigger(DSName* name, const DSTriggerHandler& handler) override;  // 0
    int registerProvider(DSProvider* provider) override;  // 0, remembers nothing
    int removeProvider(DSProvider* provider) override;    // 0
    void markSuspect(const DSProvider& provider) override;  // nothing
    DSSet* allAgentAddresses(int& status) override;
    DSSet* allProviders(DSName* name, int& status, int allAgents) override;
    DSSet* allNames(int& status, int allAgents) override;
    void switchAgent(int port) override;  // nothing: there is no agent to switch
};

#endif
