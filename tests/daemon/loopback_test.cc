// Servants made in these tests are objects of the broker, whose adapter
// listens as soon as the first one exists: on loopback only, set before any
// test runs.
#include "zebglob.h"

namespace {

const bool loopbackOnly = [] {
    ZEBGlobalTable::boa_ipaddr = "127.0.0.1";
    return true;
}();

}  // namespace
