#!/bin/bash
# Builds, tests and demonstrates hxsetup. "./hx help" lists the commands.
#
# shellcheck disable=SC2317  # each command's function is called by the name given on the command line
set -euo pipefail
# The folder in which the user called it; relative paths on the command line begin there.
callerFolder=${HX_CALLER_FOLDER:-$PWD}
export HX_CALLER_FOLDER=$callerFolder
cd "$(dirname "${BASH_SOURCE[0]}")"
# shellcheck source=tools/setup/setup.sh
. tools/setup/setup.sh
# shellcheck source=tools/packages/commands.sh
. tools/packages/commands.sh
# shellcheck source=tools/coverage/commands.sh
. tools/coverage/commands.sh
# shellcheck source=tools/mutants/commands.sh
. tools/mutants/commands.sh
# shellcheck source=tools/counting/commands.sh
. tools/counting/commands.sh
# shellcheck source=tools/acceptance/commands.sh
. tools/acceptance/commands.sh
# shellcheck source=tools/fuzz/commands.sh
. tools/fuzz/commands.sh
# shellcheck source=tools/lives/commands.sh
. tools/lives/commands.sh

processors=(x64 arm64)
# The levels of a run of all tests, and those that are run only by name.
levels=(images unit actions install)
otherLevels=(emulated tools packages page acceptance corpus)

# The commands, in the order of the help, and the options that each takes besides --help.
commands=(setup build package check-package try test coverage mutants acceptance lives check run explain bench fuzz dist lint clean help)
declare -A optionsOf=([test]=--only [explain]="--summary --mask" [dist]=--verify [clean]=--cache [bench]=--write
  [package]="--processor --define --out" [coverage]="--processor --lines --suites" [mutants]=--survivors
  [acceptance]="--processor --try" [fuzz]="--planted --merge --input")

help_overview() {
  cat <<HELP
usage: ./hx COMMAND

  setup                   install and make everything that the other commands need
  build                   make build/arm64/hxsetup.dll and build/x64/hxsetup.dll, with their PDBs, hxrun.exe, and the
                          checked builds
  package SOURCE.wxs      make your own package, with the compilers and the fragments; --processor arm64 or x64
  check-package FILE.msi  check a package: the rules of the fragments, of its tables, and of the engine (ICEs)
  try FILE.msi [N=V]...   install a package in a fresh Windows, show what it did, and remove it again
  test [LEVEL] [FILTER]   build and run the tests on both processors: all but what takes long on ARM64, or one level of
                          images, unit, actions, install; FILTER chooses tests ("Path*"); run only by name:
                          emulated (what takes long on ARM64), tools (hxrun), packages (packages of new authors),
                          page (explain.html in a browser), acceptance, corpus (the inputs of the fuzzer)
       --only x64         skip ARM64 (--only arm64 skips x64)
  coverage                measure what of src/ the unit and actions tests run, and compare it with the list of what they do
                          not run; --processor arm64 or x64, --lines FILE, --suites FILE
  mutants [COUNT] [SEED]  change the library in small ways, and say which changes no test notices
       --survivors        run only those again that survived
  acceptance              make archives that run the tests on another Windows; --processor arm64 or x64
       --try              run them in the Windows here, too
  lives [N] [N] [SEED]    take random steps in the lives of packages, and kill the engine in upgrades (50 orders, 20 kills)
  check                   check the files, in seconds: sources, pages, fragments, and the libraries if they are built
  run                     install a client and upgrade a server on the ARM64 Windows, and show what happened
  explain LOG...          say what happened in logs of Windows Installer, as docs/explain.html does
       --summary --mask   only the verdict and what needs attention; without names of users, hosts and domains
  bench [full]            run the benchmarks, on x64; "full" adds trees of 10,000 and 100,000 files, and installations
        arm64             count the instructions of the ARM64 library, and compare them with the committed table
       --write            write that table, for a change that is on purpose
  fuzz [TARGET] [SECONDS] run parts of the x64 library on made-up input, with checks of addresses
  dist                    make the release archive build/dist/hxsetup-VERSION.zip; signs the libraries if HX_SIGN_PKCS12
                          (or HX_SIGN_CERTIFICATE and HX_SIGN_KEY) names a certificate, see docs/release.md
       --verify           make it again in another folder, from a fresh clone, and compare
  lint                    run "check", and the formatting and static checks of the sources
  clean                   remove build/; with --cache also what setup made
  help [COMMAND]          print this text, or what one command does, as ./hx COMMAND --help does

Every command does the set-up that it needs. What it downloads or makes is kept, for all clones, in
$hxCache
(about 3 GB). It installs missing Debian packages. It writes nothing else outside that folder and build/, unless an option
says so: --out, --lines and --suites write your files, --write writes bench/counts/arm64.txt, and --merge and --planted
write fuzz/corpus.
HELP
}

help_setup() {
  cat <<HELP
usage: ./hx setup

Installs the missing Debian packages of tools/setup/packages.txt (needs root, or sudo without a password),
and makes in $hxCache
the compiler of the tests, GoogleTest, the compilers of packages, and a Windows for each processor. Takes some minutes
and about 3 GB the first time, and a moment afterwards. Every other command does the part of this that it needs.
HELP
}

help_build() {
  cat <<HELP
usage: ./hx build

Builds the library for both processors: build/arm64/hxsetup.dll and build/x64/hxsetup.dll, with their PDBs, and beside
each the hxrun.exe that runs one action of it. Also builds both libraries with traps on undefined behaviour, in build/arm64-checked and build/x64-checked.
HELP
}

help_test() {
  cat <<HELP
usage: ./hx test [LEVEL] [FILTER] [--only x64|arm64]

Builds what the tests need and runs them on both processors; without a LEVEL all of the first four but what takes long on
ARM64. Prints at the end how many tests there are and which passed only when they were run again. The last line is like "N passed, 0 failed"; the exit status is 0 if none failed.
What the tests leave is in build/artifacts.

  LEVEL      only one level:
               images    the checks of files (./hx check), of the DLLs and of the tools; needs no Windows
               unit      the internal operations
               actions   the exported entry points in a rigged Windows
               install   packages that are installed, upgraded and removed
               emulated  on ARM64, what a run without a level does on x64 only: the install tests of refused, failing and
                         interrupted runs, and the checked build; only if it is named
               tools     hxrun; only if it is named
               packages  packages of new authors, made and tried, and planted mistakes; only if it is named
               page      docs/explain.html in a browser, with the logs that the install level has left; only if it is named
               acceptance  the archives for another Windows and their script, with a few tests; only if it is named
               corpus    the inputs of the fuzzer, and planted bugs for its targets; on x64; only if it is named
  FILTER     only tests whose names match; needs a LEVEL before it, and images and emulated take none:
               unit, actions, install, tools  a GoogleTest filter of whole names, such as "Path*" or "Path*:Tree*"
               packages, acceptance, corpus   for the option -k of Python's unittest: a part of a name, such as
                         "planted", or with "*" a pattern for the whole name, such as "*Trial.test_p*"
               page      a part of a name, such as "contrast"
  --only P   only on the processor P: x64 or arm64; corpus has only x64, emulated only arm64

docs/testing.md describes the levels.
HELP
}

help_check() {
  cat <<HELP
usage: ./hx check

Runs all checks of files, in seconds: the rules of the source tree (tools/lint), the links of the pages, the texts of the
sources against the pages, and the entry points, the fragments and the pages against each other. Compiles nothing. Also
checks the libraries in build/ if they exist and are not older than their sources. ./hx lint and ./hx test images run
these checks too.
HELP
}

help_run() {
  cat <<HELP
usage: ./hx run

Runs the demonstration: builds the library, makes packages of a client and of a server, runs them on an ARM64 Windows
(Wine under user-mode emulation), and prints what was there before, what the packages did and what is there afterwards.
The verbose logs are left in build/artifacts/run, each with what it means as text. docs/demonstration.md is the output of one run.
HELP
}

help_explain() {
  cat <<HELP
usage: ./hx explain [--summary] [--mask] LOG...

Prints what happened in each log of Windows Installer: whether the run succeeded, which action failed first and why, what each
line of the library means, and what it did not say. docs/explain.html shows the same in a browser. Needs only Node.js. The exit
status is 0 if all runs succeeded, 1 if one did not, and 2 if a file is not a log.

  --summary  prints only the verdict and what needs attention
  --mask     replaces the names of users, hosts and domains
HELP
}

help_dist() {
  cat <<HELP
usage: ./hx dist [--verify]

Makes the release build/dist/hxsetup-VERSION.zip and its checksum. Refuses if the checkout has uncommitted changes. Signs
the libraries if HX_SIGN_PKCS12 (or HX_SIGN_CERTIFICATE and HX_SIGN_KEY) names a certificate.

  --verify   makes the release a second time, from a fresh clone in another folder, and compares the two

docs/release.md lists all variables and the steps of a release.
HELP
}

help_lint() {
  cat <<HELP
usage: ./hx lint

Checks the sources: clang-format, shellcheck, clang-tidy, the types and the lint of explain/, and everything that ./hx check does. Changes nothing.
HELP
}

help_clean() {
  cat <<HELP
usage: ./hx clean [--cache]

Removes build/. Refuses while another run is in progress in this folder.

  --cache    also removes what ./hx setup made, for all clones, in $hxCache
HELP
}

help_help() {
  cat <<HELP
usage: ./hx help [COMMAND]

Lists the commands, or prints what one of them does.
HELP
}

# wrong TEXT...: prints what is wrong with the command line and exits with status 2.
wrong() {
  printf '%s\n' "hx: $*" >&2
  exit 2
}

# distance A B: sets "steps" to the number of edits that turn A into B. An edit changes, adds or removes a letter, or swaps
# two neighbours.
distance() {
  local a=$1 b=$2 i j best
  local -A cost=()
  for ((i = 0; i <= ${#a}; ++i)); do
    for ((j = 0; j <= ${#b}; ++j)); do
      if ((i == 0 || j == 0)); then
        cost[$i,$j]=$((i + j))
        continue
      fi
      best=$((cost[$((i - 1)),$((j - 1))] + 1))
      [[ ${a:i-1:1} != "${b:j-1:1}" ]] || best=$((best - 1))
      ((cost[$((i - 1)),$j] + 1 >= best)) || best=$((cost[$((i - 1)),$j] + 1))
      ((cost[$i,$((j - 1))] + 1 >= best)) || best=$((cost[$i,$((j - 1))] + 1))
      if ((i > 1 && j > 1)) && [[ ${a:i-2:2} == "${b:j-1:1}${b:j-2:1}" ]]; then
        ((cost[$((i - 2)),$((j - 2))] + 1 >= best)) || best=$((cost[$((i - 2)),$((j - 2))] + 1))
      fi
      cost[$i,$j]=$best
    done
  done
  steps=${cost[${#a},${#b}]}
}

# nearest WORD CANDIDATE...: sets "hint" to a question that names the candidate most like WORD, or to "" if none is
# like it.
nearest() {
  local word=$1 candidate steps least
  shift
  # A word that needs this many edits is another word, not a typing error.
  least=$(((${#word} + 2) / 3 + 1))
  hint=''
  for candidate in "$@"; do
    distance "$word" "$candidate"
    ((steps < least)) || continue
    least=$steps
    hint=" Did you mean $candidate?"
  done
}

help() {
  if [[ $# -eq 0 ]]; then help_overview; else help_for "$1"; fi
}

is_command() { [[ " ${commands[*]} " == *" $1 "* ]]; }

# help_for COMMAND: prints what that command does.
help_for() {
  local hint
  if ! is_command "$1"; then
    nearest "$1" "${commands[@]}"
    wrong "there is no command '$1'.$hint ./hx help lists the commands."
  fi
  "help_$1"
}

# no_option COMMAND OPTION: exits because the command does not take the option.
no_option() {
  local hint takes=()
  read -ra takes <<<"${optionsOf[$1]-}"
  nearest "$2" --help "${takes[@]}"
  wrong "$1 does not take the option '$2'.$hint ./hx $1 --help lists what it takes."
}

# no_word COMMAND WORD [CANDIDATE...]: exits because the command does not take the word.
no_word() {
  local hint name=$1 word=$2
  shift 2
  nearest "$word" "$@"
  wrong "$name does not take '$word'.$hint ./hx $name --help lists what it takes."
}

# Reads the command line of "test" into chosenLevel, chosenTests and onlyProcessor; each is "" if not given.
read_test_words() {
  chosenLevel='' chosenTests='' onlyProcessor=''
  while [[ $# -gt 0 ]]; do
    case $1 in
      --only)
        [[ ${2-} == arm64 || ${2-} == x64 ]] || wrong "--only takes arm64 or x64. ./hx test --help lists what test takes."
        onlyProcessor=$2
        shift
        ;;
      -*) no_option test "$1" ;;
      *)
        if [[ -z $chosenLevel ]]; then
          [[ " ${levels[*]} ${otherLevels[*]} " == *" $1 "* ]] || no_word test "$1" "${levels[@]}" "${otherLevels[@]}"
          chosenLevel=$1
        elif [[ -z $chosenTests ]]; then
          chosenTests=$1
        else
          no_word test "$1"
        fi
        ;;
    esac
    shift
  done
  [[ $chosenLevel != images || -z $chosenTests ]] ||
    wrong "the level images always runs all its checks: it takes no filter. ./hx test --help lists what test takes."
  [[ $chosenLevel != corpus || $onlyProcessor != arm64 ]] ||
    wrong "the level corpus runs on x64 only, not with --only arm64. ./hx test --help lists what test takes."
  [[ $chosenLevel != emulated || $onlyProcessor != x64 ]] ||
    wrong "the level emulated runs on ARM64 only, not with --only x64. ./hx test --help lists what test takes."
  [[ $chosenLevel != emulated || -z $chosenTests ]] ||
    wrong "the level emulated takes no filter: use ./hx test install FILTER --only arm64, or unit in place of install."
}

# Prints help and exits if the command line asks for it. Exits with a message if the command line has a word that its
# command does not take. Runs before anything is made, so neither touches build/.
check_command_line() {
  local name=${1-help} word hint
  shift || true
  case $name in
    -h | --help) name=help ;;
  esac
  if ! is_command "$name"; then
    nearest "$name" "${commands[@]}"
    wrong "there is no command '$name'.$hint ./hx help lists the commands."
  fi
  for word in "$@"; do
    case $word in
      -h | --help)
        help_for "$name"
        exit
        ;;
    esac
  done
  case $name in
    check-package | try) read_one_package "$name" "$@" ;;
    *)
      if declare -F "read_${name}_words" >/dev/null; then "read_${name}_words" "$@"; else check_words "$name" "$@"; fi
      ;;
  esac
}

# check_words COMMAND WORD...: the same for the commands that take at most one word or option.
check_words() {
  local name=$1 word words=()
  shift
  for word in "$@"; do
    case $word in
      -*) [[ " ${optionsOf[$name]-} " == *" $word "* ]] || no_option "$name" "$word" ;;
      *) words+=("$word") ;;
    esac
  done
  case $name in
    help) [[ ${#words[@]} -le 1 ]] || no_word help "${words[1]}" ;;
    explain) [[ ${#words[@]} -gt 0 ]] || wrong "explain needs a log. ./hx explain --help lists what it takes." ;;
    *) [[ ${#words[@]} -eq 0 ]] || no_word "$name" "${words[0]}" ${optionsOf[$name]+"${optionsOf[$name]}"} ;;
  esac
}

# ---- the build

# Runs "$@" under the build lock, so that no other run builds in this folder meanwhile.
with_build_lock() {
  local lock
  mkdir -p build
  exec {lock}>build/.lock
  if ! flock -n "$lock"; then
    say "waiting for another run that is building here"
    flock "$lock"
  fi
  "$@" {lock}>&-
  exec {lock}>&-
}

# build_preset PRESET [TARGET...]: configures the preset if needed, and builds the targets, or all.
build_preset() {
  local preset=$1 settings=() options=() log=build/$1.log
  shift
  if [[ $preset == *-tests ]]; then
    need_test_tools "${preset%-tests}"
    settings=(-DHX_TEST_TOOLS="$testTools")
    # A build folder of another compiler cannot be reused.
    grep -qsFx "HX_TEST_TOOLS:UNINITIALIZED=$testTools" "build/$preset/CMakeCache.txt" || rm -rf "build/$preset"
  fi
  if [[ ! -f build/$preset/build.ninja || CMakePresets.json -nt build/$preset/build.ninja ]]; then
    say "configuring $preset"
    cmake --preset "$preset" "${settings[@]}" >"$log" 2>&1 || {
      cat "$log" >&2
      die "configuring $preset failed"
    }
  fi
  say "building $preset${*:+: $*}"
  # At a terminal Ninja shows how many steps there are, how many are done and for how many seconds it has run.
  [[ -t 1 ]] || options=(--quiet)
  # Calls Ninja directly, not through cmake: Ninja stops its compilers on a signal.
  NINJA_STATUS='[%f/%t, %e s] ' ninja -C "build/$preset" "${options[@]}" "$@" || die "building $preset failed"
}

# build_hxrun PROCESSOR...: builds hxrun.exe and puts it beside the libraries.
build_hxrun() {
  local processor
  for processor in "$@"; do
    build_preset "$processor-tests" hxrun
    cp "build/$processor-tests/hxrun.exe" "build/$processor/"
  done
}

build_presets() {
  local preset
  for preset in "$@"; do
    build_preset "$preset"
  done
}

build() {
  need_packages
  with_build_lock build_presets arm64 x64 arm64-checked x64-checked
  with_build_lock build_hxrun arm64 x64
}

# ---- tests

# take_build "PRESET [TARGET...]"...: builds the targets of each preset, or all. Copies the resulting libraries and programs
# into the run's own folder, so that a later build cannot disturb the run.
take_build() {
  local build preset target names targets
  for build in "$@"; do
    read -r preset targets <<<"$build"
    # shellcheck disable=SC2086  # a list of targets
    build_preset "$preset" $targets
  done
  for build in "$@"; do
    read -r preset targets <<<"$build"
    names=()
    for target in ${targets:-"*"}; do
      names+=(-o -name "$target" -o -name "$target.dll" -o -name "$target.pdb" -o -name "$target.exe")
    done
    mkdir -p "$runFolder/$preset"
    find "build/$preset" -maxdepth 1 -type f \( "${names[@]:1}" \) -exec cp -t "$runFolder/$preset" {} +
  done
}

# Makes the installer packages of the processors from the run's libraries; copies them to build/packages.
take_packages() {
  local processor
  for processor in "$@"; do
    say "making the packages for $processor"
    python3 tools/packages/make_packages.py "$processor" "$runFolder/$processor/hxsetup.dll" "$runFolder/packages/$processor"
    rm -rf "build/packages/$processor"
    mkdir -p build/packages
    cp -a "$runFolder/packages/$processor" build/packages/
  done
}

# tools/testing plans what is built and run, runs the tests and adds up the results.
test_command() {
  local words=() windows=() builds=() packages=() page='' verb what processor
  read_test_words "$@"
  [[ -z $chosenLevel ]] || words+=(--level "$chosenLevel")
  # One word, because a filter may begin with "-".
  [[ -z $chosenTests ]] || words+=("--filter=$chosenTests")
  [[ -z $onlyProcessor ]] || words+=(--only "$onlyProcessor")

  need_packages
  while read -r verb what; do
    case $verb in
      windows) windows+=("$what") ;;
      build) builds+=("$what") ;;
      packages) packages+=("$what") ;;
      page) page=yes ;;
    esac
  done < <(python3 tools/testing/planning.py "${words[@]}")
  [[ ${#builds[@]} -gt 0 || -n $page ]] || die "the tests could not be planned"
  if [[ -n $page ]]; then
    need_packages packages-page.txt
    need_page_tools
    export HX_PAGE_TOOLS=${pageTools:?}
  fi
  for processor in "${windows[@]}"; do
    need_rights "$processor" "skip ARM64: ./hx test --only x64"
  done
  for processor in "${windows[@]}"; do
    need_windows "$processor"
  done
  with_build_lock take_build "${builds[@]}"
  [[ ${#packages[@]} -eq 0 ]] || with_build_lock take_packages "${packages[@]}"
  # exec, so that run.py itself receives the signal that ends this process.
  exec python3 tools/testing/run.py "$runFolder" "${words[@]}"
}

# ---- the other commands

setup() {
  local processor
  need_packages
  need_compilers
  need_page_tools
  for processor in "${processors[@]}"; do
    need_test_tools "$processor"
    need_windows "$processor"
  done
  say "everything is there, in $hxCache"
}

run() {
  need_packages
  with_build_lock take_build arm64 x64 "arm64-tests hxrun"
  cp "$runFolder/arm64-tests/hxrun.exe" "$runFolder/arm64/"
  need_windows arm64
  HX_RUN_FOLDER=$runFolder tools/demonstration/run.sh
}

# Prints what logs mean. The names of the logs are those of the folder in which hx was called.
explain() {
  command -v node >/dev/null || die "explain needs Node.js 18 or newer: apt-get install nodejs"
  cd "$callerFolder"
  node "$hxRoot/explain/explain.mjs" "$@"
}

dist() {
  local second=$runFolder/second processor
  [[ $# -eq 0 || -z ${HX_SIGN_TIMESTAMP-} ]] || die "no two releases with a time stamp are the same"
  need_packages
  # Refuses early; dist.py checks again when it makes the release.
  python3 tools/release/dist.py --check || exit 1
  with_build_lock take_build arm64 x64 "arm64-tests hxrun" "x64-tests hxrun"
  for processor in "${processors[@]}"; do
    cp "$runFolder/$processor-tests/hxrun.exe" "$runFolder/$processor/"
  done
  {
    python3 tools/images/check-images.py "$runFolder/arm64" "$runFolder/x64" &&
      python3 tools/images/check-images.py --program "$runFolder/arm64" "$runFolder/x64"
  } >"$runFolder/images.txt" || {
    cat "$runFolder/images.txt" >&2
    die "these libraries and programs cannot be released"
  }
  [[ -n ${HX_SIGN_PKCS12-}${HX_SIGN_CERTIFICATE-} ]] || say "the libraries are not signed"
  python3 tools/release/dist.py "$runFolder" build/dist
  [[ $# -gt 0 ]] || return 0
  say "making the same release in another folder"
  git clone -q . "$second"
  "$second/hx" dist >"$runFolder/second.txt"
  diff -r build/dist "$second/build/dist" >&2 || die "the second release differs from the first"
  say "the second release is the same, bit by bit"
}

check() {
  need_packages
  python3 tools/testing/check.py
}

lint() {
  local failed=0 files
  need_packages
  need_page_tools
  with_build_lock build_presets x64 fuzz
  say "clang-format"
  mapfile -t files < <(find src tests hxrun bench fuzz packages tools -name '*.cpp' -o -name '*.c' -o -name '*.h' | sort)
  clang-format-19 --dry-run -Werror "${files[@]}" || failed=1
  say "shellcheck"
  shellcheck -x hx hxrun/*.sh tools/*/*.sh || failed=1
  say "clang-tidy"
  mapfile -t files < <(find src packages tools -name '*.cpp' | sort)
  # Its findings go to standard output; its error output has only counts.
  printf '%s\0' "${files[@]}" |
    xargs -0 -n 4 -P 2 clang-tidy-19 -p build/x64 --quiet --warnings-as-errors='*' 2>build/clang-tidy.log ||
    failed=1
  mapfile -t files < <(find fuzz -name '*.cpp' ! -path 'fuzz/image/*' | sort)
  printf '%s\0' "${files[@]}" |
    xargs -0 -n 4 -P 2 clang-tidy-19 -p build/fuzz --quiet --warnings-as-errors='*' 2>>build/clang-tidy.log ||
    failed=1
  say "types and lint of explain/"
  node "${pageTools:?}/node_modules/typescript/bin/tsc" -p explain --typeRoots "$pageTools/node_modules/@types" || failed=1
  (cd explain && node "$pageTools/node_modules/eslint/bin/eslint.js" .) || failed=1
  say "check"
  python3 tools/testing/check.py || failed=1
  [[ $failed -eq 0 ]] || die "lint found something"
  say "lint found nothing"
}

clean() {
  local folder
  for folder in build/.runs/*/; do
    [[ ! -d $folder ]] || (flock -n 9) 9>"$folder/.lock" || die "another run is at work here"
  done
  rm -rf build
  if [[ ${1-} == --cache ]]; then
    say "removing $hxCache"
    chmod -R u+w "$hxCache" 2>/dev/null || true
    rm -rf "$hxCache"
  fi
}

# ---- one run: from here to the end of its last process

# within SECONDS COMMAND...: runs the command until it succeeds; fails after this time.
within() {
  local end=$((SECONDS + $1))
  shift
  until "$@"; do
    ((SECONDS <= end)) || return 1
    sleep 0.1
  done
}
worker_is_gone() { ! kill -0 -- "-$worker" 2>/dev/null; }
remove_run_folder() { rm -rf "$runFolder" 2>/dev/null; }

# remove_left FOLDER: removes the folder of a run that has ended, or says that this failed.
remove_left() { rm -rf "$1" || say "note: this could not be removed: $1"; }

# Ends the worker's process group and removes the run's folder. Reads worker and runFolder.
end_run() {
  trap '' INT TERM HUP
  kill -TERM -- "-$worker" 2>/dev/null || true
  # The worker's end also ends its Windows sessions. Its compilers get 2 seconds to stop by themselves.
  if ! within 2 worker_is_gone; then
    kill -KILL -- "-$worker" 2>/dev/null || true
    within 10 worker_is_gone || true
  fi
  # A process of a session may end a moment later, and may have written a file while its folder was removed. The next run
  # removes what is left.
  within 10 remove_run_folder || remove_left "$runFolder"
}
interrupted() {
  end_run
  say "interrupted"
  exit "$1"
}

dispatch() {
  local name=${1-help}
  shift || true
  case $name in
    -h | --help) name=help ;;
  esac
  # Some commands are functions with another name, because a program or a variable has theirs.
  if declare -F "${name//-/_}_command" >/dev/null; then name=${name//-/_}_command; fi
  "$name" "$@"
}

main() {
  if [[ -n ${HX_RUN_WORKER-} ]]; then
    runFolder=$HX_RUN_WORKER
    unset HX_RUN_WORKER
    # Sent if the process that waits for this one was killed: ends the whole group.
    trap 'trap "" TERM; kill -TERM 0; exit 143' TERM
    dispatch "$@"
    exit
  fi

  check_command_line "$@"
  case ${1-help} in
    clean | help | explain | -h | --help)
      dispatch "$@"
      exit
      ;;
  esac

  # The background jobs of a script start with SIGINT ignored, and a shell cannot undo that for itself.
  [[ -n ${HX_INTERRUPTIBLE-} ]] || HX_INTERRUPTIBLE=1 exec env --default-signal=INT "$BASH" "$hxRoot/hx" "$@"
  unset HX_INTERRUPTIBLE

  # A separate process group does the work, so that an interruption of any kind ends all of it. This process only
  # waits and cleans up. What the run uses and writes is in its own folder; the lock in that folder is held as long
  # as this process lives.
  runFolder=$PWD/build/.runs/$$
  mkdir -p build/.runs
  exec 7>build/.runs/.lock
  flock 7
  for left in build/.runs/*/; do
    [[ -d $left ]] || continue
    if (flock -n 9) 9>"$left.lock"; then
      remove_left "${left%/}"
    fi
  done
  mkdir "$runFolder"
  exec 8>"$runFolder/.lock"
  flock 8
  exec 7>&-

  trap 'interrupted 130' INT
  trap 'interrupted 143' TERM
  trap 'interrupted 129' HUP

  HX_RUN_WORKER=$runFolder setsid setpriv --pdeathsig TERM "$BASH" "$hxRoot/hx" "$@" 8>&- &
  worker=$!
  status=0
  wait "$worker" || status=$?
  end_run
  exit "$status"
}

# The shell has read the whole script before main starts, so a later change of the file does not affect this run.
main "$@"
