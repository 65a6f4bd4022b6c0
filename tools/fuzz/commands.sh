# shellcheck shell=bash
# The command of ./hx that fuzzes. Sourced by ./hx, not run.
#
# shellcheck disable=SC2154  # set by ./hx

# The targets, in the order of a run of all.
fuzzTargets=(formats raw-formats locale dates paths wildcards engine actions)

help_fuzz() {
  cat <<HELP
usage: ./hx fuzz [TARGET] [SECONDS] [--planted | --merge | --input FILE]

Runs parts of the x64 library on made-up input, with checks of addresses, in a program of this machine that answers
Windows. Begins with the inputs in fuzz/corpus. Prints for each target how many runs there were, how many edges of the
library's code they reached, and what was found; an input that fails is kept in build/fuzz/found. The exit status is 0 if
nothing was found.

  TARGET        only one target:
                  formats      formats with fitting arguments
                  raw-formats  any text as a format
                  locale       answers of the locale, of any form
                  dates        date patterns
                  paths        operations on paths, with failing allocations and damaged records
                  wildcards    patterns with "*" and "?", against a plain matcher
                  engine       command lines of the copy/move engine, on a made-up disk
                  actions      each action as a whole, on a made-up machine
  SECONDS       the time for each target; 60 if it is not given
  --planted     prove the targets instead: plant their bugs, one at a time, and let the fuzzer find each, without the
                corpus; keep the inputs that find them in fuzz/corpus
  --merge       after each target, add the inputs that reached something new to fuzz/corpus, and leave out what is not needed.
                An interrupted run does not keep what the target that it was fuzzing has reached
  --input FILE  run TARGET once, with this input, and print what happens

docs/testing.md describes the targets. ./hx test corpus runs the inputs of fuzz/corpus, and each planted bug.
HELP
}

# Reads the command line of "fuzz" into fuzzWords, the words for tools/fuzz/fuzz.py.
read_fuzz_words() {
  local target='' seconds='' kind='' input=''
  while [[ $# -gt 0 ]]; do
    case $1 in
      --planted | --merge | --input)
        [[ -z $kind ]] || wrong "fuzz takes only one of $kind and $1."
        kind=$1
        if [[ $1 == --input ]]; then
          need_file fuzz "an input" "${2-}"
          input=$(from_caller "$2")
          shift
        fi
        ;;
      -*) no_option fuzz "$1" ;;
      *[!0-9]* | '')
        [[ -z $target ]] || wrong "fuzz takes one target, not $target and $1."
        [[ " ${fuzzTargets[*]} " == *" $1 "* ]] || no_word fuzz "$1" "${fuzzTargets[@]}"
        target=$1
        ;;
      *)
        [[ -z $seconds ]] || wrong "fuzz takes one number of seconds, not $seconds and $1."
        [[ $1 =~ ^[1-9][0-9]{0,5}$ ]] || wrong "fuzz takes a number of seconds from 1 to 999999, not $1."
        seconds=$1
        ;;
    esac
    shift
  done
  [[ $kind != --input || -n $target ]] || wrong "--input needs the target: ./hx fuzz TARGET --input FILE."
  [[ -z $seconds || -z $kind || $kind == --merge ]] || wrong "fuzz does not take a number of seconds with $kind."
  fuzzWords=("${target:-all}" --seconds "${seconds:-60}")
  [[ -z $kind ]] || fuzzWords+=("$kind")
  [[ -z $input ]] || fuzzWords+=("$input")
}

fuzz() {
  read_fuzz_words "$@"
  need_packages
  with_build_lock take_build "x64-fuzz hxinternals" "fuzz hxfuzz"
  # exec, so that fuzz.py itself receives the signal that ends this process.
  exec python3 tools/fuzz/fuzz.py "$runFolder" "${fuzzWords[@]}"
}
