# -*- python -*-
"""kelvanor_idl: the Kelvanor back end of omniidl.

    omniidl -p tools/idl -b kelvanor_idl [-C outdir] file.idl

omniidl parses the IDL (and reports its errors); this back end turns the
tree into, for each X.idl, a header X.h and a source X.cc in the directory
that omniidl runs it in: this module builds a model of the declarations and
kelvanor_idl_out writes the two files from it. Declarations that come from
#included IDL files are not generated again: X.h includes their headers
(Y.idl gives "Y.h"; the name of one of the broker's own IDL files, those in
the folder of the back-end argument broker_idl=<dir>, gives <kelvanor/Y.h>,
whose classes come with the broker's library). omniidl tells only the name
of an included file, not its folder, so the name decides: a user's file of
such a name would generate classes that clash with the broker's anyway. The broker's headers
are always included as <kelvanor/...>, a path that no generated file can
take, so that a user's orb.idl or corba.idl cannot hide them. Errors go to
stderr as "file:line: message", and the exit status is 1.

C++ mapping
-----------

Names. A module is a namespace; an interface, structure, exception or
sequence a class; types declared inside an interface or structure are nested
in its class. An identifier that is a C++ keyword gets the prefix "_cxx_".
The names used at run time (interface names, exception names, printing
forms) are the IDL scoped names with "::", e.g. "CosNaming::NamingContext";
repository ids are omniidl's, so #pragma prefix and #pragma ID apply.

Types, by the way they are passed:

  IDL type          member, element   in             out        inout      result
  short, long,      CORBA::Short,     T              T&         T&         T
  unsigned short    UShort, Long,
  and long, float,  ULong, Float,
  double, boolean,  Double, Boolean,
  char, octet       Char, Octet
  enum E            E                 E              E&         E&         E
  string            CORBA_String_var  const char*    char*&     char*&     char*
  Object            CORBA_Object_var  CORBA_Object*  CORBA_Object*&  (as out)  CORBA_Object*
  interface I       I_var             I*             I*&        I*&        I*
  fixed struct S    S                 const S&       S&         S&         S
  variable struct S S                 const S&       S*&        S&         S*
  sequence Q        Q                 const Q&       Q*&        Q&         Q*
  any               CORBA_Any         const CORBA_Any&  CORBA_Any*&  CORBA_Any&  CORBA_Any*
  TypeCode          CORBA_TypeCode_var  CORBA_TypeCode*  CORBA_TypeCode*&  (as out)
                                                                               CORBA_TypeCode*
  fixed union U     U                 const U&       U&         U&         U
  variable union U  U                 const U&       U*&        U&         U*
  fixed array A     A                 const A        A          A          A_slice*
  variable array A  A                 const A        A_slice*&  A          A_slice*
  kelvanor_class C  C_var             C*             C*&        C*&        C*

(CORBA::Boolean and CORBA::Octet are unsigned char, CORBA::Char is char,
CORBA::Long and ULong are 32 bits.) A structure member of a primitive or
enum type starts at 0.

A structure is variable when it holds a string, a reference, a sequence, a
kelvanor_class structure or a variable structure. Results and out values
that are pointers belong to the caller (release references with
CORBA::release, strings with CORBA::string_free, delete structures and
sequences); in values stay the caller's. The stub ignores the old value of
an out argument and frees (or releases) the old value of an inout string,
reference or object of a kelvanor_class; a call that fails leaves out and
inout arguments as they were. A null string goes on the wire as "". A null
pointer where a structure, a sequence or an object of a kelvanor_class is
due (an in argument, a servant's result or out value) is CORBA_BAD_PARAM
(minor 0, completed NO). Bounds of strings and sequences are not checked.

Structures are plain structs with the members in IDL order (aggregates:
copy and assignment are member-wise, strings copied, references
duplicated); stream operators operator<<(TBostream&, const S&) and
operator>>(TBistream&, S&) go member by member; operator<<(std::ostream&,
const S&) prints for people on cout, cerr and clog and writes the stream
form elsewhere. Enumerations are C++ enums with 32-bit underlying type,
streamed as unsigned long; reading a value beyond the last enumerator
throws CORBA_BAD_PARAM. Exceptions derive from CORBA_UserException, with
the members, a default constructor and one taking every member (as in
arguments); they register their repository id for the exception stream
operators of except.h.

Every interface I gives: typedef I* I_ptr; typedef ZEBObjectVar<I> I_var
(owning, a copy duplicates). Structures and sequences give
typedef ZEBVar<S> S_var (owning, a copy is deep). A typedef T of such types
also gives T_var (and T_ptr for interfaces).

Sequences. A typedef'd sequence is a class of its own name deriving from
ZEBSequence<element member type>. An anonymous sequence<octet> is
CORBA_OctetSequence and an anonymous sequence<string> CORBA_StringSequence;
any other anonymous sequence that is the type of member m is the class
_m_seq nested in the structure or exception (an anonymous sequence inside
the sequence N is _N_seq beside it).

Interfaces: the stub class I (derived virtually from CORBA_Object, or from
the IDL bases), with _desc, _type_info, _safe_narrow, _factory, _narrow,
_duplicate, _nil, _bind and one virtual member per operation; an attribute
a is a reader a() and, unless readonly, a writer a(value), "_get_a" and
"_set_a" on the wire. The skeleton _sk_<M>::_sk_I (namespaces _sk_ of each
module) derives from I, declares every operation of I and its bases pure,
and has one static dispatch function per operation and attribute of I
itself (_op, _get_a, _set_a; "_op" gets a further "_op" where its name is
one of CORBA_Object's, such as _bind) in its table _methods, in IDL order.
A servant derives from _sk_I and calls its constructor with the object
name, or with a service name and reference data.

Unions are classes U with the discriminator _d() and _d(value), and per
member m a reader m() and a writer m(value) that sets the discriminator to
m's first label (for the default member, to the first value no label
names); a new union holds its default member, or else its first. Each
member has storage of its own (_u_m), so copies are member-wise; the stream
form is the discriminator, then the member it selects (none when no label
matches and there is no default).

An array typedef A of E[n]... is the C++ array type with A_slice (E with
the first dimension dropped), A_alloc() and A_dup(s) (new[] of n slices),
A_free(s) and the holder A_var = ZEBArrayVar<A_slice>; a structure member
m declared with sizes gets the array type _m_array beside it. Arrays move
through the ZEBputArray / ZEBgetArray templates of zebidl.h (two arrays of
one shape are one C++ type, so they cannot each have stream operators).
Sequences of arrays and arrays in unions are refused.

Every type emitted (structure, exception, union, enumeration, interface,
typedef'd sequence, alias, array typedef) has a static CORBA_TypeCode*
const _tc_<name> in its scope (a static member inside a class). It is built
from constants only and filled in at first use, so static initialisers of
any unit may use it. A sequence of the enclosing structure or union is a
recursive sequence TypeCode. `any' is CORBA_Any and CORBA::TypeCode (IDL
files name it after #include <orb.idl>, whose header is the broker's orb.h)
CORBA_TypeCode. An interface only forward-declared in the whole file is
passed and held as CORBA_Object, since its class is never complete there.

Anys: a structure, union, typedef'd sequence or enumeration T has
operator<<=(CORBA_Any&, const T&) (a copy; an enumeration by value),
operator<<=(CORBA_Any&, T*) for the first three (which takes and deletes
the value) and operator>>=(const CORBA_Any&, T*&) (an enumeration: T&),
which gives a new copy the caller deletes, as the broker's own extraction
operators give copies; an array typedef A has A_forany (ptr and nocopy)
and its pair of operators; an interface I has operator>>=(const CORBA_Any&,
I*&) (a narrowed duplicate), while insertion is CORBA_Object's. The value
goes through its stream operators into a CDR block with the static
TypeCode (anyidl.h); extraction is false unless the Any's TypeCode equals
it.

Constants are emitted as constexpr values. Contexts, long long, long
double, wide characters and strings, fixed and value types are refused with
an error at their declaration.

#pragma kelvanor_class <IDL struct> <C++ class> [<header>]

The structure named (resolved from the scope of the pragma) is not
generated: the existing class stands for it, and its name becomes a typedef
of the class. The class must have a _var holder named <C++ class>_var
(copied deeply), stream operators for const C* and C*&, a printing
operator<<(std::ostream&, const C*), a copy constructor, and it is freed by
delete (CORBA::release of impldef.h does the same). The header is
included by the generated header; for the implementation definitions of
impldef.h it need not be given.
"""

import os
import sys

from omniidl import idlast, idltype

# ---------------------------------------------------------------- errors


class GenError(Exception):
    def __init__(self, where, message):
        Exception.__init__(self, message)
        self.where = where
        self.message = message


def fail(decl, message):
    raise GenError("%s:%d" % (decl.file(), decl.line()), message)


# ---------------------------------------------------------------- names

CXX_KEYWORDS = set("""
alignas alignof and and_eq asm auto bitand bitor bool break case catch char
char16_t char32_t class compl const constexpr const_cast continue decltype
default delete do double dynamic_cast else enum explicit export extern false
float for friend goto if inline int long mutable namespace new noexcept not
not_eq nullptr operator or or_eq private protected public register
reinterpret_cast return short signed sizeof static static_assert static_cast
struct switch template this thread_local throw true try typedef typeid
typename union unsigned using virtual void volatile wchar_t while xor xor_eq
""".split())


def cxx(name):
    return "_cxx_" + name if name in CXX_KEYWORDS else name


# Module CORBA is the broker's own: its interfaces, structures, sequences
# and aliases are the global classes CORBA_<name>; its enumerations and
# their enumerators (named here, once the tree is indexed) stay in namespace
# CORBA, as do the static TypeCodes of all its types.
CORBA_KEPT = set()


def in_corba(modpath):
    return modpath[:1] == ["CORBA"]


def cxx_scoped(scoped_name):
    names = list(scoped_name)
    if len(names) >= 2 and names[0] == "CORBA" and names[1] not in CORBA_KEPT:
        names = ["CORBA_" + names[1]] + names[2:]
    return "::".join(cxx(n) for n in names)


def join_q(owner_q, uname):
    """The C++ name of uname declared in the scope owner_q."""
    if owner_q == "CORBA":
        return "CORBA_" + uname
    return (owner_q + "::" + uname) if owner_q else uname


def runtime_name(scoped_name):
    return "::".join(scoped_name)


def string_hash(text):
    """The broker's hash of operation names, so stubs need not compute it."""
    h = 0
    for c in text.encode("latin-1"):
        h = ((h * 2) ^ c) & 0xFFFFFFFF
    return h & 0x7FFFFFFF


def c_string(text):
    out = []
    for ch in text:
        o = ord(ch)
        if ch == "\\" or ch == '"':
            out.append("\\" + ch)
        elif 32 <= o < 127:
            out.append(ch)
        else:
            out.append("\\%03o" % (o & 0xFF))
    return '"' + "".join(out) + '"'


def c_char(ch):
    o = ord(ch)
    if ch == "\\" or ch == "'":
        return "'\\" + ch + "'"
    if 32 <= o < 127:
        return "'" + ch + "'"
    return "'\\%03o'" % (o & 0xFF)


# ---------------------------------------------------------------- types

PRIMITIVES = {
    idltype.tk_short: "CORBA::Short",
    idltype.tk_long: "CORBA::Long",
    idltype.tk_ushort: "CORBA::UShort",
    idltype.tk_ulong: "CORBA::ULong",
    idltype.tk_float: "CORBA::Float",
    idltype.tk_double: "CORBA::Double",
    idltype.tk_boolean: "CORBA::Boolean",
    idltype.tk_char: "CORBA::Char",
    idltype.tk_octet: "CORBA::Octet",
}

# The static TypeCodes of the basic kinds, in namespace CORBA.
BASIC_TCS = {
    idltype.tk_short: "CORBA::_tc_short",
    idltype.tk_long: "CORBA::_tc_long",
    idltype.tk_ushort: "CORBA::_tc_ushort",
    idltype.tk_ulong: "CORBA::_tc_ulong",
    idltype.tk_float: "CORBA::_tc_float",
    idltype.tk_double: "CORBA::_tc_double",
    idltype.tk_boolean: "CORBA::_tc_boolean",
    idltype.tk_char: "CORBA::_tc_char",
    idltype.tk_octet: "CORBA::_tc_octet",
    idltype.tk_any: "CORBA::_tc_any",
    idltype.tk_TypeCode: "CORBA::_tc_TypeCode",
}

UNSUPPORTED = {
    idltype.tk_Principal: "Principal",
    idltype.tk_longlong: "long long",
    idltype.tk_ulonglong: "unsigned long long",
    idltype.tk_longdouble: "long double",
    idltype.tk_wchar: "wchar",
    idltype.tk_wstring: "wstring",
    idltype.tk_fixed: "fixed",
    idltype.tk_value: "valuetype",
    idltype.tk_value_box: "valuetype",
    idltype.tk_native: "native",
    idltype.tk_abstract_interface: "abstract interface",
    idltype.tk_local_interface: "local interface",
}


class Ty:
    """One IDL type as the generated code handles it.

    kind is one of void, prim, enum, string, object, struct, seq, class;
    name is the C++ name of the type (of the class for object, struct, seq
    and class kinds)."""

    def __init__(self, kind, name, variable=False, prim=None, count=0, dims=()):
        self.kind = kind
        self.dims = dims  # sizes of an array
        self.name = name
        self.variable = variable
        self.prim = prim
        self.count = count  # enumerators of an enum

    # The type of a structure member or sequence element.
    def member(self):
        k = self.kind
        if k in ("prim", "enum", "struct", "seq", "any", "array"):
            return self.name
        if k == "tc":
            return "CORBA_TypeCode_var"
        if k == "string":
            return "CORBA_String_var"
        if k == "object":
            # The same type as ZEBObjectVar<I>, by the typedef that comes
            # with every interface and forward declaration.
            return self.name + "_var"
        if k == "class":
            return self.name + "_var"
        raise AssertionError(k)

    def member_init(self):
        if self.kind == "prim":
            return " = 0"
        if self.kind == "enum":
            return " = %s()" % self.name
        return ""

    def in_type(self):
        k = self.kind
        if k in ("prim", "enum"):
            return self.name
        if k == "string":
            return "const char*"
        if k in ("object", "class", "tc"):
            return self.name + "*"
        if k == "array":
            return "const " + self.name
        return "const %s&" % self.name

    def out_type(self):
        k = self.kind
        if k in ("prim", "enum"):
            return self.name + "&"
        if k == "string":
            return "char*&"
        if k in ("object", "class", "tc"):
            return self.name + "*&"
        if k == "array":
            return self.name + "_slice*&" if self.variable else self.name
        if self.pointer():
            return self.name + "*&"
        return self.name + "&"

    def inout_type(self):
        k = self.kind
        if k in ("prim", "enum", "struct", "seq", "any"):
            return self.name + "&"
        if k == "string":
            return "char*&"
        if k == "array":
            return self.name
        return self.name + "*&"

    def result_type(self):
        k = self.kind
        if k == "void":
            return "void"
        if k in ("prim", "enum"):
            return self.name
        if k == "string":
            return "char*"
        if k in ("object", "class", "tc"):
            return self.name + "*"
        if k == "array":
            return self.name + "_slice*"
        if self.pointer():
            return self.name + "*"
        return self.name

    def param_type(self, direction):
        return (self.in_type, self.out_type, self.inout_type)[direction]()

    # True for the structures and sequences that go out and come back as
    # pointers to heap values.
    def pointer(self):
        return self.kind in ("seq", "any") or (self.kind == "struct" and self.variable)

    # The owning local of a stub or skeleton.
    def holder(self):
        k = self.kind
        if k in ("prim", "enum"):
            return self.name
        if k == "string":
            return "CORBA_String_var"
        if k == "object":
            return "ZEBObjectVar<%s>" % self.name
        if k == "class":
            return "ZEBClassVar<%s>" % self.name
        if k == "tc":
            return "CORBA_TypeCode_var"
        if k == "array":
            return "ZEBArrayVar<%s_slice>" % self.name
        if self.pointer():
            return "ZEBVar<%s>" % self.name
        return self.name

    # An expression printing value e (a member or element) for people.
    def printed(self, e):
        k = self.kind
        if k == "prim":
            if self.prim in (idltype.tk_boolean, idltype.tk_octet):
                return "static_cast<unsigned>(%s)" % e
            return e
        if k == "string":
            return "ZEBprintString(%s.in())" % e
        if k == "object":
            return "static_cast<CORBA_Object*>(%s.in())" % e
        if k == "class":
            return "static_cast<const %s*>(%s)" % (self.name, e)
        if k == "tc":
            return "%s.in()" % e
        if k == "array":
            return "ZEBArrayText<%s>(%s)" % (self.name, e)
        return e


VOID = Ty("void", "void")
STRING = Ty("string", "char*", variable=True)
OBJECT = Ty("object", "CORBA_Object", variable=True)
OCTETS = Ty("seq", "CORBA_OctetSequence", variable=True)
STRINGS = Ty("seq", "CORBA_StringSequence", variable=True)
ANY = Ty("any", "CORBA_Any", variable=True)
TYPECODE = Ty("tc", "CORBA_TypeCode", variable=True)

# The classes of impldef.h need no header named in their pragma.
KNOWN_CLASS_HEADERS = {
    "CORBA_ImplementationDef": "<kelvanor/impldef.h>",
    "CORBA_CreationImplDef": "<kelvanor/impldef.h>",
    "CORBA_ActivationImplDef": "<kelvanor/impldef.h>",
}

# Members of CORBA_Object and of every stub class whose names a dispatch
# function "_<operation>" could take.
OBJECT_MEMBERS = set("""
_type_info _safe_narrow _prepare_reply _service _create_request _send _invoke
_duplicate _nil _narrow _factory _desc _ref _release _ref_count _is_local
_is_nil _is_bound _is_persistent _boa _interface_name _object_name
_repository_id _principal _default_principal _bind_options
_default_bind_options _get_implementation _is_a _non_existent _hash
_is_equivalent _zeb_impl _stub _skeleton _implementation _bind _class_info
_init _init_nil _methods _skel_info _is_a __clone _request
""".split())

# ---------------------------------------------------------------- the model
#
# One pass over the tree builds items; the header and the source are then
# written from the same items, so both agree on every name.


class Item:
    def __init__(self, kind, decl, modpath):
        self.kind = kind
        self.decl = decl
        self.modpath = modpath  # module names: the namespace of the item
        self.nested = []        # items declared inside this class

    def namespace(self):
        """The C++ namespaces that hold the item."""
        path = self.modpath
        if in_corba(path) and self.kind != "enum":
            path = path[1:]
        return [cxx(m) for m in path]

    def ns(self):
        """Qualifier of the namespace that holds the item's operators."""
        return "".join(m + "::" for m in self.namespace())


def unalias(t):
    while isinstance(t, idltype.Declared) and t.kind() == idltype.tk_alias:
        d = t.decl()
        if d.sizes():
            break  # an array is a type of its own
        t = d.alias().aliasType()
    return t


def union_label(value, disc):
    """(number, C++ text) of a case label of discriminator type disc."""
    if disc.kind == "enum":
        return value.value(), cxx_scoped(value.scopedName())
    if disc.prim == idltype.tk_char:
        return ord(value), c_char(value)
    if disc.prim == idltype.tk_boolean:
        return int(bool(value)), "1" if value else "0"
    return value, "%s(%d)" % (disc.name, value)


def tc_name(scoped_name):
    """The C++ name of the static TypeCode of a declared type."""
    scope = cxx_scoped(scoped_name[:-1])
    return (scope + "::" if scope else "") + "_tc_" + scoped_name[-1]


class TcBuilder:
    """The body of the function that builds one static TypeCode: lines that
    make the TypeCodes of anonymous types as counted temporaries, and
    expressions for the rest.

    levels lists the TypeCodes that enclose the one being described, the
    struct or union first, None for each anonymous sequence between: a
    sequence of an enclosing struct or union is a recursive sequence."""

    def __init__(self, decl):
        self.lines = []
        self.count = 0
        self.levels = [decl]

    def temp(self, expr):
        self.count += 1
        name = "_t%d" % self.count
        self.lines.append("CORBA_TypeCode_var %s(%s);" % (name, expr))
        return name + ".in()"

    def ref(self, t, levels=None):
        levels = self.levels if levels is None else levels
        if isinstance(t, idltype.Base):
            if t.kind() in BASIC_TCS:
                return BASIC_TCS[t.kind()]
            raise AssertionError(t.kind())
        if isinstance(t, idltype.String):
            if not t.bound():
                return "CORBA::_tc_string"
            return self.temp("new CORBA_TypeCode(CORBA::ULong(%du), 0)" % t.bound())
        if isinstance(t, idltype.Sequence):
            e = t.seqType()
            if isinstance(e, idltype.Declared) and e.decl() in levels:
                offset = len(levels) - levels.index(e.decl())
                return self.temp("new CORBA_TypeCode(CORBA::ULong(%du), CORBA::ULong(%du), 0)"
                                 % (t.bound(), offset))
            elem = self.ref(e, levels + [None])
            return self.temp("new CORBA_TypeCode(CORBA::tk_sequence, %du, %s, 0)"
                             % (t.bound(), elem))
        d = t.decl()
        if t.kind() == idltype.tk_objref:
            if list(t.scopedName()) == ["CORBA", "Object"]:
                return "CORBA::_tc_Object"
            if forward_only(d):
                return self.temp('new CORBA_TypeCode("%s", "%s", 0)' % (d.repoId(), d.identifier()))
        return tc_name(d.scopedName())

    def array(self, t, sizes):
        expr = self.ref(t)
        for n in reversed(sizes):
            expr = self.temp("new CORBA_TypeCode(CORBA::tk_array, %du, %s, 0)" % (n, expr))
        return expr


def forward_only(decl):
    """True for an interface only forward-declared in the whole tree: its
    class is never complete, so its references are plain CORBA_Objects."""
    return isinstance(decl, idlast.Forward) and decl.fullDecl() is None


def as_interface(decl):
    """The Interface behind an inherited name (which may be a typedef)."""
    while isinstance(decl, idlast.Declarator):
        decl = decl.alias().aliasType().decl()
    if isinstance(decl, idlast.Forward):
        decl = decl.fullDecl()
    return decl


def ancestors(iface):
    """Every base of iface, nearest first, each once."""
    seen = []
    queue = [as_interface(b) for b in iface.inherits()]
    while queue:
        b = queue.pop(0)
        if b in seen:
            continue
        seen.append(b)
        queue.extend(as_interface(x) for x in b.inherits())
    return seen


class Generator:
    def __init__(self, tree, broker_idl=()):
        self.tree = tree
        self.broker_idl = broker_idl  # names of the broker's IDL files
        self.structs = {}       # scoped name tuple -> Struct, of the whole tree
        self.classes = {}       # scoped name tuple -> (C++ class, "header" or <header>)
        self.variable_cache = {}
        self.includes = []      # "Y.h" or <kelvanor/Y.h> of #included IDL files
        self.items = []
        self.skeletons = []     # interface items, in order

    # ------------------------------------------------------------ pragmas

    def index(self, decl):
        if isinstance(decl, idlast.Module):
            for d in decl.definitions():
                self.index(d)
        elif isinstance(decl, idlast.Interface):
            for d in decl.contents():
                self.index(d)
        elif isinstance(decl, (idlast.Struct, idlast.Exception)):
            if isinstance(decl, idlast.Struct):
                self.structs[tuple(decl.scopedName())] = decl
            for m in decl.members():
                if m.constrType():
                    self.index(m.memberType().decl())
        elif isinstance(decl, idlast.Typedef):
            if decl.constrType():
                self.index(decl.aliasType().decl())
        elif isinstance(decl, idlast.Enum) and len(decl.scopedName()) == 2 \
                and decl.scopedName()[0] == "CORBA":
            CORBA_KEPT.add(decl.identifier())
            CORBA_KEPT.update(e.identifier() for e in decl.enumerators())

    def pragma_sources(self, decl, scope, out):
        """(pragma, scope) for every pragma attached anywhere below decl."""
        for p in decl.pragmas():
            out.append((p, scope))
        inner = scope
        if isinstance(decl, (idlast.Module, idlast.Interface, idlast.Struct, idlast.Exception)):
            inner = decl.scopedName()
        children = []
        if isinstance(decl, idlast.Module):
            children = decl.definitions()
        elif isinstance(decl, idlast.Interface):
            children = decl.contents()
        elif isinstance(decl, (idlast.Struct, idlast.Exception)):
            children = decl.members()
        elif isinstance(decl, idlast.Operation):
            children = decl.parameters()
        elif isinstance(decl, idlast.Enum):
            children = decl.enumerators()
        for c in children:
            self.pragma_sources(c, inner, out)

    def read_pragmas(self):
        found = [(p, []) for p in self.tree.pragmas()]
        for d in self.tree.declarations():
            self.pragma_sources(d, [], found)
        for p, scope in found:
            words = p.text().split()
            if not words or words[0] != "kelvanor_class":
                continue
            if len(words) not in (3, 4):
                raise GenError("%s:%d" % (p.file(), p.line()),
                               "usage: #pragma kelvanor_class <struct> <C++ class> [<header>]")
            name, cls = words[1], words[2]
            header = words[3] if len(words) == 4 else KNOWN_CLASS_HEADERS.get(cls)
            if header and header[0] not in "\"<":
                header = '"%s"' % header
            target = self.lookup_struct(name, scope)
            if target is None:
                raise GenError("%s:%d" % (p.file(), p.line()),
                               "kelvanor_class: no structure '%s' here" % name)
            self.classes[target] = (cls, header)

    def lookup_struct(self, name, scope):
        parts = name.split("::")
        if parts[0] == "":
            key = tuple(parts[1:])
            return key if key in self.structs else None
        scope = list(scope)
        while True:
            key = tuple(scope + parts)
            if key in self.structs:
                return key
            if not scope:
                return None
            scope.pop()

    # ------------------------------------------------------------ types

    def ty(self, t, where):
        """The Ty of a type that needs no class of its own made here."""
        if isinstance(t, idltype.Base):
            k = t.kind()
            if k == idltype.tk_void:
                return VOID
            if k in PRIMITIVES:
                return Ty("prim", PRIMITIVES[k], prim=k)
            if k == idltype.tk_any:
                return ANY
            if k == idltype.tk_TypeCode:
                return TYPECODE
            fail(where, "%s is not supported" % UNSUPPORTED.get(k, "this type"))
        if isinstance(t, idltype.String):
            return STRING
        if isinstance(t, idltype.Sequence):
            builtin = self.builtin_sequence(t)
            if builtin is None:
                fail(where, "an anonymous sequence is allowed only as a member; use a typedef")
            return builtin
        if isinstance(t, idltype.Declared):
            k = t.kind()
            d = t.decl()
            if k == idltype.tk_alias:
                if d.sizes():
                    elem = self.ty(d.alias().aliasType(), where)
                    return Ty("array", cxx_scoped(d.scopedName()),
                              variable=elem.variable or elem.kind == "string", dims=d.sizes())
                target = d.alias().aliasType()
                if isinstance(target, idltype.Sequence):
                    return Ty("seq", cxx_scoped(d.scopedName()), variable=True)
                return self.ty(target, where)
            if k == idltype.tk_objref:
                if list(t.scopedName()) == ["CORBA", "Object"] or forward_only(d):
                    return OBJECT
                return Ty("object", cxx_scoped(t.scopedName()), variable=True)
            if k == idltype.tk_struct:
                key = tuple(d.scopedName())
                if key in self.classes:
                    return Ty("class", self.classes[key][0], variable=True)
                return Ty("struct", cxx_scoped(d.scopedName()),
                          variable=self.struct_variable(d))
            if k == idltype.tk_enum:
                return Ty("enum", cxx_scoped(d.scopedName()), count=len(d.enumerators()))
            if k == idltype.tk_union:
                return Ty("struct", cxx_scoped(d.scopedName()), variable=self.struct_variable(d))
            fail(where, "%s is not supported" % UNSUPPORTED.get(k, "this type"))
        fail(where, "this type is not supported")

    def builtin_sequence(self, seq):
        e = unalias(seq.seqType())
        if isinstance(e, idltype.Base) and e.kind() == idltype.tk_octet:
            return OCTETS
        if isinstance(e, idltype.String):
            return STRINGS
        return None

    def struct_variable(self, decl):
        key = tuple(decl.scopedName())
        if key in self.variable_cache:
            return self.variable_cache[key]
        self.variable_cache[key] = True  # a recursive structure is variable
        variable = False
        if isinstance(decl, idlast.Union):
            types = [c.caseType() for c in decl.cases()]
        else:
            types = [m.memberType() for m in decl.members()]
        for t in types:
            t = unalias(t)
            while isinstance(t, idltype.Declared) and t.kind() == idltype.tk_alias:
                t = unalias(t.decl().alias().aliasType())  # an array: its elements
            if isinstance(t, (idltype.String, idltype.Sequence)):
                variable = True
            elif isinstance(t, idltype.Base) and t.kind() in (idltype.tk_any, idltype.tk_TypeCode):
                variable = True
            elif isinstance(t, idltype.Declared):
                if t.kind() == idltype.tk_objref:
                    variable = True
                elif t.kind() in (idltype.tk_struct, idltype.tk_union):
                    if (tuple(t.decl().scopedName()) in self.classes
                            or self.struct_variable(t.decl())):
                        variable = True
        self.variable_cache[key] = variable
        return variable

    def member_ty(self, t, where, owner_q, owner_rt, uname, modpath, items):
        """The Ty of a member or element type; an anonymous sequence becomes
        the class uname beside the other items of its scope."""
        if isinstance(t, idltype.Sequence) and self.builtin_sequence(t) is None:
            return self.sequence_class(t, where, owner_q, owner_rt, uname, modpath, items)
        return self.ty(t, where)

    def sequence_class(self, seq, where, owner_q, owner_rt, uname, modpath, items):
        q = join_q(owner_q, uname)
        rt = (owner_rt + "::" + uname) if owner_rt else uname
        inner = uname + "_seq" if uname.startswith("_") else "_" + uname + "_seq"
        elem = self.member_ty(seq.seqType(), where, owner_q, owner_rt, inner, modpath, items)
        if elem.kind == "array":
            fail(where, "sequences of arrays are not supported")
        item = Item("seq", where, modpath)
        item.q = q
        item.uname = uname
        item.rt = rt
        item.elem = elem
        item.named = False  # a typedef's sequence has a TypeCode of its own
        items.append(item)
        return Ty("seq", q, variable=True)

    # ------------------------------------------------------------ walking

    def build(self):
        for d in self.tree.declarations():
            self.index(d)
        self.read_pragmas()
        for d in self.tree.declarations():
            self.top(d, [])
        for item in self.items:
            if in_corba(item.modpath) and item.kind != "enum":
                item.uname = item.q if hasattr(item, "q") else "CORBA_" + item.uname

    def top(self, decl, modpath):
        if not decl.mainFile():
            header = self.include_of(decl.file())
            if header not in self.includes:
                self.includes.append(header)
            return
        if isinstance(decl, idlast.Module):
            for d in decl.definitions():
                self.top(d, modpath + [decl.identifier()])
            return
        self.declare(decl, modpath, None, self.items)

    def include_of(self, idl):
        """How X.h includes the header of the #included IDL file idl."""
        name = os.path.basename(idl)
        header = os.path.splitext(name)[0] + ".h"
        if name in self.broker_idl:
            return "<kelvanor/%s>" % header
        return '"%s"' % header

    def owner_names(self, owner):
        if owner is None:
            return "", ""
        return owner.q, owner.rt

    def declare(self, decl, modpath, owner, items):
        """Items for one declaration at namespace scope (owner None) or in
        the class of owner."""
        if isinstance(decl, idlast.Interface):
            if decl.abstract() or decl.local():
                fail(decl, "abstract and local interfaces are not supported")
            self.interface(decl, modpath, items)
        elif isinstance(decl, idlast.Forward):
            if decl.abstract() or decl.local():
                fail(decl, "abstract and local interfaces are not supported")
            item = Item("forward", decl, modpath)
            item.q = cxx_scoped(decl.scopedName())
            item.uname = cxx(decl.identifier())
            items.append(item)
        elif isinstance(decl, idlast.Struct):
            key = tuple(decl.scopedName())
            if key in self.classes:
                item = Item("alias", decl, modpath)
                item.uname = cxx(decl.identifier())
                item.target = self.classes[key][0]
                item.extra = []
                items.append(item)
            else:
                self.struct(decl, "struct", modpath, items)
        elif isinstance(decl, idlast.Exception):
            self.struct(decl, "exception", modpath, items)
        elif isinstance(decl, idlast.Enum):
            item = Item("enum", decl, modpath)
            item.q = cxx_scoped(decl.scopedName())
            item.uname = cxx(decl.identifier())
            item.rt = runtime_name(decl.scopedName())
            item.names = [cxx(e.identifier()) for e in decl.enumerators()]
            items.append(item)
        elif isinstance(decl, idlast.Typedef):
            self.typedef(decl, modpath, owner, items)
        elif isinstance(decl, idlast.Const):
            self.const(decl, modpath, items)
        elif isinstance(decl, (idlast.StructForward,)):
            pass  # the full declaration follows in the same file
        elif isinstance(decl, idlast.Union):
            self.union(decl, modpath, items)
        elif isinstance(decl, idlast.UnionForward):
            pass  # the full declaration follows in the same file
        else:
            fail(decl, "this declaration is not supported")

    def struct(self, decl, kind, modpath, items):
        item = Item(kind, decl, modpath)
        item.q = cxx_scoped(decl.scopedName())
        item.uname = cxx(decl.identifier())
        item.rt = runtime_name(decl.scopedName())
        item.members = []
        item.labels = {}  # C++ member name -> IDL name, for the printing form
        for m in decl.members():
            if m.constrType():
                self.declare(m.memberType().decl(), modpath, item, item.nested)
            for dcl in m.declarators():
                name = cxx(dcl.identifier())
                t = self.member_ty(m.memberType(), m, item.q, item.rt,
                                   "_" + dcl.identifier() + "_seq", modpath, item.nested)
                if dcl.sizes():
                    t = self.array_item(dcl, t, item.q, "_" + dcl.identifier() + "_array",
                                        modpath, item.nested, False)
                item.members.append((name, t))
                item.labels[name] = dcl.identifier()
        if kind == "struct":
            item.variable = self.struct_variable(decl)
        items.append(item)

    def union(self, decl, modpath, items):
        item = Item("union", decl, modpath)
        item.q = cxx_scoped(decl.scopedName())
        item.uname = cxx(decl.identifier())
        item.rt = runtime_name(decl.scopedName())
        switch = unalias(decl.switchType())
        item.disc = self.ty(switch, decl)
        if item.disc.kind not in ("prim", "enum") or item.disc.prim in (
                idltype.tk_float, idltype.tk_double, idltype.tk_octet):
            fail(decl, "a union discriminator must be an integer, char, boolean or enum")
        item.cases = []  # (C++ name, Ty, [(value, C++ label)], default?, IDL name)
        used = set()
        for c in decl.cases():
            if c.constrType():
                self.declare(c.caseType().decl(), modpath, item, item.nested)
            dcl = c.declarator()
            if dcl.sizes():
                fail(dcl, "arrays are not supported in unions")
            t = self.member_ty(c.caseType(), c, item.q, item.rt,
                               "_" + dcl.identifier() + "_seq", modpath, item.nested)
            if t.kind == "class":
                fail(c, "a kelvanor_class structure cannot be a union member")
            labels = []
            default = False
            for lab in c.labels():
                if lab.default():
                    default = True
                    continue
                value, text = union_label(lab.value(), item.disc)
                used.add(value)
                labels.append((value, text))
            item.cases.append((cxx(dcl.identifier()), t, labels, default, dcl.identifier()))
        item.variable = self.struct_variable(decl)
        # The discriminator of a new union, and of one set through the
        # default member: the default's first free value, else the first label.
        free = 0
        while free in used:
            free += 1
        if item.disc.kind == "enum":
            item.free = "static_cast<%s>(%d)" % (item.disc.name, free)
        else:
            item.free = "%s(%d)" % (item.disc.name, free)
        first = [c for c in item.cases if c[2]]
        has_default = any(c[3] for c in item.cases)
        item.initial = item.free if has_default or not first else first[0][2][0][1]
        items.append(item)

    def array_item(self, dcl, elem, owner_q, uname, modpath, items, named):
        """The item of an array of elem with the sizes of dcl, named uname
        in owner_q, and its Ty."""
        if elem.kind == "class":
            fail(dcl, "arrays of a kelvanor_class structure are not supported")
        item = Item("array", dcl, modpath)
        item.q = join_q(owner_q, uname)
        item.uname = uname
        item.elem = elem
        item.named = named
        items.append(item)
        return Ty("array", item.q, variable=elem.variable or elem.kind == "string",
                  dims=dcl.sizes())

    def typedef(self, decl, modpath, owner, items):
        if decl.constrType():
            self.declare(decl.aliasType().decl(), modpath, owner, items)
        owner_q, owner_rt = self.owner_names(owner)
        if owner is None:
            owner_q = cxx_scoped(modpath)
            owner_rt = runtime_name(modpath)
        target = decl.aliasType()
        for dcl in decl.declarators():
            uname = cxx(dcl.identifier())
            if dcl.sizes():
                elem = self.member_ty(target, dcl, owner_q, owner_rt, "_" + uname + "_seq",
                                      modpath, items)
                self.array_item(dcl, elem, owner_q, uname, modpath, items, True)
                continue
            if isinstance(target, idltype.Sequence):
                # A typedef'd sequence is a class of that name, whatever its
                # element.
                self.sequence_class(target, dcl, owner_q, owner_rt, uname, modpath, items)
                items[-1].named = True
                continue
            t = self.ty(target, dcl)
            item = Item("alias", dcl, modpath)
            item.uname = uname
            item.target = t.name if t.kind != "string" else "char*"
            extra = []
            if t.kind == "string":
                extra.append("typedef CORBA_String_var %s_var;" % uname)
            elif t.kind == "object":
                if t.name == "CORBA_Object":
                    extra.append("typedef CORBA_Object* %s_ptr;" % uname)
                    extra.append("typedef CORBA_Object_var %s_var;" % uname)
                else:
                    extra.append("typedef %s* %s_ptr;" % (t.name, uname))
                    extra.append("typedef ZEBObjectVar<%s> %s_var;" % (t.name, uname))
            elif t.kind in ("struct", "seq"):
                extra.append("typedef ZEBVar<%s> %s_var;" % (t.name, uname))
            elif t.kind == "class":
                extra.append("typedef %s_var %s_var;" % (t.name, uname))
            item.extra = extra
            items.append(item)

    def const(self, decl, modpath, items):
        k = decl.constKind()
        v = decl.value()
        if k in PRIMITIVES:
            ctype = PRIMITIVES[k]
            if k == idltype.tk_boolean:
                text = "1" if v else "0"
            elif k == idltype.tk_char:
                text = c_char(v)
            elif k in (idltype.tk_float, idltype.tk_double):
                text = repr(float(v))
            elif k == idltype.tk_ulong:
                text = "%du" % v
            else:
                text = "%d" % v
        elif k == idltype.tk_string:
            ctype = "const char*"
            text = c_string(v)
        elif k == idltype.tk_enum:
            enum = unalias(decl.constType())
            ctype = cxx_scoped(enum.decl().scopedName())
            text = cxx_scoped(v.scopedName())
        else:
            fail(decl, "constants of this type are not supported")
        item = Item("const", decl, modpath)
        item.uname = cxx(decl.identifier())
        item.ctype = ctype
        item.text = text
        items.append(item)

    def interface(self, decl, modpath, items):
        item = Item("interface", decl, modpath)
        item.q = cxx_scoped(decl.scopedName())
        item.uname = cxx(decl.identifier())
        item.rt = runtime_name(decl.scopedName())
        item.bases = [as_interface(b) for b in decl.inherits()]
        item.ancestors = ancestors(decl)
        item.ops = self.callables(decl, item)
        # Every operation of the interface and its bases, for the skeleton.
        item.all_ops = []
        names = set()
        for iface in [decl] + item.ancestors:
            for op in (item.ops if iface is decl else self.callables(iface, None)):
                if op.cname + "/" + op.wire not in names:
                    names.add(op.cname + "/" + op.wire)
                    item.all_ops.append(op)
        for d in decl.declarations():
            self.declare(d, modpath, item, item.nested)
        items.append(item)
        self.skeletons.append(item)

    def callables(self, decl, item):
        ops = []
        used = set()

        def dispatcher(base):
            # A static of the skeleton class must not hide what servants
            # inherit from CORBA_Object and the stub class.
            name = base + "_op" if base in OBJECT_MEMBERS else base
            while name in used:
                name += "_"
            used.add(name)
            return name

        for c in decl.callables():
            if isinstance(c, idlast.Operation):
                if c.contexts():
                    fail(c, "context clauses are not supported")
                op = Op()
                op.cname = cxx(c.identifier())
                op.wire = c.identifier()
                op.oneway = c.oneway()
                op.result = self.ty(c.returnType(), c)
                op.params = [(p.direction(), self.ty(p.paramType(), p), cxx(p.identifier()))
                             for p in c.parameters()]
                op.method = dispatcher("_" + c.identifier())
                ops.append(op)
            else:
                t = self.ty(c.attrType(), c)
                for ident in c.identifiers():
                    get = Op()
                    get.cname = cxx(ident)
                    get.wire = "_get_" + ident
                    get.oneway = False
                    get.result = t
                    get.params = []
                    get.method = dispatcher("_get_" + ident)
                    ops.append(get)
                    if not c.readonly():
                        put = Op()
                        put.cname = cxx(ident)
                        put.wire = "_set_" + ident
                        put.oneway = False
                        put.result = VOID
                        put.params = [(0, t, "_value")]
                        put.method = dispatcher("_set_" + ident)
                        ops.append(put)
        return ops


class Op:
    """One entry of an interface's method table: an operation, or the reader
    or writer of an attribute."""

    def signature(self, qualifier="", prefix="", suffix=""):
        """Lines of the declaration, wrapped at the parameters."""
        params = ["%s %s" % (t.param_type(d), n) for d, t, n in self.params]
        head = "%s%s %s%s(" % (prefix, self.result.result_type(), qualifier, self.cname)
        return wrap(head, params, ")" + suffix)


def wrap(head, items, tail, width=96):
    """head, the items separated by commas, tail: on one line if it fits,
    else one line per item group aligned under the first."""
    one = head + ", ".join(items) + tail
    if len(one) <= width or not items:
        return [one]
    lines = []
    current = head
    pad = " " * len(head)
    for i, it in enumerate(items):
        piece = it + ("," if i + 1 < len(items) else tail)
        if current.strip() and current != head and len(current) + 1 + len(piece) > width:
            lines.append(current)
            current = pad + piece
        elif current == head:
            current = head + piece
        else:
            current += " " + piece
    lines.append(current)
    return lines


# ---------------------------------------------------------------- entry


def run(tree, args):
    import kelvanor_idl_out  # the writers use the names of this module
    base = os.path.splitext(os.path.basename(tree.file()))[0]
    broker_idl = set()
    for arg in args:
        if arg.startswith("broker_idl="):
            folder = arg[len("broker_idl="):]
            broker_idl.update(f for f in os.listdir(folder) if f.endswith(".idl"))
    try:
        gen = Generator(tree, broker_idl)
        gen.build()
        header = kelvanor_idl_out.HeaderWriter(gen, base).write()
        source = kelvanor_idl_out.SourceWriter(gen, base).write()
    except GenError as e:
        sys.stderr.write("%s: %s\n" % (e.where, e.message))
        sys.stderr.write("kelvanor-idl: nothing written for %s\n" % tree.file())
        sys.exit(1)
    kelvanor_idl_out.write_file(base + ".h", header)
    kelvanor_idl_out.write_file(base + ".cc", source)
