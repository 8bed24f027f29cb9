// Names in the agent's directory.
#include "dsname.h"

#include <cstring>

#include "tbiostrm.h"

TB_DEFINE_CLASS(DSName, "DSName", DSResource::desc());

DSName::DSName(const char* name, DSArgType argType, DSServiceType serviceType,
               DSResource* argument)
    : _name(name), _argType(argType), _serviceType(serviceType), _argument(argument) {
    ref(_argument);
}

DSName::DSName(TBistream& strm)
    : DSResource(strm), _name(strm), _argType(DS_ARG_DEFAULT),
      _serviceType(DS_SERVICE_NAME), _argument(nullptr) {
    int arg = _argType, service = _serviceType;
    strm >> arg >> service;
    _argType = static_cast<DSArgType>(arg);
    _serviceType = static_cast<DSServiceType>(service);
    _argument = DSreadResource(strm);
    ref(_argument);
}

DSName::DSName(const DSName& other)
    : DSResource(other), _name(other._name), _argType(other._argType),
      _serviceType(other._serviceType), _argument(other._argument) {
    ref(_argument);
}

DSName& DSName::operator=(const DSName& other) {
    if (this == &other) return *this;
    _name = other._name;
    _argType = other._argType;
    _serviceType = other._serviceType;
    ref(other._argument);  // before the unref: both may be the same object
    unref(_argument);
    _argument = other._argument;
    return *this;
}

DSName::~DSName() { unref(_argument); }

unsigned DSName::hash() const {
    return _name.hash() ^ static_cast<unsigned>(_argType) ^ static_cast<unsigned>(_serviceType);
}

int DSName::compare(const TBObject& other) const {
    const DSName* o = dynamic_cast<const DSName*>(&other);
    if (!o) return -1;
    if (int c = std::strcmp(name(), o->name())) return c;
    if (_argType != o->_argType) return _argType < o->_argType ? -1 : 1;
    if (_serviceType != o->_serviceType) return _serviceType < o->_serviceType ? -1 : 1;
    return 0;
}

void DSName::write(TBostream& strm) const {
    strm << static_cast<const TBTransObject&>(_name);
    strm << static_cast<int>(_argType) << static_cast<int>(_serviceType);
    strm << static_cast<const TBTransObject*>(_argument);
}

void DSName::prettyPrint(TBostream& strm) const {
    strm << "\nClassName: DSName\n" << "Name: " << name() << "\nArg Type: "
         << static_cast<int>(_argType) << "\nService Type: " << static_cast<int>(_serviceType)
         << "\nArgument: ";
    if (_argument)
        _argument->prettyPrint(strm);
    else
        strm << "(nil)";
    endl(strm);
}
