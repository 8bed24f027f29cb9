// DSUser: a process's session with the directory agent. It finds an agent
// (this machine, a list, a broadcast), logs in over one connected UDP
// stream, sends requests with retransmission, answers the agent's probes,
// keeps itself known by a keep-alive, and after losing the agent finds
// another and registers again all it had registered. DSDummyUser overrides
// every operation and never touches a network.
//
// Nothing here throws. Operations report small numbers: 0 for success, the
// negative constants below for failures.
#ifndef KELVANOR_DSUSER_H
#define KELVANOR_DSUSER_H

#include <sys/time.h>

#include <string>
#include <vector>

#include <kelvanor/dsaddr.h>
#include <kelvanor/dsdict.h>
#include <kelvanor/dsset.h>
#include <kelvanor/dsverify.h>
#include <kelvanor/iohandle.h>
#include <kelvanor/tbrtt.h>
#include <kelvanor/tbudpstr.h>

class DSAReply;
class DSAMessage;
class DSLogin;
class DSName;
class DSProvider;
class DSReply;
class DSRequest;
class DSTriggerHandler;

class DSUser : public dpIOHandler, public DSVerify {
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
    // Seconds of silence from the agent before a keep-alive, and between
    // attempts to find an agent when none answered.
    static const int _keep_alive_timer;  // 120
    static const int kRetryPeriod;       // 15

    // Set by the broker's options: the interface the session's sockets bind
    // to (-OAipaddr; null: all), and an agent host tried first
    // (-ORBagentaddr; null: none).
    static const char* boa_ipaddr;
    static const char* agent_addr;

    // A new session: finds an agent on port (TOLAGENT_PORT replaces the
    // default port) and logs in. Without an agent it says so on standard
    // output and keeps looking every kRetryPeriod seconds from the shared
    // dispatcher. Never null; close() ends it.
    static DSUser* open(const char* loginName, const char* thirdName, int port);
    ~DSUser() override;

    int inputReady(int fd) override;
    void timerExpired(long sec, long usec) override;

    // The order of the virtual operations below is part of the interface:
    // keep it when adding to this class.

    // Finds an agent listening on port and connects the session to it.
    virtual void connect(int port);
    // Drops the connection, finds an agent again, logs in and registers
    // again what was registered. 0, or the status of what failed. The base
    // version runs the whole search again.
    virtual int reconnect();
    // 1 once the attempt is over, STATUS_NO_AGENT without an agent, or the
    // status of a failed send.
    virtual int login();
    // Sends request and waits for its reply, retransmitting on the
    // estimator's time-outs, at most `seconds` in all (0: no limit).
    // 0, STATUS_TIMED_OUT or STATUS_NO_AGENT. The reply stays with the session.
    virtual int sendAndWaitForReply(DSRequest* request, TBrtt& estimator, long seconds);
    // A trigger fired: the reply carries the provider.
    virtual void triggerService(DSReply* reply);
    // A request came from the agent.
    virtual void receiveReq(DSRequest* request);
    // A reply came from the agent.
    virtual void receiveReply(DSReply* reply);

    // The listings below return a new set that the caller owns, or null with
    // a failure in status.
    virtual DSSet* _allAgentAddresses(int& status);
    virtual DSSet* _allProvidersRemote(DSName* name, int& status, const DSAddr& agent);
    virtual DSSet* _allProviders(DSName* name, int& status);
    virtual DSSet* _allNamesRemote(int& status, const DSAddr& agent);
    virtual DSSet* _allNames(int& status);
    // The agent's listing service; the caller owns the result.
    virtual DSAddr* _getClientHandlerAddr(int& status, const DSAddr& agent);

    // Report a fault when verbose is on.
    virtual void error(const char* text);
    virtual void syserror(const char* text);
    virtual void verbose(int on);

    // The provider of a name, owned by the caller, or null with a failure
    // in status; waits at most `seconds` (0: no limit).
    virtual DSProvider* getProvider(DSName* name, int& status, long seconds);
    virtual int trigger(DSName* name, DSTriggerHandler& handler);
    virtual int removeTrigger(DSName* name, const DSTriggerHandler& handler);
    virtual int registerProvider(DSProvider* provider);
    virtual int removeProvider(DSProvider* provider);
    // Tells the agent that this provider seems dead; no answer is awaited.
    virtual void markSuspect(const DSProvider& provider);
    virtual DSSet* allAgentAddresses(int& status);
    // allAgents non-zero asks every agent, zero only the session's agent.
    virtual DSSet* allProviders(DSName* name, int& status, int allAgents);
    virtual DSSet* allNames(int& status, int allAgents);
    // Agents are now to be found at port: store it and reconnect.
    virtual void switchAgent(int port);

    // Ends the session and deletes this object: the pointer is invalid
    // afterwards. The network session says goodbye to its agent first.
    void close();

    int state() const { return _state; }
    int waitState() const { return _waitState; }
    const DSAddr& agentAddr() const { return _agentAddr; }
    int agentPort() const { return _agentPort; }
    int sessionPort() const { return _stream.port(); }
    // The reply of the last sendAndWaitForReply, held for the caller (who
    // releases it by the next request), or null.
    DSReply* reply() const { return _reply; }

protected:
    // The two names go into the login record of a network session.
    DSUser(const char* loginName, const char* thirdName);

private:
    DSAReply* _tryAgent(TBudpstream& probeStream, int port, DSAMessage& probe, const char* host);
    DSAReply* _tryThisMachine(TBudpstream& probeStream, int port, DSAMessage& probe);
    static const std::vector<std::string>& _getAgentList();
    void bindSession();
    void linked(int fd);
    int sendRequest(DSRequest& request);
    void releaseReply();
    // Logged in and no request under way; otherwise false with the status.
    bool canAsk(int& status) const;
    void keepLastReply(DSReply* reply);
    void startTimer(int seconds);
    int request(int type, DSResource* argument, TBrtt& estimator, long seconds);
    DSSet* collect(int requestType, DSName* name, int& status, const DSAddr& agent);
    DSSet* walk(int requestType, DSName* name, int& status);

    DSAddr _agentAddr;         // the agent in use
    DSLogin* _login;           // counted
    TBudpstream _stream;       // the session, connected to the agent
    int _agentPort = DEFAULT_AGENT_PORT;
    int _verbose = 0;
    DSSet _providers;          // every DSProvider registered here
    DSDictionary _triggers;    // DSName -> DSSet of DSTrigWrapper
    DSRequest* _currentRequest = nullptr;  // counted; the one waited for
    DSReply* _reply = nullptr;             // counted; for the caller
    DSReply* _lastReply = nullptr;         // counted; for repeated requests
    int _state = STATE_NEW;
    int _waitState = 0;        // 0 idle, 1 waiting, 2 the reply is in
    timeval _lastHeard{0, 0};
    unsigned _firstMsgNum = 0;
    int _firstPending = 1;
    TBrtt _loginRtt, _queryRtt, _removeRtt, _registerRtt;
    int _timerRunning = 0;
    int _resend = 0;           // a reconnect ran: send the request again
    int _sharedFd = -1;        // the session descriptor on the shared dispatcher
    unsigned _sockets = 0;     // session sockets made so far
    // Sessions made by open, for the goodbye at exit.
    static DSUser* _live;
    DSUser* _nextLive = nullptr;
    static void goodbyeAtExit();
    void goodbye();  // request 10 to a connected agent, once
};

#endif
