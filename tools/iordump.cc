// iordump: prints what a stringified object reference holds, one field to a
// line: the type id, each profile's tag, and for an IIOP profile its
// version, host, port and object key, with the parsed key when this broker
// made it, and the tagged components of 1.1 and later profiles. The reference comes as the argument or on standard input. A
// profile that does not decode is reported on standard error by its number,
// after the rest has been printed, and the status is then 1.
#include <cstdio>
#include <iostream>
#include <iterator>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "except.h"
#include "giop.h"
#include "iorstr.h"
#include "zeboid.h"

namespace {

void hex(std::ostream& out, const CORBA_OctetSequence& bytes) {
    static const char digits[] = "0123456789abcdef";
    const CORBA::Octet* p = bytes.get_buffer();
    for (CORBA::ULong i = 0; i < bytes.length(); ++i) out << digits[p[i] >> 4] << digits[p[i] & 0xf];
}

void dumpKeyKind(std::ostream& out, const CORBA_OctetSequence& key) {
    ZEBObjectId_var id = ZEBObjectId::convert(key);
    if (!id) return;  // a key of another broker, or a tag we do not know
    out << "key kind: ";
    switch (id->type()) {
    case ZEBObjectId::ID_PERSISTENT: {
        const ZEBPersistentId* p = id;
        out << "persistent " << p->interface_name().string() << ' '
            << p->object_name().string();
        break;
    }
    case ZEBObjectId::ID_TRANSIENT: {
        const auto* t = static_cast<const ZEBTransientId*>(id.ptr());
        out << "transient " << t->interface_name().string() << ' ' << t->unique_id() << ' '
            << t->creation_time();
        break;
    }
    case ZEBObjectId::ID_KEY:
        out << "key " << static_cast<const ZEBKeyId*>(id.ptr())->unique_id();
        break;
    case ZEBObjectId::ID_SERVICE: {
        const ZEBServiceId* s = id;
        out << "service " << s->service_name().string() << ' ';
        hex(out, s->reference_data());
        break;
    }
    }
    out << '\n';
}

std::string failure(const CORBA_SystemException& e) { return e._desc()->name; }

// Names of the component tags that ORBs commonly put in 1.1 and later
// profiles; others print by number alone.
const char* componentName(CORBA::ULong tag) {
    switch (tag) {
    case 0: return "ORB type";
    case 1: return "code sets";
    case 2: return "policies";
    case 3: return "alternate IIOP address";
    case 20: return "SSL transport";
    case 33: return "CSI mechanisms";
    default: return nullptr;
    }
}

// "component: tag 0 (ORB type) length 8", and for the ORB type its value,
// which names the ORB that made the reference.
void dumpComponent(std::ostream& out, const IIOP::TaggedComponent& c) {
    const CORBA_OctetSequence& data = c.component_data;
    out << "component: tag " << c.tag;
    if (const char* name = componentName(c.tag)) out << " (" << name << ')';
    out << " length " << data.length();
    if (c.tag == 0 && data.length() == 8) {
        // An encapsulation: byte order, three bytes of padding, the value.
        const CORBA::Octet* p = data.get_buffer();
        CORBA::ULong v = p[0] ? (CORBA::ULong(p[7]) << 24 | CORBA::ULong(p[6]) << 16 |
                                 CORBA::ULong(p[5]) << 8 | p[4])
                              : (CORBA::ULong(p[4]) << 24 | CORBA::ULong(p[5]) << 16 |
                                 CORBA::ULong(p[6]) << 8 | p[7]);
        char text[16];
        std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(v));
        out << " value " << text;
    }
    out << '\n';
}

// One profile. The data of an IIOP profile is decoded before anything of it
// is printed; when it does not decode, only the tag line stands and the
// reason goes to damaged.
void dumpProfile(std::ostream& out, CORBA::ULong index, const IOP::TaggedProfile& profile,
                 std::vector<std::string>& damaged) {
    out << "profile " << index << ": tag " << profile.tag << '\n';
    if (profile.tag != IOP::TAG_INTERNET_IOP) return;
    std::ostringstream body;
    std::string why;
    try {
        std::vector<IIOP::TaggedComponent> components;
        std::unique_ptr<IIOP::ObjectLocator> loc(
            IIOP::ObjectLocator::convert(profile.profile_data, &components));
        body << "iiop: " << static_cast<unsigned>(loc->iiop_version.major) << '.'
             << static_cast<unsigned>(loc->iiop_version.minor) << ' '
             << (loc->host.in() ? loc->host.in() : "") << ' ' << loc->port << '\n';
        body << "key: ";
        hex(body, loc->object_key);
        body << '\n';
        dumpKeyKind(body, loc->object_key);
        for (const IIOP::TaggedComponent& c : components) dumpComponent(body, c);
        out << body.str();
        return;
    } catch (const CORBA_SystemException& e) {
        why = failure(e);
    } catch (const std::bad_alloc&) {
        why = "out of memory";
    }
    damaged.push_back("profile " + std::to_string(index) + ": malformed IIOP profile (" + why +
                      ")");
}

// The whole dump of text, or false with the reason in error. Nothing is
// printed until the reference has decoded to the end, so that a bad one
// leaves exactly one line on standard error. A damaged IIOP profile does not
// stop the dump: the others are shown, and damaged gets a line for it.
bool dump(const std::string& text, std::string& result, std::string& error,
          std::vector<std::string>& damaged) {
    std::unique_ptr<IOP::IOR> ior;
    std::ostringstream out;
    try {
        ior.reset(stringToIOR(text.c_str()));
        if (!ior) {
            error = "not a stringified object reference";
            return false;
        }
        if (!ior->type_id.in() && ior->profiles.length() == 0) {
            out << "nil\n";
        } else {
            out << "type_id: " << (ior->type_id.in() ? ior->type_id.in() : "") << '\n';
            for (CORBA::ULong i = 0; i < ior->profiles.length(); ++i)
                dumpProfile(out, i, ior->profiles[i], damaged);
        }
    } catch (const CORBA_SystemException& e) {
        error = "malformed object reference (" + failure(e) + ")";
        return false;
    } catch (const std::bad_alloc&) {
        error = "malformed object reference (out of memory)";
        return false;
    }
    result = out.str();
    return true;
}

std::string trimmed(const std::string& s) {
    const char* blanks = " \t\r\n";
    const std::string::size_type first = s.find_first_not_of(blanks);
    if (first == std::string::npos) return std::string();
    return s.substr(first, s.find_last_not_of(blanks) - first + 1);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 2) {
        std::cerr << "usage: iordump [IOR:...]" << std::endl;
        return 2;
    }
    std::string text;
    if (argc == 2) {
        text = argv[1];
    } else {
        text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    }
    std::string result, error;
    std::vector<std::string> damaged;
    if (!dump(trimmed(text), result, error, damaged)) {
        std::cerr << "iordump: " << error << std::endl;
        return 1;
    }
    std::cout << result << std::flush;
    for (const std::string& line : damaged) std::cerr << "iordump: " << line << std::endl;
    return damaged.empty() ? 0 : 1;
}
