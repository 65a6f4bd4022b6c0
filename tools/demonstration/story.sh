# Sourced by the scripts of the demonstration, run*.sh, after setup.sh; they set runFolder.
#
# shellcheck shell=bash

# Time limit of one story in seconds: an installer that takes longer never ends. Under emulation a story takes about 20.
storyTimeLimit=120

# in_story SCRIPT [PREPARE]: calls the function PREPARE here, then runs SCRIPT of this folder inside a fresh ARM64
# Windows. Under emulation the process in which the installer runs the actions sometimes dies while it starts, and the
# installer then waits for it forever. in_story then starts again, at most twice.
in_story() {
  local script=$1 prepare=${2:-true} status attempt
  for attempt in 1 2 3; do
    "$prepare"
    say "starting the ARM64 Windows for $script"
    status=0
    timeout --foreground "$storyTimeLimit" \
      tools/windows/windows.py arm64 --folder "${runFolder:?}" -- \
      wine64 cmd /c "Z:\\hx\\tools\\demonstration\\$script" </dev/null |
      while IFS= read -r line; do say "${line%$'\r'}"; done || status=$?
    [[ $status -eq 124 && $attempt -lt 3 ]] || break
    say "the installer did not end within $storyTimeLimit seconds; starting again"
  done
  [[ $status -eq 0 ]] || die "$script failed in Windows (status $status)"
}

# Print a heading.
chapter() { printf '%s\n%s\n\n' "$1" "${1//?/=}"; }
section() { printf '%s\n\n' "$1"; }
