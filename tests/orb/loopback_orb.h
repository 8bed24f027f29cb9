// What the in-process broker tests share: an ORB whose adapter listens on
// loopback only, and a plain Demo::Echo servant.
#ifndef KELVANOR_TEST_LOOPBACK_ORB_H
#define KELVANOR_TEST_LOOPBACK_ORB_H

#include "echo.h"
#include "orb_loopback.h"

namespace ktest {

class EchoServant : public _sk_Demo::_sk_Echo {
public:
    explicit EchoServant(const char* name) : _sk_Echo(name) {}
    char* say(const char* s) override { return CORBA::string_dup(s); }
    CORBA::Long pid() override { return 7; }
    void note(const char*) override {}
};

}  // namespace ktest

#endif
