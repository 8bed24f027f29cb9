// The public operations of the agent session: lookups, triggers,
// registrations, and the listings that go over TCP to each agent's client
// handler.
#include <netinet/in.h>
#include <poll.h>

#include <cerrno>
#include <initializer_list>
#include <memory>

#include "dsassoc.h"
#include "dsmsg.h"
#include "dsname.h"
#include "dsprovider.h"
#include "dstrigger.h"
#include "dispatch.h"
#include "dsuser.h"
#include "tbtcpstr.h"

namespace {

constexpr int kHandlerTries = 3;

// Callers pass names from their stack: a request holds a copy, as it
// counts what it holds.
DSName* copyOf(const DSName* name) { return name ? new DSName(*name) : nullptr; }

// Elements of a received collection, copied into a new set of the caller.
DSSet* copyElements(DSResource* result) {
    DSCollection* c = dynamic_cast<DSCollection*>(result);
    if (!c) return nullptr;
    DSSet* set = new DSSet(c->size() ? c->size() : 1);
    DSIterator it(*c);
    while (DSResource* e = it.next()) set->add(*e);
    return set;
}

}  // namespace

bool DSUser::canAsk(int& status) const {
    if (_state < STATE_LOGGED_IN) status = STATUS_NOT_LOGGED_IN;
    else if (_waitState) status = STATUS_BUSY;
    else return true;
    return false;
}

DSProvider* DSUser::getProvider(DSName* name, int& status, long seconds) {
    if (_state < STATE_CONNECTED) reconnect();
    if (!canAsk(status)) return nullptr;
    DSRequest* req = new DSRequest(DSRequest::GET_PROVIDER, copyOf(name), nullptr);
    TBResource::ref(req);
    status = sendAndWaitForReply(req, _queryRtt, seconds);
    TBResource::unref(req);
    if (status != 0) return nullptr;
    DSProvider* found = _reply ? dynamic_cast<DSProvider*>(_reply->result()) : nullptr;
    if (!_reply || _reply->status() != 0 || !found) {
        status = STATUS_NO_PROVIDER;
        releaseReply();
        return nullptr;
    }
    DSProvider* copy = new DSProvider(*found);
    releaseReply();
    return copy;
}

int DSUser::trigger(DSName* name, DSTriggerHandler& handler) {
    if (_state < STATE_CONNECTED) reconnect();
    if (_waitState) return STATUS_BUSY;
    DSSet* handlers = static_cast<DSSet*>(_triggers.atKey(*name));
    if (!handlers) {
        handlers = new DSSet(16);
        _triggers.addAssoc(*new DSName(*name), *handlers);
    }
    DSTrigWrapper* w = new DSTrigWrapper(&handler);
    if (handlers->add(*w) != w) {
        TBResource::ref(w);
        TBResource::unref(w);
        return 0;  // this handler waits already
    }
    DSRequest* req = new DSRequest(DSRequest::TRIGGER, copyOf(name), nullptr);
    TBResource::ref(req);
    int rc = sendAndWaitForReply(req, _queryRtt, 0);
    TBResource::unref(req);
    if (rc == 0 && _reply) {
        DSReply* reply = _reply;
        TBResource::ref(reply);
        releaseReply();
        if (reply->replyType() == DSReply::PROVIDER) triggerService(reply);
        TBResource::unref(reply);
    }
    return rc;
}

void DSUser::triggerService(DSReply* reply) {
    DSProvider* provider = dynamic_cast<DSProvider*>(reply->result());
    if (!provider) return;
    DSName key(provider->name());
    DSSet* handlers = static_cast<DSSet*>(_triggers.atKey(key));
    if (!handlers) return;
    // The entry goes first: a trigger fires once, and a handler may set a
    // new one from inside the call.
    TBResource::ref(handlers);
    _triggers.removeKey(key);
    std::unique_ptr<DSProvider> copy(new DSProvider(*provider));
    DSIterator it(*handlers);
    while (DSResource* e = it.next()) TB_CAST(DSTrigWrapper, e)->handler()->serviceAvailable(copy.get());
    TBResource::unref(handlers);
}

int DSUser::removeTrigger(DSName* name, const DSTriggerHandler& handler) {
    if (_state < STATE_CONNECTED) reconnect();
    DSSet* handlers = static_cast<DSSet*>(_triggers.atKey(*name));
    DSTrigWrapper key(const_cast<DSTriggerHandler*>(&handler));
    TBResource::ref(&key);
    if (!handlers || !handlers->remove(key)) return STATUS_NO_TRIGGER;
    if (handlers->isEmpty()) _triggers.removeKey(*name);
    if (_state < STATE_LOGGED_IN) return STATUS_NOT_LOGGED_IN;
    if (_waitState) return STATUS_BUSY;
    return request(DSRequest::REMOVE_TRIGGER, copyOf(name), _removeRtt, 0);
}

int DSUser::registerProvider(DSProvider* provider) {
    if (_state < STATE_CONNECTED) reconnect();
    if (_waitState) return STATUS_BUSY;
    if (_providers.occurrencesOf(*provider)) return STATUS_ALREADY_REGISTERED;
    _providers.add(*provider);
    // The provider stays in the set when the send fails: reconnect
    // registers it.
    int rc = request(DSRequest::REGISTER, provider, _registerRtt, 0);
    if (rc == 0 && !_timerRunning) startTimer(_keep_alive_timer);
    return rc;
}

int DSUser::removeProvider(DSProvider* provider) {
    if (_state < STATE_CONNECTED) reconnect();
    if (_state < STATE_LOGGED_IN) return STATUS_NOT_LOGGED_IN;
    if (_waitState) return STATUS_BUSY;
    if (!_providers.occurrencesOf(*provider)) return STATUS_NO_PROVIDER;
    // Held over the removal: the set may hold the only reference.
    TBResource::ref(provider);
    _providers.remove(*provider);
    int rc = request(DSRequest::REMOVE_PROVIDER, provider, _removeRtt, 0);
    TBResource::unref(provider);
    // The flag stays as it was, as it always has.
    if (rc == 0 && _timerRunning && _providers.isEmpty()) dpDispatcher::instance()->stopTimer(this);
    return rc;
}

void DSUser::markSuspect(const DSProvider& provider) {
    DSProvider* copy = new DSProvider(provider);
    DSAMessage* msg = new DSAMessage(DSAMessage::SUSPECT, copy, nullptr, 0);
    TBResource::ref(msg);
    TBudpstream s;
    if (s.bind(0, boa_ipaddr) == TBudpstream::OK) {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = provider.agentAddr().address();
        to.sin_port = htons(static_cast<uint16_t>(provider.agentAddr().port()));
        s.send(&to, *msg);  // nothing is awaited
    }
    TBResource::unref(msg);
}

DSSet* DSUser::allAgentAddresses(int& status) { return _allAgentAddresses(status); }

DSSet* DSUser::_allAgentAddresses(int& status) {
    if (!canAsk(status)) return nullptr;
    DSRequest* req = new DSRequest(DSRequest::ALL_AGENTS, nullptr, nullptr);
    TBResource::ref(req);
    status = sendAndWaitForReply(req, _queryRtt, 0);
    TBResource::unref(req);
    if (status != 0) return nullptr;
    DSSet* set = (_reply && _reply->status() == 0) ? copyElements(_reply->result()) : nullptr;
    if (!set) status = STATUS_UNREACHABLE;
    releaseReply();
    return set;
}

DSAddr* DSUser::_getClientHandlerAddr(int& status, const DSAddr& agent) {
    status = STATUS_UNREACHABLE;
    TBudpstream s;
    if (s.bind(0, boa_ipaddr) != TBudpstream::OK) {
        std::perror("DSUser::connect: bind:");
        std::exit(1);
    }
    s.blocking(1);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = agent.address();
    to.sin_port = htons(static_cast<uint16_t>(agent.port()));
    if (s.connect(&to) != TBudpstream::OK) return nullptr;
    DSAMessage* ask = new DSAMessage(DSAMessage::HANDLER_ADDR, nullptr, nullptr, 0);
    TBResource::ref(ask);
    DSAddr* found = nullptr;
    for (int i = 0; i < kHandlerTries && !found; ++i) {
        if (s.send(*ask) != TBudpstream::OK) break;
        pollfd p{s.fd(), POLLIN, 0};
        int r;
        do {
            r = poll(&p, 1, 1000);
        } while (r < 0 && errno == EINTR);
        if (r < 0) break;
        if (r == 0) continue;
        int st = 0;
        std::unique_ptr<TBTransObject> obj(s.receive(st, nullptr));
        DSAReply* answer = dynamic_cast<DSAReply*>(obj.get());
        if (answer && answer->status() == 0 && dynamic_cast<DSAddr*>(answer->body()))
            found = new DSAddr(*static_cast<DSAddr*>(answer->body()));
        else if (st == TBudpstream::REFUSED)
            break;
    }
    TBResource::unref(ask);
    if (found) status = 0;
    return found;
}

// One listing from one agent: a framed request on a connection of its own.
DSSet* DSUser::collect(int requestType, DSName* name, int& status, const DSAddr& agent) {
    std::unique_ptr<DSAddr> handler(_getClientHandlerAddr(status, agent));
    if (!handler) return nullptr;
    status = STATUS_UNREACHABLE;
    TBtcpstream tcp(1024, 50);
    if (tcp.connect(handler->address(), handler->port()) != TBtcpstream::OK) return nullptr;
    tcp.blocking(1);
    DSRequest* req = new DSRequest(requestType, copyOf(name), nullptr);
    TBResource::ref(req);
    int rc = tcp.send(*req, 10);
    TBResource::unref(req);
    if (rc != TBtcpstream::OK) return nullptr;
    int st = 0;
    std::unique_ptr<TBTransObject> obj(tcp.waitForObject(st, 30));
    DSReply* reply = dynamic_cast<DSReply*>(obj.get());
    if (!reply || reply->status() != 0) return nullptr;
    DSSet* set = copyElements(reply->result());
    if (set) status = 0;
    return set;
}

DSSet* DSUser::_allProvidersRemote(DSName* name, int& status, const DSAddr& agent) {
    return collect(DSRequest::ALL_PROVIDERS, name, status, agent);
}

DSSet* DSUser::_allNamesRemote(int& status, const DSAddr& agent) {
    return collect(DSRequest::ALL_NAMES, nullptr, status, agent);
}

// Every agent's listing, merged. An agent that cannot be reached is passed
// over; any other failure ends the walk.
DSSet* DSUser::walk(int requestType, DSName* name, int& status) {
    std::unique_ptr<DSSet> agents(_allAgentAddresses(status));
    if (!agents) return nullptr;
    DSAddr self(_agentPort, _agentAddr.address());
    std::unique_ptr<DSSet> all(collect(requestType, name, status, self));
    if (!all) return nullptr;
    DSIterator it(*agents);
    while (DSResource* e = it.next()) {
        DSAddr* a = dynamic_cast<DSAddr*>(e);
        if (!a) continue;
        std::unique_ptr<DSSet> more(collect(requestType, name, status, *a));
        if (status == STATUS_UNREACHABLE) continue;
        if (status != 0) return nullptr;
        std::unique_ptr<DSSet> merged(new DSSet(all->capacity() + more->capacity()));
        for (DSSet* part : {all.get(), more.get()}) {
            DSIterator p(*part);
            while (DSResource* x = p.next()) merged->add(*x);
        }
        all = std::move(merged);
    }
    status = 0;
    return all.release();
}

DSSet* DSUser::_allProviders(DSName* name, int& status) { return walk(DSRequest::ALL_PROVIDERS, name, status); }

DSSet* DSUser::_allNames(int& status) { return walk(DSRequest::ALL_NAMES, nullptr, status); }

DSSet* DSUser::allProviders(DSName* name, int& status, int allAgents) {
    if (!canAsk(status)) return nullptr;
    if (allAgents) return _allProviders(name, status);
    return _allProvidersRemote(name, status, DSAddr(_agentPort, _agentAddr.address()));
}

DSSet* DSUser::allNames(int& status, int allAgents) {
    if (!canAsk(status)) return nullptr;
    if (allAgents) return _allNames(status);
    return _allNamesRemote(status, DSAddr(_agentPort, _agentAddr.address()));
}
