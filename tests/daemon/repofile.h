// Test helpers for the repository file, written from its layout and not from
// the product's code: a byte builder, a strict parser, and an environment
// that points the repository at a temporary directory.
#ifndef KELVANOR_TESTS_REPOFILE_H
#define KELVANOR_TESTS_REPOFILE_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "process.h"

namespace repofile {

inline std::string u32(uint32_t v) { return std::string(reinterpret_cast<const char*>(&v), 4); }
inline std::string str(const std::string& s) { return u32(static_cast<uint32_t>(s.size())) + s; }

// One entry: interface, object, path; no reference data unless given.
inline std::string entry(const std::string& iface, const std::string& obj,
                         const std::string& path = "/bin/sh", uint32_t policy = 0,
                         const std::vector<std::string>& args = {},
                         const std::vector<std::string>& env = {}, const std::string& id = "") {
    std::string b = str(iface) + str(obj) + str(id) + str(path) + u32(policy);
    b += u32(static_cast<uint32_t>(args.size()));
    for (const std::string& a : args) b += str(a);
    b += u32(static_cast<uint32_t>(env.size()));
    for (const std::string& e : env) b += str(e);
    return b;
}

inline std::string file(const std::vector<std::string>& entries) {
    std::string b = u32(static_cast<uint32_t>(entries.size()));
    for (const std::string& e : entries) b += e;
    return b;
}

// "interface/object" of every entry, in file order; false unless the bytes
// are exactly one repository (every length fits, nothing left over).
inline bool parse(const std::string& b, std::vector<std::string>* pairs) {
    size_t pos = 0;
    auto word = [&](uint32_t& v) {
        if (b.size() - pos < 4) return false;
        std::memcpy(&v, b.data() + pos, 4);
        pos += 4;
        return true;
    };
    std::string scratch;
    auto text = [&](std::string& s) {
        uint32_t n;
        if (!word(n) || b.size() - pos < n) return false;
        s.assign(b, pos, n);
        pos += n;
        return true;
    };
    auto list = [&]() {  // count, then strings
        uint32_t n;
        bool ok = word(n);
        for (uint32_t k = 0; ok && k < n; ++k) ok = text(scratch);
        return ok;
    };
    uint32_t count, policy;
    std::string iface, obj;
    if (!word(count)) return false;
    pairs->clear();
    for (uint32_t i = 0; i < count; ++i) {
        if (!text(iface) || !text(obj) || !text(scratch) || !text(scratch) || !word(policy) ||
            !list() || !list())
            return false;
        pairs->push_back(iface + "/" + obj);
    }
    return pos == b.size();
}

// Points the repository at <temp dir>/impl_rep, the other variables unset.
struct Env {
    Env() {
        unsetenv("KELVANOR");
        unsetenv("KELVANOR_IMPL_NAME");
        setenv("KELVANOR_IMPL_PATH", temp.path().c_str(), 1);
    }
    ~Env() { unsetenv("KELVANOR_IMPL_PATH"); }
    const std::string& dir() const { return temp.path(); }
    std::string repo() const { return temp.file("impl_rep"); }
    ktest::TempDir temp{"vexrepo"};
};

}  // namespace repofile

#endif
