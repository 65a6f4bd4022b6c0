# shellcheck shell=bash
# The benchmarks of ./hx. Sourced by ./hx, not run.
#
# shellcheck disable=SC2154  # set by ./hx

help_bench() {
  cat <<HELP
usage: ./hx bench [full]
       ./hx bench arm64 [--write]

Builds the benchmarks and runs them on x64, which takes about two minutes after the build.

  full       adds trees of 10,000 and 100,000 files, and installations on both processors; takes half an hour
  arm64      counts the instructions of the ARM64 library instead, and prints by how much they differ from the table
             bench/counts/arm64.txt; takes half a minute after the build. The exit status is 1 if a count differs.
    --write  writes that table, for a change that is on purpose

docs/benchmarks.md explains the numbers.
HELP
}

# Reads the command line of "bench" into benchPart ("", full or arm64) and benchOptions.
read_bench_words() {
  local word
  benchPart='' benchOptions=()
  for word in "$@"; do
    case $word in
      --write) benchOptions=(--write) ;;
      -*) no_option bench "$word" ;;
      full | arm64)
        [[ -z $benchPart ]] || wrong "bench takes one of full and arm64, not $benchPart and $word."
        benchPart=$word
        ;;
      *) no_word bench "$word" full arm64 ;;
    esac
  done
  [[ ${#benchOptions[@]} -eq 0 || $benchPart == arm64 ]] ||
    wrong "--write belongs to 'bench arm64'. ./hx bench --help lists what bench takes."
}

take_bench() {
  build_presets x64
  build_preset x64 empty
  build_preset arm64 hxsetup
  build_preset x64-tests bench
  cp build/x64-tests/bench_*.exe build/x64/*.dll "$runFolder/"
  cp build/arm64/hxsetup.dll "$runFolder/hxsetup-arm64.dll"
}

# Counts the instructions of the ARM64 library.
bench_arm64() {
  need_packages
  need_windows arm64
  with_build_lock take_build "arm64 hxsetup hxinternals" "arm64-tests bench_format bench_path bench_messages action_tests"
  cp "$runFolder/arm64-tests"/*.exe "$runFolder/arm64/"
  exec python3 tools/counting/count_instructions.py "$runFolder/arm64" "${benchOptions[@]}"
}

# Measures what the library adds to an installation, on both processors.
bench_installations() {
  local processor folder
  for processor in x64 arm64; do
    need_windows "$processor"
    with_build_lock take_build "$processor hxsetup agent ostrack witness" "$processor-tests calls nothing"
    folder=$runFolder/$processor
    cp "$runFolder/$processor-tests"/*.dll "$folder/"
    python3 tools/counting/installations.py "$processor" "$folder" || die "the installations on $processor failed"
  done
}

bench_command() {
  local program
  read_bench_words "$@"
  [[ $benchPart != arm64 ]] || bench_arm64
  need_packages
  if [[ $benchPart == full ]]; then
    # Half of the work would be done before the installations need it.
    need_rights arm64 "leave out the installations: ./hx bench"
    need_windows arm64
  fi
  need_windows x64
  with_build_lock take_bench
  for program in "$runFolder"/bench_*.exe; do
    program=$(basename "$program")
    say "running $program"
    tools/windows/windows.py x64 --folder "$runFolder" -- \
      'HX_LIBRARY_DIR=Z:\run' 'HX_ARTIFACTS=Z:\run' wine64 "Z:\\run\\$program" ${benchPart:+"$benchPart"} ||
      die "$program failed"
  done
  [[ $benchPart != full ]] || bench_installations
}
