#!/bin/bash
# Links a program of the tests' compiler for release: hxrun/link-guarded.sh COMPILER OUTPUT RESOURCE INPUT...
#
# The compiler checks calls if -mguard=cf asks for it, but its own linker has no options for Control Flow Guard. So this asks the compiler which files it would link,
# among them its C++ library, and links the same files with lld.
set -euo pipefail
compiler=$1 output=$2 resource=$3
shift 3

# It prints its linker's command line, and then fails, because it cannot make the guard's tables.
asked=$("$compiler" --verbose "$@" -o "$output" 2>&1 || true)
line=$(grep -m 1 '^lld-link ' <<<"$asked") || {
  printf '%s\n' "$asked" >&2
  exit 1
}
read -ra words <<<"$line"
options=()
for word in "${words[@]:1}"; do
  case $word in
    -IMPLIB:*) ;;
    *) options+=("$word") ;;
  esac
done
exec lld-link-19 "${options[@]}" "$resource" -guard:cf -dynamicbase -highentropyva -nxcompat -timestamp:0
