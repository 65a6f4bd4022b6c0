#!/bin/bash
# The upgrade of a client that is in use on the ARM64 Windows, told from the machine's state before and after, the
# installer's own log, and what the client's programs record of what is done to them.
# tools/run.sh calls it; HX_RUN_FOLDER is the folder of the run, which holds arm64/agent.exe and packages/arm64.
#
# The older client's service runs, and so do an agent of it, an agent of another folder, a tool that closes when it is
# asked to, and a network tool that refuses the first time. Then the next version is installed over it.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=tools/setup.sh
. tools/setup.sh
. tools/story.sh

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

# ---- what it left

# The columns of the table of states: machine, before, after, removed.
row() { printf '  %-16s %-24s %-26s %-26s %s\n' "$@" | sed 's/ *$//'; }
columns() {
  local name=$1 show=$2
  row "$name" "$("$show" machine)" "$("$show" before)" "$("$show" after)" "$("$show" removed)"
}
service() { text "$story/$1.service" | sed -n 's/^ *STATE *: [0-9]* *//p' | grep . || printf -- -; }
# Of the service's program, the line that every version has behind its end.
program() { tail -n 1 "$story/$1.program" 2>/dev/null || printf -- -; }
processes() {
  text "$story/$1.processes" | sed -n 's/^\(audra\|tollgate\|osua\|osau\|ostrel32\)\.exe .*/\1/p' | sort | uniq -c |
    sed 's/^ *1 //; s/^ *\([0-9]*\) \(.*\)/\2 (\1)/' | paste -sd ' ' | grep . || printf -- -
}
hook() { text "$story/$1.hook" | sed -n 's/^ *AppInit_DLLs *REG_SZ *//p' | grep . || printf -- -; }
switch() { text "$story/$1.hook" | sed -n 's/^ *LoadAppInit_DLLs *REG_DWORD *0x//p' | grep . || printf -- -; }
audit() { stat -c '%s bytes' "$story/$1.audit" 2>/dev/null || printf -- -; }
tasks() { text "$story/$1.tasks" | sed 's/.*\\//' | paste -sd ' ' | grep . || printf -- -; }

# script RUN ACTIONS: the library's actions in the order in which they ran, those of the installer that they stand
# among, and below each what it wrote. What belongs into the installer's script is in the log twice: when it is
# scheduled, and inside InstallFinalize, when it runs.
script() {
  local deferred='CustomAction8 CustomAction9 CustomAction10 CustomAction11 CustomAction28 CustomAction32'
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

echo "A CLIENT IN USE: WHAT WAS THERE, AND WHAT IS THERE NOW"
echo
row "" "the machine" "older client, in use" "newer client" removed
row "run of msiexec" - install "install over it" remove
columns service service
columns ostrel.exe program
columns running processes
columns AppInit_DLLs hook
columns LoadAppInit_DLLs switch
columns 'audit file' audit
columns tasks tasks
echo
echo "  Of the two agents (osua) one is the client's; the other, in C:\\Elsewhere, only has its name. This"
echo "  engine lacks the logon triggers and idle settings that the agents' tasks need: hence -16 and -19"
echo "  below, the task folder that stays empty, and -6 and -5, because the task cannot be started."
echo
echo "THE UPGRADE: THE ACTIONS AS THEY RAN, AND WHAT THEY WROTE TO THE LOG"
echo
script upgrade 'InstallFiles StartServices RemoveExistingProducts'
echo
echo "THE UPGRADE: WHAT THE CLIENT'S PROGRAMS RECORDED"
echo
text "$story/after.record" | tail -n "+$(($(wc -l <"$story/before.record") + 1))" | sed 's/^/  /'
echo
echo "THE REMOVAL"
echo
script removal 'StopServices DeleteServices RemoveFiles'
