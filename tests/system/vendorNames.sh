#!/usr/bin/env bash
# vendorNames.sh LIBRARY STUB ARCHIVE LIST: the library imports the vendor's calls of LIST and weakly
# enyx_hw_mmio_destroy, the stub library has those of LIST and no other, and of the objects in the
# archive only the drivers name any.
set -euo pipefail
library=$1
stub=$2
archive=$3
list=$4
export LC_ALL=C

names() { grep -o 'enyx_hw_[a-z0-9_]*' | sort -u; }

diff -u <(names <"$list") <(nm -D "$library" | grep ' U ' | names) ||
    { echo "the library imports other calls than $list"; exit 1; }
[ "$(nm -D "$library" | grep ' w ' | names)" = enyx_hw_mmio_destroy ] ||
    { echo "enyx_hw_mmio_destroy is not the one weak import"; exit 1; }
diff -u <(names <"$list") <(nm -D --defined-only "$stub" | names) ||
    { echo "the stub has other calls than $list"; exit 1; }

# That the drivers are found shows that the others would be.
objects=$(nm -A "$archive" 2>/dev/null | grep ' [A-Za-z] enyx_hw_' | sed 's/^[^:]*:\([^:]*\):.*/\1/' | sort -u | tr '\n' ' ')
[ "$objects" = "drvCore.cpp.o drvDMAEnyx.cpp.o drvEnyx.cpp.o " ] ||
    { echo "these objects name the vendor's calls: $objects"; exit 1; }
