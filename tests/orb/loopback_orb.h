// What the in-process broker tests share: an ORB whose adapter listens on
// loopback only, and a plain Demo::Echo servant.
#ifndef KELVANOR_TEST_LOOPBACK_ORB_H
#define KELVANOR_TEST_LOOPBACK_ORB_H

#include "echo.h"
#include "orb.h"
#include "zebglob.h"

namespace ktest {

// Each test runs in a process of its own, so the first call makes the
// adapter, on 127.0.0.1.
inline CORBA_ORB* loopbackOrb() {
    ZEBGlobalTable::boa_ipaddr = "127.0.0.1";
    int argc = 1;
    char name[] = "test";
    char* argv[] = {name, nullptr};
    return CORBA::ORB_init(argc, argv);
}

class EchoServant : public _sk_Demo::_sk_Echo {
public:
    explicit EchoServant(const char* name) : _sk_Echo(name) {}
    char* say(const char* s) override { return CORBA::string_dup(s); }
    CORBA::Long pid() override { return 7; }
    void note(const char*) override {}
};

}  // namespace ktest

#endif
