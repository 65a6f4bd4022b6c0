# shellcheck shell=bash
# The command "./hx mutants". Sourced by ./hx, not run.
#
# shellcheck disable=SC2154  # set by ./hx

help_mutants() {
  cat <<HELP
usage: ./hx mutants [COUNT] [SEED] [--survivors]

Changes the library in small ways and says which changes no test notices. Takes COUNT random changes (100 without it) of lines
of src/ that the unit and the actions tests run, and builds and tests a library with each of them, on x64. The same SEED (1
without it) takes the same changes. A changed library that hangs is ended. Changes that do not compile, or that make the same
code, do not count.

A survivor needs a new test, or an entry with its reason in tools/mutants/settled.txt. The exit status is 0 if every survivor
has an entry, every entry has its line, and no test notices a mutant that has an entry.

  --survivors  runs only those again that survived the last run of this SEED, for example after a new test. The other results
               stay, also those of earlier tests.

Measures at first for some minutes what the tests run, and then takes some seconds for each change. Each result is kept in
build/mutants at once: a run that was interrupted continues if neither src/, the build nor the tests have changed. The report is
build/mutants/report.txt.

Leave src/ and build/x64 alone until the run ends, because it reads them for each change. If src/ changes, the run stops.
HELP
}

# Reads the command line of "mutants" into mutantsWords.
read_mutants_words() {
  local word numbers=0
  mutantsWords=()
  for word in "$@"; do
    case $word in
      --survivors) ;;
      -*) no_option mutants "$word" ;;
      *)
        [[ $word =~ ^[1-9][0-9]{0,5}$ ]] || wrong "mutants takes numbers from 1 to 999999, not '$word'. ./hx mutants --help says more."
        numbers=$((numbers + 1))
        [[ $numbers -le 2 ]] || no_word mutants "$word"
        ;;
    esac
    mutantsWords+=("$word")
  done
}

mutants() {
  read_mutants_words "$@"
  need_packages
  need_windows x64
  with_build_lock take_build "x64 hxsetup hxinternals rigsubject" "x64-coverage hxsetup hxinternals rigsubject" \
    "x64-tests unit_tests action_tests"
  exec python3 tools/mutants/mutants.py "$runFolder" "${mutantsWords[@]}"
}
