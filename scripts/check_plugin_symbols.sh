#!/usr/bin/env bash
# Fails when the plug-in needs anything of the host that the SDK does not declare: every
# undefined dynamic symbol must be ORV's, the C or C++ runtime's, or the XML library's.
set -euo pipefail
lib="$1"
bad=$(nm -D -C --undefined-only "$lib" | awk '{ $1=""; sub(/^ /, ""); print }' |
  grep -v -E '^(ORV::|std::|operator (new|delete)|__cxa_|__gxx_|_Unwind_|__cxx|xercesc_3_2::|typeinfo for (std::|xercesc)|vtable for (std::|__cxxabiv1|xercesc)|VTT for std::)' |
  grep -v -E '@GLIBC|@CXXABI|@GLIBCXX|@GCC|^_ITM_|^__gmon_start__|^_Jv_RegisterClasses|^__cxa_finalize' || true)
# Undefined symbols with a version tag belong to the C/C++ runtimes; what remains is foreign.
if [ -n "$bad" ]; then
  echo "$(basename "$lib") needs symbols outside the SDK and the runtimes:"
  echo "$bad"
  exit 1
fi
echo "$(basename "$lib") needs nothing outside the SDK and the runtimes"
