// Implementation definitions: copies and narrowing, stream form, printing.
#include "impldef.h"

#include <iostream>
#include <memory>

#include "except.h"
#include "tbiostrm.h"

const char* const CORBA_ImplementationDef::_class_info = "CORBA::ImplementationDef";
const char* const CORBA_CreationImplDef::_class_info = "CORBA::CreationImplDef";
const char* const CORBA_ActivationImplDef::_class_info = "CORBA::ActivationImplDef";

CORBA_Activator::~CORBA_Activator() {}

CORBA_ImplementationDef* CORBA_ImplementationDef::_copy() const {
    return new CORBA_ImplementationDef(*this);
}
const char* CORBA_ImplementationDef::_type_info() const { return _class_info; }
CORBA_ImplementationDef::~CORBA_ImplementationDef() {}

CORBA_CreationImplDef* CORBA_CreationImplDef::_copy() const {
    return new CORBA_CreationImplDef(*this);
}
const char* CORBA_CreationImplDef::_type_info() const { return _class_info; }
CORBA_CreationImplDef::~CORBA_CreationImplDef() {}

CORBA_CreationImplDef* CORBA_CreationImplDef::_narrow(const CORBA_ImplementationDef* p) {
    if (!p || p->_type_info() != _class_info) return nullptr;
    return static_cast<const CORBA_CreationImplDef*>(p)->_copy();
}

CORBA_ActivationImplDef* CORBA_ActivationImplDef::_copy() const {
    return new CORBA_ActivationImplDef(*this);
}
const char* CORBA_ActivationImplDef::_type_info() const { return _class_info; }
CORBA_ActivationImplDef::~CORBA_ActivationImplDef() {}

CORBA_ActivationImplDef* CORBA_ActivationImplDef::_narrow(const CORBA_ImplementationDef* p) {
    if (!p || p->_type_info() != _class_info) return nullptr;
    return static_cast<const CORBA_ActivationImplDef*>(p)->_copy();
}

namespace CORBA {
void release(CORBA_ImplementationDef* p) { delete p; }
void release(CORBA_CreationImplDef* p) { delete p; }
void release(CORBA_ActivationImplDef* p) { delete p; }
}  // namespace CORBA

// ------------------------------------------------------------ stream form

namespace {

// Every stream takes a string pointer, but not every one copes with null.
const char* orEmpty(const char* s) { return s ? s : ""; }

void writeBase(TBostream& strm, const CORBA_ImplementationDef& d) {
    strm << orEmpty(d.interface_name);
    strm << orEmpty(d.object_name);
    strm << d.id;
}

void readBase(TBistream& strm, CORBA_ImplementationDef& d) {
    strm >> static_cast<char*&>(d.interface_name);
    strm >> static_cast<char*&>(d.object_name);
    strm >> d.id;
}

}  // namespace

TBostream& operator<<(TBostream& strm, const CORBA_ImplementationDef* p) {
    writeBase(strm, *p);
    return strm;
}

TBostream& operator<<(TBostream& strm, const CORBA_CreationImplDef* p) {
    writeBase(strm, *p);
    strm << orEmpty(p->path);
    strm << static_cast<unsigned long>(p->activation_policy);
    strm << p->args;
    strm << p->env;
    return strm;
}

TBistream& operator>>(TBistream& strm, CORBA_ImplementationDef*& p) {
    std::unique_ptr<CORBA_ImplementationDef> d(new CORBA_ImplementationDef);
    readBase(strm, *d);
    p = d.release();
    return strm;
}

TBistream& operator>>(TBistream& strm, CORBA_CreationImplDef*& p) {
    std::unique_ptr<CORBA_CreationImplDef> d(new CORBA_CreationImplDef);
    readBase(strm, *d);
    strm >> static_cast<char*&>(d->path);
    unsigned long policy = 0;
    strm >> policy;
    // Kept unchecked: a server of a later release may know more policies.
    d->activation_policy = static_cast<CORBA_CreationImplDef::Policy>(policy);
    strm >> d->args;
    strm >> d->env;
    p = d.release();
    return strm;
}

TBostream& operator<<(TBostream& strm, const CORBA_ImplementationDef_var& v) {
    if (!v.ptr()) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    return strm << static_cast<const CORBA_ImplementationDef*>(v.ptr());
}

TBostream& operator<<(TBostream& strm, const CORBA_CreationImplDef_var& v) {
    if (!v.ptr()) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    return strm << static_cast<const CORBA_CreationImplDef*>(v.ptr());
}

TBistream& operator>>(TBistream& strm, CORBA_ImplementationDef_var& v) {
    CORBA_ImplementationDef* p = nullptr;
    strm >> p;
    v = p;
    return strm;
}

TBistream& operator>>(TBistream& strm, CORBA_CreationImplDef_var& v) {
    CORBA_CreationImplDef* p = nullptr;
    strm >> p;
    v = p;
    return strm;
}

// ---------------------------------------------------------- printing form

namespace {

const char* orNull(const char* s) { return s ? s : "(null)"; }

const char* policyName(CORBA::ULong policy) {
    switch (policy) {
    case CORBA_CreationImplDef::SHARED_SERVER: return "SHARED_SERVER";
    case CORBA_CreationImplDef::UNSHARED_SERVER: return "UNSHARED_SERVER";
    case CORBA_CreationImplDef::SERVER_PER_METHOD: return "SERVER_PER_METHOD";
    default: return nullptr;
    }
}

void printBase(std::ostream& os, const CORBA_ImplementationDef& d) {
    os << "Interface Name: " << orNull(d.interface_name) << std::endl;
    os << "Object Name: " << orNull(d.object_name) << std::endl;
    os << "Reference Data: " << d.id << std::endl;
}

}  // namespace

std::ostream& operator<<(std::ostream& os, const CORBA_ImplementationDef* p) {
    if (!ZEBisConsole(os)) {
        TBostream strm(os);
        strm << p;
        return os;
    }
    printBase(os, *p);
    return os;
}

std::ostream& operator<<(std::ostream& os, const CORBA_CreationImplDef* p) {
    if (!ZEBisConsole(os)) {
        TBostream strm(os);
        strm << p;
        return os;
    }
    printBase(os, *p);
    os << "Path: " << orNull(p->path) << std::endl;
    // The label stands twice, once for the line and once from the printing
    // of the value. Kept so on purpose.
    os << "Policy: " << "Policy:";
    if (const char* name = policyName(p->activation_policy)) os << name << std::endl;
    os << std::endl;
    os << "Arguments:" << std::endl << p->args << std::endl;
    os << "Env: " << std::endl << p->env << std::endl;
    return os;
}
