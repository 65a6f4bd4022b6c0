# shellcheck shell=bash
# The command of ./hx for the acceptance run. Sourced by ./hx, not run.
#
# shellcheck disable=SC2154  # set by ./hx

help_acceptance() {
  cat <<HELP
usage: ./hx acceptance [--processor arm64|x64] [--try]

Makes an archive for each processor, build/acceptance/hxsetup-acceptance-VERSION-PROCESSOR.zip, with which a person tests the
library on a Windows that has nothing else installed: the test programs, the libraries, the packages, and one script,
accept.cmd. docs/acceptance.md says how to use it and what to send back.

  --processor P   only the archive for arm64 or x64
  --try           also runs all of it in the Windows here (about half an hour on x64, much longer on ARM64). The exit status
                  is 0 if all tests passed; the reports are in build/artifacts/acceptance
HELP
}

# Reads the command line of "acceptance" into acceptanceProcessors and acceptanceTry.
read_acceptance_words() {
  acceptanceProcessors=("${processors[@]}") acceptanceTry=''
  while [[ $# -gt 0 ]]; do
    case $1 in
      --processor)
        [[ ${2-} == arm64 || ${2-} == x64 ]] ||
          wrong "--processor takes arm64 or x64. ./hx acceptance --help lists what acceptance takes."
        acceptanceProcessors=("$2")
        shift
        ;;
      --try) acceptanceTry=yes ;;
      -*) no_option acceptance "$1" ;;
      *) no_word acceptance "$1" "${processors[@]}" ;;
    esac
    shift
  done
}

acceptance_command() {
  local processor archives builds=()
  read_acceptance_words "$@"
  need_packages
  for processor in "${acceptanceProcessors[@]}"; do
    builds+=("$processor hxsetup hxinternals rigsubject agent ostrack witness"
      "$processor-checked hxinternals rigsubject"
      "$processor-tests accept unit_tests action_tests install_tests")
  done
  with_build_lock take_build "${builds[@]}"
  with_build_lock take_packages "${acceptanceProcessors[@]}"
  say "making the archives"
  mapfile -t archives < <(python3 tools/acceptance/pack.py "$runFolder" build/acceptance "${acceptanceProcessors[@]}")
  [[ ${#archives[@]} -eq ${#acceptanceProcessors[@]} ]] || die "the archives could not be made"
  printf '%s\n' "${archives[@]}"
  [[ -n $acceptanceTry ]] || return 0
  for processor in "${acceptanceProcessors[@]}"; do
    need_rights "$processor"
    need_windows "$processor"
  done
  exec python3 tools/acceptance/try_archive.py build/artifacts/acceptance "${archives[@]}"
}
