// A small Interface Repository on the generated skeletons of ir.idl, for
// the tests of the repository's classes through generated stubs and from
// omniORB. It serves a fixed description of Demo::Echo (examples/echo),
// built from the generated TypeCodes: the Repository, which holds the
// InterfaceDef directly, and one OperationDef per operation. Every change,
// and what the tests do not ask, is refused (CORBA_NO_IMPLEMENT). It prints
// the Repository's reference on a line and serves until a signal ends it.
//
//   ir_server [broker options]
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "boa.h"
#include "echo.h"
#include "except.h"
#include "ir.h"
#include "orb.h"

namespace {

const char kModuleId[] = "IDL:Demo:1.0";
const char kVersion[] = "1.0";

[[noreturn]] void refuse() { throw CORBA_NO_IMPLEMENT(0, CORBA::COMPLETED_NO); }

// Demo::Echo as its IDL says; each operation has at most one parameter.
struct OpRow {
    const char* name;
    CORBA_TypeCode* const* result;
    CORBA::OperationMode mode;
    const char* param;  // null: none; else an in string
};
const OpRow kOps[] = {
    {"say", &CORBA::_tc_string, CORBA::OP_NORMAL, "s"},
    {"pid", &CORBA::_tc_long, CORBA::OP_NORMAL, nullptr},
    {"note", &CORBA::_tc_void, CORBA::OP_ONEWAY, "s"},
};

CORBA_Contained::Description* described(CORBA::DefinitionKind kind, CORBA_TypeCode* tc,
                                        void* record) {
    CORBA_Contained::Description* d = new CORBA_Contained::Description;
    d->kind = kind;
    d->value = CORBA_Any(CORBA_TypeCode::_duplicate(tc), record, 1);
    return d;
}

// What every Contained here answers alike; Sk is a generated skeleton.
template <class Sk>
class FixedContained : public Sk {
public:
    char* id() override { return CORBA::string_dup(_id.c_str()); }
    char* name() override { return CORBA::string_dup(_name.c_str()); }
    void id(const char*) override { refuse(); }
    void name(const char*) override { refuse(); }
    char* version() override { refuse(); }
    void version(const char*) override { refuse(); }
    char* absolute_name() override { refuse(); }
    CORBA_Container* defined_in() override { refuse(); }
    CORBA_Repository* containing_repository() override { refuse(); }
    void move(CORBA_Container*, const char*, const char*) override { refuse(); }
    void destroy() override { refuse(); }

protected:
    FixedContained(const std::string& id, const std::string& name)
        : Sk(name.c_str()), _id(id), _name(name) {}

    const std::string _id, _name;
};

// What every Container here answers alike: the contents of a fixed list.
template <class Sk>
class FixedContainer : public Sk {
public:
    CORBA_ContainedSeq* contents(CORBA::DefinitionKind limit, CORBA::Boolean) override {
        CORBA_ContainedSeq* s = new CORBA_ContainedSeq;
        for (CORBA_Contained* c : _members) {
            if (limit != CORBA::dk_all && c->def_kind() != limit) continue;
            s->length(s->length() + 1);
            (*s)[s->length() - 1] = CORBA_Contained::_duplicate(c);
        }
        return s;
    }
    CORBA_Contained* lookup(const char*) override { refuse(); }
    CORBA_ContainedSeq* lookup_name(const char*, CORBA::Long, CORBA::DefinitionKind,
                                    CORBA::Boolean) override { refuse(); }
    CORBA_Container::DescriptionSeq* describe_contents(CORBA::DefinitionKind, CORBA::Boolean,
                                                       CORBA::Long) override { refuse(); }
    CORBA_ModuleDef* create_module(const char*, const char*, const char*) override { refuse(); }
    CORBA_ConstantDef* create_constant(const char*, const char*, const char*, CORBA_IDLType*,
                                       const CORBA_Any&) override { refuse(); }
    CORBA_StructDef* create_struct(const char*, const char*, const char*,
                                   const CORBA_StructMemberSeq&) override { refuse(); }
    CORBA_UnionDef* create_union(const char*, const char*, const char*, CORBA_IDLType*,
                                 const CORBA_UnionMemberSeq&) override { refuse(); }
    CORBA_EnumDef* create_enum(const char*, const char*, const char*,
                               const CORBA_EnumMemberSeq&) override { refuse(); }
    CORBA_AliasDef* create_alias(const char*, const char*, const char*,
                                 CORBA_IDLType*) override { refuse(); }
    CORBA_InterfaceDef* create_interface(const char*, const char*, const char*,
                                         const CORBA_InterfaceDefSeq&) override { refuse(); }

protected:
    using Sk::Sk;
    std::vector<CORBA_Contained*> _members;  // not owned
};

class OperationImpl : public FixedContained<_sk_CORBA::_sk_OperationDef> {
public:
    explicit OperationImpl(const OpRow& row)
        : FixedContained(std::string("IDL:Demo/Echo/") + row.name + ":1.0", row.name),
          _row(row) {}

    CORBA_OperationDescription description() {
        CORBA_OperationDescription d;
        d.name = _name.c_str();
        d.id = _id.c_str();
        d.defined_in = Demo::_tc_Echo->id();
        d.version = kVersion;
        d.result = CORBA_TypeCode::_duplicate(*_row.result);
        d.mode = _row.mode;
        if (_row.param) {
            d.parameters.length(1);
            d.parameters[0].name = _row.param;
            d.parameters[0].type = CORBA_TypeCode::_duplicate(CORBA::_tc_string);
            d.parameters[0].mode = CORBA::PARAM_IN;
        }
        return d;
    }

    CORBA::DefinitionKind def_kind() override { return CORBA::dk_Operation; }
    CORBA_Contained::Description* describe() override {
        return described(CORBA::dk_Operation, CORBA::_tc_OperationDescription,
                         new CORBA_OperationDescription(description()));
    }
    CORBA_TypeCode* result() override { refuse(); }
    CORBA_IDLType* result_def() override { refuse(); }
    void result_def(CORBA_IDLType*) override { refuse(); }
    CORBA_ParDescriptionSeq* params() override { refuse(); }
    void params(const CORBA_ParDescriptionSeq&) override { refuse(); }
    CORBA::OperationMode mode() override { refuse(); }
    void mode(CORBA::OperationMode) override { refuse(); }
    CORBA_ContextIdSeq* contexts() override { refuse(); }
    void contexts(const CORBA_ContextIdSeq&) override { refuse(); }
    CORBA_ExceptionDefSeq* exceptions() override { refuse(); }
    void exceptions(const CORBA_ExceptionDefSeq&) override { refuse(); }

private:
    const OpRow& _row;
};

class EchoDefImpl : public FixedContained<FixedContainer<_sk_CORBA::_sk_InterfaceDef>> {
public:
    EchoDefImpl() : FixedContained(Demo::_tc_Echo->id(), Demo::_tc_Echo->name()) {
        for (const OpRow& row : kOps) {
            _ops.emplace_back(new OperationImpl(row));
            _members.push_back(_ops.back().get());
        }
    }

    CORBA::DefinitionKind def_kind() override { return CORBA::dk_Interface; }
    CORBA_TypeCode* type() override { return CORBA_TypeCode::_duplicate(Demo::_tc_Echo); }
    CORBA_Contained::Description* describe() override {
        CORBA_InterfaceDescription* d = new CORBA_InterfaceDescription;
        d->name = _name.c_str();
        d->id = _id.c_str();
        d->defined_in = kModuleId;
        d->version = kVersion;
        return described(CORBA::dk_Interface, CORBA::_tc_InterfaceDescription, d);
    }
    CORBA_InterfaceDef::FullInterfaceDescription* describe_interface() override {
        FullInterfaceDescription* d = new FullInterfaceDescription;
        d->name = _name.c_str();
        d->id = _id.c_str();
        d->defined_in = kModuleId;
        d->version = kVersion;
        d->operations.length(static_cast<CORBA::ULong>(_ops.size()));
        for (CORBA::ULong i = 0; i < _ops.size(); ++i) d->operations[i] = _ops[i]->description();
        d->type = CORBA_TypeCode::_duplicate(Demo::_tc_Echo);
        return d;
    }
    CORBA_InterfaceDefSeq* base_interfaces() override { refuse(); }
    void base_interfaces(const CORBA_InterfaceDefSeq&) override { refuse(); }
    CORBA::Boolean is_a(const char*) override { refuse(); }
    CORBA_AttributeDef* create_attribute(const char*, const char*, const char*, CORBA_IDLType*,
                                         CORBA::AttributeMode) override { refuse(); }
    CORBA_OperationDef* create_operation(const char*, const char*, const char*, CORBA_IDLType*,
                                         CORBA::OperationMode, const CORBA_ParDescriptionSeq&,
                                         const CORBA_ExceptionDefSeq&,
                                         const CORBA_ContextIdSeq&) override { refuse(); }

    void ready(CORBA::BOA_ptr boa) {
        boa->obj_is_ready(this, nullptr);
        for (const auto& op : _ops) boa->obj_is_ready(op.get(), nullptr);
    }

private:
    std::vector<std::unique_ptr<OperationImpl>> _ops;
};

class RepositoryImpl : public FixedContainer<_sk_CORBA::_sk_Repository> {
public:
    RepositoryImpl() : FixedContainer("repository") { _members.push_back(&_echo); }

    CORBA_Contained* lookup_id(const char* id) override {
        return std::string(id) == Demo::_tc_Echo->id() ? CORBA_Contained::_duplicate(&_echo)
                                                       : nullptr;
    }
    CORBA::DefinitionKind def_kind() override { return CORBA::dk_Repository; }
    void destroy() override { refuse(); }
    CORBA_PrimitiveDef* get_primitive(CORBA::PrimitiveKind) override { refuse(); }
    CORBA_StringDef* create_string(CORBA::ULong) override { refuse(); }
    CORBA_SequenceDef* create_sequence(CORBA::ULong, CORBA_IDLType*) override { refuse(); }
    CORBA_ArrayDef* create_array(CORBA::ULong, CORBA_IDLType*) override { refuse(); }

    // Every object of the repository is served.
    void ready(CORBA::BOA_ptr boa) {
        boa->obj_is_ready(this, nullptr);
        _echo.ready(boa);
    }

private:
    EchoDefImpl _echo;
};

}  // namespace

int main(int argc, char** argv) {
    try {
        CORBA::ORB_ptr orb = CORBA::ORB_init(argc, argv);
        CORBA::BOA_ptr boa = orb->BOA_init(argc, argv);
        RepositoryImpl repository;
        repository.ready(boa);
        CORBA_String_var ior(orb->object_to_string(&repository));
        std::cout << ior.in() << std::endl;
        boa->impl_is_ready(nullptr);
    } catch (const CORBA_Exception& e) {
        std::cerr << "ir_server: " << e << std::endl;
        return 1;
    }
    return 0;
}
