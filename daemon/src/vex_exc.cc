// Descriptions of the daemon's user exceptions: scoped names and
// repository ids, entered at static initialisation.
#include "vex_exc.h"

CORBA_EXCEPTION_DEFINE(Activation::InvalidPath, "Activation::InvalidPath",
                       "IDL:pellomar/Activation/InvalidPath:1.0", CORBA_UserException);
CORBA_EXCEPTION_DEFINE(Activation::DuplicateEntry, "Activation::DuplicateEntry",
                       "IDL:pellomar/Activation/DuplicateEntry:1.0", CORBA_UserException);
CORBA_EXCEPTION_DEFINE(Activation::NotRegistered, "Activation::NotRegistered",
                       "IDL:pellomar/Activation/NotRegistered:1.0", CORBA_UserException);
CORBA_EXCEPTION_DEFINE(Activation::IsActive, "Activation::IsActive",
                       "IDL:pellomar/Activation/IsActive:1.0", CORBA_UserException);
CORBA_EXCEPTION_DEFINE(Activation::Busy, "Activation::Busy",
                       "IDL:pellomar/Activation/Busy:1.0", CORBA_UserException);
CORBA_EXCEPTION_DEFINE(Activation::NotResponding, "Activation::NotResponding",
                       "IDL:pellomar/Activation/NotResponding:1.0", CORBA_UserException);
