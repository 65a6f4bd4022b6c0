#!/bin/bash
# Starts a fresh Windows for another program: tools/windows/serve.sh PROCESSOR FOLDER DESCRIPTOR
#
# PROCESSOR is arm64, x64, or x64-with-x86 for an x64 Windows whose programs with WINEDLLPATH=/windows/libraries can start
# 32-bit ones.
# In this Windows the project is Z:\hx (read-only) and FOLDER, if it is not "", is Z:\run. Runs the commands that arrive on
# standard input, one per line, and writes the exit status of each on a line to DESCRIPTOR; session.sh describes the lines.
# Ends at the end of its input, or when the thread that started it ends in any way.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=../setup/setup.sh
. "$(dirname "$0")/../setup/setup.sh"

processor=$1 folder=$2 statuses=$3
need_packages
if [[ $processor == x64-with-x86 ]]; then
  processor=x64
  need_windows_with_x86
else
  need_windows "$processor"
fi
HX_PROJECT=$hxRoot HX_RUN_FOLDER=$folder \
  exec "$hxRoot/tools/windows/session.sh" "$processor" "$wineTree/tree" "$winePrefix/windows" --serve 3>&"$statuses"
