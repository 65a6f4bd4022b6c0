#!/bin/bash
# The upgrade of a server on the ARM64 Windows, told from the folders, the installer's own log and the registry.
# tools/run.sh calls it; HX_RUN_FOLDER is the folder of the run, which holds packages/arm64.
#
# The older server's programs are on drive C:. Its data are elsewhere, in a folder that is seen here as well: so it
# is this system that counts and compares them before and after, and not the library under its own eyes.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=tools/setup.sh
. tools/setup.sh
# shellcheck source=tools/story.sh
. tools/story.sh

runFolder=${HX_RUN_FOLDER:?is the folder of the run}
story=$runFolder/server
store=$story/store

text() { tr -d '\r' <"$1"; }
summary() { tools/server-tree.py show "$1"; }

make_data() {
  say "making the data of an older server"
  rm -rf "$store"
  mkdir -p "$store"
  tools/server-tree.py make "$store/Data"
  before=$(summary "$store/Data")
  names=$(tools/server-tree.py names "$store/Data")
}

in_story run-server.cmd make_data

mkdir -p build/artifacts/run
for run in older upgrade; do
  cp "$story/$run.log" "build/artifacts/run/server-$run.log"
  code=$(text "$story/$run.code" | tr -d ' ')
  [[ $code == 0 ]] || {
    text "$story/$run.log" >&2
    die "the installer failed with exit code $code"
  }
done

dated=("$store/Data "*)
[[ $(summary "${dated[0]}") == "$before" ]] || die "what was moved aside is not what was there"
[[ $(summary "$store/Data") == "${before/format 1/format 2}" ]] || die "the new server's data are not the older one's"

# ---- what it left

# Of the programs' folder, what stands behind the maker's name.
programs() { text "$1" | sed 's/^.*\\Halvorstead\\/      /' | sort; }
setting() { text "$1" | sed -n 's/^ *vtdf *REG_SZ *//p'; }
properties=(PROP_UPGRADE PROP_REPLACING PROP_DFPRESENT PROP_PREVVTDF DIR_PROGRAMS64 DIR_SERVER DIR_DATAFOLDER
  DIR_EXSERVER DIR_EXDATA DIR_UPG DIR_UPG_DATA DIR_UPG_HELPERDATA DIR_UPG_VRDF DIR_UPG_VRDF_PREFS)
# The installer sets the data of a deferred action as the property of the action's name.
deferred() { text "$story/upgrade.log" | sed -n "s/^Property(S): \(CustomAction[0-9]*\.$1\) = /\1\t/p"; }

echo "THE OLDER SERVER"
echo
echo '  C:\Program Files\Halvorstead'
programs "$story/programs-before.txt"
printf '  vtdf = %s\n' "$(setting "$story/setting-before.txt")"
printf '      %s\n' "$before" "$names"
echo
echo "THE UPGRADE: WHAT THE ACTIONS FOUND AND DECIDED"
echo
for name in "${properties[@]}"; do
  value=$(text "$story/upgrade.log" | sed -n "s/^Property(S): $name = //p" | tail -n 1)
  printf '  %-20s %s\n' "$name" "${value:--}"
done
echo
echo "THE UPGRADE: WHAT THE DEFERRED ACTIONS WERE TOLD"
echo
for action in Server Data Clear Judge; do
  deferred "$action" | while IFS=$'\t' read -r name data; do
    printf '  %-22s %s\n' "$name" "$data"
  done
done
echo
echo "THE UPGRADE: THE INSTALLER'S SCRIPT"
echo
# Each action has its start in the log twice: when it is scheduled, and when the script runs it.
text "$story/upgrade.log" | awk '
  /^Action ended .*(CustomAction|ConvertDatabase|InstallFiles)/ {
    sub(/^Action ended [^ ]* /, ""); name = $1
    if (seen[name]++) print "  " $0
  }
  /Setup Log:|older server could/ { print "  " $0 }'
echo
echo "THE NEW SERVER"
echo
echo '  C:\Program Files\Halvorstead'
programs "$story/programs-after.txt"
printf '  vtdf = %s\n' "$(setting "$story/setting-after.txt")"
for folder in "$store"/*/; do
  printf '  Z:\\run\\server\\store\\%s\n      %s\n' "$(basename "$folder")" "$(summary "$folder")"
done
