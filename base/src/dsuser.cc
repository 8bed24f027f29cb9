// The agent session: finding an agent, logging in, requests with
// retransmission, the agent's own requests, keep-alive and reconnection.
// One thread: while a request waits, a private dispatcher serves only the
// session's socket and two timers, so no other handler of the process runs
// (and nothing nests a second request but reconnect, which saves and
// restores what it overwrites).
#include "dsuser.h"

#include <netinet/in.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <iostream>
#include <limits>
#include <memory>

#include "dispatch.h"
#include "dslogin.h"
#include "dsmsg.h"
#include "dsname.h"
#include "dsprovider.h"
#include "dstrigger.h"

const int DSUser::_keep_alive_timer = 120;
const int DSUser::kRetryPeriod = 15;
const char* DSUser::boa_ipaddr = nullptr;
const char* DSUser::agent_addr = nullptr;

namespace {

constexpr int kSearchRounds = 5;

// One of the private waits: a one-shot timer on a given dispatcher.
class DSTimer : public dpIOHandler {
public:
    explicit DSTimer(dpDispatcher* d) : _d(d) {}
    ~DSTimer() override {
        if (running) _d->stopTimer(this);
    }
    void start(long seconds) {
        if (running) _d->stopTimer(this);
        running = true;
        expired = false;
        _d->startTimer(seconds, 0, this);
    }
    void timerExpired(long, long) override {
        running = false;
        expired = true;
    }
    bool running = false;
    bool expired = false;

private:
    dpDispatcher* _d;
};

// Puts the request back in its place, with its reference, on every way out:
// what runs meanwhile (a reconnect's own requests) overwrites the place.
class RequestResetter {
public:
    explicit RequestResetter(DSRequest*& place) : _place(place), _saved(place) {
        TBResource::ref(_saved);
    }
    ~RequestResetter() {
        TBResource::unref(_place);
        _place = _saved;  // the reference taken above now belongs to the place
    }
    RequestResetter(const RequestResetter&) = delete;
    RequestResetter& operator=(const RequestResetter&) = delete;

private:
    DSRequest*& _place;
    DSRequest* _saved;
};

// Waits up to `seconds` for the descriptor to become readable: 1 readable,
// 0 not, -1 failed.
int waitReadable(int fd, int seconds) {
    pollfd p{fd, POLLIN, 0};
    int r;
    do {
        r = poll(&p, 1, seconds * 1000);
    } while (r < 0 && errno == EINTR);
    return r < 0 ? -1 : (r > 0 ? 1 : 0);
}

// The locate answer among whatever came: a DSAReply of type 5, status 0.
DSAReply* locateAnswer(TBTransObject* obj) {
    DSAReply* r = dynamic_cast<DSAReply*>(obj);
    if (r && r->status() == 0 && r->replyType() == DSAReply::LOCATED &&
        dynamic_cast<DSAddr*>(r->body()))
        return r;
    delete obj;
    return nullptr;
}

sockaddr_in inetAddress(const DSAddr& a) {
    sockaddr_in sin{};
    sin.sin_family = AF_INET;
    sin.sin_addr.s_addr = a.address();
    sin.sin_port = htons(static_cast<uint16_t>(a.port()));
    return sin;
}

}  // namespace

DSUser* DSUser::_live = nullptr;

DSUser::DSUser(const char* loginName, const char* thirdName)
    : _agentAddr(0, 0u), _login(new DSLogin(loginName, thirdName)), _providers(16), _triggers(16) {
    TBResource::ref(_login);
}

// Runs before the destructors of all static objects, as it is registered
// from main's time: the goodbye needs the message classes' descriptors,
// which static destruction may already have taken when the broker's table
// closes its session.
void DSUser::goodbyeAtExit() {
    for (DSUser* u = _live; u; u = u->_nextLive) u->goodbye();
}

void DSUser::goodbye() {
    if (_state >= STATE_CONNECTED) {
        TBHeld<DSRequest> bye(new DSRequest(DSRequest::CLOSE, nullptr, nullptr));
        sendRequest(*bye.get());
    }
    _state = STATE_NEW;  // nothing more goes out
}

DSUser::~DSUser() {
    for (DSUser** p = &_live; *p; p = &(*p)->_nextLive)
        if (*p == this) {
            *p = _nextLive;
            break;
        }
    if (_stream.isOpen()) {
        if (_sharedFd >= 0) dpDispatcher::instance()->unlink(_sharedFd);
        _stream.close();
    }
    if (_timerRunning) dpDispatcher::instance()->stopTimer(this);
    TBResource::unref(_currentRequest);
    TBResource::unref(_reply);
    TBResource::unref(_lastReply);
    TBResource::unref(_login);
}

DSUser* DSUser::open(const char* loginName, const char* thirdName, int port) {
    DSinit();
    DSUser* user = new DSUser(loginName, thirdName);
    static const bool registered = std::atexit(goodbyeAtExit) == 0;
    (void)registered;
    user->_nextLive = _live;
    _live = user;
    if (port == DEFAULT_AGENT_PORT)
        if (const char* env = std::getenv("TOLAGENT_PORT")) port = std::atoi(env);
    user->_agentPort = port;
    for (int i = 0; i < kSearchRounds; ++i) {
        user->connect(port);
        if (user->login() != 0) break;
    }
    if (user->_state < STATE_CONNECTED)
        std::cout << "DSUser:: Unable to contact agent. Make sure there "
                  << "is a agent running on this network" << std::endl;
    return user;
}

void DSUser::close() {
    goodbye();
    delete this;
}

void DSUser::switchAgent(int port) {
    _agentPort = port;
    reconnect();
}

void DSUser::verbose(int on) {
    _verbose = on;
    _stream.reportErrors(on);
}

void DSUser::error(const char* text) {
    if (!_verbose) return;
    std::cout << text << std::endl;
}

void DSUser::syserror(const char* text) {
    if (!_verbose) return;
    std::perror("DSUser: ");
    std::cout << text << std::endl;
}

// ---- Finding an agent.

// The session socket, bound afresh, linked on the shared dispatcher only
// once connected.
void DSUser::bindSession() {
    if (_stream.isOpen()) {
        if (_sharedFd >= 0) dpDispatcher::instance()->unlink(_sharedFd);
        _sharedFd = -1;
        _stream.close();
    }
    ++_sockets;
    if (_stream.bind(0, boa_ipaddr) != TBudpstream::OK) {
        std::perror("DSUser::connect: bind:");
        std::cout << "Unable to bind to UDP port\n";
        std::cout.flush();
        std::exit(1);
    }
}

namespace {
void bindProbe(TBudpstream& s) {
    if (s.isOpen()) s.close();
    if (s.bind(0, DSUser::boa_ipaddr) != TBudpstream::OK) {
        std::perror("DSUser::connect: bind:");
        std::cout << "Unable to bind to UDP port\n";
        std::cout.flush();
        std::exit(1);
    }
    s.blocking(1);
}
}  // namespace

DSAReply* DSUser::_tryAgent(TBudpstream& s, int port, DSAMessage& probe, const char* host) {
    for (int round = 0; round < kSearchRounds; ++round) {
        int rc = host ? s.send(host, port, probe) : s.broadcast(probe, port);
        if (rc != TBudpstream::OK) return nullptr;
        int ready = waitReadable(s.fd(), 1);
        if (ready < 0) {
            std::perror("DSUser::connect: select:");
            std::cout << "DSUser:: select error\n";
            std::cout.flush();
            std::exit(1);
        }
        if (ready == 0) continue;
        int status = 0;
        if (DSAReply* answer = locateAnswer(s.receive(status, nullptr))) return answer;
    }
    return nullptr;
}

DSAReply* DSUser::_tryThisMachine(TBudpstream& s, int port, DSAMessage& probe) {
    DSAReply* answer = nullptr;
    sockaddr_in here = inetAddress(DSAddr(port));
    if (s.connect(&here) == TBudpstream::OK && s.send(probe) == TBudpstream::OK &&
        waitReadable(s.fd(), 1) > 0) {
        int status = 0;
        answer = locateAnswer(s.receive(status, nullptr));
    }
    bindProbe(s);
    return answer;
}

const std::vector<std::string>& DSUser::_getAgentList() {
    static std::vector<std::string> list;
    static bool filled = false;
    if (filled) return list;
    filled = true;
    if (const char* env = std::getenv("TOLAGENT_ADDR")) list.emplace_back(env);
    if (const char* file = std::getenv("TOLAGENT_ADDR_FILE")) {
        std::ifstream in(file);
        if (!in) {
            std::cout << "DSUser::Unable to open agentaddr file - " << file << std::endl;
            return list;
        }
        std::string token;
        while (in >> token) {
            if (token[0] == '#') {
                in.ignore(254, '\n');
                continue;
            }
            list.push_back(token);
        }
    }
    if (agent_addr) list.emplace_back(agent_addr);
    return list;
}

void DSUser::connect(int port) {
    TBudpstream probeStream;
    bindProbe(probeStream);
    TBHeld<DSAMessage> probe(new DSAMessage(DSAMessage::LOCATE, nullptr, nullptr, 0));
    DSAReply* answer = nullptr;
    if (agent_addr) {
        answer = _tryAgent(probeStream, port, *probe.get(), agent_addr);
        if (!answer) bindProbe(probeStream);
    }
    if (!answer) answer = _tryThisMachine(probeStream, port, *probe.get());
    const std::vector<std::string>& list = _getAgentList();
    for (size_t i = 0; !answer && i < list.size(); ++i)
        answer = _tryAgent(probeStream, port, *probe.get(), list[i].c_str());
    if (!answer && !list.empty()) {
        std::cout << "Kelvanor: Unable to contact agent " << "in local node or from list "
                  << "provided. " << std::endl;
        std::cout << "Will try to locate using broadcast." << std::endl;
        answer = _tryAgent(probeStream, port, *probe.get(), nullptr);
    }
    if (!answer) {
        if (!_timerRunning) {
            std::cout << "Kelvanor: Unable to locate agent. Will try " << "every " << kRetryPeriod
                      << " seconds to locate agent" << std::endl;
            startTimer(kRetryPeriod);
        }
        return;
    }
    TBHeld<DSAReply> held(answer);
    _agentAddr = *static_cast<DSAddr*>(answer->body());
    if (!_stream.isOpen()) bindSession();
    sockaddr_in agent = inetAddress(_agentAddr);
    if (_stream.connect(&agent) != TBudpstream::OK) return;
    _firstPending = 1;
    _firstMsgNum = 0;
    _lastHeard = timeval{0, 0};
    for (TBrtt* r : {&_loginRtt, &_queryRtt, &_removeRtt, &_registerRtt}) r->reset();
    _state = STATE_CONNECTED;
    if (_sharedFd >= 0) dpDispatcher::instance()->unlink(_sharedFd);
    _sharedFd = _stream.fd();
    dpDispatcher::instance()->link(_sharedFd, dpDispatcher::ReadMask, this);
}

void DSUser::startTimer(int seconds) {
    dpDispatcher::instance()->startTimer(seconds, 0, this);
    _timerRunning = 1;
}

int DSUser::login() {
    if (_state < STATE_CONNECTED || _state == STATE_LOGGED_IN) return STATUS_NO_AGENT;
    TBHeld<DSRequest> req(new DSRequest(DSRequest::LOGIN, _login, nullptr));
    if (int rc = sendAndWaitForReply(req.get(), _loginRtt, 0)) return rc;
    if (!_reply || _reply->replyType() != DSReply::LOGGED_IN) {
        std::cout << "DSUser::login: Unexpected reply while logging in\n";
        std::cout.flush();
        std::exit(1);
    }
    const int status = _reply->status();
    if (status == DSReply::OK || status == DSReply::LOGIN_ACCEPTED) _state = STATE_LOGGED_IN;
    else if (status == DSReply::VERSION_MISMATCH)
        std::cout << "Version mismatch with agent at " << _agentAddr.ntoa() << std::endl;
    releaseReply();
    return 1;
}

// ---- Requests and replies.

void DSUser::releaseReply() {
    TBResource::unref(_reply);
    _reply = nullptr;
}

int DSUser::sendRequest(DSRequest& request) { return _stream.send(request); }

void DSUser::keepLastReply(DSReply* reply) {
    TBResource::ref(reply);
    TBResource::unref(_lastReply);
    _lastReply = reply;
}

int DSUser::sendAndWaitForReply(DSRequest* request, TBrtt& estimator, long seconds) {
    if (_state < STATE_CONNECTED) return STATUS_NO_AGENT;
    TBHeld<DSRequest> keep(request);  // across a reconnect and the fresh call
    releaseReply();
    TBResource::ref(request);
    TBResource::unref(_currentRequest);
    _currentRequest = request;

    bool lost = sendRequest(*request) == TBudpstream::REFUSED;
    int result = 0;
    if (!lost) {
        dpDispatcher wait;
        DSTimer overall(&wait), retransmit(&wait);
        if (seconds > 0) overall.start(seconds);
        _waitState = 1;
        retransmit.start(estimator.start());
        int fd = _stream.fd();
        unsigned socket = _sockets;
        wait.link(fd, dpDispatcher::ReadMask, this);
        for (;;) {
            _resend = 0;
            wait.dispatch();
            // A reconnect made a new socket, maybe under the same number:
            // the dispatcher is told either way.
            if (_sockets != socket) {
                socket = _sockets;
                wait.unlink(fd);
                fd = _stream.fd();
                if (fd >= 0) wait.link(fd, dpDispatcher::ReadMask, this);
            }
            if (_resend) {
                if (_state < STATE_CONNECTED || sendRequest(*request) == TBudpstream::REFUSED) {
                    lost = true;
                    break;
                }
                retransmit.start(estimator.start());
                continue;
            }
            if (_waitState == 2) {
                estimator.stop();
                break;
            }
            if (overall.expired) {
                _state = STATE_LOST;
                result = STATUS_TIMED_OUT;
                break;
            }
            if (!retransmit.expired) continue;
            if (++estimator.nrexmt > TBrtt::MAXNREXMT) {
                estimator.valid = 0;
                lost = true;
                break;
            }
            if (sendRequest(*request) == TBudpstream::REFUSED) {
                lost = true;
                break;
            }
            retransmit.start(estimator.start());
        }
        if (fd >= 0) wait.unlink(fd);
    }
    TBResource::unref(_currentRequest);
    _currentRequest = nullptr;
    _waitState = 0;
    if (!lost) return result;
    reconnect();
    if (_state >= STATE_CONNECTED) return sendAndWaitForReply(request, estimator, seconds);
    return STATUS_NO_AGENT;
}

int DSUser::inputReady(int) {
    int status = 0;
    TBTransObject* obj = _stream.receive(status, nullptr);
    // Nothing to read: another round read the socket dry first.
    if (status == TBudpstream::NOTHING_TO_READ) return 0;
    if (status != TBudpstream::OK) {
        delete obj;
        reconnect();
        return 0;
    }
    gettimeofday(&_lastHeard, nullptr);
    DSMessage* msg = dynamic_cast<DSMessage*>(obj);
    if (!msg) {
        delete obj;
        error("DSUser::inputReady: Unknown message type");
        return 0;
    }
    TBHeld<DSMessage> held(msg);
    if (_firstPending) {
        _firstMsgNum = msg->msgNum();
        _firstPending = 0;
    } else if (msg->msgNum() == _firstMsgNum && msg->msgType() == DSMessage::REPLY) {
        return 0;  // the login's answer again
    }
    if (msg->msgType() == DSMessage::REQUEST && dynamic_cast<DSRequest*>(msg))
        receiveReq(static_cast<DSRequest*>(msg));
    else if (msg->msgType() == DSMessage::REPLY && dynamic_cast<DSReply*>(msg))
        receiveReply(static_cast<DSReply*>(msg));
    else
        error("DSUser::inputReady: Unknown message type");
    return 0;
}

void DSUser::receiveReq(DSRequest* request) {
    if (_lastReply && _lastReply->requestNum() == request->msgNum()) {
        // A repetition: the kept answer goes again, the work is not redone.
        if (_stream.send(*_lastReply) == TBudpstream::REFUSED) reconnect();
        return;
    }
    switch (request->requestType()) {
    case DSRequest::ARE_YOU_ALIVE: {
        DSReply* answer = new DSReply(DSReply::ALIVE, *request, 0, nullptr);
        keepLastReply(answer);
        if (_stream.send(*answer) == TBudpstream::REFUSED) reconnect();
        break;
    }
    case DSRequest::CLOSE: {
        DSReply* answer = new DSReply(DSReply::CLOSED, *request, 0, nullptr);
        keepLastReply(answer);
        if (_stream.send(*answer) != TBudpstream::OK) syserror("DSUser::udpstream: send :");
        reconnect();
        break;
    }
    default:
        error("DSUser::receiveReq: Unknown request from agent\n");
    }
}

void DSUser::receiveReply(DSReply* reply) {
    if (_waitState == 1 && _currentRequest && reply->requestNum() == _currentRequest->msgNum()) {
        if (reply->status() == DSReply::UNKNOWN_CLIENT) reconnect();
        TBResource::ref(reply);
        TBResource::unref(_reply);
        _reply = reply;
        _waitState = 2;
        return;
    }
    if (reply->replyType() == DSReply::PROVIDER) {
        DSReply* ack = new DSReply(DSReply::TRIGGER_ACK, *reply, 0, nullptr);
        keepLastReply(ack);
        int rc = _stream.send(*ack);
        triggerService(reply);
        if (rc == TBudpstream::REFUSED) reconnect();
    }
    // Anything else is late: the answer to a retransmission.
}

void DSUser::timerExpired(long, long) {
    _timerRunning = 0;
    if (_state < STATE_CONNECTED) {
        reconnect();
        if (_state < STATE_CONNECTED && !_timerRunning) startTimer(kRetryPeriod);
        return;
    }
    timeval now;
    gettimeofday(&now, nullptr);
    const long quiet = now.tv_sec - _lastHeard.tv_sec;
    if (quiet < _keep_alive_timer) {
        // The flag stays clear: a later registerProvider starts a second
        // chain, as it always has.
        dpDispatcher::instance()->startTimer(_keep_alive_timer - quiet, 0, this);
        return;
    }
    if (_waitState == 1) return;
    TBHeld<DSRequest> alive(new DSRequest(DSRequest::ARE_YOU_ALIVE, nullptr, nullptr));
    sendAndWaitForReply(alive.get(), _loginRtt, 0);
    releaseReply();
    dpDispatcher::instance()->startTimer(_keep_alive_timer, 0, this);
}

int DSUser::reconnect() {
    _state = STATE_LOST;
    const int savedWait = _waitState;
    bindSession();
    _waitState = 0;
    RequestResetter guard(_currentRequest);
    for (int i = 0; i < kSearchRounds; ++i) {
        connect(_agentPort);
        if (login() != 0) break;
    }
    int rc = 0;
    if (_state >= STATE_CONNECTED) {
        // Copies of both lists: the requests below may reconnect again.
        DSSet providers(_providers);
        DSIterator p(providers);
        while (DSResource* provider = rc == 0 ? p.next() : nullptr)
            rc = request(DSRequest::REGISTER, provider, _registerRtt, 0);
        DSSet names(_triggers);
        DSIterator n(names);
        while (DSResource* entry = rc == 0 ? n.next() : nullptr)
            rc = request(DSRequest::TRIGGER, TB_CAST(DSAssoc, entry)->key, _queryRtt, 0);
    }
    _waitState = savedWait;
    _resend = 1;
    return rc;
}

// One request and its answer; the reply is released at once.
int DSUser::request(int type, DSResource* argument, TBrtt& estimator, long seconds) {
    TBHeld<DSRequest> req(new DSRequest(type, argument, nullptr));
    int rc = sendAndWaitForReply(req.get(), estimator, seconds);
    releaseReply();
    return rc;
}
