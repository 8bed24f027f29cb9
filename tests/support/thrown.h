// What a call throws, for tests that look into the exception.
#ifndef KELVANOR_TEST_THROWN_H
#define KELVANOR_TEST_THROWN_H

#include <functional>

#include <gtest/gtest.h>

namespace ktest {

// A copy of the E that f throws; a failure of the test, and E(), if it
// throws nothing. Other exceptions go on to the test.
template <class E>
E thrown(const std::function<void()>& f) {
    try {
        f();
    } catch (const E& e) {
        return e;
    }
    ADD_FAILURE() << "no exception";
    return E();
}

}  // namespace ktest

#endif
