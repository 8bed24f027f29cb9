// DSUser: what a process asks of the directory agent. This is the interface
// only: the operations in their fixed order and the status numbers they
// report. DSDummyUser answers all of it without a network; the session that
// really talks to an agent derives from this class as well.
//
// Nothing here throws. Operations report small numbers: 0 for success, the
// negative constants below for failures.
#ifndef KELVANOR_DSUSER_H
#define KELVANOR_DSUSER_H

#include <kelvanor/iohandle.h>

class DSAddr;
class DSName;
class DSProvider;
class DSReply;
class DSRequest;
class DSSet;
class DSTriggerHandler;
class TBrtt;

class DSUser : public dpIOHandler {
public:
    // Results of the operations.
    static constexpr int STATUS_OK = 0;
    // sendAndWaitForReply: the overall time given ran out.
    static constexpr int STATUS_TIMED_OUT = 3;
    // A listing, or the agent it should come from, could not be reached.
    static constexpr int STATUS_UNREACHABLE = -999;
    // The session has not logged in.
    static constexpr int STATUS_NOT_LOGGED_IN = -998;
    // Another request is being waited for; requests do not nest.
    static constexpr int STATUS_BUSY = -997;
    // registerProvider: this provider is registered already.
    static constexpr int STATUS_ALREADY_REGISTERED = -994;
    // No such provider, at the agent or among ours. A send to an agent whose
    // port is closed reports the same number.
    static constexpr int STATUS_NO_PROVIDER = -993;
    // removeTrigger: no such trigger.
    static constexpr int STATUS_NO_TRIGGER = -992;
    // No agent was found, or the session is not connected to one.
    static constexpr int STATUS_NO_AGENT = -1000;

    // States of the session.
    static constexpr int STATE_NEW = 0;        // never connected
    static constexpr int STATE_LOST = 1;       // connection lost or being made
    static constexpr int STATE_CONNECTED = 2;  // an agent was found
    static constexpr int STATE_LOGGED_IN = 4;

    // Where agents listen unless told otherwise.
    static constexpr int DEFAULT_AGENT_PORT = 14000;

    // The order of the virtual operations below is part of the interface:
    // keep it when adding to this class.

    // Finds an agent listening on port and connects the session to it.
    virtual void connect(int port) = 0;
    // Drops the connection, finds an agent again, logs in and registers
    // again what was registered. 0, or the status of what failed. The base
    // version has no session to repair and reports STATUS_NO_AGENT.
    virtual int reconnect();
    // 1 once the attempt is over, STATUS_NO_AGENT without an agent, or the
    // status of a failed send.
    virtual int login() = 0;
    // Sends request and waits for its reply, retransmitting on the
    // estimator's time-outs, at most `seconds` in all (0: no limit).
    // 0, STATUS_TIMED_OUT or STATUS_NO_AGENT. The reply stays with the session.
    virtual int sendAndWaitForReply(DSRequest* request, TBrtt& estimator, long seconds) = 0;
    // A trigger fired: the reply carries the provider.
    virtual void triggerService(DSReply* reply) = 0;
    // A request came from the agent.
    virtual void receiveReq(DSRequest* request) = 0;
    // A reply came from the agent.
    virtual void receiveReply(DSReply* reply) = 0;

    // The listings below return a new set that the caller owns, or null with
    // a failure in status.
    virtual DSSet* _allAgentAddresses(int& status) = 0;
    virtual DSSet* _allProvidersRemote(DSName* name, int& status, const DSAddr& agent) = 0;
    virtual DSSet* _allProviders(DSName* name, int& status) = 0;
    virtual DSSet* _allNamesRemote(int& status, const DSAddr& agent) = 0;
    virtual DSSet* _allNames(int& status) = 0;
    // The agent's listing service; the caller owns the result.
    virtual DSAddr* _getClientHandlerAddr(int& status, const DSAddr& agent) = 0;

    // Report a fault when verbose is on.
    virtual void error(const char* text) = 0;
    virtual void syserror(const char* text) = 0;
    virtual void verbose(int on) = 0;

    // The provider of a name, owned by the caller, or null with a failure
    // in status; waits at most `seconds` (0: no limit).
    virtual DSProvider* getProvider(DSName* name, int& status, long seconds) = 0;
    virtual int trigger(DSName* name, DSTriggerHandler& handler) = 0;
    virtual int removeTrigger(DSName* name, const DSTriggerHandler& handler) = 0;
    virtual int registerProvider(DSProvider* provider) = 0;
    virtual int removeProvider(DSProvider* provider) = 0;
    // Tells the agent that this provider seems dead; no answer is awaited.
    virtual void markSuspect(const DSProvider& provider) = 0;
    virtual DSSet* allAgentAddresses(int& status) = 0;
    // allAgents non-zero asks every agent, zero only the session's agent.
    virtual DSSet* allProviders(DSName* name, int& status, int allAgents) = 0;
    virtual DSSet* allNames(int& status, int allAgents) = 0;
    // Agents are now to be found at port: store it and reconnect.
    virtual void switchAgent(int port) = 0;

    // Ends the session and deletes this object: the pointer is invalid
    // afterwards. The network session says goodbye to its agent first.
    void close();

protected:
    // The two names go into the login record of a network session.
    DSUser(const char* loginName, const char* thirdName);
};

#endif
