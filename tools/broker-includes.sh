#!/usr/bin/env bash
# Rewrites, in every header of the tree, the include lines that name a broker
# header ("orb.h") to the form users write (<kelvanor/orb.h>). A header that
# kelvanor-idl writes from a user's orb.idl sits earlier on the include path
# than the broker's folders, so only a path with the kelvanor/ folder in it
# cannot be taken by a generated file. Run it again after adding a header;
# it changes nothing that is already in that form.
#   bash tools/broker-includes.sh
set -euo pipefail
cd "$(dirname "$0")/.."

# The broker's headers: those of the four layers that are installed, and
# the ones generated from the broker's own IDL files.
names=$(ls dispatch/include base/include zeb/include CORBA/include | grep '\.h$' || true)
names+=" $(cd CORBA/idl && ls ./*.idl | sed 's|^\./||; s/\.idl$/.h/')"
pattern=$(echo $names | tr ' ' '\n' | sed 's/\./\\./' | paste -sd'|')

for h in dispatch/include/*.h base/include/*.h zeb/include/*.h CORBA/include/*.h daemon/include/*.h; do
  sed -E -i "s@^#include \"($pattern)\"@#include <kelvanor/\\1>@" "$h"
done
