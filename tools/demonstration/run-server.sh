#!/bin/bash
# Asks hxrun what the upgrade of a server would do, and upgrades it on the ARM64 Windows. Then installs and removes a
# server with its own account. Prints the folders, the registry and the lines of the installer's own log.
# Called by run.sh; HX_RUN_FOLDER is the folder of the run, which contains arm64/hxrun.exe and packages/arm64.
#
# The older server's programs are on drive C:. Its data are in a folder that this system sees too. So this system counts
# and compares them before and after, independently of the library.
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=tools/setup/setup.sh
. tools/setup/setup.sh
# shellcheck source=tools/demonstration/story.sh
. tools/demonstration/story.sh

runFolder=${HX_RUN_FOLDER:?is the folder of the run}
story=$runFolder/server
store=$story/store

text() { tr -d '\r' <"$1"; }
summary() { tools/demonstration/server-tree.py show "$1"; }

make_data() {
  say "making the data of an older server"
  rm -rf "$store" "$story/private" "$story/asked.txt"
  mkdir -p "$store" "$story/private/Data"
  # The folder's content inherits full access for the owner, and none for others.
  chmod 700 "$story/private"
  chmod 755 "$story/private/Data"
  tools/demonstration/server-tree.py make "$store/Data"
  before=$(summary "$store/Data")
  names=$(tools/demonstration/server-tree.py names "$store/Data")
}

in_story run-server.cmd make_data

mkdir -p build/artifacts/run
for run in older upgrade away account removal rollback; do
  # This engine also lists hidden properties if a run fails.
  sed 's/\(PROP_ACCOUNTPASS = \).*/\1********/' "$story/$run.log" >"build/artifacts/run/server-$run.log"
  code=$(text "$story/$run.code" | tr -d ' ')
  [[ $code == 0 || $run$code == rollback1603 ]] || {
    text "build/artifacts/run/server-$run.log" >&2
    die "the installer's run \"$run\" ended with exit code $code"
  }
done

dated=("$store/Data "*)
[[ $(summary "${dated[0]}") == "$before" ]] || die "the data that were moved aside have changed"
[[ $(summary "$store/Data") == "${before/format 1/format 2}" ]] || die "the new data differ from the older ones"

# ---- the questions

for answer in programs setting; do
  [[ $(text "$story/$answer-asked.txt") == "$(text "$story/$answer-before.txt")" ]] ||
    die "a question has changed the machine: compare $story/$answer-before.txt with $answer-asked.txt"
done

chapter "WHAT WOULD THE UPGRADE OF A SERVER DO?"
section "What hxrun says, before the upgrade below"
# An empty line after each answer.
text "$story/asked.txt" | sed 's/^/  /; /^  exit status /s/$/\n/'
section "What is there now"
echo "  The older server's programs and settings, as they were before the questions."
echo

# ---- the upgrade

# The files of a listing, without the path up to the maker's folder.
programs() { text "$1" | sed 's/^.*\\Halvorstead\\/      /' | sort; }
setting() { text "$1" | sed -n 's/^ *vtdf *REG_SZ *//p'; }
properties=(PROP_UPGRADE PROP_REPLACING PROP_DFPRESENT PROP_PREVVTDF DIR_PROGRAMS64 DIR_SERVER DIR_DATAFOLDER
  DIR_EXSERVER DIR_EXDATA DIR_UPG DIR_UPG_DATA DIR_UPG_HELPERDATA DIR_UPG_VRDF DIR_UPG_VRDF_PREFS)
# The installer sets the data of a deferred action as a property with the action's name.
deferred() { text "$story/upgrade.log" | sed -n "s/^Property(S): \(CustomAction1[567]\.$1\) = /\1\t/p"; }

chapter "A SERVER IS UPGRADED IN PLACE, WITH ITS DATA"
section "What was there"
echo "  An older server, with its data in a separate folder. Equal fingerprints mean equal names and contents."
echo
echo '  C:\Program Files\Halvorstead'
programs "$story/programs-before.txt"
printf '  vtdf = %s\n' "$(setting "$story/setting-before.txt")"
printf '      %s\n' "$before" "$names"
echo
section "What the package did: it found and decided"
for name in "${properties[@]}"; do
  value=$(text "$story/upgrade.log" | sed -n "s/^Property(S): $name = //p" | tail -n 1)
  printf '  %-20s %s\n' "$name" "${value:--}"
done
echo
section "What it passed to the deferred actions"
for action in LookAtOlder Server Data LookAtData Clear Judge; do
  deferred "$action" | while IFS=$'\t' read -r name data; do
    printf '  %-26s %s\n' "$name" "$data"
  done
done
echo
section "What the installer's script ran, with results (1 is success)"
# The log has each action twice: when it is scheduled, and when the script runs it.
text "$story/upgrade.log" | awk '
  /^Action ended .*(CustomAction1[567]|ConvertDatabase|InstallFiles)/ {
    sub(/^Action ended [^ ]* /, ""); name = $1
    if (seen[name]++) print "  " $0
  }
  /older server could/ { print "  " $0 }'
echo
section "What is there now"
echo "  The new server with the converted data, and beside it the older server, unchanged."
echo
echo '  C:\Program Files\Halvorstead'
programs "$story/programs-after.txt"
printf '  vtdf = %s\n' "$(setting "$story/setting-after.txt")"
for folder in "$store"/*/; do
  printf '  Z:\\run\\server\\store\\%s\n      %s\n' "$(basename "$folder")" "$(summary "$folder")"
done

# ---- the account

# told RUN: prints the actions that logged something, with their lines and the witness's.
told() {
  text "$story/$1.log" | LC_ALL=C awk '
    /^Action ended / {
      name = $4
      sub(/\.$/, "", name)
      if (count) print "  " name
      for (i = 1; i <= count; ++i) print "      " lines[i]
      count = 0
    }
    /Setup Log:|^Witness:/ { lines[++count] = $0 }'
}
published() {
  local value
  value=$(text build/artifacts/run/server-account.log | sed -n "s/^Property(S): $1 = //p")
  printf '  %-20s %s\n' "$1" "${value:--}"
}

echo
chapter "A SERVER GETS AN ACCOUNT OF ITS OWN"
section "What was there"
echo "  No server: the one above has been removed. The new data folder is in a folder that only its owner may enter."
echo
section "What the package did: msiexec /i server-watched.msi /qn PROP_ACCOUNTTYPE=1 ..."
echo "  The failures are this engine's, not the package's: it cannot look up an account that it has created (no right,"
echo "  and -36). So the witness also sets access for the user who installs, whom the engine can look up."
echo
told account
echo
section "What is there now"
for name in PROP_ACCOUNTNAME PROP_ACCOUNTDOMAIN PROP_ACCOUNTPASS; do published "$name"; done
text "$story/account.txt" |
  sed -n 's/^ *\(ObjectName\|EventMessageFile\) *REG_SZ *\(.*\)/\1\t\2/p; s/^ *STATE *: [0-9]* */STATE\t/p' |
  while IFS=$'\t' read -r name value; do printf '  %-20s %s\n' "$name" "$value"; done
mode=$(stat -c %A "$story/private/Data")
printf '  %-20s %s\n' 'the data folder' "drwxr-xr-x, then $mode (seen from outside Windows)"
echo
section "And when the server is removed"
echo "  The failure is this engine's, not the package's: it does not report a service's failure actions (124)."
echo
told removal
echo
section "And when an installation fails: the account is created, and deleted by the rollback"
echo "  As above, -36 and the missing right come from this engine."
echo
told rollback
echo
printf '  exit code %s, service %s\n' "$(text "$story/rollback.code")" \
  "$(grep -q ObjectName "$story/rollback.txt" && echo 'still there' || echo gone)"
