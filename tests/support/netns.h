// Tests that send datagrams to this machine's agent port, broadcast, or
// start programs that look for an agent run in a network namespace of their
// own, so that nothing leaves the test and no real agent answers.
#ifndef KELVANOR_TEST_NETNS_H
#define KELVANOR_TEST_NETNS_H

#include <string>

namespace ktest {

// Moves this process (and what it starts later) into a new user and network
// namespace with loopback up; once per process. False, with why, if the
// system does not allow it.
bool enterNetNamespace(std::string& why);
// In that namespace: a veth pair whose first end is 10.99.0.1/24 with the
// broadcast address 10.99.0.255. False, with why, if `ip` failed.
bool addVethPair(std::string& why);

}  // namespace ktest

// Skips the test when no namespace can be had.
#define KTEST_IN_NETNS()                                                     \
    do {                                                                     \
        std::string why_;                                                    \
        if (!ktest::enterNetNamespace(why_)) GTEST_SKIP() << why_;           \
    } while (0)

#endif
