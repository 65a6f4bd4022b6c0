#!/bin/bash
# The demonstration on the ARM64 Windows, in chapters. It prints lines of the installer's own log, the registry and the
# folders. run-client.sh upgrades a client that is in use; run-server.sh asks hxrun what the upgrade of a server would
# do, upgrades it, and installs one with its own account; this script lets a client package take over stored settings.
# Called by "./hx run"; HX_RUN_FOLDER is the folder of the run, which contains arm64/hxsetup.dll and arm64/hxrun.exe.
#
# Each of the three stores has different settings, which shows the store that a value came from. The package runs four
# times: once with no store selected and an empty version, which shows the values without the actions, and once with
# each store selected. Then it is removed.
set -euo pipefail
cd "$(dirname "$0")/../.."
. tools/setup/setup.sh
. tools/demonstration/story.sh

runFolder=${HX_RUN_FOLDER:?is the folder of the run}
story=$runFolder/story
mkdir -p "$story"

fields=(host site assetID assetLocation assetOwner)
properties=(PROP_HOSTNAME PROP_SITE PROP_ASSETID PROP_ASSETLOCATION PROP_ASSETOWNER)

# settings STORE: sets `values` to the store's settings, in the order of the fields.
settings() {
  case $1 in
    file) values=(file-meter.example 'Hall 3' F-1001 'Room 12' Mercer) ;;
    user) values=(user-meter.example 'Hall 5' U-2002 'Room 34' Okafor) ;;
    service) values=(service-meter.example 'Hall 7' S-3003 'Room 56' Lindqvist) ;;
  esac
}

# The settings file with each value of the switch, and the import file for the registry.
settings file
for switch in 0 1 2 3; do
  {
    printf '[options]\nregistry=%s\n' "$switch"
    for i in 1 2 3 4; do
      printf '%s=%s\n' "${fields[i]}" "${values[i]}"
    done
    printf '[logon]\nhost=%s\n' "${values[0]}"
  } | sed 's/$/\r/' >"$story/ostrel-$switch.ini"
done
{
  echo REGEDIT4
  for store in user service; do
    settings "$store"
    key='HKEY_CURRENT_USER\Software\Quillfern\Ostrel'
    [[ $store == user ]] || key='HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services\Ostrel\Settings'
    printf '\n[%s\\logon]\n"host"="%s"\n\n[%s\\options]\n' "$key" "${values[0]}" "$key"
    for i in 1 2 3 4; do
      printf '"%s"="%s"\n' "${fields[i]}" "${values[i]}"
    done
  done
} | sed 's/$/\r/' >"$story/settings.reg"

say "making the packages for arm64"
python3 tools/packages/make_packages.py arm64 "$runFolder/arm64/hxsetup.dll" "$runFolder/packages/arm64"

# Each emulated Windows has one processor; the server's Windows gets another processor than the client's.
HX_LANE=1 tools/demonstration/run-server.sh >"$runFolder/server.txt" &
server=$!
export HX_LANE=0

in_story run.cmd

# ---- the settings

text() { tr -d '\r' <"$1"; }
exit_code() { text "$story/$1.code" | tr -d ' '; }
# property RUN NAME: prints its value at the end of the run, "-" if it was not set.
property() {
  local value
  value=$(text "$story/$1.log" | sed -n "s/^Property(S): $2 = //p" | tail -n 1)
  printf '%s' "${value:--}"
}
# shown_version RUN: prints the version of the uninstall entry after the run, "-" without an entry.
shown_version() {
  local value
  value=$(text "$story/$1.entry" | sed -n 's/^ *DisplayVersion *REG_SZ *//p')
  printf '%s' "${value:--}"
}
# actions RUN: prints the numbers of the actions for settings and version that the installer ran, in order.
actions() {
  text "$story/$1.log" | sed -n 's/^Action ended .* CustomAction\(3\|26\|4\|30\)\. Return value 1\.$/\1/p' |
    paste -sd ' '
}
# Prints a row of the table.
row() { printf '  %-19s %-14s %-19s %-19s %s\n' "$@" | sed 's/ *$//'; }
registry_text() { text "$1" | sed '/^$/d; s/^/  /'; }

for run in 1 2 3 4 5; do
  [[ $(exit_code "$run") == 0 ]] || {
    text "$story/$run.log" >&2
    die "run $run of the installer failed with exit code $(exit_code "$run")"
  }
done

mkdir -p build/artifacts/run
cp "$story"/*.log build/artifacts/run/
tools/explain/beside.py build/artifacts/run
say "the verbose logs are in build/artifacts/run, with explain.html, which explains them"

tools/demonstration/run-client.sh >"$runFolder/client.txt"
status=0
wait "$server" || status=$?
cat "$runFolder/client.txt"
cat "$runFolder/server.txt"
echo
chapter "A CLIENT TAKES OVER THE SETTINGS THAT A MACHINE HAS"
section "What was there"
echo "  Settings of an older agent, in each of the three places where an agent may have stored them."
echo
echo '  C:\windows\ostrel.ini (before the first run; "registry" selects the store, and changes before each later run)'
text "$story/file.txt" | sed 's/^/    /'
registry_text "$story/user.txt"
registry_text "$story/service.txt"
echo
section "What the package did, run by run"
row "" before "0: settings file" "1: current user" "2: service"
row "" "(registry=3)" "(registry=0)" "(registry=1)" "(registry=2)"
row "run of msiexec" install "over itself" "over itself" "next version"
row "exit code" "$(exit_code 1)" "$(exit_code 2)" "$(exit_code 3)" "$(exit_code 4)"
row "actions run" "$(actions 1)" "$(actions 2)" "$(actions 3)" "$(actions 4)"
for name in "${properties[@]}"; do
  row "$name" "$(property 1 "$name")" "$(property 2 "$name")" "$(property 3 "$name")" "$(property 4 "$name")"
done
row ProductVersion "$(property 1 ProductVersion)" "$(property 2 ProductVersion)" "$(property 3 ProductVersion)" \
  "$(property 4 ProductVersion)"
row PROP_VERSION "$(property 1 PROP_VERSION)" "$(property 2 PROP_VERSION)" "$(property 3 PROP_VERSION)" \
  "$(property 4 PROP_VERSION)"
row DisplayVersion "$(shown_version 1)" "$(shown_version 2)" "$(shown_version 3)" "$(shown_version 4)"
echo
echo '  The PROP_ values are from the verbose log, at the end of the run. DisplayVersion is from the uninstall'
echo '  entry in the registry, after the run. The first run had PROP_VERSION="" on its command line.'
echo
section "What these actions wrote to the installer's log"
titles=([1]="before" [2]="0: settings file" [3]="1: current user" [4]="2: service" [5]="removal")
for run in 1 2 3 4 5; do
  lines=$(text "$story/$run.log" | grep -E 'Setup Log: .*(ARP| uninstall registry)' || true)
  printf '  %s\n' "${titles[run]}"
  printf "%s\n" "${lines:-(nothing)}" | sed "s/^/    /"
done
echo
section "And when it is removed"
printf '  exit code %s, actions run %s, DisplayVersion %s\n' "$(exit_code 5)" "$(actions 5)" "$(shown_version 5)"

# Beside each log what it means. A run that failed, as some do here on purpose, is explained with status 1.
for log in build/artifacts/run/*.log; do
  node explain/explain.mjs "$log" >"${log%.log}.txt" || [[ $? -eq 1 ]] || status=1
done
exit "$status"
