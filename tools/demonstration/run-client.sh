#!/bin/bash
# Upgrades a client that is in use on the ARM64 Windows, and prints the machine's state before and after, the actions
# with their lines from the installer's own log, and the record of the client's programs.
# Called by run.sh; HX_RUN_FOLDER is the folder of the run, which contains arm64/agent.exe and packages/arm64.
#
# Running are the older client's service, its agent, an agent of another folder, a tool that closes when asked, and a
# network tool that refuses the first request. Then the next version is installed over the older one.
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=tools/setup/setup.sh
. tools/setup/setup.sh
. tools/demonstration/story.sh

runFolder=${HX_RUN_FOLDER:?is the folder of the run}
story=$runFolder/client

make_inputs() {
  rm -rf "$story"
  mkdir -p "$story"
  head -c 4096 /dev/zero | tr '\0' 'A' >"$story/audit"
}

in_story run-client.cmd make_inputs

text() { tr -d '\r' <"$1"; }

mkdir -p build/artifacts/run
for run in older upgrade removal; do
  cp "$story/$run.log" "build/artifacts/run/client-$run.log"
  code=$(text "$story/$run.code" | tr -d ' ')
  [[ $code == 0 ]] || {
    text "$story/$run.log" >&2
    die "the installer failed with exit code $code"
  }
done

# ---- the state of the machine

# The table of states: a row for each item, a column for each moment in "moments".
moments=()
row() {
  printf '  %-17s' "$1"
  shift
  printf ' %-26s' "$@"
}
states() {
  local name=$1 show=$2 moment values=()
  for moment in "${moments[@]}"; do values+=("$("$show" "$moment")"); done
  row "$name" "${values[@]}" | sed 's/ *$//'
  echo
}
# table MOMENT TITLE [MOMENT TITLE...]
table() {
  local titles=()
  moments=()
  while [[ $# -gt 0 ]]; do
    moments+=("$1")
    titles+=("$2")
    shift 2
  done
  row '' "${titles[@]}" | sed 's/ *$//'
  echo
  states service service
  states ostrel.exe program
  states running processes
  states AppInit_DLLs hook
  states LoadAppInit_DLLs switch
  states 'audit file' audit
  states tasks tasks
  echo
}
service() { text "$story/$1.service" | sed -n 's/^ *STATE *: [0-9]* *//p' | grep . || printf -- -; }
# The last line of the service's program: each version has its own.
program() { tail -n 1 "$story/$1.program" 2>/dev/null || printf -- -; }
processes() {
  text "$story/$1.processes" | sed -n 's/^\(audra\|tollgate\|osua\|osau\|ostrel32\)\.exe .*/\1/p' | sort | uniq -c |
    sed 's/^ *1 //; s/^ *\([0-9]*\) \(.*\)/\2 (\1)/' | paste -sd ' ' | grep . || printf -- -
}
hook() { text "$story/$1.hook" | sed -n 's/^ *AppInit_DLLs *REG_SZ *//p' | grep . || printf -- -; }
switch() { text "$story/$1.hook" | sed -n 's/^ *LoadAppInit_DLLs *REG_DWORD *0x//p' | grep . || printf -- -; }
audit() { stat -c '%s bytes' "$story/$1.audit" 2>/dev/null || printf -- -; }
tasks() { text "$story/$1.tasks" | sed 's/.*\\//' | paste -sd ' ' | grep . || printf -- -; }

# script RUN ACTIONS: prints the library's actions and the given actions of the installer in the order in which they
# ran, each with its lines below it. An action of the installer's script is in the log twice: when it is scheduled, and
# inside InstallFinalize, when it runs.
script() {
  local deferred='CustomAction8 CustomAction9 CustomAction10 CustomAction28 CustomAction32'
  text "$story/$1.log" | awk -v own="$2" -v scripted="$2 $deferred CustomAction7.Removal" '
    function among(list) { return index(" " list " ", " " name " ") }
    /^Action start .*: InstallFinalize\.$/ { isInScript = 1 }
    /^Action ended .*: InstallFinalize\. / { isInScript = 0 }
    /^Action ended / {
      name = $4
      sub(/\.$/, "", name)
      if (name !~ /^CustomAction/ && !among(own)) next
      if (among(scripted) && !isInScript && name != "RemoveExistingProducts") next
      result = $NF == "1." ? "" : "  (return value " $NF ")"
      print "  " name result
      for (i = 1; i <= count; ++i) print "      " lines[i]
      count = 0
    }
    /Setup Log:|Halvorstead Client is running/ { lines[++count] = $0 }'
}

chapter "A CLIENT IS UPGRADED WHILE IT IS IN USE"
section "What was there"
echo "  A client is installed, and its service runs. Its agent runs (osua), and so does another program of the same"
echo "  name in C:\\Elsewhere, a tool whose window closes when asked (audra), and a network tool that refuses the first"
echo "  request (tollgate)."
echo
table machine "before anything" before "the older client, in use"
section "What the package did: msiexec /i client-newer.msi /qn"
echo "  Below each action are its lines of the log. The failures are this engine's, not the package's: it has no logon"
echo "  triggers (-16) and no idle settings (-19), so there is no task to run (-6)."
echo
script upgrade 'InstallFiles StartServices RemoveExistingProducts'
echo
section "What the client's programs say was done to them"
text "$story/after.record" | tail -n "+$(($(wc -l <"$story/before.record") + 1))" | sed 's/^/  /'
echo
section "What is there now"
table before "the older client, in use" after "the newer client"
section "And when the client is removed"
echo "  -5 is not an error: the first deletion removes the empty task folder, so the second deletion and the start find"
echo "  no folder."
echo
script removal 'StopServices DeleteServices RemoveFiles'
echo
table after "the newer client" removed "removed"
