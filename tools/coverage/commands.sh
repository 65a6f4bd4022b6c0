# shellcheck shell=bash
# The command "./hx coverage". Sourced by ./hx, not run.
#
# shellcheck disable=SC2154  # set by ./hx

help_coverage() {
  cat <<HELP
usage: ./hx coverage [LEVEL [FILTER]] [--processor x64|arm64] [--lines FILE] [--suites FILE]

Runs the unit tests and the actions tests with libraries that count what runs. Prints how many lines, branches and MC/DC
conditions of each file of src/ ran, and writes an HTML report to build/coverage. Fails if a line or a branch of src/ did not
run and tools/coverage/not-run.txt does not have it, or if the list has one that did run or is not there any more.

  LEVEL            measures only one level, unit or actions; then nothing is compared with the list
  FILTER           only tests whose names match this GoogleTest filter; needs a LEVEL before it
  --processor P    x64 (which it is without this option) or arm64
  --lines FILE     also writes the numbers of the lines that ran, as JSON: {"src/base/text.cpp": [21, 22], ...}
  --suites FILE    the same for each suite of tests: {"unit": {"TextTest": {"src/base/text.cpp": [21, 22], ...}, ...}, ...}

Takes about two minutes after the build on x64.
HELP
}

# True if a file can be written, before anything is measured for it.
file_can_be_written() {
  if [[ -e $1 ]]; then [[ -w $1 ]]; else [[ -d $(dirname "$1") && -w $(dirname "$1") ]]; fi
}

# Reads the command line of "coverage" into coverageProcessor and coverageWords.
read_coverage_words() {
  local level='' filter=''
  coverageProcessor=x64 coverageWords=()
  while [[ $# -gt 0 ]]; do
    case $1 in
      --processor)
        [[ ${2-} == arm64 || ${2-} == x64 ]] ||
          wrong "--processor takes arm64 or x64. ./hx coverage --help lists what coverage takes."
        coverageProcessor=$2
        shift
        ;;
      --lines | --suites)
        [[ -n ${2-} ]] || wrong "$1 needs the path of a file. ./hx coverage --help lists what coverage takes."
        [[ ! -d $(from_caller "$2") ]] || wrong "$1 needs the path of a file; '$2' is a folder."
        file_can_be_written "$(from_caller "$2")" ||
          wrong "$1 cannot write '$2': its folder must exist, and you need the right to write there."
        coverageWords+=("$1" "$(from_caller "$2")")
        shift
        ;;
      -*) no_option coverage "$1" ;;
      *)
        if [[ -z $level ]]; then
          [[ $1 == unit || $1 == actions ]] || no_word coverage "$1" unit actions
          level=$1
        elif [[ -z $filter ]]; then
          filter=$1
        else
          no_word coverage "$1"
        fi
        ;;
    esac
    shift
  done
  [[ -z $level ]] || coverageWords+=(--level "$level")
  [[ -z $filter ]] || coverageWords+=("--filter=$filter")
}

coverage() {
  read_coverage_words "$@"
  need_packages
  need_windows "$coverageProcessor"
  with_build_lock take_build "$coverageProcessor-coverage hxsetup hxinternals rigsubject" \
    "$coverageProcessor-tests unit_tests action_tests"
  exec python3 tools/coverage/measure.py "$runFolder" --processor "$coverageProcessor" "${coverageWords[@]}"
}
