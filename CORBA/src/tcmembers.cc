// The TypeCode constructors that take the Interface Repository's member
// records. They live apart from typecode.cc so that only they need the
// generated ir.h; each turns its sequence into the plain member list.
#include "typecode.h"

#include <vector>

#include "ir.h"

namespace {

std::vector<ZEBTCMember> structMembers(const CORBA_StructMemberSeq& seq) {
    std::vector<ZEBTCMember> out(seq.length());
    for (CORBA::ULong i = 0; i < seq.length(); ++i)
        out[i] = {seq[i].name.in(), seq[i].type.in(), nullptr};
    return out;
}

std::vector<ZEBTCMember> unionMembers(const CORBA_UnionMemberSeq& seq) {
    std::vector<ZEBTCMember> out(seq.length());
    for (CORBA::ULong i = 0; i < seq.length(); ++i)
        out[i] = {seq[i].name.in(), seq[i].type.in(), &seq[i].label};
    return out;
}

std::vector<const char*> enumMembers(const CORBA_EnumMemberSeq& seq) {
    std::vector<const char*> out(seq.length());
    for (CORBA::ULong i = 0; i < seq.length(); ++i) out[i] = seq[i].in();
    return out;
}

}  // namespace

// The lists are temporaries of the delegating call: they live until the
// constructor that copies from them returns.
CORBA_TypeCode::CORBA_TypeCode(CORBA::TCKind kind, const char* id, const char* name,
                               const CORBA_StructMemberSeq& members, unsigned char isStatic)
    : CORBA_TypeCode(kind, id, name, structMembers(members).data(), members.length(), isStatic) {}

CORBA_TypeCode::CORBA_TypeCode(const char* id, const char* name, CORBA_TypeCode* discriminator,
                               const CORBA_UnionMemberSeq& members, unsigned char isStatic)
    : CORBA_TypeCode(id, name, discriminator, unionMembers(members).data(), members.length(),
                     isStatic) {}

CORBA_TypeCode::CORBA_TypeCode(const char* id, const char* name,
                               const CORBA_EnumMemberSeq& members, unsigned char isStatic)
    : CORBA_TypeCode(id, name, enumMembers(members).data(), members.length(), isStatic) {}
