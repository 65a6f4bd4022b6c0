#!/bin/bash
# Runs one command in a fresh Windows: tools/windows/windows.sh arm64|x64 [--folder FOLDER] -- [NAME=VALUE...] COMMAND...
#
# The command is a program of Wine's file tree, mostly "wine64 PROGRAM.EXE ARGUMENTS". The project folder is Z:\hx
# there (read-only); FOLDER, where given, is Z:\run. What the command changes elsewhere ends with it. For
# several commands in one Windows, source tools/setup/setup.sh and use open_windows, in_windows, close_windows.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=../setup/setup.sh
. "$(dirname "$0")/../setup/setup.sh"

processor=${1-} folder=
shift || true
if [[ ${1-} == --folder ]]; then
  folder=$(cd "$2" && pwd)
  shift 2
fi
[[ ($processor == arm64 || $processor == x64) && ${1-} == -- && $# -gt 1 ]] ||
  die "usage: tools/windows/windows.sh arm64|x64 [--folder FOLDER] -- [NAME=VALUE...] COMMAND..."
shift

need_packages
open_windows "$processor" "$folder"
status=0
in_windows "$@" || status=$?
close_windows
exit "$status"
