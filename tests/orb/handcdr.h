// CDR and GIOP 1.0 by hand, in either byte order, apart from the broker's code.
#ifndef KELVANOR_TEST_HANDCDR_H
#define KELVANOR_TEST_HANDCDR_H

#include <cstdint>
#include <string>
#include <utility>

namespace handcdr {

constexpr uint8_t kRequest = 0, kReply = 1, kCancelRequest = 2, kLocateRequest = 3,
                  kLocateReply = 4, kCloseConnection = 5, kMessageError = 6, kShmConnect = 7,
                  kShmConnectReply = 8;

// CDR output; alignment counts from the first byte.
class Cdr {
public:
    explicit Cdr(bool little = true) : _little(little) {}

    Cdr& octet(uint8_t v) {
        _bytes.push_back(static_cast<char>(v));
        return *this;
    }
    Cdr& raw(const std::string& s) {
        _bytes += s;
        return *this;
    }
    Cdr& ushort(uint16_t v) { return number(v, 2); }
    Cdr& ulong(uint32_t v) { return number(v, 4); }
    Cdr& string(const std::string& s) {
        ulong(static_cast<uint32_t>(s.size() + 1)).raw(s);
        return octet(0);
    }
    Cdr& octets(const std::string& s) { return ulong(static_cast<uint32_t>(s.size())).raw(s); }
    Cdr& ior(const std::string& typeId, const std::string& profile) {
        return string(typeId).ulong(1).ulong(0).octets(profile);
    }

    Cdr& header(uint8_t type) {
        raw("GIOP").octet(1).octet(0).octet(_little ? 1 : 0).octet(type);
        return ulong(0);
    }
    std::string message() const {
        std::string m = _bytes;
        const uint32_t size = static_cast<uint32_t>(m.size() - 12);
        for (int i = 0; i < 4; ++i)
            m[8 + i] = static_cast<char>(size >> (_little ? 8 * i : 8 * (3 - i)));
        return m;
    }
    const std::string& bytes() const { return _bytes; }

private:
    Cdr& number(uint32_t v, unsigned n) {
        while (_bytes.size() % n) _bytes.push_back(0);
        for (unsigned i = 0; i < n; ++i)
            _bytes.push_back(static_cast<char>(v >> (_little ? 8 * i : 8 * (n - 1 - i))));
        return *this;
    }

    bool _little;
    std::string _bytes;
};

// CDR input from `pos` on; a read past the end yields zeros and clears ok().
class CdrIn {
public:
    CdrIn() = default;
    CdrIn(std::string data, bool little, size_t pos)
        : _data(std::move(data)), _little(little), _pos(pos) {}

    uint8_t octet() { return have(1) ? static_cast<uint8_t>(_data[_pos++]) : 0; }
    uint16_t ushort() { return static_cast<uint16_t>(number(2)); }
    uint32_t ulong() { return number(4); }
    std::string raw(size_t n) {
        if (!have(n)) return std::string();
        _pos += n;
        return _data.substr(_pos - n, n);
    }
    // Without the NUL, which must be there.
    std::string string() {
        std::string s = raw(ulong());
        if (!s.empty() && s.back() == '\0') s.pop_back();
        else if (!s.empty()) _ok = false;
        return s;
    }
    std::string octets() { return raw(ulong()); }

    bool ok() const { return _ok; }
    size_t left() const { return _data.size() - _pos; }

private:
    bool have(size_t n) {
        if (_data.size() - _pos < n) _ok = false;
        return _ok;
    }
    uint32_t number(unsigned n) {
        while (_pos % n && have(1)) ++_pos;
        if (!have(n)) return 0;
        uint32_t v = 0;
        for (unsigned i = 0; i < n; ++i)
            v |= uint32_t(uint8_t(_data[_pos + i])) << (_little ? 8 * i : 8 * (n - 1 - i));
        _pos += n;
        return v;
    }

    std::string _data;
    bool _little = true;
    size_t _pos = 0;
    bool _ok = true;
};

inline std::string giop(uint8_t type, const std::string& body, bool little = true) {
    return Cdr(little).header(type).raw(body).message();
}

// A Request without service contexts or principal; the arguments follow.
inline Cdr request(bool little, uint32_t id, bool response, const std::string& key,
                   const std::string& op) {
    Cdr m(little);
    m.header(kRequest).ulong(0).ulong(id).octet(response ? 1 : 0).octets(key).string(op);
    m.octets("");
    return m;
}

inline std::string persistentKey(bool little, const std::string& iface, const std::string& name) {
    return Cdr(little).octet(little ? 1 : 0).raw("ZEB").ulong(0).string(iface).string(name).bytes();
}

inline std::string keyById(uint32_t uid) {
    return Cdr().octet(1).raw("ZEB").ulong(3).ulong(uid).bytes();
}

// From 1.1 on, an ORB type and an unknown component follow the key.
inline std::string iiopProfile(bool little, const std::string& host, uint16_t port,
                               const std::string& key, uint8_t minor = 0, uint8_t major = 1) {
    Cdr p(little);
    p.octet(little ? 1 : 0).octet(major).octet(minor).string(host).ushort(port).octets(key);
    if (major == 1 && minor >= 1) {
        Cdr orbType(little);
        orbType.octet(little ? 1 : 0).raw("\0\0\0").ulong(0x41545400);
        p.ulong(2).ulong(0).octets(orbType.bytes()).ulong(0x7fff0001).octets("abc");
    }
    return p.bytes();
}

inline std::string iorText(bool little, const std::string& typeId, uint16_t port,
                           const std::string& key, uint8_t minor = 0, uint8_t major = 1) {
    Cdr ior(little);
    ior.octet(little ? 1 : 0)
        .ior(typeId, iiopProfile(little, "127.0.0.1", port, key, minor, major));
    std::string text = "IOR:";
    for (unsigned char c : ior.bytes()) {
        text += "0123456789abcdef"[c >> 4];
        text += "0123456789abcdef"[c & 15];
    }
    return text;
}

}  // namespace handcdr

#endif
